// SPDX-License-Identifier: Apache-2.0
#include "support/systemd_box.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "support/deadline.h"
#include "support/file_text.h"
#include "support/handle.h"
#include "support/process.h"

namespace ardv::test {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kDeadline{20};
constexpr std::size_t kUnitFolderBytes = 1048576;

constexpr const char* kStage = "/run/systemd-box";
constexpr const char* kConsole = "/run/systemd-box/console";
constexpr const char* kNotifySocket = "/run/systemd-box/notify";
constexpr const char* kGroupPrefix = "systemd-box.";
constexpr const char* kManagerName = "org.freedesktop.systemd1";

/** The bus without what else a machine starts before it: no journal, devices, temporary files. */
constexpr const char* kNoDefaultDependencies = "[Unit]\nDefaultDependencies=no\n";
constexpr const char* kBootTarget = "[Unit]\nRequires=dbus.service\nAfter=dbus.service\nAllowIsolate=yes\n";

void Must(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error("systemd box: " + what + ": " + std::strerror(errno));
    }
}

/** The mount of the unified control groups; empty without one. */
std::string UnifiedGroups() {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        std::string device;
        std::string folder;
        std::string type;
        words >> device >> folder >> type;
        if (type == "cgroup2") {
            return folder;
        }
    }
    return "";
}

bool IsEmpty(const fs::path& group) {
    std::error_code gone;
    for (const auto& entry : fs::recursive_directory_iterator(group, gone)) {
        if (entry.path().filename() == "cgroup.procs" && std::ifstream(entry.path()).peek() != EOF) {
            return false;
        }
    }
    return true;
}

/** Removes a control group with all those in it, the inner ones first. Leaves one that has processes. */
bool RemoveGroup(const fs::path& group) {
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator(group, gone)) {
        if (entry.is_directory(gone)) {
            RemoveGroup(entry.path());
        }
    }
    return ::rmdir(group.c_str()) == 0 || errno == ENOENT;
}

/** Waits until what was killed has left the group, then removes it. */
void RemoveGroupWhenLeft(const std::string& group) {
    const auto end = Clock::now() + kDeadline;
    const Handle events(::open((group + "/cgroup.events").c_str(), O_RDONLY | O_CLOEXEC));
    while (!RemoveGroup(group) && MillisecondsUntil(end) > 0) {
        std::array<char, 256> ignored{};
        pollfd change{events.Number(), POLLPRI, 0};
        constexpr int kMissedChange = 20;  // one may come between the attempt and the wait
        ::poll(&change, 1, kMissedChange);
        [[maybe_unused]] const ssize_t count = ::pread(events.Number(), ignored.data(), ignored.size(), 0);
    }
}

/** Whether the test whose number is in the name of a group is gone: before its first process a group is empty, too. */
bool IsOfNobody(const std::string& name) {
    const std::string digits = name.starts_with(kGroupPrefix) ? name.substr(std::strlen(kGroupPrefix)) : "";
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    return isNumber && ::kill(static_cast<pid_t>(std::strtol(digits.c_str(), nullptr, 10)), 0) != 0 && errno == ESRCH;
}

/** Groups that tests left which were killed together with their guardians. */
void RemoveAbandonedGroups(const std::string& groups) {
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator(groups, gone)) {
        if (IsOfNobody(entry.path().filename()) && IsEmpty(entry.path())) {
            RemoveGroup(entry.path());
        }
    }
}

void MountNew(const char* type, const char* target, unsigned long flags, const char* options = nullptr) {
    Must(::mount(type, target, type, flags, options) == 0, std::string("mount ") + target);
}

/** A /dev of its own: what belongs to the machine's hardware isn't there. The device of tunnels is, if there is one. */
void MakeDevices() {
    const fs::path stage = fs::path(kStage) / "dev";
    fs::create_directories(stage);
    MountNew("tmpfs", stage.c_str(), MS_NOSUID, "mode=755");
    for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"}) {
        WriteText(stage / name, "");
        Must(::mount((fs::path("/dev") / name).c_str(), (stage / name).c_str(), nullptr, MS_BIND, nullptr) == 0, name);
    }
    if (fs::exists("/dev/net")) {
        fs::create_directories(stage / "net");
        Must(::mount("/dev/net", (stage / "net").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "net");
    }
    fs::create_directories(stage / "pts");
    fs::create_directories(stage / "shm");
    MountNew("devpts", (stage / "pts").c_str(), MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=620");
    MountNew("tmpfs", (stage / "shm").c_str(), MS_NOSUID | MS_NODEV, "mode=1777");
    fs::create_symlink("/proc/self/fd", stage / "fd");
    fs::create_symlink("pts/ptmx", stage / "ptmx");
    Must(::mount(stage.c_str(), "/dev", nullptr, MS_MOVE, nullptr) == 0, "devices");
}

void MountAll() {
    constexpr unsigned long kPlain = MS_NOSUID | MS_NODEV | MS_NOEXEC;
    MountNew("proc", "/proc", kPlain);
    MountNew("sysfs", "/sys", kPlain | MS_RDONLY);
    MountNew("cgroup2", "/sys/fs/cgroup", kPlain);
    // The machine's generators would make units of its disks and services, at each reading of the unit files.
    MountNew("tmpfs", "/usr/lib/systemd/system-generators", kPlain, "mode=755");
    MakeDevices();
}

void UseConsole() {
    const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int output = ::open(kConsole, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    Must(input >= 0 && output >= 0, "console");
    ::dup2(input, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
}

/** Turns this process, the first of its namespaces, into the manager. Only it may be in the group: processes in the
 * topmost group that it sees would keep it from giving controllers to its units. */
[[noreturn]] void BecomeManager(const std::string& group) {
    try {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setsid();
        UseConsole();
        WriteText(group + "/cgroup.procs", "0");
        Must(::unshare(CLONE_NEWCGROUP) == 0, "control group namespace");
        MountAll();
        const std::string notify = std::string("NOTIFY_SOCKET=") + kNotifySocket;
        // "container" has systemd keep away from the machine's hardware and kernel command line.
        std::array<const char*, 4> environment = {"container=systemd-box", "PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                                  notify.c_str(), nullptr};
        std::array<const char*, 7> arguments = {"/lib/systemd/systemd",
                                                "--system",
                                                "--unit=systemd-box.target",
                                                "--log-target=console",
                                                "--log-level=warning",
                                                "--show-status=no",
                                                nullptr};
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::execve(arguments.front(), const_cast<char* const*>(arguments.data()),
                 const_cast<char* const*>(environment.data()));
    } catch (const std::exception& failure) {
        const std::string text = std::string(failure.what()) + "\n";
        [[maybe_unused]] const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
    }
    ::_exit(127);
}

/** Starts the box, and takes it down as soon as `life` says so: when the test ends the box, or when the test dies. */
[[noreturn]] void Guard(const std::string& group, int life) {
    ::setsid();
    constexpr long kNamespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWUTS | CLONE_NEWIPC;
    const pid_t manager = static_cast<pid_t>(::syscall(SYS_clone, kNamespaces | SIGCHLD, 0, 0, 0, 0));
    if (manager == 0) {
        BecomeManager(group);
    }
    if (manager > 0) {
        const Handle ended(OpenProcess(manager));
        std::array<pollfd, 2> events = {{{life, POLLIN, 0}, {ended.Number(), POLLIN, 0}}};
        while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
        }
        ::kill(manager, SIGKILL);  // the kernel ends every process of its namespace with it
        ::waitpid(manager, nullptr, 0);
    }
    RemoveGroupWhenLeft(group);
    ::_exit(0);
}

int OpenNotifySocket() {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(kNotifySocket).copy(address.sun_path, sizeof address.sun_path - 1);
    ::unlink(kNotifySocket);
    Must(fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "notify socket");
    return fd;
}

/** Whether the manager says in time that its start is over. */
bool IsReadyBefore(Clock::time_point end, int notifications, int guardian) {
    std::array<char, 4096> text{};
    for (;;) {
        std::array<pollfd, 2> events = {{{notifications, POLLIN, 0}, {guardian, POLLIN, 0}}};
        if (::poll(events.data(), events.size(), MillisecondsUntil(end)) <= 0 || events[1].revents != 0) {
            return false;
        }
        const ssize_t size = ::recv(notifications, text.data(), text.size(), 0);
        const std::string message = "\n" + std::string(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
        if (message.find("\nREADY=1") != std::string::npos) {
            return true;
        }
    }
}

struct CloseBus {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};

/** Waits until the manager has its name on the bus, which it takes after its start is over. */
void WaitForManagerOnBus(Clock::time_point end) {
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_system(&opened);
    const std::unique_ptr<sd_bus, CloseBus> bus(opened);
    bool isThere = false;
    const auto note = [](sd_bus_message*, void* there, sd_bus_error*) {
        *static_cast<bool*>(there) = true;
        return 0;
    };
    const std::string match = "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
                              std::string(kManagerName) + "'";
    errno = -result;
    Must(result >= 0 && sd_bus_add_match(bus.get(), nullptr, match.c_str(), note, &isThere) >= 0, "bus");
    isThere = sd_bus_get_name_creds(bus.get(), kManagerName, 0, nullptr) >= 0;
    while (!isThere && MillisecondsUntil(end) > 0) {
        const int handled = sd_bus_process(bus.get(), nullptr);
        constexpr std::uint64_t kMicroseconds = 1000;
        if (handled == 0) {
            sd_bus_wait(bus.get(), static_cast<std::uint64_t>(MillisecondsUntil(end)) * kMicroseconds);
        }
        Must(handled >= 0, "bus");
    }
    errno = ETIMEDOUT;
    Must(isThere, "manager on the bus");
}

}  // namespace

std::string SystemdBox::WhyNot() {
    const std::string groups = UnifiedGroups();
    if (groups.empty()) {
        return "needs unified control groups (cgroup2)";
    }
    const std::string probe = groups + "/" + kGroupPrefix + "probe." + std::to_string(::getpid());
    if (::mkdir(probe.c_str(), 0755) != 0) {
        return "needs the right to make control groups";
    }
    ::rmdir(probe.c_str());
    return "";
}

/** The process that starts a box and takes it down. */
class SystemdBox::Guardian {
public:
    explicit Guardian(const std::string& group) : pid_(Start(group, life_)) {}
    Guardian(const Guardian&) = delete;
    Guardian& operator=(const Guardian&) = delete;
    ~Guardian() {
        // A process that the test left behind may hold the pipe open, so that closing alone wouldn't be seen.
        [[maybe_unused]] const ssize_t count = ::write(life_, "x", 1);
        ::close(life_);
        ::waitpid(pid_, nullptr, 0);
    }

    pid_t Pid() const { return pid_; }

private:
    static pid_t Start(const std::string& group, int& life) {
        std::array<int, 2> ends{};
        Must(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
        const pid_t guardian = ::fork();
        if (guardian == 0) {
            ::close(ends[1]);
            Guard(group, ends[0]);
        }
        ::close(ends[0]);
        life = ends[1];
        Must(guardian > 0, "guardian");
        return guardian;
    }

    int life_ = -1;  ///< the guardian takes the box down when this is closed or written to
    pid_t pid_;
};

SystemdBox::SystemdBox() : group_(UnifiedGroups() + "/" + kGroupPrefix + std::to_string(::getpid())) {
    RemoveAbandonedGroups(UnifiedGroups());
    fs::remove_all(kStage);
    fs::create_directories(kStage);
    units_ = std::make_unique<MountedDisk>(kUnitFolder, kUnitFolderBytes);  // hides what is enabled on the machine
    AddUnit("systemd-box.target", kBootTarget);
    AddUnit("dbus.service.d/box.conf", kNoDefaultDependencies);
    AddUnit("dbus.socket.d/box.conf", kNoDefaultDependencies);
    const Handle notifications(OpenNotifySocket());
    Must(::mkdir(group_.c_str(), 0755) == 0, "control group " + group_);
    guardian_ = std::make_unique<Guardian>(group_);
    const Handle guardian(OpenProcess(guardian_->Pid()));
    const auto end = Clock::now() + kDeadline;
    if (!IsReadyBefore(end, notifications.Number(), guardian.Number())) {
        throw std::runtime_error("systemd box: doesn't come up: " + Console());
    }
    WaitForManagerOnBus(end);
}

SystemdBox::~SystemdBox() = default;

void SystemdBox::AddUnit(const std::string& name, const std::string& text) const {
    WriteText(std::string(kUnitFolder) + "/" + name, text);
}

std::string SystemdBox::Console() const {
    return ReadText(kConsole);
}

}  // namespace ardv::test
