// SPDX-License-Identifier: Apache-2.0
#include "http/connection.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace ARDV::Sandbox {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kTimeout{10};
constexpr std::chrono::seconds kLingerTimeout{1};
constexpr size_t kBlock = 16384;

thread_local Connection* current = nullptr;

void SetTimeouts(int socket) {
    const timeval limit{kTimeout.count(), 0};
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int MillisecondsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(left, 0, INT_MAX));
}

// Waits for `events` on the socket; the events that came, 0 at the end of the time.
short WaitFor(int socket, short events, std::optional<Clock::time_point> end) {
    for (;;) {
        pollfd entry{socket, events, 0};
        const int count = ::poll(&entry, 1, end ? MillisecondsUntil(*end) : -1);
        if (count >= 0 || errno != EINTR) {
            return count > 0 ? entry.revents : short{0};
        }
    }
}

using NameOf = int (*)(int, sockaddr*, socklen_t*);

void ReadAddress(int socket, NameOf nameOf, std::string& text, int& port) {
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    char address[NI_MAXHOST];
    char service[NI_MAXSERV];
    auto* generic = reinterpret_cast<sockaddr*>(&storage);
    if (nameOf(socket, generic, &size) != 0 || ::getnameinfo(generic, size, address, sizeof address, service,
                                                             sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return;
    }
    text = address;
    port = static_cast<int>(std::strtol(service, nullptr, 10));
}

int Clamp(size_t size) {
    return static_cast<int>(std::min<size_t>(size, INT_MAX));
}

}  // namespace

Connection::Connection(int socket, SSL_CTX* tls) : socket_(socket), tls_(tls ? SSL_new(tls) : nullptr) {
    SetTimeouts(socket_);
    if (tls_) {
        SSL_set_fd(tls_.get(), socket_);
    }
    current = this;
}

Connection::~Connection() {
    current = nullptr;
    ::close(socket_);
}

void Connection::End() {
    if (isReset_) {
        return;
    }
    if (!isCut_ && !isAborted_ && tls_ && SSL_is_init_finished(tls_.get())) {
        SSL_shutdown(tls_.get());
    }
    ::shutdown(socket_, SHUT_WR);
    Linger();
    ERR_clear_error();
}

Connection* Connection::Current() {
    return current;
}

bool Connection::Handshake() {
    return !tls_ || SSL_accept(tls_.get()) == 1;
}

void Connection::Cut() {
    isFinished_ = true;
    isCut_ = true;
}

void Connection::Reset() {
    Cut();
    isReset_ = true;
    const linger now{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

Connection::WaitEnd Connection::Wait(std::chrono::milliseconds limit, int wake) const {
    const auto end = Clock::now() + limit;
    for (;;) {
        pollfd entries[2] = {{socket_, POLLRDHUP, 0}, {wake, POLLIN, 0}};
        const int count = ::poll(entries, 2, MillisecondsUntil(end));
        if (count >= 0) {
            return entries[0].revents != 0   ? WaitEnd::kPeerLeft
                   : entries[1].revents != 0 ? WaitEnd::kWoken
                                             : WaitEnd::kTime;
        }
    }
}

bool Connection::WaitUntilPeerLeaves(std::optional<std::chrono::milliseconds> limit) const {
    const auto end = limit ? std::optional(Clock::now() + *limit) : std::nullopt;
    return WaitFor(socket_, POLLRDHUP, end) != 0;
}

void Connection::Abort() {
    isAborted_ = true;
    ::shutdown(socket_, SHUT_RDWR);
}

bool Connection::is_readable() const {
    return consumed_ < buffer_.size() || WaitFor(socket_, POLLIN, Clock::now()) != 0;
}

bool Connection::is_writable() const {
    return !isFinished_ && !isAborted_;
}

ssize_t Connection::read(char* data, size_t size) {
    if (readable_ == 0 || (consumed_ == buffer_.size() && !Fill())) {
        return -1;
    }
    const size_t count = std::min({size, readable_, buffer_.size() - consumed_});
    std::copy_n(buffer_.data() + consumed_, count, data);
    consumed_ += count;
    readable_ -= count;
    return static_cast<ssize_t>(count);
}

bool Connection::Fill() {
    buffer_.resize(kBlock);
    consumed_ = 0;
    const ssize_t count =
        tls_ ? SSL_read(tls_.get(), buffer_.data(), Clamp(kBlock)) : ::recv(socket_, buffer_.data(), kBlock, 0);
    buffer_.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return count > 0;
}

ssize_t Connection::write(const char* data, size_t size) {
    if (!is_writable()) {
        return -1;
    }
    return tls_ ? SSL_write(tls_.get(), data, Clamp(size)) : ::send(socket_, data, size, MSG_NOSIGNAL);
}

void Connection::get_remote_ip_and_port(std::string& address, int& port) const {
    ReadAddress(socket_, ::getpeername, address, port);
}

void Connection::get_local_ip_and_port(std::string& address, int& port) const {
    ReadAddress(socket_, ::getsockname, address, port);
}

// Closing over unread bytes resets the connection, and the peer may then never see the answer.
void Connection::Linger() const {
    const auto end = Clock::now() + kLingerTimeout;
    char dropped[kBlock];
    while (!isAborted_ && Clock::now() < end && (WaitFor(socket_, POLLIN, end) & POLLIN) != 0 &&
           ::recv(socket_, dropped, sizeof dropped, MSG_DONTWAIT) > 0) {
    }
}

bool ConnectionSet::Add(Connection& connection) {
    const std::lock_guard lock(mutex_);
    return !isClosed_ && connections_.insert(&connection).second;
}

void ConnectionSet::Remove(Connection& connection) {
    const std::lock_guard lock(mutex_);
    connections_.erase(&connection);
}

void ConnectionSet::AbortAll() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    for (Connection* connection : connections_) {
        connection->Abort();
    }
}

}  // namespace ARDV::Sandbox
