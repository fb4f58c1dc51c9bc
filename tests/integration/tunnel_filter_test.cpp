// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/file_text.h"
#include "support/process.h"
#include "support/program.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* kFamilies[] = {"/sbin/iptables", "/sbin/ip6tables"};
constexpr const char kNothing[] = "-P INPUT ACCEPT\n-P FORWARD ACCEPT\n-P OUTPUT ACCEPT\n";
constexpr const char kGuarded[] =
    "-P INPUT ACCEPT\n-P FORWARD ACCEPT\n-P OUTPUT ACCEPT\n-N TETHRA_RELAY\n"
    "-A INPUT -i tun1000 -j TETHRA_RELAY\n-A INPUT -i tun1000 -j DROP\n-A FORWARD -i tun1000 -j DROP\n";
constexpr const char kClosed[] =
    "-P INPUT ACCEPT\n-P FORWARD ACCEPT\n-P OUTPUT ACCEPT\n"
    "-A INPUT -i tun1000 -j DROP\n-A FORWARD -i tun1000 -j DROP\n";

void WriteProgram(const std::string& path, const std::string& words) {
    InstallScript(path, "#!/bin/sh\n" + words + "\n");
}

std::vector<std::string> WordsOf(const std::string& text) {
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

std::string Rules(const std::string& family) {
    const auto result = RunProgram({family, "-S"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out;
}

/** Runs one command of blank-separated words in both families. */
void InBoth(const std::string& words) {
    for (const char* family : kFamilies) {
        auto command = WordsOf(words);
        command.insert(command.begin(), family);
        const auto result = RunProgram(command);
        EXPECT_EQ(result.exitCode, 0) << family << " " << words << ": " << result.err;
    }
}

void ExpectRules(const std::string& rules, const char* when) {
    for (const char* family : kFamilies) {
        EXPECT_EQ(Rules(family), rules) << family << " " << when;
    }
}

ProgramResult Control(const std::string& words) {
    auto command = WordsOf(words);
    command.insert(command.begin(), ARDV_OVPNC_SCRIPT);
    return RunProgram(command);
}

void MustDo(const std::string& action) {
    const auto result = Control(action + " tethraa-tunnel");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "");
}

void AddInterface() {
    const auto result = RunProgram({"ip", "tuntap", "add", "dev", "tun1000", "mode", "tun"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

void RemoveInterface() {
    ASSERT_EQ(RunProgram({"ip", "link", "delete", "tun1000"}).exitCode, 0);
}

/** The parameter: the kind of packet filter. */
class TunnelFilter : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const std::string reason = WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

private:
    static std::string WhyNot() {
        for (const char* family : kFamilies) {
            for (const char* suffix : {"", "-restore"}) {
                const std::string program = std::string(family) + "-" + GetParam() + suffix;
                if (!fs::exists(program)) {
                    return program + " isn't installed";
                }
                fs::remove(family + std::string(suffix));
                fs::create_symlink(program, family + std::string(suffix));
            }
            const auto result = RunProgram({family, "-S"});
            if (result.exitCode != 0) {
                return std::string("no ") + GetParam() + " packet filter can be set here: " + result.err;
            }
        }
        const int device = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
        if (device < 0) {
            return "needs /dev/net/tun";
        }
        close(device);
        return "";
    }
};

INSTANTIATE_TEST_SUITE_P(Tunnel, TunnelFilter, testing::Values("nft", "legacy"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(TunnelFilter, GuardsTheInterfaceBeforeItIsThere) {
    ExpectRules(kNothing, "at first");
    MustDo("load");
    ExpectRules(kGuarded, "loaded");
    MustDo("load");
    ExpectRules(kGuarded, "loaded twice");
    MustDo("unload");
    ExpectRules(kNothing, "unloaded");
    MustDo("unload");
    ExpectRules(kNothing, "unloaded twice");
}

TEST_P(TunnelFilter, StandsAboveTheRulesOfOthersAgain) {
    MustDo("load");
    InBoth("-I INPUT -i tun1000 -j ACCEPT");
    InBoth("-I FORWARD -i tun1000 -j ACCEPT");
    MustDo("load");
    ExpectRules(std::string(kNothing) +
                    "-N TETHRA_RELAY\n"
                    "-A INPUT -i tun1000 -j TETHRA_RELAY\n-A INPUT -i tun1000 -j DROP\n"
                    "-A INPUT -i tun1000 -j ACCEPT\n"
                    "-A FORWARD -i tun1000 -j DROP\n-A FORWARD -i tun1000 -j ACCEPT\n",
                "loaded again");
}

TEST_P(TunnelFilter, GathersRulesThatWereDoubledMovedOrParted) {
    MustDo("load");
    InBoth("-A INPUT -i tun1000 -j DROP");
    InBoth("-A INPUT -i tun1000 -j TETHRA_RELAY");
    InBoth("-A FORWARD -i tun1000 -j DROP");
    MustDo("load");
    ExpectRules(kGuarded, "after doubling");
    InBoth("-D INPUT 2");
    InBoth("-I INPUT -i tun1000 -j DROP");
    MustDo("load");
    ExpectRules(kGuarded, "after moving");
    InBoth("-I INPUT 2 -p tcp --dport 22 -j ACCEPT");
    MustDo("load");
    InBoth("-D INPUT -p tcp --dport 22 -j ACCEPT");
    ExpectRules(kGuarded, "after parting");
    InBoth("-D FORWARD -i tun1000 -j DROP");
    MustDo("load");
    ExpectRules(kGuarded, "after one was lost");
}

TEST_P(TunnelFilter, LeavesTheRulesOfOthersAsTheyAre) {
    for (const char* words : {"-N OWNER", "-A OWNER -i tun1000 -j DROP", "-A INPUT -i lo -j ACCEPT",
                              "-A INPUT -i tun10001 -j DROP", "-A INPUT -i tun1000 -p tcp --dport 22 -j DROP",
                              "-A FORWARD -j OWNER", "-A OUTPUT -o tun1000 -j DROP", "-P FORWARD DROP"}) {
        InBoth(words);
    }
    const auto before = Rules(kFamilies[0]);
    const auto before6 = Rules(kFamilies[1]);
    MustDo("load");
    EXPECT_NE(Rules(kFamilies[0]), before);
    MustDo("unload");
    EXPECT_EQ(Rules(kFamilies[0]), before);
    EXPECT_EQ(Rules(kFamilies[1]), before6);
}

TEST_P(TunnelFilter, StaysClosedWhileThereIsAnInterface) {
    MustDo("load");
    AddInterface();
    MustDo("unload");
    ExpectRules(kClosed, "unloaded with the interface");
    MustDo("unload");
    ExpectRules(kClosed, "unloaded twice with the interface");
    MustDo("load");
    ExpectRules(kGuarded, "loaded again");
    RemoveInterface();
    MustDo("unload");
    ExpectRules(kNothing, "unloaded without the interface");
}

TEST_P(TunnelFilter, ForgetsWhatWasAcceptedForATunnelThatIsGone) {
    const std::string accepted = "-A TETHRA_RELAY -i tun1000 -p tcp -m tcp --dport 5000 -j ACCEPT\n";
    MustDo("load");
    AddInterface();
    InBoth("-I TETHRA_RELAY -i tun1000 -p tcp --dport 5000 -j ACCEPT");
    MustDo("load");
    ExpectRules(kGuarded + accepted, "loaded while the tunnel stands");
    RemoveInterface();
    MustDo("load");
    ExpectRules(kGuarded, "loaded once it's gone");
}

TEST_P(TunnelFilter, LeavesNoGap) {
    MustDo("load");
    AddInterface();
    const pid_t changes = Spawn({"/bin/sh", "-c",
                                 "for i in 1 2 3 4 5 6 7 8 9 10; do $0 load tethraa-tunnel;"
                                 " for f in iptables ip6tables; do /sbin/$f -w -I INPUT -i lo -j ACCEPT;"
                                 " /sbin/$f -w -A INPUT -i tun1000 -j DROP;"
                                 " /sbin/$f -w -I FORWARD -i lo -j ACCEPT; done;"
                                 " $0 load tethraa-tunnel; $0 unload tethraa-tunnel; done",
                                 ARDV_OVPNC_SCRIPT},
                                "/run/changes.log");
    int looks = 0;
    int jumps = 0;
    while (!HasEnded(changes, 0)) {
        for (const std::string family : kFamilies) {
            const auto result = RunProgram({family, "-w", "-S"});
            ASSERT_EQ(result.exitCode, 0) << result.err;
            EXPECT_THAT(result.out, HasSubstr("-A INPUT -i tun1000 -j DROP\n"));
            EXPECT_THAT(result.out, HasSubstr("-A FORWARD -i tun1000 -j DROP\n"));
            ++looks;
            if (result.out.find("-A INPUT -i tun1000 -j TETHRA_RELAY\n") != std::string::npos) {
                ++jumps;
                EXPECT_THAT(result.out,
                            HasSubstr("-A INPUT -i tun1000 -j TETHRA_RELAY\n-A INPUT -i tun1000 -j DROP\n"));
            }
        }
    }
    EXPECT_EQ(Reap(changes), 0);
    EXPECT_EQ(ReadText("/run/changes.log"), "");
    EXPECT_GT(jumps, 0);
    EXPECT_GT(looks, jumps) << "both states were seen";
}

TEST_P(TunnelFilter, WaitsForOthersOfItsKind) {
    std::vector<pid_t> others;
    for (int count = 0; count < 4; ++count) {
        others.push_back(Spawn({"/bin/sh", "-c",
                                "for i in 1 2 3 4 5; do $0 load tethraa-tunnel || exit 1;"
                                " $0 unload tethraa-tunnel || exit 1; done",
                                ARDV_OVPNC_SCRIPT},
                               "/run/others.log"));
    }
    for (const pid_t other : others) {
        EXPECT_EQ(Reap(other), 0);
    }
    EXPECT_EQ(ReadText("/run/others.log"), "");
    ExpectRules(kNothing, "after all");
}

TEST_P(TunnelFilter, GuardsOneFamilyWhereTheOtherFails) {
    for (const int failing : {0, 1}) {
        const std::string program = std::string(kFamilies[failing]) + "-restore";
        const auto kept = fs::read_symlink(program);
        WriteProgram(program, "exit 4");
        const auto result = Control("load tethraa-tunnel");
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.err, HasSubstr(failing == 0 ? "load failed for IPv4" : "load failed for IPv6"));
        fs::remove(program);
        fs::create_symlink(kept, program);
        EXPECT_EQ(Rules(kFamilies[failing]), kNothing);
        EXPECT_EQ(Rules(kFamilies[1 - failing]), kGuarded);
        MustDo("unload");
    }
}

TEST_P(TunnelFilter, TakesAMachineWithoutIpv6ForWhatItIs) {
    WriteProgram("/sbin/ip6tables", "exit 3");
    WriteText("/run/net/dev", "");
    WriteText("/run/net/ip_tables_names", "filter\n");  // the legacy kind asks there what tables it has
    ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
    fs::copy("/run/net", "/proc/net", fs::copy_options::recursive);
    const auto without = Control("load tethraa-tunnel");
    WriteText("/proc/net/if_inet6", "");
    const auto with = Control("load tethraa-tunnel");
    ASSERT_EQ(umount2("/proc", MNT_DETACH), 0);
    EXPECT_EQ(without.exitCode, 0) << without.err;
    EXPECT_EQ(with.exitCode, 1);
    EXPECT_THAT(with.err, HasSubstr("IPv6"));
    EXPECT_EQ(Rules("/sbin/iptables"), kGuarded);
}

TEST_P(TunnelFilter, SaysWhatKeepsItFromUnloading) {
    MustDo("load");
    InBoth("-A OUTPUT -j TETHRA_RELAY");
    const auto result = Control("unload tethraa-tunnel");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("unload failed for IPv4"));
    EXPECT_THAT(result.err, HasSubstr("unload failed for IPv6"));
    EXPECT_THAT(Rules(kFamilies[0]), HasSubstr("-A INPUT -i tun1000 -j DROP\n")) << "closed";
}

TEST_P(TunnelFilter, LoadsTheModuleOfTheDevice) {
    ASSERT_EQ(mount("none", "/dev/net", "tmpfs", 0, nullptr), 0);
    WriteProgram("/sbin/modprobe", "echo \"$@\" >>/run/modprobe.log");
    const auto without = Control("load tethraa-tunnel");
    EXPECT_EQ(without.exitCode, 1);
    EXPECT_THAT(without.err, HasSubstr("/dev/net/tun"));
    EXPECT_FALSE(fs::exists("/dev/net/tun"));
    ExpectRules(kGuarded, "without the device");
    WriteProgram("/sbin/modprobe", "umount /dev/net");
    MustDo("load");
    EXPECT_EQ(ReadText("/run/modprobe.log"), "tun\n");
}

TEST_P(TunnelFilter, RefusesWhatItDoesNotKnow) {
    for (const char* words :
         {"", "load", "load other", "reload tethraa-tunnel", "load tethraa-tunnel more", "tethraa-tunnel load"}) {
        const auto result = Control(words);
        EXPECT_EQ(result.exitCode, 2) << words;
        EXPECT_THAT(result.err, HasSubstr("usage: ")) << words;
    }
    ExpectRules(kNothing, "after all");
}

}  // namespace
}  // namespace ardv::test
