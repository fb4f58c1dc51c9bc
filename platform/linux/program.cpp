// SPDX-License-Identifier: Apache-2.0
#include <ardv/program.h>

#include <chrono>
#include <cstdarg>
#include <string>
#include <vector>

#include "platform/linux/error.h"
#include "platform/linux/process.h"

namespace ARDV::Platform {

namespace {

constexpr ProgramLimits kHelperLimits = {
    .time = std::chrono::seconds(ARDV_EXEC_HELPER_SECONDS), .output = 0, .errors = 0};

int RunHelper(const std::vector<std::string>& command) {
    const Result<ProgramOutcome> outcome = RunProgram(command, kHelperLimits);
    if (!outcome) {
        return Fail(outcome.Reason());
    }
    return outcome->isInTime && outcome->exitCode == 0 ? 0 : Fail(ARDV_ERR_PROGRAM_FAILED);
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ALIBCExecl(const char* path, int flags, const char* argument, ...) {
    va_list list;
    va_start(list, argument);
    const int result = Guarded([path, flags, argument, &list] {
        if (!path || *path != '/' || flags != ARDV_EXEC_HELPER) {
            return Fail(ARDV_ERR_INVALID_ARGUMENT);
        }
        std::vector<std::string> command = {path};
        for (const char* word = argument; word; word = va_arg(list, const char*)) {
            command.emplace_back(word);
        }
        return RunHelper(command);
    });
    va_end(list);
    return result;
}
