// SPDX-License-Identifier: Apache-2.0
#include "tunnel_report.h"

#include <cstddef>
#include <iostream>

#include "daemon_process.h"
#include "status_words.h"
#include "text.h"

namespace ardv::ctl {

namespace {

constexpr std::size_t kShownPorts = 50;

struct Line {
    const char* label;
    std::string text;
};

std::string CandidateOf(const TunnelState& tunnel) {
    std::string words;
    for (const auto& [before, text] : {std::pair(" ", tunnel.protocol), {" ", tunnel.host}, {" port ", tunnel.port}}) {
        words += text.empty() ? "" : before + Excerpt(text);
    }
    return words.empty() ? "" : words.substr(1);
}

std::string ProcessOf(const TunnelState& tunnel) {
    if (tunnel.pid < 0) {
        return "";
    }
    return std::to_string(tunnel.pid) + (IsAlive(tunnel.pid) ? "" : ", which is gone");
}

std::string PortsOf(const TunnelState& tunnel) {
    std::string list;
    for (std::size_t i = 0; i < tunnel.open.size() && i < kShownPorts; ++i) {
        const auto& [id, port] = tunnel.open[i];
        list += (i == 0 ? "" : ", ") + Excerpt(id) + " " + std::to_string(port);
    }
    return list.empty() ? "(none)" : list + (tunnel.open.size() > kShownPorts ? ", ... (--json shows all)" : "");
}

void AddText(Json::Value& report, const char* name, const std::string& text) {
    if (!text.empty()) {
        report[name] = text;
    }
}

}  // namespace

void PrintTunnel(const TunnelState& tunnel) {
    const Line lines[] = {{"status", Excerpt(tunnel.status)},
                          {"meaning", MeaningOfTunnel(tunnel.status)},
                          {"relay", Excerpt(tunnel.relay)},
                          {"candidate", CandidateOf(tunnel)},
                          {"peer", Excerpt(tunnel.peer)},
                          {"local", Excerpt(tunnel.local)},
                          {"local_ipv6", Excerpt(tunnel.localIpv6)},
                          {"since", tunnel.since ? TimeWords(*tunnel.since) : ""},
                          {"last_error", Excerpt(tunnel.error)},
                          {"next_try", tunnel.retryAt ? DueWords(*tunnel.retryAt) : ""},
                          {"openvpn", ProcessOf(tunnel)},
                          {"open", PortsOf(tunnel)}};
    for (const auto& [label, text] : lines) {
        if (!text.empty()) {
            std::cout << label << ": " << text << '\n';
        }
    }
}

Json::Value TunnelAsJson(const TunnelState& tunnel) {
    Json::Value report(Json::objectValue);
    AddText(report, "status", tunnel.status);
    AddText(report, "relay_ip", tunnel.relay);
    AddText(report, "peer_ip", tunnel.peer);
    AddText(report, "local_ip", tunnel.local);
    AddText(report, "local_ip6", tunnel.localIpv6);
    AddText(report, "error", tunnel.error);
    Json::Value candidate(Json::objectValue);
    AddText(candidate, "protocol", tunnel.protocol);
    AddText(candidate, "host", tunnel.host);
    AddText(candidate, "port", tunnel.port);
    if (!candidate.empty()) {
        report["candidate"] = candidate;
    }
    if (tunnel.pid > 0) {
        report["pid"] = tunnel.pid;
    }
    if (tunnel.since) {
        report["since"] = *tunnel.since;
    }
    if (tunnel.retryAt) {
        report["retry_at"] = *tunnel.retryAt;
    }
    report["open"] = Json::Value(Json::arrayValue);
    for (const auto& [id, port] : tunnel.open) {
        Json::Value element(Json::objectValue);
        element["id"] = id;
        element["port"] = port;
        report["open"].append(element);
    }
    return report;
}

std::string TunnelInShort(const std::optional<TunnelState>& tunnel) {
    if (!tunnel) {
        return "what the daemon says of it cannot be used";
    }
    std::string text = Excerpt(tunnel->status) + (tunnel->relay.empty() ? "" : ", relay " + Excerpt(tunnel->relay));
    return text + (tunnel->IsUp() || tunnel->error.empty() ? "" : ", " + Excerpt(tunnel->error));
}

}  // namespace ardv::ctl
