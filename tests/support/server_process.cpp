// SPDX-License-Identifier: Apache-2.0
#include "support/server_process.h"

#include <httplib.h>
#include <poll.h>
#include <sys/inotify.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "support/deadline.h"
#include "support/file_text.h"
#include "support/folder_watch.h"
#include "support/handle.h"
#include "support/json_parse.h"
#include "support/process.h"

namespace ardv::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDeadline{10};

void Drain(int notifier) {
    char events[4096];
    while (::read(notifier, events, sizeof events) > 0) {
    }
}

}  // namespace

ServerProcess::ServerProcess(const std::string& program, ServerSettings settings,
                             const std::vector<std::string>& options)
    : settings_(std::move(settings)), httpPort_(settings_.httpPort) {
    std::filesystem::create_directories(settings_.folder);
    words_ = {program, "--listen", settings_.address, "--ports-file", settings_.folder + "/ports.json"};
    words_.insert(words_.end(), options.begin(), options.end());
    if (!settings_.certificate.empty()) {
        words_.insert(words_.end(), {"--certificate", settings_.certificate, "--key", settings_.key});
    }
    Start();
}

ServerProcess::~ServerProcess() {
    Stop();
}

std::string ServerProcess::HttpUrl() const {
    const bool isV6 = settings_.address.find(':') != std::string::npos;
    return "http://" + (isV6 ? "[" + settings_.address + "]" : settings_.address) + ":" + std::to_string(httpPort_);
}

std::string ServerProcess::HttpsUrl(const std::string& host) const {
    return "https://" + host + ":" + std::to_string(httpsPort_);
}

void ServerProcess::SetFault(const std::string& order) const {
    Ask("POST", "/sandbox/fault", order);
}

void ServerProcess::ClearFault() const {
    Ask("DELETE", "/sandbox/fault");
}

Json::Value ServerProcess::Requests() const {
    return Ask("GET", "/sandbox/requests");
}

void ServerProcess::ClearRequests() const {
    Ask("DELETE", "/sandbox/requests");
}

std::string ServerProcess::Log() const {
    return ReadText(settings_.folder + "/log");
}

int ServerProcess::Stop() {
    if (pid_ < 0) {
        return 0;
    }
    ::kill(pid_, SIGTERM);
    if (!HasEnded(pid_, MillisecondsUntil(Clock::now() + kDeadline))) {
        ::kill(pid_, SIGKILL);
    }
    return End();
}

void ServerProcess::Kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        End();
    }
}

int ServerProcess::End() {
    return Reap(std::exchange(pid_, -1));
}

void ServerProcess::Start() {
    const std::string portsFile = settings_.folder + "/ports.json";
    std::filesystem::remove(portsFile);
    std::vector<std::string> words = words_;
    words.insert(words.end(), {"--http-port", std::to_string(httpPort_), "--https-port", std::to_string(httpsPort_)});
    pid_ = Spawn(std::move(words), settings_.folder + "/log");
    try {
        WaitUntilReady();
    } catch (...) {
        // A constructor that throws has no destructor to end the child.
        Stop();
        throw;
    }
    const Json::Value ports = ParseText(ReadText(portsFile));
    httpPort_ = ports["http"].asInt();
    httpsPort_ = ports["https"].asInt();
}

void ServerProcess::Restart() {
    Stop();
    Start();
}

bool ServerProcess::WaitFor(const std::function<bool()>& isTrue) const {
    const FolderWatch watch(settings_.folder);
    const auto end = Clock::now() + kDeadline;
    while (!isTrue()) {
        if (Clock::now() > end) {
            return false;
        }
        watch.AwaitChange(std::chrono::milliseconds(50));
    }
    return true;
}

// The server renames its ports file into place when it is ready.
void ServerProcess::WaitUntilReady() {
    const Handle process(OpenProcess(pid_));
    const Handle notifier(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    ::inotify_add_watch(notifier.Number(), settings_.folder.c_str(), IN_MOVED_TO);
    const auto end = Clock::now() + kDeadline;
    while (!std::filesystem::exists(settings_.folder + "/ports.json")) {
        pollfd entries[2] = {{process.Number(), POLLIN, 0}, {notifier.Number(), POLLIN, 0}};
        if (::poll(entries, 2, MillisecondsUntil(end)) == 0) {
            throw std::runtime_error("the server is not ready in time: " + Log());
        }
        if (entries[0].revents != 0) {
            throw std::runtime_error("the server ended with code " + std::to_string(End()) + ": " + Log());
        }
        Drain(notifier.Number());
    }
}

Json::Value ServerProcess::Ask(const std::string& method, const std::string& path, const std::string& body) const {
    httplib::Client client(HttpUrl());
    client.set_read_timeout(kDeadline);
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.body = body;
    request.set_header("Content-Type", "application/json");
    const auto answer = client.send(request);
    if (!answer || answer->status != 200) {
        throw std::runtime_error("the server refused " + method + " " + path + ": " +
                                 (answer ? answer->body : httplib::to_string(answer.error())));
    }
    return ParseText(answer->body);
}

}  // namespace ardv::test
