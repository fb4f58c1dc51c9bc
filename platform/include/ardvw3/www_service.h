// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

#include <ardvw3/engine.h>

namespace ardvw3 {

/// The web settings of the web service, apart from those of the operating system.
class ARDVPLATFORM_API WWWService {
public:
    explicit WWWService(Engine& engine);

    bool GetEnableSPDY() const;
};

}  // namespace ardvw3
