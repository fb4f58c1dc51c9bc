// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/route_netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>

#include "platform/linux/file.h"

namespace ARDV::Platform {

namespace {

constexpr std::uint32_t kSequence = 1;
constexpr int kMaxAttempts = 8;

/// The kernel answers before send(2) returns or never; the limit only keeps a fault from lasting for ever.
constexpr timeval kAnswerTimeout = {5, 0};

/// The largest message of the kernel, as of NLMSG_GOODSIZE and the note on buffer sizes in netlink(7).
constexpr std::size_t kReceiveBytes = 32768;

/// How the reading of one table goes on.
enum class Step { kMore, kDone, kAgain };

struct Request {
    nlmsghdr head;
    std::array<char, sizeof(ifinfomsg)> body;  ///< the largest header; the family is the first byte of each of them
};

Result<FileDescriptor> OpenSocket() {
    FileDescriptor connection(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!connection) {
        return ErrnoError();
    }
    const int fd = connection.Get();
    const bool bounded = setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kAnswerTimeout, sizeof(kAnswerTimeout)) == 0;
    return bounded ? Result<FileDescriptor>(std::move(connection)) : ErrnoError();
}

/// Sends the header and nothing behind it, which the kernel would take for attributes.
Failure Ask(const FileDescriptor& connection, const NetlinkTable& table, std::size_t headerBytes) {
    Request request{};
    const std::size_t size = NLMSG_LENGTH(std::min(headerBytes, sizeof(request.body)));
    request.head.nlmsg_len = static_cast<std::uint32_t>(size);
    request.head.nlmsg_type = table.request;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.head.nlmsg_seq = kSequence;
    request.body[0] = static_cast<char>(table.family);
    const auto sent = send(connection.Get(), &request, size, 0);
    return sent == static_cast<ssize_t>(size) ? Failure{} : ErrnoError();
}

/// One datagram of the kernel's; empty when another process sent it.
Result<std::string_view> Receive(const FileDescriptor& connection, std::vector<char>& buffer) {
    sockaddr_nl sender{};
    socklen_t length = sizeof(sender);
    ssize_t count = 0;
    do {
        count = recvfrom(connection.Get(), buffer.data(), buffer.size(), MSG_TRUNC,
                         reinterpret_cast<sockaddr*>(&sender), &length);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return ErrnoError();
    }
    if (static_cast<std::size_t>(count) > buffer.size()) {
        return MakeError(ARDV_ERR_TOO_LARGE);
    }
    const bool kernel = length == sizeof(sender) && sender.nl_family == AF_NETLINK && sender.nl_pid == 0;
    return std::string_view(buffer.data(), kernel ? static_cast<std::size_t>(count) : 0);
}

/// The end of an answer, and an error, begin with a number: 0 or a negative errno.
Failure ReportedFailure(std::string_view payload) {
    int status = 0;
    if (payload.size() < sizeof(status)) {
        return {};
    }
    std::memcpy(&status, payload.data(), sizeof(status));
    return status < 0 ? Failure(ErrnoError(-status)) : Failure{};
}

Result<Step> TakeMessage(const nlmsghdr& head, std::string_view payload, const NetlinkTable& table,
                         const NetlinkReader& reader) {
    if (head.nlmsg_seq != kSequence) {
        return Step::kMore;
    }
    if ((head.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
        return Step::kAgain;
    }
    if (head.nlmsg_type == NLMSG_DONE || head.nlmsg_type == NLMSG_ERROR) {
        const Failure failure = ReportedFailure(payload);
        return failure ? Result<Step>(*failure) : Step::kDone;
    }
    if (head.nlmsg_type == table.record) {
        reader.take(payload);
    }
    return Step::kMore;
}

Result<Step> TakeMessages(std::string_view bytes, const NetlinkTable& table, const NetlinkReader& reader) {
    while (bytes.size() >= sizeof(nlmsghdr)) {
        nlmsghdr head{};
        std::memcpy(&head, bytes.data(), sizeof(head));
        if (head.nlmsg_len < sizeof(head) || head.nlmsg_len > bytes.size()) {
            return MakeError(ARDV_ERR_IO);
        }
        const std::string_view payload = bytes.substr(0, head.nlmsg_len).substr(sizeof(head));
        const Result<Step> step = TakeMessage(head, payload, table, reader);
        if (!step || *step != Step::kMore) {
            return step;
        }
        bytes.remove_prefix(std::min<std::size_t>(NLMSG_ALIGN(head.nlmsg_len), bytes.size()));
    }
    return Step::kMore;
}

/// Each attempt has a socket of its own, so that what is left of an abandoned answer is never taken for the next one.
Result<Step> Attempt(const NetlinkTable& table, std::size_t headerBytes, const NetlinkReader& reader) {
    const Result<FileDescriptor> connection = OpenSocket();
    if (!connection) {
        return connection.Reason();
    }
    if (const Failure failure = Ask(*connection, table, headerBytes)) {
        return *failure;
    }
    reader.begin();
    std::vector<char> buffer(kReceiveBytes);
    Result<Step> step = Step::kMore;
    while (step && *step == Step::kMore) {
        const Result<std::string_view> bytes = Receive(*connection, buffer);
        step = bytes ? TakeMessages(*bytes, table, reader) : Result<Step>(bytes.Reason());
    }
    return step;
}

}  // namespace

std::optional<std::string_view> NetlinkAttributes::Find(unsigned type) const {
    std::string_view rest = bytes_;
    while (rest.size() >= sizeof(nlattr)) {
        nlattr head{};
        std::memcpy(&head, rest.data(), sizeof(head));
        if (head.nla_len < sizeof(head) || head.nla_len > rest.size()) {
            return {};
        }
        if ((head.nla_type & NLA_TYPE_MASK) == static_cast<int>(type)) {
            return rest.substr(0, head.nla_len).substr(sizeof(head));
        }
        rest.remove_prefix(std::min<std::size_t>(NLA_ALIGN(head.nla_len), rest.size()));
    }
    return {};
}

std::string_view NetlinkAttributes::Text(unsigned type) const {
    const std::string_view bytes = Find(type).value_or(std::string_view());
    return bytes.substr(0, bytes.find('\0'));
}

Failure ReadNetlinkTable(const NetlinkTable& table, std::size_t headerBytes, const NetlinkReader& reader) {
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        const Result<Step> step = Attempt(table, headerBytes, reader);
        if (!step) {
            return step.Reason();
        }
        if (*step == Step::kDone) {
            return {};
        }
    }
    return MakeError(ARDV_ERR_IO);
}

}  // namespace ARDV::Platform
