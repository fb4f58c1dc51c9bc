// SPDX-License-Identifier: Apache-2.0
// The daemon's alias while its server fails or refuses, and while its user changes it.
#include <relay/daemon/daemon.h>

#include "integration/daemon_fixture.h"

namespace ardv::test {
namespace {

using ARDV::Relay::Daemon;
using std::chrono::milliseconds;

/** What the alias server does, and what is recorded of it. */
struct AliasFault {
    const char* name;
    const char* fault;  ///< without "count"
    const char* word;
    bool isRefusal = false;  ///< waits for its user
};

class AliasOutage : public DaemonTest, public testing::WithParamInterface<AliasFault> {};

const AliasFault kAliasFaults[] = {
    {"Reset", R"("kind":"reset")", "error_network"},
    {"Cut", R"("kind":"cut")", "error_unknown"},
    {"Http500", R"("kind":"status","status":500)", "error_server_busy"},
    {"Http404", R"("kind":"status","status":404)", "error_network"},
    {"Http302", R"("kind":"status","status":302)", "error_unknown"},
    {"GarbageBody", R"("kind":"garbage")", "error_unknown"},
    {"GarbageProtocol", R"("kind":"garbage","variant":"protocol")", "error_unknown"},
    {"EmptyBody", R"("kind":"reply","body":"")", "error_unknown"},
    {"HugeBody", R"("kind":"huge","bytes":20000000)", "error_unknown"},
    {"Maintenance", R"("kind":"maintenance")", "error_911"},
    {"System", R"("kind":"reply","body":"badsys")", "error_system"},
    {"BadParameter", R"("kind":"reply","body":"badparam:id")", "error_bad_param"},
    {"NotFound", R"("kind":"reply","body":"alias_not_found:attic")", "error_not_found"},
    {"KeyExpired", R"("kind":"reply","body":"api_key_expired")", "error_api_key_expired"},
    {"Auth", R"("kind":"reply","body":"badauth:serial")", "error_auth", true},
    {"BadAddress", R"("kind":"reply","body":"badip:192.0.2.1")", "error_bad_ip", true},
    {"InUse", R"("kind":"reply","body":"alias_inused:attic")", "error_inused", true},
    {"InUseByOneself", R"("kind":"reply","body":"alias_self_inused:attic")", "error_self_inused", true},
    {"Violation", R"("kind":"reply","body":"violation:attic")", "error_violation", true},
};

INSTANTIATE_TEST_SUITE_P(Of, AliasOutage, testing::ValuesIn(kAliasFaults), ParamName<AliasFault>);

TEST_P(AliasOutage, IsRecordedAndOutlived) {
    alias.SetFault(R"({"count":0,)" + std::string(GetParam().fault) + "}");
    Start();
    EXPECT_EQ(AwaitAlias(GetParam().word), GetParam().word);
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn) << "the session has nothing to do with it";
    if (GetParam().isRefusal) {
        EXPECT_TRUE(Holds([&] { return alias.Requests().size() == 1; }, milliseconds(200)));
    } else {
        EXPECT_TRUE(Await([&] { return alias.Requests().size() >= 3; })) << "is not tried again";
    }
    alias.ClearFault();
    if (GetParam().isRefusal) {
        EXPECT_TRUE(daemon->Reload());
    }
    EXPECT_EQ(AwaitAlias("success"), "success");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    ExpectOrderlyEnd();
}

class DaemonAlias : public DaemonTest {
protected:
    static void Rename(const std::string& name) {
        Edit([&](Json::Value& c) { c["server_alias"]["alias"] = name; });
    }

    /** The names that the alias server knows, and nothing else. */
    std::vector<std::string> Names() const { return alias.Registry()["aliases"].getMemberNames(); }

    bool IsAskedToDelete(const std::string& name) const {
        const auto requests = alias.Requests();
        return std::any_of(requests.begin(), requests.end(), [&](const auto& request) {
            const auto body = request["body"].asString();
            return body.find("action=delete_alias&") != std::string::npos &&
                   body.find("alias=" + name + "&") != std::string::npos;
        });
    }

    bool AwaitNames(const std::vector<std::string>& names) const {
        return Await([&] { return Names() == names; });
    }
};

TEST_F(DaemonAlias, IsMappedOnceItsServerComesUp) {
    alias.Stop();
    Start();
    EXPECT_EQ(AwaitAlias("error_network"), "error_network");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    alias.Start();
    EXPECT_EQ(AwaitAlias("success"), "success");
}

TEST_F(DaemonAlias, IsUpdatedWhileTheControlServerIsDown) {
    StartAndLogIn();
    control.Stop();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    alias.ClearRequests();
    EXPECT_EQ(Daemon::UpdateAlias(), 0);
    EXPECT_TRUE(Await([&] { return alias.Requests().size() == 1; }));
    EXPECT_EQ(AwaitAlias("success"), "success");
}

TEST_F(DaemonAlias, WaitsForAnIdentifier) {
    control.Stop();
    Start();
    EXPECT_EQ(AwaitStatus("starting err_network"), "starting err_network");
    EXPECT_EQ(Daemon::UpdateAlias(), 0);
    EXPECT_TRUE(Holds([&] { return alias.Requests().empty(); }, milliseconds(200)));
    control.Start();
    EXPECT_EQ(AwaitAlias("success"), "success");
    EXPECT_EQ(alias.Registry()["aliases"]["attic"]["id"], ServerId());
}

TEST_F(DaemonAlias, IsMappedAfterAReloadOnceNobodyElseHasIt) {
    auto registry = alias.Registry();
    registry["devices"]["AV0000000002"]["token"] = "other";
    registry["aliases"]["attic"]["serial"] = "AV0000000002";
    registry["aliases"]["attic"]["id"] = "other";
    registry["aliases"]["attic"]["mapped_at"] = registry["aliases"]["attic"]["seen_at"] = "2026-01-31T08:15:00.123Z";
    alias.SetRegistry(registry);
    Start();
    EXPECT_EQ(AwaitAlias("error_inused"), "error_inused");
    alias.SetRegistry(Json::Value(Json::objectValue));
    EXPECT_TRUE(Holds([] { return AliasWord() == "error_inused"; }, milliseconds(200)));
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitAlias("success"), "success");
}

TEST_F(DaemonAlias, IsGivenUpWhenItHasAnotherName) {
    StartAndLogIn();
    Rename("cellar");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitNames({"cellar"}));
    EXPECT_TRUE(Await([] { return JsonFrom(ReadText(kDaemonStatusFile))["alias"] == "cellar"; }));
    EXPECT_EQ(JsonFrom(ReadText(kAliasStatusFile))["alias_name"], "cellar");
}

TEST_F(DaemonAlias, IsGivenUpWhenThereIsNoneAnyMore) {
    StartAndLogIn();
    Rename("");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitNames({}));
    EXPECT_EQ(AwaitAlias("not_set"), "not_set");
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
}

TEST_F(DaemonAlias, IsGivenUpOnceTheServerIsBack) {
    StartAndLogIn();
    alias.Stop();
    Rename("cellar");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitAlias("error_network"), "error_network");
    alias.Start();
    EXPECT_TRUE(AwaitNames({"cellar"}));
}

TEST_F(DaemonAlias, IsGivenUpThoughNobodyHeardThatItWasMapped) {
    StartAndLogIn();
    alias.SetFault(R"({"kind":"slow","delay_ms":300})");
    Rename("cellar");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(Await([&] { return alias.Requests().size() == 2; }));
    Rename("roof");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(Await([&] { return IsAskedToDelete("cellar"); }));
    EXPECT_TRUE(AwaitNames({"roof"}));
}

TEST_F(DaemonAlias, IsGivenUpWhenItWasRenamedWhileTheServiceWasOff) {
    StartAndLogIn();
    Edit([](Json::Value& c) { c["tethra"]["enabled"] = false; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_EQ(AwaitStatus("logout success"), "logout success");
    Rename("cellar");
    Edit([](Json::Value& c) { c["tethra"]["enabled"] = true; });
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitNames({"cellar"}));
}

TEST_F(DaemonAlias, OfSomebodyElseIsNotGivenUp) {
    alias.SetFault(R"({"kind":"reply","body":"alias_inused:attic"})");
    Start();
    EXPECT_EQ(AwaitAlias("error_inused"), "error_inused");
    Rename("cellar");
    EXPECT_TRUE(daemon->Reload());
    EXPECT_TRUE(AwaitNames({"cellar"}));
    EXPECT_TRUE(Holds([&] { return !IsAskedToDelete("attic"); }, milliseconds(200)));
}

TEST_F(DaemonAlias, ComesBackToItsFirstName) {
    StartAndLogIn();
    for (int i = 0; i < 5; ++i) {
        for (const auto* name : {"cellar", "roof", "attic"}) {
            Rename(name);
            EXPECT_TRUE(daemon->Reload());
        }
    }
    EXPECT_TRUE(AwaitNames({"attic"}));
    EXPECT_EQ(AwaitAlias("success"), "success");
    EXPECT_TRUE(Holds([&] { return Names() == std::vector<std::string>{"attic"}; }, milliseconds(200)));
}

TEST_F(DaemonAlias, KeepsASilentServerFromNothingElse) {
    alias.SetFault(R"({"count":0,"kind":"silent"})");
    Start();
    EXPECT_EQ(AwaitStatus(kLoggedIn), kLoggedIn);
    EXPECT_TRUE(Await([&] { return alias.Requests().size() == 1; }));
    EXPECT_TRUE(daemon->Reload());
    alias.ClearFault();
    EXPECT_EQ(AwaitAlias("success"), "success");
}

TEST_F(DaemonAlias, ShowsNothingButPlainTextOfWhatTheServerAdds) {
    alias.SetFault(R"({"kind":"reply","body":"badauth:\u001b[2J\u0007<b>"})");
    Start();
    EXPECT_EQ(AwaitAlias("error_auth"), "error_auth");
    const auto extra = JsonFrom(ReadText(kAliasStatusFile))["extra"].asString();
    EXPECT_EQ(extra.find_first_of("\x1b\a"), std::string::npos) << extra;
}

}  // namespace
}  // namespace ardv::test
