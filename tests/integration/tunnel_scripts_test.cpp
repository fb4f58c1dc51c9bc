// SPDX-License-Identifier: Apache-2.0
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/file_text.h"
#include "support/program.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char kInfo[] = "/tmp/.ardv_tethra_tunnel_info";
constexpr const char kInfoName[] = ".ardv_tethra_tunnel_info";
constexpr const char kBystander[] = "/run/bystander";
constexpr const char kUp[] = "/run/scripts/up.sh";
constexpr const char kDown[] = "/run/scripts/down.sh";

using Variables = std::map<std::string, std::string>;

/** What a relay with a plain subnet has OpenVPN say. */
const Variables kUsual = {{"dev", "tun1000"},
                          {"tun_mtu", "1500"},
                          {"trusted_ip", "198.51.100.7"},
                          {"trusted_port", "1194"},
                          {"ifconfig_local", "10.8.0.2"},
                          {"ifconfig_netmask", "255.255.255.0"},
                          {"ifconfig_ipv6_local", "fd78::2"},
                          {"ifconfig_ipv6_remote", "fd78::1"}};

Variables With(Variables variables, const Variables& more) {
    for (const auto& [name, value] : more) {
        variables[name] = value;
    }
    return variables;
}

/** This process is the daemon; a shell stands in for OpenVPN, and runs the scripts with an environment like its own. */
class TunnelScripts : public testing::Test {
protected:
    TunnelScripts() {
        sigemptyset(&told_);
        sigaddset(&told_, SIGUSR2);
        sigprocmask(SIG_BLOCK, &told_, nullptr);
        while (IsTold()) {  // what an earlier test in this process left
        }
        for (const auto& name : Names()) {
            fs::remove_all("/tmp/" + name);
        }
        // Not run where they stand: a test covers /tmp, in which the sources may be.
        fs::create_directories(fs::path(kUp).parent_path());
        fs::copy_file(ARDV_UP_SCRIPT, kUp, fs::copy_options::overwrite_existing);
        fs::copy_file(ARDV_DOWN_SCRIPT, kDown, fs::copy_options::overwrite_existing);
    }

    /** What OpenVPN runs: a shell's words, to which up.sh, the daemon's pid and down.sh are $1, $2 and $3. */
    static ProgramResult RunOpenVpn(const Variables& variables, const std::string& words,
                                    const std::string& daemon = std::to_string(getpid())) {
        std::vector<std::string> command = {"/usr/bin/env", "-i"};
        for (const auto& [name, value] : variables) {
            command.push_back(name + "=" + value);
        }
        command.insert(command.end(), {"/bin/sh", "-c", words, "openvpn", kUp, daemon, kDown});
        return RunProgram(command);
    }

    /** Runs up.sh. The shell's exit code is that of the script. */
    static ProgramResult Up(const Variables& variables, const std::string& daemon = std::to_string(getpid())) {
        return RunOpenVpn(variables, "\"$1\" \"$2\"; exit $?", daemon);
    }

    /** Whether SIGUSR2 has come since the last call. */
    bool IsTold() const {
        const timespec now{};
        return sigtimedwait(&told_, nullptr, &now) == SIGUSR2;
    }

    static std::string Value(const std::string& key) {
        const std::string text = "\n" + ReadText(kInfo);
        const auto start = text.find("\n" + key + "=\"");
        if (start == std::string::npos) {
            return "(missing)";
        }
        const auto value = start + key.size() + 3;
        return text.substr(value, text.find("\"\n", value) - value);
    }

    /** The names in /tmp that begin like the information file's. */
    static std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator("/tmp")) {
            if (entry.path().filename().string().starts_with(kInfoName)) {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }

    static void ExpectAFileOfItsOwn() {
        EXPECT_EQ(Up(kUsual).exitCode, 0);
        EXPECT_EQ(fs::symlink_status(kInfo).type(), fs::file_type::regular);
        EXPECT_EQ(fs::hard_link_count(kInfo), 1U);
        EXPECT_EQ(Value("local_ip"), "10.8.0.2");
        fs::remove(kInfo);
    }

private:
    sigset_t told_{};
};

struct PeerCase {
    const char* name;
    Variables variables;
    const char* peer;
};

class PeerAddress : public TunnelScripts, public testing::WithParamInterface<PeerCase> {};

const Variables kFarEnd6 = {{"ifconfig_ipv6_remote", "fd78::1"}};
const Variables kSubnet = With(kFarEnd6, {{"ifconfig_local", "172.16.77.9"}, {"ifconfig_netmask", "255.255.240.0"}});
const Variables kFarEnd = With(kSubnet, {{"ifconfig_remote", "10.8.0.5"}});
const Variables kGateway = With(kFarEnd, {{"route_vpn_gateway", "10.8.0.3"}});
const Variables kNamed = With(kGateway, {{"OPENVPN_peer_ip", "10.8.0.1"}});

const PeerCase kPeerCases[] = {
    {"AsTheServerNamesIt", kNamed, "10.8.0.1"},
    {"TheGatewayOfARoute", kGateway, "10.8.0.3"},
    {"TheFarEnd", kFarEnd, "10.8.0.5"},
    {"TheFirstHostOfTheSubnet", kSubnet, "172.16.64.1"},
    {"TheFarEndOfIpv6", kFarEnd6, "fd78::1"},
    {"NoneWithoutAny", {}, ""},
    {"NotTheDeviceItself", With(kSubnet, {{"ifconfig_local", "172.16.64.1"}}), "fd78::1"},
    {"NoNeighbourInANetworkOfOne", With(kSubnet, {{"ifconfig_netmask", "255.255.255.255"}}), "fd78::1"},
    {"TheOtherEndOfANetworkOfTwo",
     With(kSubnet, {{"ifconfig_local", "10.8.0.6"}, {"ifconfig_netmask", "255.255.255.254"}}), "10.8.0.7"},
    {"NotFromOctalNumbers", With(kSubnet, {{"ifconfig_local", "172.016.77.9"}}), "fd78::1"},
    {"NotFromNumbersTooGreat", With(kSubnet, {{"ifconfig_local", "172.16.77.256"}}), "fd78::1"},
    {"NotFromThreeNumbers", With(kSubnet, {{"ifconfig_local", "172.16.77"}}), "fd78::1"},
    {"NotFromWords", With(kSubnet, {{"ifconfig_netmask", "255.255.x.0"}}), "fd78::1"},
    {"TheNextWhereTheNamedOneIsMalformed", With(kGateway, {{"OPENVPN_peer_ip", "10.8.0.1;id"}}), "10.8.0.3"},
    {"TheNextWhereTheNamedOneIsEmpty", With(kGateway, {{"OPENVPN_peer_ip", ""}}), "10.8.0.3"},
};

INSTANTIATE_TEST_SUITE_P(Tunnel, PeerAddress, testing::ValuesIn(kPeerCases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(PeerAddress, IsTaken) {
    EXPECT_EQ(Up(GetParam().variables).exitCode, 0);
    EXPECT_EQ(Value("peer_ip"), GetParam().peer);
    EXPECT_TRUE(IsTold());
}

TEST_F(TunnelScripts, WriteWhatIsKnownOfTheTunnel) {
    const auto result = RunOpenVpn(kUsual, "\"$1\" \"$2\"; echo $$");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ReadText(kInfo),
              "peer_ip=\"10.8.0.1\"\npeer_ip6=\"fd78::1\"\nlocal_ip=\"10.8.0.2\"\nlocal_ip6=\"fd78::2\"\n"
              "relay_ip=\"198.51.100.7\"\nrelay_port=\"1194\"\ndev=\"tun1000\"\nmtu=\"1500\"\nopenvpn_pid=\"" +
                  result.out.substr(0, result.out.find('\n')) + "\"\n");
    EXPECT_EQ(ModeOf(kInfo), 0600U);
    EXPECT_EQ(fs::hard_link_count(kInfo), 1U);
    EXPECT_THAT(Names(), testing::ElementsAre(kInfoName));
}

TEST_F(TunnelScripts, KnowARelayByItsIpv6Address) {
    Variables variables = With(kUsual, {{"trusted_ip6", "2001:db8:7::7"}});
    variables.erase("trusted_ip");
    EXPECT_EQ(Up(variables).exitCode, 0);
    EXPECT_EQ(Value("relay_ip"), "2001:db8:7::7");
}

TEST_F(TunnelScripts, TakeNothingFromAServerThatIsNoAddressOrNumber) {
    WriteText(kBystander, "");
    const std::vector<std::string> hostile = {"$(rm /run/bystander)",
                                              "`rm /run/bystander`",
                                              "\"; rm /run/bystander; \"",
                                              "10.8.0.1\nopenvpn_pid=\"1\"",
                                              "10.8.0.1\n",
                                              "1\"",
                                              "1\\",
                                              "1 2",
                                              "*",
                                              std::string(46, '1'),
                                              "\xff"};
    Variables variables;
    for (const auto& value : hostile) {
        for (const char* name :
             {"OPENVPN_peer_ip", "route_vpn_gateway", "ifconfig_remote", "ifconfig_local", "ifconfig_netmask",
              "ifconfig_ipv6_remote", "ifconfig_ipv6_local", "trusted_ip", "trusted_port", "dev", "tun_mtu"}) {
            variables[name] = value;
        }
        const auto result = RunOpenVpn(variables, "\"$1\" \"$2\"; echo $$");
        EXPECT_EQ(ReadText(kInfo),
                  "peer_ip=\"\"\npeer_ip6=\"\"\nlocal_ip=\"\"\nlocal_ip6=\"\"\nrelay_ip=\"\"\nrelay_port=\"\"\n"
                  "dev=\"\"\nmtu=\"\"\nopenvpn_pid=\"" +
                      result.out.substr(0, result.out.find('\n')) + "\"\n")
            << value;
        EXPECT_TRUE(IsTold()) << value;
    }
    EXPECT_TRUE(fs::exists(kBystander));
}

TEST_F(TunnelScripts, TellTheParentOfOpenVpnAlone) {
    EXPECT_EQ(Up(kUsual).exitCode, 0);
    EXPECT_TRUE(IsTold());
    const auto result = RunOpenVpn(kUsual, "/bin/sh -c '\"$1\" \"$2\"; exit $?' openvpn \"$1\" \"$2\"; exit $?");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("no longer OpenVPN's parent"));
    EXPECT_FALSE(IsTold()) << "this process isn't the parent, but the one above";
    EXPECT_EQ(Value("local_ip"), "10.8.0.2");
}

TEST_F(TunnelScripts, TellNobodyWithoutTheNumberOfAProcess) {
    for (const char* daemon : {"", "x", "12x"}) {
        const auto result = Up(kUsual, daemon);
        EXPECT_EQ(result.exitCode, 1) << daemon;
        EXPECT_THAT(result.err, HasSubstr("usage: ")) << daemon;
        EXPECT_FALSE(IsTold()) << daemon;
    }
}

TEST_F(TunnelScripts, ReplaceWhateverStandsInTheirPlace) {
    WriteText(kBystander, "mine");
    fs::create_symlink(kBystander, kInfo);
    ExpectAFileOfItsOwn();
    EXPECT_EQ(ReadText(kBystander), "mine");

    fs::create_symlink("/run", kInfo);
    ExpectAFileOfItsOwn();
    EXPECT_FALSE(fs::exists(std::string("/run/") + kInfoName));

    ASSERT_EQ(mkfifo(kInfo, 0666), 0);
    ExpectAFileOfItsOwn();

    const std::string second = std::string(kInfo) + ".second";
    WriteText(kInfo, "mine");
    fs::create_hard_link(kInfo, second);
    ExpectAFileOfItsOwn();
    EXPECT_EQ(ReadText(second), "mine");
}

TEST_F(TunnelScripts, MoveAFolderInTheirPlaceAside) {
    WriteText(std::string(kInfo) + "/kept", "mine");
    EXPECT_EQ(Up(kUsual).exitCode, 0);
    EXPECT_EQ(fs::symlink_status(kInfo).type(), fs::file_type::regular);
    auto names = Names();
    ASSERT_EQ(names.size(), 2U);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names[0], kInfoName);
    EXPECT_EQ(ReadText("/tmp/" + names[1] + "/kept"), "mine");
}

TEST_F(TunnelScripts, AreStoppedNeitherByAnotherFolderNorByOneThatIsGone) {
    const std::string mischief[] = {"\"$@\"; code=$?; mkdir $3; exit $code", "rmdir $3; \"$@\""};
    fs::copy_file("/usr/bin/mv", "/run/mv");
    for (const auto& words : mischief) {
        fs::remove("/run/once");
        InstallScript("/usr/bin/mv", std::string("#!/bin/sh\nset -- /run/mv \"$@\"\n[ $3 = ") + kInfo +
                                         " ] && [ ! -e /run/once ] || exec \"$@\"\n>/run/once\n" + words + "\n");
        fs::create_directory(kInfo);
        const auto result = Up(kUsual);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(fs::symlink_status(kInfo).type(), fs::file_type::regular) << words;
        EXPECT_TRUE(fs::exists("/run/once"));
        EXPECT_TRUE(IsTold());
        fs::remove(kInfo);
    }
    fs::copy_file("/run/mv", "/usr/bin/mv", fs::copy_options::overwrite_existing);
    EXPECT_EQ(Names().size(), 2U) << "the folders that were moved aside, and none for the one that was gone";
}

TEST_F(TunnelScripts, TellNobodyOfAFileThatCouldNotBeWritten) {
    ASSERT_EQ(mount("none", "/tmp", "tmpfs", MS_RDONLY, nullptr), 0);
    const auto result = Up(kUsual);
    ASSERT_EQ(umount2("/tmp", MNT_DETACH), 0);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("up.sh: "));
    EXPECT_FALSE(IsTold());
}

TEST_F(TunnelScripts, LeaveNothingOfAFileThatDoesNotFit) {
    ASSERT_EQ(mount("none", "/tmp", "tmpfs", 0, "size=4k"), 0);
    WriteText("/tmp/full", std::string(4096, 'x'));
    const auto result = Up(kUsual);
    const auto names = Names();
    ASSERT_EQ(umount2("/tmp", MNT_DETACH), 0);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("can't be written"));
    EXPECT_THAT(names, testing::IsEmpty());
    EXPECT_FALSE(IsTold());
}

TEST_F(TunnelScripts, RemoveTheFileOfTheirOwnOpenVpn) {
    EXPECT_EQ(RunOpenVpn(kUsual,
                         "\"$1\" \"$2\"; test -e /tmp/.ardv_tethra_tunnel_info &&"
                         " \"$3\" tun1000 1500 0 10.8.0.2 255.255.255.0 init; exit $?")
                  .exitCode,
              0);
    EXPECT_FALSE(fs::exists(kInfo));
}

TEST_F(TunnelScripts, LeaveTheFileOfASuccessor) {
    EXPECT_EQ(Up(kUsual).exitCode, 0);
    const auto text = ReadText(kInfo);
    EXPECT_EQ(RunOpenVpn({}, "\"$3\"; exit $?").exitCode, 0);
    EXPECT_EQ(ReadText(kInfo), text);
}

TEST_F(TunnelScripts, NeitherFollowALinkNorWaitForAPipeAtTheEnd) {
    fs::create_symlink(kBystander, kInfo);
    const std::string claim = "echo \"openvpn_pid=\\\"$$\\\"\" >/run/bystander; \"$3\"; exit $?";
    EXPECT_EQ(RunOpenVpn({}, claim).exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(kInfo));
    fs::remove(kInfo);
    ASSERT_EQ(mkfifo(kInfo, 0666), 0);
    EXPECT_EQ(RunOpenVpn({}, "\"$3\"; exit $?").exitCode, 0);
    EXPECT_TRUE(fs::exists(kInfo));
    fs::remove(kInfo);
    EXPECT_EQ(RunOpenVpn({}, "\"$3\"; exit $?").exitCode, 0) << "there is no file";
}

}  // namespace
}  // namespace ardv::test
