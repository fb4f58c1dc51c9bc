// SPDX-License-Identifier: Apache-2.0
#include "support/nginx_server.h"

#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "support/file_text.h"
#include "support/process.h"

namespace ardv::test {

namespace {

constexpr const char* kProgram = "/usr/sbin/nginx";
constexpr const char* kErrorLog = "/run/nginx-error.log";
constexpr int kPort = 5000;
constexpr int kDeadlineMs = 10'000;

// As root nginx would give its workers to another user, which an ordinary user's private root doesn't have.
std::string MainConfiguration(const std::string& pidFile) {
    std::string text = "user root;\nworker_processes 2;\ndaemon off;\nevents {}\nerror_log " + std::string(kErrorLog) +
                       ";\nworker_shutdown_timeout 5s;\n" + (pidFile.empty() ? "" : "pid " + pidFile + ";\n") +
                       "http {\n\taccess_log off;\n";
    for (const std::string name : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += "\t" + name + "_temp_path /run/nginx-" + name + ";\n";
    }
    return text + "\tinclude /etc/nginx/conf.d/*.conf;\n}\n";
}

int Listen(const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove(path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 16) != 0) {
        throw std::runtime_error("cannot listen on " + path);
    }
    return listener;
}

std::string Receive(int connection, std::size_t size) {
    std::string bytes(size, '\0');
    const ssize_t count = recv(connection, bytes.data(), size, MSG_WAITALL);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

/** The headers of a request: a decimal length, a colon, names and values that end in NUL, and a comma. */
std::map<std::string, std::string> ReceiveHeaders(int connection) {
    std::size_t length = 0;
    for (std::string digit; (digit = Receive(connection, 1)) != ":" && !digit.empty();) {
        length = length * 10 + static_cast<std::size_t>(digit.front() - '0');
    }
    const std::string text = Receive(connection, length + 1);
    std::map<std::string, std::string> headers;
    for (std::size_t at = 0; at + 1 < text.size();) {
        const std::string name = text.c_str() + at;
        const std::string value = text.c_str() + at + name.size() + 1;
        headers[name] = value;
        at += name.size() + value.size() + 2;
    }
    return headers;
}

[[noreturn]] void Become(const std::string& configuration) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // and not a harder one: the workers would be left
    execl(kProgram, kProgram, "-q", "-c", configuration.c_str(), nullptr);
    _exit(127);
}

std::set<pid_t> ChildrenOf(pid_t process) {
    const std::string number = std::to_string(process);
    std::istringstream children(ReadText("/proc/" + number + "/task/" + number + "/children"));
    return {std::istream_iterator<pid_t>(children), {}};
}

}  // namespace

ScgiPeer::ScgiPeer(const std::string& path) : listener_(Listen(path)), thread_([this] { Run(); }) {}

ScgiPeer::~ScgiPeer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

void ScgiPeer::Run() const {
    for (int connection = -1; (connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        auto headers = ReceiveHeaders(connection);
        const std::string answer = "Status: 200 OK\r\nContent-Type: text/x-scgi\r\n\r\nscgi " + headers["REQUEST_URI"] +
                                   " " + headers["DOCUMENT_ROOT"];
        send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
        close(connection);
    }
}

void PrintTo(const WebAnswer& answer, std::ostream* stream) {
    *stream << answer.status << " (" << answer.type << ") [" << answer.origin << "] " << answer.body;
}

NginxServer::NginxServer(std::string configuration, const std::string& pidFile)
    : configuration_(configuration.empty() ? "/etc/nginx/nginx.conf" : std::move(configuration)) {
    WriteText(configuration_, MainConfiguration(pidFile));
    WriteText("/etc/nginx/conf.d/ardv.conf", ReadText(ARDV_PACKAGED_SERVER_BLOCK));
    const auto parameters = std::filesystem::path(configuration_).parent_path() / "scgi_params";
    if (!std::filesystem::exists(parameters)) {
        WriteText(parameters, ReadText("/etc/nginx/scgi_params"));
    }
}

NginxServer::~NginxServer() {
    Stop();
}

bool NginxServer::IsInstalled() {
    return std::filesystem::exists(kProgram);
}

void NginxServer::Start() {
    pid_ = fork();
    if (pid_ == 0) {
        Become(configuration_);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMs);
    while (Get("/").status == 0) {
        if (HasEnded(pid_, 10)) {
            throw std::runtime_error("nginx ended: " + ReadText(kErrorLog));
        }
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("nginx doesn't answer: " + ReadText(kErrorLog));
        }
    }
}

void NginxServer::Stop() {
    if (pid_ <= 0) {
        return;
    }
    kill(pid_, SIGTERM);
    if (!HasEnded(pid_, kDeadlineMs)) {
        kill(pid_, SIGKILL);
    }
    waitpid(std::exchange(pid_, -1), nullptr, 0);
}

void NginxServer::Kill() {
    const std::set<pid_t> workers = ChildrenOf(pid_);
    kill(pid_, SIGKILL);
    waitpid(std::exchange(pid_, -1), nullptr, 0);
    for (const pid_t worker : workers) {
        kill(worker, SIGKILL);
    }
}

std::set<pid_t> NginxServer::Workers() const {
    std::set<pid_t> workers = ChildrenOf(pid_);
    std::erase_if(workers, [](pid_t worker) {
        const std::string title = ReadText("/proc/" + std::to_string(worker) + "/cmdline");
        return !title.starts_with("nginx: worker process") || title.find("shutting down") != std::string::npos;
    });
    return workers;
}

void NginxServer::AwaitSignal(int signal) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMs);
    const auto isPending = [this, signal] {
        const std::string status = ReadText("/proc/" + std::to_string(pid_) + "/status");
        const std::size_t at = status.find("ShdPnd:");
        const auto signals = at == std::string::npos ? 0 : std::stoull(status.substr(at + 8, 17), nullptr, 16);
        return (signals >> static_cast<unsigned>(signal - 1) & 1U) != 0;
    };
    while (!isPending()) {
        if (HasEnded(pid_, 10) || std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("no signal came");
        }
    }
}

WebAnswer NginxServer::Get(const std::string& target) {
    httplib::Client client("127.0.0.1", kPort);
    client.set_read_timeout(std::chrono::milliseconds(kDeadlineMs));
    const auto answer = client.Get(target);
    if (!answer) {
        return {};
    }
    return {answer->status, answer->get_header_value("Content-Type"),
            answer->get_header_value("Access-Control-Allow-Origin"), answer->body};
}

}  // namespace ardv::test
