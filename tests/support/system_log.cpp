// SPDX-License-Identifier: Apache-2.0
#include "system_log.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>

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

}  // namespace

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
