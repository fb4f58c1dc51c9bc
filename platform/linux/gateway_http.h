// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>
#include <netinet/in.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/linux/deadline.h"
#include "platform/linux/error.h"

namespace ARDV::Platform {

/// What an HTTP server answered.
struct HttpAnswer {
    long status = 0;
    std::string body;
};

/// The absolute form of `url`, which may be relative to `base`. ARDV_ERR_BAD_VALUE when it isn't plain HTTP on the very
/// address `gateway`: no name, no user, no other scheme. A router can't send the device elsewhere.
Result<std::string> UrlOnGateway(const std::string& base, const std::string& url, in_addr gateway);

/// HTTP exchanges with a router, one after the other. Redirects and proxies don't count; an answer is bounded in size.
/// Failures: ARDV_ERR_NO_ANSWER (none in time), ARDV_ERR_BAD_VALUE (too large, or not HTTP), ARDV_ERR_NO_MEMORY.
class GatewayHttp {
public:
    /// `firstAnswer` is the end of the time until the first answer: without one until then, all exchanges fail.
    explicit GatewayHttp(const Deadline& firstAnswer) : firstAnswer_(firstAnswer) {}

    /// `url` of both is one of `UrlOnGateway`.
    Result<HttpAnswer> Get(const std::string& url, const Deadline& deadline);

    /// Posts a SOAP message; `action` is the value of its SOAPAction header.
    Result<HttpAnswer> Post(const std::string& url, const std::string& action, const std::string& message,
                            const Deadline& deadline);

private:
    struct Release {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };

    Failure Prepare(const std::string& url, const Deadline& deadline);
    Result<HttpAnswer> Exchange();

    std::unique_ptr<CURL, Release> handle_;
    std::optional<Deadline> firstAnswer_;  ///< nothing when there was one
};

}  // namespace ARDV::Platform
