// SPDX-License-Identifier: Apache-2.0
#include <relay/config/network_conf.h>

#include <sstream>
#include <string>
#include <type_traits>

#include "support/device_test.h"
#include "support/network_faults.h"
#include "support/platform_faults.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char kEmptyNetwork[] =
    "{\"ddns\":\"\",\"fqdn\":\"\",\"gateway\":\"\",\"interface\":[],\"ipv6_tunnel\":[],\"mode\":\"\"}\n";

/** On a machine whose interfaces have no IPv6 addresses. */
class NetworkTest : public DeviceTest {
protected:
    NetworkTest() {
        faults_.ipv6 = [](const std::string&) { return std::vector<std::string>(); };
    }

    static Json::Value Value(const Config& conf) {
        Json::Value value;
        EXPECT_TRUE(conf.Write(value, true));
        return value;
    }

    NetworkFaults faults_;
};

using InterfaceTest = NetworkTest;

TEST_F(InterfaceTest, StartsWithoutAnything) {
    EXPECT_EQ(Written(InterfaceConf(), true), "{\"ip\":\"\",\"ipv6\":[],\"mask\":\"\",\"name\":\"\"}\n");
    EXPECT_FALSE(InterfaceConf().IsValid());
}

TEST_F(InterfaceTest, IsMadeOfThreeTextsOrOfThePlatformsRecord) {
    const InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    EXPECT_EQ(Written(interface, true),
              "{\"ip\":\"192.0.2.7\",\"ipv6\":[],\"mask\":\"255.255.255.0\",\"name\":\"eth0\"}\n");
    EXPECT_TRUE(InterfaceConf(MakeInterface("eth0", 2, "192.0.2.7", "255.255.255.0")) == interface);
    EXPECT_TRUE(interface.IsValid());
}

TEST_F(InterfaceTest, IsWrittenTheSameInBothForms) {
    const InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    EXPECT_EQ(Written(interface, false), Written(interface, true));
}

TEST_F(InterfaceTest, MergeChangesOnlyWhatItNames) {
    InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    EXPECT_TRUE(interface.Overwrite(JsonOf(R"({"ip":"192.0.2.8","ipv6":[{"address":"::1"}]})")));
    EXPECT_TRUE(interface == InterfaceConf("eth0", "192.0.2.8", "255.255.255.0"));
    EXPECT_TRUE(interface.Overwrite(JsonOf(R"({"name":"lan","mask":""})")));
    EXPECT_TRUE(interface == InterfaceConf("lan", "192.0.2.8", ""));
}

TEST_F(InterfaceTest, MembersOfAnotherTypeLeaveTheirSettings) {
    InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    for (const char* text : {R"({"name":1,"ip":null,"mask":24})", R"({"name":["a"],"ip":{},"mask":true})",
                             R"([{"name":"a"}])", "null", "\"eth1\"", "5"}) {
        EXPECT_TRUE(interface.Overwrite(JsonOf(text))) << text;
        EXPECT_TRUE(interface == InterfaceConf("eth0", "192.0.2.7", "255.255.255.0")) << text;
    }
}

struct InterfaceCase {
    const char* test;
    const char* name;
    const char* ip;
    const char* mask;
    bool isValid;
};

class InterfaceValidity : public InterfaceTest, public testing::WithParamInterface<InterfaceCase> {};

TEST_P(InterfaceValidity, NeedsANameAndAnAddressWithItsMask) {
    const InterfaceConf interface(GetParam().name, GetParam().ip, GetParam().mask);
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_EQ(interface.IsValid(), GetParam().isValid); }), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Values, InterfaceValidity,
                         testing::Values(InterfaceCase{"All", "eth0", "192.0.2.7", "255.255.255.0", true},
                                         InterfaceCase{"PointToPoint", "ppp0", "192.0.2.7", "255.255.255.255", true},
                                         InterfaceCase{"NoName", "", "192.0.2.7", "255.255.255.0", false},
                                         InterfaceCase{"NoAddress", "eth0", "", "255.255.255.0", false},
                                         InterfaceCase{"NoMask", "eth0", "192.0.2.7", "", false},
                                         InterfaceCase{"MaskWithAHole", "eth0", "192.0.2.7", "255.0.255.0", false},
                                         InterfaceCase{"MaskOfNothing", "eth0", "192.0.2.7", "0.0.0.0", false},
                                         InterfaceCase{"NoSuchAddress", "eth0", "192.0.2.700", "255.255.255.0", false}),
                         [](const auto& value) { return value.param.test; });

TEST_F(InterfaceTest, IsNotValidWithAnEmptyTextWhateverThePlatformSaysOfTheMask) {
    faults_.acceptsAnyMask = true;
    EXPECT_TRUE(InterfaceConf("eth0", "192.0.2.7", "255.0.255.0").IsValid());
    EXPECT_FALSE(InterfaceConf("", "192.0.2.7", "255.255.255.0").IsValid());
    EXPECT_FALSE(InterfaceConf("eth0", "", "255.255.255.0").IsValid());
    EXPECT_FALSE(InterfaceConf("eth0", "192.0.2.7", "").IsValid());
}

TEST_F(InterfaceTest, IsNotValidWhereItsIPv6AddressesCannotBeAskedFor) {
    const InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    EXPECT_TRUE(interface.IsValid()) << "none is an answer";
    faults_.ipv6 = [](const std::string& name) {
        return name == "eth0" ? std::nullopt : std::optional<std::vector<std::string>>(std::in_place);
    };
    EXPECT_FALSE(interface.IsValid());
    EXPECT_EQ(Value(interface)["ipv6"], Json::Value(Json::arrayValue));
    EXPECT_TRUE(InterfaceConf("eth1", "192.0.2.7", "255.255.255.0").IsValid());
}

TEST_F(InterfaceTest, HasUpToThirtyTwoIPv6Addresses) {
    faults_.ipv6 = [](const std::string& name) {
        return std::vector<std::string>(name == "eth0" ? 32 : 33, "2001:db8::1");
    };
    EXPECT_EQ(Value(InterfaceConf("eth0", "", ""))["ipv6"].size(), 32U);
    EXPECT_EQ(Value(InterfaceConf("eth1", "", ""))["ipv6"].size(), 32U) << "of a platform that counts more";
    EXPECT_THAT(faults_.calls, ElementsAre("V6IPGet eth0 32", "V6IPGet eth1 32"));
}

TEST_F(InterfaceTest, IPv6AddressesAreWrittenInTheirOrderWithPrefixScopeAndType) {
    faults_.ipv6 = [](const std::string&) { return std::vector<std::string>{"2001:db8::7", "fe80::7"}; };
    EXPECT_EQ(Value(InterfaceConf("eth0", "", ""))["ipv6"],
              JsonOf(R"([{"address":"2001:db8::7","prefix_length":64,"scope":"global","addr_type":1},
                         {"address":"fe80::7","prefix_length":64,"scope":"link","addr_type":1}])"));
}

class IPv6Scope : public InterfaceTest, public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(IPv6Scope, IsThatOfTheAddress) {
    const auto& [address, scope] = GetParam();
    faults_.ipv6 = [text = address](const std::string&) { return std::vector<std::string>{text}; };
    EXPECT_EQ(Value(InterfaceConf("eth0", "", ""))["ipv6"][0]["scope"], Json::Value(scope));
}

INSTANTIATE_TEST_SUITE_P(Addresses, IPv6Scope,
                         testing::Values(std::pair("fe80::1", "link"), std::pair("febf:ffff::1", "link"),
                                         std::pair("fe7f::1", "global"), std::pair("fec0::1", "site"),
                                         std::pair("feff:ffff::1", "site"), std::pair("ff02::1", "global"),
                                         std::pair("::1", "loopback"), std::pair("::192.0.2.1", "compat"),
                                         std::pair("::2", "compat"), std::pair("::0.0.1.0", "compat"),
                                         std::pair("::255.255.255.255", "compat"), std::pair("::1:0:0:1", "global"),
                                         std::pair("::ffff:192.0.2.1", "mapped"), std::pair("::ffff:0.0.0.0", "mapped"),
                                         std::pair("::fffe:192.0.2.1", "global"),
                                         std::pair("1::ffff:192.0.2.1", "global"), std::pair("::", "global"),
                                         std::pair("2001:db8::1", "global"), std::pair("fd00::1", "global"),
                                         std::pair("rubbish", "global"), std::pair("", "global")),
                         [](const auto& address) { return "Number" + std::to_string(address.index); });

TEST_F(InterfaceTest, IsComparedByNameAddressAndMask) {
    const InterfaceConf interface("eth0", "192.0.2.7", "255.255.255.0");
    EXPECT_FALSE(interface != InterfaceConf("eth0", "192.0.2.7", "255.255.255.0"));
    for (const auto& other :
         {InterfaceConf("eth1", "192.0.2.7", "255.255.255.0"), InterfaceConf("eth0", "192.0.2.8", "255.255.255.0"),
          InterfaceConf("eth0", "192.0.2.7", "255.255.0.0")}) {
        EXPECT_FALSE(interface == other);
        EXPECT_TRUE(interface != other);
    }
}

TEST_F(NetworkTest, StartsWithoutAnythingAndAsksNobodyUnlessItReads) {
    const NetworkConf network(false);
    EXPECT_THAT(faults_.calls, IsEmpty());
    EXPECT_TRUE(network.IsValid()) << "an empty list is valid";
    EXPECT_EQ(Written(network, true), kEmptyNetwork);
    EXPECT_THAT(faults_.calls, ElementsAre("V6IPGet tun 32"));
}

constexpr const char kMerged[] = R"({"ddns":"nas.home.example","gateway":"192.0.2.1","mode":"bridge","interface":[
    {"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"},{"name":"eth1","ip":"192.0.2.8","mask":"255.255.255.0"}]})";

NetworkConf Merged() {
    NetworkConf network(false);
    EXPECT_TRUE(network.Overwrite(JsonOf(kMerged)));
    return network;
}

TEST_F(NetworkTest, MergeTakesTextsAndReplacesTheWholeListInOrder) {
    auto network = Merged();
    auto expected = JsonOf(kMerged);
    expected["fqdn"] = "";
    expected["ipv6_tunnel"] = Json::Value(Json::arrayValue);
    expected["interface"][0]["ipv6"] = expected["interface"][1]["ipv6"] = Json::Value(Json::arrayValue);
    EXPECT_EQ(Value(network), expected);
    EXPECT_TRUE(network.Overwrite(JsonOf(R"({"interface":[{"name":"lan","ip":"192.0.2.9"},5],"mode":"router"})")));
    expected["mode"] = "router";
    expected["interface"] =
        JsonOf(R"([{"name":"lan","ip":"192.0.2.9","mask":"","ipv6":[]},{"name":"","ip":"","mask":"","ipv6":[]}])");
    EXPECT_EQ(Value(network), expected);
}

TEST_F(NetworkTest, EmptyListEmptiesTheList) {
    auto network = Merged();
    EXPECT_TRUE(network.Overwrite(JsonOf(R"({"interface":[]})")));
    EXPECT_EQ(Value(network)["interface"], Json::Value(Json::arrayValue));
    EXPECT_EQ(Value(network)["gateway"], Json::Value("192.0.2.1"));
}

TEST_F(NetworkTest, MembersOfAnotherTypeLeaveTheirSettings) {
    auto network = Merged();
    const auto before = Value(network);
    for (const char* text :
         {R"({"ddns":1,"gateway":null,"mode":[],"interface":{"name":"lan"}})",
          R"({"ddns":{},"gateway":true,"mode":5,"interface":"lan"})", R"({"interface":null,"unknown":1})",
          R"({"interface":5})", R"([{"mode":"x"}])", "null", "\"x\"", "5"}) {
        EXPECT_TRUE(network.Overwrite(JsonOf(text))) << text;
        EXPECT_EQ(Value(network), before) << text;
    }
}

TEST_F(NetworkTest, IsValidWhereEveryInterfaceIs) {
    auto network = Merged();
    EXPECT_TRUE(network.IsValid());
    network.Overwrite(JsonOf(R"({"interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"},
                                              {"name":"eth1","ip":"192.0.2.8","mask":"255.0.255.0"}]})"));
    EXPECT_FALSE(network.IsValid());
    network.Overwrite(JsonOf(R"({"interface":[{}]})"));
    EXPECT_FALSE(network.IsValid());
}

TEST_F(NetworkTest, ExternalHostNameIsAsTheSettingsSayNow) {
    const NetworkConf network(false);
    WriteText(kDeviceSettings, "external_host_ip=\"nas.home.example\"\n");
    EXPECT_EQ(Value(network)["fqdn"], Json::Value("nas.home.example"));
    WriteText(kDeviceSettings, "external_host_ip=\"" + std::string(2000, 'x') + "\"\n");
    EXPECT_EQ(Value(network)["fqdn"], Json::Value(std::string(1023, 'x')));
    PlatformFaults platform;
    platform.keyValueResult = -1;
    EXPECT_EQ(Value(network)["fqdn"], Json::Value("")) << "a failure that left text in the buffer";
    EXPECT_THAT(platform.calls,
                ElementsAre(std::string("GetKeyValue ") + kDeviceSettings + " external_host_ip 1024 0"));
}

TEST_F(NetworkTest, TunnelsIPv6AddressesAreThoseOfNow) {
    faults_.ipv6 = [](const std::string& name) {
        return name == "tun" ? std::vector<std::string>{"2001:db8::99"} : std::vector<std::string>();
    };
    EXPECT_EQ(Value(Merged())["ipv6_tunnel"],
              JsonOf(R"([{"address":"2001:db8::99","prefix_length":64,"scope":"global","addr_type":1}])"));
    faults_.ipv6 = [](const std::string&) -> std::optional<std::vector<std::string>> { return {}; };
    EXPECT_EQ(Value(Merged())["ipv6_tunnel"], Json::Value(Json::arrayValue));
}

TEST_F(NetworkTest, WritesTheSameInBothFormsBesideOtherMembers) {
    EXPECT_EQ(Written(Merged(), false), Written(Merged(), true));
    auto value = JsonOf(R"({"mine":1,"interface":[1,2,3],"fqdn":5})");
    EXPECT_TRUE(Merged().Write(value, false));
    EXPECT_EQ(value["mine"], Json::Value(1));
    EXPECT_EQ(value["interface"].size(), 2U);
    EXPECT_EQ(value["fqdn"], Json::Value(""));
}

struct Comparison {
    const char* test;
    const char* change;
    bool isEqual;
};

class NetworkComparison : public NetworkTest, public testing::WithParamInterface<Comparison> {};

TEST_P(NetworkComparison, IsByNameGatewayAndListOfInterfaces) {
    auto other = Merged();
    other.Overwrite(JsonOf(GetParam().change));
    EXPECT_EQ(Merged() == other, GetParam().isEqual);
    EXPECT_EQ(Merged() != other, !GetParam().isEqual);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, NetworkComparison,
    testing::Values(Comparison{"None", "{}", true}, Comparison{"Mode", R"({"mode":"router"})", true},
                    Comparison{"DynamicDns", R"({"ddns":""})", false},
                    Comparison{"Gateway", R"({"gateway":"192.0.2.2"})", false},
                    Comparison{"FewerInterfaces",
                               R"({"interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"}]})", false},
                    Comparison{"MoreInterfaces",
                               R"({"interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"},
                                    {"name":"eth1","ip":"192.0.2.8","mask":"255.255.255.0"},{}]})",
                               false},
                    Comparison{"OtherOrder",
                               R"({"interface":[{"name":"eth1","ip":"192.0.2.8","mask":"255.255.255.0"},
                                    {"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"}]})",
                               false},
                    Comparison{"LastInterface",
                               R"({"interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"},
                                    {"name":"eth1","ip":"192.0.2.8","mask":"255.255.0.0"}]})",
                               false}),
    [](const auto& comparison) { return comparison.param.test; });

TEST_F(NetworkTest, BothHaveNoFileOfTheirOwnAndAVirtualDestructor) {
    EXPECT_TRUE(Merged().WriteConfig());
    EXPECT_TRUE(InterfaceConf().WriteConfig());
    EXPECT_TRUE(std::has_virtual_destructor_v<NetworkConf>);
    EXPECT_TRUE(std::has_virtual_destructor_v<InterfaceConf>);
}

TEST_F(NetworkTest, IsPrintedOnOneLine) {
    std::ostringstream stream;
    stream << NetworkConf(false);
    EXPECT_EQ(stream.str(), kEmptyNetwork);
}

}  // namespace

}  // namespace ARDV::Relay
