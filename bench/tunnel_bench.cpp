// SPDX-License-Identifier: Apache-2.0
// From the order to the tunnel: OpenVPN alone, the library's tunnel, and the daemon's, one after the other in one run, against the
// sandbox's relay in network namespaces.
#include <json/json.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <relay/tunnel/tunnel.h>

#include "support/control_server_process.h"
#include "support/daemon_process.h"
#include "support/file_text.h"
#include "support/network_namespace.h"
#include "support/private_root.h"
#include "support/tunnel_device.h"
#include "support/tunnel_network.h"
#include "support/tunnel_processes.h"
#include "verdicts.h"

namespace {

using namespace ardv::test;
using ardv::bench::Median;
using ARDV::Relay::Tunnel;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kNotRun = 77;
constexpr int kRounds = 10;
constexpr char kUser[] = "box";
constexpr char kPassword[] = "password-of-the-box";
constexpr char kStatusFile[] = "/tmp/.ardvrelayd.status";
constexpr int kSignals[] = {SIGUSR2, SIGALRM};

void Must(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

/** What a way to a tunnel took. */
struct Way {
    std::vector<double> up = {};     ///< until the up script's signal
    std::vector<double> ready = {};  ///< until the page's port is let through
    std::vector<double> end = {};    ///< until all is gone again
};

struct Figures {
    Way bare;
    Way inLibrary;
    Way daemon;
};

sigset_t OwnerSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kSignals) {
        sigaddset(&signals, signal);
    }
    return signals;
}

void AwaitUp() {
    const auto signals = OwnerSignals();
    const timespec limit{10, 0};
    Must(sigtimedwait(&signals, nullptr, &limit) == SIGUSR2, "a tunnel does not come up");
}

void ForgetSignals() {
    const auto signals = OwnerSignals();
    const timespec none{0, 0};
    while (sigtimedwait(&signals, nullptr, &none) > 0) {
    }
}

double Since(Clock::time_point start) {
    return Milliseconds(Clock::now() - start).count();
}

Json::Value Candidate(const Protocol& protocol) {
    Json::Value candidate;
    candidate["type"] = "openvpn";
    candidate["protocol"] = protocol.name;
    candidate["port"] = protocol.port;
    candidate["mtu"] = "1500";
    return candidate;
}

Json::Value Order(const Protocol& protocol) {
    Json::Value order;
    order["relay"]["relay_ip"] = kRelay4;
    order["relay"]["relay_ipv6"] = kRelay6;
    order["relay"]["relay_user"] = kUser;
    order["relay"]["relay_pass"] = kPassword;
    order["candidates"][0] = Candidate(protocol);
    order["forward"] = Json::Value(Json::arrayValue);
    order["inline"] = true;
    return order;
}

void EndChild(pid_t child) {
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
}

/** Starts OpenVPN with the library's arguments, and with nothing else around it. */
void RunBare(const std::vector<std::string>& arguments, Way& way) {
    std::vector<char*> words;
    for (const auto& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    WriteText(std::string("/tmp/.tunnel.") + kUser, std::string(kUser) + "\n" + kPassword);
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const auto signals = OwnerSignals();
        sigprocmask(SIG_UNBLOCK, &signals, nullptr);
        execv("/usr/sbin/openvpn", words.data());
        _exit(127);
    }
    AwaitUp();
    way.up.push_back(Since(start));
    const auto end = Clock::now();
    EndChild(child);
    way.end.push_back(Since(end));
    ForgetSignals();
}

/** Gives the arguments that its OpenVPN had. */
std::vector<std::string> RunLibrary(const Protocol& protocol, Way& way) {
    Json::Value candidates(Json::arrayValue);
    candidates.append(Candidate(protocol));
    Tunnel tunnel(Order(protocol)["relay"]);
    const auto start = Clock::now();
    Must(tunnel.Create(candidates, true, true), "the library starts no tunnel");
    AwaitUp();
    way.up.push_back(Since(start));
    tunnel.UpdateTunnelStatus();
    tunnel.InsertIptableAcceptRule(kPage);
    way.ready.push_back(Since(start));
    auto arguments = ArgumentsOf(tunnel.GetPid());
    const auto end = Clock::now();
    EndChild(tunnel.GetPid());
    tunnel.Destroy();
    way.end.push_back(Since(end));
    ForgetSignals();
    return arguments;
}

/** The daemon in the device, and its control server. */
class DaemonSide {
public:
    DaemonSide() {
        MakeDevice();
        const TestCertificates certificates("/run/certificates", {kCloud});
        const std::string trusted = "/etc/ssl/certs/ca-certificates.crt";
        WriteText(trusted, ReadText(trusted) + ReadText(certificates.Authority()));
        ControlServerSettings settings;
        settings.server.folder = "/run/control";
        settings.server.address = kCloud;
        settings.server.certificate = certificates.Certificate("valid");
        settings.server.key = certificates.Key("valid");
        control_ = std::make_unique<ControlServerProcess>(settings);
        Configure();
        const InNamespace device("device");
        daemon_ = std::make_unique<DaemonProcess>(DaemonProcess::Hasty());
        Must(AwaitStatus("login success") == "login success", "the daemon does not log in: " + daemon_->Log());
        Must(Await([&] { return control_->Sessions()[ServerId()]["waiting"].asBool(); }), "the daemon does not wait");
    }

    void Run(const Protocol& protocol, Way& way) {
        const InNamespace cloud("cloud");
        const auto order = Order(protocol).toStyledString();
        const auto start = Clock::now();
        control_->OpenTunnel(ServerId(), order);
        Must(Await([] { return Word() == "READY"; }), "the daemon opens no tunnel: " + daemon_->Log());
        way.ready.push_back(Since(start));
        const auto end = Clock::now();
        control_->CloseTunnel(ServerId());
        Must(Await([] { return Word().empty(); }), "the daemon closes no tunnel: " + daemon_->Log());
        way.end.push_back(Since(end));
        Must(Await([&] { return control_->Sessions()[ServerId()]["waiting"].asBool(); }), "the daemon does not wait");
    }

private:
    static std::string Word() {
        Json::Value status;
        std::istringstream text(ReadText(kStatusFile));
        std::string problems;
        Json::parseFromStream(Json::CharReaderBuilder(), text, &status, &problems);
        return status.isObject() ? status["tunnel"]["status"].asString() : "unreadable";
    }

    std::string ServerId() const { return control_->Devices()["AV0000000001"]["serverID"].asString(); }

    void Configure() const {
        Json::Value configuration;
        configuration["tethra"]["enabled"] = true;
        for (const auto* server : {"server_global", "server_control", "server_waitcmd"}) {
            configuration[server]["protocol"] = "https";
            configuration[server]["host"] = kCloud;
            configuration[server]["port"] = control_->HttpsPort();
        }
        configuration["service"][0]["id"] = "hos";
        WriteText("/usr/ardv/etc/ardvrelayd/ardvrelayd.conf", Json::FastWriter().write(configuration));
        WriteText("/usr/ardv/etc/ardvrelayd/services.conf", R"([{"id":"mobile_apps","enabled":true}])");
        WriteText("/etc/ardv/services.d/device.json",
                  R"([{"service":"dms","display_name":"Administration","ports":["5000"]}])");
        WriteText("/etc/ardv/web.conf", "http_port=\"5000\"\n");
    }

    std::unique_ptr<ControlServerProcess> control_;
    std::unique_ptr<DaemonProcess> daemon_;
};

Figures Measure(const Protocol& protocol, DaemonSide& side) {
    Figures figures;
    const InNamespace device("device");
    Way warm;
    const auto arguments = RunLibrary(protocol, warm);
    RunBare(arguments, warm);
    for (int round = 0; round < kRounds; ++round) {
        RunBare(arguments, figures.bare);
        RunLibrary(protocol, figures.inLibrary);
        side.Run(protocol, figures.daemon);
    }
    return figures;
}

void PrintRow(const char* name, const std::vector<double>& values) {
    if (!values.empty()) {
        const auto [least, most] = std::minmax_element(values.begin(), values.end());
        std::printf("  %-52s %8.1f   %6.1f..%.1f\n", name, Median(values), *least, *most);
    }
}

void Print(const Protocol& protocol, const Figures& figures) {
    std::printf("\n%s, medians of %d, ms %37s %8s   least..most\n", protocol.name, kRounds, "", "median");
    PrintRow("OpenVPN alone, from fork to the up script's signal", figures.bare.up);
    PrintRow("library, from Create to the signal", figures.inLibrary.up);
    PrintRow("library, from Create to an open port", figures.inLibrary.ready);
    PrintRow("daemon, from the service's order to READY", figures.daemon.ready);
    PrintRow("OpenVPN alone, from SIGTERM to its end", figures.bare.end);
    PrintRow("library, from SIGTERM to no trace", figures.inLibrary.end);
    PrintRow("daemon, from the service's order to no trace", figures.daemon.end);
    std::printf("  the library adds %.1f ms before the signal and %.1f ms after it\n",
                Median(figures.inLibrary.up) - Median(figures.bare.up),
                Median(figures.inLibrary.ready) - Median(figures.inLibrary.up));
}

void MeasureAll() {
    const Undertaker undertaker;
    const TunnelNetwork network;
    RelayServer::Admit(kUser, kPassword, "-");
    const RelayServer relay;
    InstallTunnelFiles();
    const auto signals = OwnerSignals();
    DaemonSide side;
    sigprocmask(SIG_BLOCK, &signals, nullptr);  // the daemon doesn't begin with these blocked
    for (const auto& protocol : kProtocols) {
        Print(protocol, Measure(protocol, side));
    }
}

}  // namespace

int main() {
    std::string why;
    if (!EnterPrivateRoot({ARDV_SOURCE, ARDV_BINARY}, why)) {
        std::cerr << "not run: this machine grants no private root (" << why << ")\n";
        return kNotRun;
    }
    const std::string reason = TunnelNetwork::WhyNot();
    if (!reason.empty()) {
        std::cerr << "tunnel: not measured: " << reason << '\n';
        return kNotRun;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        MeasureAll();
        return 0;
    } catch (const std::exception& problem) {
        std::cerr << "tunnel: not measured: " << problem.what() << '\n';
        return 1;
    }
}
