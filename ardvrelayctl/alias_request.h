// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <json/value.h>

#include "session.h"

namespace ardv::ctl {

/** What the user asked for. Empty texts were not given. */
struct AliasOptions {
    std::string alias;
    std::string url;
    std::string account;
    std::string accountId;
    std::string passwordFile;
    std::string authKeyFile;
    bool force = false;
    bool dryRun = false;
};

/**
 * Gathers what a request carries from the main configuration file, the device's identity and the options.
 *
 * @throws std::exception, with words for the user, if the configuration or a secret's file cannot be used, if the
 *         configured server's URL is none that is accepted, or if alias, identity or server identifier are missing
 */
Json::Value GatherRequestData(const Session& session, const AliasOptions& options);

/** The alias that the options or the configuration name; empty for none. Throws as `GatherRequestData` for the
 * configuration. */
std::string ConfiguredAlias(const Session& session, const AliasOptions& options);

}  // namespace ardv::ctl
