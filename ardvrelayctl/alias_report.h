// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

#include <relay/request/request_alias.h>

namespace ardv::ctl {

/** What came of a request. */
struct Outcome {
    ARDV::Relay::ALIAS_RET ret = ARDV::Relay::ALIAS_RET_UNKNOWN;
    std::string word;   // its status word
    std::string extra;  // what the server added
    int httpStatus = -1;
    Json::Value answer;  // null, or the JSON answer
};

/** What a failure means, and what to do about it; empty for a success. */
const char* MeaningOf(ARDV::Relay::ALIAS_RET ret);

/** The outcome of a request for a program to read. */
Json::Value OutcomeAsJson(const std::string& action, const std::string& alias, const Outcome& outcome);

/** Prints the status word, and what a person should know of a failure. */
void PrintOutcome(const Outcome& outcome);

/** Prints the request that would be sent, with its secrets masked. */
void PrintRequest(const ARDV::Relay::AliasRequest& request, bool asJson);

}  // namespace ardv::ctl
