// SPDX-License-Identifier: Apache-2.0
#include "recent_errors.h"

#include "json_member.h"

namespace ardv::daemon {

namespace {

constexpr std::size_t kKept = 16;

}  // namespace

void RecentErrors::Add(const std::string& what, const std::string& result) {
    const auto now = std::time(nullptr);
    if (!entries_.empty() && entries_.back().what == what && entries_.back().result == result) {
        entries_.back().time = now;
        ++entries_.back().times;
        return;
    }
    if (entries_.size() == kKept) {
        entries_.pop_front();
    }
    entries_.push_back({now, what, result, 1});
}

Json::Value RecentErrors::Describe() const {
    Json::Value list(Json::arrayValue);
    for (const auto& [time, what, result, times] : entries_) {
        Json::Value row;
        row["time"] = Number(time);
        row["what"] = what;
        row["result"] = result;
        row["times"] = times;
        list.append(row);
    }
    return list;
}

}  // namespace ardv::daemon
