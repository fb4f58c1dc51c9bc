// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string_view>

#include "ardvrelayctl_fixture.h"

namespace ardv::test {
namespace {

using testing::HasSubstr;
using testing::Not;

bool IsPrintableAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); });
}

/** An alias server whose answers arrive byte for byte. */
class ArdvrelayctlText : public ArdvrelayctlAlias {
protected:
    void AnswerWithBytes(const std::string& body) {
        std::string order = R"({"kind":"reply","count":0,"body":")";
        for (const char byte : body) {
            order += Escaped(byte);
        }
        server.SetFault(order + "\"}");
    }

private:
    static std::string Escaped(char byte) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        const bool isPlain = value >= 0x20 && byte != '"' && byte != '\\';
        return isPlain ? std::string(1, byte) : std::string("\\u00") + kDigits[value >> 4U] + kDigits[value & 15U];
    }
};

struct ShownCase {
    const char* name;
    std::string sent;
    std::string shown;
};

class ArdvrelayctlShown : public ArdvrelayctlText, public testing::WithParamInterface<ShownCase> {};

TEST_P(ArdvrelayctlShown, IsFitForATerminal) {
    AnswerWithBytes("badauth:<" + GetParam().sent + ">");
    const auto refused = Alias({"keep-alive"});
    EXPECT_THAT(refused.err, HasSubstr("(<" + GetParam().shown + ">)\n"));
    AnswerWithBytes(R"({"note":")" + GetParam().sent + R"("})");
    if (GetParam().sent.find_first_of("\n\\") == std::string::npos) {
        EXPECT_THAT(Alias({"query"}).out, HasSubstr("  note: " + GetParam().shown + "\n"));
    }
}

TEST_P(ArdvrelayctlShown, IsAsciiInJson) {
    AnswerWithBytes("badauth:<" + GetParam().sent + ">");
    for (const char* command : {"keep-alive", "status"}) {
        const auto result = Alias({command, "--json"});
        EXPECT_TRUE(IsPrintableAscii(result.out)) << result.out;
        EXPECT_THAT(Parse(result.out)["extra"].asString(),
                    testing::AllOf(testing::StartsWith("<"), testing::EndsWith(">")));
    }
}

TEST_P(ArdvrelayctlShown, IsReadableInTheVerboseLog) {
    AnswerWithBytes("badauth:<" + GetParam().sent + ">");
    const auto result = Run({"--verbose", "alias", "keep-alive"});
    EXPECT_THAT(result.err, HasSubstr("Response: badauth:<" + GetParam().shown + ">\n"));
}

INSTANTIATE_TEST_SUITE_P(
    EachText, ArdvrelayctlShown,
    testing::Values(ShownCase{"Letters", "attic \xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80",
                              "attic \xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80"},
                    ShownCase{"Escape", "\x1b[2J", "?[2J"}, ShownCase{"Delete", "a\x7f", "a?"},
                    ShownCase{"Tabulator", "a\tb\rc", "a?b?c"},
                    ShownCase{"ControlSequenceIntroducer",
                              "\xC2\x9B"
                              "2J",
                              "?2J"},
                    ShownCase{"LastOfC1", "\xC2\x80\xC2\x9F\xC2\xA0", "??\xC2\xA0"},
                    ShownCase{"BareC1",
                              "\x9B"
                              "2J",
                              "?2J"},
                    ShownCase{"Marks", "\xE2\x80\x8D\xE2\x80\x8E\xE2\x80\x8F", "\xE2\x80\x8D??"},
                    ShownCase{"Overrides", "\xE2\x80\xAA\xE2\x80\xAE\xE2\x80\xAF", "??\xE2\x80\xAF"},
                    ShownCase{"Isolates", "\xE2\x81\xA6\xE2\x81\xA9\xE2\x81\xAA", "??\xE2\x81\xAA"},
                    ShownCase{"LineSeparator", "\xE2\x80\xA8", "?"}, ShownCase{"CutShort", "\xE2\x82", "??"},
                    ShownCase{"LeadBeforeLetter", "\xC3(", "?("},
                    ShownCase{"Overlong", "\xC0\xAF\xE0\x9F\xBF", "?????"},
                    ShownCase{"Surrogate", "\xED\xA0\x80", "???"},
                    ShownCase{"BeyondUnicode", "\xF4\x90\x80\x80", "????"},
                    ShownCase{"LastOfUnicode", "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ArdvrelayctlText, KeepsItsMeaningInJson) {
    const std::string text = "\"\\ \xC3\xBC \xF0\x9F\x98\x80 \x7f \x1b.";
    AnswerWithBytes("badauth:" + text);
    EXPECT_EQ(Parse(Alias({"keep-alive", "--json"}).out)["extra"], text);
    EXPECT_EQ(Parse(Alias({"status", "--json"}).out)["extra"], text);
    AnswerWithBytes("{\"\xC3\xBC\":[\"\x7f\",\"\xFF.\"]}");
    const auto answer = Parse(Alias({"query", "--json"}).out)["answer"];
    EXPECT_EQ(answer["\xC3\xBC"][0], "\x7f");
    EXPECT_EQ(answer["\xC3\xBC"][1], "\xEF\xBF\xBD.");
}

TEST_F(ArdvrelayctlText, CutsWhatItShowsAfterTwoHundredCharacters) {
    std::string characters;
    for (int i = 0; i < 200; ++i) {
        characters += "\xC3\xBC";
    }
    AnswerWithBytes("badauth:" + characters + ".");
    EXPECT_THAT(Alias({"keep-alive"}).err, HasSubstr("(" + characters + "...)\n"));
    EXPECT_EQ(Alias({"status"}).out, "error_auth: " + characters + "...\n");
    EXPECT_EQ(Parse(Alias({"keep-alive", "--json"}).out)["extra"], characters + ".");
    AnswerWithBytes("{\"note\":\"" + characters + "\"}");
    EXPECT_THAT(Alias({"query"}).out, HasSubstr("  note: " + characters + "\n")) << "which is not too long";
}

TEST_F(ArdvrelayctlText, ShowsAHundredMembersOfAnAnswer) {
    std::string answer;
    for (int i = 0; i < 101; ++i) {
        answer += (i == 0 ? "{\"" : ",\"") + std::to_string(1000 + i) + "\":" + std::to_string(i);
    }
    AnswerWithBytes(answer + "}");
    const auto shown = Alias({"query"}).out;
    EXPECT_THAT(shown, HasSubstr("  1099: 99\n  ... (--json shows all)\n"));
    EXPECT_THAT(shown, Not(HasSubstr("1100")));
    EXPECT_EQ(Parse(Alias({"query", "--json"}).out)["answer"].size(), 101U);
}

TEST_F(ArdvrelayctlText, RecordsAtMostAKibibyteOfWholeCharacters) {
    AnswerWithBytes("badauth:" + std::string(1023, 'x') + "\xC3\xBC.");
    Alias({"keep-alive"});
    EXPECT_EQ(Parse(ReadText(kStatusFile))["extra"], std::string(1023, 'x'));
    AnswerWithBytes("badauth:" + std::string(1022, 'x') + "\xC3\xBC.");
    Alias({"keep-alive"});
    EXPECT_EQ(Parse(ReadText(kStatusFile))["extra"], std::string(1022, 'x') + "\xC3\xBC");
    AnswerWithBytes("badauth:\xFF.");
    Alias({"keep-alive"});
    EXPECT_EQ(Parse(ReadText(kStatusFile))["extra"], "\xEF\xBF\xBD.");
}

TEST_F(ArdvrelayctlText, ShowsALongLogLineWholeAndTheToolsWordsBehindIt) {
    const std::string answer(300000, 'x');
    AnswerWithBytes(answer);
    const auto result = Run({"--verbose", "alias", "keep-alive"});
    EXPECT_THAT(result.err, HasSubstr("Response: " + answer + "\n"));
    EXPECT_LT(result.err.size(), 2 * answer.size()) << "and shows it once";
    EXPECT_THAT(result.err,
                testing::EndsWith("ardvrelayctl: the answer is not one of this protocol (--verbose tells more)\n"));
    EXPECT_EQ(result.out, "error_unknown\n");
}

}  // namespace
}  // namespace ardv::test
