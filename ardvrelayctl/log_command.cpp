// SPDX-License-Identifier: Apache-2.0
#include "log_command.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

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

// The daemon would go on without a log, and nobody would know.
void CheckPlace(const std::filesystem::path& file) {
    std::error_code unknown;
    const auto folder = file.parent_path();
    if (!std::filesystem::is_directory(folder, unknown)) {
        throw CommandError(kExitCantCreate, "there is no folder " + Printable(folder.string()));
    }
    if (std::filesystem::is_directory(file, unknown) || std::filesystem::is_fifo(file, unknown)) {
        throw CommandError(kExitCantCreate, Printable(file.string()) + " is no file to write to");
    }
}

// The library moves a damaged file aside, and writes one with the log's settings alone where it finds none.
void CheckConfigurationFile(const Session& session) {
    RequireDefaultConfiguration(session);
    LoadConfiguration(kDefaultConfigFile);
    CheckFolder(ConfigurationFile(kDefaultConfigFile));
}

ExitCode Report(const Session& session) {
    const Json::Value settings = AsSaved(LoadConfiguration(kDefaultConfigFile));
    const auto pid = ReadPidFile();
    const bool isRunning = pid && IsDaemon(*pid);
    const auto file = LogFileOf(session);
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["file"] = file;
        report["level"] = settings["log_level"];
        report["running"] = isRunning;
        PrintJson(report);
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
    CheckPlace(file);
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
