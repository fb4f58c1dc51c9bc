// SPDX-License-Identifier: Apache-2.0
#include "daemon_findings.h"

#include <sys/stat.h>

#include <sstream>

#include <relay/daemon/daemon.h>

#include "command_error.h"
#include "daemon_process.h"
#include "effective.h"
#include "log_file.h"
#include "small_file.h"
#include "status_report.h"
#include "status_words.h"
#include "text.h"

namespace ardv::ctl {

using ARDV::Relay::Daemon;

namespace {

constexpr std::size_t kLogLines = 10;
constexpr std::size_t kLogBytes = 8192;

std::string ProcessText(pid_t pid) {
    const auto facts = FactsOf(pid);
    if (!facts) {
        return std::to_string(pid) + " does not exist";
    }
    return std::to_string(pid) + " (" + Excerpt(facts->name) + ") is " + StateWords(facts->state) +
           (facts->waits.empty() ? "" : ", in " + Excerpt(facts->waits));
}

std::string ChangeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? path + ", written " + TimeWords(status.st_mtim.tv_sec)
                                            : path + " is not there";
}

}  // namespace

std::vector<DaemonFinding> ExamineDaemon(const Session& session) {
    const auto pid = ReadPidFile();
    std::vector<DaemonFinding> findings;
    findings.push_back({"pid file", std::string(Daemon::GetPidFile()) +
                                        (pid ? " names process " + std::to_string(*pid) : " names no process")});
    if (pid) {
        findings.push_back({"process", ProcessText(*pid)});
    }
    findings.push_back({"status file", ChangeOf(Daemon::kStatusFile)});
    findings.push_back({"status", StatusInShort(ReadSnapshot(session))});
    findings.push_back({"log", ChangeOf(LogFileOf(session))});
    return findings;
}

std::vector<std::string> EndOfLog(const Session& session) {
    std::vector<std::string> lines;
    std::istringstream text(ReadTail(LogFileOf(session), kLogLines, kLogBytes).value_or(""));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(Printable(line));
    }
    return lines;
}

}  // namespace ardv::ctl
