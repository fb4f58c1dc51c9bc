// SPDX-License-Identifier: Apache-2.0
#include "support/port_prober.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "support/deadline.h"
#include "support/handle.h"
#include "support/network_namespace.h"

namespace ardv::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kBatch = 96;  // probes that are on their way at once: a tunnel's queues hold more
constexpr milliseconds kEchoPatience{250};
constexpr int kEchoTries = 8;
constexpr milliseconds kLastAnswers{500};
constexpr milliseconds kRound{1};
constexpr std::size_t kSparse = 8;  // ports of a round of the watch besides the dense ones
constexpr std::uint16_t kLastPort = 65'535;
constexpr int kRoom = 16 * 1024 * 1024;

/** The text of an address of an interface; empty for another family. */
std::string TextOf(const sockaddr* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address != nullptr && address->sa_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text.data(), text.size());
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text.data(), text.size());
    }
    return text.data();
}

/** The number of the interface that has an address; 0: none. */
unsigned InterfaceWith(const std::string& address) {
    ifaddrs* list = nullptr;
    ::getifaddrs(&list);
    unsigned index = 0;
    for (const ifaddrs* entry = list; entry != nullptr && index == 0; entry = entry->ifa_next) {
        index = TextOf(entry->ifa_addr) == address ? ::if_nametoindex(entry->ifa_name) : 0;
    }
    ::freeifaddrs(list);
    return index;
}

std::string Describe(const ProbePath& path, const ProbeAnswer& answer) {
    return std::string(answer.probe == Probe::kTcp ? "tcp" : "udp") + (path.IsV6() ? "6 " : "4 ") +
           std::to_string(answer.port) + " " + answer.what;
}

/** Whole IP packets to and from one end of a path, right at its interface. */
class Line {
public:
    explicit Line(ProbePath path)
        : path_(std::move(path)),
          index_(InterfaceWith(path_.own)),
          socket_(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_ll here = Address();
        const int on = 1;
        ::setsockopt(socket_.Number(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
        ::setsockopt(socket_.Number(), SOL_SOCKET, SO_RCVBUFFORCE, &kRoom, sizeof kRoom);
        isOpen_ = index_ != 0 && ::bind(socket_.Number(), reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0;
    }

    bool IsOpen() const { return isOpen_; }
    const ProbePath& Path() const { return path_; }
    std::size_t Sent() const { return sent_; }

    /** False: the interface is gone. */
    bool Send(Probe probe, std::uint16_t port) {
        const auto packet = MakeProbe(path_, probe, port);
        ++sent_;
        const sockaddr_ll there = Address();
        isOpen_ = isOpen_ && (::sendto(socket_.Number(), packet.data(), packet.size(), 0,
                                       reinterpret_cast<const sockaddr*>(&there), sizeof there) > 0 ||
                              errno == EAGAIN || errno == ENOBUFS);
        return isOpen_;
    }

    /** Gives each answer that is there, and those that come within `time`, until `take` says enough. */
    void Receive(milliseconds time, const std::function<bool(const ProbeAnswer&)>& take) const {
        const auto end = Clock::now() + time;
        std::array<std::uint8_t, 2048> packet{};
        pollfd entry{socket_.Number(), POLLIN, 0};
        while (::poll(&entry, 1, MillisecondsUntil(end)) > 0) {
            const ssize_t size = ::recv(socket_.Number(), packet.data(), packet.size(), 0);
            const auto answer =
                size > 0 ? ReadAnswer(path_, packet.data(), static_cast<std::size_t>(size)) : std::nullopt;
            if (size < 0 || (answer && take(*answer))) {
                return;
            }
        }
    }

private:
    sockaddr_ll Address() const {
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(path_.IsV6() ? ETH_P_IPV6 : ETH_P_IP);
        address.sll_ifindex = static_cast<int>(index_);
        return address;
    }

    ProbePath path_;
    std::size_t sent_ = 0;
    unsigned index_;
    Handle socket_;
    bool isOpen_ = false;
};

/** Sends in batches, each of which ends with an echo request: what is behind it has been sent through when its echo is back. */
class Pass {
public:
    Pass(Line& line, PortAnswers& answers) : line_(line), answers_(answers) {}

    void Try(Probe probe, const std::vector<std::uint16_t>& ports) {
        for (std::size_t at = 0; at < ports.size(); at += kBatch) {
            for (std::size_t i = at; i < std::min(at + kBatch, ports.size()); ++i) {
                line_.Send(probe, ports[i]);
            }
            isComplete_ = AwaitEcho() && isComplete_;
        }
    }

    void AwaitTheLast() {
        line_.Receive(kLastAnswers, [&](const ProbeAnswer& answer) { return Take(answer) && false; });
    }

    bool IsComplete() const { return isComplete_; }

private:
    /** Whether an answer is the echo that is waited for. */
    bool Take(const ProbeAnswer& answer) {
        if (answer.probe == Probe::kEcho) {
            return answer.port == echo_;
        }
        answers_.insert(Describe(line_.Path(), answer));
        return false;
    }

    bool AwaitEcho() {
        ++echo_;
        for (int tries = 0; tries < (isComplete_ ? kEchoTries : 1); ++tries) {
            bool isBack = false;
            line_.Send(Probe::kEcho, echo_);
            line_.Receive(kEchoPatience, [&](const ProbeAnswer& answer) { return isBack = Take(answer); });
            if (isBack) {
                return true;
            }
        }
        return false;
    }

    Line& line_;
    PortAnswers& answers_;
    std::uint16_t echo_ = 0;
    bool isComplete_ = true;
};

/** Runs a function in a thread of its own within a namespace. */
void RunIn(const std::string& network, const std::function<void()>& body) {
    std::exception_ptr failure;
    std::thread([&] {
        try {
            InNamespace::Enter(network);
            body();
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/** One path of a watch. */
class WatchedPath {
public:
    explicit WatchedPath(ProbePath path) : path_(std::move(path)) {}

    /** One round. False: there is no interface. */
    bool Round(const std::vector<std::uint16_t>& dense, std::uint16_t sparse, PortAnswers& answers) {
        if (!line_ || !line_->IsOpen()) {
            line_ = std::make_unique<Line>(path_);
        }
        if (!line_->IsOpen()) {
            return false;
        }
        for (const auto port : dense) {
            Both(port);
        }
        for (std::size_t i = 0; i < kSparse; ++i) {
            Both(static_cast<std::uint16_t>(sparse + i));
        }
        Collect(milliseconds(0), answers);
        return true;
    }

    void Collect(milliseconds time, PortAnswers& answers) const {
        if (!line_ || !line_->IsOpen()) {
            return;
        }
        line_->Receive(time, [&](const ProbeAnswer& answer) {
            if (answer.probe != Probe::kEcho) {  // asked for by another prober
                answers.insert(Describe(path_, answer));
            }
            return false;
        });
    }

private:
    void Both(std::uint16_t port) {
        line_->Send(Probe::kTcp, port);
        line_->Send(Probe::kUdp, port);
    }

    ProbePath path_;
    std::unique_ptr<Line> line_;
};

}  // namespace

std::vector<std::uint16_t> EveryPort() {
#ifdef __SANITIZE_ADDRESS__
    constexpr int kDense = 8192;
    constexpr int kStep = 64;
#else
    constexpr int kDense = kLastPort;
    constexpr int kStep = 1;
#endif
    std::vector<std::uint16_t> ports;
    for (int port = 1; port <= kLastPort; port += port < kDense ? 1 : kStep) {
        ports.push_back(static_cast<std::uint16_t>(port));
    }
    return ports;
}

ProbeResult ProbePorts(const ProbeRoute& route, const std::vector<std::uint16_t>& ports) {
    ProbeResult result{{}, true, 0};
    RunIn(route.network, [&] {
        for (const auto& path : route.paths) {
            Line line(path);
            if (!line.IsOpen()) {
                throw std::runtime_error("no interface has the address " + path.own);
            }
            Pass pass(line, result.answers);
            pass.Try(Probe::kTcp, ports);
            pass.Try(Probe::kUdp, ports);
            pass.AwaitTheLast();
            result.isComplete = result.isComplete && pass.IsComplete();
            result.sent += line.Sent();
        }
    });
    return result;
}

PortWatch::PortWatch(ProbeRoute route, std::vector<std::uint16_t> dense)
    : route_(std::move(route)), dense_(std::move(dense)), thread_([this] { Run(); }) {}

PortWatch::~PortWatch() {
    End();
}

PortAnswers PortWatch::End() {
    isEnding_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    return answers_;
}

void PortWatch::Run() {
    InNamespace::Enter(route_.network);
    std::list<WatchedPath> paths(route_.paths.begin(), route_.paths.end());
    std::uint16_t sparse = 1;
    for (auto next = Clock::now(); !isEnding_; next = std::max(next + kRound, Clock::now())) {
        bool isOut = false;
        for (auto& path : paths) {
            isOut = path.Round(dense_, sparse, answers_) || isOut;
        }
        rounds_ += isOut ? 1 : 0;
        sparse = static_cast<std::uint16_t>(sparse + kSparse);
        std::this_thread::sleep_until(next + kRound);
    }
    for (const auto& path : paths) {
        path.Collect(kLastAnswers, answers_);
    }
}

}  // namespace ardv::test
