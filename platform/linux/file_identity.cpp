// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/file_identity.h"

#include <unistd.h>

#include <ctime>

namespace ARDV::Platform {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/// Linux stamps files by its coarse clock (CLOCK_REALTIME_COARSE of clock_gettime(2)), which ticks CONFIG_HZ times a
/// second, so every 1 to 10 ms. Twice the longest tick.
constexpr std::int64_t kFileClockTick = 20'000'000;

/// Some file systems keep whole seconds only (ext4 with inodes of 128 bytes), FAT every second one. A time that isn't a
/// whole second comes from none of them.
constexpr std::int64_t kCoarsestStep = 2 * kNanosecondsPerSecond;

std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * kNanosecondsPerSecond + time.tv_nsec;
}

std::int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now);
}

/// True when what changes at `now` or later is stamped with another time than this.
bool IsPast(std::int64_t time, std::int64_t now) {
    const bool isCoarse = time % kNanosecondsPerSecond == 0;
    return time < now - kFileClockTick - (isCoarse ? kCoarsestStep : 0);
}

}  // namespace

FileIdentity IdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim),
            geteuid()};
}

std::optional<FileIdentity> IdentityAt(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? std::optional(IdentityOf(status)) : std::nullopt;
}

ReadMoment::ReadMoment() : now_(Now()) {}

bool ReadMoment::Proves(const FileIdentity& identity) const {
    return IsPast(identity.modified, now_) && IsPast(identity.changed, now_);
}

}  // namespace ARDV::Platform
