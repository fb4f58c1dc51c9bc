// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

namespace ardvw3 {

/// The web server configuration engine, on which settings objects are built.
///
/// It has no settings of its own. On generic Linux it holds nothing; a device may open its configuration store here. It
/// must outlive the objects that are built on it. Making one never fails.
class ARDVPLATFORM_API Engine {
public:
    Engine();
    ~Engine();  // NOLINT(performance-trivially-destructible): in the library, where a device's engine has something to do
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
};

}  // namespace ardvw3
