// SPDX-License-Identifier: Apache-2.0
// The faults that the control server alone knows (docs/control-protocol.md, "Faults").
#pragma once

#include <json/json.h>

#include "http/fault.h"

namespace ARDV::Sandbox {

/// The kinds, and the commands that a fault may be for.
FaultRules ControlFaultRules();

/// The kinds alone: for a fault whose place says which request meets it.
FaultRules PlacedFaultRules();

/// Changes the ordinary `answer` as `fault` has it: members put in or replaced, and members taken away.
void ChangeAnswer(const Fault& fault, Json::Value& answer);

}  // namespace ARDV::Sandbox
