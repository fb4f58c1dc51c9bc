// SPDX-License-Identifier: Apache-2.0
#include "recorded_programs.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "deadline.h"
#include "file_text.h"
#include "support/folder_watch.h"

namespace ardv::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/tmp/record";
constexpr const char* kCalls = "/tmp/record/calls";
constexpr const char* kInherited = "/tmp/record/inherited";
constexpr std::array<const char*, 4> kPlaces = {"/usr/sbin/openvpn", "/sbin/iptables", "/sbin/ip6tables",
                                                "/usr/ardv/etc.defaults/ardvvpnclient/scripts/ovpnc.sh"};

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string ExitFile(const std::string& name) {
    return std::string(kFolder) + "/" + name + ".exit";
}

}  // namespace

RecordedPrograms::RecordedPrograms() {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
    for (const char* place : kPlaces) {
        fs::create_directories(fs::path(place).parent_path());
        fs::remove(place);
        fs::copy_file(ARDV_RECORDING_PROGRAM, place);
    }
}

std::vector<std::string> RecordedPrograms::Calls() const {
    std::vector<std::string> calls = LinesOf(ReadText(kCalls));
    for (std::string& call : calls) {
        call.erase(call.find_last_not_of('\0') + 1);
        std::replace(call.begin(), call.end(), '\0', '|');
    }
    return calls;
}

std::vector<std::string> RecordedPrograms::CallsOf(const std::string& name) const {
    std::vector<std::string> found;
    const auto calls = Calls();
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found), [&name](const std::string& call) {
        return fs::path(call.substr(0, call.find('|'))).filename() == name;
    });
    return found;
}

void RecordedPrograms::Forget() {
    fs::remove(kCalls);
    fs::remove(kInherited);
}

void RecordedPrograms::EndWith(const std::string& name, int code) {
    WriteText(ExitFile(name), std::to_string(code));
}

void RecordedPrograms::LetOpenVpnStay() {
    fs::remove(ExitFile("openvpn"));
}

std::vector<std::string> RecordedPrograms::AwaitOpenVpn() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    const FolderWatch watch(kFolder);
    while (!ReadText(kInherited).ends_with("end\n") && MillisecondsUntil(end) > 0) {
        watch.AwaitChange(std::chrono::milliseconds(MillisecondsUntil(end)));
    }
    auto lines = LinesOf(ReadText(kInherited));
    if (!lines.empty()) {
        lines.pop_back();
    }
    return lines;
}

}  // namespace ardv::test
