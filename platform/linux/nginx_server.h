// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include <ardvw3/result.h>

#include "platform/linux/file.h"

namespace ARDV::Platform {

/// How a step ended, and what a person should know about it.
struct Outcome {
    ardvw3::W3Code code = ardvw3::W3Code::kSuccess;
    std::string message;

    bool IsSuccess() const { return code == ardvw3::W3Code::kSuccess; }
};

/// The configuration that nginx would start with now.
struct NginxConfiguration {
    Outcome verdict;      ///< success: nginx accepts it
    std::string text;     ///< all of its files, each after a line that names it; empty if it isn't accepted
    bool isWhole = true;  ///< false: `text` was cut

    /// Whether a file is part of it. True also where that can't be told, since the text was cut.
    bool Includes(std::string_view file) const;
};

/// Has nginx read and test its configuration. The server that may be running isn't told.
NginxConfiguration TestNginx();

/// The first value of a directive outside of all blocks.
std::optional<std::string> FindMainDirective(std::string_view configuration, std::string_view directive);

/// A running nginx.
class NginxMaster {
public:
    /// The one that runs with a configuration; nothing if none does. An error where that can't be told.
    static Result<std::optional<NginxMaster>> Find(const NginxConfiguration& configuration);

    /// Has it take over the configuration on the disk, which has passed the test, and waits until no worker accepts
    /// connections with the old one.
    Outcome Reload() const;

private:
    NginxMaster(pid_t process, FileDescriptor handle) : process_(process), handle_(std::move(handle)) {}

    pid_t process_;
    FileDescriptor handle_;
};

}  // namespace ARDV::Platform
