// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/file_io.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <relay/utils/descriptor.h>
#include <relay/utils/shared_folder.h>

namespace ARDV::Relay::Utils {

namespace {

constexpr mode_t kDefaultFileMode = 0666;  // less the process's umask

ssize_t ReadSome(int fd, char* data, std::size_t size) {
    ssize_t count = 0;
    do {
        count = read(fd, data, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

ssize_t WriteSome(int fd, std::string_view data) {
    ssize_t count = 0;
    do {
        count = write(fd, data.data(), data.size());
    } while (count < 0 && errno == EINTR);
    return count;
}

bool WriteAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t count = WriteSome(fd, data);
        if (count <= 0) {
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// One byte more than the file has is asked for, so that the end shows in one more read and a growing file is seen.
ReadResult ReadToEnd(int fd, std::size_t expected, std::size_t maxBytes, std::string& content) {
    std::size_t length = 0;
    content.resize(expected + 1);
    while (const ssize_t count = ReadSome(fd, content.data() + length, content.size() - length)) {
        if (count < 0) {
            return ReadResult::kUnreadable;
        }
        length += static_cast<std::size_t>(count);
        if (length > maxBytes) {
            return ReadResult::kTooLarge;
        }
        if (length == content.size()) {
            content.resize(2 * length);
        }
    }
    content.resize(length);
    return ReadResult::kRead;
}

int OpenForWriting(const std::string& path) {
    if (!NoFollowIfShared(path)) {
        return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, kDefaultFileMode);
    }
    unlink(path.c_str());
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kDefaultFileMode);
}

}  // namespace

ReadResult ReadWholeFile(const std::string& path, std::size_t maxBytes, std::string& content) {
    // Not to block: a pipe in the place of the file must not hang its reader.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | NoFollowIfShared(path)));
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !IsTrustworthy(file.Get(), path)) {
        return ReadResult::kUnreadable;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    return size > maxBytes ? ReadResult::kTooLarge : ReadToEnd(file.Get(), size, maxBytes, content);
}

std::string TemporaryName(const std::string& path) {
    return path + ".tmp." + std::to_string(getpid());
}

WriteResult WriteTemporaryFile(const std::string& temporary, std::string_view content) {
    const Descriptor file(OpenForWriting(temporary));
    if (!file.IsOpen()) {
        return WriteResult::kNotOpened;
    }
    // What only closing the file would report is not looked at: the content is on the disk by then.
    return WriteAll(file.Get(), content) && fsync(file.Get()) == 0 ? WriteResult::kWritten : WriteResult::kNotWritten;
}

}  // namespace ARDV::Relay::Utils
