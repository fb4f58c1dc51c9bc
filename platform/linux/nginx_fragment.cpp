// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/nginx_fragment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <new>
#include <set>
#include <utility>

namespace ARDV::Platform {

namespace {

constexpr const char* kFolder = "/etc/ardv/nginx.d";
constexpr const char* kRoot = "/etc";
constexpr std::array<const char*, 2> kFolderParts = {"ardv", "nginx.d"};  // of kFolder below kRoot
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kPrivateFolderMode = 0700;
constexpr const char* kAside = ".old";
constexpr const char* kNothingAside = ".none";
constexpr const char* kPending = ".pending";
constexpr mode_t kPrivateMode = 0600;
constexpr std::string_view kEnding = ".conf";
constexpr std::size_t kMaxNameBytes = 200;  // leaves room for the names of the files beside it
constexpr std::size_t kMaxTextBytes = 1024UL * 1024;
constexpr std::string_view kNameCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.-_";

/// File systems without folders to flush say EINVAL.
Failure FlushFolder(int folder) {
    return fsync(folder) != 0 && errno != EINVAL ? ErrnoError() : Failure{};
}

/// Makes a folder that all may read, whatever the caller's umask; nothing if there's one.
Failure MakeFolder(const FilePlace& place) {
    const int parent = place.folder.Get();
    if (mkdirat(parent, place.name.c_str(), kPrivateFolderMode) != 0) {
        return errno == EEXIST ? Failure{} : ErrnoError();
    }
    return fchmodat(parent, place.name.c_str(), kFolderMode, 0) != 0 ? ErrnoError() : FlushFolder(parent);
}

/// Opens a folder that only its owner may write to; it's made if it's missing.
Result<FileDescriptor> OpenSafeFolder(const FilePlace& place) {
    if (const Failure failure = MakeFolder(place)) {
        return *failure;
    }
    FileDescriptor folder(openat(place.folder.Get(), place.name.c_str(), kFolderFlags));
    struct stat status {};
    if (!folder || fstat(folder.Get(), &status) != 0) {
        return ErrnoError();
    }
    return MayOthersWrite(status) ? MakeError(ARDV_ERR_UNSAFE_FILE) : Result(std::move(folder));
}

/// The folder of fragments, and its name in the folder above.
Result<FilePlace> OpenFolder() {
    FilePlace place{FileDescriptor(open(kRoot, kFolderFlags)), {}};
    if (!place.folder) {
        return ErrnoError();
    }
    for (const char* name : kFolderParts) {
        place.name = name;
        Result<FileDescriptor> folder = OpenSafeFolder(place);
        if (!folder) {
            return folder.Reason();
        }
        place.folder = std::move(*folder);
    }
    return place;
}

std::string Beside(std::string_view name, std::string_view suffix) {
    return "." + std::string(name) + std::string(suffix);
}

/// The name of the fragment that a file was put beside; empty for any other file.
std::string_view NameBeside(std::string_view file, std::string_view suffix) {
    if (!file.starts_with('.') || !file.ends_with(suffix)) {
        return {};
    }
    const std::string_view name = file.substr(1, file.size() - 1 - suffix.size());
    return NginxFragment::IsName(name) ? name : std::string_view();
}

/// The fragments whose change is neither kept nor undone.
Result<std::set<std::string>> ChangedNames() {
    std::set<std::string> names;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(kFolder, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        const std::string file = entry->path().filename();
        for (const char* suffix : {kAside, kNothingAside}) {
            if (const std::string_view name = NameBeside(file, suffix); !name.empty()) {
                names.emplace(name);
            }
        }
    }
    return failure ? ErrnoError(failure.value()) : Result<std::set<std::string>>(std::move(names));
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
    Result<FilePlace> folder = OpenFolder();
    if (!folder) {
        return folder.Reason();
    }
    Result<FileDescriptor> lock = LockForWriting(*folder);
    if (!lock) {
        return lock.Reason();
    }
    lock_ = std::move(*lock);
    place_.folder = std::move(folder->folder);
    wasPending_ = IsPending();
    return RestoreAll();
}

bool NginxFragment::IsThere() const {
    return Exists(place_.name);
}

bool NginxFragment::Is(std::string_view text) const {
    const Result<FileContents> contents = ReadFile(place_, kMaxTextBytes);
    return contents && contents->text == text;
}

Failure NginxFragment::Put(std::string_view text) {
    if (const Failure failure = IsThere() ? LinkAside() : NoteNothing()) {
        return failure;
    }
    isChanged_ = true;
    SetPending();
    if (const Failure failure = FlushFolder()) {
        return failure;
    }
    return ReplaceFile(place_, text, FileAttributes{});
}

Failure NginxFragment::Remove() {
    const int folder = place_.folder.Get();
    if (renameat(folder, place_.name.c_str(), folder, Beside(place_.name, kAside).c_str()) != 0) {
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
    if (const Failure failure = Restore(place_.name)) {
        return failure;
    }
    if (!wasPending_) {
        ClearPending();
    }
    return {};
}

Failure NginxFragment::Keep() {
    for (const char* suffix : {kAside, kNothingAside}) {
        if (const Failure failure = Delete(Beside(place_.name, suffix))) {
            return failure;
        }
    }
    if (const Failure failure = FlushFolder()) {
        return failure;
    }
    isChanged_ = false;
    return {};
}

bool NginxFragment::IsPending() const {
    return Exists(Beside(place_.name, kPending));
}

void NginxFragment::ClearPending() const {
    unlinkat(place_.folder.Get(), Beside(place_.name, kPending).c_str(), 0);
}

bool NginxFragment::Exists(const std::string& name) const {
    return faccessat(place_.folder.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

Failure NginxFragment::LinkAside() const {
    const int folder = place_.folder.Get();
    const std::string aside = Beside(place_.name, kAside);
    return linkat(folder, place_.name.c_str(), folder, aside.c_str(), 0) != 0 ? ErrnoError() : Failure{};
}

Failure NginxFragment::NoteNothing() const {
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const FileDescriptor note(
        openat(place_.folder.Get(), Beside(place_.name, kNothingAside).c_str(), flags, kPrivateMode));
    return note ? Failure{} : ErrnoError();
}

Failure NginxFragment::RestoreAll() const {
    const Result<std::set<std::string>> names = ChangedNames();
    if (!names) {
        return names.Reason();
    }
    for (const std::string& name : *names) {
        if (const Failure failure = Restore(name)) {
            return failure;
        }
    }
    return {};
}

// What tells the way back goes last, and after the flush of what it led to: a crash in between finds it again.
Failure NginxFragment::Restore(const std::string& name) const {
    const std::string aside = Beside(name, kAside);
    const std::string nothing = Beside(name, kNothingAside);
    if (Exists(aside)) {
        return BringBack(aside, name);
    }
    if (!Exists(nothing)) {
        return MakeError(ARDV_ERR_NOT_FOUND);
    }
    if (const Failure failure = Delete(name)) {
        return failure;
    }
    if (const Failure failure = FlushFolder()) {
        return failure;
    }
    const Failure failure = Delete(nothing);
    return failure ? failure : FlushFolder();
}

// A rename does nothing where both names are links to one file, as they are until the new file takes its place.
Failure NginxFragment::BringBack(const std::string& aside, const std::string& name) const {
    const int folder = place_.folder.Get();
    if (renameat(folder, aside.c_str(), folder, name.c_str()) != 0) {
        return ErrnoError();
    }
    const Failure failure = Delete(aside);
    return failure ? failure : FlushFolder();
}

Failure NginxFragment::Delete(const std::string& name) const {
    const bool isGone = unlinkat(place_.folder.Get(), name.c_str(), 0) == 0 || errno == ENOENT;
    return isGone ? Failure{} : ErrnoError();
}

Failure NginxFragment::FlushFolder() const {
    return Platform::FlushFolder(place_.folder.Get());
}

// Not flushed: what it's about, the state of a running server, doesn't outlive a crash of the machine either.
void NginxFragment::SetPending() const {
    const int flags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const FileDescriptor file(openat(place_.folder.Get(), Beside(place_.name, kPending).c_str(), flags, kPrivateMode));
}

}  // namespace ARDV::Platform
