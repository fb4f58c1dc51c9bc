// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#include <ardvw3/engine.h>

namespace ardvw3 {

/// The web settings of the web service, apart from those of the operating system. On generic Linux they are in the same
/// file as those (<ardvw3/hos.h>), and read in the same way.
class ARDVPLATFORM_API WWWService {
public:
    /// Opens the settings; reads nothing yet.
    explicit WWWService(Engine& engine);

    /// Whether the web service speaks HTTP/2: `www_http2` is "yes"; by default it doesn't.
    bool GetEnableSPDY() const;
};

}  // namespace ardvw3
