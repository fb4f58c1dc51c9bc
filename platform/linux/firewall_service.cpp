// SPDX-License-Identifier: Apache-2.0
#include <ardv/firewall_service.h>

#include <memory>
#include <utility>

#include "platform/linux/error.h"
#include "platform/linux/firewall_service_list.h"

/// A share of a list that other callers may hold too.
struct _tag_ARDV_FW_SERVICE_LIST {  // NOLINT(readability-identifier-naming): an old name
    std::shared_ptr<const ARDV::Platform::FirewallServiceList> services;
};

namespace ARDV::Platform {

namespace {

int Enumerate(ARDV_FW_SERVICE_LIST** list) {
    Result<std::shared_ptr<const FirewallServiceList>> services = ReadFirewallServices();
    if (!services) {
        return Fail(services.Reason());
    }
    const std::size_t count = (*services)->Size();
    if (count > 0) {
        *list = new ARDV_FW_SERVICE_LIST{std::move(*services)};
    }
    return static_cast<int>(count);
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVFwServiceEnum(ARDV_FW_SERVICE_LIST** list) {
    if (list == nullptr) {
        return Fail(ARDV_ERR_INVALID_ARGUMENT);
    }
    *list = nullptr;
    return Guarded([list] { return Enumerate(list); });
}

const ARDV_FW_SERVICE* ARDVFWServiceFind(const ARDV_FW_SERVICE_LIST* list, const char* name) {
    return list == nullptr || name == nullptr ? nullptr : list->services->Find(name);
}

void ARDVFWServiceFree(ARDV_FW_SERVICE_LIST* list) {
    delete list;
}
