// SPDX-License-Identifier: Apache-2.0
// The alias server: the protocol and the test interface on its ports.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <functional>
#include <memory>
#include <string>

#include "admin.h"
#include "fault_box.h"
#include "listener.h"
#include "options.h"
#include "protocol.h"
#include "registry.h"
#include "request_log.h"

namespace ARDV::Sandbox {

/// The server of one process.
class AliasServer {
public:
    /// Takes its settings; opens nothing yet.
    explicit AliasServer(const Options& options);

    /// Loads the registry and the certificate, opens the ports and serves. `onFailure` is called from another thread if
    /// serving ends without Stop(). Success: true. Failure: false, and `error` says why.
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

    static TlsContext LoadCertificate(const Options& options, std::string& error);
    bool Open(std::unique_ptr<Listener>& listener, SSL_CTX* tls, int& port, std::string& error);
    void SetRoutes(httplib::Server& server);
    void ReadAndDispatch(const httplib::Request& request, httplib::Response& response,
                         const httplib::ContentReader& reader);
    void Dispatch(const httplib::Request& request, const std::string& body, httplib::Response& response);
    void AnswerAdmin(const httplib::Request& request, const std::string& body, httplib::Response& response);
    void AnswerPublic(const httplib::Request& request, const std::string& body, httplib::Response& response);
    std::string AnswerPage(const SeenRequest& seen, const httplib::Request& request, httplib::Response& response);
    AliasReply ReplyUnder(const Fault& fault, const AliasCall& call);

    Options options_;
    Registry registry_;
    FaultBox faults_;
    RequestLog requests_;
    Admin admin_;
    TlsContext tls_;
    std::unique_ptr<Listener> http_;
    std::unique_ptr<Listener> https_;
};

}  // namespace ARDV::Sandbox
