// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

namespace ARDV::Relay::Curl {

/** The one HTTP status that carries an answer. */
inline constexpr int kHttpOk = 200;

/** Whether a failed transfer means that the network or the peer let go: no connection, TLS, send, receive, time-out,
 * again. */
bool IsNetworkError(CURLcode code);

/** Keeps a burst of equal failures to one line of the log. */
class FailureRun {
public:
    /** Whether this failure differs from the one before it. */
    bool IsNew(CURLcode code);

    /** A success ends the run. */
    void End() { last_ = CURLE_OK; }

private:
    CURLcode last_ = CURLE_OK;
};

}  // namespace ARDV::Relay::Curl
