// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/nginx_fragment.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <new>
#include <utility>

namespace ARDV::Platform {

namespace {

constexpr const char* kFolder = "/etc/ardv/nginx.d";
constexpr const char* kLockedName = "nginx.d";
constexpr const char* kAside = ".old";
constexpr const char* kPending = ".pending";
constexpr mode_t kPrivateMode = 0600;
constexpr std::string_view kEnding = ".conf";
constexpr std::size_t kMaxNameBytes = 200;  // leaves room for the names of the files beside it
constexpr std::size_t kMaxTextBytes = 1024UL * 1024;
constexpr std::string_view kNameCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_";

Result<FileDescriptor> OpenFolder() {
    FileDescriptor folder(open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder ? Result(std::move(folder)) : ErrnoError();
}

Result<FileDescriptor> LockFolder() {
    Result<FileDescriptor> folder = OpenFolder();
    return folder ? LockForWriting(FilePlace{std::move(*folder), kLockedName}) : folder.Reason();
}

}  // namespace

NginxFragment::NginxFragment(std::string name) {
    place_.name = std::move(name);
}

NginxFragment::~NginxFragment() {
    try {
        Undo();
    } catch (const std::bad_alloc&) {
        isChanged_ = false;  // the next one to open this name finds what is kept aside
    }
}

bool NginxFragment::IsName(std::string_view name) {
    return name.size() > kEnding.size() && name.size() <= kMaxNameBytes && name.front() != '.' &&
           name.ends_with(kEnding) && name.find_first_not_of(kNameCharacters) == std::string_view::npos;
}

std::string NginxFragment::PathOf(std::string_view name) {
    return std::string(kFolder) + "/" + std::string(name);
}

Failure NginxFragment::Open() {
    std::error_code failed;
    std::filesystem::create_directories(kFolder, failed);
    if (failed) {
        return ErrnoError(failed.value());
    }
    Result<FileDescriptor> lock = LockFolder();
    if (!lock) {
        return lock.Reason();
    }
    lock_ = std::move(*lock);
    Result<FileDescriptor> folder = OpenFolder();
    if (!folder) {
        return folder.Reason();
    }
    place_.folder = std::move(*folder);
    wasPending_ = IsPending();
    return Exists(Beside(kAside)) ? Restore() : Failure{};
}

bool NginxFragment::IsThere() const {
    return Exists(place_.name);
}

bool NginxFragment::Is(std::string_view text) const {
    const Result<FileContents> contents = ReadFile(place_, kMaxTextBytes);
    return contents && contents->text == text;
}

Failure NginxFragment::Put(std::string_view text) {
    const int folder = place_.folder.Get();
    if (IsThere() && linkat(folder, place_.name.c_str(), folder, Beside(kAside).c_str(), 0) != 0) {
        return ErrnoError();
    }
    isChanged_ = true;
    SetPending();
    return ReplaceFile(place_, text, FileAttributes{});
}

Failure NginxFragment::Remove() {
    const int folder = place_.folder.Get();
    if (renameat(folder, place_.name.c_str(), folder, Beside(kAside).c_str()) != 0) {
        return ErrnoError();
    }
    isChanged_ = true;
    SetPending();
    return FlushFolder();
}

Failure NginxFragment::Undo() {
    if (!std::exchange(isChanged_, false)) {
        return {};
    }
    if (!wasPending_) {
        ClearPending();
    }
    return Exists(Beside(kAside)) ? Restore() : Delete(place_.name);
}

Failure NginxFragment::Keep() {
    isChanged_ = false;
    return Delete(Beside(kAside));
}

bool NginxFragment::IsPending() const {
    return Exists(Beside(kPending));
}

void NginxFragment::ClearPending() const {
    unlinkat(place_.folder.Get(), Beside(kPending).c_str(), 0);
}

std::string NginxFragment::Beside(const char* suffix) const {
    return "." + place_.name + suffix;
}

bool NginxFragment::Exists(const std::string& name) const {
    return faccessat(place_.folder.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

// A rename does nothing where both names are links to one file, as they are until the new file takes its place.
Failure NginxFragment::Restore() const {
    const int folder = place_.folder.Get();
    const std::string aside = Beside(kAside);
    return renameat(folder, aside.c_str(), folder, place_.name.c_str()) != 0 ? ErrnoError() : Delete(aside);
}

Failure NginxFragment::Delete(const std::string& name) const {
    const bool isGone = unlinkat(place_.folder.Get(), name.c_str(), 0) == 0 || errno == ENOENT;
    return isGone ? FlushFolder() : ErrnoError();
}

/// File systems without folders to flush say EINVAL.
Failure NginxFragment::FlushFolder() const {
    return fsync(place_.folder.Get()) != 0 && errno != EINVAL ? ErrnoError() : Failure{};
}

// Not flushed: what it's about, the state of a running server, doesn't outlive a crash of the machine either.
void NginxFragment::SetPending() const {
    const int flags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const FileDescriptor file(openat(place_.folder.Get(), Beside(kPending).c_str(), flags, kPrivateMode));
}

}  // namespace ARDV::Platform
