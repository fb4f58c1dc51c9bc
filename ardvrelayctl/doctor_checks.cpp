// SPDX-License-Identifier: Apache-2.0
#include "doctor_checks.h"

#include <algorithm>

#include <relay/daemon/daemon.h>

#include "alias_report.h"
#include "command_error.h"
#include "config_check.h"
#include "daemon_process.h"
#include "device_identity.h"
#include "doctor_facts.h"
#include "effective.h"
#include "status_words.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

constexpr const char kSwitchOn[] =
    "'ardvrelayctl config set tethra.enabled true' switches it on, 'ardvrelayctl reload' tells the daemon";

Json::Value SettingsOf(const Session& session) {
    try {
        return Complete(LoadOrDefault(session.configFile, Services::kLeaveOut));
    } catch (const CommandError&) {
        return Json::Value(Json::objectValue);
    }
}

Diagnosis CheckConfig(const Facts& facts) {
    const auto findings = CheckConfiguration(facts.session.configFile, facts.session.isConfigNamed);
    if (findings.empty()) {
        return {"configuration", Health::kOk, "valid", ""};
    }
    const auto& first = findings.front();
    const auto text =
        Printable(first.file) + ": " + (first.key.empty() ? "" : Excerpt(first.key) + " ") + Printable(first.reason);
    if (first.isForbidden) {
        return {"configuration", Health::kWarning, text, "run this as root"};
    }
    return {"configuration", first.isError ? Health::kProblem : Health::kWarning, text,
            "'ardvrelayctl config check' shows all that is found"};
}

Diagnosis CheckIdentity(const Facts& /*facts*/) {
    if (const auto missing = WhatIsMissing(ReadIdentity())) {
        return {"identity", missing->Code() == kExitNoPermission ? Health::kWarning : Health::kProblem, missing->what(),
                "'ardvrelayctl identity show' shows what is there"};
    }
    return {"identity", Health::kOk, "there", ""};
}

Diagnosis CheckSwitch(const Facts& facts) {
    if (!facts.AreSettingsKnown()) {
        return {"switch", Health::kOk, "not known", ""};
    }
    if (!facts.IsWanted()) {
        return {"switch", Health::kProblem, "neither the service nor the support channel is switched on", kSwitchOn};
    }
    return {"switch", Health::kOk, "switched on", ""};
}

Diagnosis CheckProtocol(const Facts& facts) {
    constexpr const char* kServers[] = {"server_control", "server_waitcmd"};
    for (const char* server : kServers) {
        if (facts.settings[server]["protocol"].asString() == "http") {
            return {"protocol", Health::kWarning,
                    std::string("a control server (") + server +
                        ") is spoken to by plain HTTP: the device's token or its session go over the net in clear text",
                    std::string("'ardvrelayctl config set ") + server + ".protocol https', and " + server +
                        ".port 443, if the service has it"};
        }
    }
    const bool isKnown = facts.settings["server_control"].isMember("protocol");
    return {"protocol", Health::kOk, isKnown ? "the control servers are spoken to by HTTPS" : "not known", ""};
}

Diagnosis CheckProcess(const Facts& facts) {
    const auto pid = ReadPidFile();
    const auto process = pid ? FactsOf(*pid) : std::nullopt;
    if (pid && IsDaemon(*pid)) {
        const bool isStopped = process && (process->state == 'T' || process->state == 't');
        const auto text = "process " + std::to_string(*pid) + " is " + (process ? StateWords(process->state) : "gone");
        return {"daemon", isStopped ? Health::kProblem : Health::kOk, text,
                isStopped ? "'kill -CONT " + std::to_string(*pid) + "' lets it go on" : ""};
    }
    std::string text = std::string("it does not run: ") + Printable(Daemon::GetPidFile());
    text +=
        !pid ? " names no process" : " names process " + std::to_string(*pid) + ", which is " + WordsForStranger(*pid);
    const bool isMissed = facts.IsWanted() || !facts.AreSettingsKnown();
    return {"daemon", isMissed ? Health::kProblem : Health::kOk, text,
            isMissed ? "'systemctl start ardvrelayd' starts it" : ""};
}

/** The state of a daemon of which the status file knows nothing good. */
Diagnosis CheckFault(const DaemonFault& fault) {
    if (fault.exitCode != kExitNotRunning) {
        return {"state", Health::kProblem, fault.text, "start the daemon again: it writes a new one"};
    }
    const auto pid = ReadPidFile();
    if (pid && IsDaemon(*pid)) {
        return {"state", Health::kProblem, "the daemon runs, and publishes nothing: there is no status file of it",
                "see its log, and 'ardvrelayctl report'"};
    }
    return {"state", Health::kOk, fault.text, ""};  // which another check judges
}

Diagnosis CheckState(const Facts& facts) {
    const auto& snapshot = facts.snapshot;
    if (const auto fault = FaultOf(snapshot)) {
        return CheckFault(*fault);
    }
    const std::string meaning = GetStateStr(snapshot.state) + ": " + MeaningOf(snapshot.state);
    if (IsLoggedIn(snapshot.state)) {
        return {"state", Health::kOk, meaning, ""};
    }
    if (snapshot.error != RELAYD_RET_SUCCESS) {
        return {"state", Health::kProblem,
                meaning + "; " + GetErrorStr(snapshot.error) + ": " + MeaningOf(snapshot.error),
                AdviceFor(snapshot.error)};
    }
    const bool isOff = snapshot.state == RELAYD_STATE_LOGOUT;
    return {"state", isOff && !facts.IsWanted() ? Health::kOk : Health::kWarning, meaning,
            isOff && facts.IsWanted() ? "'ardvrelayctl reload' tells the daemon that it is switched on" : ""};
}

Diagnosis CheckWriter(const Facts& facts) {
    const auto pid = ReadPidFile();
    if (facts.snapshot.IsRunning() && pid && IsDaemon(*pid) && facts.snapshot.pid != *pid) {
        return {"status file", Health::kProblem,
                "it is written by process " + std::to_string(facts.snapshot.pid) + ", the pid file names " +
                    std::to_string(*pid) + ": two daemons run, or a file is left from another one",
                "end both, and start one"};
    }
    return {"status file", Health::kOk,
            facts.snapshot.IsRunning() ? "of the daemon that runs" : "of no daemon that runs", ""};
}

Diagnosis CheckChange(const Facts& facts) {
    const auto& snapshot = facts.snapshot;
    return {"last change", Health::kOk, snapshot.since ? TimeWords(*snapshot.since) : "not known", ""};
}

Diagnosis CheckAlias(const Facts& facts) {
    const auto& snapshot = facts.snapshot;
    if (snapshot.alias.empty()) {
        return {"alias", Health::kOk, snapshot.configFault.empty() ? "none is set" : "not known", ""};
    }
    const auto* row = FindRow(gRetMapper, [&](const AliasRetMap& r) { return r.status == snapshot.aliasStatus; });
    if (!row || snapshot.aliasStatus.empty()) {
        return {"alias", Health::kWarning, Excerpt(snapshot.alias) + ": no outcome is recorded yet",
                "'ardvrelayctl alias update' asks the daemon for it"};
    }
    const auto text = Excerpt(snapshot.alias) + ": " + row->status;
    if (row->ret == ALIAS_RET_SUCCESS) {
        return {"alias", Health::kOk, text, ""};
    }
    return {"alias", Health::kProblem, text + ": " + MeaningOf(row->ret),
            "'ardvrelayctl alias update' tries it again, once the reason is gone"};
}

using Check = Diagnosis (*)(const Facts&);

constexpr Check kChecks[] = {CheckConfig,       CheckIdentity,     CheckSwitch,        CheckProcess,       CheckState,
                             CheckWriter,       CheckChange,       CheckAlias,         CheckStatusFolder,  CheckClock,
                             CheckNames,        CheckProtocol,     CheckUnit,          CheckTunnel,        CheckOpenVpn,
                             CheckPacketFilter, CheckTunnelDevice, CheckTunnelScripts, CheckRelayAuthority};

}  // namespace

Facts::Facts(const Session& theSession)
    : session(theSession), snapshot(ReadSnapshot(theSession)), settings(SettingsOf(theSession)) {}

bool Facts::AreSettingsKnown() const {
    return !settings.empty();
}

bool Facts::IsWanted() const {
    return settings["tethra"]["enabled"].asBool() || settings["support_channel"]["enabled"].asBool();
}

std::vector<Diagnosis> Examine(const Session& session) {
    const Facts facts(session);
    std::vector<Diagnosis> diagnoses;
    std::transform(std::begin(kChecks), std::end(kChecks), std::back_inserter(diagnoses),
                   [&facts](Check check) { return check(facts); });
    return diagnoses;
}

}  // namespace ardv::ctl
