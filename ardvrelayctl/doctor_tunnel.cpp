// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <relay/tunnel/tunnel_names.h>

#include "doctor_facts.h"
#include "small_file.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr const char* kFilterPrograms[] = {"/sbin/iptables", "/sbin/iptables-restore", "/sbin/ip6tables",
                                           "/sbin/ip6tables-restore"};
constexpr const char kDevice[] = "/dev/net/tun";
constexpr const char kDrivers[] = "/proc/misc";
constexpr const char kDriver[] = " tun\n";
constexpr const char kModule[] = "/tun.ko";
constexpr const char* kModuleLists[] = {"modules.dep", "modules.builtin"};
constexpr const char* kScripts[] = {TunnelNames::kUpScript, TunnelNames::kDownScript, TunnelNames::kControlScript};

constexpr std::size_t kMaxDrivers = 65'536;
constexpr std::size_t kMaxModules = 16'777'216;
constexpr std::size_t kMaxAuthority = 1'048'576;

bool Holds(const std::string& file, std::size_t maxBytes, const char* text) {
    return ReadSmallFile(file, maxBytes).value_or("").find(text) != std::string::npos;
}

bool IsModuleThere() {
    utsname kernel = {};
    uname(&kernel);
    const std::string folder = std::string("/lib/modules/") + kernel.release + "/";
    return std::any_of(std::begin(kModuleLists), std::end(kModuleLists),
                       [&](const char* list) { return Holds(folder + list, kMaxModules, kModule); });
}

/** Why a file, or the folder that it is in, is not root's alone; empty where it is, and where there is none. */
std::string Exposure(const std::string& file) {
    for (const auto& path : {file, file.substr(0, file.rfind('/'))}) {
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0) {
            continue;
        }
        if (status.st_uid != 0) {
            return path + " belongs to another user than root";
        }
        if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
            return path + " may be written by other users than root";
        }
    }
    return "";
}

bool IsProgram(const char* path) {
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & S_IXUSR) != 0;
}

/** What the certificates of a PEM text are good for. */
struct Certificates {
    int count = 0;
    int valid = 0;  ///< at this time
};

Certificates CountCertificates(const std::string& pem) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                         BIO_free);
    Certificates found;
    for (;;) {
        const std::unique_ptr<X509, decltype(&X509_free)> each(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr),
                                                               X509_free);
        if (!each) {
            ERR_clear_error();
            return found;
        }
        const bool hasBegun = X509_cmp_current_time(X509_get0_notBefore(each.get())) < 0;
        const bool isOver = X509_cmp_current_time(X509_get0_notAfter(each.get())) < 0;
        ++found.count;
        found.valid += hasBegun && !isOver ? 1 : 0;
    }
}

}  // namespace

Diagnosis CheckOpenVpn(const Facts& /*facts*/) {
    if (!IsProgram(TunnelNames::kProgram)) {
        return {"openvpn", Health::kWarning,
                std::string("OpenVPN is not installed: there is no ") + TunnelNames::kProgram +
                    ", and can be no tunnel to a relay",
                "install the package openvpn"};
    }
    return {"openvpn", Health::kOk, TunnelNames::kProgram, ""};
}

Diagnosis CheckPacketFilter(const Facts& /*facts*/) {
    const auto* missing = std::find_if_not(std::begin(kFilterPrograms), std::end(kFilterPrograms), IsProgram);
    if (missing != std::end(kFilterPrograms)) {
        return {"packet filter", Health::kWarning,
                std::string("there is no ") + *missing + ": a tunnel to a relay could not be guarded",
                "install the package iptables"};
    }
    return {"packet filter", Health::kOk, "iptables and ip6tables are there", ""};
}

Diagnosis CheckTunnelDevice(const Facts& /*facts*/) {
    struct stat status = {};
    const bool isDevice = stat(kDevice, &status) == 0 && S_ISCHR(status.st_mode);
    const bool isDriven = Holds(kDrivers, kMaxDrivers, kDriver);
    if (isDriven && isDevice) {
        return {"tunnel device", Health::kOk, kDevice, ""};
    }
    if (isDriven) {
        return {"tunnel device", Health::kWarning,
                std::string("there is no ") + kDevice + ", though the kernel has its driver",
                "'mknod " + std::string(kDevice) + " c 10 200' makes it"};
    }
    if (!IsModuleThere()) {
        return {"tunnel device", Health::kWarning,
                "the kernel has no driver for " + std::string(kDevice) + ", nor is there a module tun",
                "use a kernel with tunnels (CONFIG_TUN)"};
    }
    return {"tunnel device", Health::kOk, "its module is loaded when a tunnel is opened", ""};
}

Diagnosis CheckTunnelScripts(const Facts& /*facts*/) {
    for (const char* script : kScripts) {
        const auto exposure = Exposure(script);
        if (!exposure.empty()) {
            return {"tunnel scripts", Health::kProblem, exposure + ": what is there is run as root",
                    "see what it holds, then 'chown root' and 'chmod go-w' it"};
        }
        if (!IsProgram(script)) {
            return {"tunnel scripts", Health::kWarning,
                    std::string("there is no ") + script + " that can be run: there can be no tunnel to a relay",
                    "install the device's files ('cmake --install BUILD --component device')"};
        }
    }
    return {"tunnel scripts", Health::kOk, "there", ""};
}

Diagnosis CheckRelayAuthority(const Facts& /*facts*/) {
    const std::string file = TunnelNames::kCertificateAuthority;
    const auto exposure = Exposure(file);
    if (!exposure.empty()) {
        return {"relay authority", Health::kProblem, exposure + ", who could have the device trust any relay",
                "see what it holds, then 'chown root' and 'chmod go-w' it"};
    }
    const auto pem = ReadSmallFile(file, kMaxAuthority);
    if (!pem) {
        return {"relay authority", Health::kWarning, "there is no " + file + " to be read: no relay can be trusted",
                "put the certificate of the relays' authority there, as PEM"};
    }
    const auto found = CountCertificates(*pem);
    if (found.valid == 0) {
        return {"relay authority", Health::kProblem,
                file + (found.count == 0 ? " holds no PEM certificate" : " holds no certificate that is valid now"),
                "put a certificate of the relays' authority there; see that the clock is right"};
    }
    return {"relay authority", Health::kOk, file, ""};
}

}  // namespace ardv::ctl
