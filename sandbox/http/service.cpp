// SPDX-License-Identifier: Apache-2.0
#include "http/service.h"

#include <algorithm>
#include <utility>

namespace ARDV::Sandbox {

Service::Service(std::vector<std::string> pages, const Limits& limits, const FaultRules& rules)
    : pages_(std::move(pages)), limits_(limits), tests_(faults_, requests_, rules) {}

bool Service::IsPage(std::string_view path) const {
    return std::find(pages_.begin(), pages_.end(), path) != pages_.end();
}

}  // namespace ARDV::Sandbox
