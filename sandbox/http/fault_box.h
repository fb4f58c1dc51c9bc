// SPDX-License-Identifier: Apache-2.0
// The faults that are in force, and the connections that they hold.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "http/fault.h"

namespace ARDV::Sandbox {

/// Holds at most one fault for each target, and one for any. Safe for several threads.
class FaultBox {
public:
    /// Puts `fault` in force in place of the one before for its target. Connections that a fault holds stay held.
    void Set(Fault fault);

    /// Ends the faults in force and breaks the connections that faults hold.
    void Clear();

    /// Takes one use of the fault for `target`, else of the one for any, if there is one, and plays it (PlayFault()) on
    /// `connection`. `taken` becomes the fault, or nothing. True: the connection has had all it will get.
    bool Play(Connection& connection, std::string_view target, std::optional<Fault>& taken);

    /// Plays `fault`, which is in force for this request alone. As PlayFault().
    bool PlayOnce(const Fault& fault, Connection& connection);

private:
    std::optional<Fault> Take(Connection& connection, std::string_view target);
    void Hold(const Fault& fault, Connection& connection);
    bool PlayHeld(const Fault& fault, Connection& connection);

    std::mutex mutex_;
    std::map<std::string, Fault, std::less<>> faults_;  ///< by target
    std::set<Connection*> held_;
};

}  // namespace ARDV::Sandbox
