// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/firewall_service_list.h"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>

#include "platform/linux/file.h"
#include "platform/linux/file_identity.h"
#include "platform/linux/folder_listing.h"

namespace ARDV::Platform {

namespace {

constexpr const char* kFolder = "/etc/ardv/services.d";
constexpr std::size_t kMaxFiles = 64;
constexpr std::size_t kMaxFileBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxServices = 4096;
constexpr std::size_t kMaxKeptBytes = std::size_t{1024} * 1024;
constexpr Json::Int kMaxPort = 65535;

/// Texts are taken up to a NUL, which is as far as C callers see them.
std::optional<std::string> TextOf(const Json::Value& value) {
    if (!value.isString()) {
        return {};
    }
    std::string text(value.asCString());
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::string> TextMember(const Json::Value& object, std::string_view key) {
    const Json::Value* member = object.find(key.data(), key.data() + key.size());
    return member == nullptr ? std::nullopt : TextOf(*member);
}

std::optional<std::string> PortText(const Json::Value& port) {
    const bool isNumber = port.type() == Json::intValue || port.type() == Json::uintValue;
    if (isNumber && port.isInt() && port.asInt() > 0 && port.asInt() <= kMaxPort) {
        return std::to_string(port.asInt());
    }
    return TextOf(port);
}

std::optional<std::vector<std::string>> PortsMember(const Json::Value& object) {
    constexpr std::string_view kKey = "ports";
    const Json::Value* member = object.find(kKey.data(), kKey.data() + kKey.size());
    if (member == nullptr || !member->isArray()) {
        return {};
    }
    std::vector<std::string> ports;
    for (const Json::Value& port : *member) {
        if (std::optional<std::string> text = PortText(port)) {
            ports.push_back(std::move(*text));
        }
    }
    return ports;
}

FirewallService ServiceOf(const Json::Value& object) {
    return {TextMember(object, "service"), TextMember(object, "section"), TextMember(object, "title"),
            TextMember(object, "display_name"), PortsMember(object)};
}

/// The reader throws where a text is nested too deeply.
bool ParseJson(std::string_view text, Json::Value& value) {
    try {
        return Json::Reader().parse(text.data(), text.data() + text.size(), value, false);
    } catch (const Json::Exception&) {
        return false;
    }
}

const char* View(const std::optional<std::string>& text) {
    return text ? text->c_str() : nullptr;
}

struct KnownFile {
    std::string path;
    FileIdentity identity;
};

/// What was read, and what proves that it is still so.
struct Reading {
    FileIdentity folder;
    std::vector<KnownFile> files;
    std::vector<FirewallService> services;
    std::size_t bytes = 0;
    Failure damage;  ///< why the first file that couldn't be used couldn't
    bool isComplete = true;

    bool IsUseless() const { return damage && services.empty(); }
};

void TakeServices(std::vector<FirewallService>&& services, Reading& reading) {
    for (FirewallService& service : services) {
        if (reading.services.size() < kMaxServices) {
            reading.services.push_back(std::move(service));
        }
    }
}

void NoteDamage(const Error& error, Reading& reading) {
    if (!reading.damage) {
        reading.damage = error;
    }
}

void ReadServiceFile(const std::string& path, Reading& reading) {
    const Result<FileContents> contents = ReadFile(path, kMaxFileBytes);
    if (!contents) {
        reading.isComplete = false;
        return NoteDamage(contents.Reason(), reading);
    }
    reading.files.push_back({path, IdentityOf(contents->status)});
    reading.bytes += contents->text.size();
    auto services = ParseFirewallServices(contents->text);
    if (!services) {
        return NoteDamage(MakeError(ARDV_ERR_BAD_VALUE), reading);
    }
    TakeServices(std::move(*services), reading);
}

Result<Reading> ReadServiceFolder() {
    Reading reading;
    const std::optional<FileIdentity> folder = IdentityAt(kFolder);
    if (!folder) {
        const Error error = ErrnoError();
        reading.isComplete = false;
        return error.code == ARDV_ERR_NOT_FOUND ? Result<Reading>(std::move(reading)) : error;
    }
    reading.folder = *folder;
    const Result<std::set<std::string>> names = ListFolder(kFolder, ".json", kMaxFiles);
    if (!names) {
        return names.Reason();
    }
    for (const std::string& name : *names) {
        ReadServiceFile(std::string(kFolder).append("/").append(name), reading);
    }
    return reading.IsUseless() ? Result<Reading>(*reading.damage) : std::move(reading);
}

/// The list that was read last.
class KeptList {
public:
    std::shared_ptr<const FirewallServiceList> Get() {
        const std::lock_guard lock(mutex_);
        return list_ != nullptr && IsSame() ? list_ : nullptr;
    }

    void Keep(const Reading& reading, std::shared_ptr<const FirewallServiceList> list) {
        const std::lock_guard lock(mutex_);
        folder_ = reading.folder;
        files_ = reading.files;
        list_ = std::move(list);
    }

    void Drop() {
        const std::lock_guard lock(mutex_);
        list_.reset();
        files_.clear();
    }

private:
    bool IsSame() const {
        return folder_ == IdentityAt(kFolder) && std::all_of(files_.begin(), files_.end(), [](const KnownFile& file) {
                   return file.identity == IdentityAt(file.path);
               });
    }

    std::mutex mutex_;
    FileIdentity folder_;
    std::vector<KnownFile> files_;
    std::shared_ptr<const FirewallServiceList> list_;
};

/// Never destroyed: another library may still ask while the process ends.
KeptList& Kept() {
    static auto* const list = new KeptList;
    return *list;
}

bool IsWorthKeeping(const Reading& reading, const ReadMoment& moment) {
    return reading.isComplete && reading.bytes <= kMaxKeptBytes && moment.Proves(reading.folder) &&
           std::all_of(reading.files.begin(), reading.files.end(),
                       [&moment](const KnownFile& file) { return moment.Proves(file.identity); });
}

}  // namespace

std::optional<std::vector<FirewallService>> ParseFirewallServices(std::string_view text) {
    Json::Value root;
    if (!ParseJson(text, root) || !root.isArray()) {
        return {};
    }
    std::vector<FirewallService> services;
    for (const Json::Value& entry : root) {
        if (entry.isObject() && services.size() < kMaxServices) {
            services.push_back(ServiceOf(entry));
        }
    }
    return services;
}

FirewallServiceList::FirewallServiceList(std::vector<FirewallService> services) : services_(std::move(services)) {
    ports_.resize(services_.size());
    views_.reserve(services_.size());
    for (const FirewallService& service : services_) {
        std::vector<const char*>& ports = ports_[views_.size()];
        const std::size_t count = service.ports ? service.ports->size() : 0;
        for (std::size_t at = 0; at < count; ++at) {
            ports.push_back((*service.ports)[at].c_str());
        }
        ports.push_back(nullptr);  // so that an empty list of ports isn't null
        views_.push_back({View(service.service), View(service.section), View(service.title), View(service.displayName),
                          service.ports ? ports.data() : nullptr, static_cast<int>(count)});
    }
}

const ARDV_FW_SERVICE* FirewallServiceList::Find(std::string_view name) const {
    const auto found = std::find_if(views_.begin(), views_.end(), [name](const ARDV_FW_SERVICE& service) {
        return service.service != nullptr && name == service.service;
    });
    return found == views_.end() ? nullptr : &*found;
}

Result<std::shared_ptr<const FirewallServiceList>> ReadFirewallServices() {
    if (std::shared_ptr<const FirewallServiceList> kept = Kept().Get()) {
        return kept;
    }
    const ReadMoment moment;
    Result<Reading> reading = ReadServiceFolder();
    if (!reading) {
        Kept().Drop();
        return reading.Reason();
    }
    auto list = std::make_shared<const FirewallServiceList>(std::move(reading->services));
    if (IsWorthKeeping(*reading, moment)) {
        Kept().Keep(*reading, list);
    } else {
        Kept().Drop();
    }
    return list;
}

}  // namespace ARDV::Platform
