// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <curl/curl.h>
#include <json/value.h>

#include <relay/common/export.h>
#include <relay/common/vocabulary.h>
#include <relay/request/request.h>

namespace ARDV::Relay {

/** What is asked of the alias server. 6 and every number above it means the same as 0. */
enum ALIAS_REQUEST_CMD : std::int32_t {
    ALIAS_REQUEST_CMD_NONE = 0,        ///< nothing: identity alone, sent to the base URL
    ALIAS_REQUEST_CMD_MAP = 1,         ///< map the alias to this device
    ALIAS_REQUEST_CMD_DELETE = 2,      ///< delete the alias
    ALIAS_REQUEST_CMD_KEEP_ALIVE = 3,  ///< keep the alias alive
    ALIAS_REQUEST_CMD_QUERY = 4,       ///< ask who holds the alias
    ALIAS_REQUEST_CMD_REFUSED = 5      ///< refused by `AliasRequest::SetRequest`
};

/** What kind of answer came. */
enum ALIAS_RESPONSE_TYPE : std::int32_t {
    ALIAS_RESPONSE_TYPE_JSON = 1,  ///< a JSON object
    ALIAS_RESPONSE_TYPE_TEXT = 2,  ///< status 200 and anything else
    ALIAS_RESPONSE_TYPE_NONE = 3   ///< no usable answer: the transfer failed, or the status was not 200
};

/** Outcome of a transfer, as `AliasRequest::ParseCURLHttp` reads it. */
struct HTTPResponse {
    int status;         ///< HTTP status
    std::string body;   ///< body
    CURLcode curlCode;  ///< libcurl's result
};

/**
 * One request of the alias protocol: a form-encoded POST to a page of the alias server, answered by a JSON object or by
 * a word, which may be followed by ":" and a detail. It is sent by `Send`, or by a transfer engine, which then reads
 * the outcome of the finished request by `GetResponseForDaemon`. For one thread. Messages are logged under the source
 * name "request_alias.cpp".
 */
class ARDVRELAYD_API AliasRequest {
public:
    AliasRequest();
    AliasRequest(const AliasRequest&) = default;
    AliasRequest& operator=(const AliasRequest&) = default;
    ~AliasRequest();

    /**
     * Builds the request. Every command sends "mac", "key" and "model" of the device, and takes further fields from `data`,
     * each where it has the right JSON type:
     *
     * | command | "action" | page | from `data` |
     * |---|---|---|---|
     * | map | "map_alias" | "alias_update.php" | as keep alive, and the fields below |
     * | delete | "delete_alias" | "alias_update.php" | "alias", "serial", "token", "id" |
     * | keep alive | "keep_alive_alias" | "alias_update.php" | "alias", "serial", "token", "id" |
     * | query | "query_alias" | "alias_query.php" | "alias" |
     * | none | not sent | none | nothing |
     *
     * Only map takes "kova_account", "kova_password", "kova_id", "auth_key" and "force" (strings) and
     * "smartdns_support_type" (integer).
     *
     * @param data a JSON object that passes `IsDataValid`; "url" is the server's base URL without a trailing slash
     * @return false, with nothing changed, if `data` does not pass; false, with only the identity set and a message in the
     *         system's log, for `ALIAS_REQUEST_CMD_REFUSED`. True otherwise; a URL that libcurl refuses shows when the
     *         request is sent.
     */
    bool SetRequest(ALIAS_REQUEST_CMD cmd, const Json::Value& data);

    /**
     * Whether `data` is an object with non-empty strings "alias", "serial", "token", "url" and "id". All are required
     * for each command, also where it does not send them. The first fault is logged at level 3.
     */
    bool IsDataValid(const Json::Value& data) const;

    /**
     * Appends the members of an object to `out`, form-encoded (application/x-www-form-urlencoded, a blank as "%20"):
     * KEY=VALUE in the order of the keys, joined by "&". Keys are not escaped. Numbers and booleans appear as their
     * text, null as nothing, arrays and objects as compact JSON. A value that is no object appends nothing.
     */
    static void ToPostRequest(const Json::Value& fields, std::string& out);

    /** Copies URL and fields of the request. False, with nothing set, while no request is set. */
    bool GetRequest(Json::Value& fields, std::string& url) const;

    /** Copies the URL and appends the form-encoded fields to `post`. False, with nothing set, while no request is set.
     */
    bool GetRequest(std::string& url, std::string& post) const;

    /**
     * Sends the request and waits for the answer.
     *
     * @param ret the result
     * @param type what kind of answer came
     * @return false, with nothing set and a message of level 3, if there is no valid request; false, with `ret` 255, if
     * the answer is a text that is no known word. True for every other outcome, failures included.
     */
    bool Send(ALIAS_RET& ret, ALIAS_RESPONSE_TYPE& type);
    bool Send(ALIAS_RET& ret);

    /** The last answer that was a JSON object; null before the first. */
    void GetResponse(Json::Value& out) const;

    /** The last answer with status 200, trimmed. */
    void GetResponse(std::string& out) const;

    /** HTTP status of the last `Send`, also returned; -1 if there was none. */
    int GetResponse(int& status) const;

    /**
     * Reads the outcome of a transfer.
     *
     * | libcurl | HTTP status | `ret` |
     * |---|---|---|
     * | OK | 200 | as it was |
     * | OK | 404 | `ALIAS_RET_NETWORK` |
     * | OK | 500 to 504 | `ALIAS_RET_SERVER_BUSY` |
     * | OK | other (logged at level 3) | `ALIAS_RET_UNKNOWN` |
     * | host not resolved | | `ALIAS_RET_DNS` |
     * | no connection, TLS, send, receive, time-out, again | | `ALIAS_RET_NETWORK` |
     * | other | | `ALIAS_RET_UNKNOWN` |
     *
     * A libcurl failure is logged at level 3, once in a run of equal ones in the process.
     *
     * @param response the outcome; its body is trimmed unless libcurl failed
     * @param body set to the trimmed body with status 200 only
     * @param status set to the HTTP status unless libcurl failed
     * @return whether the status is 200
     */
    static bool ParseCURLHttp(HTTPResponse& response, ALIAS_RET& ret, std::string& body, int& status);

    /** The same for the object's own request. */
    bool ParseCURLHttp(ALIAS_RET& ret, std::string& body, int& status);

    /** The same for a finished request of a transfer engine; a null pointer is `ALIAS_RET_UNKNOWN`. */
    static bool ParseCURLHttp(std::shared_ptr<Request> request, ALIAS_RET& ret, std::string& body);

    /** The result for a server's word, alone or followed by ":" and a detail. False, with nothing set, for an unknown
     * one. */
    static bool ParseServerResponse(const std::string& reply, ALIAS_RET& ret);

    /** The status word of a result. False, with a message of level 3, for an unknown one. */
    static bool ResponseToString(ALIAS_RET ret, std::string& word);

    /** The retry class of a result. False, with a message of level 3, for an unknown one. */
    static bool GetRetryType(ALIAS_RET ret, ALIAS_RETRY_TYPE& type);

    /**
     * Cuts a text at its first NUL byte and removes control characters, blanks and bytes above 127 from both of its
     * ends. Returns `text`.
     */
    static std::string& Trim(std::string& text);

    /**
     * Reads the outcome of a request that a transfer engine finished. JSON answers are not known here.
     *
     * @param ret set to the result, unless the answer is a text that is no known word
     * @param extra set to what follows the first ":" of the answer, if it has one
     * @return false if the transfer failed, the status was not 200, or the word is not known (level 3)
     */
    static bool GetResponseForDaemon(std::shared_ptr<Request> request, ALIAS_RET& ret, std::string& extra);

    /**
     * The alias that a form-encoded request names, still escaped. False, if it names none, with a message of level 3
     * that shows the request's body with the values of secret fields as "***".
     */
    static bool GetAliasName(std::shared_ptr<Request> request, std::string& alias);

    /** Whether a field of the protocol is a secret ("token", "key", "kova_password", "auth_key") that no log or screen
     * may show. */
    static bool IsSecretField(const std::string& key);

private:
    int httpStatus_ = -1;
    std::string url_;
    std::string post_;
    std::string responseText_;
    Json::Value responseJson_;
    Json::Value requestData_;
    Request request_;
};

}  // namespace ARDV::Relay
