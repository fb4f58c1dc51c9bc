// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include <libdaemon/dfork.h>
#include <libdaemon/dlog.h>
#include <libdaemon/dpid.h>
#include <libdaemon/dsignal.h>

#include <relay/common/vocabulary.h>
#include <relay/daemon/log.h>
#include <relay/daemon/running_daemon.h>

RELAY_LOG_SOURCE("daemon.cpp");

namespace ARDV::Relay {

constinit bool Daemon::_isCreated = false;
std::string Daemon::_strPidFile;

namespace {

constexpr const char kDaemonName[] = "ardvrelayd";
constexpr int kStartSeconds = 20;
constexpr int kStarted = 0;
constexpr int kNoPidFile = 4;

// What libdaemon, and by it the system log, was given once may be used to the end of the process: a name is never freed.
const char* KeepName(const std::string& name) {
    static auto& names = *new std::set<std::string>();
    return names.insert(name).first->c_str();
}

std::string NameFromPath(const char* path) {
    std::string text(path);
    return daemon_ident_from_argv0(text.data());
}

void SetIdentity(const std::string& name) {
    daemon_log_ident = daemon_pid_file_ident = KeepName(name);
}

// The two ends of a pipe share one inode; libdaemon tells no more than one of them.
void CloseOnExecBothEnds(int end) {
    struct stat pipe = {};
    if (end < 0 || fstat(end, &pipe) != 0) {
        return;
    }
    std::error_code noEntry;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", noEntry), last; entry != last;
         entry.increment(noEntry)) {
        struct stat file = {};
        if (stat(entry->path().c_str(), &file) == 0 && file.st_ino == pipe.st_ino && file.st_dev == pipe.st_dev) {
            fcntl(std::stoi(entry->path().filename()), F_SETFD, FD_CLOEXEC);
        }
    }
}

[[noreturn]] void EndWithResultOfChild() {
    const int result = daemon_retval_wait(kStartSeconds);
    if (result < 0) {
        RELAY_LOG(LOG_ERR, "Could not receive return value from daemon process: %s", std::strerror(errno));
    }
    RELAY_LOG(result == kStarted ? LOG_DEBUG : LOG_ERR, "%s returned %i", RunningDaemon::Name(), result);
    std::exit(result);
}

}  // namespace

bool Daemon::SetName(const char* name) {
    if (!name) {
        return false;
    }
    const std::string identity = NameFromPath(name);
    SetIdentity(identity);
    daemon_pid_file_proc = &Daemon::GetPidFile;
    _strPidFile = "/var/run/" + identity + ".pid";
    return true;
}

bool Daemon::SetPidFile(const char* path) {
    if (!path || *path == '\0') {
        return false;
    }
    if (*path != '/') {
        RELAY_LOG(LOG_ERR, "pid file must be absolute path");
        return false;
    }
    _strPidFile = path;
    return true;
}

const char* Daemon::GetPidFile() {
    return _strPidFile.c_str();
}

bool Daemon::LibInit() {
    if (_strPidFile.empty()) {
        return SetName(kDaemonName);
    }
    if (!daemon_pid_file_ident) {
        SetIdentity(kDaemonName);
    }
    daemon_pid_file_proc = &Daemon::GetPidFile;
    return true;
}

void Daemon::InitSignalHandler() {
    daemon_signal_init(SIGINT, SIGTERM, SIGQUIT, SIGPIPE, SIGHUP, SIGCHLD, SIGALRM, SIGUSR1, SIGUSR2, SIGRTMIN + 1,
                       SIGRTMIN + 2, SIGRTMIN + 3, 0);
    CloseOnExecBothEnds(daemon_signal_fd());
}

bool Daemon::Init(bool fork) {
    const pid_t running = daemon_pid_file_is_running();
    if (running >= 0) {
        RELAY_LOG(LOG_ERR, "Daemon already running on PID file %u", static_cast<unsigned>(running));
        return false;
    }
    if (fork && !Fork()) {
        return false;
    }
    if (daemon_pid_file_create() < 0) {
        RELAY_LOG(LOG_ERR, "Could not create PID file (%s).", std::strerror(errno));
        daemon_retval_send(kNoPidFile);
        return false;
    }
    if (fork) {
        daemon_retval_send(kStarted);
    }
    return true;
}

bool Daemon::Fork() {
    if (daemon_retval_init() < 0) {
        RELAY_LOG(LOG_ERR, "Failed to create pipe.");
        return false;
    }
    const pid_t child = daemon_fork();
    if (child < 0) {
        RELAY_LOG(LOG_ERR, "fork failed: %s", std::strerror(errno));
        daemon_retval_done();
        return false;
    }
    if (child != 0) {
        EndWithResultOfChild();
    }
    _isForked = true;
    if (!_strLogFile.empty()) {
        OpenLogFile(_strLogFile, STDERR_FILENO, O_CREAT | O_TRUNC);  // each start empties the log
    }
    return true;
}

int Daemon::Signal(int sig) {
    if (!RunningDaemon::SendSignal(RunningDaemon::FindPid(), sig)) {
        RELAY_LOG(LOG_NOTICE, "Failed to signal daemon, %d", sig);
        return RunningDaemon::kFailed;
    }
    return RELAYD_RET_SUCCESS;
}

int Daemon::Kill() {
    if (!RunningDaemon::SendSignal(RunningDaemon::FindPid(), SIGTERM)) {
        RELAY_LOG(LOG_NOTICE, "Failed to kill daemon");
        return RunningDaemon::kFailed;
    }
    return RELAYD_RET_SUCCESS;
}

int Daemon::Hup() {
    if (!RunningDaemon::SendSignal(RunningDaemon::FindPid(), SIGHUP)) {
        std::fprintf(stderr, "%s not running\n", RunningDaemon::Name());
        return RunningDaemon::kFailed;
    }
    return RELAYD_RET_SUCCESS;
}

}  // namespace ARDV::Relay
