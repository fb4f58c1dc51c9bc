// SPDX-License-Identifier: Apache-2.0
#include "service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_log.h"
#include "support/scratch_folder.h"
#include "unit/ardvrelayd/daemon_loop.h"

using namespace ardv::test;
using namespace ardv::daemon;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::StartsWith;

namespace {

/** The service manager's side: a socket, and the variables by which a service finds it. */
class Listener {
public:
    explicit Listener(std::string name) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), size), 0);
    }
    ~Listener() { close(fd_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /** What has come since the last call. */
    std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        std::array<char, 4096> text = {};
        for (ssize_t count = 0; (count = recv(fd_, text.data(), text.size(), 0)) >= 0;) {
            messages.emplace_back(text.data(), static_cast<std::size_t>(count));
        }
        return messages;
    }

private:
    int fd_;
};

void ExpectNoVariables() {
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
        EXPECT_EQ(getenv(name), nullptr) << name;
    }
}

bool IsWell(std::string& /*why*/) {
    return true;
}

void SetWatchdog(std::chrono::microseconds interval, pid_t process = getpid()) {
    setenv("WATCHDOG_USEC", std::to_string(interval.count()).c_str(), 1);
    setenv("WATCHDOG_PID", std::to_string(process).c_str(), 1);
}

/** What is left of the messages when those to the watchdog are taken out. */
std::size_t Feedings(const std::vector<std::string>& messages) {
    return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), "WATCHDOG=1"));
}

}  // namespace

TEST(ServiceManager, IsToldHowTheDaemonIs) {
    const Listener listener("/run/notify");
    EventLoop loop;
    ServiceManager manager(loop, IsWell);
    EXPECT_TRUE(manager.IsListening());
    ExpectNoVariables();
    manager.Ready();
    manager.Status("login\nsince now");
    manager.Stopping();
    EXPECT_THAT(listener.Messages(), ElementsAre("READY=1", "STATUS=login since now", "STOPPING=1"));
}

TEST(ServiceManager, IsToldWhenAReloadBegins) {
    const Listener listener("/run/notify");
    EventLoop loop;
    ServiceManager manager(loop, IsWell);
    const auto now = [] { return std::chrono::steady_clock::now().time_since_epoch() / 1us; };
    const auto before = now();
    manager.Reloading();
    const auto messages = listener.Messages();
    ASSERT_THAT(messages, ElementsAre(StartsWith("RELOADING=1\nMONOTONIC_USEC=")));
    EXPECT_THAT(std::stoll(messages[0].substr(messages[0].rfind('=') + 1)), AllOf(Ge(before), Le(now())));
}

TEST(ServiceManager, IsFoundByAnAbstractName) {
    const Listener listener("@ardv/notify");
    EventLoop loop;
    ServiceManager manager(loop, IsWell);
    manager.Ready();
    EXPECT_THAT(listener.Messages(), ElementsAre("READY=1"));
}

TEST(ServiceManager, IsNotNeeded) {
    unsetenv("NOTIFY_SOCKET");
    const auto before = OpenDescriptors();
    EventLoop loop;
    const auto withLoop = OpenDescriptors();
    const CapturedLog log;
    const auto withLog = OpenDescriptors();
    ServiceManager manager(loop, IsWell);
    EXPECT_EQ(OpenDescriptors(), withLog);
    EXPECT_GT(withLoop, before);
    manager.Ready();
    manager.Reloading();
    manager.Status("x");
    manager.Stopping();
    RunFor(loop, 50ms);
    EXPECT_FALSE(manager.IsListening());
    EXPECT_EQ(loop.Turns(), 1U);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ServiceManager, MustHaveAnAddress) {
    for (const std::string name : {"", "/", "relative", "@", "vsock:2:1234"}) {
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        EventLoop loop;
        const CapturedLog log;
        const ServiceManager manager(loop, IsWell);
        EXPECT_FALSE(manager.IsListening()) << name;
        EXPECT_THAT(log.Lines(), IsEmpty()) << name;
        ExpectNoVariables();
    }
    setenv("NOTIFY_SOCKET", std::string(200, '/').c_str(), 1);
    EventLoop loop;
    EXPECT_FALSE(ServiceManager(loop, IsWell).IsListening());
}

TEST(ServiceManager, ThatIsNotThereIsReported) {
    setenv("NOTIFY_SOCKET", "/run/nobody", 1);
    EventLoop loop;
    const CapturedLog log(3);
    ServiceManager manager(loop, IsWell);
    EXPECT_THAT(
        log.Messages(),
        ElementsAre("service_manager.cpp cannot reach the service manager at /run/nobody: No such file or directory"));
    manager.Ready();
}

TEST(ServiceManager, ThatReadsNothingHoldsNobodyUp) {
    const Listener listener("/run/notify");
    EventLoop loop;
    ServiceManager manager(loop, IsWell);
    const CapturedLog log(3);
    for (int i = 0; i < 10000; ++i) {
        manager.Ready();
    }
    EXPECT_THAT(
        log.Messages(),
        testing::Contains("service_manager.cpp the service manager was not told: Resource temporarily unavailable"));
}

TEST(ServiceManager, IsNotForChildren) {
    const Listener listener("/run/notify");
    SetWatchdog(1h);
    EventLoop loop;
    const ServiceManager manager(loop, IsWell);
    ExpectNoVariables();
    for (int fd = 3; fd < 64; ++fd) {
        int type = 0;
        socklen_t size = sizeof type;
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM) {
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
        }
    }
}

TEST(Watchdog, IsFedAtHalfItsInterval) {
    const Listener listener("/run/notify");
    SetWatchdog(100ms);
    EventLoop loop;
    const ServiceManager manager(loop, IsWell);
    EXPECT_EQ(manager.WatchdogInterval(), 100ms);
    EXPECT_THAT(listener.Messages(), ElementsAre("WATCHDOG=1")) << "at once";
    RunFor(loop, 500ms);
    EXPECT_THAT(Feedings(listener.Messages()), AllOf(Ge(7U), Le(10U)));
}

TEST(Watchdog, IsNotFedWhileTheDaemonIsUnwell) {
    const Listener listener("/run/notify");
    SetWatchdog(20ms);
    EventLoop loop;
    std::optional<std::string> trouble;
    const CapturedLog log(3);
    const ServiceManager manager(loop, [&](std::string& why) {
        why = trouble.value_or("");
        return !trouble;
    });
    trouble = "transfer is lost";
    listener.Messages();
    RunFor(loop, 100ms);
    EXPECT_EQ(Feedings(listener.Messages()), 0U);
    EXPECT_THAT(log.Messages(), ElementsAre("service_manager.cpp the watchdog is not fed: transfer is lost"));
    trouble.reset();
    RunFor(loop, 100ms);
    EXPECT_GE(Feedings(listener.Messages()), 1U) << "it is well again";
    trouble = "once more";
    RunFor(loop, 100ms);
    EXPECT_THAT(log.Messages(), ElementsAre("service_manager.cpp the watchdog is not fed: transfer is lost",
                                            "service_manager.cpp the watchdog is not fed: once more"));
}

TEST(Watchdog, IsNotFedByACheckThatFails) {
    const Listener listener("/run/notify");
    SetWatchdog(20ms);
    EventLoop loop;
    const CapturedLog log(3);
    const ServiceManager manager(loop, [](std::string&) -> bool { throw std::runtime_error("no check"); });
    RunFor(loop, 50ms);
    EXPECT_THAT(listener.Messages(), IsEmpty());
    EXPECT_THAT(log.Messages(), testing::Contains("guarded_call.cpp health check failed: no check"));
    EXPECT_THAT(log.Messages(),
                testing::Contains("service_manager.cpp the watchdog is not fed: the health check failed"));
}

TEST(Watchdog, OfAnotherProcessOrOfNobodyIsLeftAlone) {
    struct Case {
        const char* interval;
        pid_t process;
    };
    for (const auto& [interval, process] :
         {Case{"20000", getpid() + 1}, Case{"0", getpid()}, Case{"-5", getpid()}, Case{"", getpid()},
          Case{"20000x", getpid()}, Case{"99999999999999999999", getpid()}}) {
        const Listener listener("@ardv/" + std::string(interval));
        setenv("WATCHDOG_USEC", interval, 1);
        setenv("WATCHDOG_PID", std::to_string(process).c_str(), 1);
        EventLoop loop;
        const ServiceManager manager(loop, IsWell);
        EXPECT_EQ(manager.WatchdogInterval(), std::nullopt) << interval;
        RunFor(loop, 50ms);
        EXPECT_THAT(listener.Messages(), IsEmpty()) << interval;
        EXPECT_EQ(loop.Turns(), 1U);
        ExpectNoVariables();
    }
}

TEST(Watchdog, IsMeantForTheProcessThatFindsItWithoutANumber) {
    const Listener listener("/run/notify");
    setenv("WATCHDOG_USEC", "1000000", 1);
    EventLoop loop;
    const ServiceManager manager(loop, IsWell);
    EXPECT_EQ(manager.WatchdogInterval(), 1s);
    EXPECT_THAT(listener.Messages(), ElementsAre("WATCHDOG=1"));
}
