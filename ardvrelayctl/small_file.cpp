// SPDX-License-Identifier: Apache-2.0
#include "small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "descriptor.h"

namespace ardv::ctl {

namespace {

constexpr int kOpenFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;  // not to hang on a pipe in the file's place

bool IsInSharedFolder(const std::string& path) {
    struct stat status = {};
    const auto folder = std::filesystem::path(path).parent_path();
    return stat(folder.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

bool IsRegular(int fd, off_t& size) {
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    size = status.st_size;
    return true;
}

std::optional<std::string> ReadUpTo(int fd, std::size_t maxBytes) {
    std::string text(maxBytes, '\0');
    std::size_t length = 0;
    while (length < maxBytes) {
        const ssize_t count = ReadSome(fd, text.data() + length, maxBytes - length);
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    text.resize(length);
    return text;
}

std::string LastLines(const std::string& text, std::size_t maxLines) {
    std::size_t start = text.size();
    for (std::size_t lines = 0; lines < maxLines && start > 0; ++lines) {
        const auto feed = start < 2 ? std::string::npos : text.rfind('\n', start - 2);
        start = feed == std::string::npos ? 0 : feed + 1;
    }
    return text.substr(start);
}

}  // namespace

std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxBytes) {
    const Descriptor file(open(path.c_str(), kOpenFlags));
    off_t size = 0;
    return file.IsOpen() && IsRegular(file.Get(), size) ? ReadUpTo(file.Get(), maxBytes) : std::nullopt;
}

std::optional<std::string> ReadTail(const std::string& path, std::size_t maxLines, std::size_t maxBytes) {
    const Descriptor file(open(path.c_str(), kOpenFlags | (IsInSharedFolder(path) ? O_NOFOLLOW : 0)));
    off_t size = 0;
    if (!file.IsOpen() || !IsRegular(file.Get(), size)) {
        return std::nullopt;
    }
    const off_t start = std::max<off_t>(0, size - static_cast<off_t>(maxBytes));
    if (lseek(file.Get(), start, SEEK_SET) < 0) {
        return std::nullopt;
    }
    auto text = ReadUpTo(file.Get(), maxBytes);
    if (text && start > 0) {
        text->erase(0, std::min(text->find('\n'), text->size() - 1) + 1);
    }
    return text ? std::optional(LastLines(*text, maxLines)) : std::nullopt;
}

}  // namespace ardv::ctl
