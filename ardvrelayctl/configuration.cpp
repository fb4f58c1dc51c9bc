// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"

#include <cerrno>
#include <cstring>

#include "command_error.h"

namespace ardv::ctl {

using ARDV::Relay::RelaydConf;

namespace {

CommandError Unusable(const std::string& path, const std::string& reason) {
    return {kExitConfig, ConfigurationFile(path).Name() + " is damaged or not valid" + reason};
}

Json::Value ParseObject(const std::string& path, const std::string& text, Comments comments) {
    Json::Value value;
    if (Parse(text, value, comments) || !value.isObject()) {
        throw Unusable(path, ": it is not a JSON object ('ardvrelayctl config check' tells more)");
    }
    // An edit would lose it.
    if (comments == Comments::kKeep && TextBehind(text, value)) {
        throw Unusable(path, ": there is more text behind its object ('ardvrelayctl config check' tells where)");
    }
    return value;
}

RelaydConf Checked(const std::string& path, const Json::Value& settings, Services services) {
    bool isValid = false;
    auto conf = Configured(settings, services, isValid);
    if (!isValid) {
        throw Unusable(path, " ('ardvrelayctl config check' tells more)");
    }
    return conf;
}

}  // namespace

RelaydConf LoadConfiguration(const std::string& path) {
    const auto text = ReadText(ConfigurationFile(path));
    if (!text) {
        throw CommandError(kExitConfig, "cannot read " + ConfigurationFile(path).Name() + ": " + std::strerror(ENOENT));
    }
    return Checked(path, ParseObject(path, *text, Comments::kDrop), Services::kLeaveOut);
}

Json::Value ReadSettings(const std::string& path, Comments comments) {
    const auto text = ReadText(ConfigurationFile(path));
    return text ? ParseObject(path, *text, comments) : Json::Value(Json::objectValue);
}

RelaydConf Configured(const Json::Value& settings, Services services, bool& isValid) {
    RelaydConf conf(nullptr);
    Json::Value taken = settings;
    if (services == Services::kLeaveOut && taken.isObject()) {
        taken.removeMember("service");
    }
    isValid = conf.Overwrite(taken) && conf.IsValid();
    return conf;
}

RelaydConf LoadOrDefault(const std::string& path, Services services) {
    return Checked(path, ReadSettings(path), services);
}

}  // namespace ardv::ctl
