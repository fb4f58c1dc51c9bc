// SPDX-License-Identifier: Apache-2.0
// Any bytes as a file of services: what a caller sees is texts that end, ports that are counted, and services found by
// their names.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/linux/firewall_service_list.h"

namespace {

using namespace ARDV::Platform;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool IsAbsentOrText(const char* text) {
    return text == nullptr || std::strlen(text) > 0;
}

void TestFound(const ARDV_FW_SERVICE& found) {
    Require(IsAbsentOrText(found.section) && IsAbsentOrText(found.title) && IsAbsentOrText(found.display_name));
    Require(found.ports != nullptr || found.port_count == 0);
    for (int i = 0; i < found.port_count; ++i) {
        Require(std::strlen(found.ports[i]) > 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto services = ParseFirewallServices({reinterpret_cast<const char*>(data), size});
    if (!services) {
        return 0;
    }
    const auto names = *services;
    const FirewallServiceList list(std::move(*services));
    Require(list.Size() == names.size());
    for (const auto& service : names) {
        if (service.service) {
            const auto* found = list.Find(*service.service);
            Require(found != nullptr && *service.service == found->service);
            TestFound(*found);
        }
    }
    return 0;
}
