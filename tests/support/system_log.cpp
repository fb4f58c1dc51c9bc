// SPDX-License-Identifier: Apache-2.0
#include "system_log.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <regex>
#include <system_error>

#include <gtest/gtest.h>

namespace ardv::test {

namespace {

std::string ReadAll(int fd) {
    std::string text;
    std::array<char, 4096> block = {};
    for (ssize_t count = 0; (count = read(fd, block.data(), block.size())) > 0;) {
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return text;
}

int ListenAsSystemLog() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

void Must(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void KeepNullDevice(int null) {
    const int place = open("/dev/null", O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    const auto real = "/proc/self/fd/" + std::to_string(null);
    Must(mount(real.c_str(), "/dev/null", nullptr, MS_BIND, nullptr) == 0, "bind /dev/null");
    close(place);
}

// "<11>Nov 20 17:15:00 program[1]: config.cpp:12 text" is "3 config.cpp text".
std::string Readable(const std::string& datagram) {
    static const std::regex form("^<(\\d+)>.{15} [^:]+: ([a-z_]+\\.cpp):\\d+ ");
    std::smatch match;
    if (!std::regex_search(datagram, match, form)) {
        return datagram;
    }
    return std::to_string(LOG_PRI(std::stoi(match[1]))) + " " + match.str(2) + " " + match.suffix().str();
}

}  // namespace

CapturedSystemLog::CapturedSystemLog() {
    const int null = open("/dev/null", O_PATH | O_CLOEXEC);
    Must(mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0, "mount /dev");
    KeepNullDevice(null);
    close(null);
    log_ = ListenAsSystemLog();
    Must(log_ >= 0, "/dev/log");
    closelog();  // a connection to another log
}

CapturedSystemLog::~CapturedSystemLog() {
    closelog();
    close(log_);
    umount2("/dev", MNT_DETACH);
}

std::vector<std::string> CapturedSystemLog::Messages() const {
    std::vector<std::string> messages;
    std::array<char, 4096> datagram = {};
    for (ssize_t size = 0; (size = recv(log_, datagram.data(), datagram.size(), MSG_DONTWAIT)) > 0;) {
        messages.push_back(Readable({datagram.data(), static_cast<std::size_t>(size)}));
    }
    return messages;
}

std::string SystemLogOf(const std::function<void()>& action) {
    std::array<int, 2> ends = {};
    EXPECT_EQ(pipe(ends.data()), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const bool isApart = unshare(CLONE_NEWNS) == 0 && mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0;
        const int log = isApart ? ListenAsSystemLog() : -1;
        if (log >= 0) {
            action();
        }
        const auto text = log >= 0 ? ReadAll(log) : "no system log";
        _exit(write(ends[1], text.data(), text.size()) < 0 ? 1 : 0);
    }
    close(ends[1]);
    const auto text = ReadAll(ends[0]);
    close(ends[0]);
    EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
    return text;
}

}  // namespace ardv::test
