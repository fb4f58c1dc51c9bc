// SPDX-License-Identifier: Apache-2.0
#include "http/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace ARDV::Sandbox {
namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    int Number() const { return number_; }
    bool IsOpen() const { return number_ >= 0; }

private:
    int number_;
};

// Removes the half-made file unless it reached its place.
class Leftover {
public:
    explicit Leftover(std::string path) : path_(std::move(path)) {}
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;
    ~Leftover() {
        if (!path_.empty()) {
            ::unlink(path_.c_str());
        }
    }
    void Keep() { path_.clear(); }

private:
    std::string path_;
};

std::string Reason(std::string_view action, const std::string& path) {
    return std::string(action) + " " + path + ": " + std::generic_category().message(errno);
}

bool WriteAll(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = ::write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
    return true;
}

bool ReadAll(int file, size_t limit, std::string& content) {
    char block[65536];
    for (;;) {
        const ssize_t count = ::read(file, block, sizeof block);
        if (count == 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        content.append(block, count < 0 ? 0 : static_cast<size_t>(count));
        if (content.size() > limit) {
            errno = EFBIG;
            return false;
        }
    }
}

bool IsRegular(int file) {
    struct stat facts {};
    if (::fstat(file, &facts) != 0) {
        return false;
    }
    errno = EINVAL;
    return S_ISREG(facts.st_mode);
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool SyncFolder(const std::string& folder) {
    const Descriptor handle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return handle.IsOpen() && ::fsync(handle.Number()) == 0;
}

}  // namespace

ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& content, std::string& error) {
    content.clear();
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen() && errno == ENOENT) {
        return ReadResult::kAbsent;
    }
    if (!file.IsOpen() || !IsRegular(file.Number()) || !ReadAll(file.Number(), limit, content)) {
        error = Reason("cannot read", path);
        content.clear();
        return ReadResult::kFailed;
    }
    return ReadResult::kRead;
}

bool ReplaceFile(const std::string& path, std::string_view content, std::string& error) {
    std::string fresh = path + ".XXXXXX";
    const Descriptor file(::mkostemp(fresh.data(), O_CLOEXEC));
    if (!file.IsOpen()) {
        error = Reason("cannot write beside", path);
        return false;
    }
    Leftover leftover(fresh);
    if (!WriteAll(file.Number(), content) || ::fsync(file.Number()) != 0) {
        error = Reason("cannot write", fresh);
        return false;
    }
    if (::rename(fresh.c_str(), path.c_str()) != 0) {
        error = Reason("cannot replace", path);
        return false;
    }
    leftover.Keep();
    // The new content is in place; a folder that can't be synchronised only costs durability.
    if (!SyncFolder(FolderOf(path))) {
        error = Reason("cannot synchronise the folder of", path);
        return false;
    }
    return true;
}

}  // namespace ARDV::Sandbox
