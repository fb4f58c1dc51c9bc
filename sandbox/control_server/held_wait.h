// SPDX-License-Identifier: Apache-2.0
// A wait whose answer is held back.
#pragma once

#include <optional>
#include <string>

#include "http/fault.h"

namespace ARDV::Sandbox {

/// What wakes the thread that holds a wait. The members belong to the session table, under its lock.
class HeldWait {
public:
    /// Why a wait is answered before a command is there.
    enum class Reason {
        kNone,        ///< there is no reason yet
        kOver,        ///< its session is over
        kSuperseded,  ///< the device waits anew
        kFault        ///< `fault` was ordered for it
    };

    HeldWait(std::string serverId, std::string channel);
    HeldWait(const HeldWait&) = delete;
    HeldWait& operator=(const HeldWait&) = delete;
    ~HeldWait();

    /// Becomes readable by Wake(), and stays so until Settle().
    int Descriptor() const { return descriptor_; }

    /// From any thread: there is something to look at.
    void Wake() const;

    /// What there was has been looked at.
    void Settle() const;

    const std::string serverId;
    const std::string channel;
    Reason reason = Reason::kNone;
    std::optional<Fault> fault;

private:
    const int descriptor_;
};

}  // namespace ARDV::Sandbox
