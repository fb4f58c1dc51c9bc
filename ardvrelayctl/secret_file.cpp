// SPDX-License-Identifier: Apache-2.0
#include "secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "descriptor.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kMaxSecret = 4096;
constexpr mode_t kOpenToOthers = S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

std::runtime_error Unreadable(const std::string& path) {
    return std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
}

void CheckKeptSecret(int fd, const std::string& path) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        throw Unreadable(path);
    }
    if (!S_ISREG(status.st_mode)) {
        return;
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
        throw std::runtime_error(path + " belongs to another user: a secret's file must be yours or root's");
    }
    if ((status.st_mode & kOpenToOthers) != 0) {
        throw std::runtime_error(path + " is open to other users: take their access away (chmod 600) and try again");
    }
}

// Byte by byte, so that nothing behind the line is taken and no buffer elsewhere holds the secret.
void ReadLine(int fd, const std::string& path, std::string& line) {
    char byte = 0;
    ssize_t count = 0;
    while ((count = ReadSome(fd, &byte, 1)) > 0 && byte != '\n') {
        if (line.size() == kMaxSecret) {
            throw std::runtime_error("the first line of " + path + " is too long");
        }
        line += byte;
    }
    if (count < 0) {
        throw Unreadable(path);
    }
}

// Nothing but a line end is taken off: the rest of a secret is another secret.
void TakeOffLineEnd(const std::string& path, std::string& line) {
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    if (line.empty()) {
        throw std::runtime_error("the first line of " + path + " is empty");
    }
    if (line.find_first_of(std::string_view("\r\0", 2)) != std::string::npos) {
        throw std::runtime_error("the first line of " + path + " has a carriage return or a NUL byte in it");
    }
}

std::string ReadFirstLine(int fd, const std::string& path) {
    std::string line;
    line.reserve(kMaxSecret + 1);  // growing would leave copies behind
    try {
        ReadLine(fd, path, line);
        TakeOffLineEnd(path, line);
    } catch (...) {
        Wipe(line);
        throw;
    }
    return line;
}

}  // namespace

std::string ReadSecret(const std::string& path) {
    if (path == "-") {
        return ReadFirstLine(STDIN_FILENO, "standard input");
    }
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file.IsOpen()) {
        throw Unreadable(path);
    }
    CheckKeptSecret(file.Get(), path);
    return ReadFirstLine(file.Get(), path);
}

void Wipe(std::string& secret) {
    secret.resize(secret.capacity());
    explicit_bzero(secret.data(), secret.size());
    secret.clear();
}

}  // namespace ardv::ctl
