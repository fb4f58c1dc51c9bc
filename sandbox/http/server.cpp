// SPDX-License-Identifier: Apache-2.0
#include "http/server.h"

#include <openssl/err.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <optional>
#include <regex>
#include <utility>

#include "http/connection.h"
#include "http/file.h"
#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

// A client that sends too much is read on so far, for it to be ready to hear that.
constexpr size_t kMaxDropped = size_t{1} << 20;

using HandlerResponse = httplib::Server::HandlerResponse;

bool ServesAdmin(const httplib::Request& request) {
    return IsAdminPath(request.path) && !Connection::Current()->IsTls();
}

bool HasBody(std::string_view method) {
    return method == "POST" || method == "PUT";
}

// What is to be deleted may be named by the path alone.
bool HasBodyToDelete(const httplib::Request& request) {
    return request.method == "DELETE" && request.get_header_value<uint64_t>("Content-Length") > 0;
}

// Nothing when the body is larger than `limit` or breaks off.
std::optional<std::string> ReadBody(const httplib::Request& request, const httplib::ContentReader& reader,
                                    size_t limit) {
    if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding")) {
        return std::string();
    }
    std::string body;
    size_t total = 0;
    const bool isWhole = reader([&](const char* data, size_t size) {
        total += size;
        body.append(data, total <= limit ? size : 0);
        return total <= limit + kMaxDropped;
    });
    return isWhole && total <= limit ? std::optional(std::move(body)) : std::nullopt;
}

std::map<std::string, std::string> HeadersOf(const httplib::Request& request) {
    // The HTTP library adds these to what the client sent.
    static constexpr std::string_view kAdded[] = {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"};
    std::map<std::string, std::string> headers;
    for (const auto& [name, value] : request.headers) {
        if (std::find(std::begin(kAdded), std::end(kAdded), name) == std::end(kAdded)) {
            std::string& joined = headers[name];
            joined += (joined.empty() ? "" : ", ") + value;
        }
    }
    return headers;
}

std::string ClientName(const httplib::Request& request) {
    const bool isV6 = request.remote_addr.find(':') != std::string::npos;
    return (isV6 ? "[" + request.remote_addr + "]" : request.remote_addr) + ":" + std::to_string(request.remote_port);
}

SeenRequest Describe(const httplib::Request& request, const std::string& body) {
    const size_t question = request.target.find('?');
    return {Timestamp(),
            ClientName(request),
            request.remote_addr,
            request.method,
            request.path,
            question == std::string::npos ? "" : request.target.substr(question + 1),
            HeadersOf(request),
            body,
            Connection::Current()->IsTls()};
}

std::string TlsError(const std::string& file) {
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    ERR_clear_error();
    return "cannot use " + file + ": " + text;
}

// The HTTP library takes paths for regular expressions.
std::string Literally(const std::string& path) {
    return std::regex_replace(path, std::regex(R"(\.)"), R"(\.)");
}

// Blocked before any thread exists, so that only the main thread's sigwait() sees them.
sigset_t BlockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return signals;
}

bool TellPorts(const std::string& ports, const std::string& file, std::string& error) {
    std::fputs(ports.c_str(), stdout);
    std::fflush(stdout);
    return file.empty() || ReplaceFile(file, ports, error);
}

}  // namespace

Server::Server(const ServerOptions& options, Service& service) : options_(options), service_(service) {}

bool Server::Start(const std::function<void()>& onFailure, std::string& error) {
    if (!Open(http_, nullptr, options_.httpPort, error)) {
        return false;
    }
    if (!options_.certificate.empty()) {
        tls_ = LoadCertificate(options_, error);
        if (!tls_ || !Open(https_, tls_.get(), options_.httpsPort, error)) {
            return false;
        }
        https_->Start(onFailure);
    }
    http_->Start(onFailure);
    return true;
}

bool Server::Open(std::unique_ptr<Listener>& listener, SSL_CTX* tls, int& port, std::string& error) {
    listener = std::make_unique<Listener>(tls);
    SetRoutes(*listener);
    const int bound = listener->Open(options_.address, port);
    if (bound < 0) {
        error = "cannot listen on " + options_.address + " port " + std::to_string(port);
        return false;
    }
    port = bound;
    return true;
}

Server::TlsContext Server::LoadCertificate(const ServerOptions& options, std::string& error) {
    TlsContext context(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    if (SSL_CTX_use_certificate_chain_file(context.get(), options.certificate.c_str()) != 1) {
        error = TlsError(options.certificate);
        return nullptr;
    }
    if (SSL_CTX_use_PrivateKey_file(context.get(), options.key.c_str(), SSL_FILETYPE_PEM) != 1) {
        error = TlsError(options.key);
        return nullptr;
    }
    return context;
}

std::string Server::Ports() const {
    Json::Value ports(Json::objectValue);
    ports["http"] = options_.httpPort;
    if (https_) {
        ports["https"] = options_.httpsPort;
    }
    return ToJsonText(ports);
}

void Server::Stop() {
    for (Listener* listener : {http_.get(), https_.get()}) {
        if (listener) {
            listener->Stop();
        }
    }
}

void Server::SetRoutes(httplib::Server& server) {
    server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (TakesBody(request)) {
            return HandlerResponse::Unhandled;
        }
        Dispatch(request, "", response);
        return HandlerResponse::Handled;
    });
    const auto handler = [this](const httplib::Request& request, httplib::Response& response,
                                const httplib::ContentReader& reader) { ReadAndDispatch(request, response, reader); };
    for (const std::string& page : service_.Pages()) {
        server.Post(Literally(page), handler);
    }
    for (const TestInterface::Route& route : service_.Tests().Routes()) {
        const std::string path = Literally(route.path);
        if (HasBody(route.method)) {
            route.method == "PUT" ? server.Put(path, handler) : server.Post(path, handler);
        } else if (route.method == "DELETE") {
            server.Delete(path, handler);
        }
    }
}

// Anything else is answered without reading a body.
bool Server::TakesBody(const httplib::Request& request) const {
    return (request.method == "POST" && service_.IsPage(request.path)) ||
           ((HasBody(request.method) || HasBodyToDelete(request)) && ServesAdmin(request));
}

void Server::ReadAndDispatch(const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) {
    // The HTTP library takes such a body apart itself and would call handlers that aren't there.
    if (request.is_multipart_form_data()) {
        response.status = 415;
        return;
    }
    const Service::Limits& limits = service_.BodyLimits();
    const auto body = ReadBody(request, reader, ServesAdmin(request) ? limits.admin : limits.page);
    if (!body) {
        response.status = 413;
        WriteLog(Describe(request, ""), "413");
        return;
    }
    Dispatch(request, *body, response);
}

void Server::Dispatch(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    ServesAdmin(request) ? AnswerAdmin(request, body, response) : AnswerPublic(request, body, response);
}

void Server::AnswerAdmin(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    const AdminReply reply = service_.Tests().Handle(request.method, request.path, body);
    response.status = reply.status;
    response.set_content(reply.body, "application/json");
}

void Server::AnswerPublic(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    const SeenRequest seen = Describe(request, body);
    service_.Requests().Add(seen);
    if (!service_.IsPage(request.path)) {
        response.status = 404;
        WriteLog(seen, "404");
        return;
    }
    WriteLog(seen, service_.Answer(seen, response));
}

void Server::WriteLog(const SeenRequest& request, std::string_view reply) const {
    WriteLogLine(request, service_.LogWords(request, reply));
}

int RunServer(const std::string& program, const ServerOptions& options, Service& service) {
    const auto fail = [&](const std::string& reason) {
        std::fprintf(stderr, "%s: %s\n", program.c_str(), reason.c_str());
        return 1;
    };
    const sigset_t signals = BlockEndSignals();
    Server server(options, service);
    std::string error;
    // SIGUSR1 is how a listener that failed wakes the main thread.
    if (!server.Start([] { ::kill(::getpid(), SIGUSR1); }, error) ||
        !TellPorts(server.Ports() + "\n", options.portsFile, error)) {
        return fail(error);
    }
    int number = 0;
    sigwait(&signals, &number);
    server.Stop();
    return number == SIGUSR1 ? fail("a port can no longer be served") : 0;
}

}  // namespace ARDV::Sandbox
