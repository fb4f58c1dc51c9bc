// SPDX-License-Identifier: Apache-2.0
#include "private_root.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ardv::test {

namespace {

namespace fs = std::filesystem;

const fs::path kStage = "/mnt";
const fs::path kRoot = kStage / "root";

void Must(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

void Mount(const std::string& source, const fs::path& target, const char* type, unsigned long flags,
           const std::string& options = "") {
    Must(mount(source.c_str(), target.c_str(), type, flags, options.c_str()) == 0, "mount " + target.string());
}

void BindThrough(const fs::path& path) {
    fs::create_directories(kRoot / path.relative_path());
    Mount(path, kRoot / path.relative_path(), nullptr, MS_BIND | MS_REC);
}

void WriteText(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    Must(!file.fail(), std::string("write ") + path);
}

void BecomeRootOfUserNamespace() {
    const auto user = std::to_string(getuid());
    const auto group = std::to_string(getgid());
    Must(unshare(CLONE_NEWUSER) == 0, "user namespace");
    WriteText("/proc/self/setgroups", "deny");
    WriteText("/proc/self/uid_map", "0 " + user + " 1");
    WriteText("/proc/self/gid_map", "0 " + group + " 1");
}

std::string OverlayOptions(const fs::path& lower, const fs::path& name) {
    const auto upper = kStage / "up" / name;
    const auto work = kStage / "work" / name;
    fs::create_directories(upper);
    fs::create_directories(work);
    return "lowerdir=" + lower.string() + ",upperdir=" + upper.string() + ",workdir=" + work.string();
}

void OverlayWholeRoot() {
    Mount("overlay", kRoot, "overlay", 0, OverlayOptions("/", "all"));
    for (const char* folder : {"/proc", "/sys", "/dev"}) {
        BindThrough(folder);
    }
}

// In a user namespace the folders of the real root belong to nobody, so that nothing in them can be replaced or removed. A folder that the upper
// layer has too belongs to its maker: these are the folders in which tests put other programs, and what the daemon is installed with or writes.
constexpr std::array<const char*, 6> kReplaceable = {"usr/bin",        "usr/lib/modules", "usr/local/lib",
                                                     "usr/local/sbin", "usr/sbin",        "var/log"};

// In a user namespace "/" cannot be a lower layer, because what is mounted below it is locked; its folders can.
void OverlayFolder(const fs::path& folder) {
    const auto target = kRoot / folder.relative_path();
    const auto options = OverlayOptions(folder, folder.relative_path()) + ",userxattr";
    fs::create_directories(target);
    for (const fs::path replaceable : kReplaceable) {
        if (*replaceable.begin() == folder.filename()) {
            fs::create_directories(kStage / "up" / replaceable);
        }
    }
    Mount("overlay", target, "overlay", 0, options);
}

// In a user namespace the files of the real root stay beyond reach below an overlay; a copy belongs to its maker.
void CopyFolder(const fs::path& folder) {
    fs::create_directories(kRoot / folder.relative_path());
    std::error_code unreadable;
    for (fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied), end;
         entry != end; ++entry) {
        const auto target = kRoot / entry->path().relative_path();
        if (entry->is_symlink()) {
            fs::copy_symlink(entry->path(), target, unreadable);
        } else if (entry->is_directory()) {
            fs::create_directories(target);
        } else if (entry->is_regular_file()) {
            fs::copy_file(entry->path(), target, unreadable);
        }
    }
}

bool IsMadeAnew(const std::string& name) {
    return name == "mnt" || name == "tmp" || name == "run" || name == "root";
}

void OverlayEachFolder() {
    Mount(kRoot, kRoot, nullptr, MS_BIND);
    for (const auto& entry : fs::directory_iterator("/")) {
        const auto name = entry.path().filename().string();
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), kRoot / name);
        } else if (name == "proc" || name == "sys" || name == "dev") {
            BindThrough(entry.path());
        } else if (name == "etc") {
            CopyFolder(entry.path());
        } else if (entry.is_directory() && !IsMadeAnew(name)) {
            OverlayFolder(entry.path());
        }
    }
}

void EmptyFolder(const fs::path& path, const std::string& mode) {
    fs::create_directories(kRoot / path);
    Mount("tmpfs", kRoot / path, "tmpfs", MS_NOSUID | MS_NODEV, "mode=" + mode);
}

void SwitchRoot() {
    const auto old = kRoot / "mnt" / ".old";
    fs::create_directories(old);
    Must(syscall(SYS_pivot_root, kRoot.c_str(), old.c_str()) == 0, "pivot_root");
    Must(chdir("/") == 0, "chdir /");
    Must(umount2("/mnt/.old", MNT_DETACH) == 0, "umount of the old root");
}

void RaiseLoopback() {
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool raised = fd >= 0 && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    Must(raised, "loopback up");
}

void Enter(const std::vector<std::string>& kept) {
    const auto here = fs::current_path();
    const bool isRoot = geteuid() == 0;
    if (!isRoot) {
        BecomeRootOfUserNamespace();
    }
    Must(unshare(CLONE_NEWNS | CLONE_NEWNET) == 0, "mount and network namespace");
    RaiseLoopback();
    Must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    Mount("tmpfs", kStage, "tmpfs", 0, "mode=755");
    fs::create_directories(kRoot);
    isRoot ? OverlayWholeRoot() : OverlayEachFolder();
    fs::create_directories(kRoot / "root");
    EmptyFolder("tmp", "1777");
    EmptyFolder("run", "755");
    for (const auto& folder : kept) {
        BindThrough(folder);
    }
    SwitchRoot();
    std::error_code ignored;
    fs::current_path(here, ignored);
}

}  // namespace

bool EnterPrivateRoot(const std::vector<std::string>& kept, std::string& why) {
    try {
        Enter(kept);
        return true;
    } catch (const std::exception& failure) {
        why = failure.what();
        return false;
    }
}

}  // namespace ardv::test
