// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "session.h"

namespace ardv::ctl {

/** How a check came out. */
enum class Health { kOk, kWarning, kProblem };

/** What a check found, and what to do about it. */
struct Diagnosis {
    const char* check = "";
    Health health = Health::kOk;
    std::string finding;
    std::string advice;  ///< empty where nothing is to be done
};

/** Makes every check, in the order in which they are to be read; nothing is changed. Takes five seconds at most. */
std::vector<Diagnosis> Examine(const Session& session);

}  // namespace ardv::ctl
