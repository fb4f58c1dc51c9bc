// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

#include <json/writer.h>

#include "text.h"

namespace ardv::ctl {

namespace {

constexpr unsigned kMaxMembers = 100;

// The bytes as they are: the JSON library's own escapes mistake malformed ones for their neighbours.
std::string Written(const Json::Value& value, const char* indentation) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

void PrintLeaves(const std::string& key, const Json::Value& value) {
    if (value.empty() || !(value.isObject() || value.isArray())) {
        std::cout << Excerpt(key) << ": " << Printable(PlainText(value)) << '\n';
        return;
    }
    for (auto member = value.begin(); member != value.end(); ++member) {
        const std::string name =
            value.isArray() ? "[" + std::to_string(member.index()) + "]" : (key.empty() ? "" : ".") + member.name();
        PrintLeaves(key + name, *member);
    }
}

// In characters. What takes more than one column, or none, is rare in names of services.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

}  // namespace

void PrepareOutput() {
    std::signal(SIGPIPE, SIG_IGN);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            // The wrong way round, so that using what the caller closed still fails. The lowest free number is `fd`.
            [[maybe_unused]] const int reserved =
                open("/dev/null", (fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        }
    }
}

ExitCode FinishOutput(ExitCode exitCode) {
    errno = 0;
    if (std::cout.flush()) {
        return exitCode;
    }
    Complain(std::string("cannot write to standard output") +
             (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
    return kExitIo;
}

void PrintJson(const Json::Value& value) {
    std::cout << AsciiJson(Written(value, "  ")) << '\n';
}

bool PrintJsonLine(const Json::Value& value) {
    std::cout << AsciiJson(Written(value, "")) << '\n' << std::flush;
    return std::cout.good();
}

void PrintMembers(const Json::Value& object) {
    unsigned left = kMaxMembers;
    for (auto member = object.begin(); member != object.end(); ++member) {
        if (left-- == 0) {
            std::cout << "  ... (--json shows all)\n";
            return;
        }
        std::cout << "  " << Excerpt(member.name()) << ": " << Excerpt(PlainText(*member)) << '\n';
    }
}

void PrintDotted(const Json::Value& object) {
    if (!object.empty()) {
        PrintLeaves("", object);
    }
}

void PrintTable(const std::vector<std::vector<std::string>>& rows) {
    constexpr std::size_t kGap = 2;
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(Excerpt(row[i])));
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string cell = Excerpt(row[i]);
            line += cell + std::string(widths[i] + kGap - WidthOf(cell), ' ');
        }
        std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
}

std::string PlainText(const Json::Value& value) {
    return value.isString() ? value.asString() : Written(value, "");
}

void Complain(std::string_view text) {
    std::cerr << "ardvrelayctl: " << Printable(text) << '\n';
}

void AddFailure(Json::Value& report, std::string_view text, ExitCode exitCode) {
    report["error"] = std::string(text);
    report["exit_code"] = exitCode;
}

ExitCode Fail(std::string_view text, ExitCode exitCode, bool asJson) {
    Complain(text);
    if (asJson) {
        Json::Value report(Json::objectValue);
        AddFailure(report, text, exitCode);
        PrintJson(report);
    }
    return exitCode;
}

}  // namespace ardv::ctl
