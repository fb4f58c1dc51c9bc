// SPDX-License-Identifier: Apache-2.0
#include "alias_server.h"

#include <openssl/err.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "connection.h"
#include "text.h"

namespace ARDV::Sandbox {
namespace {

constexpr size_t kMaxPublicBody = size_t{64} << 10;
constexpr size_t kMaxAdminBody = Registry::kMaxBytes;
// A client that sends too much is read on so far, for it to be ready to hear that.
constexpr size_t kMaxDropped = size_t{1} << 20;

using HandlerResponse = httplib::Server::HandlerResponse;

// The paths that take a body; anything else is answered without reading one.
constexpr std::pair<std::string_view, std::string_view> kBodied[] = {
    {"POST", R"(/alias_update\.php)"},
    {"POST", R"(/alias_query\.php)"},
    {"POST", "/sandbox/fault"},
    {"PUT", "/sandbox/registry"},
};

bool ServesAdmin(const httplib::Request& request) {
    return IsAdminPath(request.path) && !Connection::Current()->IsTls();
}

bool TakesBody(const httplib::Request& request) {
    return (request.method == "POST" && IsAliasPage(request.path)) ||
           ((request.method == "POST" || request.method == "PUT") && ServesAdmin(request));
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

}  // namespace

AliasServer::AliasServer(const Options& options)
    : options_(options), registry_(options.registry), admin_(faults_, requests_, registry_) {}

bool AliasServer::Start(const std::function<void()>& onFailure, std::string& error) {
    if (!registry_.Load(error) || !Open(http_, nullptr, options_.httpPort, error)) {
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

bool AliasServer::Open(std::unique_ptr<Listener>& listener, SSL_CTX* tls, int& port, std::string& error) {
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

AliasServer::TlsContext AliasServer::LoadCertificate(const Options& options, std::string& error) {
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

std::string AliasServer::Ports() const {
    Json::Value ports(Json::objectValue);
    ports["http"] = options_.httpPort;
    if (https_) {
        ports["https"] = options_.httpsPort;
    }
    return ToJsonText(ports);
}

void AliasServer::Stop() {
    for (Listener* listener : {http_.get(), https_.get()}) {
        if (listener) {
            listener->Stop();
        }
    }
}

void AliasServer::SetRoutes(httplib::Server& server) {
    server.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (TakesBody(request)) {
            return HandlerResponse::Unhandled;
        }
        Dispatch(request, "", response);
        return HandlerResponse::Handled;
    });
    const auto handler = [this](const httplib::Request& request, httplib::Response& response,
                                const httplib::ContentReader& reader) { ReadAndDispatch(request, response, reader); };
    for (const auto& [method, pattern] : kBodied) {
        method == "PUT" ? server.Put(std::string(pattern), handler) : server.Post(std::string(pattern), handler);
    }
}

void AliasServer::ReadAndDispatch(const httplib::Request& request, httplib::Response& response,
                                  const httplib::ContentReader& reader) {
    // The HTTP library takes such a body apart itself and would call handlers that aren't there.
    if (request.is_multipart_form_data()) {
        response.status = 415;
        return;
    }
    const auto body = ReadBody(request, reader, ServesAdmin(request) ? kMaxAdminBody : kMaxPublicBody);
    if (!body) {
        response.status = 413;
        WriteLogLine(Describe(request, ""), "413");
        return;
    }
    Dispatch(request, *body, response);
}

void AliasServer::Dispatch(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    ServesAdmin(request) ? AnswerAdmin(request, body, response) : AnswerPublic(request, body, response);
}

void AliasServer::AnswerAdmin(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    const AdminReply reply = admin_.Handle(request.method, request.path, body);
    response.status = reply.status;
    response.set_content(reply.body, "application/json");
}

void AliasServer::AnswerPublic(const httplib::Request& request, const std::string& body, httplib::Response& response) {
    const SeenRequest seen = Describe(request, body);
    requests_.Add(seen);
    if (!IsAliasPage(request.path)) {
        response.status = 404;
        WriteLogLine(seen, "404");
        return;
    }
    WriteLogLine(seen, AnswerPage(seen, request, response));
}

std::string AliasServer::AnswerPage(const SeenRequest& seen, const httplib::Request& request,
                                    httplib::Response& response) {
    std::optional<Fault> fault;
    const bool isDone = faults_.Play(*Connection::Current(), fault);
    std::string mark = fault ? "fault:" + std::string(FaultName(*fault)) : "";
    if (isDone) {
        return mark;
    }
    const AliasCall call{seen.method, seen.path, seen.body, request.remote_addr};
    const AliasReply reply = fault ? ReplyUnder(*fault, call) : Answer(registry_, call);
    for (const std::string& cookie : fault ? fault->cookies : std::vector<std::string>()) {
        response.set_header("Set-Cookie", cookie);
    }
    response.status = 200;
    response.set_content(reply.body, reply.contentType);
    const std::string word = reply.contentType == "application/json" ? "json" : reply.body;
    return mark.empty() ? word : mark + "," + word;
}

AliasReply AliasServer::ReplyUnder(const Fault& fault, const AliasCall& call) {
    if (fault.kind == FaultKind::kReply) {
        return {fault.body, "text/plain"};
    }
    return fault.kind == FaultKind::kMaintenance ? MaintenanceReply() : Answer(registry_, call);
}

}  // namespace ARDV::Sandbox
