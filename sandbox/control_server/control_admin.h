// SPDX-License-Identifier: Apache-2.0
// What the control server adds to the test interface.
#pragma once

#include "answers.h"
#include "device_book.h"
#include "http/test_interface.h"
#include "scenario.h"
#include "session_table.h"
#include "tunnel_book.h"

namespace ARDV::Sandbox {

/// The parts that the test interface shows and changes.
struct ControlParts {
    DeviceBook& devices;
    SessionTable& sessions;
    Answers& answers;
    Scenario& scenario;
    TunnelBook& tunnels;
};

/// Makes `tests` serve the requests of docs/control-protocol.md, "The test interface". The parts must outlive it.
void AddControlRequests(TestInterface& tests, const ControlParts& parts);

}  // namespace ARDV::Sandbox
