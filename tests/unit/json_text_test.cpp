// SPDX-License-Identifier: Apache-2.0
#include <relay/utils/json_text.h>

#include <string>
#include <utility>

#include <json/writer.h>

#include "support/device_test.h"
#include "support/memory_faults.h"
#include "support/random_json.h"

namespace ARDV::Relay::JsonText {

namespace {

using namespace ardv::test;
using namespace std::string_literals;

std::string Nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

class AcceptedText : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(AcceptedText, IsParsedAsTheReaderDoesByDefault) {
    const auto& [text, compact] = GetParam();
    Json::Value value;
    ASSERT_TRUE(Parse(text, value));
    EXPECT_EQ(Compact(value), compact + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Json, AcceptedText,
    testing::Values(std::pair("{}", "{}"), std::pair("[1,2.5,\"x\",true,null]", "[1,2.5,\"x\",true,null]"),
                    std::pair(" \r\n\t{\"a\" : 1}", "{\"a\":1}"), std::pair("{\"a\":1,\"a\":2}", "{\"a\":2}"),
                    std::pair("// note\n{\"a\":1 /* b */}", "{\"a\":1}"), std::pair("7", "7"),
                    std::pair("null", "null"), std::pair("\"text\"", "\"text\""),
                    std::pair("{\"a\":1} and more", "{\"a\":1}"), std::pair("[\"\\u00e9\"]", "[\"\\u00e9\"]"),
                    std::pair("[\"a\0b\"]"s, "[\"a\\u0000b\"]"), std::pair("{\"b\":1,\"a\":2}", "{\"a\":2,\"b\":1}")));

class RefusedText : public testing::TestWithParam<std::string> {};

TEST_P(RefusedText, IsAFailureThatLeavesTheValueAsItWas) {
    Json::Value value("as it was");
    EXPECT_FALSE(Parse(GetParam(), value));
    EXPECT_EQ(value, Json::Value("as it was"));
}

INSTANTIATE_TEST_SUITE_P(Json, RefusedText,
                         testing::Values("", " \n", "{", "{\"a\":1", "[1,]", "{\"a\":1,}", "{\"first\":1,\"second\":}",
                                         "\xef\xbb\xbf{}", "'text'", "{1:2}", "TRUE", "NaN", "1e400", "\0{}"s,
                                         "[\"\\ud800\"]", "[\"\\x\"]", "\"open", Nested(1001), Nested(100'000),
                                         std::string(100'000, '['), std::string(100'000, '{')));

/** Parses with want of memory after so many allocations; whether there was any. */
bool ParsesWithoutMemory(int after) {
    const std::string text = R"({"a":[1,"a text that is too long to be kept in place"],"b":{"c":2.5}})";
    Json::Value value("as it was");
    bool isParsed = false;
    const bool hasStruck = IsShortOfMemory(after, [&] { isParsed = Parse(text, value); });
    EXPECT_EQ(isParsed, value.isObject()) << after;
    EXPECT_EQ(isParsed, value != Json::Value("as it was")) << after;
    EXPECT_TRUE(isParsed || hasStruck) << after;
    return hasStruck;
}

TEST(JsonText, WantOfMemoryIsAFailureWhereverItStrikes) {
    int failures = 0;
    while (ParsesWithoutMemory(failures)) {
        ++failures;
    }
    EXPECT_GT(failures, 5);
}

TEST(JsonText, AcceptsAThousandValuesWithinEachOtherAndNotOneMore) {
    Json::Value value;
    EXPECT_TRUE(Parse(Nested(1000), value));
    EXPECT_FALSE(Parse(Nested(1001), value));
    EXPECT_TRUE(Parse("{}", value)) << "a refusal has no effect on the next text";
}

TEST(JsonText, CommentsDoNotComeBackInWhatIsWritten) {
    EXPECT_EQ(Styled(JsonOf("// before\n{\n// within\n\"a\" : 1 // after\n}")), "{\n   \"a\" : 1\n}\n");
}

TEST(JsonText, StyledIsOneMemberALineIndentedByThreeBlanks) {
    const auto value =
        JsonOf(R"({"text":"a\u00e9/\n","list":[1,2],"none":{},"deep":{"on":true},"long":[{"a":1},{"b":[]}]})");
    EXPECT_EQ(Styled(value),
              "{\n"
              "   \"deep\" : {\n"
              "      \"on\" : true\n"
              "   },\n"
              "   \"list\" : [ 1, 2 ],\n"
              "   \"long\" : [\n"
              "      {\n"
              "         \"a\" : 1\n"
              "      },\n"
              "      {\n"
              "         \"b\" : []\n"
              "      }\n"
              "   ],\n"
              "   \"none\" : {},\n"
              "   \"text\" : \"a\\u00e9/\\n\"\n"
              "}\n");
}

TEST(JsonText, CompactIsOneLine) {
    EXPECT_EQ(Compact(JsonOf("{\"b\" : [ 1, {} ], \"a\" : \"x y\"}")), "{\"a\":\"x y\",\"b\":[1,{}]}\n");
}

TEST(JsonText, BothFormsAreThoseOfTheLibrarysWritersByteForByte) {
    RandomJson random(1, {"host", "port", "list"});
    for (int i = 0; i < 2000; ++i) {
        const auto value = random.Value(5);
        ASSERT_EQ(Styled(value), Json::StyledWriter().write(value));
        ASSERT_EQ(Compact(value), Json::FastWriter().write(value));
    }
}

TEST(JsonText, MembersAreThoseOfObjectsAlone) {
    const auto object = JsonOf(R"({"a":1})");
    ASSERT_NE(Member(object, "a"), nullptr);
    EXPECT_EQ(*Member(object, "a"), Json::Value(1));
    EXPECT_EQ(Member(object, "b"), nullptr);
    for (const char* text : {"null", "[1]", "\"a\"", "1", "2.5", "true"}) {
        EXPECT_EQ(Member(JsonOf(text), "a"), nullptr) << text;
    }
}

TEST(JsonText, KeyIsTakenInFullAndNotUpToANul) {
    Json::Value value;
    value["a\0b"s] = 1;
    EXPECT_NE(Member(value, "a\0b"s), nullptr);
    EXPECT_EQ(Member(value, "a"), nullptr);
}

struct TypedMember {
    const char* text;
    bool isString;
    bool isInt;
    bool isBool;
};

class MemberType : public testing::TestWithParam<TypedMember> {};

TEST_P(MemberType, DecidesWhetherTheMemberIsTaken) {
    const auto& [text, isString, isInt, isBool] = GetParam();
    Json::Value value;
    value["key"] = JsonOf(text);
    EXPECT_EQ(StringMember(value, "key").has_value(), isString);
    EXPECT_EQ(IntMember(value, "key").has_value(), isInt);
    EXPECT_EQ(BoolMember(value, "key").has_value(), isBool);
    std::string word = "kept";
    int number = -5;
    bool flag = false;
    Take(value, "key", word);
    Take(value, "key", number);
    Take(value, "key", flag);
    EXPECT_EQ(word != "kept", isString);
    EXPECT_EQ(number != -5, isInt);
    EXPECT_EQ(flag, isBool);
}

INSTANTIATE_TEST_SUITE_P(
    Types, MemberType,
    testing::Values(TypedMember{"\"\"", true, false, false}, TypedMember{"\"5\"", true, false, false},
                    TypedMember{"7", false, true, false}, TypedMember{"-2147483648", false, true, false},
                    TypedMember{"2147483647", false, true, false}, TypedMember{"2147483648", false, false, false},
                    TypedMember{"5e9", false, false, false}, TypedMember{"18446744073709551615", false, false, false},
                    TypedMember{"5.0", false, true, false}, TypedMember{"5.5", false, false, false},
                    TypedMember{"true", false, false, true}, TypedMember{"null", false, false, false},
                    TypedMember{"[]", false, false, false}, TypedMember{"{}", false, false, false}));

TEST(JsonText, TakenMembersAreTheirValues) {
    const auto value = JsonOf(R"({"text":"a\u0000b","number":-3,"off":false})");
    std::string text;
    int number = 0;
    bool flag = true;
    Take(value, "text", text);
    Take(value, "number", number);
    Take(value, "off", flag);
    EXPECT_EQ(text, "a\0b"s);
    EXPECT_EQ(number, -3);
    EXPECT_FALSE(flag);
    EXPECT_EQ(BoolMember(value, "off"), std::optional(false));
}

TEST(JsonText, MakesAnObjectOfAnythingButAnObject) {
    for (const char* text : {"null", "[1]", "\"a\"", "1", "2.5", "true"}) {
        auto value = JsonOf(text);
        EXPECT_EQ(&EnsureObject(value), &value);
        EXPECT_EQ(value, JsonOf("{}")) << text;
    }
    auto object = JsonOf(R"({"a":1})");
    EnsureObject(object);
    EXPECT_EQ(object, JsonOf(R"({"a":1})"));
}

}  // namespace

}  // namespace ARDV::Relay::JsonText
