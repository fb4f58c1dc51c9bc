// SPDX-License-Identifier: Apache-2.0
#include "support/router_network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "support/deadline.h"
#include "support/file_text.h"
#include "support/program.h"

namespace ardv::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDeadline{10};
constexpr const char* kGroup = "239.255.255.250";
constexpr std::uint16_t kSsdpPort = 1900;

/** The chains that the router program puts its rules into, and what this test counts. */
constexpr const char* kRules = R"(
table inet watch {
    counter searches { }
    counter connections { }
    chain input {
        type filter hook input priority -10
        udp dport 1900 counter name searches
        tcp flags & (syn | ack) == syn counter name connections
    }
}
table inet mappings {
    chain forward { type filter hook forward priority 0; jump filtered; }
    chain filtered { }
    chain prerouting { type nat hook prerouting priority -100; jump forwarded; }
    chain forwarded { }
    chain postrouting { type nat hook postrouting priority 100; jump hidden; }
    chain hidden { }
}
)";

void Must(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error("router: " + what);
    }
}

void MustRun(const std::vector<std::string>& command, const std::string& input = "") {
    const ProgramResult result = RunProgram(command, input);
    if (result.exitCode != 0) {
        std::string text;
        for (const std::string& word : command) {
            text += word + " ";
        }
        throw std::runtime_error("router: " + text + "failed: " + result.err);
    }
}

/** A copy of this process that keeps a new network namespace until it, or this process, ends. */
pid_t HoldNamespace() {
    std::array<int, 2> ends{};
    Must(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
    const pid_t holder = fork();
    if (holder == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const bool isReady = unshare(CLONE_NEWNET) == 0 && write(ends[1], "x", 1) == 1;
        close(ends[1]);
        if (!isReady) {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }
    close(ends[1]);
    char ready = 0;
    const bool isReady = holder > 0 && read(ends[0], &ready, 1) == 1;
    close(ends[0]);
    Must(isReady, "no network namespace");
    return holder;
}

void EndProcess(pid_t process, int signal) {
    if (process > 0) {
        kill(process, signal);
        waitpid(process, nullptr, 0);
    }
}

/** Hears what routers announce on an interface of this process. */
class Announcements {
public:
    explicit Announcements(const std::string& interface) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kSsdpPort);
        ip_mreqn group{};
        inet_pton(AF_INET, kGroup, &group.imr_multiaddr);
        inet_pton(AF_INET, kGroup, &address.sin_addr);
        group.imr_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
        const bool isHearing = setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                               bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                               setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0;
        Must(isHearing, "cannot hear announcements");
    }
    Announcements(const Announcements&) = delete;
    Announcements& operator=(const Announcements&) = delete;
    ~Announcements() { close(fd_); }

    bool HearAlive() const {
        const auto end = Clock::now() + kDeadline;
        std::array<char, 2048> text{};
        pollfd entry{fd_, POLLIN, 0};
        while (poll(&entry, 1, MillisecondsUntil(end)) > 0) {
            const ssize_t size = recv(fd_, text.data(), text.size(), 0);
            const std::string_view message(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
            if (message.find("ssdp:alive") != std::string_view::npos) {
                return true;
            }
        }
        return false;
    }

private:
    int fd_;
};

/** The router as its own client library knows it. */
class Control {
public:
    explicit Control(const std::string& description) {
        std::array<char, INET_ADDRSTRLEN> own{};
        const int found = UPNP_GetIGDFromUrl(description.c_str(), &urls_, &data_, own.data(), own.size());
        Must(found == 1, "no description at " + description);
        device_ = own.data();
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    ~Control() { FreeUPNPUrls(&urls_); }

    void Add(int routerPort, int port, const std::string& protocol, const std::string& client) {
        const int result = UPNP_AddPortMapping(
            urls_.controlURL, data_.first.servicetype, std::to_string(routerPort).c_str(), std::to_string(port).c_str(),
            client.empty() ? device_.c_str() : client.c_str(), "test", protocol.c_str(), nullptr, "0");
        Must(result == 0, "no mapping: error " + std::to_string(result));
    }

    int First(int port) {
        constexpr std::size_t kRoom = 80;
        for (int index = 0;; ++index) {
            std::array<char, kRoom> outer{};
            std::array<char, kRoom> client{};
            std::array<char, kRoom> inner{};
            std::array<char, kRoom> protocol{};
            std::array<char, kRoom> rest{};
            if (UPNP_GetGenericPortMappingEntry(urls_.controlURL, data_.first.servicetype,
                                                std::to_string(index).c_str(), outer.data(), client.data(),
                                                inner.data(), protocol.data(), rest.data(), rest.data(), rest.data(),
                                                rest.data()) != 0) {
                return 0;
            }
            if (inner.data() == std::to_string(port)) {
                return std::stoi(outer.data());
            }
        }
    }

private:
    UPNPUrls urls_{};
    IGDdatas data_{};
    std::string device_;
};

std::string DescriptionOf(const RouterNetwork& network, int port) {
    return "http://" + network.Settings().router + ":" + std::to_string(port) + "/rootDesc.xml";
}

}  // namespace

std::string RouterNetwork::WhyNot() {
    const bool isGranted =
        RunProgram({"ip", "link", "add", "probe0", "type", "veth", "peer", "name", "probe1"}).exitCode == 0;
    RunProgram({"ip", "link", "del", "probe0"});
    return isGranted ? "" : "needs the right, and a kernel, to make pairs of network interfaces (veth)";
}

RouterNetwork::RouterNetwork(NetworkSettings settings) : settings_(std::move(settings)), holder_(HoldNamespace()) {
    const std::string holder = std::to_string(holder_);
    const std::string peer = settings_.interface + "r";
    try {
        MustRun({"ip", "link", "add", settings_.interface, "type", "veth", "peer", "name", peer, "netns", holder});
        MustRun({"ip", "address", "add", settings_.device + "/24", "dev", settings_.interface});
        MustRun({"ip", "link", "set", settings_.interface, "up"});
        Run({"ip", "link", "set", "lo", "up"});
        Run({"ip", "address", "add", settings_.router + "/24", "dev", peer});
        Run({"ip", "link", "set", peer, "up"});
        Run({"ip", "link", "add", "wan0", "type", "veth", "peer", "name", "wan1"});
        Run({"ip", "address", "add", "55.1.2.3/24", "dev", "wan0"});  // the program refuses private ones
        Run({"ip", "link", "set", "wan0", "up"});
        Run({"ip", "link", "set", "wan1", "up"});
        Run({"nft", "-f", "-"}, kRules);
    } catch (...) {
        EndProcess(holder_, SIGKILL);
        throw;
    }
}

RouterNetwork::~RouterNetwork() {
    RunProgram({"ip", "link", "del", settings_.interface});
    EndProcess(holder_, SIGKILL);
}

void RouterNetwork::BecomeGateway() const {
    MustRun({"ip", "route", "replace", "default", "via", settings_.router, "dev", settings_.interface});
}

std::vector<std::string> RouterNetwork::Inside(std::vector<std::string> command) const {
    command.insert(command.begin(), {"nsenter", "--net=/proc/" + std::to_string(holder_) + "/ns/net"});
    return command;
}

void RouterNetwork::Run(std::vector<std::string> command, const std::string& input) const {
    MustRun(Inside(std::move(command)), input);
}

void RouterNetwork::RunThere(const std::function<void()>& body) const {
    std::exception_ptr failure;
    std::thread([&] {
        try {
            const int there = open(("/proc/" + std::to_string(holder_) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
            const bool isThere = there >= 0 && setns(there, CLONE_NEWNET) == 0;
            close(there);
            Must(isThere, "cannot enter its namespace");
            body();
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void RouterNetwork::FallSilent() const {
    Run({"nft", "add rule inet watch input drop"});
}

int RouterNetwork::Count(const std::string& counter) const {
    constexpr std::string_view kLabel = "packets ";
    const std::string text = RunProgram(Inside({"nft", "list", "counter", "inet", "watch", counter})).out;
    const std::size_t at = text.find(kLabel);
    Must(at != std::string::npos, "no counter: " + text);
    return std::stoi(text.substr(at + kLabel.size()));
}

UpnpRouter::UpnpRouter(const RouterNetwork& network, Settings settings) : network_(network), settings_(settings) {
    const std::string name = "/tmp/router-" + network.Settings().interface;
    WriteText(name + ".conf", Configuration());
    const Announcements announcements(network.Settings().interface);
    Start(network.Inside({"/usr/sbin/miniupnpd", "-d", "-f", name + ".conf", "-P", name + ".pid"}), name + ".log");
    if (!announcements.HearAlive()) {
        EndProcess(process_, SIGKILL);
        throw std::runtime_error("router: does not announce itself: " + ReadText(name + ".log"));
    }
}

void UpnpRouter::Start(std::vector<std::string> words, const std::string& logFile) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int log = open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // when the thread ends that starts it, so it must be the test's own
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execvp(arguments.front(), arguments.data());
        _exit(127);
    }
    close(log);
}

UpnpRouter::~UpnpRouter() {
    EndProcess(process_, SIGKILL);  // at another signal it may finish its minute of sleep first
}

std::string UpnpRouter::Configuration() const {
    const NetworkSettings& network = network_.Settings();
    return "ext_ifname=wan0\nlistening_ip=" + network.interface + "r\nhttp_port=" + std::to_string(settings_.port) +
           "\nenable_upnp=yes\nenable_natpmp=no\nsecure_mode=no\nsystem_uptime=yes\nnotify_interval=60\n"
           "uuid=00000000-0000-4000-8000-000000000001\nforce_igd_desc_v1=" +
           (settings_.version == 1 ? "yes" : "no") +
           "\nupnp_table_name=mappings\nupnp_nat_table_name=mappings\nupnp_forward_chain=filtered\n"
           "upnp_nat_chain=forwarded\nupnp_nat_postrouting_chain=hidden\n"
           "allow 1-65535 0.0.0.0/0 1-65535\ndeny 0-65535 0.0.0.0/0 0-65535\n";
}

void UpnpRouter::Map(int routerPort, int port, const std::string& protocol, const std::string& client) const {
    Control(DescriptionOf(network_, settings_.port)).Add(routerPort, port, protocol, client);
}

int UpnpRouter::FirstInList(int port) const {
    return Control(DescriptionOf(network_, settings_.port)).First(port);
}

}  // namespace ardv::test
