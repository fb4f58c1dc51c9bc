// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "integration/alias_server_fixture.h"

namespace ardv::test {
namespace {

class AliasServer : public AliasServerFixture {};

TEST_F(AliasServer, MapsAFreeAlias) {
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "kova_account", "ann@example")), "good");
    const Json::Value record = server.Registry()["aliases"]["home"];
    EXPECT_EQ(record["serial"], "S1");
    EXPECT_EQ(record["id"], "id-S1");
    EXPECT_EQ(record["mac"], "02:00:5e:00:00:01");
    EXPECT_EQ(record["model"], "AV-220");
    EXPECT_EQ(record["account"], "ann@example");
    EXPECT_EQ(record["mapped_at"], record["seen_at"]);
}

TEST_F(AliasServer, RemembersTheTokenOfFirstContact) {
    Post("map_alias", Device("S1", "home"));
    EXPECT_EQ(server.Registry()["devices"]["S1"]["token"], "token-S1");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "token", "guess")), "badauth:serial");
    EXPECT_EQ(Post("keep_alive_alias", With(Device("S1", "home"), "token", "guess")), "badauth:serial");
    EXPECT_EQ(Post("delete_alias", With(Device("S1", "home"), "token", "guess")), "badauth:serial");
    EXPECT_EQ(server.Registry()["devices"]["S1"]["token"], "token-S1");
}

TEST_F(AliasServer, MapsAnAliasAgainForItsOwner) {
    Post("map_alias", Device("S1", "home"));
    const std::string mappedAt = server.Registry()["aliases"]["home"]["mapped_at"].asString();
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "id", "new-id")), "good");
    EXPECT_EQ(server.Registry()["aliases"]["home"]["mapped_at"], mappedAt);
    EXPECT_EQ(server.Registry()["aliases"]["home"]["id"], "new-id");
}

TEST_F(AliasServer, RefusesAnAliasOfAnotherDevice) {
    Post("map_alias", Device("S1", "home"));
    EXPECT_EQ(Post("map_alias", Device("S2", "home")), "alias_inused:home");
    EXPECT_EQ(server.Registry()["aliases"]["home"]["serial"], "S1");
}

TEST_F(AliasServer, RefusesAnAliasOfAnotherAccountEvenByForce) {
    Post("map_alias", With(Device("S1", "home"), "kova_account", "ann@example"));
    const Fields other = With(Device("S2", "home"), "kova_account", "bob@example");
    EXPECT_EQ(Post("map_alias", With(other, "force", "true")), "alias_inused:home");
}

TEST_F(AliasServer, AsksBeforeAnAccountsOtherDeviceLosesItsAlias) {
    Post("map_alias", With(Device("S1", "home"), "kova_account", "ann@example"));
    const Fields mine = With(Device("S2", "home"), "kova_account", "ann@example");
    EXPECT_EQ(Post("map_alias", mine), "alias_self_inused:home");
    EXPECT_EQ(Post("map_alias", With(mine, "force", "false")), "alias_self_inused:home");
    EXPECT_EQ(server.Registry()["aliases"]["home"]["serial"], "S1");
}

TEST_F(AliasServer, MovesAnAliasWithinAnAccountByForce) {
    for (const char* force : {"true", "1"}) {
        const std::string alias = std::string("home-") + force;
        Post("map_alias", With(Device("S1", alias), "kova_account", "ann@example"));
        const Fields mine = With(Device("S2", alias), "kova_account", "ann@example");
        EXPECT_EQ(Post("map_alias", With(mine, "force", force)), "good");
        EXPECT_EQ(server.Registry()["aliases"][alias]["serial"], "S2");
        EXPECT_EQ(Post("keep_alive_alias", Device("S1", alias)), "badauth:alias");
    }
}

TEST_F(AliasServer, KeepsAnAliasAlive) {
    Post("map_alias", Device("S1", "home"));
    Json::Value registry = server.Registry();
    const std::string seenAt = registry["aliases"]["home"]["seen_at"].asString();
    registry["aliases"]["home"]["seen_at"] = "2020" + seenAt.substr(4);
    server.SetRegistry(registry);
    EXPECT_EQ(Post("keep_alive_alias", Device("S1", "home")), "good");
    EXPECT_GE(server.Registry()["aliases"]["home"]["seen_at"].asString(), seenAt);
}

TEST_F(AliasServer, DeletesAnAlias) {
    Post("map_alias", Device("S1", "home"));
    EXPECT_EQ(Post("delete_alias", Device("S1", "home")), "good");
    EXPECT_FALSE(server.Registry()["aliases"].isMember("home"));
    EXPECT_EQ(Post("delete_alias", Device("S1", "home")), "alias_not_found:home");
}

TEST_F(AliasServer, DoesNotFindAnUnknownAlias) {
    EXPECT_EQ(Post("keep_alive_alias", Device("S1", "nobody")), "alias_not_found:nobody");
    EXPECT_EQ(Post("delete_alias", Device("S1", "nobody")), "alias_not_found:nobody");
    EXPECT_EQ(Post("query_alias", Device("S1", "nobody"), kQuery), "alias_not_found:nobody");
}

TEST_F(AliasServer, LetsNobodyTouchAnAliasOfAnotherDevice) {
    Post("map_alias", Device("S1", "home"));
    EXPECT_EQ(Post("keep_alive_alias", Device("S2", "home")), "badauth:alias");
    EXPECT_EQ(Post("delete_alias", Device("S2", "home")), "badauth:alias");
    EXPECT_TRUE(server.Registry()["aliases"].isMember("home"));
}

TEST_F(AliasServer, TellsWhoHasAnAliasButNoSecret) {
    Post("map_alias", With(Device("S1", "home"), "kova_account", "ann@example"));
    httplib::Client client(server.HttpUrl());
    const Fields query{{"action", "query_alias"}, {"alias", "HOME"}, {"key", "k"}, {"mac", ""}, {"model", "AV-220"}};
    const auto answer = client.Post(kQuery, query);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
    Json::Value json;
    ASSERT_TRUE(Json::Reader().parse(answer->body, json));
    const Json::Value record = server.Registry()["aliases"]["home"];
    Json::Value expected;
    expected["alias"] = "home";
    for (const char* name : {"id", "model", "mapped_at", "seen_at"}) {
        expected[name] = record[name];
    }
    EXPECT_EQ(json, expected);
}

TEST_F(AliasServer, ComparesAliasesWithoutCase) {
    EXPECT_EQ(Post("map_alias", Device("S1", "HoMe")), "good");
    EXPECT_EQ(Post("map_alias", Device("S2", "hOmE")), "alias_inused:home");
}

TEST_F(AliasServer, RefusesWhatIsNoAliasName) {
    const std::string longest(63, 'a');
    EXPECT_EQ(Post("map_alias", Device("S1", longest)), "good");
    EXPECT_EQ(Post("map_alias", Device("S1", "a")), "good");
    for (const std::string& name : {std::string(), longest + "a", std::string("-home"), std::string("home-"),
                                    std::string("my_home"), std::string("my home"), std::string("h\xC3\xB6me")}) {
        EXPECT_EQ(Post("map_alias", Device("S1", name)), "badparam:alias") << name;
    }
}

TEST_F(AliasServer, NamesTheFieldThatIsMissing) {
    for (const char* name : {"alias", "serial", "token", "id", "mac", "key", "model"}) {
        EXPECT_EQ(Post("map_alias", Without(Device("S1", "home"), name)), std::string("badparam:") + name);
    }
    for (const char* name : {"serial", "token", "id"}) {
        EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), name, "")), std::string("badparam:") + name);
    }
    EXPECT_TRUE(server.Registry()["devices"].empty());
}

TEST_F(AliasServer, NamesTheFieldThatIsWrong) {
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "mac", "02-00-5e-00-00-01")), "badparam:mac");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "mac", "02:00:5e:00:00:0g")), "badparam:mac");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "serial", std::string(65, 's'))), "badparam:serial");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "smartdns_support_type", "two")),
              "badparam:smartdns_support_type");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "smartdns_support_type", "2")), "good");
}

TEST_F(AliasServer, ServesADeviceThatKnowsNeitherItsAddressNorItsModel) {
    const Fields bare = With(With(With(Device("S1", "home"), "mac", ""), "model", ""), "key", "");
    EXPECT_EQ(Post("map_alias", bare), "good");
}

TEST_F(AliasServer, RefusesUnknownActionsAndWrongPages) {
    EXPECT_EQ(Post("steal_alias", Device("S1", "home")), "badparam:action");
    EXPECT_EQ(Post("query_alias", Device("S1", "home"), kUpdate), "badparam:action");
    EXPECT_EQ(Post("map_alias", Device("S1", "home"), kQuery), "badparam:action");
    EXPECT_EQ(PostText("alias=home"), "200 badparam:action");
    EXPECT_EQ(PostText(""), "200 badparam:action");
    EXPECT_EQ(Raw("POST /alias_update.php HTTP/1.1\r\nHost: a\r\n\r\n").substr(0, 15), "HTTP/1.1 200 OK");
}

TEST_F(AliasServer, RefusesMethodsOtherThanPost) {
    for (const char* method : {"GET", "PUT", "DELETE", "PATCH", "OPTIONS"}) {
        const auto answer = Admin(method, kUpdate, "");
        ASSERT_TRUE(answer) << method;
        EXPECT_EQ(answer->status, 200) << method;
        EXPECT_EQ(answer->body, "badparam:method") << method;
    }
}

TEST_F(AliasServer, KnowsNoOtherPage) {
    httplib::Client client(server.HttpUrl());
    EXPECT_EQ(client.Post("/", Device("S1", "home"))->status, 404);
    EXPECT_EQ(client.Get("/alias_update.php/x")->status, 404);
    EXPECT_EQ(client.Get("/sandbox/nothing")->status, 404);
    EXPECT_EQ(client.Get("/sandbox/fault")->status, 405);
}

TEST_F(AliasServer, RefusesABlockedAlias) {
    Post("map_alias", Device("S1", "offensive"));
    EditRegistry("blocked", "offensive");
    EXPECT_EQ(Post("map_alias", Device("S1", "Offensive")), "violation:offensive");
    EXPECT_EQ(Post("keep_alive_alias", Device("S1", "offensive")), "violation:offensive");
    EXPECT_EQ(Post("delete_alias", Device("S1", "offensive")), "good");
}

TEST_F(AliasServer, RefusesABlockedAddress) {
    EditRegistry("blocked_addresses", "127.0.0.1");
    EXPECT_EQ(Post("map_alias", Device("S1", "home")), "badip");
    EXPECT_EQ(Post("query_alias", Device("S1", "home"), kQuery), "badip");
}

TEST_F(AliasServer, RefusesAnExpiredKey) {
    EditRegistry("expired_keys", "api-key-42");
    EXPECT_EQ(Post("map_alias", Device("S1", "home")), "api_key_expired");
    EXPECT_EQ(Post("query_alias", Device("S1", "home"), kQuery), "api_key_expired");
    EXPECT_EQ(Post("map_alias", With(Device("S1", "home"), "key", "fresh")), "good");
}

TEST_F(AliasServer, AdmitsThatItsRegistryCannotBeWritten) {
    Post("map_alias", Device("S1", "home"));
    std::filesystem::remove(server.RegistryFile());
    // A folder in the file's place: no rename over it, even for root.
    std::filesystem::create_directory(server.RegistryFile());
    EXPECT_EQ(Post("map_alias", Device("S1", "second")), "badsys");
    EXPECT_EQ(Post("delete_alias", Device("S1", "home")), "badsys");
    std::filesystem::remove(server.RegistryFile());
    const Json::Value aliases = server.Registry()["aliases"];
    EXPECT_TRUE(aliases.isMember("home"));
    EXPECT_FALSE(aliases.isMember("second"));
    EXPECT_EQ(Post("map_alias", Device("S1", "second")), "good");
}

TEST_F(AliasServer, LeavesNothingBesideItsRegistry) {
    Post("map_alias", Device("S1", "home"));
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"log", "ports.json", "registry.json"}));
    struct stat facts {};
    ASSERT_EQ(::stat(server.RegistryFile().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
}

TEST_F(AliasServer, RemembersEverythingOverARestart) {
    Post("map_alias", Device("S1", "home"));
    EditRegistry("blocked", "offensive");
    const Json::Value before = server.Registry();
    const int port = server.HttpPort();
    EXPECT_EQ(server.Stop(), 0);
    server.Start();
    EXPECT_EQ(server.Registry(), before);
    EXPECT_EQ(server.HttpPort(), port);
    EXPECT_EQ(Post("map_alias", Device("S2", "home")), "alias_inused:home");
}

TEST_F(AliasServer, LosesNothingItConfirmedWhenItIsKilled) {
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(Post("map_alias", Device("S1", "home-" + std::to_string(i))), "good");
    }
    server.Kill();
    server.Start();
    EXPECT_EQ(server.Registry()["aliases"].size(), 20U);
}

TEST_F(AliasServer, RefusesToStartOnADamagedRegistryAndKeepsIt) {
    server.Stop();
    for (const char* text : {"{\"devices\":", "[]", "", "{\"devices\":{\"S1\":{}}}", "{\"surprise\":1}",
                             "{\"aliases\":{\"home\":{\"serial\":\"S9\",\"id\":\"1\",\"mapped_at\":\"x\","
                             "\"seen_at\":\"x\"}}}"}) {
        std::ofstream(server.RegistryFile(), std::ios::trunc) << text;
        try {
            server.Start();
            FAIL() << "started on " << text;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find("ended with code 1"), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find("is damaged and was left as it is"), std::string::npos);
        }
        std::ifstream file(server.RegistryFile());
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
    }
}

TEST_F(AliasServer, RefusesARegistryThatIsNoneAndKeepsItsOwn) {
    Post("map_alias", Device("S1", "home"));
    const Json::Value before = server.Registry();
    for (const char* text : {"{", "[]", "{\"blocked\":[1]}", "{\"blocked\":[\"Upper\"]}", "{\"aliases\":{\"x\":1}}",
                             "{\"devices\":{\"\":{\"token\":\"t\"}}}"}) {
        const auto answer = Admin("PUT", "/sandbox/registry", text);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 400) << text;
        EXPECT_NE(answer->body.find("\"error\""), std::string::npos);
    }
    EXPECT_EQ(server.Registry(), before);
}

TEST_F(AliasServer, ListensOnIpv6) {
    ScratchFolder other;
    AliasServerSettings settings{other.Path()};
    settings.address = "::1";
    const AliasServerProcess second(settings);
    EXPECT_EQ(second.HttpUrl(), "http://[::1]:" + std::to_string(second.HttpPort()));
    EXPECT_TRUE(second.Registry()["aliases"].empty());
}

TEST_F(AliasServer, RefusesAPortThatIsTaken) {
    ScratchFolder other;
    AliasServerSettings settings{other.Path()};
    settings.httpPort = server.HttpPort();
    try {
        const AliasServerProcess second(settings);
        FAIL() << "two servers on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("cannot listen on 127.0.0.1 port"), std::string::npos);
    }
}

}  // namespace
}  // namespace ardv::test
