// SPDX-License-Identifier: Apache-2.0
#include "answering_server.h"

#include <httplib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace ardv::bench {

namespace {

[[noreturn]] void Serve(const std::string& certificate, const std::string& key, int ready) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::unique_ptr<httplib::Server> server =
        certificate.empty() ? std::make_unique<httplib::Server>()
                            : std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str());
    server->Post("/.*", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("good", "text/plain");
    });
    const int port = server->bind_to_any_port("127.0.0.1");
    if (write(ready, &port, sizeof port) == sizeof port) {
        server->listen_after_bind();
    }
    _exit(1);
}

}  // namespace

AnsweringServer::AnsweringServer(const std::string& certificate, const std::string& key) {
    std::array<int, 2> ready = {};
    if (pipe(ready.data()) != 0 || (pid_ = fork()) < 0) {
        throw std::runtime_error("cannot start a server");
    }
    if (pid_ == 0) {
        Serve(certificate, key, ready[1]);
    }
    close(ready[1]);
    int port = 0;
    const bool isReady = read(ready[0], &port, sizeof port) == sizeof port && port > 0;
    close(ready[0]);
    if (!isReady) {
        throw std::runtime_error("the server did not start");
    }
    url_ = (certificate.empty() ? "http" : "https") + std::string("://localhost:") + std::to_string(port);
}

AnsweringServer::~AnsweringServer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

}  // namespace ardv::bench
