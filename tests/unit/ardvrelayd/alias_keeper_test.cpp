// SPDX-License-Identifier: Apache-2.0
#include "alias_keeper.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sstream>

#include <relay/daemon/daemon.h>

#include "session_fixture.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

namespace fs = std::filesystem;

const std::string kStatusFile = "/tmp/nubo_alias.status";
constexpr auto kLongestPolling = std::chrono::seconds(604800 + 172800);

/** A field of a form. */
std::string FieldOf(const httplib::Request& request, const std::string& name) {
    return request.has_param(name) ? request.get_param_value(name) : "";
}

/** An alias server whose next answers a test writes beforehand; without one it says "good". */
class AliasScript {
public:
    AliasScript() {
        server_.On("/alias_update.php", [this](const httplib::Request& request, httplib::Response& response) {
            const std::lock_guard lock(mutex_);
            asked_.push_back(FieldOf(request, "action") + " " + FieldOf(request, "alias"));
            response.set_content("good", "text/plain");
            if (!answers_.empty()) {
                response.status = answers_.front().first;
                response.set_content(answers_.front().second, "text/plain");
                answers_.pop_front();
            }
        });
    }

    void Answer(const std::string& word, int status = 200) {
        const std::lock_guard lock(mutex_);
        answers_.emplace_back(status, word);
    }

    /** Action and alias of each request so far. */
    std::vector<std::string> Asked() const {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

    std::vector<httplib::Request> Seen() const { return server_.Seen(); }
    std::string Url() const { return server_.Url(""); }

private:
    mutable std::mutex mutex_;
    std::deque<std::pair<int, std::string>> answers_;
    std::vector<std::string> asked_;
    HttpServer server_;
};

/** A device with an alias, an identifier and an alias server of its own. */
class AliasKeeperTest : public DeviceTest {
protected:
    AliasKeeperTest() { fs::remove_all(kStatusFile); }

    void TearDown() override { fs::remove_all(kStatusFile); }

    void WriteConfiguration(const std::string& alias, const std::string& id = "box-1") {
        Json::Value configuration;
        configuration["tethra"]["enabled"] = true;
        configuration["serverID"] = id;
        configuration["server_alias"]["alias"] = alias;
        configuration["server_alias"]["url"] = server_.Url();
        WriteText(kConfigFile, JsonText::Styled(configuration));
    }

    /** Makes a keeper and starts it. */
    void Begin(const RetryPlans& plans, const std::string& alias = "attic", const std::string& id = "box-1") {
        WriteConfiguration(alias, id);
        device_ = std::make_unique<Device>(RelaydConf(kConfigFile), kConfigFile);
        keeper_ = std::make_unique<AliasKeeper>(loop_, engine_, *device_, errors_, plans);
        keeper_->Start(0ms);
    }

    /** The same, until the alias is mapped. */
    void Map(const RetryPlans& plans = kLongPlans) {
        Begin(plans);
        ASSERT_TRUE(RunUntilStatus("success"));
    }

    /** The user edits the configuration, and has the daemon read it. */
    void Reload(const std::string& alias) {
        WriteConfiguration(alias);
        ASSERT_TRUE(device_->Reload());
        keeper_->OnReload();
    }

    bool RunUntil(const std::function<bool()>& isDone) { return RunLoopUntil(loop_, isDone); }
    bool RunUntilAsked(std::size_t count) {
        return RunUntil([&] { return server_.Asked().size() >= count && engine_.Transfers().empty(); });
    }
    bool RunUntilStatus(const std::string& word) {
        return RunUntil([&] { return Recorded()["status"] == word; });
    }

    static Json::Value Recorded() {
        Json::Value value;
        JsonText::Parse(ReadText(kStatusFile), value);
        return value.isObject() ? value : Json::Value(Json::objectValue);
    }

    std::optional<std::chrono::milliseconds> UntilNext() const { return TimeUntil(loop_, "alias"); }
    std::optional<std::chrono::milliseconds> UntilDelete() const { return TimeUntil(loop_, "unwanted alias"); }

    AliasScript server_;
    EventLoop loop_;
    TransferEngine engine_{loop_};
    RecentErrors errors_;
    std::unique_ptr<Device> device_;
    std::unique_ptr<AliasKeeper> keeper_;
};

enum class Next { kNothing, kBackOff };

struct OutcomeRow {
    const char* name;
    const char* answer;
    int status;
    const char* word;
    RELAYD_RET result;
    Next next;
};

const OutcomeRow kOutcomes[] = {
    {"InUse", "alias_inused", 200, "error_inused", RELAYD_RET_ERR_AUTH, Next::kNothing},
    {"OwnInUse", "alias_self_inused", 200, "error_self_inused", RELAYD_RET_ERR_AUTH, Next::kNothing},
    {"Identity", "badauth", 200, "error_auth", RELAYD_RET_ERR_AUTH, Next::kNothing},
    {"Address", "badip", 200, "error_bad_ip", RELAYD_RET_ERR_UNKNOWN, Next::kNothing},
    {"Violation", "violation", 200, "error_violation", RELAYD_RET_ERR_VIOLATION, Next::kNothing},
    {"OutOfService", "911", 200, "error_911", RELAYD_RET_ERR_SERVER_BUSY, Next::kBackOff},
    {"System", "badsys", 200, "error_system", RELAYD_RET_ERR_SERVER_BUSY, Next::kBackOff},
    {"Parameter", "badparam", 200, "error_bad_param", RELAYD_RET_ERR_UNKNOWN, Next::kBackOff},
    {"ApiKey", "api_key_expired", 200, "error_api_key_expired", RELAYD_RET_ERR_API_KEY_EXPIRED, Next::kBackOff},
    {"Busy", "good", 503, "error_server_busy", RELAYD_RET_ERR_SERVER_BUSY, Next::kBackOff},
    {"NoSuchPage", "good", 404, "error_network", RELAYD_RET_ERR_NETWORK, Next::kBackOff},
    {"UnknownWord", "hello", 200, "error_unknown", RELAYD_RET_ERR_UNKNOWN, Next::kBackOff},
    {"Nothing", "", 200, "error_unknown", RELAYD_RET_ERR_UNKNOWN, Next::kBackOff},
};

class AliasOutcome : public AliasKeeperTest, public testing::WithParamInterface<OutcomeRow> {};

}  // namespace

TEST_P(AliasOutcome, IsRecordedToldAndFollowedByWhatThePolicySays) {
    const auto& row = GetParam();
    server_.Answer(row.answer, row.status);
    Begin(kLongPlans);
    std::optional<RELAYD_RET> told;
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    ASSERT_TRUE(RunUntil([&] { return told.has_value(); }));
    EXPECT_EQ(*told, row.result);
    EXPECT_EQ(Recorded()["alias_name"], "attic");
    EXPECT_EQ(Recorded()["status"], row.word);
    EXPECT_EQ(errors_.Describe()[0]["what"], "alias, map");
    EXPECT_EQ(errors_.Describe()[0]["result"], row.word);
    EXPECT_EQ(keeper_->Describe()["refused"], row.next == Next::kNothing);
    EXPECT_EQ(keeper_->Describe()["mapped"], false);
    EXPECT_EQ(UntilNext().has_value(), row.next == Next::kBackOff);
    if (UntilNext()) {
        EXPECT_GT(*UntilNext(), 5s);
        EXPECT_LE(*UntilNext(), 50s);
    }
    std::string why;
    EXPECT_TRUE(keeper_->IsHealthy(why)) << why;
}

INSTANTIATE_TEST_SUITE_P(Answers, AliasOutcome, testing::ValuesIn(kOutcomes),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(AliasKeeperTest, MapsTheAliasAndRecordsIt) {
    Map();
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic"));
    const auto request = server_.Seen()[0];
    EXPECT_EQ(FieldOf(request, "serial"), "AV0000000001");
    EXPECT_EQ(FieldOf(request, "token"), "0123456789abcdef0123456789abcdef");
    EXPECT_EQ(FieldOf(request, "id"), "box-1");
    EXPECT_EQ(Recorded(), JsonOf(R"({"alias_name":"attic","status":"success","extra":""})"));
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 604'700s);
    EXPECT_LE(*UntilNext(), kLongestPolling);
    EXPECT_TRUE(errors_.Describe().empty());
}

TEST_F(AliasKeeperTest, AsksNothingBeforeItsDelayIsOver) {
    Begin(kLongPlans);
    keeper_->Stop();
    keeper_->Start(1h);
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 59min);
    keeper_->Start(0ms);
    EXPECT_GT(*UntilNext(), 59min) << "it is kept already";
}

TEST_F(AliasKeeperTest, WaitsForAnIdentifier) {
    Begin(kLongPlans, "attic", "");
    ASSERT_TRUE(RunUntil([&] { return !UntilNext(); }));
    EXPECT_THAT(server_.Asked(), IsEmpty());
    EXPECT_EQ(keeper_->Describe()["has_identifier"], false);
    std::optional<RELAYD_RET> told;
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    EXPECT_FALSE(told);
    device_->SetServerId("box-7");
    keeper_->Refresh();
    ASSERT_TRUE(RunUntilAsked(1));
    EXPECT_EQ(FieldOf(server_.Seen()[0], "id"), "box-7");
    EXPECT_EQ(told, RELAYD_RET_SUCCESS);
}

TEST_F(AliasKeeperTest, RenewsTheAliasWhenItIsDue) {
    Map();
    LetPass(kLongestPolling);
    ASSERT_TRUE(RunUntilAsked(2));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "keep_alive_alias attic"));
    EXPECT_GT(*UntilNext(), 604'700s);
}

TEST_F(AliasKeeperTest, MapsAnAliasAtOnceThatTheServerHasForgotten) {
    Map();
    server_.Answer("alias_not_found");
    LetPass(kLongestPolling);
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "keep_alive_alias attic", "map_alias attic"));
    ASSERT_TRUE(RunUntilStatus("success"));
}

TEST_F(AliasKeeperTest, DoesNotGoRoundWithAServerThatKeepsForgetting) {
    server_.Answer("alias_not_found");
    server_.Answer("alias_not_found");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilAsked(2));
    ASSERT_TRUE(UntilNext());
    EXPECT_GT(*UntilNext(), 5s) << "the second time in a row";
    EXPECT_EQ(Recorded()["status"], "error_not_found");
}

TEST_F(AliasKeeperTest, RenewsOnceMoreAfterAFailureOfTheServer) {
    Map(kShortPlans);
    server_.Answer("911");
    LetPass(kLongestPolling);
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "keep_alive_alias attic", "keep_alive_alias attic"));
    EXPECT_EQ(keeper_->Describe()["failures"].asUInt(), 0U) << "a success begins a new row";
}

TEST_F(AliasKeeperTest, MapsAnewOnceARefusalIsMended) {
    server_.Answer("badauth");
    server_.Answer("alias_inused");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilStatus("error_auth"));
    Reload("attic");
    ASSERT_TRUE(RunUntilStatus("error_inused"));
    keeper_->OnNetworkChange();
    ASSERT_TRUE(RunUntilStatus("success"));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias attic", "map_alias attic"));
}

TEST_F(AliasKeeperTest, AsksNothingForAReloadThatChangesNothing) {
    Map();
    const auto due = UntilNext();
    Reload("attic");
    keeper_->Refresh();
    EXPECT_LE(*UntilNext(), *due);
    EXPECT_GT(*UntilNext(), 604'000s);
    EXPECT_TRUE(engine_.Transfers().empty());
}

TEST_F(AliasKeeperTest, MapsAnewWhereTheNetworkHasChanged) {
    Map();
    keeper_->OnNetworkChange();
    ASSERT_TRUE(RunUntilAsked(2));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias attic"));
}

TEST_F(AliasKeeperTest, MapsAnotherAliasAndThenGivesTheOldOneUp) {
    Map();
    Reload("loft");
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias loft", "delete_alias attic"));
    EXPECT_EQ(Recorded()["alias_name"], "loft") << "giving one up is not recorded";
    EXPECT_EQ(keeper_->Describe()["to_give_up"].asUInt(), 0U);
}

TEST_F(AliasKeeperTest, GivesUpAnAliasThatIsWantedNoMore) {
    Map();
    Reload("");
    ASSERT_TRUE(RunUntilAsked(2));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "delete_alias attic"));
    EXPECT_EQ(Recorded()["alias_name"], "");
    EXPECT_EQ(Recorded()["status"], "not_set");
    EXPECT_FALSE(UntilNext());
}

TEST_F(AliasKeeperTest, KeepsAnAliasThatIsWantedAgain) {
    Map();
    server_.Answer("911");
    Reload("loft");
    ASSERT_TRUE(RunUntilStatus("error_911"));
    Reload("attic");
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias loft", "map_alias attic"));
    EXPECT_EQ(keeper_->Describe()["to_give_up"].asUInt(), 0U) << "the other one was never mapped";
}

TEST_F(AliasKeeperTest, GivesUpAnAliasThatItCouldNotRenewMeanwhile) {
    Map();
    server_.Answer("busy", 503);
    keeper_->OnNetworkChange();
    ASSERT_TRUE(RunUntilStatus("error_server_busy"));
    Reload("");
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_EQ(server_.Asked().back(), "delete_alias attic");
}

TEST_F(AliasKeeperTest, GivesUpAnAliasThatIsAnotherOnceTheServiceIsOnAgain) {
    Map();
    keeper_->Stop();
    Reload("loft");
    keeper_->Start(0ms);
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias loft", "delete_alias attic"));
}

TEST_F(AliasKeeperTest, TriesToGiveAnAliasUpUntilTheServerHasAnswered) {
    Map(kShortPlans);
    server_.Answer("good");
    server_.Answer("good", 503);
    server_.Answer("911");
    server_.Answer("alias_not_found");
    Reload("loft");
    ASSERT_TRUE(RunUntilAsked(5));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias loft", "delete_alias attic",
                                             "delete_alias attic", "delete_alias attic"));
    EXPECT_EQ(keeper_->Describe()["to_give_up"].asUInt(), 0U) << "gone, or not the device's";
    EXPECT_FALSE(UntilDelete());
    EXPECT_EQ(Recorded()["status"], "success");
}

TEST_F(AliasKeeperTest, TellsEachAskerOnce) {
    Map();
    std::vector<std::string> told;
    for (const char* asker : {"a", "b"}) {
        keeper_->UpdateNow([&told, asker](RELAYD_RET result) { told.push_back(asker + GetErrorStr(result)); });
    }
    ASSERT_TRUE(RunUntil([&] { return !told.empty(); }));
    EXPECT_THAT(told, ElementsAre("asuccess", "bsuccess"));
    EXPECT_THAT(server_.Asked(), ElementsAre("map_alias attic", "map_alias attic"));
    LetPass(kLongestPolling);
    ASSERT_TRUE(RunUntilAsked(3));
    EXPECT_EQ(told.size(), 2U);
}

TEST_F(AliasKeeperTest, TellsAtOnceThatThereIsNothingToUpdate) {
    Begin(kLongPlans, "");
    std::optional<RELAYD_RET> told;
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    EXPECT_EQ(told, RELAYD_RET_ERR_CONFIG) << "without an alias";
    keeper_->Stop();
    told.reset();
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    EXPECT_EQ(told, RELAYD_RET_ERR_CONFIG) << "off";
}

TEST_F(AliasKeeperTest, AsksNothingOnceItIsOff) {
    Begin(kLongPlans);
    std::optional<RELAYD_RET> told;
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    keeper_->Stop();
    EXPECT_EQ(told, RELAYD_RET_ERR_CONFIG);
    EXPECT_FALSE(UntilNext());
    EXPECT_TRUE(engine_.Transfers().empty());
    keeper_->OnNetworkChange();
    keeper_->OnReload();
    keeper_->OnClockSet();
    EXPECT_FALSE(UntilNext());
    EXPECT_EQ(keeper_->Describe()["on"], false);
}

TEST_F(AliasKeeperTest, WaitsForTheIdentityOfItsDevice) {
    fs::remove(kIdentityFile);
    const CapturedLog quiet(0);
    Begin(kLongPlans);
    std::optional<RELAYD_RET> told;
    keeper_->UpdateNow([&](RELAYD_RET result) { told = result; });
    ASSERT_TRUE(RunUntil([&] { return told.has_value(); }));
    EXPECT_EQ(told, RELAYD_RET_ERR_CONFIG);
    EXPECT_THAT(server_.Asked(), IsEmpty());
    EXPECT_EQ(errors_.Describe()[0]["result"], "the device's identity is not complete");
    EXPECT_EQ(keeper_->Describe()["refused"], true);
    MakeDevice();
    Reload("attic");
    ASSERT_TRUE(RunUntilStatus("success"));
}

TEST_F(AliasKeeperTest, RecordsWhatTheServerAddsInPrintableCharacters) {
    server_.Answer("alias_inused:box\x1b[2J\xc3\xa9 " + std::string(1000, 'x'));
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilStatus("error_inused"));
    const auto extra = Recorded()["extra"].asString();
    EXPECT_EQ(extra.size(), 256U);
    EXPECT_EQ(extra.substr(0, 11), "box?[2J?? x");
}

TEST_F(AliasKeeperTest, RecordsAnOutcomeOnce) {
    Map();
    const auto before = fs::last_write_time(kStatusFile);
    keeper_->OnNetworkChange();
    ASSERT_TRUE(RunUntilAsked(2));
    EXPECT_EQ(fs::last_write_time(kStatusFile), before);
}

TEST_F(AliasKeeperTest, TriesAgainWhenTheClockWasSet) {
    server_.Answer("911");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilStatus("error_911"));
    keeper_->OnClockSet();
    ASSERT_TRUE(RunUntilStatus("success"));
    keeper_->OnClockSet();
    EXPECT_GT(*UntilNext(), 604'000s) << "nothing is due";
    EXPECT_EQ(server_.Asked().size(), 2U);
}

TEST_F(AliasKeeperTest, IsNotMovedByTheClockAfterARefusal) {
    server_.Answer("badauth");
    Begin(kLongPlans);
    ASSERT_TRUE(RunUntilStatus("error_auth"));
    keeper_->OnClockSet();
    EXPECT_FALSE(UntilNext());
}

TEST_F(AliasKeeperTest, IsUnhealthyWhereARenewalIsOverdue) {
    Map();
    std::string why;
    EXPECT_TRUE(keeper_->IsHealthy(why)) << why;
    LetPass(kLongestPolling + 31s);
    EXPECT_FALSE(keeper_->IsHealthy(why));
    EXPECT_NE(why, "");
    ASSERT_TRUE(RunUntilAsked(2));
    EXPECT_TRUE(keeper_->IsHealthy(why));
}

TEST_F(AliasKeeperTest, DescribesItselfWithoutASecret) {
    Map();
    const auto described = keeper_->Describe();
    EXPECT_EQ(described["alias"], "attic");
    EXPECT_EQ(described["status"], "success");
    EXPECT_EQ(described["on"], true);
    EXPECT_EQ(described["mapped"], true);
    const auto text = JsonText::Styled(described);
    for (const char* secret : {"0123456789abcdef", "example-api-key", "AV0000000001"}) {
        EXPECT_THAT(text, Not(HasSubstr(secret)));
    }
}
