// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <future>
#include <string>

#include "integration/control_server_fixture.h"

namespace ardv::test {
namespace {

constexpr const char* kOrder = R"({"relay":{"relay_ip":"198.51.100.7","relay_ipv6":"2001:db8:7::7"},
    "candidates":[{"type":"openvpn","protocol":"udp","port":"1194","mtu":"1400"}],
    "forward":[{"public":45000,"device":5000},{"public":45001,"device":5001}]})";

class ControlServerTunnel : public ControlServerFixture {
protected:
    /** The HTTP status of an order for the device, with `members` put in. */
    int Order(const std::string& members, const std::string& device = "") const {
        Json::Value order = ParseText(kOrder);
        order["serverID"] = device.empty() ? id : device;
        const Json::Value changes = ParseText(members);
        for (const std::string& name : changes.getMemberNames()) {
            order[name] = changes[name];
        }
        const auto answer = Admin("POST", "/sandbox/tunnel", order.toStyledString());
        return answer ? answer->status : 0;
    }
};

TEST_F(ControlServerTunnel, AssignsNoneUnlessTold) {
    Register();
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 8);
    EXPECT_EQ(ReadText(server.UsersFile()), "");
    EXPECT_EQ(ModeOf(server.UsersFile()), 0600U);
}

TEST_F(ControlServerTunnel, TellsTheOrderToWhoAsksForIt) {
    Register();
    auto wait = HeldWait();
    const Json::Value opened = server.OpenTunnel(id, kOrder);
    const Json::Value commands = wait.get()["commands"];
    ASSERT_EQ(commands.size(), 1U);
    EXPECT_EQ(commands[0]["id"], opened["id"]);
    EXPECT_EQ(commands[0]["command"], "open_tunnel");
    EXPECT_FALSE(commands[0].isMember("relay")) << "what comes by a wait may be anybody's";
    EXPECT_FALSE(commands[0].isMember("candidates"));
    const Json::Value answer = Post(GetTunnelRequest());
    EXPECT_EQ(answer["errno"], 0);
    EXPECT_EQ(answer["relay"], opened["relay"]);
    EXPECT_EQ(answer["relay"]["relay_ip"], "198.51.100.7");
    EXPECT_EQ(answer["relay"]["relay_ipv6"], "2001:db8:7::7");
    EXPECT_EQ(answer["candidates"], ParseText(kOrder)["candidates"]);
    EXPECT_FALSE(answer.isMember("forward")) << "the device's owner says which ports are open";
}

TEST_F(ControlServerTunnel, PutsTheOrderIntoTheCommandWhenTold) {
    Register();
    Json::Value order = ParseText(kOrder);
    order["inline"] = true;
    const Json::Value opened = server.OpenTunnel(id, order.toStyledString());
    const Json::Value command = Post(WaitRequest())["commands"][0];
    EXPECT_EQ(command["command"], "open_tunnel");
    EXPECT_EQ(command["relay"], opened["relay"]);
    EXPECT_EQ(command["candidates"], order["candidates"]);
}

TEST_F(ControlServerTunnel, ChangesAnOrderWithoutAWordWhenTold) {
    Register();
    Json::Value order = ParseText(kOrder);
    order["queue"] = false;
    const Json::Value first = server.OpenTunnel(id, order.toStyledString());
    EXPECT_TRUE(server.Commands()[id].empty());
    const Json::Value second = server.OpenTunnel(id, order.toStyledString());
    EXPECT_NE(second["relay"]["relay_pass"], first["relay"]["relay_pass"]);
    EXPECT_EQ(Post(GetTunnelRequest())["relay"], second["relay"]);
}

TEST_F(ControlServerTunnel, MakesUpUsersThatNobodyGuesses) {
    Register();
    const Json::Value first = server.OpenTunnel(id, kOrder)["relay"];
    const Json::Value second = server.OpenTunnel(id, kOrder)["relay"];
    EXPECT_NE(first["relay_user"], second["relay_user"]);
    EXPECT_NE(first["relay_pass"], second["relay_pass"]);
    EXPECT_GE(first["relay_pass"].asString().size(), 32U);
}

TEST_F(ControlServerTunnel, KeepsTheRelaysUsers) {
    Register();
    const Json::Value relay = server.OpenTunnel(id, kOrder)["relay"];
    const std::string user = relay["relay_user"].asString() + " " + relay["relay_pass"].asString();
    EXPECT_EQ(ReadText(server.UsersFile()), user + " attic 45000:5000,45001:5001\n");
    EXPECT_EQ(ModeOf(server.UsersFile()), 0600U);
    const std::string firstId = id;
    Json::Value other = Registration("AV220-000002");
    other.removeMember("alias");
    Register(other);
    server.OpenTunnel(
        id, R"({"relay":{"relay_ip":"relay.zz","relay_user":"box-2","relay_pass":"p&'\"$x"},"candidates":[]})");
    EXPECT_NE(ReadText(server.UsersFile()).find("box-2 p&'\"$x - -\n"), std::string::npos);
    server.CloseTunnel(firstId);
    EXPECT_EQ(ReadText(server.UsersFile()), "box-2 p&'\"$x - -\n");
}

TEST_F(ControlServerTunnel, TakesARelayAwayAndOrdersTheEnd) {
    Register();
    server.OpenTunnel(id, kOrder);
    Post(WaitRequest());
    const std::string closing = server.CloseTunnel(id);
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 8);
    EXPECT_EQ(ReadText(server.UsersFile()), "");
    EXPECT_TRUE(server.Tunnels().empty());
    const Json::Value commands = Post(WaitRequest())["commands"];
    ASSERT_EQ(commands.size(), 1U);
    EXPECT_EQ(commands[0]["command"], "close_tunnel");
    EXPECT_EQ(commands[0]["id"], closing);
}

TEST_F(ControlServerTunnel, ShowsWhatIsAssigned) {
    Register();
    const Json::Value opened = server.OpenTunnel(id, kOrder);
    const Json::Value shown = server.Tunnels();
    ASSERT_EQ(shown.getMemberNames(), std::vector<std::string>{id});
    EXPECT_EQ(shown[id]["alias"], "attic");
    EXPECT_EQ(shown[id]["relay"], opened["relay"]);
    EXPECT_EQ(shown[id]["forward"], ParseText(kOrder)["forward"]);
}

TEST_F(ControlServerTunnel, TellsNobodyWithoutTheSession) {
    Register();
    server.OpenTunnel(id, kOrder);
    Json::Value request = GetTunnelRequest();
    request["session"] = channel;
    EXPECT_EQ(Post(request)["errno"], 6) << "the wait's channel is good for nothing else";
    request["session"] = "guess";
    EXPECT_EQ(Post(request)["errno"], 6);
    request.removeMember("session");
    EXPECT_EQ(Post(request)["errno"], 9);
    server.EndSessions();
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 6);
}

TEST_F(ControlServerTunnel, ForgetsItsAssignmentsAtItsEnd) {
    Register();
    server.OpenTunnel(id, kOrder);
    server.Restart();
    Register();
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 8);
    EXPECT_EQ(ReadText(server.UsersFile()), "");
}

TEST_F(ControlServerTunnel, NotesWhatTheDeviceTellsOfItsTunnel) {
    Json::Value request = Registration();
    request["tunnel"] = ParseText(R"({"status":"NONE","relay_ip":"198.51.100.7"})");
    Register(request);
    EXPECT_EQ(server.Tunnel(id)["status"], "NONE");
    request = KeepAliveRequest();
    request["tunnel"] = ParseText(R"({"status":"READY","relay_ip":"198.51.100.7"})");
    Post(request);
    EXPECT_EQ(server.Tunnel(id)["status"], "READY");
    EXPECT_EQ(server.Tunnel(id)["relay_ip"], "198.51.100.7");
    const auto held = HeldWait();
    EXPECT_TRUE(server.Tunnel(id).isNull()) << "no order, no member";
    server.EndSessions();
}

TEST_F(ControlServerTunnel, RefusesATunnelThatTheProtocolHasNot) {
    Register();
    for (const char* tunnel : {"null", "[]", "{}", R"({"status":"READY"})", R"({"status":"UP","relay_ip":""})",
                               R"({"status":1,"relay_ip":""})", R"({"status":"READY","relay_ip":7})"}) {
        for (Json::Value request : {KeepAliveRequest(), WaitRequest(), Registration()}) {
            request["tunnel"] = ParseText(tunnel);
            const Json::Value answer = Post(request);
            EXPECT_EQ(answer["errno"], 9) << tunnel;
            EXPECT_EQ(answer["member"], "tunnel") << tunnel;
        }
    }
}

TEST_F(ControlServerTunnel, LogsNoUserAndNoPassword) {
    Register();
    server.OpenTunnel(id, R"({"relay":{"relay_ip":"relay.zz","relay_user":"hush-user","relay_pass":"hush-pass"},
        "candidates":[],"inline":true})");
    Json::Value request = GetTunnelRequest();
    request["relay"]["relay_user"] = "hush-user";
    request["relay"]["relay_pass"] = "hush-pass";
    EXPECT_EQ(Post(request)["relay"]["relay_user"], "hush-user");
    Post(WaitRequest());
    EXPECT_TRUE(server.WaitFor([&] { return server.Log().find("commands:1") != std::string::npos; }));
    EXPECT_EQ(server.Log().find("hush-"), std::string::npos) << server.Log();
    EXPECT_EQ(server.Log().find(session), std::string::npos) << server.Log();
    EXPECT_NE(server.Log().find("command=get_tunnel device=" + id + " reply=errno:0"), std::string::npos);
}

TEST_F(ControlServerTunnel, MeetsFaultsAsOtherCommandsDo) {
    Register();
    server.SetFault(R"({"kind":"errno","value":6,"command":"get_tunnel"})");
    EXPECT_EQ(Post(KeepAliveRequest())["errno"], 0);
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 6);
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 8);
}

TEST_F(ControlServerTunnel, GivesALoginAndAPublicPortToOneDevice) {
    Register();
    const std::string mine = R"({"relay":{"relay_ip":"relay.zz","relay_user":"box-1"}})";
    EXPECT_EQ(Order(mine), 200);
    EXPECT_EQ(Order(mine), 200) << "its own it may have again";
    const std::string before = ReadText(server.UsersFile());
    Register(Registration("AV220-000002"));
    EXPECT_EQ(Order("{}"), 400) << "45000 is taken";
    EXPECT_EQ(Order(R"({"relay":{"relay_ip":"relay.zz","relay_user":"box-1"},"forward":[]})"), 400);
    EXPECT_EQ(Order(R"({"forward":[{"public":4000,"device":1},{"public":4000,"device":2}]})"), 400);
    EXPECT_EQ(ReadText(server.UsersFile()), before);
    EXPECT_EQ(Order(R"({"forward":[{"public":4000,"device":5000}]})"), 200);
}

TEST_F(ControlServerTunnel, FailsWhatItCannotKeep) {
    Register();
    std::filesystem::remove(server.UsersFile());
    // Nothing can be renamed over a folder that isn't empty.
    std::filesystem::create_directories(server.UsersFile() + "/x");
    EXPECT_EQ(Order("{}"), 400);
    EXPECT_EQ(Post(GetTunnelRequest())["errno"], 8);
    EXPECT_TRUE(server.Commands()[id].empty());
}

struct WrongOrder {
    const char* name;
    const char* members;
};

class ControlServerTunnelOrder : public ControlServerTunnel, public testing::WithParamInterface<WrongOrder> {};

constexpr WrongOrder kWrongOrders[] = {
    {"UnknownDevice", R"({"serverID":"box-9"})"},
    {"NoDevice", R"({"serverID":null})"},
    {"RelayIsText", R"({"relay":"198.51.100.7"})"},
    {"NoAddress", R"({"relay":{}})"},
    {"AddressWithABlank", R"({"relay":{"relay_ip":"a b"}})"},
    {"NoIPv6Address", R"({"relay":{"relay_ip":"relay.zz","relay_ipv6":"fd00::g"}})"},
    {"UserWithALineBreak", R"({"relay":{"relay_ip":"relay.zz","relay_user":"u\nv"}})"},
    {"UserWithABlank", R"({"relay":{"relay_ip":"relay.zz","relay_user":"u v"}})"},
    {"UserWithASlash", R"({"relay":{"relay_ip":"relay.zz","relay_user":"../u"}})"},
    {"UserThatIsAFolder", R"({"relay":{"relay_ip":"relay.zz","relay_user":".."}})"},
    {"EmptyUser", R"({"relay":{"relay_ip":"relay.zz","relay_user":""}})"},
    {"PasswordWithABlank", R"({"relay":{"relay_ip":"relay.zz","relay_pass":"p q"}})"},
    {"PasswordWithALineBreak", R"({"relay":{"relay_ip":"relay.zz","relay_pass":"p\nq"}})"},
    {"EmptyPassword", R"({"relay":{"relay_ip":"relay.zz","relay_pass":""}})"},
    {"NumberForPassword", R"({"relay":{"relay_ip":"relay.zz","relay_pass":7}})"},
    {"CandidatesAreAnObject", R"({"candidates":{}})"},
    {"NoCandidates", R"({"candidates":null})"},
    {"ForwardIsAnObject", R"({"forward":{}})"},
    {"ForwardWithoutDevice", R"({"forward":[{"public":45000}]})"},
    {"PortIsText", R"({"forward":[{"public":"45000","device":5000}]})"},
    {"PortTooLarge", R"({"forward":[{"public":65536,"device":5000}]})"},
    {"PortZero", R"({"forward":[{"public":45000,"device":0}]})"},
};

TEST_P(ControlServerTunnelOrder, RefusesWhatIsNotAsItShouldBe) {
    Register();
    EXPECT_EQ(Order(GetParam().members), 400);
    EXPECT_EQ(ReadText(server.UsersFile()), "");
    EXPECT_TRUE(server.Tunnels().empty());
    EXPECT_TRUE(server.Commands()[id].empty());
}

INSTANTIATE_TEST_SUITE_P(All, ControlServerTunnelOrder, testing::ValuesIn(kWrongOrders),
                         [](const auto& row) { return row.param.name; });

TEST_F(ControlServerTunnel, RefusesToEndTheTunnelOfAStranger) {
    EXPECT_EQ(Admin("DELETE", "/sandbox/tunnel", R"({"serverID":"box-9"})")->status, 400);
    EXPECT_EQ(Admin("DELETE", "/sandbox/tunnel", "")->status, 400);
    EXPECT_EQ(Admin("DELETE", "/sandbox/tunnel", "{")->status, 400);
}

}  // namespace
}  // namespace ardv::test
