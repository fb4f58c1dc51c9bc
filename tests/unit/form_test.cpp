// SPDX-License-Identifier: Apache-2.0
#include <relay/request/form.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ARDV::Relay::Form {

namespace {

using testing::ElementsAre;

TEST(FormText, IsSplitAtItsAmpersands) {
    EXPECT_THAT(Split("a=1&b=2"), ElementsAre("a=1", "b=2"));
    EXPECT_THAT(Split("a"), ElementsAre("a"));
    EXPECT_THAT(Split(""), ElementsAre(""));
    EXPECT_THAT(Split("&"), ElementsAre("", ""));
    EXPECT_THAT(Split("&a&&b&"), ElementsAre("", "a", "", "b", ""));
    EXPECT_THAT(Split(std::string_view("a\0b&c", 5)), ElementsAre(std::string_view("a\0b", 3), "c"));
}

TEST(FormText, IsSplitIntoViewsOfItself) {
    const std::string form = "a=1&b=2";
    const auto pieces = Split(form);
    EXPECT_EQ(pieces[0].data(), form.data());
    EXPECT_EQ(pieces[1].data(), form.data() + 4);
}

TEST(FormText, SplitIsJoinedToTheSameText) {
    for (const std::string form : {"", "a", "&", "&&&", "a=1&b=2", "&a&&b&", "a=b=c&=&"}) {
        std::string joined;
        for (const auto piece : Split(form)) {
            joined.append(piece).append("&");
        }
        joined.pop_back();
        EXPECT_EQ(joined, form);
    }
}

TEST(FormField, IsSecretExactlyByItsName) {
    for (const auto* key : {"token", "key", "kova_password", "auth_key"}) {
        EXPECT_TRUE(IsSecret(key)) << key;
    }
    for (const auto* key :
         {"", "Token", "TOKEN", "tokens", "toke", " token", "keys", "mac", "serial", "kova_account"}) {
        EXPECT_FALSE(IsSecret(key)) << key;
    }
}

TEST(FormText, IsMaskedWhereItHoldsSecrets) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"a=1&b=2", "a=1&b=2"},
        {"&a&&b&", "&a&&b&"},
        {"token=secret", "token=***"},
        {"token=", "token=***"},
        {"token", "token=***"},
        {"token=se=cret", "token=***"},
        {"a=1&token=secret&b=2", "a=1&token=***&b=2"},
        {"token=secret&token=other", "token=***&token=***"},
        {"key=1&kova_password=2&auth_key=3&keys=4", "key=***&kova_password=***&auth_key=***&keys=4"},
        {"alias=token&id=key", "alias=token&id=key"},
        {"=token", "=token"},
        {"good", "good"},
        {"{\"a\":1}\n", "{\"a\":1}\n"},
    };
    for (const auto& [form, masked] : cases) {
        EXPECT_EQ(Masked(form), masked);
    }
}

TEST(FormText, OfAMillionPiecesIsMasked) {
    std::string form;
    std::string masked;
    for (int i = 0; i < 500'000; ++i) {
        form += "token=s&";
        masked += "token=***&";
    }
    EXPECT_TRUE(Masked(form) == masked);
}

}  // namespace

}  // namespace ARDV::Relay::Form
