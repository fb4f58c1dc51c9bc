// SPDX-License-Identifier: Apache-2.0
#include "server_url.h"

#include <curl/curl.h>

#include <memory>
#include <string_view>

namespace ardv::ctl {

namespace {

using namespace std::string_view_literals;

constexpr auto kAuthority = "://"sv;

struct UrlCleanup {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

}  // namespace

const char* WhatIsWrongWithUrl(const std::string& url) {
    if (!url.starts_with("http://") && !url.starts_with("https://")) {
        return "a server's URL begins with http:// or https://";
    }
    if (url.find_first_of("?#\0"sv) != std::string::npos) {
        return "a server's URL has no query and no fragment";
    }
    const std::unique_ptr<CURLU, UrlCleanup> parser(curl_url());
    const CURLUcode result = curl_url_set(parser.get(), CURLUPART_URL, url.c_str(), CURLU_DISALLOW_USER);
    if (result == CURLUE_USER_NOT_ALLOWED) {
        return "a server's URL has no user name and no password";
    }
    return result == CURLUE_OK ? nullptr : "this is no valid URL";
}

// Up to the last "@": a password may hold anything, blanks and further "@"s included. Rather too much than too little.
std::string WithoutCredentials(std::string text) {
    const auto start = text.find(kAuthority);
    const auto end = text.rfind('@');
    if (start != std::string::npos && end != std::string::npos && end > start + kAuthority.size()) {
        text.replace(start + kAuthority.size(), end - start - kAuthority.size(), "***");
    }
    return text;
}

}  // namespace ardv::ctl
