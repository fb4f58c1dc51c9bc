// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace ARDV::Relay::Curl {

/** An option that takes a number, as rows of a table. */
struct NumberOption {
    CURLoption option;
    const char* name;
    long value;
};

/** Logs a refused option at level 3, with the line of the call that set it. */
void LogRefused(const char* name, int line);

/** Sets an option; false, with a message of level 3, if libcurl refuses it. */
template <typename Value>
bool SetOption(CURL* handle, CURLoption option, const char* name, Value value, int line = __builtin_LINE()) {
    if (curl_easy_setopt(handle, option, value) == CURLE_OK) {
        return true;
    }
    LogRefused(name, line);
    return false;
}

/** Sets options in order; false at the first that libcurl refuses. */
template <std::size_t N>
bool SetOptions(CURL* handle, const NumberOption (&options)[N], int line = __builtin_LINE()) {
    for (const auto& [option, name, value] : options) {
        if (!SetOption(handle, option, name, value, line)) {
            return false;
        }
    }
    return true;
}

}  // namespace ARDV::Relay::Curl
