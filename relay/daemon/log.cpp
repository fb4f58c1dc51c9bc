// SPDX-License-Identifier: Apache-2.0
#include <relay/daemon/log.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <libdaemon/dlog.h>

#include <relay/utils/shared_folder.h>

RELAY_LOG_SOURCE("daemon.cpp");

namespace ARDV::Relay {

constinit bool Daemon::_isForked = false;
constinit std::int32_t Daemon::_logLevel = LOG_WARNING;
std::string Daemon::_strLogFile;

namespace {

constexpr const char kDefaultLogFile[] = "/var/log/ardvrelayd.log";
constexpr mode_t kLogFileMode = 0600;
constexpr std::size_t kWeekday = 4;  // "Wed " at the start of ctime's text, which a log line does without
constexpr int kDaemonVerbosityMask = 7;

void WriteTimeStamp() {
    char text[32] = {};
    const std::time_t now = std::time(nullptr);
    if (!ctime_r(&now, text)) {
        return;
    }
    text[std::strcspn(text, "\n")] = '\0';
    std::fprintf(stderr, "%s ", text + kWeekday);
}

// libdaemon keeps three bits of the value and complains, in its own log, about most values that it nevertheless takes.
// From verbosity 0, which -8 yields in silence, it has no voice to complain with.
void SetDaemonVerbosity(int level) {
    daemon_set_verbosity(-(kDaemonVerbosityMask + 1));
    daemon_set_verbosity(level > kDaemonVerbosityMask ? kDaemonVerbosityMask : level);
}

// A pipe without a reader is refused rather than waited for; writing then waits as usual. Nothing is truncated before it is known for what it
// is.
int OpenTrustworthy(const std::string& path, int flags) {
    const int careful = O_WRONLY | O_CLOEXEC | O_NONBLOCK | Utils::NoFollowIfShared(path);
    const int opened = open(path.c_str(), careful | (flags & ~O_TRUNC), kLogFileMode);
    if (opened < 0) {
        return -1;
    }
    if (!Utils::IsTrustworthy(opened, path)) {
        close(opened);
        return -1;
    }
    fcntl(opened, F_SETFL, fcntl(opened, F_GETFL) & ~O_NONBLOCK);
    if ((flags & O_TRUNC) != 0) {
        [[maybe_unused]] const int emptied = ftruncate(opened, 0);  // a terminal or a pipe has nothing to empty
    }
    return opened;
}

bool MoveDescriptor(int from, int to) {
    if (from == to) {
        return fcntl(to, F_SETFD, 0) == 0;
    }
    const bool moved = dup2(from, to) >= 0;
    if (!moved) {
        RELAY_LOG(LOG_ERR, "dup fd failed");
    }
    close(from);
    return moved;
}

}  // namespace

bool Daemon::IsLogEnable(int level) {
    return _logLevel >= level;
}

bool Daemon::IsForked() {
    return _isForked;
}

void Daemon::Log(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogV(level, format, args);
    va_end(args);
}

void Daemon::LogV(int level, const char* format, va_list args) {
    const int savedErrno = errno;
    if (IsLogEnable(level)) {
        WriteTimeStamp();
        errno = savedErrno;  // the message may name it by "%m"
        std::vfprintf(stderr, format, args);
        std::fprintf(stderr, "\n");
    }
    errno = savedErrno;
}

bool Daemon::SetLogFile(const std::string& path, int level) {
    if (level >= 0) {
        _logLevel = level;
        SetDaemonVerbosity(level);
    }
    _strLogFile = path;
    if (IsForked()) {
        // Appended to, unlike at the fork: a change of the level must not cost the lines written so far.
        OpenLogFile(_strLogFile.empty() ? kDefaultLogFile : _strLogFile, STDERR_FILENO, O_CREAT | O_APPEND);
    }
    return true;
}

bool Daemon::OpenLogFile(const std::string& path, int fd, int flags) {
    const int opened = OpenTrustworthy(path, flags);
    if (opened < 0) {
        RELAY_LOG(LOG_ERR, "open log file [%s] failed", path.c_str());
        return false;
    }
    return MoveDescriptor(opened, fd);
}

}  // namespace ARDV::Relay
