// SPDX-License-Identifier: Apache-2.0
// The keeper with stand-ins for OpenVPN, the packet filter and the control script, which do as the port of a candidate says and note
// what they are called with.
#include "tunnel_keeper.h"

#include <libdaemon/dsignal.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include <relay/daemon/daemon.h>
#include <relay/tunnel/tunnel_names.h>

#include "session_fixture.h"
#include "signals.h"
#include "support/service_device.h"
#include "support/stand_in_tunnel.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace ARDV::Relay;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

constexpr const char kConfiguration[] = "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf";
constexpr const char kPermissions[] = "/usr/ardv/etc/ardvrelayd/services.conf";

/** A list of candidates with these ports. */
Json::Value Candidates(const std::vector<std::string>& ports) {
    Json::Value list(Json::arrayValue);
    for (const auto& port : ports) {
        list.append(JsonOf(R"({"type":"openvpn","protocol":"udp","mtu":"1500"})"))["port"] = port;
    }
    return list;
}

TunnelOrder Order(const std::vector<std::string>& ports, const std::string& user = "box-1") {
    auto relay = JsonOf(R"({"relay_ip":"198.51.100.7","relay_ipv6":"","relay_pass":"hush-pass"})");
    relay["relay_user"] = user;
    return {relay, Candidates(ports)};
}

class TunnelKeeperTest : public ServiceDevice {
protected:
    TunnelKeeperTest() {
        InstallTunnelStandIns();
        Offer(R"([{"service":"dms","display_name":"pages","ports":["5000"]},
                  {"service":"http","display_name":"web","ports":["80"]}])");
        Permit(R"([{"id":"mobile_apps","enabled":true}])");
        WriteText(kConfiguration,
                  R"({"tethra":{"enabled":true},"service":[{"id":"hos"},{"id":"http"},{"id":"support_hos"}]})");
        Daemon::InitSignalHandler();
        Make(kShortPlans);
    }

    ~TunnelKeeperTest() override {
        keeper_.reset();
        daemon_signal_done();
    }

    static void Permit(const std::string& groups) { WriteText(kPermissions, groups); }

    void Make(const RetryPlans& plans) {
        keeper_.reset();
        device_ = std::make_unique<Device>(RelaydConf(kConfiguration), kConfiguration);
        keeper_ =
            std::make_unique<TunnelKeeper>(loop_, *device_, errors_, plans,
                                           TunnelKeeper::Events{[this] { Note(); },
                                                                [this](const std::string& id, RELAYD_RET result) {
                                                                    results_.push_back(id + " " + GetErrorStr(result));
                                                                },
                                                                [this] { return ++refreshes_ > 0 && canRefresh_; }});
        signals_ = std::make_unique<SignalSource>(loop_, [this](Command command) { Obey(command); });
    }

    void Obey(Command command) {
        if (command == Command::kChildEnded) {
            keeper_->OnChildEnded();
        } else if (command == Command::kTunnelReady) {
            keeper_->OnReady();
        } else if (command == Command::kTunnelAlarm) {
            keeper_->OnAlarm();
        }
    }

    void Note() {
        auto status = keeper_->Published()["status"].asString();
        if (statuses_.empty() || statuses_.back() != status) {
            statuses_.push_back(status);
        }
    }

    bool RunUntil(const std::function<bool()>& isDone) { return RunLoopUntil(loop_, isDone); }
    bool RunUntilUp() {
        return RunUntil([this] { return keeper_->IsUp(); });
    }
    bool RunUntilResults(std::size_t count) {
        return RunUntil([&] { return results_.size() >= count; });
    }

    static std::string Error(const Json::Value& published) { return published["error"].asString(); }

    EventLoop loop_;
    RecentErrors errors_;
    std::unique_ptr<Device> device_;
    std::unique_ptr<TunnelKeeper> keeper_;
    std::unique_ptr<SignalSource> signals_;
    std::vector<std::string> results_;
    std::vector<std::string> statuses_;
    int refreshes_ = 0;
    bool canRefresh_ = false;
};

TEST_F(TunnelKeeperTest, OpensATunnelAndLetsInWhatIsPermitted) {
    EXPECT_EQ(keeper_->Open(Order({kComesUp}), "a"), std::nullopt);
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(results_, ElementsAre("a success"));
    EXPECT_THAT(statuses_, ElementsAre("NONE", "CREATING", "READY"));
    const auto calls = TunnelCalls();
    EXPECT_THAT(calls, ElementsAre("ovpnc.sh load tethraa-tunnel", "iptables -F TETHRA_RELAY",
                                   "ip6tables -F TETHRA_RELAY", "iptables -A TETHRA_RELAY -i tun1000 -j DROP",
                                   "ip6tables -A TETHRA_RELAY -i tun1000 -j DROP",
                                   "iptables -I TETHRA_RELAY -i tun1000 -p icmp -j ACCEPT",
                                   "ip6tables -I TETHRA_RELAY -i tun1000 -p ipv6-icmp -j ACCEPT",
                                   "iptables -I TETHRA_RELAY -i tun1000 -p tcp --dport 5000 -j ACCEPT",
                                   "ip6tables -I TETHRA_RELAY -i tun1000 -p tcp --dport 5000 -j ACCEPT",
                                   "iptables -I TETHRA_RELAY -i tun1000 -p tcp --dport 80 -j ACCEPT",
                                   "ip6tables -I TETHRA_RELAY -i tun1000 -p tcp --dport 80 -j ACCEPT"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
}

TEST_F(TunnelKeeperTest, PublishesTheTunnelWithoutItsSecrets) {
    keeper_->Open(Order({kEndsAtOnce, kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    auto published = keeper_->Published();
    EXPECT_GT(published["pid"].asInt(), 1);
    EXPECT_NEAR(static_cast<double>(published["since"].asInt64()), static_cast<double>(std::time(nullptr)), 5);
    published.removeMember("pid");
    published.removeMember("since");
    EXPECT_EQ(published,
              JsonOf(R"({"status":"READY","relay_ip":"198.51.100.7","peer_ip":"10.8.0.1","local_ip":"10.8.0.2",
        "candidate":{"protocol":"udp","host":"198.51.100.7","port":"1002"},
        "open":[{"id":"hos","port":5000},{"id":"http","port":80}]})"));
    EXPECT_EQ(keeper_->ToldToServer(), JsonOf(R"({"status":"READY","relay_ip":"198.51.100.7"})"));
    const auto report = JsonText::Compact(keeper_->Describe());
    EXPECT_EQ(report.find("hush-pass"), std::string::npos);
    EXPECT_EQ(report.find("box-1"), std::string::npos);
}

TEST_F(TunnelKeeperTest, GoesOnWithTheNextCandidate) {
    keeper_->Open(Order({kEndsAtOnce, kEndsAtOnce, kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(TunnelTries(), ElementsAre("1001 box-1", "1001 box-1", "1002 box-1"));
    EXPECT_THAT(results_, ElementsAre("a success"));
}

TEST_F(TunnelKeeperTest, TellsThatAllHaveFailedAndTriesAgain) {
    keeper_->Open(Order({kEndsAtOnce, kEndsAtOnce}), "a");
    ASSERT_TRUE(RunUntilResults(1));
    EXPECT_THAT(results_, ElementsAre("a err_network"));
    EXPECT_EQ(keeper_->Published()["status"], "FAILED");
    EXPECT_EQ(Error(keeper_->Published()), "OpenVPN ended before the tunnel was up");
    EXPECT_TRUE(keeper_->Published().isMember("retry_at"));
    EXPECT_EQ(TunnelTries().size(), 2U);
    EXPECT_TRUE(RunUntil([] { return TunnelTries().size() >= 4; }));
    EXPECT_EQ(refreshes_, 1);
    EXPECT_THAT(results_, testing::SizeIs(1));
}

TEST_F(TunnelKeeperTest, TellsThatNoCandidateIsOfUse) {
    for (const auto& candidates :
         {Json::Value(Json::arrayValue), JsonOf(R"([7,{},{"type":"other"}])"), Candidates({"70000", "--up"})}) {
        results_.clear();
        keeper_->Open({Order({}).relay, candidates}, "a");
        EXPECT_THAT(results_, ElementsAre("a err_network"));
        EXPECT_EQ(Error(keeper_->Published()), "no candidate can be used");
        EXPECT_EQ(keeper_->Published()["open"], Json::Value(Json::arrayValue));
    }
    EXPECT_THAT(TunnelTries(), IsEmpty());
}

TEST_F(TunnelKeeperTest, RefusesAnOrderThatLacksWhatItTakes) {
    keeper_->Open(Order({kComesUp}, ""), "a");
    EXPECT_THAT(results_, ElementsAre("a err_unknown"));
    EXPECT_EQ(keeper_->Published()["status"], "INVALID_CONF");
    EXPECT_THAT(TunnelTries(), IsEmpty());
    keeper_->Open(Order({kComesUp}), "b");
    ASSERT_TRUE(RunUntilUp());
}

TEST_F(TunnelKeeperTest, AnswersTheSameOrderByHowTheTunnelIs) {
    keeper_->Open(Order({kComesUp}), "a");
    EXPECT_EQ(keeper_->Open(Order({kComesUp}), "b"), std::nullopt);
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(results_, ElementsAre("a success", "b success"));
    EXPECT_EQ(keeper_->Open(Order({kComesUp}), "c"), RELAYD_RET_SUCCESS);
    EXPECT_THAT(TunnelTries(), testing::SizeIs(1));
}

TEST_F(TunnelKeeperTest, ReplacesATunnelByAnother) {
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    const auto first = keeper_->Published()["pid"].asInt();
    keeper_->Open(Order({kComesUp}, "box-2"), "b");
    EXPECT_FALSE(keeper_->IsUp());
    ASSERT_TRUE(RunUntilUp());
    EXPECT_EQ(kill(first, 0), -1);
    EXPECT_THAT(TunnelTries(), ElementsAre("1002 box-1", "1002 box-2"));
    EXPECT_THAT(results_, ElementsAre("a success", "b success"));
}

TEST_F(TunnelKeeperTest, GivesUpWhatAnotherOrderReplaces) {
    keeper_->Open(Order({kHangs}), "a");
    ASSERT_TRUE(RunUntil([] { return !TunnelTries().empty(); }));
    keeper_->Open(Order({kComesUp}, "box-2"), "b");
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(results_, ElementsAre("a err_unknown", "b success"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
}

TEST_F(TunnelKeeperTest, EndsOpenVpnBeforeTheRulesGo) {
    InstallScript("/usr/sbin/iptables",
                  "#!/bin/sh\nkill -0 $(cat /run/tunnel.child) 2>/dev/null && echo \"with OpenVPN: $*\" "
                  ">>/run/tunnel.calls\nexit 0\n");
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    TunnelCalls();
    EXPECT_EQ(keeper_->Close("b"), std::nullopt);
    EXPECT_THAT(TunnelCalls(), IsEmpty()) << "nothing before its end";
    ASSERT_TRUE(RunUntilResults(2));
    EXPECT_THAT(results_, ElementsAre("a success", "b success"));
    EXPECT_THAT(TunnelCalls(), ElementsAre("ip6tables -F TETHRA_RELAY", "ovpnc.sh unload tethraa-tunnel"));
    EXPECT_TRUE(keeper_->Published().isNull());
    EXPECT_TRUE(keeper_->ToldToServer().isNull());
    EXPECT_FALSE(fs::exists(TunnelNames::kInformationFile));
}

TEST_F(TunnelKeeperTest, HasNothingToCloseAtFirst) {
    EXPECT_EQ(keeper_->Close("a"), RELAYD_RET_SUCCESS);
    keeper_->Close();
    keeper_->Stop();
    EXPECT_THAT(TunnelCalls(), IsEmpty());
}

TEST_F(TunnelKeeperTest, ClosesWhatIsBeingTried) {
    keeper_->Open(Order({kHangs}), "a");
    keeper_->Close("b");
    keeper_->Close("c");
    ASSERT_TRUE(RunUntilResults(3));
    EXPECT_THAT(results_, ElementsAre("a err_unknown", "b success", "c success"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
    EXPECT_EQ(alarm(0), 0U) << "the alarm of the try";
}

TEST_F(TunnelKeeperTest, OpensAnewWhatIsBeingClosed) {
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    keeper_->Close("b");
    keeper_->Open(Order({kComesUp}), "c");
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(results_, testing::UnorderedElementsAre("a success", "b success", "c success"));
}

TEST_F(TunnelKeeperTest, KillsAnOpenVpnThatDoesNotEnd) {
    keeper_->Open(Order({kIsStubborn}), "a");
    ASSERT_TRUE(RunUntilUp());
    keeper_->Close("b");
    ASSERT_TRUE(RunUntilResults(2));
    EXPECT_TRUE(keeper_->Published().isNull());
}

TEST_F(TunnelKeeperTest, EndsAtOnceWithTheDaemon) {
    for (const char* port : {kHangs, kComesUp, kIsStubborn}) {
        keeper_->Open(Order({port}), "a");
        ASSERT_TRUE(RunUntil([] { return !TunnelTries().empty(); }));
        const auto child = keeper_->Published()["pid"].asInt();
        TunnelCalls();
        keeper_->Stop();
        EXPECT_EQ(kill(child, 0), -1);
        EXPECT_THAT(TunnelCalls(), testing::Contains("ip6tables -F TETHRA_RELAY"));
        EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
        EXPECT_FALSE(fs::exists(TunnelNames::kInformationFile));
        EXPECT_EQ(alarm(0), 0U);
        ForgetTunnelTries();
        Make(kShortPlans);
    }
}

TEST_F(TunnelKeeperTest, BeginsAnewWhenTheConnectionIsLost) {
    keeper_->Open(Order({kEndsAtOnce, kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    kill(keeper_->Published()["pid"].asInt(), SIGKILL);
    ASSERT_TRUE(RunUntil([this] { return !keeper_->IsUp(); }));
    EXPECT_EQ(keeper_->Published()["status"], "CLOSE");
    EXPECT_EQ(Error(keeper_->Published()), "the connection to the relay was lost");
    EXPECT_EQ(keeper_->Published()["open"], Json::Value(Json::arrayValue));
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(TunnelTries(), ElementsAre("1001 box-1", "1002 box-1", "1001 box-1", "1002 box-1"));
    EXPECT_THAT(results_, ElementsAre("a success"));
}

TEST_F(TunnelKeeperTest, TakesTheOrderAsItIsByThen) {
    canRefresh_ = true;
    keeper_->Open(Order({kEndsAtOnce}), "a");
    ASSERT_TRUE(RunUntil([this] { return refreshes_ == 1; }));
    keeper_->Renew(Order({kComesUp}, "box-2"));
    ASSERT_TRUE(RunUntilUp());
    EXPECT_THAT(TunnelTries(), ElementsAre("1001 box-1", "1002 box-2"));
}

TEST_F(TunnelKeeperTest, TriesWithTheOldOrderWhereNoneIsTold) {
    canRefresh_ = true;
    keeper_->Open(Order({kEndsAtOnce}), "a");
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(RunUntil([&] { return refreshes_ == round; }));
        const auto tries = TunnelTries().size();
        keeper_->Renew(round == 1 ? std::nullopt : std::optional(Order({kEndsAtOnce})));
        EXPECT_TRUE(RunUntil([&] { return TunnelTries().size() == tries + 1; }));
    }
}

TEST_F(TunnelKeeperTest, StartsNothingWhereTheOrderIsOfNoUseByThen) {
    canRefresh_ = true;
    keeper_->Open(Order({kEndsAtOnce}), "a");
    ASSERT_TRUE(RunUntil([this] { return refreshes_ == 1; }));
    keeper_->Renew(Order({kComesUp}, ""));
    EXPECT_EQ(keeper_->Published()["status"], "INVALID_CONF");
    LetPass(31s);  // beyond the time for an answer
    ASSERT_TRUE(RunUntil([looks = 0]() mutable { return ++looks == 20; }));
    EXPECT_EQ(keeper_->Published()["status"], "INVALID_CONF");
    EXPECT_THAT(TunnelTries(), testing::SizeIs(1));
}

TEST_F(TunnelKeeperTest, IsNotRenewedUnlessItAsked) {
    keeper_->Renew(Order({kComesUp}));
    EXPECT_TRUE(keeper_->Published().isNull());
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    keeper_->Renew(Order({kHangs}));
    EXPECT_TRUE(keeper_->IsUp());
}

TEST_F(TunnelKeeperTest, TriesAtOnceWhenTheNetworkHasChanged) {
    Make(kLongPlans);
    keeper_->Open(Order({kEndsAtOnce}), "a");
    ASSERT_TRUE(RunUntilResults(1));
    EXPECT_GT(*TimeUntil(loop_, "tunnel"), 5s);
    keeper_->TryNow();
    EXPECT_TRUE(RunUntil([] { return TunnelTries().size() == 2; }));
}

TEST_F(TunnelKeeperTest, BelievesNoSignalWithoutItsOpenVpnsWord) {
    keeper_->Open(Order({kHangs}), "a");
    ASSERT_TRUE(RunUntil([] { return !TunnelTries().empty(); }));
    const auto child = std::to_string(keeper_->Published()["pid"].asInt());
    keeper_->OnReady();
    EXPECT_FALSE(keeper_->IsUp()) << "no file";
    WriteText(TunnelNames::kInformationFile, "openvpn_pid=\"1\"\n");
    keeper_->OnReady();
    EXPECT_FALSE(keeper_->IsUp()) << "another's";
    for (const auto& text : std::vector<std::string>{child + "x", "", "-1", "99999999999999999999"}) {
        WriteText(TunnelNames::kInformationFile, "openvpn_pid=\"" + text + "\"\n");
        keeper_->OnReady();
        EXPECT_FALSE(keeper_->IsUp()) << text;
    }
    WriteText("/run/info", "openvpn_pid=\"" + child + "\"\n");
    fs::remove(TunnelNames::kInformationFile);
    fs::create_symlink("/run/info", TunnelNames::kInformationFile);
    keeper_->OnReady();
    EXPECT_FALSE(keeper_->IsUp()) << "a link";
    fs::remove(TunnelNames::kInformationFile);
    fs::copy_file("/run/info", TunnelNames::kInformationFile);
    if (chown(TunnelNames::kInformationFile, 12345, 12345) != 0) {
        GTEST_SKIP() << "needs the right to give files away";
    }
    keeper_->OnReady();
    EXPECT_FALSE(keeper_->IsUp()) << "a stranger's";
    ASSERT_EQ(chown(TunnelNames::kInformationFile, 0, 0), 0);
    keeper_->OnReady();
    EXPECT_TRUE(keeper_->IsUp());
}

TEST_F(TunnelKeeperTest, IgnoresAnAlarmThatComesEarly) {
    keeper_->Open(Order({kHangs, kComesUp}), "a");
    ASSERT_TRUE(RunUntil([] { return !TunnelTries().empty(); }));
    keeper_->OnAlarm();
    EXPECT_EQ(keeper_->Published()["status"], "CREATING");
    EXPECT_TRUE(RunUntil([] { return true; }));
    EXPECT_EQ(TunnelTries().size(), 1U);
}

TEST_F(TunnelKeeperTest, EndsATryThatHangsWhenTheAlarmComes) {
    keeper_->Open(Order({kHangs, kComesUp}), "a");
    ASSERT_TRUE(RunUntil([] { return !TunnelTries().empty(); }));
    const auto child = keeper_->Published()["pid"].asInt();
    LetPass(30s);
    keeper_->OnAlarm();
    ASSERT_TRUE(RunUntilUp());
    EXPECT_EQ(kill(child, 0), -1);
    EXPECT_THAT(TunnelTries(), ElementsAre("1003 box-1", "1002 box-1"));
    EXPECT_THAT(statuses_, ElementsAre("NONE", "CREATING", "READY"));
}

TEST_F(TunnelKeeperTest, MakesTheRulesAnewAtAReload) {
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    TunnelCalls();
    WriteText(kConfiguration, R"({"tethra":{"enabled":true},"service":[{"id":"http"}]})");
    ASSERT_TRUE(device_->Reload());
    keeper_->OnReload();
    EXPECT_THAT(TunnelCalls(), ElementsAre("ovpnc.sh load tethraa-tunnel", "iptables -F TETHRA_RELAY",
                                           "ip6tables -F TETHRA_RELAY", "iptables -A TETHRA_RELAY -i tun1000 -j DROP",
                                           "ip6tables -A TETHRA_RELAY -i tun1000 -j DROP",
                                           "iptables -I TETHRA_RELAY -i tun1000 -p icmp -j ACCEPT",
                                           "ip6tables -I TETHRA_RELAY -i tun1000 -p ipv6-icmp -j ACCEPT",
                                           "iptables -I TETHRA_RELAY -i tun1000 -p tcp --dport 80 -j ACCEPT",
                                           "ip6tables -I TETHRA_RELAY -i tun1000 -p tcp --dport 80 -j ACCEPT"));
    EXPECT_EQ(keeper_->Published()["open"], JsonOf(R"([{"id":"http","port":80}])"));

    Permit(R"([])");
    keeper_->OnReload();
    EXPECT_EQ(TunnelCalls().size(), 7U);
    EXPECT_EQ(keeper_->Published()["open"], Json::Value(Json::arrayValue));
}

TEST_F(TunnelKeeperTest, OpensNoTunnelWithoutTheMachinesGuard) {
    InstallScript("/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh", "#!/bin/sh\nexit 1\n");
    keeper_->Open(Order({kComesUp}), "a");
    EXPECT_THAT(results_, ElementsAre("a err_network"));
    EXPECT_EQ(keeper_->Published()["status"], "FAILED");
    EXPECT_EQ(Error(keeper_->Published()), "the machine could not be prepared for a tunnel");
    EXPECT_FALSE(keeper_->Published().isMember("pid"));
    EXPECT_FALSE(fs::exists("/tmp/.tunnel.box-1"));
    InstallTunnelStandIns();
    EXPECT_TRUE(RunUntilUp());
}

TEST_F(TunnelKeeperTest, ClosesATunnelWhoseGuardCannotBePutBack) {
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    const auto child = keeper_->Published()["pid"].asInt();
    InstallScript("/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh", "#!/bin/sh\nexit 1\n");
    keeper_->OnReload();
    EXPECT_FALSE(keeper_->IsUp());
    ASSERT_TRUE(RunUntil([child] { return kill(child, 0) != 0; }));
    EXPECT_EQ(Error(keeper_->Published()), "the machine could not be prepared for a tunnel");
    InstallTunnelStandIns();
    EXPECT_TRUE(RunUntilUp()) << "it is tried again";
}

TEST_F(TunnelKeeperTest, TouchesNoRuleAtAReloadWithoutATunnel) {
    keeper_->OnReload();
    keeper_->Open(Order({kHangs}), "a");
    TunnelCalls();
    keeper_->OnReload();
    EXPECT_THAT(TunnelCalls(), IsEmpty());
}

TEST_F(TunnelKeeperTest, OpensAPortOnceForTwoServices) {
    WriteText(kConfiguration, R"({"tethra":{"enabled":true},"support_channel":{"enabled":true},
        "service":[{"id":"hos"},{"id":"support_hos"},{"id":"file_sharing"}]})");
    Make(kShortPlans);
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    EXPECT_EQ(keeper_->Published()["open"], JsonOf(R"([{"id":"hos","port":5000},{"id":"support_hos","port":5000}])"));
    const auto calls = TunnelCalls();
    EXPECT_EQ(
        std::count(calls.begin(), calls.end(), "iptables -I TETHRA_RELAY -i tun1000 -p tcp --dport 5000 -j ACCEPT"), 1);
}

TEST_F(TunnelKeeperTest, OpensForTheSupportWhatTheOwnerDeniesHimself) {
    Permit("[]");
    WriteText(kConfiguration, R"({"tethra":{"enabled":false},"support_channel":{"enabled":true},
        "service":[{"id":"http"},{"id":"support_hos"},{"id":"support_nothing"},{"id":"unheard_of","port":1}]})");
    Make(kShortPlans);
    keeper_->Open(Order({kComesUp}), "a");
    ASSERT_TRUE(RunUntilUp());
    EXPECT_EQ(keeper_->Published()["open"], JsonOf(R"([{"id":"support_hos","port":5000}])"));
}

TEST_F(TunnelKeeperTest, SaysWhenNothingLeadsOn) {
    std::string why;
    EXPECT_TRUE(keeper_->IsHealthy(why));
    keeper_->Open(Order({kHangs}), "a");
    EXPECT_TRUE(keeper_->IsHealthy(why));
    LetPass(61s);
    EXPECT_FALSE(keeper_->IsHealthy(why));
    EXPECT_EQ(why, "the tunnel is trying and nothing leads on");
}

}  // namespace
