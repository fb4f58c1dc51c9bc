// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <thread>

namespace ardv::test {

/** A program behind the web server: answers each SCGI request by the text "scgi ", the request's URI and its query. */
class ScgiPeer {
public:
    explicit ScgiPeer(const std::string& path);
    ~ScgiPeer();
    ScgiPeer(const ScgiPeer&) = delete;
    ScgiPeer& operator=(const ScgiPeer&) = delete;

private:
    void Run() const;

    int listener_;
    std::thread thread_;
};

/** What a test asks the web server for, and what came. Without an answer the status is 0. */
struct WebAnswer {
    int status = 0;
    std::string type;
    std::string origin;  ///< header Access-Control-Allow-Origin
    std::string body;
    bool operator==(const WebAnswer&) const = default;
};

void PrintTo(const WebAnswer& answer, std::ostream* stream);

/**
 * A real nginx in the private root: the packaged server block in a small main configuration, so that an ordinary user can run it. It ends with this object, or with
 * the test if that dies. Everything throws std::runtime_error when nginx doesn't do as it is told.
 */
class NginxServer {
public:
    /**
     * Writes the configuration and starts nothing.
     * @param configuration path of the main file; empty: that which nginx is built with
     * @param pidFile value of its `pid`; empty: none, so that nginx takes the place that it is built with
     */
    explicit NginxServer(std::string configuration = "/etc/nginx/nginx.conf",
                         const std::string& pidFile = "/run/nginx.pid");
    ~NginxServer();
    NginxServer(const NginxServer&) = delete;
    NginxServer& operator=(const NginxServer&) = delete;

    static bool IsInstalled();

    /** Starts it and waits, 10 seconds at most, until it answers. */
    void Start();

    /** Ends it in order. */
    void Stop();

    /** Ends it, and its workers, without a chance to do anything about it. */
    void Kill();

    /** Its main process. */
    pid_t Pid() const { return pid_; }

    /** The workers that accept connections. */
    std::set<pid_t> Workers() const;

    /** Waits, 10 seconds at most, until the main process, which is stopped, has been sent a signal. */
    void AwaitSignal(int signal) const;

    /** The answer to a GET request on a connection of its own. */
    static WebAnswer Get(const std::string& target);

private:
    std::string configuration_;
    pid_t pid_ = -1;
};

}  // namespace ardv::test
