// SPDX-License-Identifier: Apache-2.0
#include "platform_faults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <iterator>

#include <ardv/cloud_identity.h>
#include <ardv/key_value_file.h>

#include "real_function.h"

namespace ardv::test {

namespace {

PlatformFaults* active = nullptr;
bool interruptNext = false;

std::string PathOf(int fd) {
    std::array<char, 4096> path = {};
    const auto link = "/proc/self/fd/" + std::to_string(fd);
    return readlink(link.c_str(), path.data(), path.size() - 1) > 0 ? path.data() : "?";
}

void Record(const std::string& call) {
    if (active) {
        active->calls.push_back(call);
    }
}

void NoteUse(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    if (active && fd > STDERR_FILENO && flags >= 0 && (flags & FD_CLOEXEC) == 0) {
        active->inheritable.insert(PathOf(fd));
    }
}

bool IsInterrupted() {
    if (!active || !active->isInterrupted) {
        return false;
    }
    interruptNext = !interruptNext;
    return interruptNext;
}

ssize_t FailWith(int error) {
    errno = error;
    return -1;
}

// A platform that fails may have written to the buffers before it noticed.
int PlatformResult(const char* name, int result, char* buffer, std::size_t size) {
    if (!active || !active->platformFails || !active->platformFails(name)) {
        return result;
    }
    std::snprintf(buffer, size, "%s", active->leftText.c_str());
    return -1;
}

}  // namespace

PlatformFaults::PlatformFaults() {
    active = this;
    interruptNext = false;
}

PlatformFaults::~PlatformFaults() {
    active = nullptr;
}

std::vector<std::string> PlatformFaults::CallsOf(const std::string& start) const {
    std::vector<std::string> found;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                 [&start](const std::string& call) { return call.starts_with(start); });
    return found;
}

}  // namespace ardv::test

using ardv::test::active;

extern "C" {

int fsync(int fd) {
    static const auto real = ardv::test::RealFunction<int (*)(int)>("fsync");
    ardv::test::NoteUse(fd);
    ardv::test::Record("fsync " + ardv::test::PathOf(fd));
    return active && active->syncFails ? static_cast<int>(ardv::test::FailWith(EIO)) : real(fd);
}

int rename(const char* from, const char* to) noexcept {
    static const auto real = ardv::test::RealFunction<int (*)(const char*, const char*)>("rename");
    if (active) {  // this function may not throw, and a test of missing memory has it called
        ardv::test::Record(std::string("rename ") + from + " " + to);
    }
    return real(from, to);
}

ssize_t read(int fd, void* data, size_t size) {
    static const auto real = ardv::test::RealFunction<ssize_t (*)(int, void*, size_t)>("read");
    ardv::test::NoteUse(fd);
    if (active && active->onRead) {
        active->onRead(ardv::test::PathOf(fd));
    }
    if (ardv::test::IsInterrupted()) {
        return ardv::test::FailWith(EINTR);
    }
    return active && active->readFails ? ardv::test::FailWith(EIO) : real(fd, data, size);
}

ssize_t write(int fd, const void* data, size_t size) {
    static const auto real = ardv::test::RealFunction<ssize_t (*)(int, const void*, size_t)>("write");
    ardv::test::NoteUse(fd);
    if (ardv::test::IsInterrupted()) {
        return ardv::test::FailWith(EINTR);
    }
    return real(fd, data, active ? std::min(size, active->writeAtMost.value_or(size)) : size);
}

char* ctime_r(const time_t* clock, char* text) noexcept {
    static const auto real = ardv::test::RealFunction<char* (*)(const time_t*, char*)>("ctime_r");
    if (active && active->clockTextFails) {
        errno = EOVERFLOW;
        return nullptr;
    }
    return real(clock, text);
}

int ARDVCloudServiceHstokenGetToken(char* serial, size_t serialSize, char* token, size_t tokenSize) {
    static const auto real =
        ardv::test::RealFunction<int (*)(char*, size_t, char*, size_t)>("ARDVCloudServiceHstokenGetToken");
    ardv::test::Record("GetToken " + std::to_string(serialSize) + " " + std::to_string(tokenSize));
    return ardv::test::PlatformResult("GetToken", real(serial, serialSize, token, tokenSize), token, tokenSize);
}

int ARDVCloudServiceHstokenGenerateToken(const char* serial, char* token, size_t size) {
    static const auto real =
        ardv::test::RealFunction<int (*)(const char*, char*, size_t)>("ARDVCloudServiceHstokenGenerateToken");
    ardv::test::Record(std::string("GenerateToken ") + serial + " " + std::to_string(size));
    return ardv::test::PlatformResult("GenerateToken", real(serial, token, size), token, size);
}

int ARDVCloudServiceGetApiKey(char* key, int flags) {
    static const auto real = ardv::test::RealFunction<int (*)(char*, int)>("ARDVCloudServiceGetApiKey");
    ardv::test::Record("GetApiKey " + std::to_string(flags));
    return real(key, flags);
}

int ARDVHsinfoCloudServiceGetMacAddress(char* mac, size_t size) {
    static const auto real = ardv::test::RealFunction<int (*)(char*, size_t)>("ARDVHsinfoCloudServiceGetMacAddress");
    ardv::test::Record("GetMacAddress " + std::to_string(size));
    return ardv::test::PlatformResult("GetMacAddress", real(mac, size), mac, size);
}

int ALIBCFileGetKeyValue(const char* file, const char* key, char* value, size_t size, int flags) {
    static const auto real =
        ardv::test::RealFunction<int (*)(const char*, const char*, char*, size_t, int)>("ALIBCFileGetKeyValue");
    ardv::test::Record(std::string("GetKeyValue ") + file + " " + key + " " + std::to_string(size) + " " +
                       std::to_string(flags));
    if (active && active->keyValueResult) {
        std::snprintf(value, size, "%s", active->leftText.c_str());
        return *active->keyValueResult;
    }
    return ardv::test::PlatformResult("GetKeyValue", real(file, key, value, size, flags), value, size);
}

int ALIBCFileCheckKeyValue(const char* file, const char* key, const char* value, int flags) {
    static const auto real =
        ardv::test::RealFunction<int (*)(const char*, const char*, const char*, int)>("ALIBCFileCheckKeyValue");
    ardv::test::Record(std::string("CheckKeyValue ") + file + " " + key + " " + value + " " + std::to_string(flags));
    return active && active->keyValueResult ? *active->keyValueResult : real(file, key, value, flags);
}
}
