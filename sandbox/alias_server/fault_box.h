// SPDX-License-Identifier: Apache-2.0
// The fault that is in force, and the connections that it holds.
#pragma once

#include <mutex>
#include <optional>
#include <set>

#include "fault.h"

namespace ARDV::Sandbox {

/// Holds at most one fault. Safe for several threads.
class FaultBox {
public:
    /// Puts `fault` in force in place of the one before. Connections that a silent fault holds stay held.
    void Set(Fault fault);

    /// Ends the fault in force and breaks the connections that silent faults hold.
    void Clear();

    /// Takes one use of the fault in force, if there is one, and plays it (PlayFault()) on `connection`. `taken`
    /// becomes the fault, or nothing. True: the connection has had all it will get.
    bool Play(Connection& connection, std::optional<Fault>& taken);

private:
    std::optional<Fault> Take(Connection& connection);
    void Release(Connection& connection);

    std::mutex mutex_;
    std::optional<Fault> fault_;
    std::set<Connection*> held_;
};

}  // namespace ARDV::Sandbox
