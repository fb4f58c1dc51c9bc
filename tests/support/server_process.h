// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ardv::test {

/** How a server of the sandbox is started. */
struct ServerSettings {
    std::string folder;                 ///< holds ports.json, log and the server's own file; made when it doesn't exist
    std::string certificate = {};       ///< empty: no HTTPS
    std::string key = {};               ///< of the certificate
    std::string address = "127.0.0.1";  ///< to listen on
    int httpPort = 0;                   ///< 0: any free one
};

/**
 * A server of the sandbox as a process of its own; ended with this object, or with the test if that dies.
 * Everything throws std::runtime_error when the server doesn't do as it is told.
 */
class ServerProcess {
public:
    /** Starts `program` with `options` besides the settings, and waits, 10 seconds at most, until it is ready. */
    ServerProcess(const std::string& program, ServerSettings settings, const std::vector<std::string>& options);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    /** Its base URL, e.g. "http://127.0.0.1:40123", no slash at the end. */
    std::string HttpUrl() const;

    /** Its base URL over TLS; the client must find the server under the name `host`. */
    std::string HttpsUrl(const std::string& host = "localhost") const;

    int HttpPort() const { return httpPort_; }
    int HttpsPort() const { return httpsPort_; }
    pid_t Pid() const { return pid_; }

    /** Orders a fault, as JSON text; the protocol's document has the kinds. */
    void SetFault(const std::string& order) const;

    /** Ends the faults in force and frees the clients that a silent one holds. */
    void ClearFault() const;

    /** The requests that came in, oldest first. */
    Json::Value Requests() const;
    void ClearRequests() const;

    /** What it wrote to standard output and standard error. */
    std::string Log() const;

    /** Ends it by SIGTERM (SIGKILL after 10 seconds). Gives the exit code, or minus the signal that ended it. */
    int Stop();

    /** Ends it by SIGKILL. */
    void Kill();

    /** Starts it again after Stop() or Kill(), on the ports it had. */
    void Start();

    /** Stop() and Start(). */
    void Restart();

    /** Asks the test interface. Gives the JSON that comes back. */
    Json::Value Ask(const std::string& method, const std::string& path, const std::string& body = "") const;

    /**
     * Waits, 10 seconds at most, until `isTrue`. Looks again whenever the server wrote to its log, and now and then for
     * what it does not log.
     */
    bool WaitFor(const std::function<bool()>& isTrue) const;

private:
    void WaitUntilReady();
    int End();

    ServerSettings settings_;
    std::vector<std::string> words_;  ///< the command line without the ports
    pid_t pid_ = -1;
    int httpPort_ = 0;
    int httpsPort_ = 0;
};

}  // namespace ardv::test
