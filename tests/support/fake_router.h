// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <httplib.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/router_network.h"

namespace ardv::test {

/** A router that says what the test tells it to: for what no real one does. Gone with this object. */
class FakeRouter {
public:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    /** What it says. Words "@URL@" in the texts are its own URL, without a slash at the end. */
    struct Script {
        /** Datagrams that answer each search, in this order. */
        std::vector<std::string> searchAnswers = {GoodAnswer()};
        std::string answersFrom = {};                 ///< an address of the router; empty: its own
        std::string description = GoodDescription();  ///< at /description
        Handler describe = {};                        ///< instead of `description`
        Handler control = {};                         ///< at /control
    };

    /** An answer to a search, as of a router. */
    static std::string GoodAnswer(const std::string& location = "@URL@/description",
                                  const std::string& target = "urn:schemas-upnp-org:device:InternetGatewayDevice:1");

    /** A description with one connection. */
    static std::string GoodDescription(const std::string& controlUrl = "/control",
                                       const std::string& service = "WANIPConnection:1");

    FakeRouter(const RouterNetwork& network, Script script);
    ~FakeRouter();
    FakeRouter(const FakeRouter&) = delete;
    FakeRouter& operator=(const FakeRouter&) = delete;

private:
    std::string Filled(std::string text) const;
    void AnswerSearches() const;

    Script script_;
    std::string url_;
    httplib::Server server_;
    int searches_ = -1;
    int answers_ = -1;
    int stop_ = -1;
    std::thread searchThread_;
    std::thread serverThread_;
};

}  // namespace ardv::test
