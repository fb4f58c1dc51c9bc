// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

#include <source_location>

namespace ARDV::Relay::Curl {

/** An option that takes a number, as rows of a table. */
struct NumberOption {
    CURLoption option;
    const char* name;
    long value;
};

/** Logs a refused option at level 3 for the place of the call. */
void LogRefused(const char* name, const std::source_location& where);

/** Sets an option; false, with a message of level 3, if libcurl refuses it. */
template <typename Value>
bool SetOption(CURL* handle, CURLoption option, const char* name, Value value,
               const std::source_location& where = std::source_location::current()) {
    if (curl_easy_setopt(handle, option, value) == CURLE_OK) {
        return true;
    }
    LogRefused(name, where);
    return false;
}

/** Sets options in order; false at the first that libcurl refuses. */
template <std::size_t N>
bool SetOptions(CURL* handle, const NumberOption (&options)[N],
                const std::source_location& where = std::source_location::current()) {
    for (const auto& [option, name, value] : options) {
        if (!SetOption(handle, option, name, value, where)) {
            return false;
        }
    }
    return true;
}

}  // namespace ARDV::Relay::Curl
