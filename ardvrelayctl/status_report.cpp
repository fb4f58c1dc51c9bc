// SPDX-License-Identifier: Apache-2.0
#include "status_report.h"

#include <iostream>

#include "output.h"
#include "status_words.h"
#include "text.h"
#include "tunnel_report.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr std::size_t kShownServices = 50;

std::string ListOf(const std::vector<std::string>& ids) {
    std::string list;
    for (std::size_t i = 0; i < ids.size() && i < kShownServices; ++i) {
        list += (i == 0 ? "" : ", ") + Excerpt(ids[i]);
    }
    return ids.empty() ? "(none)" : list + (ids.size() > kShownServices ? ", ... (--json shows all)" : "");
}

void PrintIfThere(const char* label, const Json::Value& value) {
    if (!value.isNull() && !value.empty()) {
        std::cout << label << ": " << Excerpt(PlainText(value)) << '\n';
    }
}

// Members that the daemon may add, and that the library knows nothing of.
Json::Value Extra(const StatusSnapshot& snapshot, const char* name) {
    return snapshot.file.isObject() ? snapshot.file.get(name, Json::Value()) : Json::Value();
}

std::string NextStep(const StatusSnapshot& snapshot) {
    if (const auto fault = FaultOf(snapshot)) {
        return "'ardvrelayctl doctor' looks for the reason; 'systemctl start ardvrelayd' starts it";
    }
    const char* advice = AdviceFor(snapshot.error);
    if (snapshot.error == RELAYD_RET_SUCCESS || IsLoggedIn(snapshot.state)) {
        return snapshot.state == RELAYD_STATE_LOGOUT ? "'ardvrelayctl config set tethra.enabled true' switches it on, "
                                                       "'ardvrelayctl reload' tells the daemon"
                                                     : "";
    }
    return std::string(MeaningOf(snapshot.error)) + (*advice ? std::string(": ") + advice : "");
}

void PrintWhatHelps(const StatusSnapshot& snapshot) {
    if (snapshot.since) {
        std::cout << "since: " << TimeWords(*snapshot.since) << '\n';
    }
    if (snapshot.IsRunning()) {
        std::cout << "services: " << ListOf(snapshot.services) << '\n';
        if (snapshot.isTunnelOrdered) {
            std::cout << "tunnel: " << TunnelInShort(snapshot.tunnel) << '\n';
        }
        PrintIfThere("version", Extra(snapshot, "version"));
        const Json::Value next = Extra(snapshot, "next");
        if (next.isInt64() && next.asInt64() > 0) {
            std::cout << "next: " << TimeWords(next.asInt64()) << '\n';
        } else {
            PrintIfThere("next", next);
        }
    }
    if (const auto step = NextStep(snapshot); !step.empty()) {
        std::cout << "advice: " << step << '\n';
    }
}

}  // namespace

void PrintStatus(const StatusSnapshot& snapshot) {
    std::cout << "serverID: " << Excerpt(snapshot.serverId) << "\nstate: " << GetStateStr(snapshot.state)
              << "\nalias: " << Excerpt(snapshot.alias) << "\nalias_status: " << Excerpt(snapshot.aliasStatus) << '\n';
    if (snapshot.error != RELAYD_RET_SUCCESS) {
        std::cout << "error: " << GetErrorStr(snapshot.error) << '\n';
    }
    PrintWhatHelps(snapshot);
}

Json::Value StatusAsJson(const StatusSnapshot& snapshot) {
    Json::Value report(Json::objectValue);
    report["running"] = snapshot.IsRunning();
    if (snapshot.IsRunning()) {
        report["pid"] = snapshot.pid;
    }
    report["server_id"] = snapshot.serverId;
    report["state"] = GetStateStr(snapshot.state);
    report["last_error"] = GetErrorStr(snapshot.error);
    report["alias"] = snapshot.alias;
    report["alias_status"] = snapshot.aliasStatus;
    report["alias_extra"] = snapshot.aliasExtra;
    report["services"] = Json::Value(Json::arrayValue);
    for (const auto& id : snapshot.services) {
        report["services"].append(id);
    }
    if (snapshot.since) {
        report["since"] = *snapshot.since;
    }
    if (snapshot.tunnel) {
        report["tunnel"] = TunnelAsJson(*snapshot.tunnel);
    }
    report["advice"] = NextStep(snapshot);
    report["file"] = snapshot.file;
    if (const auto fault = FaultOf(snapshot)) {
        AddFailure(report, fault->text, fault->exitCode);
    }
    return report;
}

std::string StatusInShort(const StatusSnapshot& snapshot) {
    const auto fault = FaultOf(snapshot);
    std::string text = fault ? fault->text : "state " + GetStateStr(snapshot.state);
    if (snapshot.error != RELAYD_RET_SUCCESS) {
        text += ", error " + GetErrorStr(snapshot.error) + " (" + MeaningOf(snapshot.error) + ")";
    }
    const std::string status = snapshot.aliasStatus.empty() ? "not recorded" : Excerpt(snapshot.aliasStatus);
    text += snapshot.alias.empty() ? "" : ", alias " + Excerpt(snapshot.alias) + " " + status;
    return text + (snapshot.tunnel ? ", tunnel " + TunnelInShort(*snapshot.tunnel) : "");
}

}  // namespace ardv::ctl
