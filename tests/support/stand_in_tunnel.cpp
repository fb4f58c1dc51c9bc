// SPDX-License-Identifier: Apache-2.0
#include "support/stand_in_tunnel.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "support/file_text.h"

namespace ardv::test {

namespace {

namespace fs = std::filesystem;

constexpr const char kCalls[] = "/run/tunnel.calls";
constexpr const char kTries[] = "/run/tunnel.tries";
constexpr const char kChild[] = "/run/tunnel.child";

constexpr const char kOpenVpn[] = R"(#!/bin/bash
while [ $# -gt 0 ]; do
    case $1 in --port) port=$2;; --route-up) up=$2;; --auth-user-pass) IFS= read -r user <"$2";; esac
    shift
done
echo $$ >/run/tunnel.child
echo "$port $user" >>/run/tunnel.tries
[ "$port" != 1001 ] || exit 0
[ "$port" != 1004 ] || trap '' TERM
if [ "$port" != 1003 ]; then
    printf 'peer_ip="10.8.0.1"\nlocal_ip="10.8.0.2"\nlocal_ip6="no address"\nopenvpn_pid="%s"\n' $$ >/tmp/.info.$$
    mv /tmp/.info.$$ /tmp/.ardv_tethra_tunnel_info
    kill -USR2 "${up##* }"
fi
exec sleep 1000
)";

constexpr const char kRecorder[] = "#!/bin/sh\necho \"${0##*/} $*\" >>/run/tunnel.calls\n";

std::vector<std::string> Lines(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream text(ReadText(path));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

void InstallTunnelStandIns() {
    InstallScript("/usr/sbin/openvpn", kOpenVpn);
    for (const char* path :
         {"/usr/sbin/iptables", "/usr/sbin/ip6tables", "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh"}) {
        InstallScript(path, kRecorder);
    }
}

std::vector<std::string> TunnelTries() {
    return Lines(kTries);
}

int TunnelChild() {
    const auto text = ReadText(kChild);
    return text.empty() ? -1 : std::atoi(text.c_str());
}

std::vector<std::string> TunnelCalls() {
    auto calls = Lines(kCalls);
    fs::remove(kCalls);
    return calls;
}

void ForgetTunnelTries() {
    fs::remove(kTries);
}

}  // namespace ardv::test
