// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/key_value_cache.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <ardv/key_value_file.h>

#include "platform/linux/file.h"
#include "platform/linux/file_identity.h"
#include "platform/linux/key_value_text.h"

namespace ARDV::Platform {

namespace {

/// A device has half a dozen such files of a few KiB each; what is kept stays small whatever is read.
constexpr std::size_t kMaxKeptFiles = 16;
constexpr std::size_t kMaxKeptBytes = 65536;

struct ParsedFile {
    ParsedFile(std::string itsPath, const FileIdentity& itsIdentity, std::string text)
        : path(std::move(itsPath)), identity(itsIdentity), index(std::move(text)) {}

    std::string path;
    FileIdentity identity;
    KeyValueIndex index;
};

/// The files that were read last.
class ParsedFiles {
public:
    std::shared_ptr<const ParsedFile> Find(std::string_view path) {
        const std::lock_guard lock(mutex_);
        const auto found = Position(path);
        return found == files_.end() ? nullptr : *found;
    }

    void Keep(std::shared_ptr<const ParsedFile> file) {
        const std::lock_guard lock(mutex_);
        const auto old = Position(file->path);
        if (old != files_.end()) {
            files_.erase(old);
        } else if (files_.size() == kMaxKeptFiles) {
            files_.erase(files_.begin());
        }
        files_.push_back(std::move(file));
    }

    void Drop(std::string_view path) {
        const std::lock_guard lock(mutex_);
        const auto old = Position(path);
        if (old != files_.end()) {
            files_.erase(old);
        }
    }

private:
    using Files = std::vector<std::shared_ptr<const ParsedFile>>;

    Files::iterator Position(std::string_view path) {
        return std::find_if(files_.begin(), files_.end(), [path](const auto& file) { return file->path == path; });
    }

    std::mutex mutex_;
    Files files_;  ///< the one that was read longest ago first
};

/// Never destroyed: another library may still ask while the process ends.
ParsedFiles& Kept() {
    static auto* const files = new ParsedFiles;
    return *files;
}

/// The size of what the kernel makes up on reading, as in /proc, isn't that of the text, and its times prove nothing.
bool IsWorthKeeping(const FileContents& contents, const ReadMoment& moment) {
    const auto size = static_cast<std::size_t>(contents.status.st_size);
    return size <= kMaxKeptBytes && contents.text.size() == size && moment.Proves(IdentityOf(contents.status));
}

}  // namespace

Result<MaybeText> ReadKeyValue(const std::string& path, std::string_view key) {
    const std::shared_ptr<const ParsedFile> kept = Kept().Find(path);
    if (kept && kept->identity == IdentityAt(path)) {
        return kept->index.Get(key);
    }
    const ReadMoment moment;
    Result<FileContents> contents = ReadFile(path, ARDV_KEY_VALUE_FILE_MAX);
    if (contents && IsWorthKeeping(*contents, moment)) {
        const FileIdentity identity = IdentityOf(contents->status);
        const auto parsed = std::make_shared<const ParsedFile>(path, identity, std::move(contents->text));
        Kept().Keep(parsed);
        return parsed->index.Get(key);
    }
    if (kept) {
        Kept().Drop(path);
    }
    return contents ? Result<MaybeText>(GetKeyValue(contents->text, key)) : contents.Reason();
}

}  // namespace ARDV::Platform
