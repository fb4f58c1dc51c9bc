// SPDX-License-Identifier: Apache-2.0
#include "web_server_faults.h"

#include <stdexcept>

#include <ardvw3/hos.h>

#include "real_function.h"

namespace ardv::test {

namespace {

WebServerFaults* active = nullptr;

bool IsFaulty(bool WebServerFaults::*fault, const std::string& call) {
    if (active) {
        active->calls.push_back(call);
    }
    return active && active->*fault;
}

}  // namespace

WebServerFaults::WebServerFaults() {
    active = this;
}

WebServerFaults::~WebServerFaults() {
    active = nullptr;
}

}  // namespace ardv::test

namespace ardvw3 {

using namespace ardv::test;

// A method under its name in the library is a function whose first argument is the object.
int HOS::SetEnableRelayDDNS(const std::string& name) {
    static const auto real = RealFunction<int (*)(HOS*, const std::string&)>(
        "_ZN6ardvw33HOS18SetEnableRelayDDNSERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    return IsFaulty(&WebServerFaults::enableFails, "enable " + name) ? -1 : real(this, name);
}

int HOS::SetDisableRelayDDNS() {
    static const auto real = RealFunction<int (*)(HOS*)>("_ZN6ardvw33HOS19SetDisableRelayDDNSEv");
    return IsFaulty(&WebServerFaults::disableFails, "disable") ? -1 : real(this);
}

bool HOS::Set() {
    static const auto real = RealFunction<bool (*)(HOS*)>("_ZN6ardvw33HOS3SetEv");
    return !IsFaulty(&WebServerFaults::setFails, "set") && real(this);
}

Result<W3Code, Json::Value> NginxConfRegister::DoAction(const std::shared_ptr<NginxConfRegAction>& action, bool force) {
    if (!active) {
        throw std::logic_error("a registration outside of a test of registrations");
    }
    active->actions.emplace_back(action, force);
    return Result<W3Code, Json::Value>(active->onAction());
}

}  // namespace ardvw3
