// SPDX-License-Identifier: Apache-2.0
#include <relay/tunnel/tunnel_process.h>

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <relay/utils/descriptor.h>

namespace ARDV::Relay {

namespace {

constexpr int kFirstClosed = STDERR_FILENO + 1;
constexpr rlim_t kMostDescriptors = 1U << 20U;  // the kernel's own default bound (fs.nr_open)

std::vector<char*> ArgumentVector(std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return arguments;
}

/** All that a child needs, ready before it is there: nothing that it may call before exec allocates or takes a lock. */
struct ChildPlan {
    const char* program;
    char* const* arguments;
    int errorPipe;
    pid_t parent;
    int descriptorLimit;
};

/** No signal comes while this lives: a handler of the parent's must not run in its child. */
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &original_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &original_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t original_ = {};
};

int DescriptorLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
}

void SetDefaultSignals() {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        sigaction(signal, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

/** Where the parent has closed one of its three, OpenVPN would take its next socket or file for that stream. */
void ProvideStandardStreams() {
    for (int stream = STDIN_FILENO; stream < kFirstClosed; ++stream) {
        const int flags = fcntl(stream, F_GETFD);
        if (flags < 0 || (flags & FD_CLOEXEC) != 0) {
            dup2(open("/dev/null", O_RDWR), stream);
        }
    }
}

/** By exec, and not at once, so that the error's pipe lives until then. A kernel before 5.11 has no call for it. */
void CloseAllOnExec(int limit) {
    if (close_range(kFirstClosed, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        return;
    }
    for (int descriptor = kFirstClosed; descriptor < limit; ++descriptor) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

[[noreturn]] void RunChild(const ChildPlan& plan) {
    SetDefaultSignals();
    ProvideStandardStreams();
    CloseAllOnExec(plan.descriptorLimit);
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // OpenVPN forgets what else comes in its first milliseconds, and would live on
    if (getppid() == plan.parent) {    // else it has died before the call above
        execv(plan.program, plan.arguments);
        const int error = errno;
        [[maybe_unused]] const ssize_t told = write(plan.errorPipe, &error, sizeof error);
    }
    _exit(0);
}

ChildStart Fork(const ChildPlan& plan) {
    const BlockedSignals blocked;
    const pid_t pid = fork();
    if (pid == 0) {
        RunChild(plan);
    }
    return {.pid = pid, .forkError = pid < 0 ? errno : 0};
}

/** The error that a child sends; 0 once it has closed its end, which exec does. */
int ReceivedError(int pipe) {
    int error = 0;
    ssize_t count = 0;
    do {
        count = read(pipe, &error, sizeof error);
    } while (count < 0 && errno == EINTR);
    return count == sizeof error ? error : 0;
}

}  // namespace

ChildStart StartChild(const char* program, const std::vector<std::string>& command) {
    std::vector<std::string> words = command;
    const std::vector<char*> arguments = ArgumentVector(words);
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return {.forkError = errno};
    }
    const Utils::Descriptor reader(ends[0]);
    ChildStart start;
    {
        const Utils::Descriptor second(ends[1]);
        const Utils::Descriptor writer(fcntl(second.Get(), F_DUPFD_CLOEXEC, kFirstClosed));  // no standard stream
        if (!writer.IsOpen()) {
            return {.forkError = errno};
        }
        start = Fork({program, arguments.data(), writer.Get(), getpid(), DescriptorLimit()});
    }
    if (start.pid > 0) {
        start.execError = ReceivedError(reader.Get());
    }
    return start;
}

void Execute(const char* program, const std::vector<std::string>& command) {
    std::vector<std::string> words = command;
    execv(program, ArgumentVector(words).data());
}

}  // namespace ARDV::Relay
