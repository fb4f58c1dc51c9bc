// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace ardv::test {

/** Certificates for the TLS cases, made once when constructed. */
class TestCertificates {
public:
    /**
     * Makes them in `folder`, which need not exist.
     * @param hosts names and addresses to certify; empty: alias.tethra.example, localhost, 127.0.0.1 and ::1
     * @throws std::runtime_error with the reason when they can't be made
     */
    explicit TestCertificates(std::string folder, const std::vector<std::string>& hosts = {});

    /** The authority's certificate, for a client's list of trusted ones. */
    std::string Authority() const { return Certificate("ca"); }

    /** The certificate file `name`: "valid", "expired", "not-yet-valid", "wrong-host" or "self-signed". */
    std::string Certificate(const std::string& name) const { return folder_ + "/" + name + ".pem"; }

    /** The private key file of the same `name`. */
    std::string Key(const std::string& name) const { return folder_ + "/" + name + ".key"; }

private:
    std::string folder_;
};

/** How an AliasServerProcess is started. */
struct AliasServerSettings {
    std::string folder;                 ///< holds registry.json, ports.json and log; made when it doesn't exist
    std::string certificate = {};       ///< empty: no HTTPS
    std::string key = {};               ///< of the certificate
    std::string address = "127.0.0.1";  ///< to listen on
    int httpPort = 0;                   ///< 0: any free one
};

/**
 * The sandbox's alias server as a process of its own; ended with this object, or with the test if that dies.
 * Everything throws std::runtime_error when the server doesn't do as it is told.
 */
class AliasServerProcess {
public:
    /** Starts the server and waits, 10 seconds at most, until it is ready. */
    explicit AliasServerProcess(AliasServerSettings settings);
    ~AliasServerProcess();
    AliasServerProcess(const AliasServerProcess&) = delete;
    AliasServerProcess& operator=(const AliasServerProcess&) = delete;

    /** Its base URL, e.g. "http://127.0.0.1:40123", no slash at the end. */
    std::string HttpUrl() const;

    /** Its base URL over TLS; the client must find the server under the name `host`. */
    std::string HttpsUrl(const std::string& host = "localhost") const;

    int HttpPort() const { return httpPort_; }
    int HttpsPort() const { return httpsPort_; }
    pid_t Pid() const { return pid_; }

    /** Orders a fault, as JSON text; docs/alias-protocol.md has the kinds. */
    void SetFault(const std::string& order);

    /** Ends the fault in force and frees the clients that a silent one holds. */
    void ClearFault();

    /** The requests that came in, oldest first. */
    Json::Value Requests() const;
    void ClearRequests();

    /** The registry, secrets included. */
    Json::Value Registry() const;
    void SetRegistry(const Json::Value& registry);

    /** What it wrote to standard output and standard error. */
    std::string Log() const;
    std::string RegistryFile() const { return settings_.folder + "/registry.json"; }

    /** Ends it by SIGTERM (SIGKILL after 10 seconds). Gives the exit code, or minus the signal that ended it. */
    int Stop();

    /** Ends it by SIGKILL. */
    void Kill();

    /** Starts it again after Stop() or Kill(), on the ports it had. */
    void Start();

    /** Stop() and Start(). */
    void Restart();

private:
    std::vector<std::string> Arguments() const;
    void WaitUntilReady();
    int Reap();
    std::string Ask(const std::string& method, const std::string& path, const std::string& body = "") const;

    AliasServerSettings settings_;
    pid_t pid_ = -1;
    int httpPort_ = 0;
    int httpsPort_ = 0;
};

}  // namespace ardv::test
