// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "exit_code.h"
#include "support/program.h"

using namespace ardv::daemon;
using namespace std::chrono_literals;
using ardv::test::ProgramResult;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

Options Read(std::vector<std::string> words) {
    words.insert(words.begin(), "ardvrelayd");
    std::vector<char*> list;
    std::transform(words.begin(), words.end(), std::back_inserter(list), [](std::string& word) { return word.data(); });
    const auto count = static_cast<int>(list.size());
    list.push_back(nullptr);
    return ReadOptions(count, list.data());
}

/** What is wrong with a command line; empty if nothing is. */
std::string ProblemOf(const std::vector<std::string>& words) {
    const auto options = Read(words);
    return options.mode == Mode::kUsageError ? options.problem : "";
}

ProgramResult RunDaemon(std::vector<std::string> words) {
    words.insert(words.begin(), ARDV_DAEMON);
    return ardv::test::RunProgram(words);
}

}  // namespace

TEST(Options, HaveTheirDefaults) {
    const auto options = Read({});
    EXPECT_EQ(options.mode, Mode::kRun);
    EXPECT_FALSE(options.foreground);
    EXPECT_EQ(options.configFile, "/usr/ardv/etc/ardvrelayd/ardvrelayd.conf");
    EXPECT_EQ(options.pidFile, "");
    EXPECT_EQ(options.startSpread, 0ms);
    EXPECT_EQ(options.retry.usual.base, 5s);
    EXPECT_EQ(options.retry.usual.cap, 15min);
    EXPECT_EQ(options.retry.slow.base, 5min);
    EXPECT_EQ(options.retry.slow.cap, 6h);
}

TEST(Options, AreTakenInTheirLongAndShortForms) {
    for (const auto& words :
         {std::vector<std::string>{"--foreground", "--config", "/c", "--pid-file=/p", "--start-spread=1.5"},
          std::vector<std::string>{"-f", "-c", "/c", "-p/p", "-s", "1.5"},
          std::vector<std::string>{"-fc", "/c", "-p", "/p", "-s1.5"}}) {
        const auto options = Read(words);
        EXPECT_EQ(options.mode, Mode::kRun) << options.problem;
        EXPECT_TRUE(options.foreground);
        EXPECT_EQ(options.configFile, "/c");
        EXPECT_EQ(options.pidFile, "/p");
        EXPECT_EQ(options.startSpread, 1500ms);
    }
}

TEST(Options, SelectWhatTheProgramDoes) {
    const struct {
        const char* longForm;
        const char* shortForm;
        Mode mode;
    } rows[] = {{"--check-config", "-t", Mode::kCheckConfig},
                {"--certificate", "-L", Mode::kCertificate},
                {"--version", "-V", Mode::kVersion},
                {"--help", "-h", Mode::kHelp}};
    for (const auto& [longForm, shortForm, mode] : rows) {
        EXPECT_EQ(Read({longForm}).mode, mode) << longForm;
        EXPECT_EQ(Read({shortForm}).mode, mode) << shortForm;
    }
}

TEST(Options, SetTheTimesBetweenAttempts) {
    const auto options = Read({"--retry-base", "0.01", "--retry-cap", "2"});
    EXPECT_EQ(options.retry.usual.base, 10ms);
    EXPECT_EQ(options.retry.usual.cap, 2s);
    EXPECT_EQ(options.retry.slow.base, 600ms) << "slow attempts follow";
    EXPECT_EQ(options.retry.slow.cap, 48s);
}

TEST(Options, RaiseACapThatIsBelowTheBase) {
    const auto options = Read({"--retry-base", "1000"});
    EXPECT_EQ(options.retry.usual.cap, 1000s);
}

TEST(Options, RefuseTimesThatAreNone) {
    for (const char* option : {"--start-spread", "--retry-base", "--retry-cap"}) {
        for (const char* wrong : {"x", "", "-1", "5s", "1e9", "nan", "inf", "86401", "1 2", "--5"}) {
            EXPECT_EQ(ProblemOf({option, wrong}), std::string(option) + " cannot be " + wrong);
        }
        EXPECT_EQ(ProblemOf({option, "86400"}), "") << option;
    }
    EXPECT_EQ(ProblemOf({"--start-spread", "0"}), "");
    EXPECT_EQ(ProblemOf({"--retry-base", "0"}), "--retry-base cannot be 0");
    EXPECT_EQ(ProblemOf({"--retry-cap", "0.0001"}), "--retry-cap cannot be 0.0001") << "rounds to nothing";
}

TEST(Options, RefuseAPathThatDependsOnWhereTheDaemonWasStarted) {
    for (const char* option : {"--config", "--pid-file"}) {
        for (const char* wrong : {"", "x.conf", "./x.conf", "~/x.conf"}) {
            EXPECT_EQ(ProblemOf({option, wrong}), std::string(option) + " cannot be " + wrong);
        }
    }
}

TEST(Options, NameTheOptionThatIsNotKnown) {
    EXPECT_EQ(ProblemOf({"--nonsense"}), "there is no option --nonsense");
    EXPECT_EQ(ProblemOf({"-x"}), "there is no option -x");
    EXPECT_EQ(ProblemOf({"-fx"}), "there is no option -x");
    EXPECT_EQ(ProblemOf({"-xf"}), "there is no option -x");
    EXPECT_EQ(ProblemOf({"--help=me"}), "--help takes no value");
}

TEST(Options, NameTheOptionThatLacksItsValue) {
    EXPECT_EQ(ProblemOf({"--config"}), "--config needs a value");
    EXPECT_EQ(ProblemOf({"-f", "-c"}), "--config needs a value");
    EXPECT_EQ(ProblemOf({"--retry-cap"}), "--retry-cap needs a value");
}

TEST(Options, RefuseArguments) {
    EXPECT_EQ(ProblemOf({"start"}), "an argument was not expected: start");
    EXPECT_EQ(ProblemOf({"-f", "--", "-t"}), "an argument was not expected: -t");
}

TEST(Options, AreReadAfreshEachTime) {
    EXPECT_NE(ProblemOf({"-xt"}), "");
    EXPECT_EQ(Read({"-f"}).mode, Mode::kRun) << "nothing is left of the line before";
}

TEST(Help, NamesEachOptionWithItsDefaultAndFitsATerminal) {
    const auto text = HelpText();
    for (const char* option : {"-f, --foreground ", "-c, --config FILE", "-t, --check-config ", "-p, --pid-file FILE",
                               "-s, --start-spread SECONDS", "    --retry-base SECONDS", "    --retry-cap SECONDS",
                               "-L, --certificate ", "-V, --version ", "-h, --help "}) {
        EXPECT_THAT(text, HasSubstr(std::string("\n  ") + option));
    }
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = text.find('\n', begin);
        EXPECT_LE(end - begin, 80U) << text.substr(begin, end - begin);
        begin = end + 1;
    }
}

TEST(Program, PrintsHelpAndVersion) {
    const auto help = RunDaemon({"--help"});
    EXPECT_EQ(help.exitCode, kExitSuccess);
    EXPECT_EQ(help.out, HelpText());
    EXPECT_EQ(help.err, "");
    const auto version = RunDaemon({"-V"});
    EXPECT_EQ(version.exitCode, kExitSuccess);
    EXPECT_THAT(version.out, MatchesRegex("ardvrelayd [0-9.]+\n"));
}

TEST(Program, EndsWithItsOwnCodeForWrongUse) {
    const auto wrong = RunDaemon({"--nonsense"});
    EXPECT_EQ(wrong.exitCode, kExitUsage);
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(wrong.err, "ardvrelayd: there is no option --nonsense; --help tells more\n");
}

TEST(Program, SaysThatItKeepsNoCertificateYet) {
    const auto worker = RunDaemon({"-L"});
    EXPECT_EQ(worker.exitCode, kExitNotSupported);
    EXPECT_THAT(worker.err, StartsWith("ardvrelayd: "));
}
