// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

namespace ardv::test {

/** A server's certificate and its private key, as files. */
struct Certificate {
    std::string certificate;
    std::string key;
};

/** A real HTTP or HTTPS server on 127.0.0.1, in a thread of this process. */
class HttpServer {
public:
    using Answer = std::function<void(const httplib::Request& request, httplib::Response& response)>;

    HttpServer();

    /** @param port where to listen; 0 for a free port */
    explicit HttpServer(const Certificate& certificate, int port = 0);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /** Sets the answer of a path, for GET and POST alike. A path without one is answered by status 200 and "ok". */
    void On(const std::string& path, Answer answer);

    /** The same, for a fixed answer. */
    void On(const std::string& path, int status, const std::string& body);

    /** Absolute URL of a path. */
    std::string Url(const std::string& path = "/", const std::string& host = "127.0.0.1") const;

    /** All requests so far, in order of arrival. */
    std::vector<httplib::Request> Seen() const;

private:
    HttpServer(std::unique_ptr<httplib::Server> server, std::string scheme, int port);
    void Serve(const httplib::Request& request, httplib::Response& response);

    std::unique_ptr<httplib::Server> server_;
    std::string scheme_;
    int port_;
    mutable std::mutex mutex_;
    std::map<std::string, Answer> answers_;
    std::vector<httplib::Request> seen_;
    std::thread thread_;
};

/**
 * A server that is no HTTP server: it takes one connection after the other, reads what comes first and answers with
 * fixed bytes, then closes. Without bytes it stays silent: connections are made and nothing ever comes.
 */
class RawServer {
public:
    explicit RawServer(std::string bytes = "");
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    std::string Url() const;

    /** The first bytes of the last connection. */
    std::string Received() const;

private:
    void Run();

    std::string bytes_;
    int listener_;
    mutable std::mutex mutex_;
    std::string received_;
    std::thread thread_;
};

/** An URL on 127.0.0.1 where nobody listens. */
std::string RefusedUrl();

/** Makes `names` resolve to `address`, and no other name than "localhost" resolve at all. */
void WriteHosts(const std::string& address, const std::vector<std::string>& names);

/** Makes an authority and its certificates for `hosts` in a folder of their own; returns the folder. */
std::string MakeCertificates(const std::vector<std::string>& hosts);

}  // namespace ardv::test
