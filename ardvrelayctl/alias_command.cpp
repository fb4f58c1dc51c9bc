// SPDX-License-Identifier: Apache-2.0
#include "alias_command.h"

#include <iostream>
#include <memory>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include <relay/alias/alias_status.h>
#include <relay/request/request_alias.h>

#include "alias_report.h"
#include "alias_request.h"
#include "control_command.h"
#include "output.h"
#include "secrets.h"
#include "server_url.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct Action {
    const char* name;
    ALIAS_REQUEST_CMD cmd;
    bool isRecorded;  // in the alias status: what the device did, not what it asked
    const char* help;
};

constexpr std::size_t kMaxRecordedExtra = 1024;
constexpr const char kNotSet[] = "not_set";
constexpr const char kNotRecorded[] = "the outcome could not be recorded in the alias status file";

constexpr Action kActions[] = {
    {"map", ALIAS_REQUEST_CMD_MAP, true, "Map the alias to this device"},
    {"keep-alive", ALIAS_REQUEST_CMD_KEEP_ALIVE, true,
     "Keep the alias alive: tell the server that the device is still there"},
    {"query", ALIAS_REQUEST_CMD_QUERY, false, "Ask the server who holds the alias"},
    {"delete", ALIAS_REQUEST_CMD_DELETE, true, "Give the alias up"},
};

ALIAS_RET ResultOfWord(const std::string& word) {
    const auto* row = FindRow(gRetMapper, [&](const AliasRetMap& r) { return r.status == word; });
    return row && !word.empty() ? row->ret : ALIAS_RET_UNKNOWN;
}

std::string DetailOf(const std::string& reply) {
    const auto colon = reply.find(':');
    return colon == std::string::npos ? std::string() : reply.substr(colon + 1);
}

/** Nothing of the outcome shows the secrets that were sent. */
Outcome SendRequest(AliasRequest& request) {
    Outcome outcome;
    Json::Value fields;
    std::string url;
    request.GetRequest(fields, url);
    const SentSecrets secrets(fields);
    ALIAS_RESPONSE_TYPE type = ALIAS_RESPONSE_TYPE_NONE;
    request.Send(outcome.ret, type);
    request.GetResponse(outcome.httpStatus);
    AliasRequest::ResponseToString(outcome.ret, outcome.word);
    if (type == ALIAS_RESPONSE_TYPE_JSON) {
        Json::Value answer;
        request.GetResponse(answer);
        outcome.answer = secrets.Hide(answer);
    } else if (type == ALIAS_RESPONSE_TYPE_TEXT) {
        std::string reply;
        request.GetResponse(reply);
        outcome.extra = secrets.Hide(DetailOf(reply));
    }
    return outcome;
}

bool Record(const std::string& alias, const Outcome& outcome) {
    return AliasStatus().SetStatus(alias, outcome.word, WellFormed(outcome.extra, kMaxRecordedExtra), true);
}

void Report(const Action& action, const std::string& alias, const Outcome& outcome, bool isRecorded, bool asJson) {
    if (asJson) {
        Json::Value report = OutcomeAsJson(action.name, alias, outcome);
        if (!isRecorded) {
            AddFailure(report, kNotRecorded, kExitCantCreate);
        }
        PrintJson(report);
    } else {
        PrintOutcome(outcome);
    }
    if (!isRecorded) {
        Complain(kNotRecorded);
    }
}

// Recorded before it is reported: what became of the alias must not be lost where nobody reads the report.
ExitCode SendAndReport(const Action& action, const std::string& alias, AliasRequest& request, bool asJson) {
    const Outcome outcome = SendRequest(request);
    const bool isRecorded = !action.isRecorded || Record(alias, outcome);
    Report(action, alias, outcome, isRecorded, asJson);
    return isRecorded ? ExitCodeOf(outcome.ret) : kExitCantCreate;
}

ExitCode RunAction(const Action& action, const Session& session, const AliasOptions& options) {
    const Json::Value data = GatherRequestData(session, options);
    AliasRequest request;
    if (!request.SetRequest(action.cmd, data)) {
        throw std::runtime_error("the request cannot be made (--verbose tells more)");
    }
    if (options.dryRun) {
        PrintRequest(request, session.json);
        return kExitSuccess;
    }
    return SendAndReport(action, data["alias"].asString(), request, session.json);
}

ExitCode ShowStatus(const Session& session, const AliasOptions& options) {
    const std::string alias = ConfiguredAlias(session, options);
    std::string word;
    std::string extra;
    if (alias.empty() || !AliasStatus().GetStatus(alias, word, extra) || word.empty()) {
        word = kNotSet;
    }
    const auto exitCode = ExitCodeOf(ResultOfWord(word));
    if (session.json) {
        Json::Value report(Json::objectValue);
        report["alias"] = alias;
        report["status"] = word;
        report["extra"] = extra;
        if (exitCode != kExitSuccess) {
            AddFailure(report, word == kNotSet ? "no outcome is recorded" : "the last request failed: " + word,
                       exitCode);
        }
        PrintJson(report);
    } else {
        std::cout << Excerpt(word) << (extra.empty() ? "" : ": " + Excerpt(extra)) << '\n';
    }
    return exitCode;
}

std::string UrlFault(const std::string& url) {
    const char* fault = WhatIsWrongWithUrl(url);
    return fault ? fault : "";
}

void AddMapOptions(CLI::App& map, AliasOptions& options) {
    AddText(map, "--account", options.account, "The owner's account at the account service", "NAME");
    AddText(map, "--account-id", options.accountId, "The owner's account number", "ID");
    AddText(map, "--password-file", options.passwordFile,
            "File, closed to other users, whose first line is the account's password; - for standard input", "FILE");
    AddText(map, "--auth-key-file", options.authKeyFile,
            "File, closed to other users, whose first line is an authorisation key; - for standard input", "FILE");
    map.add_flag("--force", options.force, "Take the alias over from another device of the same account");
}

CLI::App* AddAliasSubcommand(CLI::App& alias, const char* name, const char* help, Session& session,
                             AliasOptions& options) {
    auto* command = AddCommand(alias, name, help, session);
    AddText(*command, "--alias", options.alias, "Another alias than the configured one", "NAME");
    return command;
}

}  // namespace

void AddAliasCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<AliasOptions>();
    auto* alias = AddGroup(app, "alias", "Keep the short name by which the device is reached");
    for (const auto& action : kActions) {
        auto* command = AddAliasSubcommand(*alias, action.name, action.help, session, *options);
        command->add_option("--url", options->url, "Another alias server than the configured one: http:// or https://")
            ->type_name("URL")
            ->check(CLI::Validator(UrlFault, ""));
        command->add_flag("--dry-run", options->dryRun, "Print the request, with its secrets masked, and send nothing");
        if (action.cmd == ALIAS_REQUEST_CMD_MAP) {
            AddMapOptions(*command, *options);
        }
        command->callback([&session, &action, options] { session.exitCode = RunAction(action, session, *options); });
    }
    AddAliasSubcommand(*alias, "status", "Show the outcome of the last map, keep-alive or delete", session, *options)
        ->callback([&session, options] { session.exitCode = ShowStatus(session, *options); });
    AddAliasUpdateCommand(*alias, session);
}

}  // namespace ardv::ctl
