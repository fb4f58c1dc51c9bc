// SPDX-License-Identifier: Apache-2.0
// How a tunnel starts: its password file and OpenVPN.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <relay/daemon/log.h>
#include <relay/tunnel/openvpn_command.h>
#include <relay/tunnel/tunnel.h>
#include <relay/tunnel/tunnel_candidate.h>
#include <relay/tunnel/tunnel_names.h>
#include <relay/tunnel/tunnel_process.h>

RELAY_LOG_SOURCE("tunnel.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kMaxPathBytes = 1023;
constexpr mode_t kPassFileMode = 0600;
constexpr unsigned kSetUpSeconds = 30;

std::string PassFileOf(const std::string& user) {
    return (TunnelNames::kPassFilePrefix + user).substr(0, kMaxPathBytes);
}

/** Whether a user's name is a part of a file's name, and one line of a file. */
bool IsFitForPassFile(const std::string& user) {
    return user.find_first_of(std::string("/\n\r\0", 4)) == std::string::npos;
}

/** For a message, which is one line, whatever others have put into a name. */
std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }, '?');
    return text;
}

int OpenPassFile(const std::string& path, const std::string& user) {
    if (!IsFitForPassFile(user)) {
        errno = EINVAL;
        return -1;
    }
    unlink(path.c_str());
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPassFileMode);
}

bool WriteAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t count = write(fd, data.data(), data.size());
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return false;
        }
        data.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

/** Closes it whatever comes of it; errno is of what failed first. */
bool WriteAndClose(int fd, std::string_view data) {
    const bool isWritten = WriteAll(fd, data);
    const int writeError = errno;
    const bool isClosed = close(fd) == 0;
    if (!isWritten) {
        errno = writeError;
    }
    return isWritten && isClosed;
}

void LogAttempt(const TunnelCandidate& candidate) {
    RELAY_LOG(LOG_DEBUG, "try openvpn: host: %s port: %s proto: %s mtu: %s", Printable(candidate.host).c_str(),
              candidate.port.c_str(), candidate.protocol->name, candidate.mtu.c_str());
}

void LogExecFailure(int error) {
    RELAY_LOG(LOG_ERR, "execl openvpn failed, %s", std::strerror(error));
}

std::vector<std::string> CommandOf(const TunnelCandidate& candidate, const std::string& passFile, pid_t daemon) {
    return OpenVpnCommand(candidate, passFile, daemon, Daemon::IsLogEnable(LOG_DEBUG));
}

}  // namespace

bool Tunnel::WritePassFile(const std::string& path) const {
    const int fd = OpenPassFile(path, relayUser_);
    if (fd < 0) {
        RELAY_LOG(LOG_ERR, "open [%s] failed, %s", Printable(path).c_str(), std::strerror(errno));
        return false;
    }
    if (fchmod(fd, kPassFileMode) != 0) {
        RELAY_LOG(LOG_ERR, "chmod [%s] failed, %s", Printable(path).c_str(), std::strerror(errno));
        close(fd);
        unlink(path.c_str());
        return false;
    }
    if (!WriteAndClose(fd, relayUser_ + "\n" + relayPass_)) {
        RELAY_LOG(LOG_ERR, "write pass failed, %s", std::strerror(errno));
        unlink(path.c_str());
        return false;
    }
    return true;
}

void Tunnel::UnlinkTunnelPassFile() {
    if (!writtenPassFile_.empty()) {
        unlink(writtenPassFile_.c_str());
        writtenPassFile_.clear();
    }
    if (IsFitForPassFile(relayUser_)) {
        unlink(PassFileOf(relayUser_).c_str());
    }
}

bool Tunnel::RunVPNTunnel(const Json::Value& candidate) {
    if (status_ == TUNNEL_STATUS_READY) {
        return true;
    }
    status_ = TUNNEL_STATUS_NONE;
    pid_ = -1;
    UnlinkTunnelPassFile();  // that of an earlier attempt, under whatever name
    TunnelCandidate chosen;
    if (const char* why = ReadCandidate(candidate, {relayIp_, relayIpv6_}, chosen)) {
        RELAY_LOG(LOG_DEBUG, "no candidate to try: %s", why);
        return false;
    }
    const std::string path = PassFileOf(relayUser_);
    if (!WritePassFile(path)) {
        RELAY_LOG(LOG_ERR, "Write pass file failed");
        return false;
    }
    writtenPassFile_ = path;
    status_ = TUNNEL_STATUS_CREATING;
    const ChildStart start = StartChild(TunnelNames::kProgram, CommandOf(chosen, path, getpid()));
    pid_ = start.pid;
    if (pid_ < 0) {
        RELAY_LOG(LOG_ERR, "fork failed %s", std::strerror(start.forkError));
        UnlinkTunnelPassFile();
        return false;
    }
    LogAttempt(chosen);
    if (start.execError != 0) {
        LogExecFailure(start.execError);
    }
    alarm(kSetUpSeconds);
    return true;
}

void Tunnel::TunnelExec(const char* passFile, const Json::Value& candidate) const {
    TunnelCandidate chosen;
    if (const char* why = ReadCandidate(candidate, {relayIp_, relayIpv6_}, chosen)) {
        RELAY_LOG(LOG_DEBUG, "no candidate to try: %s", why);
        return;
    }
    LogAttempt(chosen);
    Execute(TunnelNames::kProgram, CommandOf(chosen, passFile ? passFile : "", getppid()));
    LogExecFailure(errno);
}

}  // namespace ARDV::Relay
