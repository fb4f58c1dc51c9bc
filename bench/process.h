// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace ardv::bench {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

double Milliseconds(nanoseconds time);

/** A program that runs on: a server, a daemon. Ended in order with this object, and killed where the benchmark dies. */
class Process {
public:
    /**
     * @param command the program's path, and its arguments
     * @param output file that its standard output and standard error are appended to
     */
    Process(const std::vector<std::string>& command, const std::string& output);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t Pid() const { return pid_; }

    /** Taken just before the program was started. */
    Clock::time_point StartedAt() const { return startedAt_; }

    /** Processor time of all of its threads, those that have ended included. */
    nanoseconds Cpu() const;

    /**
     * Waits until the process has not run at all for a while.
     *
     * @throws std::runtime_error when it is not quiet within three minutes
     */
    void AwaitQuiet(std::chrono::milliseconds length) const;

private:
    Clock::time_point startedAt_ = Clock::now();
    pid_t pid_ = -1;
};

/** What one run of a program took. */
struct RunFigures {
    nanoseconds wall;
    nanoseconds cpu;
};

/**
 * Runs a program to its end, with its output thrown away.
 *
 * @throws std::runtime_error when it fails
 */
RunFigures RunToEnd(const std::vector<std::string>& command);

/** How many system calls one run of a program takes, all of its threads together. */
int CountSystemCalls(const std::vector<std::string>& command);

/** What a program prints. */
std::string OutputOf(const std::vector<std::string>& command);

}  // namespace ardv::bench
