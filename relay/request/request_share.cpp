// SPDX-License-Identifier: Apache-2.0
#include <relay/request/request.h>

#include <netinet/in.h>
#include <resolv.h>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <relay/daemon/log.h>

RELAY_LOG_SOURCE("request.cpp");

namespace ARDV::Relay {

constinit CURLSH* Request::_share = nullptr;
std::string Request::_strCookie;

namespace {

constexpr std::size_t kMaxHostLength = 127;

struct ListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

struct ShareFree {
    void operator()(CURLSH* share) const { curl_share_cleanup(share); }
};

struct SharedData {
    curl_lock_data data;
    const char* name;
};

constexpr SharedData kSharedData[] = {
    {CURL_LOCK_DATA_COOKIE, "CURL_LOCK_DATA_COOKIE"},
    {CURL_LOCK_DATA_DNS, "CURL_LOCK_DATA_DNS"},
};

// Share handles that requests still held when they were dropped. libcurl frees none while it is in use, and a daemon
// that drops one after each resolver failure must not collect them for years. Never destroyed: requests may live until
// the process ends.
std::vector<CURLSH*>& DroppedShares() {
    static auto& shares = *new std::vector<CURLSH*>();
    return shares;
}

void ReleaseDroppedShares() {
    std::erase_if(DroppedShares(), [](CURLSH* share) { return curl_share_cleanup(share) == CURLSHE_OK; });
}

void Drop(CURLSH* share) {
    const CURLSHcode code = share ? curl_share_cleanup(share) : CURLSHE_OK;
    if (code != CURLSHE_OK) {
        RELAY_LOG(LOG_NOTICE, "curl_share_cleanup failed. [%d:%s]", code, curl_share_strerror(code));
        DroppedShares().push_back(share);
    }
}

CURLSH* MakeShare() {
    std::unique_ptr<CURLSH, ShareFree> share(curl_share_init());
    if (!share) {
        RELAY_LOG(LOG_ERR, "curl_share_init failed");
        return nullptr;
    }
    for (const auto& [data, name] : kSharedData) {
        if (curl_share_setopt(share.get(), CURLSHOPT_SHARE, data) != CURLSHE_OK) {
            RELAY_LOG(LOG_ERR, "set %s failed", name);
            return nullptr;
        }
    }
    return share.release();
}

// The text behind "//", up to the port or, where no ":" follows anywhere, up to the path.
std::optional<std::string_view> HostOf(std::string_view url) {
    const auto slash = url.find('/');
    if (slash == std::string_view::npos || slash + 2 > url.size()) {
        return std::nullopt;
    }
    const auto host = url.substr(slash + 2, kMaxHostLength);
    const auto colon = host.find(':');
    return host.substr(0, colon != std::string_view::npos ? colon : host.find('/'));
}

}  // namespace

std::string& Request::GetCookie() {
    return _strCookie;
}

bool Request::SetCookie(const std::string& cookie) {
    _strCookie = cookie;
    return true;
}

bool Request::GetCookies(std::list<std::string>& out) {
    if (cookies_.empty()) {
        return false;
    }
    out = cookies_;
    return true;
}

bool Request::SaveCookies() {
    curl_slist* lines = nullptr;
    const CURLcode code = curl_easy_getinfo(handle_.get(), CURLINFO_COOKIELIST, &lines);
    const std::unique_ptr<curl_slist, ListFree> owner(lines);
    if (code != CURLE_OK) {
        RELAY_LOG(LOG_ERR, "curl_easy_getinfo failed: %d", code);
        return false;
    }
    const auto host = HostOf(url_);
    for (const auto* line = host ? lines : nullptr; line; line = line->next) {
        if (std::string_view(line->data).substr(0, host->size()) == *host) {
            cookies_.emplace_back(line->data);
        }
    }
    return true;
}

CURLSH* Request::GetCurlShare(bool reset) {
    if (_share && !reset) {
        return _share;
    }
    Drop(_share);
    ReleaseDroppedShares();
    _share = MakeShare();
    return _share;
}

bool Request::CleanDnsCache() {
    res_init();
    ReleaseDroppedShares();
    Drop(_share);
    _share = nullptr;
    return true;
}

}  // namespace ARDV::Relay
