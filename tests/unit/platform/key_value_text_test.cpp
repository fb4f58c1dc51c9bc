// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/key_value_text.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

namespace ARDV::Platform::Test {

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

std::string Valued(std::string_view text, std::string_view key = "k") {
    return GetKeyValue(text, key).value_or("(absent)");
}

std::string Changed(std::string_view text, std::string_view key, std::string_view value) {
    return SetKeyValue(text, key, value).value_or("(unchanged)");
}

struct Reading {
    std::string_view text;
    std::string_view value;
};

void ExpectReadings(std::initializer_list<Reading> readings) {
    for (const Reading& reading : readings) {
        EXPECT_EQ(Valued(reading.text), reading.value) << reading.text;
    }
}

/// Random text over letters that matter to the format.
std::string RandomText(std::mt19937& random, std::string_view letters, std::size_t maxLength) {
    std::string text(random() % (maxLength + 1), ' ');
    for (char& c : text) {
        c = letters[random() % letters.size()];
    }
    return text;
}

}  // namespace

TEST(KeyValueText, ReadsQuotedValues) {
    ExpectReadings({{"k=\"v\"\n", "v"},
                    {"k='v'\n", "v"},
                    {"k=''", ""},
                    {"k=\"it's\"", "it's"},
                    {"k='say \"x\"'", "say \"x\""},
                    {"k=\"#a\"", "#a"},
                    {"k=\"a\" # note", "a"},
                    {"k=\"a\"junk", "a"}});
}

TEST(KeyValueText, KnowsTwoEscapesInDoubleQuotesOnly) {
    ExpectReadings({{R"(k="a \"b\" c")", "a \"b\" c"},
                    {R"(k="C:\\data")", "C:\\data"},
                    {R"(k="tab\t and \x")", R"(tab\t and \x)"},
                    {R"(k="\\"x")", "\\"},
                    {R"(k='no \' escape')", R"(no \)"},
                    {R"(k=a\"b)", R"(a\"b)"}});
}

TEST(KeyValueText, ReadsAnUnclosedQuoteToTheEndOfItsLine) {
    ExpectReadings({{"k=\"open # end  \nx=\"", "open # end  "},
                    {"k='open", "open"},
                    {"k=\"open\\\"", "open\""},
                    {"k=\"open\\", "open\\"},
                    {"k=\"open\r\n", "open"},
                    {"k=\"", ""},
                    {"x=\"\nk=v\n", "v"}});
}

TEST(KeyValueText, DropsBlanksAroundKeysAndValues) {
    ExpectReadings({{"  \t k \t=\t  v \t \n", "v"},
                    {"k = \"  v  \" \n", "  v  "},
                    {"k=a b  c\n", "a b  c"},
                    {"k=\n", ""},
                    {"k=   \n", ""}});
}

TEST(KeyValueText, TakesAHashForACommentAtTheStartOrAfterABlank) {
    ExpectReadings({{"#k=v\n", "(absent)"},
                    {"  # k=v\nk=w", "w"},
                    {"k=v # note\n", "v"},
                    {"k=v\t#note\n", "v"},
                    {"k=v#w\n", "v#w"},
                    {"k=#v\n", "#v"},
                    {"k= #v\n", ""},
                    {"k=a#b #c #d\n", "a#b"}});
}

TEST(KeyValueText, ReadsLinesWithAnyEnd) {
    ExpectReadings({{"k=v", "v"}, {"k=v\r\n", "v"}, {"k=v\r", "v"}, {"k=\"v\"\r\nx=y\r\n", "v"}, {"k=v\r\r\n", "v\r"}});
}

TEST(KeyValueText, IgnoresLinesThatAreNoEntries) {
    ExpectReadings({{"", "(absent)"},
                    {"\n\n\n", "(absent)"},
                    {"k", "(absent)"},
                    {"kk=1\nk k=2\nK=3\nk.=4\n", "(absent)"},
                    {"no entry\n=v\nk=v\n", "v"}});
}

TEST(KeyValueText, SplitsAtTheFirstEqualsAndTakesTheFirstEntry) {
    ExpectReadings({{"k=a=b=c\n", "a=b=c"}, {"k=first\nk=second\n", "first"}});
}

TEST(KeyValueText, TreatsANulByteAsAnyOther) {
    const std::string text = "a\0b=1\n\0\nk=v\0w\nz=\"\0\"\n"s;
    EXPECT_EQ(Valued(text), "v\0w"s);
    EXPECT_EQ(Valued(text, "z"), "\0"s);
    EXPECT_EQ(Valued(text, "a\0b"sv), "1");
}

TEST(KeyValueText, NeverMatchesAKeyThatNoEntryCanHave) {
    const std::string text = "#k=1\n a =2\nb=c=3\n=4\n";
    EXPECT_EQ(Valued(text, "#k"), "(absent)");
    EXPECT_EQ(Valued(text, "a "), "(absent)");
    EXPECT_EQ(Valued(text, "b=c"), "(absent)");
    EXPECT_EQ(Valued(text, ""), "(absent)");
    EXPECT_EQ(Valued(text, "b=c=3\n"), "(absent)");
}

TEST(KeyValueText, FindsAKeyWithBlanksInside) {
    EXPECT_EQ(Valued("a b = 1\n", "a b"), "1");
}

TEST(KeyValueText, ReplacesOnlyTheValue) {
    EXPECT_EQ(Changed("# head\nk = old  # note\r\nx='y'\n", "k", "new"), "# head\nk = \"new\"  # note\r\nx='y'\n");
    EXPECT_EQ(Changed("  k='old' tail\nrest", "k", "new"), "  k=\"new\" tail\nrest");
    EXPECT_EQ(Changed("k=\"open end \r\nx=1", "k", "new"), "k=\"new\"\r\nx=1");
    EXPECT_EQ(Changed("k=   # note\n", "k", "new"), "k=\"new\"   # note\n");
    EXPECT_EQ(Changed("k=", "k", "new"), "k=\"new\"");
}

TEST(KeyValueText, ReplacesTheFirstOfSeveralEntries) {
    EXPECT_EQ(Changed("k=1\nk=2\n", "k", "3"), "k=\"3\"\nk=2\n");
}

TEST(KeyValueText, AppendsANewKeyWithTheLineEndOfTheFile) {
    EXPECT_EQ(Changed("", "k", "v"), "k=\"v\"\n");
    EXPECT_EQ(Changed("a=1\n", "k", "v"), "a=1\nk=\"v\"\n");
    EXPECT_EQ(Changed("a=1", "k", "v"), "a=1\nk=\"v\"\n");
    EXPECT_EQ(Changed("a=1\r\n", "k", "v"), "a=1\r\nk=\"v\"\r\n");
    EXPECT_EQ(Changed("a=1\r\nb=2", "k", "v"), "a=1\r\nb=2\r\nk=\"v\"\r\n");
    EXPECT_EQ(Changed("a=1\r\nb=2\n", "k", "v"), "a=1\r\nb=2\nk=\"v\"\n");
}

TEST(KeyValueText, CompletesALineEndThatHasItsCarriageReturnAlready) {
    const std::string changed = Changed("a=1\r\nb=2\r", "k", "v");
    EXPECT_EQ(changed, "a=1\r\nb=2\r\nk=\"v\"\r\n");
    EXPECT_EQ(Valued(changed, "b"), "2");
}

TEST(KeyValueText, AppendsAKeyThatOnlyACommentMentions) {
    EXPECT_EQ(Changed("#k=1\n", "k", "v"), "#k=1\nk=\"v\"\n");
}

TEST(KeyValueText, IsUnchangedByAValueThatIsThereAlready) {
    EXPECT_FALSE(SetKeyValue("k = v # note\n", "k", "v"));
    EXPECT_FALSE(SetKeyValue("k='a b'\nk=c\n", "k", "a b"));
    EXPECT_FALSE(SetKeyValue("k=", "k", ""));
    EXPECT_TRUE(SetKeyValue("K=v\n", "k", "v"));
}

TEST(KeyValueText, EscapesQuotesAndBackslashes) {
    EXPECT_EQ(Changed("", "k", R"(a"b\c\"d)"), "k=\"a\\\"b\\\\c\\\\\\\"d\"\n");
}

TEST(KeyValueText, KnowsTheKeysThatCanBeWritten) {
    for (const std::string_view key : {"k", "supportssh", "a.b-c_d/e", "\xc3\xa9", "\\"}) {
        EXPECT_TRUE(IsWritableKey(key)) << key;
    }
    for (const std::string_view key :
         {""sv, "a=b"sv, "#a"sv, "a#b"sv, "a b"sv, "a\tb"sv, "\"a"sv, "a'"sv, "a\nb"sv, "a\0b"sv, "\x7f"sv}) {
        EXPECT_FALSE(IsWritableKey(key)) << key;
    }
}

TEST(KeyValueText, KnowsTheValuesThatCanBeWritten) {
    for (const std::string_view value : {""sv, " "sv, "#\"'\\=\t\x01\xff"sv}) {
        EXPECT_TRUE(IsWritableValue(value));
    }
    for (const std::string_view value : {"\n"sv, "a\rb"sv, "\0"sv}) {
        EXPECT_FALSE(IsWritableValue(value));
    }
}

TEST(KeyValueText, ReadsBackEveryValueThatWasSetWhateverTheTextAround) {
    constexpr std::string_view kLetters = "ab=#\"'\\ \t\r\n\n\0"sv;
    constexpr std::string_view kValueLetters = "ab=#\"'\\ \t\x01\xff"sv;
    std::mt19937 random(20240611);
    for (int round = 0; round < 20000; ++round) {
        const std::string text = RandomText(random, kLetters, 40);
        const std::string value = RandomText(random, kValueLetters, 12);
        const std::string key = random() % 2 == 0 ? "a" : "b";
        const std::string other = key == "a" ? "b" : "a";
        const std::string changed = SetKeyValue(text, key, value).value_or(text);
        ASSERT_EQ(GetKeyValue(changed, key), value) << testing::PrintToString(text);
        ASSERT_EQ(GetKeyValue(changed, other), GetKeyValue(text, other)) << testing::PrintToString(text);
        ASSERT_FALSE(SetKeyValue(changed, key, value)) << testing::PrintToString(text);
    }
}

TEST(KeyValueText, HasTheSameValuesInAnIndex) {
    constexpr std::string_view kLetters = "aabb=#\"' \t\r\n\n\0"sv;
    std::mt19937 random(20240612);
    for (int round = 0; round < 20000; ++round) {
        const std::string text = RandomText(random, kLetters, 60);
        const KeyValueIndex index(text);
        for (const std::string_view key :
             {"a"sv, "b"sv, "ab"sv, "aa"sv, "a b"sv, "#a"sv, "\""sv, " a"sv, "a\0"sv, "\r"sv}) {
            ASSERT_EQ(index.Get(key), GetKeyValue(text, key)) << testing::PrintToString(text) << key;
        }
    }
}

}  // namespace ARDV::Platform::Test
