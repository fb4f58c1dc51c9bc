// SPDX-License-Identifier: Apache-2.0
#include "secret_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace ardv::ctl {

namespace {

constexpr std::size_t kMaxSecret = 4096;

struct Close {
    void operator()(std::FILE* file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

}  // namespace

std::string ReadSecret(const std::string& path) {
    const std::unique_ptr<std::FILE, Close> file(path == "-" ? stdin : std::fopen(path.c_str(), "re"));
    if (!file) {
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    }
    std::array<char, kMaxSecret + 2> line = {};
    if (!std::fgets(line.data(), static_cast<int>(line.size()), file.get())) {
        throw std::runtime_error("nothing to read in " + path);
    }
    std::string secret(line.data());
    if (secret.size() > kMaxSecret) {
        throw std::runtime_error("the first line of " + path + " is too long");
    }
    secret.erase(std::min(secret.find_first_of("\r\n"), secret.size()));
    if (secret.empty()) {
        throw std::runtime_error("the first line of " + path + " is empty");
    }
    return secret;
}

}  // namespace ardv::ctl
