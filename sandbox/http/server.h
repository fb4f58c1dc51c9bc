// SPDX-License-Identifier: Apache-2.0
// A service and its test interface on their ports.
#pragma once

#include <openssl/ssl.h>

#include <functional>
#include <memory>
#include <string>

#include "http/listener.h"
#include "http/options.h"
#include "http/service.h"

namespace ARDV::Sandbox {

/// The server of one process.
class Server {
public:
    /// Takes its settings, and the service, which must outlive it; opens nothing yet.
    Server(const ServerOptions& options, Service& service);

    /// Loads the certificate, opens the ports and serves. `onFailure` is called from another thread if serving ends
    /// without Stop(). Success: true. Failure: false, and `error` says why.
    bool Start(const std::function<void()>& onFailure, std::string& error);

    /// The ports, as the ports file tells them: {"http":N} or {"http":N,"https":N}. Valid after Start().
    std::string Ports() const;

    /// Breaks every connection and closes the ports.
    void Stop();

private:
    struct FreeContext {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    using TlsContext = std::unique_ptr<SSL_CTX, FreeContext>;

    static TlsContext LoadCertificate(const ServerOptions& options, std::string& error);
    bool Open(std::unique_ptr<Listener>& listener, SSL_CTX* tls, int& port, std::string& error);
    void SetRoutes(httplib::Server& server);
    bool TakesBody(const httplib::Request& request) const;
    void ReadAndDispatch(const httplib::Request& request, httplib::Response& response,
                         const httplib::ContentReader& reader);
    void Dispatch(const httplib::Request& request, const std::string& body, httplib::Response& response);
    void AnswerAdmin(const httplib::Request& request, const std::string& body, httplib::Response& response);
    void AnswerPublic(const httplib::Request& request, const std::string& body, httplib::Response& response);
    void WriteLog(const SeenRequest& request, std::string_view reply) const;

    ServerOptions options_;
    Service& service_;
    TlsContext tls_;
    std::unique_ptr<Listener> http_;
    std::unique_ptr<Listener> https_;
};

/// Serves `service` until SIGTERM or SIGINT: writes the ports to standard output and to the ports file. Gives the exit
/// code: 0 after an end in order; 1 after a failure, its reason on standard error after `program`. Call it before any
/// thread exists: the signals are blocked in all of them.
int RunServer(const std::string& program, const ServerOptions& options, Service& service);

}  // namespace ARDV::Sandbox
