// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace ardv::test {

/** How a made-up daemon behaves. */
struct DaemonHabits {
    std::string name = "ardvrelayd";  ///< as the kernel knows it
    std::string pidFile = "/var/run/ardvrelayd.pid";
    bool endsOnTerm = true;
    std::string report = "{}";            ///< its answer to SIGUSR1; empty: none
    std::chrono::milliseconds thinks{0};  ///< before it answers
};

/**
 * A process that tools take for the daemon: it has its name and pid file, and answers its signals. Killed with this object.
 * Its status file is written by the test.
 */
class MadeUpDaemon {
public:
    /** Returns when it is ready. */
    explicit MadeUpDaemon(const DaemonHabits& habits = {});
    ~MadeUpDaemon();
    MadeUpDaemon(const MadeUpDaemon&) = delete;
    MadeUpDaemon& operator=(const MadeUpDaemon&) = delete;

    pid_t Pid() const { return pid_; }

    /** Waits for the next signal that it gets, 10 seconds at most; throws std::runtime_error if there is none. */
    int NextSignal();

    /** How many signals it has got that the test hasn't asked for yet. */
    int SignalsLeft() const;

    /** Replaces the status file by its process id and these members: the inside of a JSON object. */
    void Publish(const std::string& members) const;

    /** Kills it. It has ended when this returns; its parent takes no notice of that until the end of this object. */
    void Die() const;

private:
    pid_t pid_ = -1;
    int signals_ = -1;
};

}  // namespace ardv::test
