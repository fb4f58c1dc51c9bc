// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/** OpenVPN, the packet filter's programs and the VPN client's script, at their places: each records how it is called. */
class RecordedPrograms {
public:
    RecordedPrograms();

    /** The calls so far, in their order: the program's name for itself and its arguments, with "|" between them. */
    std::vector<std::string> Calls() const;

    /** Those of programs of this name, such as "iptables". */
    std::vector<std::string> CallsOf(const std::string& name) const;

    /** Forgets the calls so far. */
    void Forget();

    /** From now on, a program of this name ends with this code; OpenVPN at once. */
    void EndWith(const std::string& name, int code);

    /** OpenVPN stays until a signal ends it, as at first. */
    void LetOpenVpnStay();

    /** Waits for OpenVPN to run, 10 seconds at most: what it says of itself, a line each. */
    std::vector<std::string> AwaitOpenVpn() const;
};

}  // namespace ardv::test
