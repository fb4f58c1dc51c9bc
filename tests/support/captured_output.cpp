// SPDX-License-Identifier: Apache-2.0
#include "captured_output.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace ardv::test {

CapturedOutput::CapturedOutput() {
    std::fflush(stdout);
    file_ = memfd_create("output", MFD_CLOEXEC);
    original_ = dup(STDOUT_FILENO);
    dup2(file_, STDOUT_FILENO);
}

CapturedOutput::~CapturedOutput() {
    std::fflush(stdout);
    dup2(original_, STDOUT_FILENO);
    close(original_);
    close(file_);
}

std::string CapturedOutput::Text() const {
    std::string text;
    std::array<char, 4096> block = {};
    ssize_t count = 0;
    while ((count = pread(file_, block.data(), block.size(), static_cast<off_t>(text.size()))) > 0) {
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return text;
}

}  // namespace ardv::test
