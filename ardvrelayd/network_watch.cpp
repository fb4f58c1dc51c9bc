// SPDX-License-Identifier: Apache-2.0
#include "network_watch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "log.h"
#include "network_table.h"

DAEMON_LOG_SOURCE("network_watch.cpp");

namespace ardv::daemon {

namespace {

constexpr std::uint32_t kGroups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;

// The largest message of the kernel, as of NLMSG_GOODSIZE and the note on buffer sizes in netlink(7).
constexpr std::size_t kReceiveBytes = 32768;

constexpr int kMaxReads = 64;  // in one turn of the loop

struct Question {
    nlmsghdr head;
    std::array<char, sizeof(ifinfomsg)> body;  // the largest header of the tables; zeros stand for all families
};

struct Table {
    std::uint16_t request;
    std::size_t headerBytes;
};

constexpr Table kTables[] = {
    {RTM_GETLINK, sizeof(ifinfomsg)},
    {RTM_GETADDR, sizeof(ifaddrmsg)},
    {RTM_GETROUTE, sizeof(rtmsg)},
};

int OpenSocket() {
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
}

/** Joins the groups; the socket's address, or 0. */
std::uint32_t Join(int fd) {
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kGroups;
    socklen_t size = sizeof address;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        return 0;
    }
    return address.nl_pid;
}

bool Ask(int fd, const Table& table) {
    Question question = {};
    question.head.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(table.headerBytes));
    question.head.nlmsg_type = table.request;
    question.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    return send(fd, &question, question.head.nlmsg_len, 0) == static_cast<ssize_t>(question.head.nlmsg_len);
}

}  // namespace

NetworkWatch::NetworkWatch(EventLoop& loop, std::function<void()> changed, NetworkPace pace)
    : changed_(std::move(changed)),
      pace_(pace),
      socket_(OpenSocket()),
      port_(Join(socket_.Get())),
      table_(std::make_unique<NetworkTable>()),
      quiet_(loop, "network change", [this] { Call(); }) {
    if (port_ == 0) {
        throw std::runtime_error(std::string("no reports of the network: ") + std::strerror(errno));
    }
    watch_.emplace(loop, socket_.Get(), Watch::kReadable, [this](short) { Read(); });
    Learn();
}

NetworkWatch::~NetworkWatch() = default;

// Asks for what there is already, so that only changes of it are news.
void NetworkWatch::Learn() {
    table_->Forget();
    if (!isLearning_) {
        isLearning_ = true;
        tablesAskedFor_ = 0;
        AskForNextTable();
    }
}

void NetworkWatch::AskForNextTable() {
    isLearning_ = tablesAskedFor_ < std::size(kTables) && Ask(socket_.Get(), kTables[tablesAskedFor_]);
    ++tablesAskedFor_;
}

void NetworkWatch::Read() {
    for (int count = 0; count < kMaxReads && ReadOne(); ++count) {
    }
}

bool NetworkWatch::ReadOne() {
    alignas(nlmsghdr) std::array<char, kReceiveBytes> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    sockaddr_nl sender = {};
    socklen_t senderSize = sizeof sender;
    const ssize_t count = recvfrom(socket_.Get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                   reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (count < 0 && errno == ENOBUFS) {
        NoteNews();
        Learn();
        return true;
    }
    if (count < 0) {
        const bool isOver = errno != EAGAIN && errno != EINTR;
        if (isOver) {
            DAEMON_LOG(LOG_ERR, "the network is not watched any more: %s", std::strerror(errno));
            watch_.reset();
        }
        return false;
    }
    if (static_cast<std::size_t>(count) > buffer.size()) {
        NoteNews();
    } else if (senderSize == sizeof sender && sender.nl_pid == 0) {  // the kernel's, and nobody else's
        TakeMessages({buffer.data(), static_cast<std::size_t>(count)});
    }
    return true;
}

void NetworkWatch::TakeMessages(std::string_view bytes) {
    while (bytes.size() >= sizeof(nlmsghdr)) {
        nlmsghdr head = {};
        std::memcpy(&head, bytes.data(), sizeof head);
        if (head.nlmsg_len < sizeof head || head.nlmsg_len > bytes.size()) {
            return;
        }
        const auto record = bytes.substr(0, head.nlmsg_len).substr(sizeof head);
        if (head.nlmsg_pid == port_) {
            TakeAnswer(head.nlmsg_type, record);
        } else if (table_->Take(head.nlmsg_type, record)) {
            NoteNews();
        }
        bytes.remove_prefix(std::min<std::size_t>(NLMSG_ALIGN(head.nlmsg_len), bytes.size()));
    }
}

void NetworkWatch::TakeAnswer(std::uint16_t type, std::string_view record) {
    if (type == NLMSG_DONE || type == NLMSG_ERROR) {
        AskForNextTable();
    } else {
        table_->Take(type, record);
    }
}

void NetworkWatch::NoteNews() {
    const auto now = Clock::now();
    firstNews_ = firstNews_.value_or(now);
    const auto patience = std::chrono::ceil<std::chrono::milliseconds>(*firstNews_ + pace_.patience - now);
    quiet_.Start(std::min(pace_.quiet, patience));
}

void NetworkWatch::Call() {
    firstNews_.reset();
    const auto changed = changed_;  // this may be gone before the call is over
    changed();
}

}  // namespace ardv::daemon
