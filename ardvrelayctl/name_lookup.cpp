// SPDX-License-Identifier: Apache-2.0
#include "name_lookup.h"

#include <netdb.h>

#include <future>
#include <system_error>
#include <thread>

namespace ardv::ctl {

namespace {

using Clock = std::chrono::steady_clock;

/** Empty for success. */
std::string Resolve(const std::string& host) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* addresses = nullptr;
    const int failure = getaddrinfo(host.c_str(), nullptr, &hints, &addresses);
    if (failure != 0) {
        return gai_strerror(failure);
    }
    freeaddrinfo(addresses);
    return "";
}

// The resolver cannot be interrupted: who has no more patience leaves it behind.
std::future<std::string> Begin(const std::string& host) {
    std::promise<std::string> answer;
    auto future = answer.get_future();
    std::thread([host, answer = std::move(answer)]() mutable { answer.set_value(Resolve(host)); }).detach();
    return future;
}

LookUp Take(const std::string& host, std::future<std::string>& answer, Clock::time_point deadline) {
    if (answer.wait_until(deadline) != std::future_status::ready) {
        return {host, false, "the name server does not answer"};
    }
    const auto reason = answer.get();
    return {host, reason.empty(), reason};
}

}  // namespace

std::vector<LookUp> LookUpNames(const std::vector<std::string>& hosts, std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    std::vector<std::future<std::string>> answers;
    answers.reserve(hosts.size());
    for (const auto& host : hosts) {
        answers.push_back(Begin(host));
    }
    std::vector<LookUp> results;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
        results.push_back(Take(hosts[i], answers[i], deadline));
    }
    return results;
}

}  // namespace ardv::ctl
