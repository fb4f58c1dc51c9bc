// SPDX-License-Identifier: Apache-2.0
// Any JSON as what the control server assigns: a relay's settings, and a list of candidates. No child is started: what is looked at is the command line.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <relay/tunnel/openvpn_command.h>
#include <relay/tunnel/tunnel.h>
#include <relay/tunnel/tunnel_candidate.h>
#include <relay/utils/json_text.h>

namespace {

using namespace ARDV::Relay;

constexpr std::size_t kWords = 40;  // with the program's name
constexpr std::size_t kWordsOfDiscovery = 2;
constexpr std::array<std::size_t, 4> kPlacesOfTheCandidate = {6, 12, 14, 16};  // mtu, protocol, host, port
constexpr const char* kPassFile = "/tmp/.tunnel.user";

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

/** The same words at the same places, whatever the candidate, and no value that would be an option. */
void TestCommand(const TunnelCandidate& candidate, const std::vector<std::string>& usual) {
    const auto command = OpenVpnCommand(candidate, kPassFile, 1, false);
    Require(command.size() == kWords + (candidate.isMtuDiscovered ? kWordsOfDiscovery : 0));
    for (std::size_t place = 0; place < kWords; ++place) {
        const bool isOfCandidate =
            std::find(kPlacesOfTheCandidate.begin(), kPlacesOfTheCandidate.end(), place) != kPlacesOfTheCandidate.end();
        Require(isOfCandidate ? !command[place].starts_with('-') : command[place] == usual[place]);
    }
}

void TestCandidate(const Json::Value& value, const RelayAddresses& addresses, const std::vector<std::string>& usual) {
    TunnelCandidate candidate;
    const bool isOfUse = ReadCandidate(value, addresses, candidate) == nullptr;
    Require(isOfUse == (candidate.protocol != nullptr));
    const bool isTried = WhySkipped(value, addresses, true, true) == nullptr;
    Require(isOfUse || !isTried);
    Require(isTried || WhySkipped(value, addresses, false, false) != nullptr);
    if (isOfUse) {
        TestCommand(candidate, usual);
    }
}

void TestTunnel(const Json::Value& settings) {
    Tunnel tunnel;
    Require(tunnel.Overwrite(settings));
    tunnel.IsValid();
    Json::Value written;
    Require(tunnel.Write(written, true) && written.size() == 4);
    Require(tunnel.GetStatus() == TUNNEL_STATUS_NONE && tunnel.GetPid() == -1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<std::string> usual = [] {
        TunnelCandidate candidate;
        const Json::Value value = [] {
            Json::Value made;
            made["protocol"] = "udp";
            made["port"] = made["mtu"] = "1400";
            return made;
        }();
        Require(ReadCandidate(value, {"192.0.2.1", "::"}, candidate) == nullptr);
        return OpenVpnCommand(candidate, kPassFile, 1, false);
    }();
    Json::Value value;
    if (!JsonText::Parse({reinterpret_cast<const char*>(data), size}, value)) {
        return 0;
    }
    TestTunnel(value);
    const std::string ipv4 = JsonText::StringMember(value, "relay_ip").value_or("192.0.2.1");
    const std::string ipv6 = JsonText::StringMember(value, "relay_ipv6").value_or("2001:db8::1");
    const Json::Value* list = JsonText::Member(value, "candidates");
    for (const Json::Value& candidate : list && list->isArray() ? *list : Json::Value(Json::arrayValue)) {
        TestCandidate(candidate, {ipv4, ipv6}, usual);
    }
    return 0;
}
