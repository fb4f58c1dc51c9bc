// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ardv::test {

/** A program that runs beside the test; killed with this object. Everything throws std::runtime_error where it fails. */
class StartedProgram {
public:
    explicit StartedProgram(std::vector<std::string> command);
    ~StartedProgram();
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;

    pid_t Pid() const { return pid_; }

    /** Reads on from its standard output up to and with `end`, 10 seconds at most, and gives what was read. */
    std::string ReadUpTo(const std::string& end);

    /** Closes the reading end of its standard output. */
    void StopReading();

    void Signal(int number) const;

    /** Waits for its end, 10 seconds at most: the exit code, or 128 + the signal that ended it. */
    int Wait();

    /** How often the kernel has let it sleep of its own will. */
    long VoluntarySwitches() const;

private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string unread_;
};

}  // namespace ardv::test
