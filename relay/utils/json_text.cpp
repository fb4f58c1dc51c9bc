// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/json_text.h>

#include <exception>
#include <new>
#include <utility>

#include <json/reader.h>
#include <json/writer.h>

namespace ARDV::Relay::JsonText {

ParseResult TryParse(std::string_view text, Json::Value& value) {
    try {
        Json::Value scratch;  // a failed parse leaves behind what it had read so far
        Json::Reader reader;
        if (!reader.parse(text.data(), text.data() + text.size(), scratch, false)) {
            return ParseResult::kDamaged;
        }
        value = std::move(scratch);
        return ParseResult::kParsed;
    } catch (const std::bad_alloc&) {
        return ParseResult::kNoMemory;
    } catch (const std::exception&) {
        return ParseResult::kDamaged;
    }
}

bool Parse(std::string_view text, Json::Value& value) {
    return TryParse(text, value) == ParseResult::kParsed;
}

std::string Styled(const Json::Value& value) {
    return Json::StyledWriter().write(value);
}

std::string Compact(const Json::Value& value) {
    return Json::FastWriter().write(value);
}

const Json::Value* Member(const Json::Value& value, std::string_view key) {
    return value.isObject() ? value.find(key.data(), key.data() + key.size()) : nullptr;
}

std::optional<std::string> StringMember(const Json::Value& value, std::string_view key) {
    const auto* member = Member(value, key);
    return member && member->isString() ? std::optional(member->asString()) : std::nullopt;
}

std::optional<int> IntMember(const Json::Value& value, std::string_view key) {
    const auto* member = Member(value, key);
    return member && member->isInt() ? std::optional(member->asInt()) : std::nullopt;
}

std::optional<bool> BoolMember(const Json::Value& value, std::string_view key) {
    const auto* member = Member(value, key);
    return member && member->isBool() ? std::optional(member->asBool()) : std::nullopt;
}

void Take(const Json::Value& value, std::string_view key, std::string& setting) {
    if (auto taken = StringMember(value, key)) {
        setting = std::move(*taken);
    }
}

void Take(const Json::Value& value, std::string_view key, int& setting) {
    setting = IntMember(value, key).value_or(setting);
}

void Take(const Json::Value& value, std::string_view key, bool& setting) {
    setting = BoolMember(value, key).value_or(setting);
}

Json::Value& EnsureObject(Json::Value& value) {
    if (!value.isObject()) {
        value = Json::Value(Json::objectValue);
    }
    return value;
}

}  // namespace ARDV::Relay::JsonText
