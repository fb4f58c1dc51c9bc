// SPDX-License-Identifier: Apache-2.0
#include "transfer_engine.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "descriptor.h"
#include "guarded_call.h"

namespace ardv::daemon {

using ARDV::Relay::Request;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMaxIdleConnections = 4;  // each exchange closes its own; this is for what would not

short EventsOf(int what) {
    const int events = ((what & CURL_POLL_IN) ? Watch::kReadable : 0) | ((what & CURL_POLL_OUT) ? Watch::kWritable : 0);
    return static_cast<short>(events);
}

int ActionOf(short events) {
    return ((events & Watch::kReadable) ? CURL_CSELECT_IN : 0) | ((events & Watch::kWritable) ? CURL_CSELECT_OUT : 0);
}

}  // namespace

struct Transfer::Job {
    TransferEngine* engine;  ///< null once that is gone
    std::shared_ptr<Request> request;
    TransferEngine::Done done;
    std::string purpose;
    std::optional<seconds> limit;
    Clock::time_point begin = Clock::now();
    std::optional<CURLcode> code = {};  ///< the outcome, once it is known
    bool isRemoved = false;             ///< from libcurl's engine

    milliseconds Age() const { return std::chrono::floor<milliseconds>(Clock::now() - begin); }
};

Transfer::Transfer(std::shared_ptr<Job> job) : job_(std::move(job)) {}

Transfer::~Transfer() {
    if (job_->engine) {
        job_->engine->Cancel(job_);
    }
}

void TransferEngine::MultiRelease::operator()(CURLM* multi) const {
    curl_multi_cleanup(multi);
}

// libcurl loses the sockets of transfers that begin before the callbacks are set.
TransferEngine::TransferEngine(EventLoop& loop)
    : loop_(loop),
      timer_(loop, "transfers", [this] { Act(CURL_SOCKET_TIMEOUT, 0); }),
      delivery_(loop, "finished transfers", [this] { Deliver(); }),
      multi_(curl_multi_init()) {
    if (!multi_ || curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &OnSocket) != CURLM_OK ||
        curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this) != CURLM_OK ||
        curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &OnTimer) != CURLM_OK ||
        curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this) != CURLM_OK) {
        throw std::runtime_error("no transfer engine");
    }
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, kMaxIdleConnections);
    KeepDescriptorsFromChildren();
}

TransferEngine::~TransferEngine() {
    for (const auto& job : jobs_) {
        Release(job);
        job->engine = nullptr;
    }
}

std::unique_ptr<Transfer> TransferEngine::Start(std::shared_ptr<Request> request, Done done, std::string purpose,
                                                std::optional<seconds> limit) {
    const auto isSame = [&](const Job& job) { return job->request == request; };
    if (!request || std::any_of(jobs_.begin(), jobs_.end(), isSame)) {
        throw std::invalid_argument("no request, or one that is under way: " + purpose);
    }
    auto job = std::make_shared<Transfer::Job>(
        Transfer::Job{this, std::move(request), std::move(done), std::move(purpose), limit});
    std::unique_ptr<Transfer> token(new Transfer(job));
    jobs_.push_back(job);
    if (!job->request->JobAdd(multi_.get())) {
        Note(job, CURLE_FAILED_INIT);
    }
    Gather();  // libcurl need not call anybody for what has failed already
    DeliverSoon();
    return token;
}

std::vector<TransferInfo> TransferEngine::Transfers() const {
    std::vector<TransferInfo> transfers;
    std::transform(jobs_.begin(), jobs_.end(), std::back_inserter(transfers), [](const Job& job) {
        return TransferInfo{job->purpose, job->request->GetUrl(), job->Age(), job->limit};
    });
    return transfers;
}

bool TransferEngine::IsHealthy(std::string& why) const {
    const auto isLost = [](const Job& job) { return job->limit && job->Age() > *job->limit; };
    const auto lost = std::find_if(jobs_.begin(), jobs_.end(), isLost);
    if (lost == jobs_.end()) {
        return true;
    }
    const auto age = std::chrono::floor<seconds>((*lost)->Age()).count();
    why = "transfer \"" + (*lost)->purpose + "\" has been under way for " + std::to_string(age) + " s";
    return false;
}

// A socket that cannot be watched would never be heard of again.
int TransferEngine::OnSocket(CURL* handle, curl_socket_t socket, int what, void* self, void* /*unused*/) {
    auto& engine = *static_cast<TransferEngine*>(self);
    if (!GuardedCall("watching a transfer's socket", [&] { engine.WatchSocket(socket, what); })) {
        GuardedCall("ending a transfer", [&] {
            if (const auto job = engine.Find(handle)) {
                engine.Note(job, CURLE_OUT_OF_MEMORY);
            }
        });
    }
    return 0;
}

int TransferEngine::OnTimer(CURLM* /*multi*/, long delay, void* self) {
    auto& timer = static_cast<TransferEngine*>(self)->timer_;
    if (delay < 0) {
        timer.Stop();
    } else {
        timer.Start(milliseconds(delay));
    }
    return 0;
}

void TransferEngine::WatchSocket(curl_socket_t socket, int what) {
    const bool isNew = watches_.erase(socket) == 0;
    if (what == CURL_POLL_REMOVE) {
        return;
    }
    if (isNew) {
        KeepDescriptorsFromChildren();
    }
    const auto act = [this, socket](short events) { Act(socket, ActionOf(events)); };
    watches_[socket] = std::make_unique<Watch>(loop_, socket, EventsOf(what), act);
}

void TransferEngine::Act(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_.get(), socket, events, &running);
    Gather();
    Deliver();
}

TransferEngine::Job TransferEngine::Find(const CURL* handle) const {
    const auto job =
        std::find_if(jobs_.begin(), jobs_.end(), [handle](const Job& j) { return handle && *j->request == handle; });
    return job == jobs_.end() ? nullptr : *job;
}

void TransferEngine::Gather() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        const auto job = message->msg == CURLMSG_DONE ? Find(message->easy_handle) : nullptr;
        if (job) {
            Note(job, message->data.result);
        }
    }
}

void TransferEngine::Note(const Job& job, CURLcode code) {
    if (!job->code) {
        job->code = code;
        finished_.push_back(job);
    }
}

void TransferEngine::DeliverSoon() {
    if (!finished_.empty()) {
        delivery_.Start(milliseconds::zero());
    }
}

// What finishes meanwhile waits for the next turn: a transfer that is started again whenever it fails at once must not keep
// the loop from everything else.
void TransferEngine::Deliver() {
    for (auto count = finished_.size(); count > 0 && !finished_.empty(); --count) {
        const auto job = finished_.front();
        finished_.pop_front();
        Finish(job);
    }
    DeliverSoon();
}

void TransferEngine::Finish(const Job& job) {
    jobs_.remove(job);
    if (*job->code == CURLE_FAILED_INIT) {
        job->request->InitSend();  // may have an outcome of earlier times
    }
    job->request->JobDone(*job->code);
    const auto done = std::exchange(job->done, nullptr);  // stays while it runs, whatever it destroys
    GuardedCall(job->purpose, [&] { done(*job->request); });
    Release(job);
    job->engine = nullptr;
}

// One that never had a handle, or has lost it, is in no engine.
void TransferEngine::Release(const Job& job) {
    if (!std::exchange(job->isRemoved, true) && job->request->IsValid()) {
        job->request->JobRemove(multi_.get());
    }
    job->done = nullptr;
}

void TransferEngine::Cancel(const Job& job) {
    jobs_.remove(job);
    finished_.remove(job);
    Release(job);
}

}  // namespace ardv::daemon
