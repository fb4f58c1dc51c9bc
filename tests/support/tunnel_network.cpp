// SPDX-License-Identifier: Apache-2.0
#include "support/tunnel_network.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "support/daemon_process.h"
#include "support/file_text.h"
#include "support/handle.h"
#include "support/network_namespace.h"
#include "support/program.h"
#include "support/tunnel_processes.h"

namespace ardv::test {
namespace {

constexpr std::chrono::seconds kPatienceWithRelay{20};
constexpr const char kRelayLog[] = "/run/relay/log";

void MustRun(const std::vector<std::string>& command) {
    const ProgramResult result = RunProgram(command);
    if (result.exitCode != 0) {
        throw std::runtime_error(command.front() + " failed: " + result.out + result.err);
    }
}

std::string MissingProgram() {
    for (const char* program : {"/usr/sbin/openvpn", "/sbin/iptables", "/sbin/ip6tables", "/usr/sbin/nginx"}) {
        if (::access(program, X_OK) != 0) {
            return std::string("needs ") + program;
        }
    }
    return "";
}

bool CanMakeTunnelInterface() {
    const bool isMade = RunProgram({"ip", "tuntap", "add", "dev", "probe0", "mode", "tun"}).exitCode == 0;
    RunProgram({"ip", "link", "del", "probe0"});
    return isMade;
}

bool CanMakePair() {
    const bool isMade =
        RunProgram({"ip", "link", "add", "probe0", "type", "veth", "peer", "name", "probe1"}).exitCode == 0;
    RunProgram({"ip", "link", "del", "probe0"});
    return isMade;
}

}  // namespace

std::string TunnelNetwork::WhyNot() {
    const std::string missing = MissingProgram();
    if (!missing.empty()) {
        return missing;
    }
    if (!CanMakeTunnelInterface()) {
        return "needs the right to use /dev/net/tun";
    }
    return CanMakePair() ? "" : "needs the right, and a kernel, to make pairs of network interfaces (veth)";
}

TunnelNetwork::TunnelNetwork() {
    MustRun({ARDV_MAKE_NETWORK});
    InNamespace::Enter("cloud");
}

std::string RunIn(const std::string& network, const std::vector<std::string>& command) {
    const InNamespace there(network);
    const ProgramResult result = RunProgram(command);
    if (result.exitCode != 0) {
        throw std::runtime_error(command.front() + " failed in " + network + ": " + result.out + result.err);
    }
    return result.out;
}

RelayServer::RelayServer(std::vector<std::string> options) : options_(std::move(options)) {
    std::filesystem::create_directories(kFolder);
    if (!std::filesystem::exists(kUsers)) {
        Admit("nobody", "none", "1:1");
    }
    Start();
}

RelayServer::~RelayServer() {
    Stop();
}

void RelayServer::Admit(const std::string& user, const std::string& password, const std::string& ports) {
    const std::string draft = std::string(kUsers) + ".new";
    WriteText(draft, user + " " + password + " attic " + ports + "\n");
    std::filesystem::permissions(draft, std::filesystem::perms(0600));
    std::filesystem::rename(draft, kUsers);
}

void RelayServer::Start() {
    std::vector<std::string> words{ARDV_RELAY_SERVER};
    words.insert(words.end(), {"--certificates", "/run/relay/certificates", "--users", kUsers, "--state",
                               "/run/relay/state", "--listen4", kRelay4, "--listen6", kRelay6});
    words.insert(words.end(), options_.begin(), options_.end());
    std::filesystem::remove(kRelayLog);
    const InNamespace relay("relay");
    pid_ = Spawn(std::move(words), kRelayLog);
    const auto isReady = [] { return ("\n" + ReadText(kRelayLog)).find("\nready\n") != std::string::npos; };
    if (!Await([&] { return isReady() || HasEnded(pid_, 0); }, kPatienceWithRelay) || !isReady()) {
        throw std::runtime_error("the relay does not serve: " + ReadText(kRelayLog));
    }
}

void RelayServer::Stop() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        HasEnded(pid_, static_cast<int>(std::chrono::milliseconds(kPatience).count()));
        ::kill(pid_, SIGKILL);
        Reap(std::exchange(pid_, -1));
    }
}

void RelayServer::Kill() {
    for (const pid_t process : ProcessesIn("relay")) {
        ::kill(process, SIGKILL);
    }
    Reap(std::exchange(pid_, -1));
    Await([] { return ProcessesIn("relay").empty(); });
}

}  // namespace ardv::test
