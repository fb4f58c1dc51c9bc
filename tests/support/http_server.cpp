// SPDX-License-Identifier: Apache-2.0
#include "http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "file_text.h"
#include "program.h"

namespace ardv::test {

namespace {

int Listen() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd, 128) != 0) {
        throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    return fd;
}

/** @return the port, or -1 */
int Bind(httplib::Server& server, int port) {
    constexpr const char* kAddress = "127.0.0.1";
    if (port == 0) {
        return server.bind_to_any_port(kAddress);
    }
    return server.bind_to_port(kAddress, port) ? port : -1;
}

int PortOf(int fd) {
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

}  // namespace

HttpServer::HttpServer() : HttpServer(std::make_unique<httplib::Server>(), "http", 0) {}

HttpServer::HttpServer(const Certificate& certificate, int port)
    : HttpServer(std::make_unique<httplib::SSLServer>(certificate.certificate.c_str(), certificate.key.c_str()),
                 "https", port) {}

HttpServer::HttpServer(std::unique_ptr<httplib::Server> server, std::string scheme, int port)
    : server_(std::move(server)), scheme_(std::move(scheme)), port_(-1) {
    const auto serve = [this](const auto& request, auto& response) { Serve(request, response); };
    server_->Get(".*", serve);
    server_->Post(".*", serve);
    server_->set_keep_alive_max_count(1);
    int listener = -1;
    server_->set_socket_options([&listener](int fd) {
        const int on = 1;  // a port is free again although connections of an earlier server are still fading
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        listener = fd;
    });
    port_ = server_->is_valid() ? Bind(*server_, port) : -1;
    if (port_ <= 0) {
        throw std::runtime_error("cannot start a server");
    }
    listen(listener, 1024);  // cpp-httplib's own queue takes five connections
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) {
        std::this_thread::yield();  // a stop before this would be lost
    }
}

HttpServer::~HttpServer() {
    server_->stop();
    thread_.join();
}

void HttpServer::On(const std::string& path, Answer answer) {
    const std::lock_guard lock(mutex_);
    answers_[path] = std::move(answer);
}

void HttpServer::On(const std::string& path, int status, const std::string& body) {
    On(path, [status, body](const auto&, auto& response) {
        response.status = status;
        response.set_content(body, "text/plain");
    });
}

std::string HttpServer::Url(const std::string& path, const std::string& host) const {
    return scheme_ + "://" + host + ":" + std::to_string(port_) + path;
}

std::vector<httplib::Request> HttpServer::Seen() const {
    const std::lock_guard lock(mutex_);
    return seen_;
}

void HttpServer::Serve(const httplib::Request& request, httplib::Response& response) {
    Answer answer;
    {
        const std::lock_guard lock(mutex_);
        seen_.push_back(request);
        if (const auto found = answers_.find(request.path); found != answers_.end()) {
            answer = found->second;
        }
    }
    if (answer) {
        answer(request, response);
    } else {
        response.set_content("ok", "text/plain");
    }
}

RawServer::RawServer(std::string bytes) : bytes_(std::move(bytes)), listener_(Listen()) {
    if (!bytes_.empty()) {
        thread_ = std::thread([this] { Run(); });
    }
}

RawServer::~RawServer() {
    shutdown(listener_, SHUT_RDWR);  // ends a waiting accept
    if (thread_.joinable()) {
        thread_.join();
    }
    close(listener_);
}

std::string RawServer::Url() const {
    return "http://127.0.0.1:" + std::to_string(PortOf(listener_)) + "/";
}

std::string RawServer::Received() const {
    const std::lock_guard lock(mutex_);
    return received_;
}

void RawServer::Run() {
    for (int fd = 0; (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        std::array<char, 4096> block = {};
        const ssize_t count = read(fd, block.data(), block.size());
        {
            const std::lock_guard lock(mutex_);
            received_.assign(block.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        send(fd, bytes_.data(), bytes_.size(), MSG_NOSIGNAL);
        close(fd);
    }
}

std::string RefusedUrl() {
    return RawServer().Url();
}

void WriteHosts(const std::string& address, const std::vector<std::string>& names) {
    std::string hosts = "127.0.0.1 localhost\n";
    for (const auto& name : names) {
        hosts += address + " " + name + "\n";
    }
    WriteText("/etc/hosts", hosts);
    WriteText("/etc/nsswitch.conf", "hosts: files\n");
}

std::string MakeCertificates(const std::vector<std::string>& hosts) {
    std::string folder = "/tmp/certificates.XXXXXX";
    if (!mkdtemp(folder.data())) {
        throw std::runtime_error("cannot make a folder for certificates");
    }
    std::vector<std::string> command = {ARDV_MAKE_CERTIFICATES, folder};
    command.insert(command.end(), hosts.begin(), hosts.end());
    if (const auto result = RunProgram(command); result.exitCode != 0) {
        throw std::runtime_error(result.err);
    }
    return folder;
}

}  // namespace ardv::test
