// SPDX-License-Identifier: Apache-2.0
#include "config_file.h"

#include <filesystem>

#include "command_error.h"
#include "config_check.h"
#include "configuration.h"
#include "edit_lock.h"
#include "folder.h"

namespace ardv::ctl {

namespace {

void CheckOutcome(const std::string& path, const Json::Value& settings) {
    bool isValid = false;
    Configured(settings, Services::kLeaveOut, isValid);
    if (isValid) {
        return;
    }
    const auto problem = ValidityFault(settings);
    throw CommandError(kExitConfig, "nothing is written: " + ConfigurationFile(path).Name() + " would not be valid" +
                                        (problem.empty() ? "" : ": " + problem));
}

}  // namespace

void MakeConfigFolder(const std::string& path) {
    // Only there: a folder that the user misspelt must not be made.
    if (path == kDefaultConfigFile) {
        MakeFolder(std::filesystem::path(path).parent_path());
    }
}

bool EditSettings(const std::string& path, const std::function<bool(Json::Value&)>& change) {
    MakeConfigFolder(path);
    const EditLock lock(ConfigurationFile(path));
    Json::Value settings = ReadSettings(path, Comments::kKeep);
    if (!change(settings)) {
        return false;
    }
    CheckOutcome(path, settings);
    Write(ConfigurationFile(path), settings);
    return true;
}

}  // namespace ardv::ctl
