// SPDX-License-Identifier: Apache-2.0
#include "policy.h"

#include <algorithm>
#include <iterator>

#include <relay/request/request_alias.h>

namespace ardv::daemon {

using namespace ARDV::Relay;

namespace {

template <typename Key, typename Value>
struct Row {
    Key key;
    Value value;
};

// Numbers whose result says less than they do.
constexpr Row<RELAYSERVER_ERR, Action> kServerErrors[] = {
    {RELAYSERVER_ERR_SESSION_TIMEOUT, Action::kAgain},
};

constexpr Row<RELAYD_RET, Action> kResults[] = {
    {RELAYD_RET_SUCCESS, Action::kGoOn},
    {RELAYD_RET_ERR_CONFIG, Action::kBackOffSlowly},
    {RELAYD_RET_ERR_NETWORK, Action::kBackOff},
    {RELAYD_RET_ERR_RESOLV, Action::kResolveAnew},
    {RELAYD_RET_ERR_AUTH, Action::kWaitForUser},
    {RELAYD_RET_ERR_NOT_SUPPORT, Action::kBackOffSlowly},
    {RELAYD_RET_ERR_SERVER_BUSY, Action::kBackOff},
    {RELAYD_RET_ERR_SERVER_LIMIT, Action::kBackOffSlowly},
    {RELAYD_RET_ERR_SERVER_CHANGED, Action::kMove},
    {RELAYD_RET_ERR_SERVER_IP_CHANGED, Action::kAgainWithFreshNetwork},
    {RELAYD_RET_ERR_API_KEY_EXPIRED, Action::kWaitForUser},
    {RELAYD_RET_ERR_VIOLATION, Action::kWaitForUser},
};

// Outcomes that ask for more than their retry class: the alias is not the server's any more, and has to be mapped.
constexpr Row<ALIAS_RET, Action> kAliasResults[] = {
    {ALIAS_RET_SUCCESS, Action::kGoOn},
    {ALIAS_RET_NOT_FOUND, Action::kAgain},
};

constexpr Row<ALIAS_RETRY_TYPE, Action> kRetryClasses[] = {
    {ALIAS_RETRY_TYPE_NONE, Action::kWaitForUser},
    {ALIAS_RETRY_TYPE_RESOLVE, Action::kResolveAnew},
    {ALIAS_RETRY_TYPE_LATER, Action::kBackOff},
    {ALIAS_RETRY_TYPE_USER, Action::kWaitForUser},
};

constexpr Row<ALIAS_RET, RELAYD_RET> kAliasMeanings[] = {
    {ALIAS_RET_SUCCESS, RELAYD_RET_SUCCESS},         {ALIAS_RET_NETWORK, RELAYD_RET_ERR_NETWORK},
    {ALIAS_RET_DNS, RELAYD_RET_ERR_RESOLV},          {ALIAS_RET_AUTH, RELAYD_RET_ERR_AUTH},
    {ALIAS_RET_INUSED, RELAYD_RET_ERR_AUTH},         {ALIAS_RET_SELF_INUSED, RELAYD_RET_ERR_AUTH},
    {ALIAS_RET_911, RELAYD_RET_ERR_SERVER_BUSY},     {ALIAS_RET_SERVER_BUSY, RELAYD_RET_ERR_SERVER_BUSY},
    {ALIAS_RET_SYSTEM, RELAYD_RET_ERR_SERVER_BUSY},  {ALIAS_RET_NOT_SET, RELAYD_RET_ERR_CONFIG},
    {ALIAS_RET_VIOLATION, RELAYD_RET_ERR_VIOLATION}, {ALIAS_RET_API_KEY_EXPIRED, RELAYD_RET_ERR_API_KEY_EXPIRED},
};

template <typename Table, typename Key>
const auto* Find(const Table& table, Key key) {
    const auto* row = std::find_if(std::begin(table), std::end(table), [key](const auto& r) { return r.key == key; });
    return row == std::end(table) ? nullptr : row;
}

}  // namespace

Action ActionFor(RELAYSERVER_ERR error, RELAYD_RET result) {
    const auto* row = Find(kServerErrors, error);
    return row ? row->value : ActionFor(result);
}

Action ActionFor(RELAYD_RET result) {
    const auto* row = Find(kResults, result);
    return row ? row->value : Action::kBackOff;
}

Action ActionFor(ALIAS_RET result) {
    if (const auto* row = Find(kAliasResults, result)) {
        return row->value;
    }
    ALIAS_RETRY_TYPE type = ALIAS_RETRY_TYPE_LATER;
    AliasRequest::GetRetryType(result, type);
    const auto* row = Find(kRetryClasses, type);
    return row ? row->value : Action::kBackOff;
}

RELAYD_RET ResultOf(ALIAS_RET result) {
    const auto* row = Find(kAliasMeanings, result);
    return row ? row->value : RELAYD_RET_ERR_UNKNOWN;
}

}  // namespace ardv::daemon
