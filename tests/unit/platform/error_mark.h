// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <ardv/cloud_identity.h>
#include <ardv/error.h>

namespace ARDV::Platform::Test {

/// Sets the thread's error triple, so that a test can tell whether a function left it alone.
class ErrorMark {
public:
    ErrorMark() {
        ARDVHsinfoCloudServiceGetMacAddress(nullptr, 0);
        line_ = ALIBCErrorGetLine();
    }

    bool IsThere() const {
        return ALIBCErrorGetFile() == std::string("cloud_identity.cpp") && ALIBCErrorGetLine() == line_;
    }

private:
    int line_ = 0;
};

}  // namespace ARDV::Platform::Test
