// SPDX-License-Identifier: Apache-2.0
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <ardv/system_service.h>

#include "platform/linux/error.h"

namespace ARDV::Platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr const char* kDestination = "org.freedesktop.systemd1";
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";
constexpr const char* kNoSuchUnit = "org.freedesktop.systemd1.NoSuchUnit";

/// For one answer of the manager; the bus itself would allow 25 s, too long for callers that only want to know a state.
constexpr microseconds kAnswerLimit = std::chrono::seconds(10);

/// For the end of a job. A little more than the 90 s after which the manager gives up by itself.
constexpr microseconds kJobLimit = std::chrono::seconds(ARDV_SYSTEMD_JOB_SECONDS);

constexpr std::size_t kMaxUnitName = 255;
constexpr std::string_view kUnitCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789:-_.\\@";
constexpr std::array<std::string_view, 11> kUnitSuffixes = {".service",   ".socket", ".device", ".mount",
                                                            ".automount", ".swap",   ".target", ".path",
                                                            ".timer",     ".slice",  ".scope"};

struct ErrorName {
    const char* name;
    int code;
};

/// Beginnings of errors that tell of no manager: the connection's own, and that the bus couldn't start one.
constexpr std::array<std::string_view, 2> kNobodyThere = {"System.Error.", "org.freedesktop.DBus.Error.Spawn."};

/// What the manager's and the bus's errors mean for a caller; any other is ARDV_ERR_SERVICE_FAILED.
constexpr std::array<ErrorName, 13> kErrorNames = {{
    {kNoSuchUnit, ARDV_ERR_NOT_FOUND},
    {SD_BUS_ERROR_FILE_NOT_FOUND, ARDV_ERR_NOT_FOUND},
    {SD_BUS_ERROR_ACCESS_DENIED, ARDV_ERR_ACCESS_DENIED},
    {SD_BUS_ERROR_AUTH_FAILED, ARDV_ERR_ACCESS_DENIED},
    {SD_BUS_ERROR_INTERACTIVE_AUTHORIZATION_REQUIRED, ARDV_ERR_ACCESS_DENIED},
    {SD_BUS_ERROR_INVALID_ARGS, ARDV_ERR_INVALID_ARGUMENT},
    {SD_BUS_ERROR_NO_MEMORY, ARDV_ERR_NO_MEMORY},
    {SD_BUS_ERROR_SERVICE_UNKNOWN, ARDV_ERR_NO_ANSWER},
    {SD_BUS_ERROR_NAME_HAS_NO_OWNER, ARDV_ERR_NO_ANSWER},
    {SD_BUS_ERROR_NO_REPLY, ARDV_ERR_NO_ANSWER},
    {SD_BUS_ERROR_TIMEOUT, ARDV_ERR_NO_ANSWER},
    {SD_BUS_ERROR_DISCONNECTED, ARDV_ERR_NO_ANSWER},
    {SD_BUS_ERROR_NO_SERVER, ARDV_ERR_NO_ANSWER},
}};

struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }  // at once, whatever is unsent
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
    void operator()(char* text) const { std::free(text); }
};

using Bus = std::unique_ptr<sd_bus, Release>;
using Message = std::unique_ptr<sd_bus_message, Release>;
using Slot = std::unique_ptr<sd_bus_slot, Release>;
using Text = std::unique_ptr<char, Release>;

/// The error of a connection that can't be made or is lost.
Error ConnectionError(int result, SourcePlace where = SourcePlace::Here()) {
    const Error error = ErrnoError(-result, where);
    const bool isSpecial = error.code == ARDV_ERR_ACCESS_DENIED || error.code == ARDV_ERR_NO_MEMORY;
    return isSpecial ? error : MakeError(ARDV_ERR_NO_ANSWER, where);
}

/// What a call over the bus answers instead of a result.
class BusError {
public:
    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error* Slot() { return &error_; }

    /// `result` is that of the call: without an answer from the other side, it tells what is wrong with the connection.
    Error Reason(int result, SourcePlace where = SourcePlace::Here()) const {
        const std::string_view name = error_.name == nullptr ? kNobodyThere.front() : error_.name;
        if (std::any_of(kNobodyThere.begin(), kNobodyThere.end(),
                        [name](std::string_view start) { return name.starts_with(start); })) {
            return ConnectionError(result, where);
        }
        const auto* row = std::find_if(kErrorNames.begin(), kErrorNames.end(), [this](const ErrorName& entry) {
            return sd_bus_error_has_name(&error_, entry.name) > 0;
        });
        return MakeError(row == kErrorNames.end() ? ARDV_ERR_SERVICE_FAILED : row->code, where);
    }

private:
    sd_bus_error error_{};
};

bool HasUnitSuffix(std::string_view name) {
    return std::any_of(kUnitSuffixes.begin(), kUnitSuffixes.end(), [name](std::string_view suffix) {
        return name.size() > suffix.size() && name.ends_with(suffix);
    });
}

Result<std::string> UnitName(const char* unit) {
    const std::string_view name = unit == nullptr ? std::string_view() : unit;
    if (name.empty() || name.size() > kMaxUnitName ||
        name.find_first_not_of(kUnitCharacters) != std::string_view::npos) {
        return MakeError(ARDV_ERR_INVALID_ARGUMENT);
    }
    std::string whole = std::string(name) + (HasUnitSuffix(name) ? "" : ".service");
    return whole.size() <= kMaxUnitName ? Result(std::move(whole)) : MakeError(ARDV_ERR_INVALID_ARGUMENT);
}

/// Handles what has come over the bus, or waits for it until `end`.
Failure Proceed(const Bus& bus, Clock::time_point end) {
    int result = sd_bus_process(bus.get(), nullptr);
    const auto left = std::chrono::ceil<microseconds>(end - Clock::now());
    if (left <= microseconds::zero()) {
        return MakeError(ARDV_ERR_NO_ANSWER);
    }
    if (result == 0) {
        result = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
    }
    return result < 0 && result != -EINTR ? Failure(ConnectionError(result)) : Failure{};
}

/// Connects and waits until the bus has let this process in: the limit of a call doesn't hold for that, and the bus
/// itself would allow 90 s.
Result<Bus> Connect() {
    const Clock::time_point end = Clock::now() + kAnswerLimit;
    sd_bus* opened = nullptr;
    int result = sd_bus_open_system(&opened);
    Bus bus(opened);
    if (result >= 0) {
        result = sd_bus_set_method_call_timeout(bus.get(), static_cast<std::uint64_t>(kAnswerLimit.count()));
    }
    if (result < 0) {
        return ConnectionError(result);
    }
    while (sd_bus_is_ready(bus.get()) == 0) {
        if (const Failure failure = Proceed(bus, end)) {
            return *failure;
        }
    }
    return bus;
}

/// Calls a method of the manager; `types` and `arguments` as in sd_bus_call_method.
template <typename... Arguments>
Result<Message> Call(const Bus& bus, const char* method, const char* types, Arguments... arguments) {
    BusError error;
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call_method(bus.get(), kDestination, kManagerPath, kManager, method, error.Slot(), &reply,
                                          types, arguments...);
    return result < 0 ? Result<Message>(error.Reason(result)) : Result(Message(reply));
}

/// One job of the manager: what it is called and, when it is over, how it ended.
struct Job {
    std::string path;
    std::string result;
};

int NoteRemovedJob(sd_bus_message* signal, void* data, sd_bus_error*) {
    Job& job = *static_cast<Job*>(data);
    std::uint32_t id = 0;
    const char* path = nullptr;
    const char* unit = nullptr;
    const char* result = nullptr;
    if (sd_bus_message_read(signal, "uoss", &id, &path, &unit, &result) > 0 && job.path == path) {
        job.result = result;
    }
    return 0;
}

Failure WaitFor(const Bus& bus, const Job& job) {
    const Clock::time_point end = Clock::now() + kJobLimit;
    while (job.result.empty()) {
        if (const Failure failure = Proceed(bus, end)) {
            return failure;
        }
    }
    return job.result == "done" ? Failure{} : MakeError(ARDV_ERR_SERVICE_FAILED);
}

/// Has the manager do a job with a unit and waits for its end. The signal of the end is awaited from before the order,
/// since a short job is over before the order is answered.
Failure DoJob(const char* method, const std::string& unit) {
    const Result<Bus> bus = Connect();
    if (!bus) {
        return bus.Reason();
    }
    Job job;
    sd_bus_slot* slot = nullptr;
    const int matched = sd_bus_match_signal(bus->get(), &slot, kDestination, kManagerPath, kManager, "JobRemoved",
                                            &NoteRemovedJob, &job);
    const Slot match(slot);
    if (matched < 0) {
        return ConnectionError(matched);
    }
    if (const Result<Message> subscribed = Call(*bus, "Subscribe", ""); !subscribed) {
        return subscribed.Reason();
    }
    const Result<Message> ordered = Call(*bus, method, "ss", unit.c_str(), "replace");
    if (!ordered) {
        return ordered.Reason();
    }
    const char* path = nullptr;
    if (sd_bus_message_read(ordered->get(), "o", &path) <= 0) {
        return MakeError(ARDV_ERR_SERVICE_FAILED);
    }
    job.path = path;
    return WaitFor(*bus, job);
}

Failure ReadUnitsAnew(const Bus& bus) {
    const Result<Message> reloaded = Call(bus, "Reload", "");
    return reloaded ? Failure{} : reloaded.Reason();
}

Failure Enable(const std::string& unit) {
    const Result<Bus> bus = Connect();
    if (!bus) {
        return bus.Reason();
    }
    const Result<Message> enabled = Call(*bus, "EnableUnitFiles", "asbb", 1, unit.c_str(), 0, 0);
    if (!enabled) {
        return enabled.Reason();
    }
    int isInstallable = 0;
    if (sd_bus_message_read(enabled->get(), "b", &isInstallable) <= 0 || isInstallable == 0) {
        return MakeError(ARDV_ERR_SERVICE_FAILED);
    }
    return ReadUnitsAnew(*bus);
}

/// A unit that isn't there needn't be kept from starting.
Failure Disable(const std::string& unit) {
    const Result<Bus> bus = Connect();
    if (!bus) {
        return bus.Reason();
    }
    const Result<Message> disabled = Call(*bus, "DisableUnitFiles", "asb", 1, unit.c_str(), 0);
    if (!disabled) {
        return disabled.Reason().code == ARDV_ERR_NOT_FOUND ? Failure{} : disabled.Reason();
    }
    return ReadUnitsAnew(*bus);
}

Failure Start(const std::string& unit) {
    return DoJob("StartUnit", unit);
}

/// A unit that the manager doesn't know has nothing to stop.
Failure Stop(const std::string& unit) {
    Failure failure = DoJob("StopUnit", unit);
    return failure && failure->code == ARDV_ERR_NOT_FOUND ? Failure{} : failure;
}

Failure Reload(const std::string& unit) {
    return DoJob("ReloadUnit", unit);
}

/// The unit's state, or the empty text when the manager doesn't know the unit: it forgets those that are idle.
Result<std::string> ActiveState(const std::string& unit) {
    const Result<Bus> bus = Connect();
    if (!bus) {
        return bus.Reason();
    }
    const Result<Message> found = Call(*bus, "GetUnit", "s", unit.c_str());
    if (!found) {
        return found.Reason().code == ARDV_ERR_NOT_FOUND ? Result(std::string()) : found.Reason();
    }
    const char* path = nullptr;
    if (sd_bus_message_read(found->get(), "o", &path) <= 0) {
        return MakeError(ARDV_ERR_SERVICE_FAILED);
    }
    BusError error;
    char* state = nullptr;
    const int result =
        sd_bus_get_property_string(bus->get(), kDestination, path, kUnit, "ActiveState", error.Slot(), &state);
    const Text owner(state);
    return result < 0 ? Result<std::string>(error.Reason(result)) : Result(std::string(state));
}

int DoWith(const char* unit, Failure (*action)(const std::string&)) {
    return Guarded([=] {
        const Result<std::string> name = UnitName(unit);
        const Failure failure = name ? action(*name) : name.Reason();
        return failure ? Fail(*failure) : 0;
    });
}

int IsActive(const char* unit) {
    const Result<std::string> name = UnitName(unit);
    const Result<std::string> state = name ? ActiveState(*name) : name.Reason();
    if (!state) {
        return Fail(state.Reason());
    }
    return *state == "active" || *state == "reloading" ? 1 : 0;
}

}  // namespace

}  // namespace ARDV::Platform

using namespace ARDV::Platform;

int ARDVSystemdEnable(const char* unit) {
    return DoWith(unit, &Enable);
}

int ARDVSystemdDisable(const char* unit) {
    return DoWith(unit, &Disable);
}

int ARDVSystemdStart(const char* unit) {
    return DoWith(unit, &Start);
}

int ARDVSystemdStop(const char* unit) {
    return DoWith(unit, &Stop);
}

int ARDVSystemdReload(const char* unit) {
    return DoWith(unit, &Reload);
}

int ARDVSystemdActiveStatusGet(const char* unit) {
    return Guarded([=] { return IsActive(unit); });
}
