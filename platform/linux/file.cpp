// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>

namespace ARDV::Platform {

namespace {

constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr std::size_t kSmallestRead = 4096;
constexpr int kMaxLinks = 40;
constexpr int kMaxTemporaryNames = 100;
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kAllModeBits = 07777;

/// Reads to the end, whatever size the file was said to have: it may grow meanwhile, and /proc says 0.
Result<std::string> ReadToEnd(int fd, std::size_t expected, std::size_t limit) {
    std::string text(std::max(expected + 1, kSmallestRead), '\0');
    std::size_t used = 0;
    while (used <= limit) {
        if (used == text.size()) {
            text.resize(std::min(2 * text.size(), limit + 1));
        }
        const ssize_t count = read(fd, text.data() + used, text.size() - used);
        if (count > 0) {
            used += static_cast<std::size_t>(count);
        } else if (count == 0) {
            text.resize(used);
            return text;
        } else if (errno != EINTR) {
            return ErrnoError();
        }
    }
    return MakeError(ARDV_ERR_TOO_LARGE);
}

Result<FileContents> ReadOpenFile(const FileDescriptor& file, std::size_t limit) {
    FileContents contents;
    if (fstat(file.Get(), &contents.status) != 0) {
        return ErrnoError();
    }
    if (!S_ISREG(contents.status.st_mode)) {
        return MakeError(ARDV_ERR_NOT_REGULAR);
    }
    const auto size = static_cast<std::size_t>(contents.status.st_size);
    if (size > limit) {
        return MakeError(ARDV_ERR_TOO_LARGE);
    }
    Result<std::string> text = ReadToEnd(file.Get(), size, limit);
    if (!text) {
        return text.Reason();
    }
    contents.text = std::move(*text);
    return contents;
}

struct SplitPath {
    std::string folder;
    std::string name;
};

SplitPath Split(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return {".", std::string(path)};
    }
    return {std::string(path.substr(0, slash + 1)), std::string(path.substr(slash + 1))};
}

bool IsOpenToAll(const struct stat& folder) {
    return (folder.st_mode & S_IWOTH) != 0;
}

Failure CheckLinkOwner(const FilePlace& place, const struct stat& link) {
    struct stat folder {};
    if (fstat(place.folder.Get(), &folder) != 0) {
        return ErrnoError();
    }
    const bool trusted = !IsOpenToAll(folder) || link.st_uid == geteuid() || link.st_uid == folder.st_uid;
    return trusted ? Failure{} : MakeError(ARDV_ERR_ACCESS_DENIED);
}

Result<FilePlace> OpenPlace(const SplitPath& path) {
    if (path.name.empty()) {
        return MakeError(ARDV_ERR_INVALID_ARGUMENT);
    }
    FileDescriptor folder(open(path.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return ErrnoError();
    }
    return FilePlace{std::move(folder), path.name};
}

Result<std::string> ReadLink(const FileDescriptor& link) {
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(link.Get(), "", target.data(), target.size());
    if (length < 0) {
        return ErrnoError();
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

/// The text of the link at `place`; empty when a regular file or nothing is there. The link is held meanwhile, so that
/// the one that is read is the one whose owner was looked at.
Result<std::string> TrustedLink(const FilePlace& place) {
    const FileDescriptor entry(openat(place.folder.Get(), place.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!entry) {
        return errno == ENOENT ? Result<std::string>(std::string()) : ErrnoError();
    }
    struct stat status {};
    if (fstat(entry.Get(), &status) != 0) {
        return ErrnoError();
    }
    if (S_ISREG(status.st_mode)) {
        return std::string();
    }
    if (!S_ISLNK(status.st_mode)) {
        return MakeError(ARDV_ERR_NOT_REGULAR);
    }
    const Failure failure = CheckLinkOwner(place, status);
    return failure ? *failure : ReadLink(entry);
}

/// A lock file or a temporary file next to `place`: never through a link, private from its first moment.
FileDescriptor OpenBeside(const FilePlace& place, const std::string& name, int flags) {
    return FileDescriptor(
        openat(place.folder.Get(), name.c_str(), flags | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kPrivateMode));
}

Failure WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return ErrnoError();
        }
    }
    return {};
}

/// The owner goes first, because a change of owner clears mode bits.
Failure SetAttributes(int fd, const FileAttributes& attributes) {
    if (attributes.keepOwner && fchown(fd, attributes.owner, attributes.group) != 0) {
        return ErrnoError();
    }
    return fchmod(fd, attributes.mode & kAllModeBits) != 0 ? ErrnoError() : Failure{};
}

/// File systems without folders to flush say EINVAL.
Failure FlushFolder(int fd) {
    return fsync(fd) != 0 && errno != EINVAL ? ErrnoError() : Failure{};
}

/// A new file under a name of its own, deleted again unless it takes the place of another.
class TemporaryFile {
public:
    explicit TemporaryFile(const FilePlace& place) : place_(place) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (file_) {
            unlinkat(place_.folder.Get(), name_.c_str(), 0);
        }
    }

    Failure Create() {
        for (int attempt = 0; attempt < kMaxTemporaryNames && !file_; ++attempt) {
            name_ = NextName();
            file_ = OpenBeside(place_, name_, O_WRONLY | O_EXCL);
            if (!file_ && errno != EEXIST) {
                return ErrnoError();
            }
        }
        return file_ ? Failure{} : MakeError(ARDV_ERR_IO);
    }

    Failure Fill(std::string_view text, const FileAttributes& attributes) {
        if (const Failure failure = WriteAll(file_.Get(), text)) {
            return failure;
        }
        if (const Failure failure = SetAttributes(file_.Get(), attributes)) {
            return failure;
        }
        return fsync(file_.Get()) != 0 ? ErrnoError() : Failure{};
    }

    Failure TakePlace() {
        const int folder = place_.folder.Get();
        if (renameat(folder, name_.c_str(), folder, place_.name.c_str()) != 0) {
            return ErrnoError();
        }
        file_ = FileDescriptor();
        return {};
    }

private:
    std::string NextName() {
        static std::atomic<unsigned> counter{0};
        return "." + place_.name + ".tmp." + std::to_string(getpid()) + "." + std::to_string(++counter);
    }

    const FilePlace& place_;
    std::string name_;
    FileDescriptor file_;
};

}  // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool MayOthersWrite(const struct stat& status) {
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool CouldOthersHaveWritten(const struct stat& status) {
    return (status.st_uid != 0 && status.st_uid != geteuid()) || MayOthersWrite(status);
}

Result<FileContents> ReadFile(const std::string& path, std::size_t limit) {
    const FileDescriptor file(open(path.c_str(), kReadFlags));
    return file ? ReadOpenFile(file, limit) : ErrnoError();
}

Result<FileContents> ReadFile(const FilePlace& place, std::size_t limit) {
    const FileDescriptor file(openat(place.folder.Get(), place.name.c_str(), kReadFlags | O_NOFOLLOW));
    return file ? ReadOpenFile(file, limit) : ErrnoError();
}

Result<FilePlace> LocateFile(std::string_view path) {
    std::string current(path);
    for (int links = 0; links < kMaxLinks; ++links) {
        const SplitPath parts = Split(current);
        Result<FilePlace> place = OpenPlace(parts);
        if (!place) {
            return place;
        }
        const Result<std::string> target = TrustedLink(*place);
        if (!target) {
            return target.Reason();
        }
        if (target->empty()) {
            return place;
        }
        current = target->front() == '/' ? *target : parts.folder + "/" + *target;
    }
    return ErrnoError(ELOOP);
}

// The lock file is never deleted: a writer that had opened it before, and waits, would then hold a lock on a nameless
// file while the next writer makes and locks a new one.
Result<FileDescriptor> LockForWriting(const FilePlace& place) {
    FileDescriptor lock = OpenBeside(place, "." + place.name + ".lock", O_RDWR | O_NONBLOCK);
    if (!lock) {
        return ErrnoError();
    }
    while (flock(lock.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            return ErrnoError();
        }
    }
    return lock;
}

Failure ReplaceFile(const FilePlace& place, std::string_view text, const FileAttributes& attributes) {
    TemporaryFile temporary(place);
    if (const Failure failure = temporary.Create()) {
        return failure;
    }
    if (const Failure failure = temporary.Fill(text, attributes)) {
        return failure;
    }
    if (const Failure failure = temporary.TakePlace()) {
        return failure;
    }
    return FlushFolder(place.folder.Get());
}

}  // namespace ARDV::Platform
