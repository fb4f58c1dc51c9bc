// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <curl/curl.h>

#include <relay/request/request.h>

#include "event_loop.h"

namespace ardv::daemon {

class TransferEngine;

/** A transfer under way, for who started it. Destroying it gives the transfer up: nobody is called then. */
class Transfer {
public:
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

private:
    friend class TransferEngine;
    struct Job;

    explicit Transfer(std::shared_ptr<Job> job);

    std::shared_ptr<Job> job_;
};

/** What a report says of a transfer. */
struct TransferInfo {
    std::string purpose;
    std::string url;                            ///< without what a GET sends behind it
    std::chrono::milliseconds age;              ///< since its start
    std::optional<std::chrono::seconds> limit;  ///< after which it is overdue
};

/**
 * Runs requests side by side on the daemon's loop, by libcurl's multi interface. It sleeps while no transfer has anything to
 * do, and watches no descriptor while there is none.
 *
 * libcurl makes its sockets without close-on-exec; see `KeepDescriptorsFromChildren`, which is done as they appear.
 */
class TransferEngine {
public:
    using Done = std::function<void(ARDV::Relay::Request& request)>;

    /** Beyond the 60 s that a request gives itself, with time to spare. */
    static constexpr std::chrono::seconds kOrdinaryLimit{90};

    /** @throws std::runtime_error for want of memory in libcurl */
    explicit TransferEngine(EventLoop& loop);

    /** Gives up what is under way, without calling anybody. Not to be done within `done`. */
    ~TransferEngine();
    TransferEngine(const TransferEngine&) = delete;
    TransferEngine& operator=(const TransferEngine&) = delete;

    /**
     * Starts a request.
     *
     * @param request set up, and in no engine. To be used again, it must be set up again after `done`.
     * @param done called exactly once, from the loop and never within `Start`, with the outcome in the request (`GetError`,
     *     `GetResponse`). The request is in the engine until `done` returns. It may start transfers, and destroy this one's
     *     token. A request that cannot be started comes here, too, with CURLE_FAILED_INIT.
     * @param purpose a few words for the report and the log
     * @param limit after which `IsHealthy` takes a transfer that is still under way for lost; nothing for one that waits as
     *     long as it takes. It does not end the transfer.
     * @return the transfer's token, which is to be kept until `done`
     * @throws std::invalid_argument for no request, or one that is under way in this engine
     */
    [[nodiscard]] std::unique_ptr<Transfer> Start(std::shared_ptr<ARDV::Relay::Request> request, Done done,
                                                  std::string purpose,
                                                  std::optional<std::chrono::seconds> limit = kOrdinaryLimit);

    /** What is under way, the oldest first. */
    std::vector<TransferInfo> Transfers() const;

    /**
     * Whether no transfer is past its limit.
     *
     * @param why set to what is wrong, where something is
     */
    bool IsHealthy(std::string& why) const;

private:
    friend class Transfer;
    using Job = std::shared_ptr<Transfer::Job>;
    using Jobs = std::list<Job>;

    struct MultiRelease {
        void operator()(CURLM* multi) const;
    };

    static int OnSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* unused);
    static int OnTimer(CURLM* multi, long delay, void* self);
    void WatchSocket(curl_socket_t socket, int what);
    void Act(curl_socket_t socket, int events);
    Job Find(const CURL* handle) const;
    void Gather();
    void Note(const Job& job, CURLcode code);
    void DeliverSoon();
    void Deliver();
    void Finish(const Job& job);
    void Release(const Job& job);
    void Cancel(const Job& job);

    EventLoop& loop_;
    Timer timer_;
    Timer delivery_;
    std::map<curl_socket_t, std::unique_ptr<Watch>> watches_;
    Jobs jobs_;      ///< under way
    Jobs finished_;  ///< of these, whose outcome is known and not delivered
    std::unique_ptr<CURLM, MultiRelease> multi_;
};

}  // namespace ardv::daemon
