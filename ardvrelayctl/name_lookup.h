// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace ardv::ctl {

/** What became of the look-up of a host name. */
struct LookUp {
    std::string host;
    bool isResolved = false;
    std::string reason;  ///< why not, in words
};

/** Asks the resolver for addresses of all these hosts at once; what it doesn't answer within `patience` has not resolved. */
std::vector<LookUp> LookUpNames(const std::vector<std::string>& hosts, std::chrono::milliseconds patience);

}  // namespace ardv::ctl
