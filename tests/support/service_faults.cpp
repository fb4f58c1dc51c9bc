// SPDX-License-Identifier: Apache-2.0
#include "service_faults.h"

#include <algorithm>
#include <iterator>

#include <ardv/port_mapping.h>
#include <ardv/web_service.h>
#include <ardvw3/hos.h>

#include "real_function.h"

namespace ardv::test {

namespace {

ServiceFaults* active = nullptr;

void Record(const std::string& call) {
    if (active) {
        active->calls.push_back(call);
    }
}

}  // namespace

ServiceFaults::ServiceFaults() {
    active = this;
}

ServiceFaults::~ServiceFaults() {
    active = nullptr;
}

std::vector<std::string> ServiceFaults::CallsOf(const std::string& start) const {
    std::vector<std::string> matching;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(matching),
                 [&start](const std::string& call) { return call.starts_with(start); });
    return matching;
}

}  // namespace ardv::test

using ardv::test::active;
using ardv::test::RealFunction;
using ardv::test::Record;

extern "C" {

int ARDVFwServiceEnum(ARDV_FW_SERVICE_LIST** list) {
    static const auto real = RealFunction<int (*)(ARDV_FW_SERVICE_LIST**)>("ARDVFwServiceEnum");
    Record("Enum");
    const int result = real(list);
    if (active && *list) {
        active->held.insert(*list);
    }
    return active ? active->enumResult.value_or(result) : result;
}

const ARDV_FW_SERVICE* ARDVFWServiceFind(const ARDV_FW_SERVICE_LIST* list, const char* name) {
    static const auto real =
        RealFunction<const ARDV_FW_SERVICE* (*)(const ARDV_FW_SERVICE_LIST*, const char*)>("ARDVFWServiceFind");
    Record(std::string("Find ") + name);
    return active && active->found ? active->found : real(list, name);
}

void ARDVFWServiceFree(ARDV_FW_SERVICE_LIST* list) {
    static const auto real = RealFunction<void (*)(ARDV_FW_SERVICE_LIST*)>("ARDVFWServiceFree");
    if (list) {
        Record("Free");
    }
    if (active) {
        active->held.erase(list);
    }
    real(list);
}

int ALibArdvPortMapGetRouterPort(int port, int* routerPort) {
    static const auto real = RealFunction<int (*)(int, int*)>("ALibArdvPortMapGetRouterPort");
    Record("RouterPort " + std::to_string(port));
    if (!active || !active->router) {
        return real(port, routerPort);
    }
    *routerPort = active->router->port;
    return active->router->result;
}

int ARDVServiceIsHttpDefaultConf() {
    static const auto real = RealFunction<int (*)()>("ARDVServiceIsHttpDefaultConf");
    return active && active->httpDefaultConf ? *active->httpDefaultConf : real();
}
}

namespace ardvw3 {

int HOS::GetHttpPort() const {
    static const auto real = RealFunction<int (*)(const HOS*)>("_ZNK6ardvw33HOS11GetHttpPortEv");
    return active && active->webPort ? *active->webPort : real(this);
}

int HOS::GetHttpsPort() const {
    static const auto real = RealFunction<int (*)(const HOS*)>("_ZNK6ardvw33HOS12GetHttpsPortEv");
    return active && active->webPort ? *active->webPort : real(this);
}

}  // namespace ardvw3
