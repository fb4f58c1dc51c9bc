// SPDX-License-Identifier: Apache-2.0
#include "answering_server.h"

#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <stdexcept>

namespace ardv::bench {

namespace {

constexpr int kPatience = 20'000;  // milliseconds

}  // namespace

struct AnsweringServer::Seen {
    std::atomic<Clock::rep> first;  // of the steady clock, which all processes share; 0 for none
};

void AnsweringServer::Unmap::operator()(Seen* seen) const {
    munmap(seen, sizeof *seen);
}

void AnsweringServer::Note() const {
    Clock::rep none = 0;
    seen_->first.compare_exchange_strong(none, Clock::now().time_since_epoch().count());
    eventfd_write(news_, 1);
}

void AnsweringServer::Serve(const std::string& certificate, const std::string& key, int ready) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::unique_ptr<httplib::Server> server =
        certificate.empty() ? std::make_unique<httplib::Server>()
                            : std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str());
    const auto answer = [this](const httplib::Request&, httplib::Response& response) {
        Note();
        response.set_content("good", "text/plain");
    };
    server->Post("/.*", answer);
    server->Get("/.*", answer);
    const int port = server->bind_to_any_port("127.0.0.1");
    if (write(ready, &port, sizeof port) == sizeof port) {
        server->listen_after_bind();
    }
    _exit(1);
}

AnsweringServer::AnsweringServer(const std::string& certificate, const std::string& key)
    : news_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    void* const shared = mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    std::array<int, 2> ready = {};
    if (shared == MAP_FAILED || news_ < 0 || pipe(ready.data()) != 0) {
        throw std::runtime_error("cannot start a server");
    }
    seen_.reset(new (shared) Seen{});
    if ((pid_ = fork()) == 0) {
        Serve(certificate, key, ready[1]);
    }
    close(ready[1]);
    const bool isReady = read(ready[0], &port_, sizeof port_) == sizeof port_ && port_ > 0;
    close(ready[0]);
    if (!isReady) {
        throw std::runtime_error("the server did not start");
    }
    url_ = (certificate.empty() ? "http" : "https") + std::string("://localhost:") + std::to_string(port_);
}

AnsweringServer::~AnsweringServer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(news_);
}

void AnsweringServer::Forget() {
    eventfd_t ignored = 0;
    eventfd_read(news_, &ignored);
    seen_->first = 0;
}

AnsweringServer::Clock::time_point AnsweringServer::AwaitRequest() const {
    pollfd polled = {news_, POLLIN, 0};
    if (poll(&polled, 1, kPatience) != 1) {
        throw std::runtime_error("no request came to " + url_);
    }
    return Clock::time_point(Clock::duration(seen_->first.load()));
}

}  // namespace ardv::bench
