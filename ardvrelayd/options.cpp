// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <getopt.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <vector>

#include "exit_code.h"

namespace ardv::daemon {

using std::chrono::milliseconds;

namespace {

constexpr double kMaxSeconds = 86400;
constexpr int kSlowBaseFactor = 60;  // the slow plan follows the usual one
constexpr int kSlowCapFactor = 24;

std::optional<milliseconds> ReadSeconds(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds < 0 || seconds > kMaxSeconds) {
        return std::nullopt;
    }
    return milliseconds(std::lround(seconds * 1000));
}

bool SetPath(std::string& path, const std::string& text) {
    path = text;
    return !text.empty() && text.front() == '/';
}

bool SetTime(milliseconds& time, const std::string& text) {
    const auto read = ReadSeconds(text);
    time = read.value_or(time);
    return read.has_value();
}

bool SetPositiveTime(milliseconds& time, const std::string& text) {
    return SetTime(time, text) && time > milliseconds(0);
}

struct OptionRow {
    const char* name;
    char letter;        // 0 for none
    const char* value;  // what the help calls it, or null for an option without one
    const char* help;
    bool (*take)(Options& options, const std::string& value);  // false: the value is wrong
};

constexpr OptionRow kOptions[] = {
    {"foreground", 'f', nullptr, "stay in the foreground, log to standard error",
     [](Options& o, const std::string&) { return o.foreground = true; }},
    {"config", 'c', "FILE", "the main configuration file",
     [](Options& o, const std::string& text) { return SetPath(o.configFile, text); }},
    {"check-config", 't', nullptr, "say whether the configuration can be used, and end",
     [](Options& o, const std::string&) {
         o.mode = Mode::kCheckConfig;
         return true;
     }},
    {"pid-file", 'p', "FILE", "the file with the daemon's process id",
     [](Options& o, const std::string& text) { return SetPath(o.pidFile, text); }},
    {"start-spread", 's', "SECONDS", "begin at a random time within these",
     [](Options& o, const std::string& text) { return SetTime(o.startSpread, text); }},
    {"retry-base", 0, "SECONDS", "where the times between attempts begin (5)",
     [](Options& o, const std::string& text) { return SetPositiveTime(o.retry.usual.base, text); }},
    {"retry-cap", 0, "SECONDS", "where they end (900)",
     [](Options& o, const std::string& text) { return SetPositiveTime(o.retry.usual.cap, text); }},
    {"certificate", 'L', nullptr, "be the worker that keeps the certificate",
     [](Options& o, const std::string&) {
         o.mode = Mode::kCertificate;
         return true;
     }},
    {"version", 'V', nullptr, "print the version, and end",
     [](Options& o, const std::string&) {
         o.mode = Mode::kVersion;
         return true;
     }},
    {"help", 'h', nullptr, "print this, and end",
     [](Options& o, const std::string&) {
         o.mode = Mode::kHelp;
         return true;
     }},
};

constexpr int kFirstLong = 256;  // getopt's numbers of the rows, beyond every letter

std::string Letters() {
    std::string letters = ":";
    for (const auto& row : kOptions) {
        if (row.letter) {
            letters += row.letter;
            letters += row.value ? ":" : "";
        }
    }
    return letters;
}

std::vector<option> LongOptions() {
    std::vector<option> list;
    int number = kFirstLong;
    for (const auto& row : kOptions) {
        list.push_back({row.name, row.value ? required_argument : no_argument, nullptr, number++});
    }
    list.push_back({});
    return list;
}

const OptionRow* FindOption(int number) {
    const auto belongs = [number](const OptionRow& row) {
        return number >= kFirstLong ? &row - kOptions == number - kFirstLong : row.letter == number && number != 0;
    };
    const auto* row = std::find_if(std::begin(kOptions), std::end(kOptions), belongs);
    return row == std::end(kOptions) ? nullptr : row;
}

Options UsageError(const std::string& problem) {
    Options options;
    options.mode = Mode::kUsageError;
    options.problem = problem;
    return options;
}

std::string NameOf(const OptionRow& row) {
    return std::string("--") + row.name;
}

// What is wrong with an option that getopt does not take. It leaves the option's number or letter in optopt, and nothing for a
// long one that it does not know.
std::string ProblemWith(int number, const std::string& word) {
    const auto* row = FindOption(optopt);
    if (number == ':') {
        return (row ? NameOf(*row) : word) + " needs a value";
    }
    if (row) {
        return NameOf(*row) + " takes no value";
    }
    return "there is no option " + (optopt ? std::string("-") + static_cast<char>(optopt) : word);
}

}  // namespace

Options ReadOptions(int argc, char** argv) {
    Options options;
    const auto letters = Letters();
    const auto list = LongOptions();
    optind = 0;  // from the beginning, also where a line before was left in the midst of a word
    for (int number = 0; (number = getopt_long(argc, argv, letters.c_str(), list.data(), nullptr)) != -1;) {
        const auto* row = FindOption(number);
        if (!row) {
            return UsageError(ProblemWith(number, argv[optind - 1]));
        }
        if (!row->take(options, optarg ? optarg : "")) {
            return UsageError(NameOf(*row) + " cannot be " + (optarg ? optarg : ""));
        }
    }
    if (optind < argc) {
        return UsageError(std::string("an argument was not expected: ") + argv[optind]);
    }
    options.retry.usual.cap = std::max(options.retry.usual.cap, options.retry.usual.base);
    options.retry.soon = std::min(options.retry.soon, options.retry.usual.base);
    options.retry.slow = {options.retry.usual.base * kSlowBaseFactor, options.retry.usual.cap * kSlowCapFactor};
    return options;
}

std::string HelpText() {
    constexpr std::size_t kColumn = 28;
    constexpr std::size_t kCodeColumn = 5;
    std::string text =
        "Usage: ardvrelayd [OPTION]...\nKeeps this device reachable by its alias, from the background.\n\n";
    for (const auto& row : kOptions) {
        std::string line = row.letter ? std::string("  -") + row.letter + ", " : "      ";
        line += NameOf(row) + (row.value ? std::string(" ") + row.value : "");
        line.resize(std::max(line.size() + 1, kColumn), ' ');
        text += line + row.help + "\n";
    }
    text += "\nExit codes:\n";
    for (const auto& [code, meaning] : kExitCodes) {
        const auto number = std::to_string(code);
        text += std::string(kCodeColumn - number.size(), ' ') + number + "  " + meaning + "\n";
    }
    return text;
}

}  // namespace ardv::daemon
