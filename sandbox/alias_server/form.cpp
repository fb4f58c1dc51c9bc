// SPDX-License-Identifier: Apache-2.0
#include "form.h"

#include <algorithm>
#include <charconv>

#include "http/text.h"

namespace ARDV::Sandbox {
namespace {

constexpr std::string_view kSecrets[] = {"token", "key", "kova_password", "auth_key"};
constexpr size_t kLoggedBytes = 64;

bool IsSecret(std::string_view name) {
    return std::find(std::begin(kSecrets), std::end(kSecrets), name) != std::end(kSecrets);
}

std::optional<char> DecodeByte(std::string_view digits) {
    unsigned value = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || failure != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return static_cast<char>(value);
}

std::optional<std::string> Decode(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i] == '+' ? ' ' : text[i];
            continue;
        }
        const auto byte = DecodeByte(text.substr(i + 1, 2));
        if (!byte) {
            return std::nullopt;
        }
        out += *byte;
        i += 2;
    }
    return out;
}

bool IsText(std::string_view text) {
    return IsUtf8(text) && !HasControlCharacter(text);
}

}  // namespace

std::optional<Form> Form::Parse(std::string_view body) {
    Form form;
    bool more = !body.empty();
    while (more) {
        const size_t end = body.find('&');
        if (!form.AddPiece(body.substr(0, end))) {
            return std::nullopt;
        }
        more = end != std::string_view::npos;
        body.remove_prefix(more ? end + 1 : body.size());
    }
    return form;
}

bool Form::AddPiece(std::string_view piece) {
    const size_t equals = piece.find('=');
    if (equals == std::string_view::npos || fields_.size() == kMaxFields) {
        return false;
    }
    const auto name = Decode(piece.substr(0, equals));
    const auto value = Decode(piece.substr(equals + 1));
    if (!name || !value || name->empty() || !IsText(*name) || !IsText(*value)) {
        return false;
    }
    return fields_.emplace(*name, *value).second;
}

const std::string* Form::Find(std::string_view name) const {
    const auto found = fields_.find(name);
    return found == fields_.end() ? nullptr : &found->second;
}

std::string Form::Get(std::string_view name) const {
    const std::string* value = Find(name);
    return value ? *value : std::string();
}

std::string Form::Masked() const {
    std::string out;
    for (const auto& [name, value] : fields_) {
        out += out.empty() ? "" : "&";
        out += Printable(name, kLoggedBytes) + "=" + (IsSecret(name) ? "***" : Printable(value, kLoggedBytes));
    }
    return out;
}

}  // namespace ARDV::Sandbox
