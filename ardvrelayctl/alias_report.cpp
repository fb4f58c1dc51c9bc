// SPDX-License-Identifier: Apache-2.0
#include "alias_report.h"

#include <iostream>

#include "exit_code.h"
#include "output.h"
#include "table.h"
#include "text.h"

namespace ardv::ctl {

using namespace ARDV::Relay;

namespace {

struct Reason {
    ALIAS_RET ret;
    const char* text;
};

constexpr Reason kReasons[] = {
    {ALIAS_RET_NOT_FOUND, "the server knows no such alias"},
    {ALIAS_RET_INUSED, "another device holds the alias: choose another one"},
    {ALIAS_RET_SYSTEM, "the server has a fault: try again later"},
    {ALIAS_RET_BAD_PARAM, "the server does not accept a part of the request"},
    {ALIAS_RET_NETWORK, "the server cannot be reached (--verbose tells more)"},
    {ALIAS_RET_DNS, "the server's name does not resolve"},
    {ALIAS_RET_AUTH, "the server refuses the device's identity"},
    {ALIAS_RET_911, "the service is being maintained: try again later"},
    {ALIAS_RET_SERVER_BUSY, "the server is busy: try again later"},
    {ALIAS_RET_BAD_IP, "the server refuses the device's address"},
    {ALIAS_RET_SELF_INUSED, "another device of this account holds the alias: --force takes it over"},
    {ALIAS_RET_API_KEY_EXPIRED, "the device's API key has expired"},
    {ALIAS_RET_VIOLATION, "the alias breaks the service's rules: choose another one"},
    {ALIAS_RET_UNKNOWN, "the answer is not one of this protocol (--verbose tells more)"},
};

struct RetryWord {
    ALIAS_RETRY_TYPE type;
    const char* word;
};

constexpr RetryWord kRetryWords[] = {
    {ALIAS_RETRY_TYPE_NONE, "none"},
    {ALIAS_RETRY_TYPE_RESOLVE, "resolve"},
    {ALIAS_RETRY_TYPE_LATER, "later"},
    {ALIAS_RETRY_TYPE_USER, "user"},
};

const char* ReasonOf(const Outcome& outcome) {
    if (outcome.ret == ALIAS_RET_UNKNOWN && outcome.httpStatus < 0) {
        return "the exchange failed: no answer that can be trusted or understood (--verbose tells more)";
    }
    return MeaningOf(outcome.ret);
}

const char* RetryWordOf(ALIAS_RET ret) {
    ALIAS_RETRY_TYPE type = ALIAS_RETRY_TYPE_NONE;
    AliasRequest::GetRetryType(ret, type);
    const auto* row = FindRow(kRetryWords, [type](const RetryWord& r) { return r.type == type; });
    return row ? row->word : "";
}

std::string FailureOf(const Outcome& outcome) {
    return ReasonOf(outcome) + (outcome.extra.empty() ? std::string() : " (" + Excerpt(outcome.extra) + ")");
}

Json::Value Masked(const Json::Value& fields) {
    Json::Value masked = fields;
    for (const auto& key : masked.getMemberNames()) {
        if (AliasRequest::IsSecretField(key)) {
            masked[key] = "***";
        }
    }
    return masked;
}

}  // namespace

const char* MeaningOf(ALIAS_RET ret) {
    const auto* row = FindRow(kReasons, [ret](const Reason& r) { return r.ret == ret; });
    return row ? row->text : "";
}

Json::Value OutcomeAsJson(const std::string& action, const std::string& alias, const Outcome& outcome) {
    Json::Value report(Json::objectValue);
    report["action"] = action;
    report["alias"] = alias;
    report["result"] = outcome.word;
    report["code"] = outcome.ret;
    report["retry"] = outcome.ret == ALIAS_RET_SUCCESS ? "none" : RetryWordOf(outcome.ret);
    report["extra"] = outcome.extra;
    if (outcome.httpStatus > 0) {
        report["http_status"] = outcome.httpStatus;
    }
    if (!outcome.answer.isNull()) {
        report["answer"] = outcome.answer;
    }
    if (outcome.ret != ALIAS_RET_SUCCESS) {
        AddFailure(report, FailureOf(outcome), ExitCodeOf(outcome.ret));
    }
    return report;
}

void PrintOutcome(const Outcome& outcome) {
    std::cout << outcome.word << '\n';
    if (!outcome.answer.isNull()) {
        PrintMembers(outcome.answer);
    }
    if (outcome.ret != ALIAS_RET_SUCCESS) {
        Complain(FailureOf(outcome));
    }
}

void PrintRequest(const AliasRequest& request, bool asJson) {
    Json::Value fields;
    std::string url;
    request.GetRequest(fields, url);
    fields = Masked(fields);
    if (!asJson) {
        std::cout << "POST " << Printable(url) << '\n';
        PrintMembers(fields);
        return;
    }
    Json::Value report(Json::objectValue);
    report["method"] = "POST";
    report["url"] = url;
    report["fields"] = fields;
    PrintJson(report);
}

}  // namespace ardv::ctl
