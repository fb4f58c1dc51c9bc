// SPDX-License-Identifier: Apache-2.0
#include "service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "guarded_call.h"
#include "log.h"

DAEMON_LOG_SOURCE("service_manager.cpp");

namespace ardv::daemon {

using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

/** Takes a variable out of the environment; empty where there is none. */
std::string TakeVariable(const char* name) {
    const char* value = std::getenv(name);
    std::string text = value ? value : "";
    unsetenv(name);
    return text;
}

std::optional<std::int64_t> ToNumber(const std::string& text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && !text.empty() ? std::optional(number) : std::nullopt;
}

/** A socket that sends to a path, or to a name of the abstract kind, which begins with "@". Closed where there is nobody. */
int Connect(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@')) {
        return -1;
    }
    name.copy(address.sun_path, name.size());
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0) {
        return fd;
    }
    DAEMON_LOG(LOG_ERR, "cannot reach the service manager at %s: %s", name.c_str(), std::strerror(errno));
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

/** The watchdog's interval, unless it is meant for another process or would be none. */
std::optional<microseconds> TakeInterval() {
    const auto process = TakeVariable("WATCHDOG_PID");
    const auto interval = ToNumber(TakeVariable("WATCHDOG_USEC"));
    const bool isMine = process.empty() || ToNumber(process) == getpid();
    return isMine && interval && *interval > 0 ? std::optional(microseconds(*interval)) : std::nullopt;
}

std::int64_t MonotonicMicroseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::chrono::floor<microseconds>(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec))
        .count();
}

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop, HealthCheck isHealthy)
    : socket_(Connect(TakeVariable("NOTIFY_SOCKET"))),
      interval_(TakeInterval()),
      isHealthy_(std::move(isHealthy)),
      feeding_(loop, "service manager's watchdog", [this] { Feed(); }) {
    if (interval_ && IsListening()) {
        Feed();
    }
}

ServiceManager::~ServiceManager() = default;

void ServiceManager::Ready() {
    Send("READY=1");
}

void ServiceManager::Reloading() {
    Send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(MonotonicMicroseconds()));
}

void ServiceManager::Stopping() {
    Send("STOPPING=1");
}

void ServiceManager::Status(std::string_view text) {
    std::string line = "STATUS=" + std::string(text);
    std::replace(line.begin(), line.end(), '\n', ' ');
    Send(line);
}

// A service manager that reads nothing must not hold up the daemon.
void ServiceManager::Send(std::string_view message) {
    if (IsListening() && send(socket_.Get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
        DAEMON_LOG(LOG_ERR, "the service manager was not told: %s", std::strerror(errno));
    }
}

void ServiceManager::Feed() {
    feeding_.Start(std::max(milliseconds(1), std::chrono::floor<milliseconds>(*interval_ / 2)));
    std::string why = "the health check failed";
    bool isWell = false;
    GuardedCall("health check", [&] { isWell = isHealthy_(why); });
    if (isWell) {
        Send("WATCHDOG=1");
    } else if (isWell_) {
        DAEMON_LOG(LOG_ERR, "the watchdog is not fed: %s", why.c_str());
    }
    isWell_ = isWell;
}

}  // namespace ardv::daemon
