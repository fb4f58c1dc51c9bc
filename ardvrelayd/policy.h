// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the daemon does about the outcome of an exchange. Errors say what happened; what follows from them stands here, and
 * nowhere else.
 */
#pragma once

#include <relay/common/vocabulary.h>

namespace ardv::daemon {

/** What to do about an outcome. */
enum class Action {
    kGoOn,                   ///< it worked
    kAgain,                  ///< from the beginning (register, map): soon the first time in a row, then with back-off
    kAgainWithFreshNetwork,  ///< the same, with the network's addresses read anew
    kMove,                   ///< to the server that the answer names; with back-off if it names none
    kBackOff,                ///< the same once more, after a while
    kBackOffSlowly,          ///< the same once more, after a long while
    kResolveAnew,            ///< the same once more, after a while, with what is known of names forgotten
    kWaitForUser,            ///< nothing, until a setting, the network or the user's mind has changed
};

/** What to do about a control server's error number, which may say more than the result that follows from it. */
Action ActionFor(ARDV::Relay::RELAYSERVER_ERR error, ARDV::Relay::RELAYD_RET result);

/** The same for a result without an error number: the exchange itself failed. */
Action ActionFor(ARDV::Relay::RELAYD_RET result);

/** What to do about an outcome of the alias service. */
Action ActionFor(ARDV::Relay::ALIAS_RET result);

/** The daemon's result for an outcome of the alias service, for those who asked the daemon for it. */
ARDV::Relay::RELAYD_RET ResultOf(ARDV::Relay::ALIAS_RET result);

}  // namespace ardv::daemon
