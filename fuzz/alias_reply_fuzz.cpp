// SPDX-License-Identifier: Apache-2.0
// Any bytes, with any status and transfer result, as the alias server's answer, and as the form that names the alias.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <relay/daemon/daemon.h>
#include <relay/request/request_alias.h>
#include <relay/utils/json_text.h>

namespace {

using namespace ARDV::Relay;

constexpr auto kUntouched = static_cast<ALIAS_RET>(-7);
constexpr const char* kBodyBefore = "as it was";
constexpr int kStatuses[] = {200, 404, 500, 504, 505, 302, 0, -1, 999};

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool IsBlank(char byte) {
    return static_cast<signed char>(byte) < 33;
}

bool IsKnown(ALIAS_RET ret) {
    return std::any_of(std::begin(gRetMapper), std::end(gRetMapper) - 1, [ret](const auto& r) { return r.ret == ret; });
}

void TestTrim(const std::string& text) {
    std::string trimmed = text;
    Require(&AliasRequest::Trim(trimmed) == &trimmed);
    const std::string considered = text.c_str();
    const auto start = considered.find(trimmed);
    Require(start != std::string::npos);
    if (trimmed.empty()) {
        Require(std::all_of(considered.begin(), considered.end(), IsBlank));
        return;
    }
    Require(!IsBlank(trimmed.front()) && !IsBlank(trimmed.back()));
    const auto blanks = std::find_if_not(considered.begin(), considered.end(), IsBlank);
    Require(considered.substr(static_cast<std::size_t>(blanks - considered.begin()), trimmed.size()) == trimmed);
    std::string again = trimmed;
    Require(AliasRequest::Trim(again) == trimmed);
}

// A known word is the text's beginning, and nothing but a ":" may follow it.
void TestWord(const std::string& text) {
    ALIAS_RET ret = kUntouched;
    const bool isKnown = AliasRequest::ParseServerResponse(text, ret);
    const std::string word = text.substr(0, text.find(':'));
    const auto row = std::find_if(std::begin(gRetMapper), std::end(gRetMapper),
                                  [&](const auto& r) { return !r.reply.empty() && r.reply == word; });
    Require(isKnown == (row != std::end(gRetMapper)));
    Require(ret == (isKnown ? row->ret : kUntouched));
}

void TestOutcome(CURLcode code, int status, const std::string& text) {
    HTTPResponse response{status, text, code};
    ALIAS_RET ret = kUntouched;
    std::string body = kBodyBefore;
    int read = -7;
    const bool done = AliasRequest::ParseCURLHttp(response, ret, body, read);
    Require(done == (code == CURLE_OK && status == 200));
    Require(done ? ret == kUntouched : IsKnown(ret));
    Require(read == (code == CURLE_OK ? status : -7));
    std::string trimmed = text;
    Require(body == (done ? AliasRequest::Trim(trimmed) : kBodyBefore));
}

void TestJson(const std::string& text) {
    Json::Value value = kBodyBefore;
    if (JsonText::Parse(text, value)) {
        Require(!JsonText::Compact(value).empty());
        (void)ParseServerError(value);
    } else {
        Require(value == kBodyBefore);
    }
}

void TestForm(const std::string& text) {
    const auto request = std::make_shared<Request>("http://127.0.0.1/", "", true);
    request->SetData(text, true);
    std::string alias = kBodyBefore;
    const bool isNamed = text.compare(0, 6, "alias=") == 0 || text.find("&alias=") != std::string::npos;
    Require(AliasRequest::GetAliasName(request, alias) == isNamed);
    Require(isNamed ? alias.find_first_of("&=") == std::string::npos : alias == kBodyBefore);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Daemon::_logLevel = -1;
    if (size < 2) {
        return 0;
    }
    const std::string text(data + 2, data + size);
    TestTrim(text);
    TestWord(text);
    TestOutcome(static_cast<CURLcode>(data[0] % CURL_LAST), kStatuses[data[1] % std::size(kStatuses)], text);
    TestOutcome(CURLE_OK, 200, text);
    TestJson(text);
    TestForm(text);
    return 0;
}
