// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/value.h>

#include "status_snapshot.h"

namespace ardv::ctl {

/** Prints what the library prints of the status, and below it what helps a person: since when, services, advice. */
void PrintStatus(const StatusSnapshot& snapshot);

/** The status for a program, with the status file as it stands as "file", and the failure if the daemon doesn't run. */
Json::Value StatusAsJson(const StatusSnapshot& snapshot);

/** State, error and alias status in a few words, for a message: "state starting, error err_network, alias ...". */
std::string StatusInShort(const StatusSnapshot& snapshot);

}  // namespace ardv::ctl
