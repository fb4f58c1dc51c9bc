// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/nginx_server.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <vector>

#include "platform/linux/process.h"
#include "platform/linux/web_settings.h"

namespace ARDV::Platform {

namespace {

using ardvw3::W3Code;
using Clock = std::chrono::steady_clock;

constexpr const char* kProgram = "/usr/sbin/nginx";
constexpr std::size_t kMaxMessageBytes = 4096;
constexpr std::size_t kMaxConfigurationBytes = 16UL * 1024 * 1024;
constexpr ProgramLimits kTestLimits = {std::chrono::seconds(30), kMaxConfigurationBytes, kMaxMessageBytes};
constexpr std::chrono::seconds kReloadTime{10};
constexpr int kLookAgainMs = 10;

constexpr std::string_view kMasterTitle = "nginx: master process";
constexpr std::string_view kWorkerTitle = "nginx: worker process";
constexpr std::string_view kRetiredWorkerTitle = "nginx: worker process is shutting down";

// What nginx is built with where its options don't say otherwise.
constexpr std::string_view kDefaultPrefix = "/usr/local/nginx";
constexpr std::string_view kDefaultPidFile = "logs/nginx.pid";

constexpr std::size_t kMaxProcFileBytes = 65536;
constexpr std::size_t kMaxPidFileBytes = 64;

std::vector<std::string> TestCommand() {
    std::vector<std::string> command = {kProgram, "-q", "-T"};
    if (std::string file = WebSetting("nginx_conf"); !file.empty()) {
        command.insert(command.end(), {"-c", std::move(file)});
    }
    return command;
}

Outcome VerdictOf(const Result<ProgramOutcome>& run) {
    if (!run) {
        return {W3Code::kServerMissing, std::string(kProgram) + " can't be run"};
    }
    if (!run->isInTime) {
        return {W3Code::kRefused, "nginx took too long to test its configuration"};
    }
    return run->exitCode == 0 ? Outcome{} : Outcome{W3Code::kRefused, run->errors};
}

/// Splits a configuration into its words and the marks ; { } between them.
class Lexer {
public:
    explicit Lexer(std::string_view text) : rest_(text) {}

    struct Token {
        std::string_view text;
        bool isMark;
    };

    std::optional<Token> Next() {
        SkipBlanksAndComments();
        if (rest_.empty()) {
            return {};
        }
        const char first = rest_.front();
        if (kMarks.find(first) != std::string_view::npos) {
            return Token{Take(1), true};
        }
        return Token{first == '"' || first == '\'' ? TakeQuoted(first) : TakeBare(), false};
    }

private:
    static constexpr std::string_view kBlanks = " \t\r\n";
    static constexpr std::string_view kMarks = ";{}";

    std::string_view Take(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    void SkipBlanksAndComments() {
        while (!rest_.empty()) {
            if (rest_.front() == '#') {
                Take(rest_.find('\n'));
            } else if (kBlanks.find(rest_.front()) != std::string_view::npos) {
                Take(1);
            } else {
                return;
            }
        }
    }

    std::string_view TakeQuoted(char quote) {
        std::size_t end = 1;
        while (end < rest_.size() && rest_[end] != quote) {
            end += rest_[end] == '\\' ? 2U : 1U;
        }
        std::string_view taken = Take(std::min(end, rest_.size()));
        Take(1);
        taken.remove_prefix(1);
        return taken;
    }

    std::string_view TakeBare() {
        std::size_t end = 0;
        while (end < rest_.size() && std::string_view(" \t\r\n;{").find(rest_[end]) == std::string_view::npos) {
            const bool isVariable = rest_.substr(end, 2) == "${";
            end += rest_[end] == '\\' || isVariable ? 2U : 1U;
        }
        return Take(std::min(end, rest_.size()));
    }

    std::string_view rest_;
};

/// The value of a configure option in what nginx says of its build.
std::string BuildOption(std::string_view build, std::string_view option, std::string_view otherwise) {
    const std::size_t found = build.find(option);
    if (found == std::string_view::npos) {
        return std::string(otherwise);
    }
    const std::string_view value = build.substr(found + option.size());
    return std::string(value.substr(0, value.find_first_of(" \n")));
}

Result<std::string> PidFileOf(const NginxConfiguration& configuration) {
    std::string file = FindMainDirective(configuration.text, "pid").value_or("");
    if (file.starts_with('/')) {
        return file;
    }
    if (file.empty() && !configuration.isWhole) {
        return MakeError(ARDV_ERR_TOO_LARGE);
    }
    const Result<ProgramOutcome> build = RunProgram({kProgram, "-V"}, kTestLimits);
    if (!build) {
        return build.Reason();
    }
    const std::string options = " " + build->errors;
    if (file.empty()) {
        file = BuildOption(options, " --pid-path=", kDefaultPidFile);
    }
    const std::string prefix = BuildOption(options, " --prefix=", kDefaultPrefix);
    return (std::filesystem::path(prefix) / file).string();
}

/// What is in a pid file; empty without one, just as nginx leaves it when it tests its configuration while none runs.
Result<std::string> PidText(const std::string& file) {
    Result<FileContents> contents = ReadFile(file, kMaxPidFileBytes);
    if (!contents) {
        return contents.Reason().code == ARDV_ERR_NOT_FOUND ? Result(std::string()) : contents.Reason();
    }
    return std::move(contents->text);
}

std::string ProcFile(pid_t process, const char* file) {
    return "/proc/" + std::to_string(process) + "/" + file;
}

std::string ProcText(pid_t process, const char* file) {
    Result<FileContents> contents = ReadFile(ProcFile(process, file), kMaxProcFileBytes);
    return contents ? std::move(contents->text) : std::string();
}

std::optional<pid_t> Number(std::string_view text) {
    pid_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data() && number > 0 ? std::optional(number) : std::nullopt;
}

std::optional<pid_t> ParentOf(pid_t process) {
    const std::string text = ProcText(process, "stat");
    const std::size_t afterName = text.rfind(") ");
    constexpr std::size_t kToParent = 4;  // ") S PARENT ..."
    if (afterName == std::string::npos || text.size() < afterName + kToParent) {
        return {};
    }
    return Number(std::string_view(text).substr(afterName + kToParent));
}

/// The workers of a master that accept connections. The kernel's own list of children is no substitute for looking at
/// every process: it may leave some out while others end.
std::set<pid_t> ServingWorkers(pid_t master) {
    std::set<pid_t> workers;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry("/proc", failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const std::optional<pid_t> process = Number(entry->path().filename().native());
        if (!process || ParentOf(*process) != master) {
            continue;
        }
        const std::string title = ProcText(*process, "cmdline");
        if (title.starts_with(kWorkerTitle) && !title.starts_with(kRetiredWorkerTitle)) {
            workers.insert(*process);
        }
    }
    return workers;
}

/// For a while the master keeps both: the new workers, and the old ones that it hasn't told to stop.
bool IsTakenOver(const std::set<pid_t>& before, const std::set<pid_t>& now) {
    const bool hasOld =
        std::any_of(now.begin(), now.end(), [&before](pid_t worker) { return before.contains(worker); });
    return !hasOld && !now.empty();
}

bool EndsWithin(const FileDescriptor& process, int milliseconds) {
    pollfd entry = {process.Get(), POLLIN, 0};
    return poll(&entry, 1, milliseconds) > 0;
}

/// Whether a process is nginx's master; not where it has ended.
Result<bool> IsMaster(pid_t process, const FileDescriptor& handle) {
    const Result<FileContents> title = ReadFile(ProcFile(process, "cmdline"), kMaxProcFileBytes);
    if (!title) {
        return EndsWithin(handle, 0) ? Result(false) : title.Reason();
    }
    return title->text.starts_with(kMasterTitle);
}

}  // namespace

bool NginxConfiguration::Includes(std::string_view file) const {
    return !isWhole || text.find("# configuration file " + std::string(file) + ":\n") != std::string::npos;
}

NginxConfiguration TestNginx() {
    Result<ProgramOutcome> run = RunProgram(TestCommand(), kTestLimits);
    NginxConfiguration configuration;
    configuration.verdict = VerdictOf(run);
    if (configuration.verdict.IsSuccess()) {
        configuration.text = std::move(run->output);
        configuration.isWhole = !run->isOutputCut;
    }
    return configuration;
}

std::optional<std::string> FindMainDirective(std::string_view configuration, std::string_view directive) {
    Lexer lexer(configuration);
    int depth = 0;
    bool isFirst = true;
    bool isFound = false;
    while (const std::optional<Lexer::Token> token = lexer.Next()) {
        if (token->isMark) {
            depth += token->text == "{" ? 1 : token->text == "}" ? -1 : 0;
            isFirst = true;
            isFound = false;
        } else if (isFound) {
            return std::string(token->text);
        } else {
            isFound = isFirst && depth == 0 && token->text == directive;
            isFirst = false;
        }
    }
    return {};
}

Result<std::optional<NginxMaster>> NginxMaster::Find(const NginxConfiguration& configuration) {
    const Result<std::string> pidFile = PidFileOf(configuration);
    if (!pidFile) {
        return pidFile.Reason();
    }
    const Result<std::string> text = PidText(*pidFile);
    if (!text) {
        return text.Reason();
    }
    if (text->empty()) {
        return std::optional<NginxMaster>();
    }
    const std::optional<pid_t> process = Number(*text);
    if (!process) {
        return MakeError(ARDV_ERR_BAD_VALUE);
    }
    FileDescriptor handle = OpenProcess(*process);  // held before the look, so that the number can't change hands after
    if (!handle) {
        return errno == ESRCH ? Result(std::optional<NginxMaster>()) : ErrnoError();
    }
    const Result<bool> isMaster = IsMaster(*process, handle);
    if (!isMaster) {
        return isMaster.Reason();
    }
    return *isMaster ? std::optional(NginxMaster(*process, std::move(handle))) : std::nullopt;
}

Outcome NginxMaster::Reload() const {
    const std::set<pid_t> before = ServingWorkers(process_);
    if (syscall(SYS_pidfd_send_signal, handle_.Get(), SIGHUP, nullptr, 0) != 0) {
        return {W3Code::kReloadFailed, "nginx can't be told to reload"};
    }
    const Clock::time_point end = Clock::now() + kReloadTime;
    while (!IsTakenOver(before, ServingWorkers(process_))) {
        if (EndsWithin(handle_, kLookAgainMs)) {
            return {W3Code::kReloadFailed, "nginx ended while it was to reload"};
        }
        if (Clock::now() > end) {
            return {W3Code::kTimeout, "nginx hasn't taken over the new configuration in time"};
        }
    }
    return {};
}

}  // namespace ARDV::Platform
