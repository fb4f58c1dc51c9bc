// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <relay/request/request_alias.h>

#include "support/curl_faults.h"

using namespace ardv::test;
using namespace ARDV::Relay;

namespace {

std::string Form(const Json::Value& fields, const std::string& before = "") {
    std::string out = before;
    AliasRequest::ToPostRequest(fields, out);
    return out;
}

TEST(AliasForm, EscapesEveryByteButThoseThatStandForThemselves) {
    const std::string plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~";
    for (int code = 0; code < 256; ++code) {
        const auto byte = static_cast<char>(code);
        char escaped[8] = {byte, '\0'};
        if (code == 0 || plain.find(byte) == std::string::npos) {
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(code));
        }
        Json::Value fields;
        fields["k"] = std::string("<") + byte + ">";
        EXPECT_EQ(Form(fields), std::string("k=%3C") + escaped + "%3E") << code;
    }
}

TEST(AliasForm, JoinsItsFieldsInTheOrderOfTheirKeys) {
    Json::Value fields;
    fields["b"] = "2";
    fields["a c"] = "1";
    fields["B"] = "";
    EXPECT_EQ(Form(fields), "B=&a c=1&b=2") << "keys are not escaped";
    EXPECT_EQ(Form(fields, "x"), "xB=&a c=1&b=2") << "and what was there stays";
}

TEST(AliasForm, WritesOtherValuesAsText) {
    const std::pair<Json::Value, const char*> cases[] = {
        {5, "k=5"},       {-5, "k=-5"},   {Json::Value(Json::UInt64{18446744073709551615U}), "k=18446744073709551615"},
        {true, "k=true"}, {1.5, "k=1.5"}, {Json::Value(), "k="}};
    for (const auto& [value, form] : cases) {
        Json::Value fields;
        fields["k"] = value;
        EXPECT_EQ(Form(fields), form);
    }
}

TEST(AliasForm, WritesListsAndObjectsAsJson) {
    Json::Value fields;
    fields["a"].append(1);
    fields["o"]["x"] = "y";
    EXPECT_EQ(Form(fields), "a=%5B1%5D&o=%7B%22x%22%3A%22y%22%7D");
}

TEST(AliasForm, AddsNothingForAValueThatIsNoObject) {
    Json::Value list;
    list.append("x");
    for (const auto& value : {Json::Value(), Json::Value("x"), Json::Value(1), list, Json::Value(Json::objectValue)}) {
        EXPECT_EQ(Form(value, "before"), "before");
    }
}

TEST(AliasForm, NeedsAHandle) {
    CurlFaults faults;
    faults.noHandle = true;
    Json::Value fields;
    fields["a"] = "1";
    EXPECT_EQ(Form(fields, "before"), "before");
}

TEST(AliasForm, LeavesOutWhatCannotBeEscaped) {
    CurlFaults faults;
    faults.noEscape = true;
    Json::Value fields;
    fields["a"] = "1";
    fields["b"] = "2";
    EXPECT_EQ(Form(fields), "&");
}

TEST(AliasForm, TakesAMillionBytes) {
    Json::Value fields;
    fields["a"] = std::string(1000000, '&');
    EXPECT_EQ(Form(fields).size(), 3000002U);
}

TEST(AliasForm, KnowsItsSecrets) {
    for (const auto* key : {"token", "key", "kova_password", "auth_key"}) {
        EXPECT_TRUE(AliasRequest::IsSecretField(key)) << key;
    }
    for (const auto* key : {"", "alias", "Token", "tokens", "serial", "mac", "kova_account"}) {
        EXPECT_FALSE(AliasRequest::IsSecretField(key)) << key;
    }
}

}  // namespace
