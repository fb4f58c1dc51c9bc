// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include <json/value.h>

#include "doctor_checks.h"
#include "status_snapshot.h"

namespace ardv::ctl {

/** What several checks look at. */
struct Facts {
    const Session& session;
    StatusSnapshot snapshot;
    Json::Value settings;  ///< every setting with the value that holds; empty where the configuration cannot be used

    explicit Facts(const Session& theSession);

    /** False where the configuration cannot be used. */
    bool AreSettingsKnown() const;

    /** Whether something asks for the daemon: the service or the support channel is switched on. */
    bool IsWanted() const;
};

/** A check that looks at the machine rather than at the daemon. */
Diagnosis CheckClock(const Facts& facts);
Diagnosis CheckStatusFolder(const Facts& facts);
Diagnosis CheckNames(const Facts& facts);
Diagnosis CheckUnit(const Facts& facts);

/** One that looks at what a tunnel to a relay takes. */
Diagnosis CheckTunnel(const Facts& facts);
Diagnosis CheckOpenVpn(const Facts& facts);
Diagnosis CheckPacketFilter(const Facts& facts);
Diagnosis CheckTunnelDevice(const Facts& facts);
Diagnosis CheckTunnelScripts(const Facts& facts);
Diagnosis CheckRelayAuthority(const Facts& facts);

}  // namespace ardv::ctl
