// SPDX-License-Identifier: Apache-2.0
#include "captured_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <regex>
#include <sstream>

#include <relay/daemon/daemon.h>

namespace ardv::test {

using ARDV::Relay::Daemon;

CapturedLog::CapturedLog(int level)
    : file_(memfd_create("log", MFD_CLOEXEC)), original_(dup(STDERR_FILENO)), level_(Daemon::_logLevel) {
    dup2(file_, STDERR_FILENO);
    Daemon::_logLevel = level;
}

CapturedLog::~CapturedLog() {
    Daemon::_logLevel = level_;
    dup2(original_, STDERR_FILENO);
    close(original_);
    close(file_);
}

std::string CapturedLog::Text() const {
    std::string text;
    std::array<char, 4096> block = {};
    ssize_t count = 0;
    while ((count = pread(file_, block.data(), block.size(), static_cast<off_t>(text.size()))) > 0) {
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return text;
}

std::vector<std::string> CapturedLog::Lines() const {
    static const std::regex stamp("^[A-Z][a-z]{2} [ 0-9]\\d \\d\\d:\\d\\d:\\d\\d \\d{4} ");
    std::vector<std::string> lines;
    std::istringstream text(Text());
    for (std::string line; std::getline(text, line);) {
        lines.push_back(std::regex_replace(line, stamp, ""));
    }
    return lines;
}

std::vector<std::string> CapturedLog::Messages() const {
    static const std::regex number("^([a-z_]+\\.cpp):\\d+ ");
    std::vector<std::string> messages;
    for (const auto& line : Lines()) {
        messages.push_back(std::regex_replace(line, number, "$1 "));
    }
    return messages;
}

}  // namespace ardv::test
