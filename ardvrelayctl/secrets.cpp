// SPDX-License-Identifier: Apache-2.0
#include "secrets.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <utility>

#include <relay/request/request_alias.h>

#include "output.h"
#include "secret_file.h"
#include "server_url.h"

namespace ardv::ctl {

using ARDV::Relay::AliasRequest;

namespace {

constexpr const char kMask[] = "***";

// In lower case. What the system doesn't know is judged by its name; none of its own settings has one like these.
constexpr std::string_view kSecretWords[] = {"pass", "secret", "token", "key", "credential"};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/** Whether a key, or a part of a dotted one, is the name of a secret. */
bool IsSecret(const std::string& key) {
    return std::any_of(
        std::begin(kSecretWords), std::end(kSecretWords),
        [lower = LowerCase(key)](std::string_view word) { return lower.find(word) != std::string::npos; });
}

std::string FormEncoded(const std::string& text) {
    Json::Value fields(Json::objectValue);
    fields[""] = text;
    std::string form;
    AliasRequest::ToPostRequest(fields, form);
    return form.substr(form.find('=') + 1);
}

std::string WithLowerCaseEscapes(std::string form) {
    for (auto at = form.find('%'); at != std::string::npos && at + 2 < form.size(); at = form.find('%', at + 1)) {
        form.replace(at, 3, LowerCase(form.substr(at, 3)));
    }
    return form;
}

void ReplaceAll(std::string& text, const std::string& what, const std::string& by) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
}

/** How a secret may stand in an answer; some are the same. */
std::vector<std::string> SpellingsOf(const std::string& secret) {
    std::string form = FormEncoded(secret);
    std::string withPlus = form;
    ReplaceAll(withPlus, "%20", "+");
    return {secret, WithLowerCaseEscapes(form), WithLowerCaseEscapes(withPlus), std::move(form), std::move(withPlus)};
}

}  // namespace

Json::Value Shown(const Json::Value& value, bool showSecrets) {
    if (showSecrets) {
        return value;
    }
    if (value.isString()) {
        return WithoutCredentials(value.asString());
    }
    Json::Value shown = value;
    if (value.isObject()) {
        for (const auto& name : value.getMemberNames()) {
            shown[name] = IsSecret(name) ? Json::Value(kMask) : Shown(value[name], false);
        }
    } else if (value.isArray()) {
        for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
            shown[i] = Shown(value[i], false);
        }
    }
    return shown;
}

Json::Value ShownMember(const std::string& key, const Json::Value& value, bool showSecrets) {
    return IsSecret(key) && !showSecrets ? Json::Value(kMask) : Shown(value, showSecrets);
}

std::string Masked(const std::string& secret, bool showSecrets) {
    return showSecrets || secret.empty() ? secret : kMask;
}

SentSecrets::SentSecrets(const Json::Value& fields) {
    for (const auto& name : fields.getMemberNames()) {
        if (AliasRequest::IsSecretField(name) && !PlainText(fields[name]).empty()) {
            const auto spellings = SpellingsOf(PlainText(fields[name]));
            spellings_.insert(spellings_.end(), spellings.begin(), spellings.end());
        }
    }
    std::sort(spellings_.begin(), spellings_.end(),
              [](const std::string& left, const std::string& right) { return left.size() > right.size(); });
}

SentSecrets::~SentSecrets() {
    std::for_each(spellings_.begin(), spellings_.end(), Wipe);
}

std::string SentSecrets::Hide(std::string text) const {
    for (const auto& secret : spellings_) {
        ReplaceAll(text, secret, kMask);
    }
    return text;
}

Json::Value SentSecrets::Hide(const Json::Value& value) const {
    if (value.isObject()) {
        Json::Value hidden(Json::objectValue);
        for (auto member = value.begin(); member != value.end(); ++member) {
            hidden[Hide(member.name())] = Hide(*member);
        }
        return hidden;
    }
    if (value.isArray()) {
        Json::Value hidden(Json::arrayValue);
        for (const auto& element : value) {
            hidden.append(Hide(element));
        }
        return hidden;
    }
    const std::string text = PlainText(value);
    const std::string hidden = Hide(text);
    return hidden == text ? value : Json::Value(hidden);
}

}  // namespace ardv::ctl
