// SPDX-License-Identifier: Apache-2.0
#include "web_server_faults.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>

#include <ardvw3/hos.h>

namespace ardv::test {

namespace {

WebServerFaults* active = nullptr;

/** A method of the real library by its name there: a function whose first argument is the object. */
template <typename Function>
Function Real(const char* name) {
    void* symbol = dlsym(RTLD_NEXT, name);
    if (!symbol) {
        throw std::logic_error(std::string("no real ") + name);
    }
    Function function = nullptr;
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

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

int HOS::SetEnableRelayDDNS(const std::string& name) {
    static const auto real = Real<int (*)(HOS*, const std::string&)>(
        "_ZN6ardvw33HOS18SetEnableRelayDDNSERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    return IsFaulty(&WebServerFaults::enableFails, "enable " + name) ? -1 : real(this, name);
}

int HOS::SetDisableRelayDDNS() {
    static const auto real = Real<int (*)(HOS*)>("_ZN6ardvw33HOS19SetDisableRelayDDNSEv");
    return IsFaulty(&WebServerFaults::disableFails, "disable") ? -1 : real(this);
}

bool HOS::Set() {
    static const auto real = Real<bool (*)(HOS*)>("_ZN6ardvw33HOS3SetEv");
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
