// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The words that the daemon, its tools and its peers share: states, results, the control servers' error numbers and the
 * results of the alias service, each with its text. The numbers travel between processes and machines; they are fixed.
 */
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

#include <relay/common/export.h>

namespace ARDV::Relay {

/** Connection state of the daemon. */
enum RELAYD_STATE : std::int32_t {
    RELAYD_STATE_NONE = 0,             ///< not known, or an error
    RELAYD_STATE_NOT_RUNNING = 1,      ///< no daemon runs
    RELAYD_STATE_STARTING = 2,         ///< started, not yet logged in
    RELAYD_STATE_LOGIN = 3,            ///< logged in at a control server
    RELAYD_STATE_DIRECT_CONNECT = 4,   ///< reachable without a relay
    RELAYD_STATE_CONNECTED = 5,        ///< connected
    RELAYD_STATE_CONNECTED_RELAY = 6,  ///< connected through a relay; shares the text of state 5
    RELAYD_STATE_LOGOUT = 7,           ///< logged out
    RELAYD_STATE_STOPPED = 8           ///< stopped
};

/** Result of a daemon operation. The gaps belong to the numbering that the daemon and its peers share. */
enum RELAYD_RET : std::int32_t {
    RELAYD_RET_SUCCESS = 0,
    RELAYD_RET_ERR_CONFIG = 3,
    RELAYD_RET_ERR_REGISTER = 5,
    RELAYD_RET_ERR_NETWORK = 6,
    RELAYD_RET_ERR_RESOLV = 7,
    RELAYD_RET_ERR_AUTH = 8,
    RELAYD_RET_ERR_NOT_SUPPORT = 9,
    RELAYD_RET_ERR_SERVER_BUSY = 10,
    RELAYD_RET_ERR_LOCK = 11,
    RELAYD_RET_ERR_SERVER_LIMIT = 12,
    RELAYD_RET_ERR_SERVER_CHANGED = 13,
    RELAYD_RET_ERR_SERVER_IP_CHANGED = 14,
    RELAYD_RET_ERR_API_KEY_EXPIRED = 15,
    RELAYD_RET_ERR_VIOLATION = 30,
    RELAYD_RET_ERR_UNKNOWN = 255
};

/** Error number that a control server puts into its answer as "errno". */
enum RELAYSERVER_ERR : std::int32_t {
    RELAYSERVER_ERR_SUCCESS = 0,
    RELAYSERVER_ERR_UNKNOWN = 1,
    RELAYSERVER_ERR_AUTH = 2,
    RELAYSERVER_ERR_NO_SUCH_API = 3,
    RELAYSERVER_ERR_NO_SUCH_SERV = 4,
    RELAYSERVER_ERR_NOT_SUPPORTED_VERSION = 5,
    RELAYSERVER_ERR_SESSION_TIMEOUT = 6,
    RELAYSERVER_ERR_HAS_TUNNEL = 7,
    RELAYSERVER_ERR_TL_FAIL = 8,
    RELAYSERVER_ERR_INPUT = 9,
    RELAYSERVER_ERR_DDNS_OCCUPIED = 10,
    RELAYSERVER_ERR_SERVER_LIMIT = 11,
    RELAYSERVER_ERR_SERVER_CHANGED = 13,
    RELAYSERVER_ERR_IP_CHANGED = 14,
    RELAYSERVER_ERR_API_KEY_EXPIRED = 15,
    RELAYSERVER_ERR_VIOLATION = 30
};

/** Result of an alias operation; status word, reply word and retry class of each stand in `gRetMapper`. */
enum ALIAS_RET : std::int32_t {
    ALIAS_RET_SUCCESS = 1,
    ALIAS_RET_NOT_FOUND = 2,         ///< the server knows no such alias
    ALIAS_RET_INUSED = 3,            ///< another device holds the alias
    ALIAS_RET_SYSTEM = 4,            ///< the server failed
    ALIAS_RET_BAD_PARAM = 5,         ///< the server did not understand the request
    ALIAS_RET_NETWORK = 6,           ///< no connection, TLS failure, time-out, or HTTP 404
    ALIAS_RET_DNS = 7,               ///< the server's name cannot be resolved
    ALIAS_RET_AUTH = 8,              ///< identity refused
    ALIAS_RET_911 = 9,               ///< the server is out of service
    ALIAS_RET_SERVER_BUSY = 10,      ///< HTTP 500 to 504
    ALIAS_RET_BAD_IP = 11,           ///< address refused
    ALIAS_RET_SELF_INUSED = 12,      ///< another device of the same account holds the alias
    ALIAS_RET_NOT_SET = 13,          ///< no alias is set; never produced by a request
    ALIAS_RET_API_KEY_EXPIRED = 14,  ///< the device's API key is no longer accepted
    ALIAS_RET_VIOLATION = 30,        ///< the alias breaks the service's rules
    ALIAS_RET_UNKNOWN = 255          ///< anything else
};

/** What a result of the alias service asks of its caller. */
enum ALIAS_RETRY_TYPE : std::int32_t {
    ALIAS_RETRY_TYPE_NONE = 0,     ///< nothing to do: no alias is set
    ALIAS_RETRY_TYPE_RESOLVE = 1,  ///< the server's name did not resolve
    ALIAS_RETRY_TYPE_LATER = 2,    ///< may succeed by itself at a later time
    ALIAS_RETRY_TYPE_USER = 3      ///< stays as it is until somebody changes something
};

/** One row of `gRetMapper`. */
struct AliasRetMap {
    ALIAS_RET ret;               ///< result
    ALIAS_RETRY_TYPE retryType;  ///< its retry class
    std::string status;          ///< its word in the alias status; empty marks the end of the table
    std::string reply;           ///< the alias server's word for it; empty where the server has none
};

/**
 * The alias results. Every look-up takes the first match and ends at the first row with an empty `status`, which is the
 * last one. Filled before any function of the library can run and never changed, so any thread may read it.
 */
extern ARDVRELAYD_API const AliasRetMap gRetMapper[17];

/** Text of a state, as the status file has it: "error" for 0 and for every number without a state of its own. */
ARDVRELAYD_API std::string GetStateStr(RELAYD_STATE state);

/** Text of a result: "err_unknown" for every number without a text of its own. */
ARDVRELAYD_API std::string GetErrorStr(RELAYD_RET ret);

/** Name of a server error, e.g. "AUTH"; "(unknown errno: N)" for a number without a name and for 30. */
ARDVRELAYD_API std::string GetServerErrorStr(RELAYSERVER_ERR err);

/**
 * The daemon's result for a server error. Deliberately lossy: what asks the same of the daemon becomes one result.
 * Numbers above 30 and negative ones give `RELAYD_RET_ERR_NOT_SUPPORT`.
 */
ARDVRELAYD_API RELAYD_RET RespErrMap(RELAYSERVER_ERR err);

/**
 * Reads the error number of a control server's answer.
 *
 * @param answer any JSON value: an object with "errno", or an array whose first element is such an object.
 * @return "errno" as it stands, also where it names no known error; `RELAYSERVER_ERR_UNKNOWN` where there is none or
 * where it is not written as an integer of 32 bits (a real number with no fraction, such as 5.0, is none).
 */
ARDVRELAYD_API RELAYSERVER_ERR ParseServerError(const Json::Value& answer);

}  // namespace ARDV::Relay
