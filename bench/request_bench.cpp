// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <memory>
#include <string>

#include <relay/request/request.h>

#include "counted_memory.h"
#include "servers.h"

namespace ardv::bench {
namespace {

using ARDV::Relay::Request;

const std::string kBody =
    "action=keep_alive_alias&alias=attic&id=box-1&key=example&mac=02%3A00%3A5e%3A10%3A00%3A01&model=AV-220";

struct Cleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, Cleanup>;

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* target) {
    static_cast<std::string*>(target)->append(bytes, size * count);
    return size * count;
}

CURLSH* Share() {
    static CURLSH* const share = [] {
        CURLSH* made = curl_share_init();
        curl_share_setopt(made, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
        curl_share_setopt(made, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        return made;
    }();
    return share;
}

/** What Request sets, written by hand. */
void SetOptions(CURL* handle, const std::string& url, std::string& response, char* errorBuffer) {
    curl_easy_setopt(handle, CURLOPT_SHARE, Share());
    curl_easy_setopt(handle, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &response);
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, kBody.c_str());
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "Tethra/7.0.0 (Linux x86_64)");
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, 20L);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
    if (url.rfind("https://", 0) == 0) {
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    }
}

bool Perform(CURL* handle, const std::string& url) {
    std::string response;
    char errorBuffer[CURL_ERROR_SIZE] = {};
    SetOptions(handle, url, response, errorBuffer);
    return curl_easy_perform(handle) == CURLE_OK && response == "good";
}

bool Exchange(Request& request, const std::string& url) {
    return request.Set(url, kBody, true) && request.Send() && request.GetResponse() == "good";
}

template <typename Once>
void Run(benchmark::State& state, Once once) {
    once();  // the first exchange resolves the name
    const auto before = AllocationCount();
    for (auto _ : state) {
        if (!once()) {
            state.SkipWithError("the exchange failed");
            return;
        }
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

void CurlReused(benchmark::State& state, const std::string* url) {
    const Handle handle(curl_easy_init());
    Run(state, [&] {
        curl_easy_reset(handle.get());
        return Perform(handle.get(), *url);
    });
}

void RequestReused(benchmark::State& state, const std::string* url) {
    Request request(nullptr, nullptr, true);
    Run(state, [&] { return Exchange(request, *url); });
}

void CurlNew(benchmark::State& state, const std::string* url) {
    Run(state, [&] { return Perform(Handle(curl_easy_init()).get(), *url); });
}

void RequestNew(benchmark::State& state, const std::string* url) {
    Run(state, [&] {
        Request request(nullptr, nullptr, true);
        return Exchange(request, *url);
    });
}

BENCHMARK_CAPTURE(CurlReused, http, &gHttpUrl)->Name("http reused/floor: libcurl");
BENCHMARK_CAPTURE(RequestReused, http, &gHttpUrl)->Name("http reused/Request");
BENCHMARK_CAPTURE(CurlNew, http, &gHttpUrl)->Name("http new/floor: libcurl");
BENCHMARK_CAPTURE(RequestNew, http, &gHttpUrl)->Name("http new/Request");
BENCHMARK_CAPTURE(CurlReused, https, &gHttpsUrl)->Name("https reused/floor: libcurl as shipped");
BENCHMARK_CAPTURE(RequestReused, https, &gHttpsUrl)->Name("https reused/Request");

}  // namespace
}  // namespace ardv::bench
