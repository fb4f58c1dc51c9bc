// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ardv::test {

/** The other processes that share this one's private root and stand in a network namespace ("": in any). Zombies don't count. */
std::vector<pid_t> ProcessesIn(const std::string& network);

/** The OpenVPN clients of the device: processes of its network namespace whose program is OpenVPN's. */
std::vector<pid_t> OpenVpnClients();

/** The arguments of a process; empty when it is gone. */
std::vector<std::string> ArgumentsOf(pid_t process);

/** The process's parent; -1 when it is gone. */
pid_t ParentOf(pid_t process);

/**
 * Kills whatever this process, or a program that it started, has left in the private root, when this object's life or this
 * process ends, however that comes. One at most at a time.
 */
class Undertaker {
public:
    Undertaker();
    ~Undertaker();
    Undertaker(const Undertaker&) = delete;
    Undertaker& operator=(const Undertaker&) = delete;

private:
    pid_t pid_ = -1;
    int held_ = -1;  ///< its end tells the process that this one has ended
};

}  // namespace ardv::test
