// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace ardv::test {

namespace {

/** An anonymous file. */
class Memory {
public:
    Memory() : fd_(memfd_create("program", MFD_CLOEXEC)) {}
    ~Memory() { close(fd_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    int Get() const { return fd_; }

    void Fill(const std::string& text) const {
        if (pwrite(fd_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("cannot fill the program's input");
        }
    }

    std::string Text() const {
        std::string text;
        std::array<char, 4096> block = {};
        ssize_t count = 0;
        while ((count = pread(fd_, block.data(), block.size(), static_cast<off_t>(text.size()))) > 0) {
            text.append(block.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    int fd_;
};

int ExitCodeOf(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    constexpr int kSignalled = 128;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input) {
    const Memory in;
    const Memory out;
    const Memory err;
    in.Fill(input);
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    for (auto& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.Get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.Get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.Get(), STDERR_FILENO);
    pid_t pid = -1;
    const int failed = posix_spawnp(&pid, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        throw std::runtime_error("cannot run " + command.front());
    }
    const int exitCode = ExitCodeOf(pid);
    return {exitCode, out.Text(), err.Text()};
}

}  // namespace ardv::test
