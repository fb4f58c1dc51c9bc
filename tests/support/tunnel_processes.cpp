// SPDX-License-Identifier: Apache-2.0
#include "support/tunnel_processes.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <ios>
#include <stdexcept>
#include <string_view>

#include "support/file_text.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char kProgram[] = "/usr/sbin/openvpn";

/** The number of a namespace file; 0 where there is none. */
ino_t NamespaceAt(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string FolderOf(pid_t process) {
    return "/proc/" + std::to_string(process);
}

/** The text of a process's file; empty when the process has gone, be it while the file is read. */
std::string TextOf(pid_t process, const std::string& file) {
    try {
        return ReadText(FolderOf(process) + "/" + file);
    } catch (const std::ios_base::failure&) {
        return "";
    }
}

bool IsZombie(pid_t process) {
    const std::string status = TextOf(process, "stat");
    const auto name = status.rfind(')');
    return name == std::string::npos || status.compare(name, 3, ") Z") == 0;
}

std::vector<pid_t> EveryOther() {
    std::vector<pid_t> processes;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        pid_t number = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
        if (error == std::errc() && end == name.data() + name.size() && number != ::getpid()) {
            processes.push_back(number);
        }
    }
    return processes;
}

/** Whether this process's mount namespace is its own: neither that of the machine nor that of whoever started it. */
bool IsInPrivateRoot() {
    const ino_t root = NamespaceAt("/proc/self/ns/mnt");
    return root != 0 && root != NamespaceAt("/proc/1/ns/mnt") && root != NamespaceAt(FolderOf(::getppid()) + "/ns/mnt");
}

/** Kills all others of the private root but one, again and again until none is left: meanwhile some may have forked. */
void KillAllBut(pid_t spared) {
    for (bool isClean = false; !isClean;) {
        isClean = true;
        for (const pid_t process : ProcessesIn("")) {
            isClean = isClean && process == spared;
            if (process != spared) {
                ::kill(process, SIGKILL);
            }
        }
        while (::waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }
}

}  // namespace

std::vector<pid_t> ProcessesIn(const std::string& network) {
    const ino_t root = NamespaceAt("/proc/self/ns/mnt");
    const ino_t wanted = network.empty() ? 0 : NamespaceAt("/run/netns/" + network);
    std::vector<pid_t> processes;
    for (const pid_t process : EveryOther()) {
        const bool isHere = NamespaceAt(FolderOf(process) + "/ns/mnt") == root;
        if (isHere && (network.empty() || NamespaceAt(FolderOf(process) + "/ns/net") == wanted) && !IsZombie(process)) {
            processes.push_back(process);
        }
    }
    return processes;
}

std::vector<pid_t> OpenVpnClients() {
    std::vector<pid_t> clients;
    for (const pid_t process : ProcessesIn("device")) {
        std::error_code gone;
        if (fs::read_symlink(FolderOf(process) + "/exe", gone) == kProgram) {
            clients.push_back(process);
        }
    }
    return clients;
}

std::vector<std::string> ArgumentsOf(pid_t process) {
    const std::string text = TextOf(process, "cmdline");
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < text.size(); at += arguments.back().size() + 1) {
        arguments.emplace_back(text.c_str() + at);
    }
    return arguments;
}

pid_t ParentOf(pid_t process) {
    constexpr std::string_view kField = "\nPPid:\t";
    const std::string status = TextOf(process, "status");
    const auto place = status.find(kField);
    return place == std::string::npos ? -1 : std::stoi(status.substr(place + kField.size()));
}

Undertaker::Undertaker() {
    if (!IsInPrivateRoot()) {
        throw std::runtime_error("not in a private root: the processes here are others'");
    }
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0 || (pid_ = ::fork()) < 0) {
        throw std::runtime_error("no process to clean up after this one");
    }
    if (pid_ == 0) {
        char nothing = 0;
        ::setpgid(0, 0);  // what ends a test's process group must leave it its work
        ::close(ends[1]);
        while (::read(ends[0], &nothing, 1) > 0) {
        }
        KillAllBut(::getppid());
        ::_exit(0);
    }
    ::close(ends[0]);
    held_ = ends[1];
}

Undertaker::~Undertaker() {
    ::close(held_);
    ::waitpid(pid_, nullptr, 0);
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

}  // namespace ardv::test
