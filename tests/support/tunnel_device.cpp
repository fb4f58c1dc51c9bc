// SPDX-License-Identifier: Apache-2.0
#include "support/tunnel_device.h"

#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <random>
#include <sstream>
#include <stdexcept>

#include "support/daemon_process.h"
#include "support/file_text.h"
#include "support/network_namespace.h"
#include "support/process.h"
#include "support/program.h"
#include "support/tunnel_network.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

constexpr int kGlance = 50;  // milliseconds
constexpr std::size_t kMebibyte = 1024 * 1024;

void Install(const std::string& source, const std::string& target, fs::perms mode) {
    fs::create_directories(fs::path(target).parent_path());
    fs::copy_file(source, target, fs::copy_options::overwrite_existing);
    fs::permissions(target, mode);
}

std::string Configuration() {
    const std::string folder = DeviceServices::kWeb;
    std::string text = "user root; daemon off; master_process off; pid " + folder + "/pid; error_log " + folder +
                       "/error.log;\nevents {}\nhttp {\n access_log off;\n";
    for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string(" ") + use + "_temp_path " + folder + "/temp;\n";
    }
    text += " server {\n";
    for (const int port : {kPage, kPhotos}) {
        const std::string number = std::to_string(port);
        text += "  listen " + number + "; listen [::]:" + number + ";\n";
    }
    return text + "  root " + folder + ";\n }\n}\n";
}

std::string RandomText(std::size_t size) {
    std::mt19937 source(std::random_device{}());
    std::string text(size, '\0');
    for (char& letter : text) {
        letter = static_cast<char>(source());
    }
    return text;
}

int BoundSocket(int port) {
    const int fd = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;  // and IPv4, as addresses of that family go both ways
    address.sin6_port = htons(static_cast<std::uint16_t>(port));
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no UDP service");
    }
    return fd;
}

int SocketIn(const std::string& network, int port) {
    const InNamespace there(network);
    return BoundSocket(port);
}

}  // namespace

void InstallTunnelFiles() {
    constexpr auto kProgram = fs::perms(0755);
    Install(ARDV_SOURCE "/ardvrelayd/scripts/up.sh", std::string(kTunnelScripts) + "/up.sh", kProgram);
    Install(ARDV_SOURCE "/ardvrelayd/scripts/down.sh", std::string(kTunnelScripts) + "/down.sh", kProgram);
    Install(ARDV_SOURCE "/platform/programs/ovpnc.sh", kControlScript, kProgram);
    Install(RelayServer::kAuthority, kTunnelCertificate, fs::perms(0644));
}

DeviceServices::DeviceServices() : names_(SocketIn("device", kNameService)) {
    fs::create_directories(std::string(kWeb) + "/temp");
    WriteText(std::string(kWeb) + "/index.html", "the page of the device\n");
    WriteText(std::string(kWeb) + "/1m", RandomText(kMebibyte));
    WriteText(std::string(kWeb) + "/nginx.conf", Configuration());
    {
        const InNamespace device("device");
        web_ = Spawn({"/usr/sbin/nginx", "-p", kWeb, "-c", std::string(kWeb) + "/nginx.conf"}, "/run/web/log");
    }
    if (!Await([] { return !Fetch("device", "127.0.0.1", kPhotos).empty(); })) {
        throw std::runtime_error("the device's web server does not serve: " + ReadText("/run/web/log"));
    }
    answering_ = std::thread([this] { Answer(); });
}

DeviceServices::~DeviceServices() {
    isEnding_ = true;
    answering_.join();
    ::kill(web_, SIGKILL);
    Reap(web_);
}

std::string DeviceServices::Page() {
    return ReadText(std::string(kWeb) + "/index.html");
}

std::string DeviceServices::Large() {
    return ReadText(std::string(kWeb) + "/1m");
}

void DeviceServices::Answer() const {
    pollfd entry{names_.Number(), POLLIN, 0};
    while (!isEnding_) {
        std::array<char, 512> text{};
        sockaddr_in6 from = {};
        socklen_t size = sizeof from;
        if (::poll(&entry, 1, kGlance) > 0 &&
            ::recvfrom(names_.Number(), text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&from), &size) >= 0) {
            ::sendto(names_.Number(), "here", 4, 0, reinterpret_cast<const sockaddr*>(&from), size);
        }
    }
}

std::string Fetch(const std::string& network, const std::string& host, int port, const std::string& target,
                  int seconds) {
    const InNamespace there(network);
    httplib::Client client(host, port);
    client.set_connection_timeout(seconds);
    client.set_read_timeout(seconds);
    const auto answer = client.Get("/" + target);
    return answer && answer->status == 200 ? answer->body : "";
}

std::vector<std::string> FilterRules(const std::string& program, const std::string& chain) {
    const InNamespace device("device");
    std::vector<std::string> command{"/sbin/" + program, "-S"};
    if (!chain.empty()) {
        command.push_back(chain);
    }
    std::istringstream text(RunProgram(command).out);
    std::vector<std::string> rules;
    for (std::string line; std::getline(text, line);) {
        rules.push_back(line);
    }
    return rules;
}

std::vector<int> AcceptedPorts(const std::string& program) {
    constexpr std::string_view kAccept = "-A TETHRA_RELAY -i tun1000 -p tcp -m tcp --dport ";
    std::vector<int> ports;
    for (const auto& rule : FilterRules(program)) {
        if (rule.starts_with(kAccept) && rule.ends_with(" -j ACCEPT")) {
            ports.push_back(std::stoi(rule.substr(kAccept.size())));
        }
    }
    return ports;
}

}  // namespace ardv::test
