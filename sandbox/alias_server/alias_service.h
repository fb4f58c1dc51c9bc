// SPDX-License-Identifier: Apache-2.0
// The alias service: the protocol's pages and the test interface.
#pragma once

#include <string>

#include "http/service.h"
#include "protocol.h"
#include "registry.h"

namespace ARDV::Sandbox {

/// The alias service on one registry.
class AliasService final : public Service {
public:
    /// Serves from `registry`, which is loaded and must outlive this.
    explicit AliasService(Registry& registry);

    std::string Answer(const SeenRequest& request, httplib::Response& response) override;
    std::string LogWords(const SeenRequest& request, std::string_view reply) const override;

private:
    AdminReply PutRegistry(const std::string& body);

    Registry& registry_;
};

}  // namespace ARDV::Sandbox
