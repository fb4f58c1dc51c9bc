// SPDX-License-Identifier: Apache-2.0
#include <sys/mount.h>

#include <csignal>
#include <cstdlib>

#include "ardvrelayctl_doctor.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;

TEST_F(ArdvrelayctlDoctor, FindsNothingWrongWithAHealthyDevice) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3,"since":86400)");
    const auto result = Run({"doctor"});
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("ok       state: login: the daemon is logged in at the service\n"));
    EXPECT_THAT(result.out, HasSubstr("ok       last change: 1970-01-02 "));
    EXPECT_THAT(result.out, HasSubstr("ok       alias: attic: success\n"));
    const auto report = RunJson({"doctor"});
    EXPECT_EQ(report["problems"], 0);
    EXPECT_FALSE(report.isMember("exit_code"));
}

TEST_F(ArdvrelayctlDoctor, FindsADaemonThatDoesNotRun) {
    const auto result = Run({"doctor"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.out, HasSubstr("problem  daemon: it does not run: /var/run/ardvrelayd.pid names no process\n"
                                      "         -> 'systemctl start ardvrelayd' starts it\n"));
    EXPECT_THAT(result.err, HasSubstr("ardvrelayctl: there is a problem\n"));
    EXPECT_EQ(RunJson({"doctor"})["exit_code"], 8);
    WriteText(kDaemonPidFile, "999999999\n");
    Expect("daemon", "problem", "process 999999999, which is gone", "systemctl start");
    const MadeUpDaemon stranger({.name = "stranger"});
    Expect("daemon", "problem", "another program (stranger)", "systemctl start");
}

TEST_F(ArdvrelayctlDoctor, DoesNotMissADaemonThatNobodyWants) {
    WriteText(kConfigFile, R"({"server_control":{"host":"127.0.0.1"}})");
    Expect("switch", "problem", "neither the service nor the support channel", "config set tethra.enabled true");
    Expect("daemon", "ok", "does not run", "");
    Expect("state", "ok", "does not run", "");
    WriteText(kConfigFile, R"({"support_channel":{"enabled":true}})");
    Expect("switch", "ok", "switched on", "");
}

TEST_F(ArdvrelayctlDoctor, FindsADaemonThatIsStopped) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3)");
    kill(daemon.Pid(), SIGSTOP);
    Expect("daemon", "problem", "stopped by a signal", "kill -CONT " + std::to_string(daemon.Pid()));
}

TEST_F(ArdvrelayctlDoctor, ExplainsStatesAndErrors) {
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":0,"error":8)");
    Expect("state", "problem", "err_auth: the service refuses the device's identity", "ardvrelayctl reload");
    daemon.Publish(R"("state":2,"error":7)");
    Expect("state", "problem", "err_resolv", "name server");
    daemon.Publish(R"("state":2)");
    Expect("state", "warning", "starting: ", "");
    daemon.Publish(R"("state":7)");
    Expect("state", "warning", "switched off", "ardvrelayctl reload");
    daemon.Publish(R"("state":3,"error":6)");
    Expect("state", "ok", "login", "");
    std::filesystem::remove(kDaemonStatusFile);
    Expect("state", "problem", "publishes nothing", "ardvrelayctl report");
    WriteText(kDaemonStatusFile, "{");
    Expect("state", "problem", "cannot be used", "start the daemon again");
}

TEST_F(ArdvrelayctlDoctor, ExplainsTheAliasStatus) {
    PublishAlias("attic", "error_inused");
    Expect("alias", "problem", "attic: error_inused: another device holds the alias", "alias update");
    PublishAlias("cellar", "success");
    Expect("alias", "warning", "no outcome is recorded", "alias update");
    WriteText(kConfigFile, "{}");
    Expect("alias", "ok", "none is set", "");
}

TEST_F(ArdvrelayctlDoctor, FindsTwoDaemons) {
    const MadeUpDaemon first;
    first.Publish(R"("state":3)");
    const MadeUpDaemon second;
    Expect("status file", "problem", "two daemons", "start one");
}

TEST_F(ArdvrelayctlDoctor, FindsAConfigurationThatCannotBeUsed) {
    WriteText(kConfigFile, "{ damaged");
    Expect("configuration", "problem", kConfigFile, "ardvrelayctl config check");
    EXPECT_EQ(ReadText(kConfigFile), "{ damaged");
    WriteText(kConfigFile, R"({"mine":1})");
    EXPECT_EQ(Find("configuration")["level"], "warning");
    std::filesystem::remove(kConfigFile);
    EXPECT_THAT(Find("configuration")["finding"].asString(), testing::EndsWith("does not exist: the defaults hold"));
    WriteText(std::string(kConfigFile) + ".bad", "{ damaged");
    Expect("configuration", "warning", "moved to " + std::string(kConfigFile) + ".bad: mend it, and move it back", "");
}

TEST_F(ArdvrelayctlDoctor, ClaimsNothingOfAConfigurationThatCannotBeUsed) {
    WriteText(kConfigFile,
              R"({"tethra":{"enabled":true},"server_control":{"port":-1},"server_alias":{"alias":"attic"}})");
    Expect("configuration", "problem", "server_control.port", "");
    Expect("switch", "ok", "not known", "");
    Expect("alias", "ok", "not known", "");
    Expect("daemon", "problem", "does not run", "systemctl start");
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":7)");
    Expect("state", "ok", "switched off", "");
}

TEST_F(ArdvrelayctlDoctor, FindsAMissingIdentity) {
    Expect("identity", "ok", "there", "");
    std::filesystem::remove(kIdentityFile);
    Expect("identity", "problem", "no identity", "ardvrelayctl identity show");
}

TEST_F(ArdvrelayctlDoctor, FindsNamesThatDoNotResolve) {
    WriteText(kConfigFile, R"({"server_control":{"host":"nowhere.invalid"},"server_global":{"host":"127.0.0.1"},
                               "server_waitcmd":{"host":"localhost"},
                               "server_alias":{"alias":"attic","url":"https://[::1]:7/x"}})");
    Expect("names", "problem", "nowhere.invalid: ", "name server");
    EXPECT_THAT(Find("names")["finding"].asString(), testing::Not(HasSubstr("::1")));
    WriteText(kConfigFile, R"({"server_control":{"host":"127.0.0.1"},"server_global":{"host":"127.0.0.1"},
                               "server_waitcmd":{"host":"localhost"},"server_alias":{"url":"https://nobody.invalid"}})");
    Expect("names", "ok", "resolve", "");
}

TEST_F(ArdvrelayctlDoctor, WarnsOfPlainHttp) {
    Expect("protocol", "ok", "HTTPS", "");
    WriteText(kConfigFile, R"({"server_control":{"host":"127.0.0.1","protocol":"http"}})");
    Expect("protocol", "warning", "clear text", "server_control.protocol https");
    WriteText(kConfigFile, R"({"server_waitcmd":{"host":"127.0.0.1","protocol":"http"}})");
    Expect("protocol", "warning", "clear text", "server_waitcmd.protocol https");
}

TEST_F(ArdvrelayctlDoctor, FindsAFolderThatCannotBeUsed) {
    Expect("status folder", "ok", "can be used", "");
    std::filesystem::permissions("/tmp", std::filesystem::perms(0777));
    Expect("status folder", "warning", "everybody may replace", "chmod 1777 /tmp");
    std::filesystem::permissions("/tmp", std::filesystem::perms(01777));
    ASSERT_EQ(mount("/tmp", "/tmp", nullptr, MS_BIND | MS_REC, nullptr), 0);
    ASSERT_EQ(mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    const auto row = Find("status folder");
    ASSERT_EQ(umount2("/tmp", MNT_DETACH), 0);
    EXPECT_EQ(row["level"], "problem");
    EXPECT_EQ(row["finding"], "/tmp is read-only");
}

TEST_F(ArdvrelayctlDoctor, LooksForTheUnit) {
    for (const char* folder : {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"}) {
        std::filesystem::remove(std::string(folder) + "/systemd/system/ardvrelayd.service");
    }
    Expect("unit", "warning", "there is no unit", "");
    WriteText("/etc/systemd/system/ardvrelayd.service", "[Service]\nExecStart=/bin/true\n");
    Expect("unit", "warning", "is not enabled", "systemctl enable ardvrelayd");
    std::filesystem::create_directories("/etc/systemd/system/multi-user.target.wants");
    std::filesystem::create_symlink("../ardvrelayd.service",
                                    "/etc/systemd/system/multi-user.target.wants/ardvrelayd.service");
    Expect("unit", "ok", "/etc/systemd/system/ardvrelayd.service", "");
}

TEST_F(ArdvrelayctlDoctor, FindsAClockThatIsWrong) {
    Expect("clock", "ok", "plausible", "");
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);  // where the tool has a sanitizer
    setenv("LD_PRELOAD", ARDV_PAST_CLOCK, 1);
    Expect("clock", "problem", "1970-01-01 ", "set the clock");
    unsetenv("LD_PRELOAD");
}

}  // namespace
}  // namespace ardv::test
