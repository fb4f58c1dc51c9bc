// SPDX-License-Identifier: Apache-2.0
#include <sys/mount.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "ardvrelayctl_doctor.h"
#include "support/scratch_folder.h"
#include "support/test_certificates.h"

namespace ardv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char kUpScript[] = "/usr/ardv/etc.defaults/ardvrelayd/scripts/up.sh";
constexpr const char kControlScript[] = "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh";
constexpr const char kAuthority[] = "/usr/ardv/etc.defaults/ardvrelayd/ca/ca.crt";
constexpr const char kModules[] = "/lib/modules";
constexpr const char* kScripts[] = {kUpScript, "/usr/ardv/etc.defaults/ardvrelayd/scripts/down.sh", kControlScript};

void WriteProgram(const std::string& path) {
    InstallScript(path, "#!/bin/sh\n");
}

/** A device on which all that a tunnel takes is there. */
class ArdvrelayctlDoctorTunnel : public ArdvrelayctlDoctor {
protected:
    ArdvrelayctlDoctorTunnel() {
        fs::remove_all("/usr/ardv/etc.defaults");
        for (const char* script : kScripts) {
            WriteProgram(script);
        }
    }
};

/** Has a file say something else to this process and its children. */
class CoveredFile {
public:
    CoveredFile(const char* file, const std::string& text) : file_(file) {
        const std::string cover = "/run/cover." + fs::path(file).filename().string();
        WriteText(cover, text);
        EXPECT_EQ(mount(cover.c_str(), file, nullptr, MS_BIND, nullptr), 0) << file;
    }
    CoveredFile(const CoveredFile&) = delete;
    CoveredFile& operator=(const CoveredFile&) = delete;
    ~CoveredFile() { umount2(file_, MNT_DETACH); }

private:
    const char* file_;
};

std::string ModuleFolder() {
    utsname kernel = {};
    uname(&kernel);
    return std::string(kModules) + "/" + kernel.release;
}

TEST_F(ArdvrelayctlDoctorTunnel, FindsATunnelThatDoesNotComeUp) {
    Expect("tunnel", "ok", "has not asked", "");
    const MadeUpDaemon daemon;
    daemon.Publish(R"("state":3,"tunnel":{"status":"READY"})");
    Expect("tunnel", "ok", "READY", "");
    daemon.Publish(R"("state":3,"tunnel":{"status":"FAILED","error":"the relay did not answer in time"})");
    Expect("tunnel", "problem", "FAILED (the relay did not answer in time)", "tunnel status");
    EXPECT_EQ(Run({"doctor"}).exitCode, 8);
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForOpenVpnWhereItIsStarted) {
    fs::remove("/usr/sbin/openvpn");
    WriteProgram("/usr/local/sbin/openvpn");
    Expect("openvpn", "warning", "not installed", "install");
    WriteProgram("/usr/sbin/openvpn");
    Expect("openvpn", "ok", "/usr/sbin/openvpn", "");
    fs::permissions("/usr/sbin/openvpn", fs::perms(0644));
    Expect("openvpn", "warning", "/usr/sbin/openvpn", "install");
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForEveryProgramOfThePacketFilter) {
    const std::vector<std::string> programs = {"/sbin/iptables", "/sbin/iptables-restore", "/sbin/ip6tables",
                                               "/sbin/ip6tables-restore"};
    for (const auto& program : programs) {
        WriteProgram(program);
    }
    Expect("packet filter", "ok", "are there", "");
    for (const auto& program : programs) {
        fs::remove(program);
        Expect("packet filter", "warning", "no " + program + ":", "install the package iptables");
        WriteProgram(program);
    }
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForTheTunnelDevice) {
    if (!fs::is_character_file("/dev/net/tun")) {
        GTEST_SKIP() << "needs /dev/net/tun";
    }
    const CoveredFile drivers("/proc/misc", "229 fuse\n200 tun\n  1 psaux\n");
    Expect("tunnel device", "ok", "/dev/net/tun", "");
    const CoveredFile device("/dev/net/tun", "");
    Expect("tunnel device", "warning", "there is no /dev/net/tun", "mknod");
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForTheModuleOfTheTunnelDevice) {
    const CoveredFile drivers("/proc/misc", "229 fuse\n");
    fs::create_directories(kModules);
    const MountedDisk none(kModules, 1U << 16U);
    Expect("tunnel device", "warning", "no driver", "CONFIG_TUN");
    WriteText(ModuleFolder() + "/modules.dep", "kernel/drivers/net/veth.ko:\nkernel/drivers/net/tun.ko.xz:\n");
    Expect("tunnel device", "ok", "module", "");
    WriteText(ModuleFolder() + "/modules.dep", "kernel/drivers/net/tunnel6.ko:\n");
    Expect("tunnel device", "warning", "no driver", "CONFIG_TUN");
    WriteText(ModuleFolder() + "/modules.builtin", "kernel/drivers/net/tun.ko\n");
    Expect("tunnel device", "ok", "module", "");
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForEveryScript) {
    Expect("tunnel scripts", "ok", "there", "");
    for (const char* script : kScripts) {
        fs::permissions(script, fs::perms(0644));
        Expect("tunnel scripts", "warning", script, "--component device");
        fs::remove(script);
        Expect("tunnel scripts", "warning", script, "--component device");
        WriteProgram(script);
    }
}

TEST_F(ArdvrelayctlDoctorTunnel, FindsScriptsThatOthersMayChange) {
    fs::permissions(kUpScript, fs::perms(0775));
    Expect("tunnel scripts", "problem", std::string(kUpScript) + " may be written by other users", "chmod go-w");
    fs::permissions(kUpScript, fs::perms(0757));
    Expect("tunnel scripts", "problem", std::string(kUpScript) + " may be written by other users", "chmod go-w");
    fs::permissions(kUpScript, fs::perms(0755));
    const auto folder = fs::path(kControlScript).parent_path();
    fs::permissions(folder, fs::perms(0777));
    Expect("tunnel scripts", "problem", folder.string() + " may be written", "chmod go-w");
    fs::permissions(folder, fs::perms(0755));
    Expect("tunnel scripts", "ok", "there", "");
}

TEST_F(ArdvrelayctlDoctorTunnel, FindsScriptsThatBelongToOthers) {
    constexpr uid_t kStranger = 12345;
    if (chown(kUpScript, kStranger, 0) != 0) {
        GTEST_SKIP() << "needs the right to give files away";
    }
    Expect("tunnel scripts", "problem", std::string(kUpScript) + " belongs to another user", "chown root");
}

TEST_F(ArdvrelayctlDoctorTunnel, LooksForACertificateOfTheRelaysAuthority) {
    const TestCertificates certificates("/run/certificates");
    const auto expired = ReadText(certificates.Certificate("expired"));
    const auto early = ReadText(certificates.Certificate("not-yet-valid"));
    Expect("relay authority", "warning", std::string("no ") + kAuthority, "PEM");
    WriteText(kAuthority, ReadText(certificates.Authority()));
    Expect("relay authority", "ok", kAuthority, "");
    WriteText(kAuthority, expired + early);
    Expect("relay authority", "problem", "no certificate that is valid now", "clock");
    WriteText(kAuthority, expired + ReadText(certificates.Authority()));
    Expect("relay authority", "ok", kAuthority, "");
    WriteText(kAuthority, "");
    Expect("relay authority", "problem", "no PEM certificate", "");
    WriteText(kAuthority, ReadText(certificates.Key("valid")));
    Expect("relay authority", "problem", "no PEM certificate", "");
}

TEST_F(ArdvrelayctlDoctorTunnel, FindsAnAuthorityThatOthersMayReplace) {
    const TestCertificates certificates("/run/certificates");
    WriteText(kAuthority, ReadText(certificates.Authority()));
    fs::permissions(kAuthority, fs::perms(0666));
    Expect("relay authority", "problem", "may be written by other users", "chmod go-w");
}

}  // namespace
}  // namespace ardv::test
