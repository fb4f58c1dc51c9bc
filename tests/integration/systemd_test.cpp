// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <ardv/error.h>
#include <ardv/system_service.h>

#include "support/file_text.h"
#include "support/program.h"
#include "support/shifted_clock.h"
#include "support/systemd_box.h"
#include "unit/platform/child_process.h"

namespace {

using ARDV::Platform::Test::ChildProcess;
using ardv::test::LetPass;
using ardv::test::OpenDescriptors;
using ardv::test::ReadText;
using ardv::test::RunProgram;
using ardv::test::SystemdBox;

constexpr const char* kReloads = "/run/reloads";
constexpr const char* kEnabledLink = "/etc/systemd/system/example.target.wants/example.service";

/// A service made of these lines.
std::string Service(const std::string& lines) {
    return "[Unit]\nDefaultDependencies=no\n[Service]\n" + lines + "\n[Install]\nWantedBy=example.target\n";
}

/// One that runs until it is stopped, and notes each reload.
std::string LastingService() {
    return Service("ExecStart=/bin/sleep infinity\nExecReload=/bin/sh -c 'echo again >>/run/reloads'");
}

/// A gate at which a unit waits until the test opens it; the test waits until the unit is there.
class Gate {
public:
    Gate() {
        mkfifo("/run/arrived", 0600);
        mkfifo("/run/gate", 0600);
    }
    /// The command line of the unit's side.
    static std::string Command() { return "/bin/sh -c 'echo >/run/arrived; read opened </run/gate'"; }
    void WaitForUnit() { std::ifstream("/run/arrived").get(); }
    void Open() { std::ofstream("/run/gate") << "open\n"; }
};

/// A function that waits for the manager, called aside.
std::future<int> Aside(int (*function)(const char*), const char* unit, int& code) {
    return std::async(std::launch::async, [=, &code] {
        const int result = function(unit);
        code = ALIBCErrGet();
        return result;
    });
}

/// The first line of what systemctl says. The manager's private socket, which it would take, doesn't serve other
/// process namespaces.
std::string Systemctl(std::vector<std::string> words) {
    words.insert(words.begin(), {"env", "SYSTEMCTL_FORCE_BUS=1", "systemctl"});
    const std::string text = RunProgram(words).out;
    return text.substr(0, text.find('\n'));
}

/// A property of a unit in the manager's own words.
std::string Shown(const std::string& unit, const std::string& property) {
    return Systemctl({"show", "--value", "-p", property, unit});
}

std::string IsEnabled(const std::string& unit) {
    return Systemctl({"is-enabled", unit});
}

class Systemd : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = SystemdBox::WhyNot();
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        box_ = std::make_unique<SystemdBox>();
        box_->AddUnit("example.service", LastingService());
    }

    void ExpectFailure(int result, int code) {
        EXPECT_LT(result, 0);
        EXPECT_EQ(ALIBCErrGet(), code);
        EXPECT_STREQ(ALIBCErrorGetFile(), "systemd.cpp");
        EXPECT_GT(ALIBCErrorGetLine(), 0);
    }

    std::unique_ptr<SystemdBox> box_;
};

}  // namespace

TEST_F(Systemd, StartsAService) {
    EXPECT_EQ(ARDVSystemdStart("example.service"), 0) << box_->Console();
    EXPECT_EQ(Shown("example.service", "ActiveState"), "active");
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NONE);
}

TEST_F(Systemd, LeavesARunningServiceAloneWhenItIsStartedAgain) {
    EXPECT_EQ(ARDVSystemdStart("example.service"), 0);
    const std::string process = Shown("example.service", "MainPID");
    EXPECT_EQ(ARDVSystemdStart("example.service"), 0);
    EXPECT_EQ(Shown("example.service", "MainPID"), process);
}

TEST_F(Systemd, TakesAServiceForANameWithoutAKindOfUnit) {
    box_->AddUnit("two.words.service", LastingService());
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    EXPECT_EQ(ARDVSystemdStart("two.words"), 0);
    EXPECT_EQ(Shown("example.service", "ActiveState"), "active");
    EXPECT_EQ(Shown("two.words.service", "ActiveState"), "active");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("two.words"), 1);
}

TEST_F(Systemd, StartsOtherKindsOfUnit) {
    box_->AddUnit("example.target", "[Unit]\nDefaultDependencies=no\n");
    EXPECT_EQ(ARDVSystemdStart("example.target"), 0);
    EXPECT_EQ(Shown("example.target", "ActiveState"), "active");
    EXPECT_EQ(Shown("example.service", "ActiveState"), "inactive");
}

TEST_F(Systemd, WaitsUntilAForkingServiceIsReady) {
    const std::string start = "/bin/sh -c '(exec sleep infinity) & echo $! >/run/forked.pid; touch /run/ready'";
    box_->AddUnit("forking.service", Service("Type=forking\nPIDFile=/run/forked.pid\nExecStart=" + start));
    EXPECT_EQ(ARDVSystemdStart("forking"), 0) << box_->Console();
    EXPECT_TRUE(std::filesystem::exists("/run/ready"));
    EXPECT_EQ(ARDVSystemdActiveStatusGet("forking"), 1);
}

TEST_F(Systemd, WaitsUntilAStartIsOver) {
    Gate gate;
    int code = ARDV_ERR_NONE;
    box_->AddUnit("slow.service", Service("Type=oneshot\nRemainAfterExit=yes\nExecStart=" + Gate::Command()));
    std::future<int> started = Aside(&ARDVSystemdStart, "slow", code);
    gate.WaitForUnit();
    EXPECT_EQ(Shown("slow.service", "ActiveState"), "activating");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("slow"), 0);
    gate.Open();
    EXPECT_EQ(started.get(), 0);
    EXPECT_EQ(ARDVSystemdActiveStatusGet("slow"), 1);
}

TEST_F(Systemd, SaysWhenAServiceDoesNotStart) {
    box_->AddUnit("failing.service", Service("Type=oneshot\nExecStart=/bin/false"));
    ExpectFailure(ARDVSystemdStart("failing"), ARDV_ERR_SERVICE_FAILED);
    EXPECT_EQ(Shown("failing.service", "ActiveState"), "failed");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("failing"), 0);
}

TEST_F(Systemd, SaysWhenAServiceDoesNotStartInItsTime) {
    box_->AddUnit("late.service", Service("Type=oneshot\nTimeoutStartSec=200ms\nExecStart=/bin/sleep infinity"));
    ExpectFailure(ARDVSystemdStart("late"), ARDV_ERR_SERVICE_FAILED);
}

TEST_F(Systemd, SaysThatThereIsNoUnitToStartReloadOrEnable) {
    ExpectFailure(ARDVSystemdStart("absent"), ARDV_ERR_NOT_FOUND);
    ExpectFailure(ARDVSystemdReload("absent"), ARDV_ERR_NOT_FOUND);
    ExpectFailure(ARDVSystemdEnable("absent"), ARDV_ERR_NOT_FOUND);
}

TEST_F(Systemd, RefusesAMaskedUnit) {
    std::filesystem::create_symlink("/dev/null", std::string(SystemdBox::kUnitFolder) + "/masked.service");
    ExpectFailure(ARDVSystemdStart("masked"), ARDV_ERR_SERVICE_FAILED);
    ExpectFailure(ARDVSystemdEnable("masked"), ARDV_ERR_SERVICE_FAILED);
}

TEST_F(Systemd, RefusesATemplateWithoutAnInstance) {
    box_->AddUnit("many@.service", LastingService());
    ExpectFailure(ARDVSystemdStart("many@"), ARDV_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(ARDVSystemdStart("many@one"), 0);
    EXPECT_EQ(Shown("many@one.service", "ActiveState"), "active");
}

TEST_F(Systemd, StopsAService) {
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    EXPECT_EQ(ARDVSystemdStop("example"), 0);
    EXPECT_EQ(Shown("example.service", "ActiveState"), "inactive");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("example"), 0);
}

TEST_F(Systemd, HasNothingToStopWhereNothingRuns) {
    EXPECT_EQ(ARDVSystemdStop("example"), 0);
    EXPECT_EQ(ARDVSystemdStop("absent"), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NONE);
}

TEST_F(Systemd, ReloadsAServiceAndWaitsForTheEnd) {
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    EXPECT_EQ(ARDVSystemdReload("example"), 0);
    EXPECT_EQ(ReadText(kReloads), "again\n");
    EXPECT_EQ(ARDVSystemdReload("example.service"), 0);
    EXPECT_EQ(ReadText(kReloads), "again\nagain\n");
}

TEST_F(Systemd, CountsAServiceThatReloadsAsActive) {
    Gate gate;
    int code = ARDV_ERR_NONE;
    box_->AddUnit("slow.service", Service("ExecStart=/bin/sleep infinity\nExecReload=" + Gate::Command()));
    EXPECT_EQ(ARDVSystemdStart("slow"), 0);
    std::future<int> reloaded = Aside(&ARDVSystemdReload, "slow", code);
    gate.WaitForUnit();
    EXPECT_EQ(Shown("slow.service", "ActiveState"), "reloading");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("slow"), 1);
    gate.Open();
    EXPECT_EQ(reloaded.get(), 0);
}

TEST_F(Systemd, DoesNotReloadAServiceThatDoesNotRun) {
    ExpectFailure(ARDVSystemdReload("example"), ARDV_ERR_SERVICE_FAILED);
    EXPECT_EQ(ReadText(kReloads), "");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("example"), 0);
}

TEST_F(Systemd, SaysWhenAReloadFails) {
    box_->AddUnit("stubborn.service", Service("ExecStart=/bin/sleep infinity\nExecReload=/bin/false"));
    box_->AddUnit("simple.service", Service("ExecStart=/bin/sleep infinity"));
    EXPECT_EQ(ARDVSystemdStart("stubborn"), 0);
    EXPECT_EQ(ARDVSystemdStart("simple"), 0);
    ExpectFailure(ARDVSystemdReload("stubborn"), ARDV_ERR_SERVICE_FAILED);
    ExpectFailure(ARDVSystemdReload("simple"), ARDV_ERR_SERVICE_FAILED);
}

TEST_F(Systemd, EnablesAServiceWithoutStartingIt) {
    EXPECT_EQ(IsEnabled("example.service"), "disabled");
    EXPECT_EQ(ARDVSystemdEnable("example"), 0);
    EXPECT_EQ(std::filesystem::read_symlink(kEnabledLink), "/etc/systemd/system/example.service");
    EXPECT_EQ(IsEnabled("example.service"), "enabled");
    EXPECT_EQ(ARDVSystemdEnable("example"), 0);
    EXPECT_EQ(ARDVSystemdActiveStatusGet("example"), 0);
}

TEST_F(Systemd, HasTheManagerReadUnitFilesAnewAfterEnablingAndDisabling) {
    box_->AddUnit("example.target", "[Unit]\nDefaultDependencies=no\n");
    EXPECT_EQ(ARDVSystemdStart("example.target"), 0);
    EXPECT_EQ(Shown("example.target", "Wants"), "");
    EXPECT_EQ(ARDVSystemdEnable("example"), 0);
    EXPECT_EQ(Shown("example.target", "Wants"), "example.service");
    EXPECT_EQ(ARDVSystemdDisable("example"), 0);
    EXPECT_EQ(Shown("example.target", "Wants"), "");
}

TEST_F(Systemd, RefusesToEnableAServiceThatSaysNothingOfItsStart) {
    box_->AddUnit("static.service", "[Service]\nExecStart=/bin/true\n");
    ExpectFailure(ARDVSystemdEnable("static"), ARDV_ERR_SERVICE_FAILED);
}

TEST_F(Systemd, DisablesAServiceWithoutStoppingIt) {
    EXPECT_EQ(ARDVSystemdEnable("example"), 0);
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    EXPECT_EQ(ARDVSystemdDisable("example"), 0);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(kEnabledLink)));
    EXPECT_EQ(IsEnabled("example.service"), "disabled");
    EXPECT_EQ(ARDVSystemdActiveStatusGet("example"), 1);
}

TEST_F(Systemd, HasNothingToDisableWhereNothingIsEnabled) {
    EXPECT_EQ(ARDVSystemdDisable("example"), 0);
    EXPECT_EQ(ARDVSystemdDisable("absent"), 0);
}

TEST_F(Systemd, TakesAnAbsentUnitForInactive) {
    EXPECT_EQ(ARDVSystemdActiveStatusGet("absent"), 0);
    EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NONE);
}

TEST_F(Systemd, LetsAnybodyAskAndNobodyElseSwitch) {
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    const auto asNobody = [](int (*function)(const char*)) {
        return ChildProcess([function] {
                   constexpr uid_t kNobody = 65534;
                   const int result = setuid(kNobody) == 0 ? function("example") : 2;
                   return result < 0 ? ALIBCErrGet() >> 8 : result;
               })
            .Wait();
    };
    EXPECT_EQ(asNobody(&ARDVSystemdActiveStatusGet), 1);
    for (const auto function : {&ARDVSystemdStart, &ARDVSystemdStop, &ARDVSystemdReload, &ARDVSystemdEnable}) {
        EXPECT_EQ(asNobody(function), ARDV_ERR_ACCESS_DENIED >> 8);
    }
    EXPECT_EQ(ARDVSystemdActiveStatusGet("example"), 1);
}

TEST_F(Systemd, LeavesNoDescriptorOpen) {
    const std::size_t before = OpenDescriptors();
    ARDVSystemdStart("example");
    ARDVSystemdStart("absent");
    ARDVSystemdReload("example");
    ARDVSystemdActiveStatusGet("example");
    ARDVSystemdEnable("example");
    ARDVSystemdDisable("example");
    ARDVSystemdStop("example");
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Systemd, GivesUpWhenTheManagerGoesAway) {
    Gate gate;
    int code = ARDV_ERR_NONE;
    box_->AddUnit("slow.service", Service("Type=oneshot\nExecStart=" + Gate::Command()));
    std::future<int> started = Aside(&ARDVSystemdStart, "slow", code);
    gate.WaitForUnit();
    box_.reset();
    EXPECT_LT(started.get(), 0);
    EXPECT_EQ(code, ARDV_ERR_NO_ANSWER);
}

TEST_F(Systemd, LeavesNoControlGroupOfItsBox) {
    const std::string group = box_->ControlGroup();
    EXPECT_TRUE(std::filesystem::exists(group));
    EXPECT_EQ(ARDVSystemdStart("example"), 0);
    box_.reset();
    EXPECT_FALSE(std::filesystem::exists(group));
}

TEST_F(Systemd, LeavesNoControlGroupOfItsBoxWhenTheTestDies) {
    box_.reset();
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ChildProcess test([&] {
        const SystemdBox box;
        const std::string group = box.ControlGroup() + "\n";
        return write(ends[1], group.data(), group.size()) > 0 ? raise(SIGKILL) : 1;
    });
    EXPECT_EQ(test.Wait(), 128 + SIGKILL);
    close(ends[1]);
    std::string group;
    for (char c = 0; read(ends[0], &c, 1) == 1;) {  // ends when the last of the box's processes has
        group += c;
    }
    ASSERT_TRUE(group.ends_with('\n'));
    EXPECT_FALSE(std::filesystem::exists(group.substr(0, group.size() - 1)));
}

namespace {

using Function = int (*)(const char*);

constexpr std::array<Function, 6> kFunctions = {&ARDVSystemdEnable, &ARDVSystemdDisable, &ARDVSystemdStart,
                                                &ARDVSystemdStop,   &ARDVSystemdReload,  &ARDVSystemdActiveStatusGet};

}  // namespace

TEST(SystemdNames, AreRefusedUnlessTheyAreAUnits) {
    const std::string tooLong(248, 'a');
    for (const Function function : kFunctions) {
        for (const char* name : {"", "a b", "a/b", "../a", "a\nb", "a;b", "\xc3\xa9", "a*", tooLong.c_str()}) {
            EXPECT_LT(function(name), 0) << name;
            EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT) << name;
        }
        EXPECT_LT(function(nullptr), 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_INVALID_ARGUMENT);
    }
}

TEST(SystemdWithoutBus, DoesNotAnswer) {
    for (const Function function : kFunctions) {
        EXPECT_LT(function("example"), 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_ANSWER);
        EXPECT_STREQ(ALIBCErrorGetFile(), "systemd.cpp");
    }
}

namespace {

/// A bus that takes callers and never lets one in.
class SilentBus {
public:
    SilentBus() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string_view(kSilentBus).copy(address.sun_path, sizeof address.sun_path - 1);
        if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd_, 1) != 0) {
            throw std::runtime_error("silent bus: cannot listen");
        }
        setenv("DBUS_SYSTEM_BUS_ADDRESS", (std::string("unix:path=") + kSilentBus).c_str(), 1);
    }
    SilentBus(const SilentBus&) = delete;
    SilentBus& operator=(const SilentBus&) = delete;
    ~SilentBus() { close(fd_); }

    /// Takes a caller, lets time pass, says half a word so that the caller wakes up, and tells whether it is gone soon.
    bool IsLeftAfter(std::chrono::seconds time) const {
        constexpr int kSoon = 5000;  // milliseconds
        const int caller = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        LetPass(time);
        [[maybe_unused]] const ssize_t count = ::send(caller, "O", 1, MSG_NOSIGNAL);
        pollfd entry{caller, POLLRDHUP, 0};
        const bool isLeft = poll(&entry, 1, kSoon) == 1;
        close(caller);
        return isLeft;
    }

private:
    static constexpr const char* kSilentBus = "/run/silent-bus";

    int fd_;
};

}  // namespace

TEST(SystemdOnASilentBus, DoesNotAnswerWithinTenSeconds) {
    const SilentBus bus;
    for (const Function function : kFunctions) {
        std::future<bool> isLeft =
            std::async(std::launch::async, [&bus] { return bus.IsLeftAfter(std::chrono::seconds(10)); });
        EXPECT_LT(function("example"), 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_ANSWER);
        EXPECT_TRUE(isLeft.get());
    }
}

TEST(SystemdWithoutManager, DoesNotAnswer) {
    std::filesystem::create_directories("/run/dbus");
    const ardv::test::ProgramResult bus =
        RunProgram({"dbus-daemon", "--system", "--fork", "--nopidfile", "--print-pid"});
    ASSERT_EQ(bus.exitCode, 0) << bus.err;
    for (const Function function : kFunctions) {
        EXPECT_LT(function("example"), 0);
        EXPECT_EQ(ALIBCErrGet(), ARDV_ERR_NO_ANSWER);
    }
    kill(std::stoi(bus.out), SIGKILL);
}
