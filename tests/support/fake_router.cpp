// SPDX-License-Identifier: Apache-2.0
#include "support/fake_router.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace ardv::test {

namespace {

constexpr std::uint16_t kSsdpPort = 1900;

int OpenDatagramSocket(const std::string& address, std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &own.sin_addr);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        throw std::runtime_error("fake router: cannot listen on " + address);
    }
    return fd;
}

}  // namespace

std::string FakeRouter::GoodAnswer(const std::string& location, const std::string& target) {
    return "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=120\r\nst: " + target + "\r\nEXT:\r\nLocation:" + location +
           " \r\nUSN: uuid:00000000-0000-4000-8000-000000000002\r\n\r\n";
}

std::string FakeRouter::GoodDescription(const std::string& controlUrl, const std::string& service) {
    return "<?xml version=\"1.0\"?>\n<root xmlns=\"urn:schemas-upnp-org:device-1-0\"><device>"
           "<deviceType>urn:schemas-upnp-org:device:InternetGatewayDevice:1</deviceType><deviceList><device>"
           "<deviceType>urn:schemas-upnp-org:device:WANDevice:1</deviceType><deviceList><device>"
           "<deviceType>urn:schemas-upnp-org:device:WANConnectionDevice:1</deviceType><serviceList><service>"
           "<serviceType>urn:schemas-upnp-org:service:" +
           service + "</serviceType><controlURL>" + controlUrl +
           "</controlURL></service></serviceList></device></deviceList></device></deviceList></device></root>\n";
}

FakeRouter::FakeRouter(const RouterNetwork& network, Script script) : script_(std::move(script)) {
    const std::string& own = network.Settings().router;
    if (!script_.describe) {
        script_.describe = [this](const httplib::Request&, httplib::Response& answer) {
            answer.set_content(Filled(script_.description), "text/xml");
        };
    }
    server_.set_tcp_nodelay(true);  // else the system holds back the second half of an answer for 40 ms
    server_.Get("/description", script_.describe);
    if (script_.control) {
        server_.Post("/control", script_.control);
    }
    stop_ = eventfd(0, EFD_CLOEXEC);
    network.RunThere([&] {
        searches_ = OpenDatagramSocket("0.0.0.0", kSsdpPort);
        answers_ = OpenDatagramSocket(script_.answersFrom.empty() ? own : script_.answersFrom, 0);
        url_ = "http://" + own + ":" + std::to_string(server_.bind_to_any_port("0.0.0.0"));
    });
    searchThread_ = std::thread([this] { AnswerSearches(); });
    serverThread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) {  // stopping it earlier would be in vain
        std::this_thread::yield();
    }
}

FakeRouter::~FakeRouter() {
    eventfd_write(stop_, 1);
    server_.stop();
    searchThread_.join();
    serverThread_.join();
    close(searches_);
    close(answers_);
    close(stop_);
}

std::string FakeRouter::Filled(std::string text) const {
    static const std::string kMark = "@URL@";
    for (std::size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark)) {
        text.replace(at, kMark.size(), url_);
    }
    return text;
}

void FakeRouter::AnswerSearches() const {
    std::array<pollfd, 2> events = {{{searches_, POLLIN, 0}, {stop_, POLLIN, 0}}};
    while (poll(events.data(), events.size(), -1) > 0 && events[1].revents == 0) {
        std::array<char, 2048> search{};
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        auto* address = reinterpret_cast<sockaddr*>(&sender);
        if (recvfrom(searches_, search.data(), search.size(), 0, address, &size) <= 0) {
            continue;
        }
        for (const std::string& answer : script_.searchAnswers) {
            const std::string text = Filled(answer);
            sendto(answers_, text.data(), text.size(), 0, address, size);
        }
    }
}

}  // namespace ardv::test
