// SPDX-License-Identifier: Apache-2.0
#include "curl_faults.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>

#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_share_setopt

namespace ardv::test {

namespace {

CurlFaults* gFaults = nullptr;

template <typename Function>
Function* Real(Function* /*own*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsText(CURLoption option) {
    constexpr CURLoption kTexts[] = {CURLOPT_URL,    CURLOPT_USERAGENT,      CURLOPT_COOKIEFILE,
                                     CURLOPT_COOKIE, CURLOPT_COPYPOSTFIELDS, CURLOPT_POSTFIELDS};
    return std::find(std::begin(kTexts), std::end(kTexts), option) != std::end(kTexts);
}

bool IsNumber(CURLoption option) {
    return option < CURLOPTTYPE_OBJECTPOINT;
}

bool IsRefused(CURLoption option) {
    const auto fault = gFaults->refused.find(option);
    return fault != gFaults->refused.end() && --fault->second == 0;
}

void Record(CURLoption option, long number, const void* pointer) {
    const auto* text = IsText(option) ? static_cast<const char*>(pointer) : nullptr;
    gFaults->calls.push_back({option, number, pointer, text ? text : ""});
}

CURLcode SetNumber(CURL* handle, CURLoption option, long number) {
    const auto real = Real(&curl_easy_setopt, "curl_easy_setopt");
    if (gFaults) {
        Record(option, number, nullptr);
        if (IsRefused(option)) {
            return CURLE_UNKNOWN_OPTION;
        }
        if (option == CURLOPT_TIMEOUT && gFaults->timeoutMilliseconds) {
            return real(handle, CURLOPT_TIMEOUT_MS, *gFaults->timeoutMilliseconds);
        }
    }
    return real(handle, option, number);
}

CURLcode SetPointer(CURL* handle, CURLoption option, void* pointer) {
    if (gFaults) {
        Record(option, 0, pointer);
        if (IsRefused(option)) {
            return CURLE_UNKNOWN_OPTION;
        }
    }
    return Real(&curl_easy_setopt, "curl_easy_setopt")(handle, option, pointer);
}

void NoteMade(CURLSH* share) {
    const auto start = [](const std::string& event) { return event.starts_with("made "); };
    const auto made = std::count_if(gFaults->shareEvents.begin(), gFaults->shareEvents.end(), start);
    gFaults->liveShares[share] = static_cast<int>(made) + 1;
    gFaults->shareEvents.push_back("made " + std::to_string(made + 1));
}

void NoteReleased(CURLSH* share) {
    gFaults->shareEvents.push_back("released " + std::to_string(gFaults->liveShares[share]));
    gFaults->liveShares.erase(share);
}

}  // namespace

CurlFaults::CurlFaults() {
    gFaults = this;
}

CurlFaults::~CurlFaults() {
    gFaults = nullptr;
}

const OptionCall* CurlFaults::Last(CURLoption option) const {
    const auto call =
        std::find_if(calls.rbegin(), calls.rend(), [option](const auto& c) { return c.option == option; });
    return call == calls.rend() ? nullptr : &*call;
}

std::size_t CurlFaults::Count(CURLoption option) const {
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(), [option](const auto& c) { return c.option == option; }));
}

}  // namespace ardv::test

using namespace ardv::test;

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    va_list args;
    va_start(args, option);
    const CURLcode code = IsNumber(option) ? SetNumber(handle, option, va_arg(args, long))
                                           : SetPointer(handle, option, va_arg(args, void*));
    va_end(args);
    return code;
}

CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    va_list args;
    va_start(args, info);
    void* target = va_arg(args, void*);
    va_end(args);
    if (gFaults) {
        ++gFaults->infoCalls[info];
        if (const auto fault = gFaults->failingInfo.find(info); fault != gFaults->failingInfo.end()) {
            return fault->second;
        }
        if (info == CURLINFO_RESPONSE_CODE && gFaults->status) {
            *static_cast<long*>(target) = *gFaults->status;
            return CURLE_OK;
        }
    }
    return Real(&curl_easy_getinfo, "curl_easy_getinfo")(handle, info, target);
}

CURL* curl_easy_init() {
    if (gFaults) {
        ++gFaults->handlesMade;
        if (gFaults->noHandle) {
            return nullptr;
        }
    }
    return Real(&curl_easy_init, "curl_easy_init")();
}

CURL* curl_easy_duphandle(CURL* handle) {
    return gFaults && gFaults->noDuplicate ? nullptr : Real(&curl_easy_duphandle, "curl_easy_duphandle")(handle);
}

char* curl_easy_escape(CURL* handle, const char* text, int length) {
    return gFaults && gFaults->noEscape ? nullptr : Real(&curl_easy_escape, "curl_easy_escape")(handle, text, length);
}

CURLSH* curl_share_init() {
    if (gFaults && gFaults->noShare) {
        return nullptr;
    }
    CURLSH* share = Real(&curl_share_init, "curl_share_init")();
    if (gFaults) {
        NoteMade(share);
    }
    return share;
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    va_list args;
    va_start(args, option);
    const int data = va_arg(args, int);
    va_end(args);
    if (gFaults) {
        gFaults->sharedData.push_back(static_cast<curl_lock_data>(data));
        if (gFaults->refusedShareData == static_cast<curl_lock_data>(data)) {
            return CURLSHE_NOMEM;
        }
    }
    return Real(&curl_share_setopt, "curl_share_setopt")(share, option, data);
}

CURLSHcode curl_share_cleanup(CURLSH* share) {
    const CURLSHcode code = Real(&curl_share_cleanup, "curl_share_cleanup")(share);
    if (gFaults && code == CURLSHE_OK) {
        NoteReleased(share);
    }
    return code;
}

CURLMcode curl_multi_add_handle(CURLM* multi, CURL* handle) {
    return gFaults && gFaults->addResult ? *gFaults->addResult
                                         : Real(&curl_multi_add_handle, "curl_multi_add_handle")(multi, handle);
}

CURLMcode curl_multi_remove_handle(CURLM* multi, CURL* handle) {
    return gFaults && gFaults->removeResult
               ? *gFaults->removeResult
               : Real(&curl_multi_remove_handle, "curl_multi_remove_handle")(multi, handle);
}

CURLMcode curl_multi_socket_action(CURLM* multi, curl_socket_t socket, int events, int* running) {
    const CURLMcode code = Real(&curl_multi_socket_action, "curl_multi_socket_action")(multi, socket, events, running);
    return gFaults && gFaults->actionResult ? *gFaults->actionResult : code;
}
