// SPDX-License-Identifier: Apache-2.0
// Any text as a control server's answer: what is read of it keeps to the protocol's bounds, and what the daemon sends on is JSON.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <relay/daemon/daemon.h>
#include <relay/utils/json_text.h>

#include <ardvrelayd/control_messages.h>

namespace {

using namespace ardv::daemon;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool IsIdentifier(const std::string& text, std::size_t maxSize) {
    return !text.empty() && text.size() <= maxSize &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-") ==
               std::string::npos;
}

void TestRegistration(const Json::Value& answer) {
    if (const auto registration = ReadRegistration(answer)) {
        Require(IsIdentifier(registration->credentials.serverId, 64));
        Require(IsIdentifier(registration->credentials.session, 128));
        Require(IsIdentifier(registration->credentials.channel, 128));
        (void)KeepAliveMessage(registration->credentials);
    }
    const auto terms = ReadTerms(answer);
    Require(!terms.keepAlive || (terms.keepAlive->count() >= 60 && terms.keepAlive->count() <= 86400));
}

void TestHost(const Json::Value& answer) {
    if (const auto host = ReadControlHost(answer)) {
        Require(host->size() <= 253 && IsIdentifier(*host, 253) && host->find('_') == std::string::npos);
    }
}

void TestCommands(const Json::Value& answer) {
    const auto commands = ReadCommands(answer);
    Require(commands.size() <= 16);
    std::vector<CommandResult> results;
    for (const auto& command : commands) {
        Require(IsIdentifier(command.id, 64) && command.members.isObject());
        results.emplace_back(command.id, ARDV::Relay::RELAYD_RET_SUCCESS);
    }
    const auto message = WaitMessage({"a", "b", "c"}, results);
    Require(message["results"].size() == commands.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ARDV::Relay::Daemon::_logLevel = -1;
    Json::Value answer;
    if (!ARDV::Relay::JsonText::Parse(std::string(data, data + size), answer)) {
        return 0;
    }
    TestRegistration(answer);
    TestHost(answer);
    TestCommands(answer);
    return 0;
}
