// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <json/json.h>
#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ardv::test {

inline constexpr const char kDaemonPidFile[] = "/var/run/ardvrelayd.pid";
inline constexpr std::chrono::seconds kPatience{10};

/** Waits until `isTrue`, `limit` at most. Looks again whenever a file of /tmp changes, and now and then besides. */
bool Await(const std::function<bool()>& isTrue, std::chrono::milliseconds limit = kPatience);

/** Whether `isTrue` all the time for `time`, looked at again and again. */
bool Holds(const std::function<bool()>& isTrue, std::chrono::milliseconds time);

/** State and error of the daemon as a tool reads them, e.g. "starting err_network"; "bad" where the status file is. */
std::string DaemonStatus();

/** Waits for this status, `limit` at most. Gives the status that there is then. */
std::string AwaitStatus(const std::string& status, std::chrono::milliseconds limit = kPatience);

/** The daemon's report; null when none came in time. */
Json::Value DaemonReport();

/** The daemon as a process of its own; killed with this object, or with the test if that dies. */
class DaemonProcess {
public:
    /** How it is started. */
    enum class Place { kForeground, kBackground };

    /** Options that make the daemon try again soon: the usual plan up to 0.2 s, the slow one up to 4.8 s. */
    static std::vector<std::string> Hasty() { return {"--retry-base", "0.02", "--retry-cap", "0.2"}; }

    /**
     * Starts the daemon with `options`. In the background it is there when this returns.
     * @throws std::runtime_error when it cannot be started; in the background also when it says so
     */
    explicit DaemonProcess(const std::vector<std::string>& options = Hasty(), Place place = Place::kForeground);
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    pid_t Pid() const { return pid_; }
    bool Runs() const;
    void Signal(int signal) const;

    /** Sends a signal, and waits until the daemon has noticed it, so that one more of its kind is not lost. */
    bool SignalAndSee(int signal) const;

    /** Sends SIGHUP, and waits until the daemon has read its configuration again. */
    bool Reload() const;

    /** Sends a signal and waits for the end: the exit code, or minus a signal. Nothing: it runs after `limit`. */
    std::optional<int> Stop(int signal = SIGTERM, std::chrono::milliseconds limit = std::chrono::seconds(2));

    /** Waits for its end without a signal. As Stop(). */
    std::optional<int> End(std::chrono::milliseconds limit = kPatience);

    /** What it wrote to its log. */
    std::string Log() const;

    /** How many descriptors it holds, and how much memory of its own, in KiB. */
    std::size_t Descriptors() const;
    long Memory() const;

    static constexpr const char kLog[] = "/run/ardvrelayd.log";

private:
    pid_t pid_ = -1;
};

}  // namespace ardv::test
