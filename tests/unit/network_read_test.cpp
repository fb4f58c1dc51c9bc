// SPDX-License-Identifier: Apache-2.0
#include <relay/config/network_conf.h>

#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "support/device_test.h"
#include "support/network_faults.h"
#include "support/platform_faults.h"
#include "support/program.h"

namespace ARDV::Relay {

namespace {

using namespace ardv::test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char kDynamicDns[] = "/etc/ardv/ddns/Example.conf";
constexpr const char kDynamicDnsOn[] = "ddns_update=\"yes\"\nddns_select=\"Example\"\n";

auto Failure(const std::string& what) {
    return MatchesRegex("network_conf.cpp " + what + " failed: \\[0x[0-9A-F]{4} .*:[0-9]+\\]");
}

Json::Value Value(const NetworkConf& network) {
    Json::Value value;
    EXPECT_TRUE(network.Write(value, true));
    return value;
}

/** On a machine of which everything can be read, as far as a test does not say otherwise. */
class NetworkRead : public DeviceTest {
public:
    ~NetworkRead() override { std::filesystem::remove_all("/etc/ardv/ddns"); }

protected:
    NetworkRead() {
        faults_.interfaces = {MakeInterface("eth0", 2, "192.0.2.7", "255.255.255.0")};
        faults_.ipv6 = [](const std::string&) { return std::vector<std::string>(); };
        faults_.pppoeStatus = 0;
        faults_.gateway = {0, "192.0.2.1"};
        std::filesystem::remove_all("/etc/ardv/ddns");
    }

    static void SupportDynamicDns() { WriteText(kFactorySettings, "supportddns=\"yes\"\n"); }

    static NetworkConf Read() {
        NetworkConf network(false);
        EXPECT_TRUE(network.ReadConf());
        return network;
    }

    static std::vector<std::string> InterfacesOf(const NetworkConf& network) {
        std::vector<std::string> lines;
        const auto value = Value(network);
        for (const auto& interface : value["interface"]) {
            lines.push_back(interface["name"].asString() + " " + interface["ip"].asString() + " " +
                            interface["mask"].asString());
        }
        return lines;
    }

    NetworkFaults faults_;
};

TEST_F(NetworkRead, ConstructorReadsWhereItIsAsked) {
    EXPECT_TRUE(NetworkConf(true) == Read());
    EXPECT_THAT(InterfacesOf(NetworkConf(true)), ElementsAre("eth0 192.0.2.7 255.255.255.0"));
}

TEST_F(NetworkRead, TakesTheWiredInterfacesThatAreValidInTheirOrder) {
    faults_.interfaces = {MakeInterface("lo", 1, "127.0.0.1", "255.0.0.0"),
                          MakeInterface("eth1", 2, "192.0.2.9", "255.255.255.0"),
                          MakeInterface("wlan0", 3, "192.0.2.10", "255.255.255.0"),
                          MakeInterface("eth0", 2, "192.0.2.7", "255.0.255.0"),
                          MakeInterface("eth0", 2, "192.0.2.8", "255.255.255.0"),
                          MakeInterface("docker0", 0, "172.17.0.1", "255.255.0.0"),
                          MakeInterface("eth2", 2, "", ""),
                          MakeInterface("eth3", 4, "192.0.2.11", "255.255.255.0"),
                          MakeInterface("eth4", -2, "192.0.2.12", "255.255.255.0")};
    EXPECT_THAT(MessagesAt(9,
                           [] {
                               EXPECT_THAT(InterfacesOf(Read()),
                                           ElementsAre("eth1 192.0.2.9 255.255.255.0", "eth0 192.0.2.8 255.255.255.0"));
                           }),
                IsEmpty());
}

TEST_F(NetworkRead, LeavesOutAnInterfaceWhoseIPv6AddressesCannotBeAskedFor) {
    faults_.interfaces = {MakeInterface("eth0", 2, "192.0.2.7", "255.255.255.0"),
                          MakeInterface("eth1", 2, "192.0.2.9", "255.255.255.0")};
    faults_.ipv6 = [](const std::string& name) {
        return name == "eth0" ? std::nullopt : std::optional<std::vector<std::string>>(std::in_place);
    };
    EXPECT_THAT(InterfacesOf(Read()), ElementsAre("eth1 192.0.2.9 255.255.255.0"));
}

TEST_F(NetworkRead, TakesALargeTableAndNoMoreThanWasStored) {
    faults_.interfaces = std::vector(250, MakeInterface("eth0", 2, "192.0.2.7", "255.255.255.0"));
    EXPECT_EQ(InterfacesOf(Read()).size(), 250U);
    faults_.interfaceResult = std::numeric_limits<int>::max();
    EXPECT_EQ(InterfacesOf(Read()).size(), 250U);
    faults_.interfaceResult = 1;
    EXPECT_EQ(InterfacesOf(Read()).size(), 1U);
}

TEST_F(NetworkRead, WithoutATableOfInterfacesItGoesOnWithTheRest) {
    faults_.pppoeStatus = 1;
    faults_.pppoeAddress = {0, "198.51.100.7", "255.255.255.255"};
    faults_.pppoeInterface = {0, "ppp0"};
    for (const int result : {0, -1}) {
        faults_.interfaceResult = result;
        NetworkConf network(false);
        EXPECT_THAT(MessagesAt(7, [&] { EXPECT_TRUE(network.ReadConf()); }),
                    ElementsAre(Failure("ALIBNetGetInterfaceInfo")))
            << result;
        EXPECT_THAT(MessagesAt(6, [&] { EXPECT_TRUE(network.ReadConf()); }), IsEmpty());
        EXPECT_THAT(InterfacesOf(network), ElementsAre("ppp0 198.51.100.7 255.255.255.255"));
        EXPECT_EQ(Value(network)["gateway"], Json::Value("192.0.2.1"));
    }
}

TEST_F(NetworkRead, AppendsThePppoeConnectionWithBuffersOfTheseSizes) {
    faults_.pppoeStatus = 1;
    faults_.pppoeAddress = {0, "198.51.100.7", "255.255.255.255"};
    faults_.pppoeInterface = {0, "ppp0"};
    EXPECT_THAT(InterfacesOf(Read()), ElementsAre("eth0 192.0.2.7 255.255.255.0", "ppp0 198.51.100.7 255.255.255.255"));
    EXPECT_THAT(faults_.calls, Contains("PPPoECheckStatus 0"));
    EXPECT_THAT(faults_.calls, Contains("PPPoeNetInfoGet 46 46"));
    EXPECT_THAT(faults_.calls, Contains("PPPoeIntfGet 128"));
}

TEST_F(NetworkRead, LeavesOutAPppoeConnectionThatIsNotValid) {
    faults_.pppoeStatus = 1;
    faults_.pppoeAddress = {0, "198.51.100.7", "255.0.255.0"};
    faults_.pppoeInterface = {0, "ppp0"};
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(InterfacesOf(Read()).size(), 1U); }), IsEmpty());
}

TEST_F(NetworkRead, AsksNothingOfPppoeUnlessItIsConnected) {
    faults_.pppoeAddress = {0, "198.51.100.7", "255.255.255.255"};
    faults_.pppoeInterface = {0, "ppp0"};
    for (const int status : {0, -1, 2}) {
        faults_.pppoeStatus = status;
        faults_.calls.clear();
        EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(InterfacesOf(Read()).size(), 1U); }), IsEmpty()) << status;
        EXPECT_THAT(faults_.calls, Not(Contains(testing::StartsWith("PPPoe")))) << status;
    }
}

TEST_F(NetworkRead, FailureOfEitherPppoeCallIsAMessageAndLeavesTheConnectionOut) {
    faults_.pppoeStatus = 1;
    const NetworkFaults::Answer address = {0, "198.51.100.7", "255.255.255.255"};
    const NetworkFaults::Answer name = {0, "ppp0"};
    for (const auto& [first, second] : {std::pair(-1, 0), std::pair(0, -1), std::pair(-1, -1)}) {
        faults_.pppoeAddress = address;
        faults_.pppoeAddress->result = first;
        faults_.pppoeInterface = name;
        faults_.pppoeInterface->result = second;
        NetworkConf network(false);
        EXPECT_THAT(MessagesAt(7, [&] { EXPECT_TRUE(network.ReadConf()); }),
                    ElementsAre(Failure("ARDVPPPoeNetInfoGet")));
        EXPECT_THAT(MessagesAt(6, [&] { network.ReadConf(); }), IsEmpty());
        EXPECT_EQ(InterfacesOf(network).size(), 1U);
        EXPECT_EQ(Value(network)["gateway"], Json::Value("192.0.2.1")) << "it goes on";
    }
}

TEST_F(NetworkRead, ReadsTheGatewayIntoTwentyBytes) {
    EXPECT_EQ(Value(Read())["gateway"], Json::Value("192.0.2.1"));
    EXPECT_THAT(faults_.calls, Contains("DefaultGatewayGet 20"));
}

TEST_F(NetworkRead, FailureToReadTheGatewayIsAMessageAndItIsEmpty) {
    SupportDynamicDns();
    WriteText(kDeviceSettings, kDynamicDnsOn);
    WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    faults_.gateway = {-1, "192.0.2.1"};
    NetworkConf network(false);
    EXPECT_THAT(MessagesAt(7, [&] { EXPECT_TRUE(network.ReadConf()); }),
                ElementsAre(Failure("ARDVNetDefaultGatewayGet")));
    EXPECT_THAT(MessagesAt(6, [&] { network.ReadConf(); }), IsEmpty());
    EXPECT_EQ(Value(network)["gateway"], Json::Value(""));
    EXPECT_EQ(Value(network)["ddns"], Json::Value("nas.home.example")) << "it goes on";
}

TEST_F(NetworkRead, ReadsTheDynamicDnsNameOfTheSelectedProvider) {
    SupportDynamicDns();
    WriteText(kDeviceSettings, kDynamicDnsOn);
    WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    PlatformFaults platform;
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(Value(Read())["ddns"], Json::Value("nas.home.example")); }), IsEmpty());
    EXPECT_THAT(platform.calls, Contains(std::string("GetKeyValue ") + kDeviceSettings + " ddns_update 8 0"));
    EXPECT_THAT(platform.calls, Contains(std::string("GetKeyValue ") + kDeviceSettings + " ddns_select 128 0"));
    EXPECT_THAT(faults_.calls, Contains("SupportGet supportddns"));
    EXPECT_THAT(faults_.calls, Contains("DDNSConfigGet Example"));
}

struct DynamicDnsSwitch {
    const char* test;
    const char* factory;
    const char* settings;
    bool isRead;
};

class DynamicDns : public NetworkRead, public testing::WithParamInterface<DynamicDnsSwitch> {};

TEST_P(DynamicDns, IsReadWhereTheDeviceSupportsItAndItIsOn) {
    WriteText(kFactorySettings, GetParam().factory);
    WriteText(kDeviceSettings, std::string(GetParam().settings) + "\nddns_select=\"Example\"\n");
    WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    const auto expected = GetParam().isRead ? "nas.home.example" : "";
    EXPECT_THAT(MessagesAt(9, [&] { EXPECT_EQ(Value(Read())["ddns"], Json::Value(expected)); }), IsEmpty());
}

constexpr const char kSupported[] = "supportddns=\"yes\"\n";

INSTANTIATE_TEST_SUITE_P(Settings, DynamicDns,
                         testing::Values(DynamicDnsSwitch{"On", kSupported, "ddns_update=\"yes\"", true},
                                         DynamicDnsSwitch{"Capitals", kSupported, "ddns_update=\"YES\"", true},
                                         DynamicDnsSwitch{"Mixed", kSupported, "ddns_update=\"yEs\"", true},
                                         DynamicDnsSwitch{"Off", kSupported, "ddns_update=\"no\"", false},
                                         DynamicDnsSwitch{"Absent", kSupported, "", false},
                                         DynamicDnsSwitch{"Empty", kSupported, "ddns_update=\"\"", false},
                                         DynamicDnsSwitch{"Longer", kSupported, "ddns_update=\"yes1\"", false},
                                         DynamicDnsSwitch{"Shorter", kSupported, "ddns_update=\"ye\"", false},
                                         DynamicDnsSwitch{"NotSupported", "supportddns=\"no\"\n", "ddns_update=\"yes\"",
                                                          false},
                                         DynamicDnsSwitch{"SupportUnknown", "", "ddns_update=\"yes\"", false}),
                         [](const auto& setting) { return setting.param.test; });

/** On a device with dynamic DNS, of which one setting cannot be read although its text is left in the buffer. */
class UnreadableDynamicDns : public NetworkRead {
protected:
    UnreadableDynamicDns() {
        SupportDynamicDns();
        WriteText(kDeviceSettings, kDynamicDnsOn);
        WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    }

    void Fail(const std::string& key, const std::string& leftText) {
        platform_.leftText = leftText;
        platform_.platformFails = [this, key](const std::string& name) {
            return name == "GetKeyValue" && platform_.calls.back().find(" " + key + " ") != std::string::npos;
        };
    }

    void ExpectNoNameIsAskedFor() const {
        EXPECT_THAT(faults_.calls, Contains("SupportGet supportddns"));
        EXPECT_THAT(faults_.calls, Not(Contains(testing::StartsWith("DDNSConfigGet"))));
    }

    PlatformFaults platform_;
};

TEST_F(UnreadableDynamicDns, SwitchIsOffWithoutAMessage) {
    Fail("ddns_update", "yes");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(Value(Read())["ddns"], Json::Value("")); }), IsEmpty());
    ExpectNoNameIsAskedFor();
    EXPECT_THAT(platform_.calls, Not(Contains(HasSubstr("ddns_select"))));
}

TEST_F(UnreadableDynamicDns, ProviderIsMissing) {
    Fail("ddns_select", "Example");
    EXPECT_THAT(MessagesAt(9, [] { EXPECT_EQ(Value(Read())["ddns"], Json::Value("")); }),
                ElementsAre("network_conf.cpp get ddns provider failed"));
    ExpectNoNameIsAskedFor();
}

TEST_F(NetworkRead, MissingProviderOfDynamicDnsIsAMessageOfLevelThree) {
    SupportDynamicDns();
    for (const char* settings : {"ddns_update=\"yes\"\n", "ddns_update=\"yes\"\nddns_select=\"\"\n"}) {
        WriteText(kDeviceSettings, settings);
        ExpectMessage(3, "network_conf.cpp get ddns provider failed",
                      [] { EXPECT_EQ(Value(Read())["ddns"], Json::Value("")); });
    }
    EXPECT_THAT(faults_.calls, Not(Contains(testing::StartsWith("DDNSConfigGet"))));
}

TEST_F(NetworkRead, UnreadableConfigurationOfDynamicDnsIsAMessageOfLevelThree) {
    SupportDynamicDns();
    WriteText(kDeviceSettings, kDynamicDnsOn);
    NetworkConf network(false);
    EXPECT_THAT(
        MessagesAt(3, [&] { EXPECT_TRUE(network.ReadConf()); }),
        ElementsAre(MatchesRegex("network_conf.cpp ARDVDDNSConfigGet failed: \\[0x0400 [a-z_]+.cpp:[0-9]+\\]")));
    EXPECT_THAT(MessagesAt(2, [&] { network.ReadConf(); }), IsEmpty());
    faults_.dynamicDns = {-1, "rest.example"};
    const CapturedLog log(0);
    EXPECT_TRUE(network.ReadConf());
    EXPECT_EQ(Value(network)["ddns"], Json::Value(""));
}

TEST_F(NetworkRead, BeginsAnewAndKeepsTheModeAlone) {
    SupportDynamicDns();
    WriteText(kDeviceSettings, kDynamicDnsOn);
    WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    NetworkConf network(true);
    network.Overwrite(JsonOf(R"({"mode":"bridge"})"));
    const auto before = Value(network);
    EXPECT_TRUE(network.ReadConf());
    EXPECT_EQ(Value(network), before) << "the list is not doubled";
    WriteText(kDeviceSettings, "");
    faults_.interfaceResult = 0;
    faults_.gateway = {-1, ""};
    const CapturedLog log(0);
    EXPECT_TRUE(network.ReadConf());
    EXPECT_EQ(Value(network),
              JsonOf(R"({"ddns":"","fqdn":"","gateway":"","interface":[],"ipv6_tunnel":[],"mode":"bridge"})"));
}

TEST_F(NetworkRead, AsksInAFixedOrder) {
    SupportDynamicDns();
    WriteText(kDeviceSettings, kDynamicDnsOn);
    WriteText(kDynamicDns, "hostname=\"nas.home.example\"\n");
    faults_.pppoeStatus = 1;
    faults_.pppoeAddress = {0, "198.51.100.7", "255.255.255.255"};
    faults_.pppoeInterface = {0, "ppp0"};
    Read();
    EXPECT_THAT(faults_.calls, ElementsAre("GetInterfaceInfo", "V6IPGet eth0 32", "PPPoECheckStatus 0",
                                           "PPPoeNetInfoGet 46 46", "PPPoeIntfGet 128", "V6IPGet ppp0 32",
                                           "DefaultGatewayGet 20", "SupportGet supportddns", "DDNSConfigGet Example"));
}

/** On the private root's own network, with a wired interface and a bridge without one. */
class RealNetwork : public DeviceTest {
public:
    ~RealNetwork() override {
        for (const char* name : {"eth0", "br0"}) {
            RunProgram({"ip", "link", "del", name});
        }
        RunProgram({"ip", "netns", "del", "far"});
    }

protected:
    void SetUp() override {
        // The far end stands in another namespace, as that of a container does.
        const auto far = RunProgram({"ip", "netns", "add", "far"});
        if (IsForbidden(far)) {
            GTEST_SKIP() << "needs the right to make interfaces: " << far.err;
        }
        ASSERT_EQ(far.exitCode, 0) << far.err;
        const std::vector<std::vector<std::string>> commands = {
            {"link", "add", "eth0", "type", "veth", "peer", "name", "far0", "netns", "far"},
            {"addr", "add", "192.0.2.7/24", "dev", "eth0"},
            {"-6", "addr", "add", "2001:db8::7/64", "dev", "eth0", "nodad"},
            {"-6", "addr", "add", "fe80::7/64", "dev", "eth0", "nodad"},
            {"link", "add", "br0", "type", "bridge"},
            {"addr", "add", "198.51.100.7/24", "dev", "br0"}};
        for (const auto& command : commands) {
            ASSERT_NO_FATAL_FAILURE(Ip(command));
        }
    }

    static bool IsForbidden(const ProgramResult& result) {
        const auto says = [&result](const char* reason) { return result.err.find(reason) != std::string::npos; };
        return result.exitCode != 0 && (says("Operation not permitted") || says("Permission denied"));
    }

    static void Ip(const std::vector<std::string>& words) {
        std::vector<std::string> command = {"ip"};
        command.insert(command.end(), words.begin(), words.end());
        const auto result = RunProgram(command);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }
};

TEST_F(RealNetwork, IsToldAsItIs) {
    Ip({"link", "set", "eth0", "up", "addrgenmode", "none"});
    Ip({"link", "set", "br0", "up"});
    Ip({"route", "add", "default", "via", "192.0.2.1"});
    const CapturedLog log;
    const NetworkConf network(true);
    EXPECT_EQ(log.Text(), "");
    EXPECT_TRUE(network.IsValid());
    auto value = Value(network);
    Json::Value scopes;
    for (const auto& address : value["interface"][0]["ipv6"]) {
        scopes[address["address"].asString()] = address["scope"];
        EXPECT_EQ(address["prefix_length"], Json::Value(64));
        EXPECT_EQ(address["addr_type"], Json::Value(0));
    }
    EXPECT_EQ(scopes, JsonOf(R"({"2001:db8::7":"global","fe80::7":"link"})"));
    value["interface"][0].removeMember("ipv6");
    EXPECT_EQ(value, JsonOf(R"({"ddns":"","fqdn":"","gateway":"192.0.2.1","ipv6_tunnel":[],"mode":"",
                               "interface":[{"name":"eth0","ip":"192.0.2.7","mask":"255.255.255.0"}]})"));
}

TEST_F(RealNetwork, WithoutAGatewayAndWithInterfacesThatAreDownIsAlmostEmpty) {
    const CapturedLog log(7);
    const NetworkConf network(true);
    EXPECT_THAT(log.Messages(), ElementsAre(Failure("ARDVNetDefaultGatewayGet")));
    EXPECT_EQ(Value(network)["interface"], Json::Value(Json::arrayValue));
    EXPECT_EQ(Value(network)["gateway"], Json::Value(""));
}

}  // namespace

}  // namespace ARDV::Relay
