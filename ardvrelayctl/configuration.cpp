// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <json/reader.h>

#include "descriptor.h"

namespace ardv::ctl {

using ARDV::Relay::kMaxJsonFileSize;
using ARDV::Relay::RelaydConf;

namespace {

constexpr std::size_t kBlockSize = 4096;

std::runtime_error Unusable(const std::string& path, const std::string& reason) {
    return std::runtime_error("the configuration " + path + " " + reason);
}

std::runtime_error Unreadable(const std::string& path) {
    return std::runtime_error("cannot read the configuration " + path + ": " + std::strerror(errno));
}

bool IsInSharedFolder(const std::string& path) {
    const auto folder = std::filesystem::path(path).parent_path();
    struct stat status = {};
    return stat(folder.empty() ? "." : folder.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

void CheckFile(int fd, const std::string& path, bool isShared) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        throw Unreadable(path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unusable(path, "is not a regular file");
    }
    const bool isOwn = (status.st_uid == geteuid() || status.st_uid == 0) && status.st_nlink == 1;
    if (isShared && !isOwn) {
        throw Unusable(path, "is not trusted: somebody else may have put it into a folder that everybody may write to");
    }
}

std::string ReadText(const std::string& path) {
    const bool isShared = IsInSharedFolder(path);
    // Not to block: a pipe in the place of the file must not hang its reader.
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (isShared ? O_NOFOLLOW : 0);
    const Descriptor file(open(path.c_str(), flags));
    if (!file.IsOpen()) {
        throw Unreadable(path);
    }
    CheckFile(file.Get(), path, isShared);
    std::string text;
    std::array<char, kBlockSize> block = {};
    ssize_t count = 0;
    while ((count = ReadSome(file.Get(), block.data(), block.size())) > 0) {
        text.append(block.data(), static_cast<std::size_t>(count));
        if (text.size() > kMaxJsonFileSize) {
            throw Unusable(path, "is too large: more than " + std::to_string(kMaxJsonFileSize) + " bytes");
        }
    }
    if (count < 0) {
        throw Unreadable(path);
    }
    return text;
}

// The parser throws on deep nesting, and its own messages quote the text.
bool ParseObject(const std::string& text, Json::Value& value) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, nullptr) && value.isObject();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

RelaydConf LoadConfiguration(const std::string& path) {
    Json::Value value;
    if (!ParseObject(ReadText(path), value)) {
        throw Unusable(path, "is damaged or not valid: it is not a JSON object");
    }
    RelaydConf conf(nullptr);
    if (!conf.Overwrite(value) || !conf.IsValid()) {
        throw Unusable(path, "is damaged or not valid (--verbose tells more)");
    }
    return conf;
}

}  // namespace ardv::ctl
