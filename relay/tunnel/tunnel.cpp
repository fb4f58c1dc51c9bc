// SPDX-License-Identifier: Apache-2.0
#include <relay/tunnel/tunnel.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include <ardv/key_value_file.h>
#include <ardv/program.h>

#include <relay/daemon/log.h>
#include <relay/tunnel/packet_filter.h>
#include <relay/tunnel/tunnel_candidate.h>
#include <relay/tunnel/tunnel_names.h>
#include <relay/utils/descriptor.h>
#include <relay/utils/json_text.h>
#include <relay/utils/shared_folder.h>

RELAY_LOG_SOURCE("tunnel.cpp");

namespace ARDV::Relay {

namespace {

constexpr std::size_t kPeerAddressSize = 1024;
constexpr const char kModule[] = "tethraa-tunnel";

/** The texts of the statuses, by their numbers. */
constexpr std::array<const char*, 6> kStatusTexts = {"NONE", "READY", "CLOSE", "FAILED", "INVALID_CONF", "CREATING"};

/** Whether a file is there that somebody else may have planted for this process to read. */
bool IsPlanted(const char* path) {
    const Utils::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    return file.IsOpen() ? !Utils::IsTrustworthy(file.Get(), path) : errno != ENOENT;
}

}  // namespace

Tunnel::Tunnel() = default;

Tunnel::Tunnel(const Json::Value& value) {
    Tunnel::Overwrite(value);
}

Tunnel::~Tunnel() = default;

bool Tunnel::Overwrite(const Json::Value& value) {
    JsonText::Take(value, "relay_ip", relayIp_);
    JsonText::Take(value, "relay_ipv6", relayIpv6_);
    JsonText::Take(value, "relay_user", relayUser_);
    JsonText::Take(value, "relay_pass", relayPass_);
    return true;
}

bool Tunnel::IsValid() const {
    const bool isComplete = !relayIp_.empty() && !relayUser_.empty() && !relayPass_.empty();
    if (!isComplete) {
        RELAY_LOG(LOG_DEBUG, "invalid tunnel server info");
    }
    return isComplete;
}

bool Tunnel::Write(Json::Value& value, bool full) const {
    JsonText::EnsureObject(value)["relay_ip"] = relayIp_;
    if (full) {
        value["relay_user"] = relayUser_;
        value["status"] = GetStatusStr(status_);
        value["pid"] = pid_;
    }
    return true;
}

std::string Tunnel::GetStatusStr(TUNNEL_STATUS status) {
    const auto number = static_cast<std::size_t>(status);
    return number < kStatusTexts.size() ? kStatusTexts[number] : "(unknown)";
}

bool Tunnel::Create(const Json::Value& candidates, bool allowUdp, bool allowIpv6) {
    InsertKernelModule();
    const auto count = static_cast<std::int32_t>(candidates.isArray() ? candidates.size() : 0);
    while (candidateIndex_ < count) {
        const int index = candidateIndex_++;
        const Json::Value& candidate = candidates[index];
        if (const char* why = WhySkipped(candidate, {relayIp_, relayIpv6_}, allowUdp, allowIpv6)) {
            RELAY_LOG(LOG_DEBUG, "skip candidate %d: %s", index, why);
        } else if (RunVPNTunnel(candidate)) {
            return status_ == TUNNEL_STATUS_CREATING;
        }
    }
    UnlinkTunnelPassFile();  // that of an attempt whose end nobody asked for
    status_ = TUNNEL_STATUS_FAILED;
    pid_ = -1;
    RemoveKernelModule();
    return false;
}

bool Tunnel::IsAlive() {
    if (pid_ <= 0) {
        return false;
    }
    if (kill(pid_, 0) != 0 && errno == ESRCH) {
        pid_ = -1;
    }
    return pid_ > 0;
}

bool Tunnel::IsTunnelAlive() {
    return IsAlive();
}

bool Tunnel::CheckStatusChanged() {
    if (IsAlive() || status_ != TUNNEL_STATUS_READY) {
        return false;
    }
    status_ = TUNNEL_STATUS_CLOSE;
    return true;
}

bool Tunnel::UpdateTunnelStatus() {
    const bool isAlive = IsAlive();
    if (isAlive && status_ == TUNNEL_STATUS_READY) {
        return false;
    }
    alarm(0);
    UnlinkTunnelPassFile();
    if (isAlive) {
        status_ = TUNNEL_STATUS_READY;
        RemoveIptableRules();
        InsertIptableDefaultRule();
    } else if (status_ == TUNNEL_STATUS_CREATING) {
        RemoveKernelModule();
        status_ = TUNNEL_STATUS_FAILED;
        pid_ = -1;
    } else if (status_ != TUNNEL_STATUS_FAILED) {
        status_ = TUNNEL_STATUS_NONE;
    }
    return true;
}

bool Tunnel::Destroy() {
    RemoveIptableRules();
    if (IsAlive()) {
        RELAY_LOG(LOG_DEBUG, "kill openvpn %d", pid_);
        kill(pid_, SIGTERM);
    }
    RemoveKernelModule();
    unlink(TunnelNames::kInformationFile);
    UnlinkTunnelPassFile();
    pid_ = -1;
    return true;
}

std::string Tunnel::GetVpnTunnelPeerIp() {
    std::array<char, kPeerAddressSize> address = {};
    const bool isKnown =
        !IsPlanted(TunnelNames::kInformationFile) &&
        ALIBCFileGetKeyValue(TunnelNames::kInformationFile, "peer_ip", address.data(), address.size(), 0) > 0;
    return isKnown ? address.data() : "";
}

void Tunnel::InsertKernelModule() {
    RELAY_LOG(LOG_DEBUG, "[iptablestool] insert kernel module");
    isPrepared_ = ALIBCExecl(TunnelNames::kControlScript, ARDV_EXEC_HELPER, "load", kModule, nullptr) != -1;
    if (!isPrepared_) {
        RELAY_LOG(LOG_DEBUG, "[iptablestool] insert the kernel module failed");
    }
}

void Tunnel::RemoveKernelModule() {
    RELAY_LOG(LOG_DEBUG, "[iptablestool] remove kernel module");
    if (ALIBCExecl(TunnelNames::kControlScript, ARDV_EXEC_HELPER, "unload", kModule, nullptr) == -1) {
        RELAY_LOG(LOG_DEBUG, "[iptablestool] remove the kernel module failed");
    }
}

void Tunnel::InsertIptableAcceptRule(int port) const {
    PacketFilter::AcceptPort(port);
}

void Tunnel::InsertIptableDefaultRule() const {
    PacketFilter::InsertDefault();
}

void Tunnel::RemoveIptableRules() const {
    PacketFilter::Flush();
}

void Tunnel::ResetTunnelData() {
    candidateIndex_ = 0;
}

}  // namespace ARDV::Relay
