// SPDX-License-Identifier: Apache-2.0
#include "openvpn_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <relay/tunnel/tunnel_names.h>

#include "descriptor.h"
#include "log.h"

DAEMON_LOG_SOURCE("openvpn_process.cpp");

namespace ardv::daemon {

using std::chrono::milliseconds;

namespace {

constexpr milliseconds kPatience{2000};

// What the command line of a tunnel's OpenVPN has, and no other's: its interface, and the authority of the relays.
constexpr std::string_view kProgram = "openvpn";
struct Option {
    std::string_view name;
    std::string_view value;
};
constexpr Option kOptions[] = {{"--dev", ARDV::Relay::TunnelNames::kInterface},
                               {"--ca", ARDV::Relay::TunnelNames::kCertificateAuthority}};

// Stands for a process, whatever becomes of its number.
Descriptor OpenProcess(pid_t process) {
    return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

void Signal(const Descriptor& process, int signal) {
    syscall(SYS_pidfd_send_signal, process.Get(), signal, nullptr, 0);
}

bool HasEnded(const Descriptor& process, milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
        pollfd entry = {process.Get(), POLLIN, 0};
        const int ready = poll(&entry, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
        if (ready >= 0 || errno != EINTR) {
            return ready != 0;
        }
    }
}

void End(const Descriptor& process) {
    for (const int signal : {SIGTERM, SIGKILL}) {
        Signal(process, signal);
        if (HasEnded(process, kPatience)) {
            return;
        }
    }
}

std::vector<std::string> CommandLine(pid_t process) {
    constexpr std::size_t kMaxSize = 16384;
    const Descriptor file(open(("/proc/" + std::to_string(process) + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC));
    std::string text(kMaxSize, '\0');
    const auto size = file.IsOpen() ? read(file.Get(), text.data(), text.size()) : 0;
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    std::vector<std::string> words;
    for (std::size_t at = 0; at < text.size();) {
        const auto end = std::min(text.find('\0', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

bool IsTunnel(pid_t process) {
    const auto words = CommandLine(process);
    const auto has = [&words](const Option& option) {
        const std::array pair = {option.name, option.value};
        return std::search(words.begin(), words.end(), pair.begin(), pair.end()) != words.end();
    };
    return !words.empty() && words.front() == kProgram && std::all_of(std::begin(kOptions), std::end(kOptions), has);
}

void Reap(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

bool ReapIfEnded(pid_t child) {
    return child > 0 && waitpid(child, nullptr, WNOHANG) == child;
}

void EndChildAndWait(pid_t child) {
    if (child <= 0 || ReapIfEnded(child)) {
        return;
    }
    if (const auto process = OpenProcess(child); process.IsOpen()) {
        End(process);
    } else {
        kill(child, SIGKILL);  // not reaped yet, so the number is still its own
    }
    Reap(child);
}

void KillChildAndWait(pid_t child) {
    if (child > 0 && !ReapIfEnded(child)) {
        kill(child, SIGKILL);
        Reap(child);
    }
}

void EndOrphan(pid_t process) {
    if (process <= 1 || process == getpid()) {
        return;
    }
    const auto handle = OpenProcess(process);
    if (handle.IsOpen() && IsTunnel(process)) {  // looked at after it was opened: the handle stands for what was seen
        DAEMON_LOG(LOG_NOTICE, "ending OpenVPN %d, which an earlier daemon has left", process);
        End(handle);
    }
}

}  // namespace ardv::daemon
