// SPDX-License-Identifier: Apache-2.0
#include "readable_log.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kBlockSize = 4096;
constexpr std::size_t kMaxLine = 1U << 16U;  // a longer one is shown in pieces
constexpr int kFirstFree = STDERR_FILENO + 1;

[[noreturn]] void ThrowErrno() {
    throw std::system_error(errno, std::generic_category(), "cannot show the log");
}

void WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = WriteSome(fd, text.data(), text.size());
        if (count <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void ShowLines(std::string& pending, int terminal) {
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
        WriteAll(terminal, Printable(std::string_view(pending).substr(begin, end - begin)) + '\n');
    }
    pending.erase(0, begin);
    if (pending.size() > kMaxLine) {
        WriteAll(terminal, Printable(pending));
        pending.clear();
    }
}

void Show(int source, int terminal) {
    std::array<char, kBlockSize> block = {};
    std::string pending;
    ssize_t count = 0;
    while ((count = ReadSome(source, block.data(), block.size())) > 0) {
        pending.append(block.data(), static_cast<std::size_t>(count));
        ShowLines(pending, terminal);
    }
    WriteAll(terminal, Printable(pending));
}

}  // namespace

ReadableLog::ReadableLog() : terminal_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kFirstFree)) {
    int ends[2] = {-1, -1};
    if (!terminal_.IsOpen() || pipe2(ends, O_CLOEXEC) != 0) {
        ThrowErrno();
    }
    Descriptor source(ends[0]);
    const Descriptor sink(ends[1]);
    // A reader that fails takes its end of the pipe along, so that writers are refused rather than left waiting.
    reader_ = std::jthread([source = std::move(source), terminal = terminal_.Get()]() noexcept {
        try {
            Show(source.Get(), terminal);
        } catch (const std::exception&) {
            WriteAll(terminal, "ardvrelayctl: the log cannot be shown\n");
        }
    });
    if (dup2(sink.Get(), STDERR_FILENO) < 0) {
        ThrowErrno();
    }
}

// Takes away the pipe's last writer, which ends the reader.
ReadableLog::~ReadableLog() {
    dup2(terminal_.Get(), STDERR_FILENO);
}

}  // namespace ardv::ctl
