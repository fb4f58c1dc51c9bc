// SPDX-License-Identifier: Apache-2.0
#include "support/alias_server_process.h"

#include <fcntl.h>
#include <httplib.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace ardv::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDeadline{10};

class Handle {
public:
    explicit Handle(int number) : number_(number) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int Number() const { return number_; }

private:
    int number_;
};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Json::Value ParseJson(const std::string& text) {
    std::istringstream stream(text);
    Json::Value value;
    std::string error;
    if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &error)) {
        throw std::runtime_error("the alias server's answer is no JSON: " + error);
    }
    return value;
}

// The header of glibc 2.36 declares pidfd_open() for C only.
int OpenProcess(pid_t process) {
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
}

int CodeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Between fork and exec only what a signal handler might do.
[[noreturn]] void Become(char* const* arguments, int log) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    ::execv(arguments[0], arguments);
    ::_exit(127);
}

pid_t Spawn(std::vector<std::string> words, const std::string& logFile) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const Handle log(::open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    const pid_t child = ::fork();
    if (child == 0) {
        Become(arguments.data(), log.Number());
    }
    if (child < 0 || log.Number() < 0) {
        throw std::runtime_error("cannot start " + words.front());
    }
    return child;
}

int MillisecondsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool HasEnded(pid_t process, int milliseconds) {
    const Handle handle(OpenProcess(process));
    pollfd entry{handle.Number(), POLLIN, 0};
    return ::poll(&entry, 1, milliseconds) == 1;
}

void Drain(int notifier) {
    char events[4096];
    while (::read(notifier, events, sizeof events) > 0) {
    }
}

}  // namespace

TestCertificates::TestCertificates(std::string folder, const std::vector<std::string>& hosts)
    : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
    std::vector<std::string> words{ARDV_MAKE_CERTIFICATES, folder_};
    words.insert(words.end(), hosts.begin(), hosts.end());
    const pid_t child = Spawn(std::move(words), folder_ + "/log");
    int status = 0;
    if (::waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("no test certificates: " + ReadFile(folder_ + "/log"));
    }
}

AliasServerProcess::AliasServerProcess(AliasServerSettings settings)
    : settings_(std::move(settings)), httpPort_(settings_.httpPort) {
    std::filesystem::create_directories(settings_.folder);
    Start();
}

AliasServerProcess::~AliasServerProcess() {
    Stop();
}

std::string AliasServerProcess::HttpUrl() const {
    const bool isV6 = settings_.address.find(':') != std::string::npos;
    return "http://" + (isV6 ? "[" + settings_.address + "]" : settings_.address) + ":" + std::to_string(httpPort_);
}

std::string AliasServerProcess::HttpsUrl(const std::string& host) const {
    return "https://" + host + ":" + std::to_string(httpsPort_);
}

void AliasServerProcess::SetFault(const std::string& order) {
    Ask("POST", "/sandbox/fault", order);
}

void AliasServerProcess::ClearFault() {
    Ask("DELETE", "/sandbox/fault");
}

Json::Value AliasServerProcess::Requests() const {
    return ParseJson(Ask("GET", "/sandbox/requests"));
}

void AliasServerProcess::ClearRequests() {
    Ask("DELETE", "/sandbox/requests");
}

Json::Value AliasServerProcess::Registry() const {
    return ParseJson(Ask("GET", "/sandbox/registry"));
}

void AliasServerProcess::SetRegistry(const Json::Value& registry) {
    Ask("PUT", "/sandbox/registry", registry.toStyledString());
}

std::string AliasServerProcess::Log() const {
    return ReadFile(settings_.folder + "/log");
}

int AliasServerProcess::Stop() {
    if (pid_ < 0) {
        return 0;
    }
    ::kill(pid_, SIGTERM);
    if (!HasEnded(pid_, MillisecondsUntil(Clock::now() + kDeadline))) {
        ::kill(pid_, SIGKILL);
    }
    return Reap();
}

void AliasServerProcess::Kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        Reap();
    }
}

int AliasServerProcess::Reap() {
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return CodeOf(status);
}

void AliasServerProcess::Start() {
    const std::string portsFile = settings_.folder + "/ports.json";
    std::filesystem::remove(portsFile);
    pid_ = Spawn(Arguments(), settings_.folder + "/log");
    try {
        WaitUntilReady();
    } catch (...) {
        // A constructor that throws has no destructor to end the child.
        Stop();
        throw;
    }
    const Json::Value ports = ParseJson(ReadFile(portsFile));
    httpPort_ = ports["http"].asInt();
    httpsPort_ = ports["https"].asInt();
}

void AliasServerProcess::Restart() {
    Stop();
    Start();
}

std::vector<std::string> AliasServerProcess::Arguments() const {
    std::vector<std::string> words{ARDV_ALIAS_SERVER,
                                   "--listen",
                                   settings_.address,
                                   "--registry",
                                   RegistryFile(),
                                   "--ports-file",
                                   settings_.folder + "/ports.json"};
    const auto add = [&](const char* name, const std::string& value) { words.insert(words.end(), {name, value}); };
    add("--http-port", std::to_string(httpPort_));
    if (!settings_.certificate.empty()) {
        add("--https-port", std::to_string(httpsPort_));
        add("--certificate", settings_.certificate);
        add("--key", settings_.key);
    }
    return words;
}

// The server renames its ports file into place when it is ready.
void AliasServerProcess::WaitUntilReady() {
    const Handle process(OpenProcess(pid_));
    const Handle notifier(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    ::inotify_add_watch(notifier.Number(), settings_.folder.c_str(), IN_MOVED_TO);
    const auto end = Clock::now() + kDeadline;
    while (!std::filesystem::exists(settings_.folder + "/ports.json")) {
        pollfd entries[2] = {{process.Number(), POLLIN, 0}, {notifier.Number(), POLLIN, 0}};
        if (::poll(entries, 2, MillisecondsUntil(end)) == 0) {
            throw std::runtime_error("the alias server is not ready in time: " + Log());
        }
        if (entries[0].revents != 0) {
            throw std::runtime_error("the alias server ended with code " + std::to_string(Reap()) + ": " + Log());
        }
        Drain(notifier.Number());
    }
}

std::string AliasServerProcess::Ask(const std::string& method, const std::string& path, const std::string& body) const {
    httplib::Client client(HttpUrl());
    client.set_read_timeout(kDeadline);
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.body = body;
    request.set_header("Content-Type", "application/json");
    const auto answer = client.send(request);
    if (!answer || answer->status != 200) {
        throw std::runtime_error("the alias server refused " + method + " " + path + ": " +
                                 (answer ? answer->body : httplib::to_string(answer.error())));
    }
    return answer->body;
}

}  // namespace ardv::test
