// SPDX-License-Identifier: Apache-2.0
#include "protocol.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <optional>

#include "form.h"
#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr std::string_view kUpdatePage = "/alias_update.php";
constexpr std::string_view kQueryPage = "/alias_query.php";
constexpr const char* kTextType = "text/plain; charset=utf-8";
constexpr const char* kJsonType = "application/json";

enum class Word : size_t {
    kGood,
    kServerError,
    kMaintenance,
    kBadParameter,
    kBadAuth,
    kBadAddress,
    kNotFound,
    kInUse,
    kSelfInUse,
    kKeyExpired,
    kViolation,
};

constexpr std::array<std::string_view, 11> kWords{
    "good",     "badsys",          "911",          "badparam",          "badauth",
    "badip",    "alias_not_found", "alias_inused", "alias_self_inused", "api_key_expired",
    "violation"};

AliasReply Say(Word word, std::string_view detail = {}) {
    std::string body(kWords[static_cast<size_t>(word)]);
    if (!detail.empty()) {
        body.append(":").append(detail);
    }
    return {body, kTextType};
}

// What an action sees and may change.
struct Context {
    const Form& form;
    std::string alias;
    RegistryData& data;
    bool changed = false;
};

bool IsMac(const std::string& text) {
    static constexpr std::string_view kShape = "xx:xx:xx:xx:xx:xx";
    return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(), [](char actual, char shape) {
        return shape == 'x' ? std::isxdigit(static_cast<unsigned char>(actual)) != 0 : actual == shape;
    });
}

bool IsMacOrEmpty(const std::string& text) {
    return text.empty() || IsMac(text);
}

bool IsAliasText(const std::string& text) {
    return IsAliasName(Lower(text));
}

bool IsNumber(const std::string& text) {
    const std::string_view digits = std::string_view(text).substr(text.starts_with('-') ? 1 : 0);
    return !digits.empty() && digits.size() <= 10 && digits.find_first_not_of("0123456789") == std::string::npos;
}

bool IsAnything(const std::string&) {
    return true;
}

enum class Presence { kFilled, kPresent, kOptional };

struct FieldRule {
    std::string_view name;
    Presence onUpdate;
    Presence onQuery;
    size_t limit;
    bool (*check)(const std::string&);
};

// A device that could not read its address, key or model sends them empty; that is no reason to lock it out.
constexpr FieldRule kFieldRules[] = {
    {"alias", Presence::kFilled, Presence::kFilled, 63, IsAliasText},
    {"serial", Presence::kFilled, Presence::kOptional, 64, IsAnything},
    {"token", Presence::kFilled, Presence::kOptional, 1024, IsAnything},
    {"id", Presence::kFilled, Presence::kOptional, 128, IsAnything},
    {"mac", Presence::kPresent, Presence::kPresent, 17, IsMacOrEmpty},
    {"key", Presence::kPresent, Presence::kPresent, 1024, IsAnything},
    {"model", Presence::kPresent, Presence::kPresent, 128, IsAnything},
    {"kova_account", Presence::kOptional, Presence::kOptional, 256, IsAnything},
    {"kova_password", Presence::kOptional, Presence::kOptional, 1024, IsAnything},
    {"kova_id", Presence::kOptional, Presence::kOptional, 128, IsAnything},
    {"auth_key", Presence::kOptional, Presence::kOptional, 1024, IsAnything},
    {"smartdns_support_type", Presence::kOptional, Presence::kOptional, 11, IsNumber},
};

bool Fits(const FieldRule& rule, Presence presence, const Form& form) {
    const std::string* value = form.Find(rule.name);
    if (!value) {
        return presence == Presence::kOptional;
    }
    return value->size() <= rule.limit && !(presence == Presence::kFilled && value->empty()) && rule.check(*value);
}

bool IsForced(const Form& form) {
    const std::string force = form.Get("force");
    return force == "true" || force == "1";
}

// First contact makes a device known; from then on its token is the proof.
bool Identify(Context& context) {
    const auto [device, isNew] = context.data.devices.try_emplace(context.form.Get("serial"));
    DeviceRecord& record = device->second;
    if (!isNew && record.token != context.form.Get("token")) {
        return false;
    }
    const DeviceRecord before = record;
    record.token = context.form.Get("token");
    record.mac = context.form.Get("mac");
    record.model = context.form.Get("model");
    record.account = context.form.Find("kova_account") ? context.form.Get("kova_account") : before.account;
    context.changed = context.changed || isNew || before.mac != record.mac || before.model != record.model ||
                      before.account != record.account;
    return true;
}

bool IsMine(const Context& context, const AliasRecord& record) {
    return record.serial == context.form.Get("serial");
}

std::optional<AliasReply> RefuseTakeover(const Context& context, const AliasRecord& record) {
    if (IsMine(context, record)) {
        return std::nullopt;
    }
    const std::string account = context.form.Get("kova_account");
    if (account.empty() || account != record.account) {
        return Say(Word::kInUse, context.alias);
    }
    return IsForced(context.form) ? std::nullopt : std::optional(Say(Word::kSelfInUse, context.alias));
}

AliasReply MapAlias(Context& context) {
    if (context.data.blocked.contains(context.alias)) {
        return Say(Word::kViolation, context.alias);
    }
    const auto found = context.data.aliases.find(context.alias);
    if (found != context.data.aliases.end()) {
        if (auto refusal = RefuseTakeover(context, found->second)) {
            return *refusal;
        }
    }
    const Form& form = context.form;
    const std::string now = Timestamp();
    const bool isKept = found != context.data.aliases.end() && IsMine(context, found->second);
    const std::string mappedAt = isKept ? found->second.mappedAt : now;
    const std::string account = form.Find("kova_account") || !isKept ? form.Get("kova_account") : found->second.account;
    context.data.aliases[context.alias] = {
        form.Get("serial"), form.Get("id"), form.Get("mac"), form.Get("model"), account, mappedAt, now};
    context.changed = true;
    return Say(Word::kGood);
}

// The refusal of a request about an alias that isn't there or isn't the caller's.
std::optional<AliasReply> RefuseOwnership(const Context& context) {
    const auto found = context.data.aliases.find(context.alias);
    if (found == context.data.aliases.end()) {
        return Say(Word::kNotFound, context.alias);
    }
    return IsMine(context, found->second) ? std::nullopt : std::optional(Say(Word::kBadAuth, "alias"));
}

AliasReply KeepAlive(Context& context) {
    if (context.data.blocked.contains(context.alias)) {
        return Say(Word::kViolation, context.alias);
    }
    if (auto refusal = RefuseOwnership(context)) {
        return *refusal;
    }
    AliasRecord& record = context.data.aliases[context.alias];
    record.id = context.form.Get("id");
    record.mac = context.form.Get("mac");
    record.model = context.form.Get("model");
    record.seenAt = Timestamp();
    context.changed = true;
    return Say(Word::kGood);
}

AliasReply DeleteAlias(Context& context) {
    if (auto refusal = RefuseOwnership(context)) {
        return *refusal;
    }
    context.data.aliases.erase(context.alias);
    context.changed = true;
    return Say(Word::kGood);
}

AliasReply QueryAlias(Context& context) {
    const auto found = context.data.aliases.find(context.alias);
    if (found == context.data.aliases.end()) {
        return Say(Word::kNotFound, context.alias);
    }
    Json::Value json(Json::objectValue);
    json["alias"] = context.alias;
    json["id"] = found->second.id;
    json["model"] = found->second.model;
    json["mapped_at"] = found->second.mappedAt;
    json["seen_at"] = found->second.seenAt;
    return {ToJsonText(json), kJsonType};
}

struct Action {
    std::string_view name;
    std::string_view page;
    bool identifies;
    Presence FieldRule::*presence;
    AliasReply (*run)(Context&);
};

constexpr Action kActions[] = {
    {"map_alias", kUpdatePage, true, &FieldRule::onUpdate, MapAlias},
    {"delete_alias", kUpdatePage, true, &FieldRule::onUpdate, DeleteAlias},
    {"keep_alive_alias", kUpdatePage, true, &FieldRule::onUpdate, KeepAlive},
    {"query_alias", kQueryPage, false, &FieldRule::onQuery, QueryAlias},
};

const Action* FindAction(std::string_view name, std::string_view page) {
    const auto* found = std::find_if(std::begin(kActions), std::end(kActions),
                                     [&](const Action& action) { return action.name == name && action.page == page; });
    return found == std::end(kActions) ? nullptr : found;
}

std::optional<AliasReply> RefuseFields(const Action& action, const Form& form) {
    const auto* wrong = std::find_if(std::begin(kFieldRules), std::end(kFieldRules),
                                     [&](const FieldRule& rule) { return !Fits(rule, rule.*action.presence, form); });
    return wrong == std::end(kFieldRules) ? std::nullopt : std::optional(Say(Word::kBadParameter, wrong->name));
}

AliasReply Run(const Action& action, Context& context) {
    if (context.data.expiredKeys.contains(context.form.Get("key"))) {
        return Say(Word::kKeyExpired);
    }
    if (action.identifies && !Identify(context)) {
        return Say(Word::kBadAuth, "serial");
    }
    return action.run(context);
}

AliasReply AnswerForm(RegistryData& data, const AliasCall& call, bool& changed) {
    const auto form = call.method == "POST" ? Form::Parse(call.body) : std::nullopt;
    if (!form) {
        return Say(Word::kBadParameter, call.method == "POST" ? "form" : "method");
    }
    const Action* action = FindAction(form->Get("action"), call.page);
    if (!action) {
        return Say(Word::kBadParameter, "action");
    }
    if (auto refusal = RefuseFields(*action, *form)) {
        return *refusal;
    }
    Context context{*form, Lower(form->Get("alias")), data};
    AliasReply reply = Run(*action, context);
    changed = context.changed;
    return reply;
}

}  // namespace

std::vector<std::string> AliasPages() {
    return {std::string(kUpdatePage), std::string(kQueryPage)};
}

AliasReply Answer(Registry& registry, const AliasCall& call) {
    AliasReply reply;
    std::string error;
    const bool isSafe = registry.Transact(
        [&](RegistryData& data) {
            bool changed = false;
            reply =
                data.blockedAddresses.contains(call.client) ? Say(Word::kBadAddress) : AnswerForm(data, call, changed);
            return changed;
        },
        error);
    if (!isSafe) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return Say(Word::kServerError);
    }
    return reply;
}

AliasReply MaintenanceReply() {
    return Say(Word::kMaintenance);
}

}  // namespace ARDV::Sandbox
