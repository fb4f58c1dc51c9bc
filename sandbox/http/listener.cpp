// SPDX-License-Identifier: Apache-2.0
#include "http/listener.h"

#include <sys/socket.h>

#include <future>
#include <memory>
#include <utility>

#include "http/thread_pool.h"

namespace ARDV::Sandbox {
namespace {

constexpr int kBacklog = 512;
constexpr size_t kMaxHeadBytes = size_t{128} << 10;
constexpr size_t kMaxBodyBytes = size_t{17} << 20;

// Reusing the address lets a restart take its port back; sharing the port with a stranger must fail.
void SetSocketOptions(socket_t socket) {
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

class Membership {
public:
    Membership(ConnectionSet& set, Connection& connection)
        : set_(set), connection_(connection), isMember_(set.Add(connection)) {}
    Membership(const Membership&) = delete;
    Membership& operator=(const Membership&) = delete;
    ~Membership() { set_.Remove(connection_); }
    bool IsMember() const { return isMember_; }

private:
    ConnectionSet& set_;
    Connection& connection_;
    const bool isMember_;
};

}  // namespace

Listener::Listener(SSL_CTX* tls) : tls_(tls) {
    set_socket_options(SetSocketOptions);
    set_payload_max_length(kMaxBodyBytes);
}

Listener::~Listener() {
    Stop();
}

int Listener::Open(const std::string& address, int port) {
    const int bound = port == 0 ? bind_to_any_port(address) : bind_to_port(address, port) ? port : -1;
    // The HTTP library's own backlog is too short for a burst of clients.
    return bound > 0 && ::listen(svr_sock_, kBacklog) == 0 ? bound : -1;
}

void Listener::Start(std::function<void()> onFailure) {
    // The queue is asked for once the server counts as running; a stop before that would be lost.
    const auto running = std::make_shared<std::promise<void>>();
    new_task_queue = [running]() -> httplib::TaskQueue* {
        running->set_value();
        return new ThreadPool;
    };
    thread_ = std::thread([this, onFailure = std::move(onFailure)] {
        if (!listen_after_bind()) {
            onFailure();
        }
    });
    running->get_future().wait();
}

void Listener::Stop() {
    stop();
    connections_.AbortAll();
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool Listener::process_and_close_socket(socket_t socket) {
    Connection connection(socket, tls_);
    const Membership membership(connections_, connection);
    if (membership.IsMember()) {
        Serve(connection);
    }
    return true;
}

void Listener::Serve(Connection& connection) {
    connection.AllowReading(kMaxHeadBytes);
    if (connection.Handshake()) {
        bool isClosed = false;
        process_request(connection, true, isClosed, [&](httplib::Request&) { connection.AllowReading(kMaxBodyBytes); });
    }
    connection.End();
}

}  // namespace ARDV::Sandbox
