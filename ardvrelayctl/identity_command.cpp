// SPDX-License-Identifier: Apache-2.0
#include "identity_command.h"

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "command_error.h"
#include "device_identity.h"
#include "identity_file.h"
#include "output.h"
#include "secret_file.h"
#include "secrets.h"
#include "text.h"

namespace ardv::ctl {

namespace {

struct IdentityOptions {
    std::string serial;
    std::string mac;
    std::string apiKeyFile;
    bool force = false;
    bool showSecrets = false;
};

struct Row {
    const char* key;  // of the identity
    const char* name;
    bool isSecret;
};

constexpr Row kRows[] = {{"serial", "serial", false},     {"mac", "mac", false},    {"model", "model", false},
                         {"timezone", "timezone", false}, {"token", "token", true}, {"key", "api_key", true}};

Json::Value AsShown(const Json::Value& identity, bool showSecrets) {
    Json::Value shown(Json::objectValue);
    for (const auto& row : kRows) {
        const auto text = identity[row.key].asString();
        shown[row.name] = row.isSecret ? Masked(text, showSecrets) : text;
    }
    return shown;
}

void PrintIdentity(const Json::Value& shown) {
    for (const auto& row : kRows) {
        const auto text = shown[row.name].asString();
        std::cout << row.name << ": " << (text.empty() ? "(none)" : Printable(text)) << '\n';
    }
}

/** Tells what the identity lacks, in the report as well. */
ExitCode Judge(const Json::Value& identity, Json::Value& report) {
    const auto missing = WhatIsMissing(identity);
    report["valid"] = !missing;
    if (!missing) {
        return kExitSuccess;
    }
    AddFailure(report, missing->what(), missing->Code());
    Complain(missing->what());
    return missing->Code();
}

ExitCode Show(const Session& session, const IdentityOptions& options) {
    const Json::Value identity = ReadIdentity();
    Json::Value shown = AsShown(identity, options.showSecrets);
    if (!session.json) {
        PrintIdentity(shown);
    }
    const auto exitCode = Judge(identity, shown);
    if (session.json) {
        PrintJson(shown);
    }
    return exitCode;
}

std::string ApiKey(const IdentityOptions& options) {
    if (options.apiKeyFile.empty()) {
        return RandomApiKey();
    }
    std::string key = ReadSecret(options.apiKeyFile);
    if (const char* fault = ApiKeyFault(key)) {
        Wipe(key);
        throw CommandError(kExitConfig, fault);
    }
    return key;
}

/** The identity is made, whatever else the device lacks to use it. */
void WarnOfWhatIsMissing(Json::Value& report) {
    const auto missing = WhatIsMissing(ReadIdentity());
    report["valid"] = !missing;
    if (missing) {
        report["warning"] = missing->what();
        Complain(std::string("warning: ") + missing->what());
    }
}

ExitCode Init(const Session& session, const IdentityOptions& options) {
    Identity identity;
    identity.serial = options.serial.empty() ? RandomSerial() : options.serial;
    identity.mac = options.mac;
    identity.apiKey = ApiKey(options);
    WriteIdentity(identity, options.force);
    Wipe(identity.apiKey);
    Json::Value report(Json::objectValue);
    report["file"] = kIdentityFile;
    report["serial"] = identity.serial;
    if (!session.json) {
        std::cout << "made " << kIdentityFile << " for the serial number " << identity.serial << '\n';
    }
    WarnOfWhatIsMissing(report);
    if (session.json) {
        PrintJson(report);
    }
    return kExitSuccess;
}

CLI::Validator Checked(const char* (*fault)(const std::string&)) {
    return {[fault](const std::string& text) -> std::string {
                const char* words = fault(text);
                return words ? words : "";
            },
            ""};
}

}  // namespace

void AddIdentityCommand(CLI::App& app, Session& session) {
    const auto options = std::make_shared<IdentityOptions>();
    auto* identity = AddGroup(app, "identity", "Show or make the device's identity at the relay service");
    auto* show = AddCommand(*identity, "show", "Show the identity", session);
    show->add_flag("--show-secrets", options->showSecrets, "Show token and API key, which are \"***\" otherwise");
    show->callback([&session, options] { session.exitCode = Show(session, *options); });
    auto* init = AddCommand(*identity, "init", "Make an identity for a machine that has none", session);
    init->add_option("--serial", options->serial, "The serial number; else a random one")
        ->type_name("TEXT")
        ->check(Checked(SerialFault));
    init->add_option("--mac", options->mac, "The MAC address; else that of the first wired interface")
        ->type_name("ADDR")
        ->check(Checked(MacFault));
    AddText(*init, "--api-key-file", options->apiKeyFile,
            "File, closed to other users, whose first line is the API key; - for standard input; else a random key",
            "FILE");
    init->add_flag("--force", options->force, "Replace the identity that is there");
    init->callback([&session, options] { session.exitCode = Init(session, *options); });
}

}  // namespace ardv::ctl
