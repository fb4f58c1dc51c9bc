// SPDX-License-Identifier: Apache-2.0
#include "fault_box.h"

#include <utility>

#include "connection.h"

namespace ARDV::Sandbox {

void FaultBox::Set(Fault fault) {
    const std::lock_guard lock(mutex_);
    fault_ = std::move(fault);
}

void FaultBox::Clear() {
    const std::lock_guard lock(mutex_);
    fault_.reset();
    for (Connection* connection : held_) {
        connection->Abort();
    }
}

bool FaultBox::Play(Connection& connection, std::optional<Fault>& taken) {
    taken = Take(connection);
    const bool isDone = taken && PlayFault(*taken, connection);
    Release(connection);
    return isDone;
}

// A silent connection is listed in the same breath as its fault is taken, so that no Clear() can miss it.
std::optional<Fault> FaultBox::Take(Connection& connection) {
    const std::lock_guard lock(mutex_);
    if (!fault_) {
        return std::nullopt;
    }
    Fault taken = *fault_;
    if (taken.kind == FaultKind::kSilent) {
        held_.insert(&connection);
    }
    if (taken.count != 0 && --fault_->count == 0) {
        fault_.reset();
    }
    return taken;
}

void FaultBox::Release(Connection& connection) {
    const std::lock_guard lock(mutex_);
    held_.erase(&connection);
}

}  // namespace ARDV::Sandbox
