// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace ardv::test {

/**
 * What the schema of a message of the control protocol has against files; empty where they are as it says.
 * @param message "register-request", "register-answer", "keep-alive-request", "keep-alive-answer", "wait-request",
 *                "wait-answer", "get-tunnel-request" or "get-tunnel-answer"
 */
std::string CheckMessageFiles(const std::string& message, const std::vector<std::string>& files);

/** As CheckMessageFiles(), for JSON texts, of which there may be none. */
std::string CheckMessages(const std::string& message, const std::vector<std::string>& texts);

}  // namespace ardv::test
