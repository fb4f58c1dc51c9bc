// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ardv/export.h>

namespace ardvw3 {

/// The web server configuration engine, on which settings objects are built.
class ARDVPLATFORM_API Engine {
public:
    Engine();
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
};

}  // namespace ardvw3
