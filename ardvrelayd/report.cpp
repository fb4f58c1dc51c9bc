// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <curl/curl.h>
#include <event2/event.h>
#include <fcntl.h>
#include <json/version.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>

#include "descriptor.h"
#include "json_member.h"
#include "log.h"

DAEMON_LOG_SOURCE("report.cpp");

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

// What a report shows of the configuration; of an object or a list of them, the members named.
struct ShownSetting {
    const char* key;
    std::initializer_list<const char*> members;
};

const ShownSetting kShownSettings[] = {
    {"server_global", {"protocol", "host", "ip", "port"}},
    {"server_control", {"protocol", "host", "ip", "port"}},
    {"server_waitcmd", {"protocol", "host", "ip", "port"}},
    {"server_alias", {"alias", "poll_seconds"}},
    {"server_smartdns", {"enabled"}},
    {"support_channel", {"enabled"}},
    {"tethra", {"enabled"}},
    {"service", {"id", "port", "ext_port"}},
    {"serverID", {}},
    {"log_level", {}},
    {"log_file", {}},
    {"disable_holepunch", {}},
};

constexpr const char kUserInfoMark = '@';

// Scheme, host and port: a path or a query may hold anything, and so may what stands before a "@".
std::string ServerOf(const std::string& url) {
    const auto scheme = url.find("://");
    const auto host = scheme == std::string::npos ? 0 : scheme + 3;
    const auto server = url.substr(0, url.find_first_of("/?#", host));
    const auto mark = server.rfind(kUserInfoMark);
    return mark == std::string::npos ? server : server.substr(0, host) + server.substr(mark + 1);
}

// Settings in which a person may write more than the name of a server.
bool IsServer(std::string_view key) {
    return key == "host" || key == "ip";
}

Json::Value ShownMember(const char* key, const Json::Value& value) {
    if (value.isObject() || value.isArray()) {
        return Json::Value();
    }
    return value.isString() && IsServer(key) ? Json::Value(ServerOf(value.asString())) : value;
}

Json::Value ShownMembers(const Json::Value& object, const ShownSetting& setting) {
    Json::Value shown(Json::objectValue);
    for (const auto* key : setting.members) {
        if (const auto* member = Member(object, key)) {
            shown[key] = ShownMember(key, *member);
        }
    }
    return shown;
}

Json::Value Shown(const Json::Value& value, const ShownSetting& setting) {
    if (!value.isArray()) {
        return value.isObject() ? ShownMembers(value, setting) : value;
    }
    Json::Value list(Json::arrayValue);
    for (const auto& element : value) {
        list.append(ShownMembers(element, setting));
    }
    return list;
}

bool IsOurs(int fd) {
    struct stat facts {};
    return fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_nlink == 1 &&
           (facts.st_uid == geteuid() || facts.st_uid == 0);
}

bool WriteAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const auto count = write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

std::string OneLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value) + "\n";
}

}  // namespace

Json::Value DescribeConfiguration(const RelaydConf& configuration) {
    Json::Value all;
    configuration.Write(all, true);
    Json::Value shown(Json::objectValue);
    for (const auto& setting : kShownSettings) {
        if (const auto* value = Member(all, setting.key)) {
            shown[setting.key] = Shown(*value, setting);
        }
    }
    shown["server_alias"]["url"] = ServerOf(configuration.GetAliasConf().GetUrl());
    return shown;
}

Json::Value DescribeTransfers(const TransferEngine& engine) {
    Json::Value list(Json::arrayValue);
    for (const auto& transfer : engine.Transfers()) {
        Json::Value row;
        row["purpose"] = transfer.purpose;
        row["server"] = ServerOf(transfer.url);
        row["milliseconds"] = Number(transfer.age.count());
        list.append(row);
    }
    return list;
}

Json::Value DescribeTimers(const EventLoop& loop) {
    Json::Value list(Json::arrayValue);
    for (const auto& timer : loop.Timers()) {
        if (timer.remaining) {
            Json::Value row;
            row["name"] = timer.name;
            row["due_in_milliseconds"] = Number(timer.remaining->count());
            list.append(row);
        }
    }
    return list;
}

Json::Value DescribeVersions() {
    Json::Value versions;
    versions["ardvrelayd"] = ARDV_VERSION;
    versions["libcurl"] = curl_version();
    versions["libevent"] = event_get_version();
    versions["jsoncpp"] = JSONCPP_VERSION_STRING;
    return versions;
}

bool WriteReport(const Json::Value& report) {
    const std::string path = Daemon::GetReportFile(getpid());
    const Descriptor file(open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.Get() < 0 || !IsOurs(file.Get())) {
        DAEMON_LOG(LOG_NOTICE, "a report was asked for, and nobody waits for it at %s", path.c_str());
        return false;
    }
    if (ftruncate(file.Get(), 0) != 0 || !WriteAll(file.Get(), OneLine(report))) {
        DAEMON_LOG(LOG_NOTICE, "the report cannot be written: %s", std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace ardv::daemon
