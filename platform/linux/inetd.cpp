// SPDX-License-Identifier: Apache-2.0
#include <ardv/system_service.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/error.h"
#include "platform/linux/file.h"
#include "platform/linux/folder_listing.h"

namespace ARDV::Platform {

namespace {

using std::string_view;

constexpr const char* kFile = "/etc/inetd.conf";
constexpr const char* kFolder = "/etc/inetd.d";
constexpr std::size_t kMaxFileBytes = 1024 * 1024;
constexpr std::size_t kMaxFiles = 256;

/// The words of an entry: name, socket type, protocol, wait or nowait, user, server program, its arguments from the
/// zeroth on.
constexpr std::size_t kServer = 5;
constexpr std::size_t kFirstArgument = 6;

/// Programs that run another one, which their zeroth argument names.
constexpr std::array<string_view, 2> kRunners = {"tcpd", "busybox"};

using Words = std::vector<string_view>;

Words SplitWords(string_view line) {
    constexpr string_view kBlanks = " \t\r";
    Words words;
    for (std::size_t start = line.find_first_not_of(kBlanks); start != string_view::npos;
         start = line.find_first_not_of(kBlanks, start)) {
        const std::size_t end = std::min(line.find_first_of(kBlanks, start), line.size());
        words.push_back(line.substr(start, end - start));
        start = end;
    }
    return words;
}

string_view BaseName(string_view path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsServerOf(string_view program, string_view service) {
    const string_view name = BaseName(program);
    return name == service || (name.starts_with("in.") && name.substr(3) == service);
}

bool RunsService(const Words& words, string_view service) {
    if (words.size() <= kServer || words.front().front() == '#') {
        return false;
    }
    const string_view server = BaseName(words[kServer]);
    const bool isRunner = std::find(kRunners.begin(), kRunners.end(), server) != kRunners.end();
    return IsServerOf(isRunner && words.size() > kFirstArgument ? words[kFirstArgument] : server, service);
}

bool TextRunsService(string_view text, string_view service) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (RunsService(SplitWords(text.substr(0, end)), service)) {
            return true;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return false;
}

/// What isn't there, or is a folder or the like, runs nothing.
Result<bool> FileRunsService(const std::string& path, string_view service) {
    const Result<FileContents> contents = ReadFile(path, kMaxFileBytes);
    if (contents) {
        return TextRunsService(contents->text, service);
    }
    const int code = contents.Reason().code;
    const bool isNoFile = code == ARDV_ERR_NOT_FOUND || code == ARDV_ERR_NOT_REGULAR;
    return isNoFile ? Result<bool>(false) : contents.Reason();
}

Result<std::vector<std::string>> ListFiles() {
    std::vector<std::string> paths = {kFile};
    const Result<std::set<std::string>> names = ListFolder(kFolder, "", kMaxFiles);
    if (!names && names.Reason().code != ARDV_ERR_NOT_FOUND) {
        return names.Reason();
    }
    if (names) {
        for (const std::string& name : *names) {
            paths.push_back(std::string(kFolder).append("/").append(name));
        }
    }
    return paths;
}

int IsEnabled(string_view service) {
    const Result<std::vector<std::string>> paths = ListFiles();
    if (!paths) {
        return Fail(paths.Reason());
    }
    for (const std::string& path : *paths) {
        const Result<bool> runs = FileRunsService(path, service);
        if (!runs) {
            return Fail(runs.Reason());
        }
        if (*runs) {
            return 1;
        }
    }
    return 0;
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVInetdServiceIsEnable(const char* service) {
    if (service == nullptr || *service == '\0') {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    return Guarded([service] { return IsEnabled(service); });
}
