// SPDX-License-Identifier: Apache-2.0
// Any bytes as a JSON file: what can be read is written so that it reads the same again, every part of the configuration
// takes it without harm, and what cannot be read is moved aside untouched.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <ardv/cloud_identity.h>
#include <ardv/firewall_service.h>
#include <ardv/key_value_file.h>
#include <ardv/network.h>
#include <ardv/port_mapping.h>

#include <relay/alias/alias_conf.h>
#include <relay/config/auth_conf.h>
#include <relay/config/config.h>
#include <relay/config/kova_conf.h>
#include <relay/config/misc_conf.h>
#include <relay/config/network_conf.h>
#include <relay/config/server_conf.h>
#include <relay/config/service_conf.h>
#include <relay/config/smartdns_conf.h>
#include <relay/config/support_channel_conf.h>
#include <relay/daemon/daemon.h>
#include <relay/service/service_permission.h>
#include <relay/utils/json_text.h>

// A device without files, so that an input alone decides what happens.
int ALIBCFileGetKeyValue(const char*, const char*, char* value, size_t size, int) {
    if (size > 0) {
        *value = '\0';
    }
    return 0;
}

int ALIBCFileCheckKeyValue(const char*, const char*, const char*, int) {
    return 0;
}

int ARDVCloudServiceHstokenGenerateToken(const char*, char* token, size_t size) {
    if (size > 0) {
        *token = '\0';
    }
    return -1;
}

// It offers secure shell and nothing else, has no IPv6 and no router.
struct _tag_ARDV_FW_SERVICE_LIST {};

namespace {

_tag_ARDV_FW_SERVICE_LIST gServices;

}  // namespace

int ARDVFwServiceEnum(ARDV_FW_SERVICE_LIST** list) {
    *list = &gServices;
    return 1;
}

const ARDV_FW_SERVICE* ARDVFWServiceFind(const ARDV_FW_SERVICE_LIST*, const char* name) {
    static const char* const kPorts[] = {"22"};
    static const ARDV_FW_SERVICE kService = {"ssh", nullptr, nullptr, "Secure shell", kPorts, 1};
    return std::string_view(name) == kService.service ? &kService : nullptr;
}

void ARDVFWServiceFree(ARDV_FW_SERVICE_LIST*) {}

int ALibArdvPortMapGetRouterPort(int, int* routerPort) {
    *routerPort = 0;
    return -1;
}

int ARDVLnxV6IPGet(const char*, ARDV_IPV6_ADDRESS*, int) {
    return 0;
}

namespace {

using namespace ARDV::Relay;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// The JSON library's writer spells bytes that are no UTF-8 as U+FFFD, and cuts a name at a NUL.
bool IsPlain(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char byte) { return byte > 0; });
}

bool IsPlain(const Json::Value& value) {
    if (value.isString()) {
        return IsPlain(value.asString());
    }
    for (auto member = value.begin(); member != value.end(); ++member) {
        if ((value.isObject() && !IsPlain(member.name())) || !IsPlain(*member)) {
            return false;
        }
    }
    return true;
}

Json::Value Reread(const std::string& text) {
    Json::Value value;
    Require(JsonText::Parse(text, value));
    return value;
}

void TestRoundTrip(const Json::Value& value) {
    const auto styled = Reread(JsonText::Styled(value));
    const auto compact = Reread(JsonText::Compact(value));
    if (IsPlain(value)) {
        Require(styled == value);
        Require(compact == value);
    }
    Require(Reread(JsonText::Styled(styled)) == styled);
    Require(Reread(JsonText::Compact(compact)) == compact);
}

// What a part wrote it takes again, and then writes the same.
template <typename Conf>
void TestPart(Conf part, Conf other, const Json::Value& value) {
    part.Overwrite(value);
    (void)part.IsValid();
    for (const bool full : {false, true}) {
        Json::Value onTop = value;
        part.Write(onTop, full);
        Require(onTop.isObject());
    }
    Json::Value written;
    part.Write(written, true);
    other.Overwrite(written);
    Json::Value again;
    other.Write(again, true);
    Require(again == written);
}

void TestConfiguration(const Json::Value& value) {
    TestPart(ServerConf(nullptr, nullptr), ServerConf(nullptr, nullptr), value);
    TestPart(KovaConf(), KovaConf(), value);
    TestPart(SmartDNSConf(), SmartDNSConf(), value);
    TestPart(SupportChannelConf(), SupportChannelConf(), value);
    TestPart(AliasConf(), AliasConf(), value);
    TestPart(ServiceConf(nullptr), ServiceConf(nullptr), value);
    TestPart(InterfaceConf(), InterfaceConf(), value);
    TestPart(NetworkConf(false), NetworkConf(false), value);
    TestPart(MiscConf(nullptr, false), MiscConf(nullptr, false), value);
    const auto mask = ServicePermission::JsonToMask(value);
    Require(ServicePermission::JsonToMask(ServicePermission::MaskToJson(mask)) == mask);
    RelaydConf conf(nullptr);
    Require(conf.Overwrite(value) == value.isObject());
    (void)conf.IsValid();
    for (const auto& service : conf.GetServices()) {
        Require(service.IsValid() && conf.GetServiceById(service.GetId()) == &service);
    }
    for (const bool full : {false, true}) {
        Json::Value onTop = value;
        conf.Write(onTop, full);
        Require(onTop.isObject());
    }
    AuthConf auth(false);
    auth.Overwrite(value);
    (void)auth.IsValid();
    Json::Value written = value;
    auth.Write(written, true);
    Require(written.isObject());
}

// A folder of this process's own, gone with it.
class Folder {
public:
    Folder() : path_((std::filesystem::temp_directory_path() / "json-store-fuzz-XXXXXX").string()) {
        Require(mkdtemp(path_.data()));
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string File(const std::string& name) const { return path_ + "/" + name; }
    bool HoldsOnly(const std::string& path) const {
        const std::filesystem::directory_iterator entries(path_);
        return std::distance(begin(entries), end(entries)) == 1 && std::filesystem::exists(path);
    }

private:
    std::string path_;
};

std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    Require(!file.fail());
}

void TestSave(const Folder& folder, const std::string& path, const Json::Value& value) {
    const auto text = JsonText::Styled(value);
    const auto before = ReadBytes(path);
    const bool isWritten = RelaydConf::WriteJsonFile(path, value);
    Require(isWritten == (text.size() <= kMaxJsonFileSize));
    Require(ReadBytes(path) == (isWritten ? text : before));
    Require(folder.HoldsOnly(path));
    Json::Value again;
    Require(RelaydConf::ReadJsonFile(path, again));
    Require(!isWritten || again == Reread(text));
}

void TestFile(std::string_view bytes) {
    static const Folder folder;
    const auto path = folder.File("file.json");
    WriteBytes(path, bytes);
    Json::Value expected;
    const bool isJson = bytes.size() <= kMaxJsonFileSize && JsonText::Parse(bytes, expected);
    Json::Value value = "as it was";
    Require(RelaydConf::ReadJsonFile(path, value) == isJson);
    Require(value == expected);
    const auto left = isJson ? path : path + ".bad";
    Require(folder.HoldsOnly(left));
    Require(ReadBytes(left) == bytes);
    if (isJson) {
        TestSave(folder, path, value);
    }
    std::filesystem::remove(left);
}

// Files take their time, so only every 16th input becomes one. Its bytes decide, so that an input that found a fault finds
// it again.
bool IsForAFile(std::string_view bytes) {
    std::uint32_t hash = 2166136261U;  // FNV-1a
    for (const char byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
    }
    return (hash >> 28U) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Daemon::_logLevel = -1;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (IsForAFile(bytes)) {
        TestFile(bytes);
    }
    Json::Value value = "as it was";
    if (!JsonText::Parse(bytes, value)) {
        Require(value == "as it was");
        return 0;
    }
    TestRoundTrip(value);
    TestConfiguration(value);
    return 0;
}
