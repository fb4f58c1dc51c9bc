// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include <curl/curl.h>
#include <json/value.h>

#include <relay/common/export.h>
#include <relay/common/vocabulary.h>

namespace ARDV::Relay {

/** Releases a libcurl easy handle, also one that sits in a multi handle. */
struct ARDVRELAYD_API CurlCleanup {
    void operator()(CURL* handle) const;
};

/**
 * One HTTP(S) exchange: a URL, a body, and what came back. It is run by `Send`, which blocks, or as a job of a transfer
 * engine:
 *
 * 1. `JobAdd(multi)`, with the multi handle's socket and timer callbacks set before (libcurl loses the sockets of transfers
 *    that begin without them);
 * 2. the engine drives the multi handle by curl_multi_socket_action and reads curl_multi_info_read;
 * 3. for each CURLMSG_DONE it finds the request that equals the message's easy handle and calls `JobDone(result)`;
 * 4. it reads the outcome (`GetError`, `GetResponse`) and calls `JobRemove(multi)`.
 *
 * All requests of a process share their cookies and resolved names through one libcurl share handle, which has no
 * locks: requests belong to one thread. Failures are logged under the source name "request.cpp" and become results;
 * no answer and no input makes it throw.
 *
 * A transfer has 20 s to connect and 60 s in all, closes its connection, follows no redirect, and verifies the server's
 * certificate and name for URLs that begin with "https://". Trust is libcurl's default CA bundle file and not its CA
 * directory, beside which libcurl would parse the whole bundle anew for each connection. Where the bundle cannot be read,
 * libcurl refuses to connect. A request that is used again, and the engine of its jobs, keep the parsed bundle for up to
 * 24 hours (libcurl's CURLOPT_CA_CACHE_TIMEOUT): until then an authority that was taken out of the file is still trusted.
 */
class ARDVRELAYD_API Request {
public:
    /** The largest body that is received, in bytes. A larger one fails the transfer with CURLE_WRITE_ERROR. */
    static constexpr std::size_t kMaxResponseSize = 16U << 20U;

    /**
     * Sets the request up by `Set`; check `IsValid`.
     *
     * @param url null: nothing is set up, and the request is not valid until `Set` is called
     * @param data null counts as the empty text
     */
    Request(const char* url, const char* data, bool post);
    Request(const std::string& url, const Json::Value& data, bool post);

    /** Copies URL, data and set-up, with a duplicate of the libcurl handle (which is not attached to the share). */
    Request(const Request& other);

    /**
     * As the copy constructor; keeps its own cookies. A handle that this request had is released: libcurl would go on
     * to write into this object through it. If it was a job it is thereby taken out of its engine.
     */
    Request& operator=(const Request& other);

    ~Request();

    /**
     * Full set-up, also of a request that was used before.
     *
     * @param url where to; empty fails
     * @param data POST: the form or JSON text, sent up to its first NUL byte. GET: the query string, already escaped,
     * which is put behind the URL and a "?" (also when it is empty).
     * @param post whether to POST. A POST without data goes out as a GET of the bare URL.
     * @return false, with the request not valid, on any failure; but what `SetData` returns is not looked at
     */
    bool Set(const std::string& url, const std::string& data, bool post);

    /** As above, with the value's compact text (one line, a line feed at its end) as data. */
    bool Set(const std::string& url, const Json::Value& data, bool post);

    /** Replaces method and data of a valid request, as in `Set`. False if the request is not valid or libcurl refuses.
     */
    bool SetData(const std::string& data, bool post);
    bool SetData(const Json::Value& data, bool post);

    /** Resolves the host to IPv6 addresses only. False, with a message of level 3, if libcurl refuses. */
    bool SetResolveIPv6();

    /**
     * For a long-lived connection: TCP keep-alive probes after `seconds` of silence and every `seconds`, and no limit
     * on the whole transfer's time.
     *
     * @return true, also where libcurl refuses an option (logged at level 3; the options after it are then not set)
     */
    bool SetTcpKeepAlive(int seconds);

    /** Time to connect, in seconds, in place of 20. False, with a message of level 3, if libcurl refuses. */
    bool SetConnectionTimeout(long seconds);

    /** Whether the request is set up: it has a handle and a URL. */
    bool IsValid() const;

    /** Forgets the last response, status and completion. False, with the request not valid, if libcurl refuses. */
    bool InitSend();

    /**
     * Runs the transfer and waits for it.
     *
     * @return whether the status is 200; false also for a request that is not valid or is a job of an engine, and for a
     * failed transfer (level 3; see `GetCurlResult`)
     */
    bool Send();

    /**
     * Adds the request to a transfer engine and starts it.
     *
     * @param multi the engine's CURLM handle
     * @return false if the request is not valid, `multi` is null, or libcurl refuses (level 3); if only the start
     * fails, the handle stays added
     */
    bool JobAdd(void* multi);

    /** Records that the transfer finished with `code`, and gathers its status and cookies. Returns true. */
    bool JobDone(CURLcode code);

    /**
     * Takes the request out of the engine and releases its handle; response, status and result stay readable.
     *
     * @return false, with the handle kept, if `multi` is null or libcurl refuses (level 3)
     */
    bool JobRemove(void* multi);

    /** HTTP status of the finished transfer; -1 while there is none. Gathers the transfer's cookies when it first
     * learns the status. */
    int GetHttpStatus();

    /** libcurl's result of the last transfer. */
    CURLcode GetCurlResult() const;

    /** The body that was received, if the transfer finished with status 200; else empty. */
    std::string GetResponse() const;

    /**
     * The body parsed as JSON.
     *
     * @return false, with `out` as it was, unless the transfer finished with status 200 and the body is JSON (a body
     * that is none is logged at level 7)
     */
    bool GetResponse(Json::Value& out) const;

    const std::string& GetUrl() const;
    const std::string& GetData() const;

    /**
     * The data parsed as JSON. False, with `out` as it was, if it is none; the message of level 7 shows it with the secret
     * fields of a form as "***".
     */
    bool GetData(Json::Value& out) const;

    /**
     * The outcome as a result of the daemon.
     *
     * | libcurl | HTTP status | result |
     * |---|---|---|
     * | OK | 200 | `RELAYD_RET_SUCCESS` |
     * | OK | 400 to 499 | `RELAYD_RET_ERR_NETWORK` |
     * | OK | 500 to 599 | `RELAYD_RET_ERR_SERVER_BUSY` |
     * | OK | other | `RELAYD_RET_ERR_UNKNOWN` |
     * | host not resolved | | `RELAYD_RET_ERR_RESOLV` |
     * | no connection, TLS, send, receive, time-out, again | | `RELAYD_RET_ERR_NETWORK` |
     * | other | | 2, which has no name |
     *
     * A status other than 200 is logged at level 6; a libcurl failure at level 3, once in a run of equal ones in the
     * process.
     */
    RELAYD_RET GetError() const;

    /** Sets "url", "data", "mode" ("async" or "sync") and, once done, "http_status" and "response" in `out`. Returns
     * true. */
    bool Write(Json::Value& out) const;

    /** Whether `handle` is this request's libcurl easy handle. */
    bool operator==(const void* handle) const;
    bool operator!=(const void* handle) const;

    /** Text that every later `Set` of the process sends as cookies ("name=value; name=value"); empty for none. */
    static std::string& GetCookie();
    static bool SetCookie(const std::string& cookie);

    /**
     * Copies the cookie lines gathered so far, in the form of a Netscape cookie file (domain, tab, ...).
     *
     * @return false, with `out` as it was, if there are none
     */
    bool GetCookies(std::list<std::string>& out);

    /**
     * Appends those of libcurl's cookie lines that begin with the URL's host (its first 127 bytes). Lines of a whole
     * domain (a dot first) and of HttpOnly cookies therefore do not count. False, with a message of level 3, if libcurl
     * has no list.
     */
    bool SaveCookies();

    /**
     * The process's share handle, made at need.
     *
     * @param reset release the present one first, and make a new one
     * @return null, with a message of level 3, if it cannot be made
     */
    static CURLSH* GetCurlShare(bool reset);

    /**
     * Has the system's resolver read its configuration again and drops the share handle, so that names are resolved
     * anew and cookies start afresh. Requests that are still attached keep the old one, which is then reported as in
     * use (level 5) and released once they are gone.
     *
     * @return true
     */
    static bool CleanDnsCache();

private:
    bool SetUp(const std::string& data, bool post);
    void DuplicateHandle(const Request& other);

    static CURLSH* _share;
    static std::string _strCookie;

    std::list<std::string> cookies_;
    std::string url_;
    std::string data_;
    std::string response_;
    std::unique_ptr<CURL, CurlCleanup> handle_;
    CURLcode curlResult_ = CURLE_OK;
    char errorBuffer_[CURL_ERROR_SIZE] = {};
    bool async_ = false;
    bool done_ = false;
    int httpStatus_ = 0;
};

}  // namespace ARDV::Relay
