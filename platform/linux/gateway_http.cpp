// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/gateway_http.h"

#include <arpa/inet.h>

#include <array>
#include <string_view>

namespace ARDV::Platform {

namespace {

/// A description or a mapping list has some ten kilobytes; what is larger isn't meant well.
constexpr std::size_t kMaxBodyBytes = 1048576;

struct ReleaseUrl {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    void operator()(char* text) const { curl_free(text); }
};

using Headers = std::unique_ptr<curl_slist, ReleaseUrl>;

std::string PartOf(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    curl_url_get(url, part, &text, 0);
    const std::unique_ptr<char, ReleaseUrl> owner(text);
    return text == nullptr ? "" : text;
}

std::string AddressText(in_addr address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    return text.data();
}

bool HasUser(CURLU* url) {
    return !PartOf(url, CURLUPART_USER).empty() || !PartOf(url, CURLUPART_PASSWORD).empty();
}

/// Takes bytes of a body into the text; less than it got ends the transfer.
std::size_t Collect(const char* data, std::size_t, std::size_t size, void* target) {
    std::string& body = *static_cast<std::string*>(target);
    if (size > kMaxBodyBytes - body.size()) {
        return 0;
    }
    try {
        body.append(data, size);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return size;
}

int CodeOf(CURLcode result) {
    switch (result) {
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_COULDNT_CONNECT:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
            return ARDV_ERR_NO_ANSWER;
        case CURLE_OUT_OF_MEMORY:
            return ARDV_ERR_NO_MEMORY;
        default:
            return ARDV_ERR_BAD_VALUE;
    }
}

/// Sets options until one is refused.
class Options {
public:
    explicit Options(CURL* handle) : handle_(handle) {}

    template <typename Value>
    Options& Set(CURLoption option, Value value) {
        if (result_ == CURLE_OK) {
            result_ = curl_easy_setopt(handle_, option, value);
        }
        return *this;
    }

    Failure Outcome() const { return result_ == CURLE_OK ? Failure{} : MakeError(ARDV_ERR_NO_MEMORY); }

private:
    CURL* handle_;
    CURLcode result_ = CURLE_OK;
};

}  // namespace

Result<std::string> UrlOnGateway(const std::string& base, const std::string& url, in_addr gateway) {
    const std::unique_ptr<CURLU, ReleaseUrl> parsed(curl_url());
    if (!parsed) {
        return MakeError(ARDV_ERR_NO_MEMORY);
    }
    const bool isUrl = (base.empty() || curl_url_set(parsed.get(), CURLUPART_URL, base.c_str(), 0) == CURLUE_OK) &&
                       curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    if (!isUrl || PartOf(parsed.get(), CURLUPART_SCHEME) != "http" || HasUser(parsed.get()) ||
        PartOf(parsed.get(), CURLUPART_HOST) != AddressText(gateway)) {
        return MakeError(ARDV_ERR_BAD_VALUE);
    }
    return PartOf(parsed.get(), CURLUPART_URL);
}

Failure GatewayHttp::Prepare(const std::string& url, const Deadline& deadline) {
    if (!handle_) {
        handle_.reset(curl_easy_init());
    }
    if (!handle_) {
        return MakeError(ARDV_ERR_NO_MEMORY);
    }
    curl_easy_reset(handle_.get());
    const Deadline end = firstAnswer_ ? deadline.Within(firstAnswer_->Left()) : deadline;
    const long left = end.Left().count();
    if (left == 0) {  // which the library would take for no limit at all
        return MakeError(ARDV_ERR_NO_ANSWER);
    }
    return Options(handle_.get())
        .Set(CURLOPT_URL, url.c_str())
        .Set(CURLOPT_PROTOCOLS_STR, "http")
        .Set(CURLOPT_PROXY, "")
        .Set(CURLOPT_FOLLOWLOCATION, 0L)
        .Set(CURLOPT_NOSIGNAL, 1L)
        .Set(CURLOPT_TIMEOUT_MS, left)
        .Set(CURLOPT_CONNECTTIMEOUT_MS, left)
        .Set(CURLOPT_WRITEFUNCTION, &Collect)
        .Outcome();
}

Result<HttpAnswer> GatewayHttp::Exchange() {
    HttpAnswer answer;
    if (const Failure failure = Options(handle_.get()).Set(CURLOPT_WRITEDATA, &answer.body).Outcome()) {
        return *failure;
    }
    const CURLcode result = curl_easy_perform(handle_.get());
    if (result != CURLE_OK) {
        return MakeError(CodeOf(result));
    }
    firstAnswer_.reset();
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
}

Result<HttpAnswer> GatewayHttp::Get(const std::string& url, const Deadline& deadline) {
    const Failure failure = Prepare(url, deadline);
    return failure ? *failure : Exchange();
}

Result<HttpAnswer> GatewayHttp::Post(const std::string& url, const std::string& action, const std::string& message,
                                     const Deadline& deadline) {
    if (const Failure failure = Prepare(url, deadline)) {
        return *failure;
    }
    Headers headers(curl_slist_append(nullptr, R"(Content-Type: text/xml; charset="utf-8")"));
    const std::string actionHeader = "SOAPAction: \"" + action + "\"";
    if (!headers || curl_slist_append(headers.get(), actionHeader.c_str()) == nullptr) {
        return MakeError(ARDV_ERR_NO_MEMORY);
    }
    const Failure failure = Options(handle_.get())
                                .Set(CURLOPT_HTTPHEADER, headers.get())
                                .Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(message.size()))
                                .Set(CURLOPT_POSTFIELDS, message.c_str())
                                .Outcome();
    return failure ? *failure : Exchange();
}

}  // namespace ARDV::Platform
