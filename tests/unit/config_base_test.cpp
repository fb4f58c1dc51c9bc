// SPDX-License-Identifier: Apache-2.0
#include <relay/config/config_base.h>

#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>

#include <relay/config/config.h>

#include "support/device_test.h"
#include "support/random_json.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;

std::string gCalled;

/** Says which of its virtual operations was called. */
template <typename Conf>
class Probe : public Conf {
public:
    using Conf::Conf;
    bool Overwrite(const Json::Value&) override { return Note("Overwrite"); }
    bool IsValid() const override { return Note("IsValid"); }
    bool Write(Json::Value&, bool) const override { return Note("Write"); }
    bool WriteConfig() override { return Note("WriteConfig"); }
    ~Probe() override { Note("destructor"); }

private:
    static bool Note(const char* operation) {
        gCalled = operation;
        return true;
    }
};

template <typename Conf>
std::unique_ptr<Conf> Make() {
    if constexpr (std::is_same_v<Conf, ServerConf>) {
        return std::make_unique<Conf>(nullptr, nullptr);
    } else if constexpr (std::is_same_v<Conf, RelaydConf> || std::is_same_v<Conf, ServiceConf>) {
        return std::make_unique<Conf>(static_cast<const char*>(nullptr));
    } else if constexpr (std::is_same_v<Conf, AuthConf> || std::is_same_v<Conf, NetworkConf>) {
        return std::make_unique<Conf>(false);
    } else {
        return std::make_unique<Conf>();
    }
}

template <typename Conf>
Probe<Conf>* MakeProbeAt(void* place) {
    if constexpr (std::is_same_v<Conf, ServerConf>) {
        return new (place) Probe<Conf>(nullptr, nullptr);
    } else if constexpr (std::is_same_v<Conf, RelaydConf> || std::is_same_v<Conf, ServiceConf>) {
        return new (place) Probe<Conf>(static_cast<const char*>(nullptr));
    } else if constexpr (std::is_same_v<Conf, AuthConf> || std::is_same_v<Conf, NetworkConf>) {
        return new (place) Probe<Conf>(false);
    } else {
        return new (place) Probe<Conf>();
    }
}

/** Calls the operation in a slot of an object's virtual table, as a caller built against another release does. */
template <typename... Arguments>
std::string CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    void** table = nullptr;
    std::memcpy(&table, object, sizeof table);
    void (*operation)(void*, Arguments...) = nullptr;
    std::memcpy(&operation, &table[slot], sizeof operation);
    gCalled.clear();
    operation(object, arguments...);
    return gCalled;
}

/** JSON types of what a class writes in full. */
using Schema = std::map<std::string, Json::ValueType>;

const Schema& SchemaOf(const ServerConf&) {
    static const Schema schema = {{"host", Json::stringValue},
                                  {"ip", Json::stringValue},
                                  {"protocol", Json::stringValue},
                                  {"port", Json::intValue},
                                  {"page", Json::stringValue}};
    return schema;
}

const Schema& SchemaOf(const AuthConf&) {
    static const Schema schema = {{"serial", Json::stringValue}, {"mac", Json::stringValue},
                                  {"token", Json::stringValue},  {"timezone", Json::stringValue},
                                  {"key", Json::stringValue},    {"model", Json::stringValue}};
    return schema;
}

const Schema& SchemaOf(const KovaConf&) {
    static const Schema schema = {{"account", Json::stringValue}, {"host", Json::stringValue}};
    return schema;
}

const Schema& SchemaOf(const SwitchConf&) {
    static const Schema schema = {{"enabled", Json::booleanValue}};
    return schema;
}

const Schema& SchemaOf(const AliasConf&) {
    static const Schema schema = {
        {"alias", Json::stringValue}, {"url", Json::stringValue}, {"poll_seconds", Json::intValue}};
    return schema;
}

const Schema& SchemaOf(const ServiceConf&) {
    static const Schema schema = {
        {"id", Json::stringValue}, {"name", Json::stringValue}, {"port", Json::intValue}, {"ext_port", Json::intValue}};
    return schema;
}

const Schema& SchemaOf(const InterfaceConf&) {
    static const Schema schema = {{"name", Json::stringValue},
                                  {"ip", Json::stringValue},
                                  {"mask", Json::stringValue},
                                  {"ipv6", Json::arrayValue}};
    return schema;
}

const Schema& SchemaOf(const NetworkConf&) {
    static const Schema schema = {{"ddns", Json::stringValue},     {"gateway", Json::stringValue},
                                  {"mode", Json::stringValue},     {"fqdn", Json::stringValue},
                                  {"interface", Json::arrayValue}, {"ipv6_tunnel", Json::arrayValue}};
    return schema;
}

const Schema& SchemaOf(const RelaydConf&) {
    static const Schema schema = {{"server_global", Json::objectValue},
                                  {"server_control", Json::objectValue},
                                  {"server_waitcmd", Json::objectValue},
                                  {"server_alias", Json::objectValue},
                                  {"support_channel", Json::objectValue},
                                  {"server_smartdns", Json::objectValue},
                                  {"tethra", Json::objectValue},
                                  {"server_kova", Json::objectValue},
                                  {"serverID", Json::stringValue},
                                  {"service", Json::arrayValue},
                                  {"log_level", Json::intValue},
                                  {"log_file", Json::stringValue},
                                  {"disable_holepunch", Json::booleanValue},
                                  {"enable", Json::booleanValue},
                                  {"debug", Json::booleanValue},
                                  {"pid", Json::intValue},
                                  {"network", Json::objectValue}};
    return schema;
}

std::vector<std::string> KeysOf(const Schema& schema) {
    std::vector<std::string> keys;
    for (const auto& [key, type] : schema) {
        keys.push_back(key);
    }
    for (const char* nested : {"host", "port", "enabled", "alias", "poll_seconds", "id", "name", "mask"}) {
        keys.emplace_back(nested);
    }
    return keys;
}

template <typename Conf>
class EveryConf : public DeviceTest {};

using Confs = testing::Types<ServerConf, ServiceConf, InterfaceConf, NetworkConf, AuthConf, KovaConf,
                             SupportChannelConf, SmartDNSConf, AliasConf, RelaydConf>;
TYPED_TEST_SUITE(EveryConf, Confs);

TYPED_TEST(EveryConf, HasItsVirtualOperationsInTheirSlots) {
    alignas(Probe<TypeParam>) std::byte place[sizeof(Probe<TypeParam>)];
    auto* probe = MakeProbeAt<TypeParam>(place);
    Json::Value value;
    EXPECT_EQ((CallSlot<const Json::Value*>(probe, 0, &value)), "Overwrite");
    EXPECT_EQ((CallSlot<>(probe, 1)), "IsValid");
    EXPECT_EQ((CallSlot<Json::Value*, bool>(probe, 2, &value, true)), "Write");
    EXPECT_EQ((CallSlot<>(probe, 3)), "WriteConfig");
    EXPECT_EQ((CallSlot<>(probe, 4)), "destructor");
}

TYPED_TEST(EveryConf, StaysSaneWhateverJsonItMeets) {
    const CapturedLog log(0);
    const auto conf = Make<TypeParam>();
    const auto& schema = SchemaOf(*conf);
    RandomJson random(7, KeysOf(schema));
    for (int i = 0; i < 1000; ++i) {
        const auto input = random.Value(4);
        auto target = random.Value(3);
        bool isTaken = false;
        ASSERT_NO_THROW(isTaken = conf->Overwrite(input));
        EXPECT_EQ(isTaken, input.isObject() || (!std::is_same_v<TypeParam, RelaydConf>));
        ASSERT_NO_THROW(conf->IsValid());
        ASSERT_NO_THROW(EXPECT_TRUE(conf->Write(target, random.Number(2) == 0)));
        ASSERT_TRUE(target.isObject());
        Json::Value fresh;
        ASSERT_TRUE(conf->Write(fresh, true));
        for (const auto& key : fresh.getMemberNames()) {
            ASSERT_TRUE(schema.contains(key)) << key;
            EXPECT_EQ(fresh[key].type(), schema.at(key)) << key;
        }
    }
}

TYPED_TEST(EveryConf, KeepsTheOtherMembersOfTheValueItWritesInto) {
    const auto conf = Make<TypeParam>();
    for (const bool full : {false, true}) {
        auto value = JsonOf(R"({"person":{"note":[1]}})");
        EXPECT_TRUE(conf->Write(value, full));
        EXPECT_EQ(value["person"], JsonOf(R"({"note":[1]})"));
        EXPECT_GT(value.size(), 1U);
    }
}

TYPED_TEST(EveryConf, WritesTheSameIntoNullAndIntoWhatIsNoObject) {
    const auto conf = Make<TypeParam>();
    for (const bool full : {false, true}) {
        Json::Value expected;
        conf->Write(expected, full);
        for (const char* text : {"[1,2]", "\"text\"", "5", "true", "{}"}) {
            auto value = JsonOf(text);
            EXPECT_TRUE(conf->Write(value, full));
            EXPECT_EQ(value, expected) << text;
        }
    }
}

TYPED_TEST(EveryConf, ReadsBackWhatItWrote) {
    const CapturedLog log(0);
    const auto conf = Make<TypeParam>();
    RandomJson random(11, KeysOf(SchemaOf(*conf)));
    for (int i = 0; i < 200; ++i) {
        conf->Overwrite(random.Object(2));
        const auto copy = Make<TypeParam>();
        Json::Value written;
        conf->Write(written, !std::is_same_v<TypeParam, AliasConf>);
        copy->Overwrite(written);
        EXPECT_EQ(Written(*copy, false), Written(*conf, false));
    }
}

TYPED_TEST(EveryConf, PrintsItsFullFormAsOneLine) {
    const auto conf = Make<TypeParam>();
    std::ostringstream stream;
    stream << "before ";
    EXPECT_EQ(&(stream << static_cast<const Config&>(*conf)), &stream);
    EXPECT_EQ(stream.str(), "before " + Written(*conf, true));
    EXPECT_EQ(stream.str().find('\n'), stream.str().size() - 1);
}

class Fileless : public Config {
public:
    bool Overwrite(const Json::Value&) override { return false; }
    bool IsValid() const override { return false; }
    bool Write(Json::Value& value, bool full) const override {
        value["full"] = full;
        return false;
    }
    virtual ~Fileless() = default;
};

TEST(ConfigBase, HasNoFileAndSavesNothing) {
    EXPECT_TRUE(Fileless().WriteConfig());
    EXPECT_FALSE(std::has_virtual_destructor_v<Config>);
    EXPECT_EQ(sizeof(Config), sizeof(void*)) << "no data members";
}

TEST(ConfigBase, IsPrintedWithTheFullFlagWhateverWriteReturns) {
    std::ostringstream stream;
    stream << Fileless();
    EXPECT_EQ(stream.str(), "{\"full\":true}\n");
}

template <typename Conf>
class FilelessConf : public DeviceTest {};

using FilelessConfs = testing::Types<ServerConf, ServiceConf, InterfaceConf, NetworkConf, AuthConf, KovaConf,
                                     SupportChannelConf, SmartDNSConf>;
TYPED_TEST_SUITE(FilelessConf, FilelessConfs);

TYPED_TEST(FilelessConf, SavesNothing) {
    EXPECT_TRUE(Make<TypeParam>()->WriteConfig());
    EXPECT_TRUE(std::filesystem::is_empty(kConfigFolder));
}

TYPED_TEST(FilelessConf, IgnoresAValueThatIsNoObject) {
    const auto conf = Make<TypeParam>();
    const auto before = Written(*conf, true);
    for (const char* text : {"null", "[{\"host\":\"x\",\"enabled\":true}]", "\"text\"", "5", "true"}) {
        EXPECT_TRUE(conf->Overwrite(JsonOf(text))) << text;
        EXPECT_EQ(Written(*conf, true), before) << text;
    }
}

}  // namespace

}  // namespace ARDV::Relay
