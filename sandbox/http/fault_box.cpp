// SPDX-License-Identifier: Apache-2.0
#include "http/fault_box.h"

#include <utility>

#include "http/connection.h"

namespace ARDV::Sandbox {

void FaultBox::Set(Fault fault) {
    const std::lock_guard lock(mutex_);
    std::string target = fault.target;
    faults_.insert_or_assign(std::move(target), std::move(fault));
}

void FaultBox::Clear() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
    for (Connection* connection : held_) {
        connection->Abort();
    }
}

bool FaultBox::Play(Connection& connection, std::string_view target, std::optional<Fault>& taken) {
    taken = Take(connection, target);
    return taken && PlayHeld(*taken, connection);
}

bool FaultBox::PlayOnce(const Fault& fault, Connection& connection) {
    {
        const std::lock_guard lock(mutex_);
        Hold(fault, connection);
    }
    return PlayHeld(fault, connection);
}

// A connection is listed in the same breath as its fault is taken, so that no Clear() can miss it.
std::optional<Fault> FaultBox::Take(Connection& connection, std::string_view target) {
    const std::lock_guard lock(mutex_);
    auto found = faults_.find(target);
    found = found == faults_.end() ? faults_.find("") : found;
    if (found == faults_.end()) {
        return std::nullopt;
    }
    Fault taken = found->second;
    Hold(taken, connection);
    if (taken.count != 0 && --found->second.count == 0) {
        faults_.erase(found);
    }
    return taken;
}

void FaultBox::Hold(const Fault& fault, Connection& connection) {
    if (fault.kind->isHeld) {
        held_.insert(&connection);
    }
}

bool FaultBox::PlayHeld(const Fault& fault, Connection& connection) {
    const bool isDone = PlayFault(fault, connection);
    const std::lock_guard lock(mutex_);
    held_.erase(&connection);
    return isDone;
}

}  // namespace ARDV::Sandbox
