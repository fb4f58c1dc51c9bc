// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "doctor_facts.h"
#include "name_lookup.h"
#include "status_words.h"
#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::time_t kEarliest = 1'735'689'600;  // 2025-01-01, before which there was no such program
constexpr auto kPatience = std::chrono::seconds(5);
constexpr const char kUnit[] = "ardvrelayd.service";

constexpr const char* kUnitFolders[] = {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
                                        "/usr/lib/systemd/system", "/lib/systemd/system"};
constexpr const char* kServers[] = {"server_global", "server_control", "server_waitcmd"};

/** The host in a URL whose form has been checked; in brackets for an IPv6 address. */
std::string HostOf(const std::string& url) {
    const auto start = url.find("://");
    if (start == std::string::npos) {
        return "";
    }
    const auto authority = url.substr(start + 3, url.find('/', start + 3) - start - 3);
    if (authority.starts_with('[')) {
        return authority.substr(1, authority.find(']') - 1);
    }
    return authority.substr(0, authority.find(':'));
}

std::vector<std::string> Hosts(const Json::Value& settings) {
    std::vector<std::string> hosts;
    const auto add = [&hosts](const std::string& host) {
        if (!host.empty() && std::find(hosts.begin(), hosts.end(), host) == hosts.end()) {
            hosts.push_back(host);
        }
    };
    for (const char* server : kServers) {
        add(settings[server]["host"].asString());
    }
    if (!settings["server_alias"]["alias"].asString().empty()) {
        add(HostOf(settings["server_alias"]["url"].asString()));
    }
    return hosts;
}

bool IsEnabled(const std::filesystem::path& folder) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const auto extension = entry.path().extension();
        if ((extension == ".wants" || extension == ".requires") &&
            std::filesystem::is_symlink(entry.path() / kUnit, error)) {
            return true;
        }
    }
    return false;
}

/** The unit's file in the first folder that has one. */
std::string UnitFile() {
    for (const char* folder : kUnitFolders) {
        auto file = std::string(folder) + "/" + kUnit;
        if (access(file.c_str(), F_OK) == 0) {
            return file;
        }
    }
    return "";
}

}  // namespace

Diagnosis CheckClock(const Facts& /*facts*/) {
    const auto now = std::time(nullptr);
    if (now < kEarliest) {
        return {"clock", Health::kProblem, "the clock is wrong: it says " + TimeWords(now),
                "set the clock: certificates of servers are not valid at this time"};
    }
    return {"clock", Health::kOk, "plausible", ""};
}

Diagnosis CheckStatusFolder(const Facts& /*facts*/) {
    const std::string folder = kStatusFolder;
    struct stat status = {};
    if (stat(kStatusFolder, &status) != 0 || !S_ISDIR(status.st_mode)) {
        return {"status folder", Health::kProblem, folder + " is no folder", "make it, with mode 1777"};
    }
    struct statvfs space = {};
    if (statvfs(kStatusFolder, &space) == 0 && ((space.f_flag & ST_RDONLY) != 0 || space.f_bavail == 0)) {
        const bool isFull = (space.f_flag & ST_RDONLY) == 0;
        return {"status folder", Health::kProblem, folder + (isFull ? " is full" : " is read-only"),
                isFull ? "make room there" : "mount it with write permission"};
    }
    constexpr mode_t kShared = S_IWOTH | S_ISVTX;
    if ((status.st_mode & kShared) == S_IWOTH) {
        return {"status folder", Health::kWarning, "in " + folder + " everybody may replace anybody's files",
                "'chmod 1777 " + folder + "'"};
    }
    return {"status folder", Health::kOk, folder + " can be used", ""};
}

Diagnosis CheckNames(const Facts& facts) {
    std::string lost;
    const auto hosts = Hosts(facts.settings);
    for (const auto& lookUp : LookUpNames(hosts, kPatience)) {
        if (!lookUp.isResolved) {
            lost += (lost.empty() ? "" : "; ") + Excerpt(lookUp.host) + ": " + lookUp.reason;
        }
    }
    if (!lost.empty()) {
        return {"names", Health::kProblem, "a server's name does not resolve: " + lost,
                "see that the device has a network and a working name server, and that the names are right "
                "('ardvrelayctl config show')"};
    }
    return {"names", Health::kOk, hosts.empty() ? "there are none to be resolved" : "the servers' names resolve", ""};
}

Diagnosis CheckUnit(const Facts& facts) {
    const auto file = UnitFile();
    if (file.empty()) {
        return {"unit", Health::kWarning, std::string("there is no unit ") + kUnit,
                "without one the daemon has to be started by something else"};
    }
    if (!std::any_of(std::begin(kUnitFolders), std::end(kUnitFolders), IsEnabled) && facts.IsWanted()) {
        return {"unit", Health::kWarning, file + " is not enabled: the daemon does not start with the machine",
                "'systemctl enable ardvrelayd'"};
    }
    return {"unit", Health::kOk, file, ""};
}

}  // namespace ardv::ctl
