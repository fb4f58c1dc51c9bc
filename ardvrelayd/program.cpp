// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <libdaemon/dpid.h>
#include <libdaemon/dsignal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iterator>

#include <relay/config/config.h>
#include <relay/daemon/daemon.h>

#include "application.h"
#include "check_config.h"
#include "descriptor.h"
#include "exit_code.h"

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

constexpr const char* kName = "ardvrelayd";
constexpr unsigned kFirstInherited = 3;
constexpr mode_t kDaemonMask = 077;
constexpr std::time_t kLongestStart = 10;  // seconds from making the pid file to writing it, by far

// The pid file of a daemon that runs, gone with it.
class PidFile {
public:
    PidFile() = default;
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;
    ~PidFile() { daemon_pid_file_remove(); }
};

// A daemon that was killed after it had made its pid file and before it had written it leaves an empty one, which would keep every
// later one from starting: it reads like that of a daemon that is just starting.
void RemoveAbandonedPidFile() {
    struct stat file {};
    const bool isEmpty = lstat(Daemon::GetPidFile(), &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 0;
    if (isEmpty && std::time(nullptr) - file.st_mtime > kLongestStart) {
        unlink(Daemon::GetPidFile());
    }
}

int Complain(const std::string& problem, ExitCode code) {
    std::fprintf(stderr, "%s: %s\n", kName, problem.c_str());
    return code;
}

// The daemon is known, by its pid file and to who started it, before it can take signals: those that come earlier wait. A signal is
// unblocked before its handler is set, so that one must be there already when the handlers are set for good.
void HoldSignals() {
    Daemon::InitSignalHandler();
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
}

void TakeSignals() {
    daemon_signal_done();  // a pipe shared with the starter
    Daemon::InitSignalHandler();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

int RunDaemon(const Options& options) {
    FillStandardDescriptors();
    close_range(kFirstInherited, ~0U, 0);  // whatever the caller left open is not the daemon's
    umask(kDaemonMask);
    Daemon::SetName(kName);
    if (!options.pidFile.empty()) {
        Daemon::SetPidFile(options.pidFile.c_str());
    }
    RelaydConf configuration(options.configFile.c_str());
    ApplyLogSettings(configuration);
    if (!configuration.IsValid()) {
        return Complain("the configuration " + options.configFile + " cannot be used; --check-config tells why",
                        kExitConfig);
    }
    RemoveAbandonedPidFile();
    HoldSignals();
    if (!Daemon::Init(!options.foreground)) {
        // From the background nobody hears this: the child has told its starter what to end with.
        return !options.foreground || daemon_pid_file_is_running() >= 0 ? kExitFailed : kExitPidFile;
    }
    const PidFile pidFile;
    if (!options.foreground) {
        ApplyLogSettings(configuration);  // now that there is no terminal: opens the usual log where none is named
    }
    TakeSignals();
    Application(options, configuration).Run();
    return kExitSuccess;
}

int CheckConfig(const Options& options) {
    return CheckConfigFile(options.configFile) ? kExitSuccess : kExitConfig;
}

int RefuseCertificateWork(const Options&) {
    return Complain("this version keeps no certificate", kExitNotSupported);
}

int PrintHelp(const Options&) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitSuccess;
}

int PrintVersion(const Options&) {
    std::puts("ardvrelayd " ARDV_VERSION);
    return kExitSuccess;
}

int ReportUsage(const Options& options) {
    return Complain(options.problem + "; --help tells more", kExitUsage);
}

struct Row {
    Mode mode;
    int (*run)(const Options& options);
};

constexpr Row kModes[] = {
    {Mode::kRun, RunDaemon},  {Mode::kCheckConfig, CheckConfig}, {Mode::kCertificate, RefuseCertificateWork},
    {Mode::kHelp, PrintHelp}, {Mode::kVersion, PrintVersion},    {Mode::kUsageError, ReportUsage},
};

}  // namespace

int RunProgram(const Options& options) {
    const auto* row =
        std::find_if(std::begin(kModes), std::end(kModes), [&](const Row& r) { return r.mode == options.mode; });
    return row->run(options);
}

}  // namespace ardv::daemon
