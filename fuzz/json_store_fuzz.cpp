// SPDX-License-Identifier: Apache-2.0
// Any bytes as a JSON file: what can be read is written so that it reads the same again, and every part of the
// configuration takes it without harm.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <ardv/cloud_identity.h>
#include <ardv/key_value_file.h>

#include <relay/alias/alias_conf.h>
#include <relay/config/auth_conf.h>
#include <relay/config/config.h>
#include <relay/config/kova_conf.h>
#include <relay/config/server_conf.h>
#include <relay/config/smartdns_conf.h>
#include <relay/config/support_channel_conf.h>
#include <relay/daemon/daemon.h>
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
    RelaydConf conf(nullptr);
    Require(conf.Overwrite(value) == value.isObject());
    (void)conf.IsValid();
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Daemon::_logLevel = -1;
    Json::Value value = "as it was";
    if (!JsonText::Parse({reinterpret_cast<const char*>(data), size}, value)) {
        Require(value == "as it was");
        return 0;
    }
    TestRoundTrip(value);
    TestConfiguration(value);
    return 0;
}
