// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

namespace ardv::bench {

/** A process that answers every POST by "good", over HTTP, or over HTTPS with a certificate; ended with this object. */
class AnsweringServer {
public:
    /** @param certificate,key PEM files; empty for HTTP */
    AnsweringServer(const std::string& certificate, const std::string& key);
    ~AnsweringServer();
    AnsweringServer(const AnsweringServer&) = delete;
    AnsweringServer& operator=(const AnsweringServer&) = delete;

    /** Its base URL at localhost, e.g. "http://localhost:40123". */
    const std::string& Url() const { return url_; }

private:
    pid_t pid_ = -1;
    std::string url_;
};

}  // namespace ardv::bench
