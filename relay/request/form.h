// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

/** Form-encoded text (application/x-www-form-urlencoded). */
namespace ARDV::Relay::Form {

/** The pieces between the "&"s; one empty piece for an empty text. */
std::vector<std::string_view> Split(std::string_view form);

/** Whether a field is a secret that no log or screen may show. */
bool IsSecret(std::string_view key);

/** The text with the values of secret fields as "***", for a log. */
std::string Masked(std::string_view form);

}  // namespace ARDV::Relay::Form
