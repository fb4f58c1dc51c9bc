// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <exception>

#include "exit_code.h"
#include "program.h"

int main(int argc, char** argv) {
    try {
        return ardv::daemon::RunProgram(ardv::daemon::ReadOptions(argc, argv));
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "ardvrelayd: %s\n", problem.what());
        return ardv::daemon::kExitFailed;
    }
}
