// SPDX-License-Identifier: Apache-2.0
#include "systemd_calls.h"

#include <ardv/system_service.h>

namespace ardv::test {

namespace {

SystemdCalls* active = nullptr;

int Answer(const std::string& call, int SystemdCalls::*answer) {
    if (!active) {
        return -1;
    }
    active->calls.push_back(call);
    if (active->onCall) {
        active->onCall(call);
    }
    return active->*answer;
}

int Switch(const char* what, const char* unit) {
    return Answer(std::string(what) + " " + unit, &SystemdCalls::switchResult);
}

}  // namespace

SystemdCalls::SystemdCalls() {
    active = this;
}

SystemdCalls::~SystemdCalls() {
    active = nullptr;
}

}  // namespace ardv::test

using ardv::test::Answer;
using ardv::test::Switch;
using ardv::test::SystemdCalls;

extern "C" {

int ARDVSystemdEnable(const char* unit) {
    return Switch("Enable", unit);
}

int ARDVSystemdDisable(const char* unit) {
    return Switch("Disable", unit);
}

int ARDVSystemdStart(const char* unit) {
    return Switch("Start", unit);
}

int ARDVSystemdStop(const char* unit) {
    return Switch("Stop", unit);
}

int ARDVSystemdReload(const char* unit) {
    return Switch("Reload", unit);
}

int ARDVSystemdActiveStatusGet(const char* unit) {
    return Answer(std::string("State ") + unit, &SystemdCalls::unitState);
}

int ARDVInetdServiceIsEnable(const char* service) {
    return Answer(std::string("Inetd ") + service, &SystemdCalls::inetdState);
}
}
