// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <string_view>
#include <utility>

namespace ardv::daemon {

/** Writes that an exception came out of `who` to the log, at level 3. */
void LogEscaped(std::string_view who, const char* what) noexcept;

/**
 * Calls back from a library of C, through whose frames no exception may travel: one becomes a message of level 3, and the
 * daemon goes on.
 *
 * @param who what is called, for the message
 * @return false if an exception came out of it
 */
template <typename Callback>
bool GuardedCall(std::string_view who, Callback&& callback) noexcept {
    try {
        std::forward<Callback>(callback)();
        return true;
    } catch (const std::exception& failure) {
        LogEscaped(who, failure.what());
    } catch (...) {
        LogEscaped(who, "not a standard exception");
    }
    return false;
}

}  // namespace ardv::daemon
