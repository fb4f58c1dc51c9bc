// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the library asks of libcurl, and failures of libcurl that no server can bring about. A program that links this
 * has libcurl's functions between itself and libcurl; they pass everything on while no `CurlFaults` lives.
 */
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <curl/curl.h>

namespace ardv::test {

/** One call of curl_easy_setopt. Which value is set depends on the option's type. */
struct OptionCall {
    CURLoption option;
    long number = 0;                ///< of an option that takes a number
    const void* pointer = nullptr;  ///< of any other, functions included
    std::string text;               ///< what the pointer of a text option points to
};

/** While one lives, calls are recorded and the faults set in it happen. One at a time. */
class CurlFaults {
public:
    CurlFaults();
    ~CurlFaults();
    CurlFaults(const CurlFaults&) = delete;
    CurlFaults& operator=(const CurlFaults&) = delete;

    /** Refuses the option the `turn`-th time (1 for the first) that it is set from now on. */
    void Refuse(CURLoption option, int turn = 1) { refused[option] = turn; }

    /** The last call that set the option; null if there was none. */
    const OptionCall* Last(CURLoption option) const;

    /** How often the option was set. */
    std::size_t Count(CURLoption option) const;

    std::map<CURLoption, int> refused;
    std::optional<long> timeoutMilliseconds;         ///< takes the place of each CURLOPT_TIMEOUT
    std::map<CURLINFO, CURLcode> failingInfo;        ///< what curl_easy_getinfo answers
    std::optional<long> status;                      ///< what it answers for CURLINFO_RESPONSE_CODE
    bool noHandle = false;                           ///< curl_easy_init fails
    bool noDuplicate = false;                        ///< curl_easy_duphandle fails
    bool noEscape = false;                           ///< curl_easy_escape fails
    bool noShare = false;                            ///< curl_share_init fails
    std::optional<curl_lock_data> refusedShareData;  ///< curl_share_setopt fails for it
    std::optional<CURLMcode> addResult;              ///< curl_multi_add_handle fails so
    std::optional<CURLMcode> actionResult;           ///< curl_multi_socket_action does its work and then says so
    std::optional<CURLMcode> removeResult;           ///< curl_multi_remove_handle fails so

    std::vector<OptionCall> calls;           ///< curl_easy_setopt, in order
    std::vector<curl_lock_data> sharedData;  ///< curl_share_setopt, in order
    std::map<CURLINFO, int> infoCalls;       ///< curl_easy_getinfo
    int handlesMade = 0;                     ///< curl_easy_init

    /**
     * curl_share_init, and curl_share_cleanup that succeeded, in order: "made 1", "released 1". Shares are numbered from 1
     * because their addresses come again; 0 is one that was made before.
     */
    std::vector<std::string> shareEvents;
    std::map<CURLSH*, int> liveShares;  ///< their numbers
};

}  // namespace ardv::test
