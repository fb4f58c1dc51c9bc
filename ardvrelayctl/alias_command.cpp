// SPDX-License-Identifier: Apache-2.0
#include "alias_command.h"

#include <algorithm>
#include <iostream>
#include <iterator>

#include <CLI/CLI.hpp>

#include <relay/alias/alias_status.h>
#include <relay/request/request_alias.h>

#include "alias_report.h"
#include "output.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct Action {
    const char* name;
    ALIAS_REQUEST_CMD cmd;
    bool isRecorded;  // in the alias status: what the device did, not what it asked
    const char* help;
};

constexpr Action kActions[] = {
    {"map", ALIAS_REQUEST_CMD_MAP, true, "Map the alias to this device"},
    {"keep-alive", ALIAS_REQUEST_CMD_KEEP_ALIVE, true,
     "Keep the alias alive: tell the server that the device is still there"},
    {"query", ALIAS_REQUEST_CMD_QUERY, false, "Ask the server who holds the alias"},
    {"delete", ALIAS_REQUEST_CMD_DELETE, true, "Give the alias up"},
};

ALIAS_RET ResultOfWord(const std::string& word) {
    const auto* row =
        std::find_if(std::begin(gRetMapper), std::end(gRetMapper), [&](const auto& r) { return r.status == word; });
    return row == std::end(gRetMapper) || word.empty() ? ALIAS_RET_UNKNOWN : row->ret;
}

std::string DetailOf(const std::string& reply) {
    const auto colon = reply.find(':');
    return colon == std::string::npos ? std::string() : reply.substr(colon + 1);
}

Outcome SendRequest(AliasRequest& request) {
    Outcome outcome;
    ALIAS_RESPONSE_TYPE type = ALIAS_RESPONSE_TYPE_NONE;
    request.Send(outcome.ret, type);
    request.GetResponse(outcome.httpStatus);
    AliasRequest::ResponseToString(outcome.ret, outcome.word);
    if (type == ALIAS_RESPONSE_TYPE_JSON) {
        request.GetResponse(outcome.answer);
    } else if (type == ALIAS_RESPONSE_TYPE_TEXT) {
        std::string reply;
        request.GetResponse(reply);
        outcome.extra = DetailOf(reply);
    }
    return outcome;
}

ExitCode RunAction(const Action& action, const AliasOptions& options) {
    const Json::Value data = GatherRequestData(options);
    const std::string alias = data["alias"].asString();
    AliasRequest request;
    if (!request.SetRequest(action.cmd, data)) {
        throw std::runtime_error("the request cannot be made (--verbose tells more)");
    }
    if (options.dryRun) {
        PrintRequest(request, options.json);
        return kExitSuccess;
    }
    const Outcome outcome = SendRequest(request);
    options.json ? PrintOutcomeAsJson(action.name, alias, outcome) : PrintOutcome(outcome);
    if (action.isRecorded && !AliasStatus().SetStatus(alias, outcome.word, outcome.extra, true)) {
        Complain("the outcome could not be recorded in the alias status file");
        return kExitCantCreate;
    }
    return ExitCodeOf(outcome.ret);
}

ExitCode ShowStatus(const AliasOptions& options) {
    const std::string alias = ConfiguredAlias(options);
    std::string word;
    std::string extra;
    if (alias.empty() || !AliasStatus().GetStatus(alias, word, extra) || word.empty()) {
        word = "not_set";
    }
    if (options.json) {
        Json::Value report(Json::objectValue);
        report["alias"] = alias;
        report["status"] = word;
        report["extra"] = extra;
        PrintJson(report);
    } else {
        std::cout << Printable(word) << (extra.empty() ? "" : ": " + Printable(extra)) << '\n';
    }
    return ExitCodeOf(ResultOfWord(word));
}

void AddMapOptions(CLI::App& map, AliasOptions& options) {
    map.add_option("--account", options.account, "The owner's account at the account service")->type_name("NAME");
    map.add_option("--account-id", options.accountId, "The owner's account number")->type_name("ID");
    map.add_option("--password-file", options.passwordFile,
                   "File whose first line is the account's password; - for standard input")
        ->type_name("FILE");
    map.add_option("--auth-key-file", options.authKeyFile,
                   "File whose first line is an authorisation key; - for standard input")
        ->type_name("FILE");
    map.add_flag("--force", options.force, "Take the alias over from another device of the same account");
}

CLI::App* AddSubcommand(CLI::App& alias, const char* name, const char* help, AliasOptions& options) {
    auto* command = alias.add_subcommand(name, help);
    command->add_option("--alias", options.alias, "Another alias than the configured one")->type_name("NAME");
    command->add_flag("--json", options.json, "Print JSON, for programs");
    return command;
}

}  // namespace

void AddAliasCommand(CLI::App& app, AliasOptions& options, ExitCode& exitCode) {
    auto* alias = app.add_subcommand("alias", "Keep the short name by which the device is reached");
    alias->require_subcommand(1);
    for (const auto& action : kActions) {
        auto* command = AddSubcommand(*alias, action.name, action.help, options);
        command->add_option("--url", options.url, "Another alias server than the configured one")->type_name("URL");
        command->add_flag("--dry-run", options.dryRun, "Print the request, with its secrets masked, and send nothing");
        if (action.cmd == ALIAS_REQUEST_CMD_MAP) {
            AddMapOptions(*command, options);
        }
        command->callback([&options, &exitCode, &action] { exitCode = RunAction(action, options); });
    }
    AddSubcommand(*alias, "status", "Show the outcome of the last map, keep-alive or delete", options)
        ->callback([&options, &exitCode] { exitCode = ShowStatus(options); });
}

}  // namespace ardv::ctl
