// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <libdaemon/dpid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include <relay/config/config.h>
#include <relay/daemon/daemon.h>

#include "application.h"
#include "check_config.h"
#include "exit_code.h"

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

constexpr const char* kName = "ardvrelayd";
constexpr unsigned kFirstInherited = 3;
constexpr mode_t kDaemonMask = 077;

// The pid file of a daemon that runs, gone with it.
class PidFile {
public:
    PidFile() = default;
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;
    ~PidFile() { daemon_pid_file_remove(); }
};

int Complain(const std::string& problem, ExitCode code) {
    std::fprintf(stderr, "%s: %s\n", kName, problem.c_str());
    return code;
}

int RunDaemon(const Options& options) {
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
    if (!Daemon::Init(!options.foreground)) {
        const bool hasTriedPidFile = options.foreground || Daemon::IsForked();
        return hasTriedPidFile && daemon_pid_file_is_running() < 0 ? kExitPidFile : kExitFailed;
    }
    const PidFile pidFile;
    if (!options.foreground) {
        ApplyLogSettings(configuration);  // now that there is no terminal: opens the usual log where none is named
    }
    Daemon::InitSignalHandler();
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
