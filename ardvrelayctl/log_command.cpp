// SPDX-License-Identifier: Apache-2.0
#include "log_command.h"

#include <filesystem>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <relay/common/ardvrelayd.h>

#include "command_error.h"
#include "daemon_process.h"
#include "edit_lock.h"
#include "effective.h"
#include "log_file.h"
#include "output.h"
#include "text.h"

namespace ardv::ctl {

namespace {

struct LogOptions {
    std::string file;
};

// The library moves a damaged file aside, and writes one with the log's settings alone where it finds none.
void CheckConfigurationFile(const Session& session) {
    RequireDefaultConfiguration(session);
    LoadConfiguration(kDefaultConfigFile);
    CheckFolder(ConfigurationFile(kDefaultConfigFile));
}

// A daemon that starts without a log file keeps none; a running one goes on in its default.
ExitCode Report(const Session& session) {
    const Json::Value settings = AsSaved(LoadConfiguration(kDefaultConfigFile));
    const auto pid = ReadPidFile();
    const bool isRunning = pid && IsDaemon(*pid);
    const auto file = isRunning ? LogFileOf(session) : settings["log_file"].asString();
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["file"] = file;
        report["level"] = settings["log_level"];
        report["running"] = isRunning;
        PrintJson(report);
    } else if (file.empty()) {
        std::cout << "the daemon does not run, and keeps no log once it does\n";
    } else {
        std::cout << "the log goes to " << Printable(file) << ", up to level " << settings["log_level"].asInt()
                  << (isRunning ? "\n" : ", once the daemon runs\n");
    }
    return kExitSuccess;
}

void Finish(int result) {
    if (result != 0) {
        throw CommandError(kExitCantCreate, ConfigurationFile(kDefaultConfigFile).Name() + " could not be written");
    }
}

ExitCode Start(const Session& session, const LogOptions& options) {
    CheckConfigurationFile(session);
    const auto file = std::filesystem::absolute(options.file).lexically_normal().string();
    {
        const EditLock lock(ConfigurationFile(kDefaultConfigFile));
        Finish(ALIBRelaydLogStart(file.c_str()));
    }
    return Report(session);
}

ExitCode Stop(const Session& session) {
    CheckConfigurationFile(session);
    {
        const EditLock lock(ConfigurationFile(kDefaultConfigFile));
        Finish(ALIBRelaydLogStop());
    }
    return Report(session);
}

}  // namespace

void AddLogCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<LogOptions>();
    auto* log = AddGroup(app, "log", "Switch the daemon's debug log on and off");
    auto* start = AddCommand(*log, "start", "Have the daemon log everything, into this file", session);
    AddText(*start, "file", options->file, "The log file", "FILE")->required();
    start->callback([&session, options] { session.exitCode = Start(session, *options); });
    AddCommand(*log, "stop", "Back to the usual log", session)->callback([&session] {
        session.exitCode = Stop(session);
    });
}

}  // namespace ardv::ctl
