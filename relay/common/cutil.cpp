// SPDX-License-Identifier: Apache-2.0
#include <relay/common/ardvrelayd.h>

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <system_error>

#include <relay/config/config.h>
#include <relay/config/paths.h>
#include <relay/daemon/log.h>
#include <relay/utils/host_name.h>
#include <relay/utils/json_text.h>

RELAY_LOG_SOURCE("cutil.cpp");

namespace {

using namespace ARDV::Relay;

constexpr std::size_t kMatches = 2;  // the whole and its one group
constexpr const char kLogLevelKey[] = "log_level";
constexpr const char kLogFileKey[] = "log_file";

bool ReadConfiguration(Json::Value& configuration) {
    const bool isRead = RelaydConf::ReadJsonFile(Paths::kMainConfigFile, configuration);
    if (!isRead) {
        RELAY_LOG(LOG_DEBUG, "invalid relayd config, %s", Paths::kMainConfigFile);
    }
    return isRead;
}

// After a damaged file was moved aside none is left. One that is still there and may be read was kept from being read by want of
// memory or by the disk, for now.
bool HasReadableConfiguration() {
    std::error_code unknown;
    return std::filesystem::is_regular_file(Paths::kMainConfigFile, unknown) &&
           access(Paths::kMainConfigFile, R_OK) == 0;
}

bool Offers(const Json::Value& configuration, const std::string& service) {
    const auto* services = JsonText::Member(configuration, "service");
    if (!services || !services->isArray()) {
        return false;
    }
    for (const auto& offered : *services) {
        if (JsonText::StringMember(offered, "id").value_or("") == service) {
            return true;
        }
    }
    return false;
}

int CopyPortalDomain(const std::string& host, char* buffer, std::size_t size) {
    std::smatch match;
    if (!Utils::MatchHostName(host, "^.+\\.(tethra\\.[a-zA-Z0-9]+)$", match)) {
        syslog(LOG_ERR, "%s:%d Failed to parse control domain: %s", kRelayLogSource, __LINE__, host.c_str());
        return -1;
    }
    if (match.size() != kMatches) {
        syslog(LOG_ERR, "%s:%d Number of matches is incorrect: %zu", kRelayLogSource, __LINE__, match.size());
        return -1;
    }
    std::snprintf(buffer, size, "%s", match.str(1).c_str());
    return 0;
}

void ReloadDaemon() {
    Daemon::LibInit();
    Daemon::Hup();  // without a daemon the setting counts from its next start
}

int SaveForDaemon(const Json::Value& configuration) {
    if (!RelaydConf::WriteJsonFile(Paths::kMainConfigFile, configuration)) {
        return -1;
    }
    ReloadDaemon();
    return 0;
}

int StartLog(const char* logFile) {
    Json::Value configuration;
    if (!ReadConfiguration(configuration) || !configuration.isObject()) {
        return -1;
    }
    configuration[kLogLevelKey] = LOG_DEBUG;
    configuration[kLogFileKey] = logFile;
    return SaveForDaemon(configuration);
}

// Deliberately writes an empty configuration in the place of one that cannot be read: what wants the log off wants a file that works. One
// of another kind has nothing to remove; it is written back as it is.
int StopLog() {
    Json::Value configuration;
    if (!ReadConfiguration(configuration) && HasReadableConfiguration()) {
        return -1;
    }
    if (configuration.isNull()) {
        configuration = Json::Value(Json::objectValue);
    }
    if (configuration.isObject()) {
        configuration.removeMember(kLogLevelKey);
        configuration.removeMember(kLogFileKey);
    }
    return SaveForDaemon(configuration);
}

int GetServerId(const char* service, char* buffer, std::size_t size) {
    Json::Value configuration;
    if (!ReadConfiguration(configuration) || !configuration.isObject()) {
        return -1;
    }
    const auto serverId = JsonText::StringMember(configuration, "serverID").value_or("");
    if (serverId.empty()) {
        return 0;
    }
    if (buffer) {
        std::snprintf(buffer, size, "%s", serverId.c_str());
    }
    return !service || Offers(configuration, service) ? 1 : 0;
}

// No exception passes into a program in C.
template <typename Function>
int Guarded(Function function) noexcept {
    try {
        return function();
    } catch (const std::regex_error& error) {
        RELAY_LOG(LOG_ERR, "regex_error caught: %s", error.what());
    } catch (const std::exception& error) {
        RELAY_LOG(LOG_ERR, "exception caught: %s", error.what());
    }
    return -1;
}

}  // namespace

extern "C" int ALIBRelaydLogStart(const char* logFile) {
    return !logFile ? -1 : Guarded([=] { return StartLog(logFile); });
}

extern "C" int ALIBRelaydLogStop(void) {
    return Guarded(StopLog);
}

extern "C" int ALIBRelaydGetServerId(const char* service, char* buffer, size_t size) {
    if (buffer && size != 0) {
        buffer[0] = '\0';
    }
    return Guarded([=] { return GetServerId(service, buffer, size); });
}

extern "C" int ALIBRelaydGetPortalDomain(char* buffer, size_t size) {
    return !buffer ? -1 : Guarded([=] {
        return CopyPortalDomain(RelaydConf(Paths::kMainConfigFile).GetGlobalServer().GetHost(), buffer, size);
    });
}
