// SPDX-License-Identifier: Apache-2.0
#include "support/raw_exchange.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <stdexcept>

#include "support/handle.h"

namespace ardv::test {

int ConnectTo(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{20, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(socket);
        throw std::runtime_error("cannot connect to port " + std::to_string(port));
    }
    return socket;
}

std::string RawExchange(int port, const std::string& bytes) {
    const Handle socket(ConnectTo(port));
    ::send(socket.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ::shutdown(socket.Number(), SHUT_WR);
    std::string answer;
    char block[4096];
    for (ssize_t count = 0; (count = ::recv(socket.Number(), block, sizeof block, 0)) > 0;) {
        answer.append(block, static_cast<size_t>(count));
    }
    return answer;
}

}  // namespace ardv::test
