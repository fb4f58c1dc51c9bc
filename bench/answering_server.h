// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

namespace ardv::bench {

/** A process that answers every GET and every POST by "good", over HTTP, or over HTTPS with a certificate; ended with this object. */
class AnsweringServer {
public:
    using Clock = std::chrono::steady_clock;

    /** @param certificate,key PEM files; empty for HTTP */
    AnsweringServer(const std::string& certificate, const std::string& key);
    ~AnsweringServer();
    AnsweringServer(const AnsweringServer&) = delete;
    AnsweringServer& operator=(const AnsweringServer&) = delete;

    /** Its base URL at localhost, e.g. "http://localhost:40123". */
    const std::string& Url() const { return url_; }

    int Port() const { return port_; }

    /** Forgets the requests so far. */
    void Forget();

    /**
     * Waits, 20 seconds at most, for the first request since `Forget`.
     *
     * @return when the server had it, before it answered
     * @throws std::runtime_error when none comes
     */
    Clock::time_point AwaitRequest() const;

private:
    struct Seen;
    struct Unmap {
        void operator()(Seen* seen) const;
    };

    [[noreturn]] void Serve(const std::string& certificate, const std::string& key, int ready) const;
    void Note() const;

    std::unique_ptr<Seen, Unmap> seen_;  // shared with the process
    int news_ = -1;                      // an eventfd that counts the requests
    pid_t pid_ = -1;
    int port_ = 0;
    std::string url_;
};

}  // namespace ardv::bench
