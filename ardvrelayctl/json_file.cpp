// SPDX-License-Identifier: Apache-2.0
#include "json_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>

#include <json/reader.h>
#include <json/writer.h>

#include <relay/config/config.h>

#include "command_error.h"
#include "descriptor.h"

namespace ardv::ctl {

using ARDV::Relay::kMaxJsonFileSize;
using ARDV::Relay::RelaydConf;

namespace {

constexpr std::size_t kBlockSize = 4096;

CommandError Unusable(const JsonFile& file, const std::string& reason) {
    return {kExitConfig, file.Name() + " " + reason};
}

CommandError Unreadable(const JsonFile& file) {
    const bool isForbidden = errno == EACCES || errno == EPERM;
    return {isForbidden ? kExitNoPermission : kExitConfig, "cannot read " + file.Name() + ": " + std::strerror(errno)};
}

std::string FolderOf(const std::string& path) {
    const auto folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

bool IsInSharedFolder(const std::string& path) {
    struct stat status = {};
    return stat(FolderOf(path).c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

void CheckFile(int fd, const JsonFile& file, bool isShared) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        throw Unreadable(file);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Unusable(file, "is not a regular file");
    }
    const bool isOwn = (status.st_uid == geteuid() || status.st_uid == 0) && status.st_nlink == 1;
    if (isShared && !isOwn) {
        throw Unusable(file, "is not trusted: somebody else may have put it into a folder that everybody may write to");
    }
}

// The parser's own words, but for those that begin with a quotation of the text.
std::string ReasonOf(const std::string& message) {
    return message.empty() || message.front() == '\'' ? "this is not a number" : message;
}

JsonFault FaultAt(const std::string& text, std::ptrdiff_t offset, const std::string& message) {
    const auto at = std::min(static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0)), text.size());
    const auto before = std::string_view(text).substr(0, at);
    JsonFault fault;
    fault.line = 1U + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    fault.column = at - (before.rfind('\n') + 1) + 1;  // rfind: npos + 1 is 0
    fault.reason = ReasonOf(message);
    return fault;
}

/** Where a comment ends that begins at `at`; `at` itself if none does. */
std::size_t EndOfComment(std::string_view text, std::size_t at) {
    const auto begin = text.substr(at, 2);
    if (begin == "//") {
        return std::min(text.find_first_of("\r\n", at), text.size());
    }
    const auto end = begin == "/*" ? text.find("*/", at + 2) : std::string_view::npos;
    return end == std::string_view::npos ? at : end + 2;
}

/** The first place from `at` on that is neither blank nor comment; the text's size if there is none. */
std::size_t SkipBlanksAndComments(std::string_view text, std::size_t at) {
    while (at < text.size()) {
        const auto word = std::min(text.find_first_not_of(" \t\r\n", at), text.size());
        at = EndOfComment(text, word);
        if (at == word) {
            break;
        }
    }
    return at;
}

bool ReadsBack(const Json::Value& value) {
    Json::Value back;
    return !Parse(Json::StyledWriter().write(value), back) && back == value;
}

Json::Value WithoutComments(const Json::Value& value) {
    Json::Value bare;
    Parse(Json::FastWriter().write(value), bare);
    return bare;
}

}  // namespace

std::optional<std::string> ReadText(const JsonFile& file) {
    const bool isShared = IsInSharedFolder(file.path);
    // Not to block: a pipe in the place of the file must not hang its reader.
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (isShared ? O_NOFOLLOW : 0);
    const Descriptor source(open(file.path.c_str(), flags));
    if (!source.IsOpen()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throw Unreadable(file);
    }
    CheckFile(source.Get(), file, isShared);
    std::string text;
    std::array<char, kBlockSize> block = {};
    ssize_t count = 0;
    while ((count = ReadSome(source.Get(), block.data(), block.size())) > 0) {
        text.append(block.data(), static_cast<std::size_t>(count));
        if (text.size() > kMaxJsonFileSize) {
            throw Unusable(file, "is too large: more than " + std::to_string(kMaxJsonFileSize) + " bytes");
        }
    }
    if (count < 0) {
        throw Unreadable(file);
    }
    return text;
}

std::optional<JsonFault> Parse(const std::string& text, Json::Value& value, Comments comments) {
    value = Json::Value();
    Json::Reader reader;
    Json::Value scratch;
    try {
        if (reader.parse(text, scratch, comments == Comments::kKeep)) {
            value = std::move(scratch);
            return std::nullopt;
        }
    } catch (const Json::Exception&) {
        return JsonFault{0, 0, "too many values within each other"};
    }
    const auto errors = reader.getStructuredErrors();
    return errors.empty() ? FaultAt(text, 0, "no JSON value")
                          : FaultAt(text, errors.front().offset_start, errors.front().message);
}

std::optional<JsonFault> TextBehind(const std::string& text, const Json::Value& value) {
    const auto end = static_cast<std::size_t>(std::max<std::ptrdiff_t>(value.getOffsetLimit(), 0));
    const auto at = SkipBlanksAndComments(text, std::min(end, text.size()));
    return at == text.size()
               ? std::nullopt
               : std::optional(FaultAt(text, static_cast<std::ptrdiff_t>(at), "there is more text behind the value"));
}

// The parser that the library uses doesn't tell; this one does, and takes whatever that one takes.
bool HasKeyTwice(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value ignored;
    try {
        return !reader->parse(text.data(), text.data() + text.size(), &ignored, nullptr);
    } catch (const Json::Exception&) {
        return false;
    }
}

void CheckFolder(const JsonFile& file) {
    if (access(FolderOf(file.path).c_str(), W_OK | X_OK) == 0) {
        return;
    }
    const std::string text = "cannot write " + file.Name();
    if (errno == EACCES || errno == EPERM) {
        throw CommandError(kExitNoPermission, text + ": you may not write to its folder; run this as root");
    }
    throw CommandError(kExitCantCreate, text + ": its folder: " + std::strerror(errno));
}

void Write(const JsonFile& file, const Json::Value& value) {
    const Json::Value sound = ReadsBack(value) ? value : WithoutComments(value);
    Json::Value written;
    if (!RelaydConf::WriteJsonFile(file.path, sound)) {
        CheckFolder(file);
        throw CommandError(kExitCantCreate, "cannot write " + file.Name() + " (--verbose tells more)");
    }
    const auto text = ReadText(file);
    if (!text || Parse(*text, written) || written != sound) {
        throw CommandError(kExitCantCreate, "the new content of " + file.Name() + " did not get into its place");
    }
}

}  // namespace ardv::ctl
