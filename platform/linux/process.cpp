// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace ARDV::Platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kBlockBytes = 65536;

/// One stream of a child: the end that is read here, and what came through it.
class Stream {
public:
    explicit Stream(std::size_t limit) : limit_(limit) {}

    Failure Open() {
        std::array<int, 2> ends = {-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            return ErrnoError();
        }
        reader_ = FileDescriptor(ends[0]);
        const FileDescriptor writer(ends[1]);
        // Never one of the three that the child gets anew, even if this process has closed its own.
        writer_ = FileDescriptor(fcntl(writer.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        return !writer_ || fcntl(reader_.Get(), F_SETFL, O_NONBLOCK) != 0 ? ErrnoError() : Failure{};
    }

    int Reader() const { return reader_.Get(); }
    int Writer() const { return writer_.Get(); }
    void CloseWriter() { writer_ = FileDescriptor(); }

    /// Takes some of what is there now. Returns its size; 0 where nothing is.
    std::size_t Read() {
        if (!reader_) {
            return 0;
        }
        std::string block(kBlockBytes, '\0');
        const ssize_t count = read(reader_.Get(), block.data(), block.size());
        if (count == 0) {
            reader_ = FileDescriptor();
        }
        block.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        Keep(block);
        return block.size();
    }

    /// Takes all that the pipe can hold, which is all that was written before, but no more, however fast it's filled.
    void Drain() {
        const int capacity = reader_ ? fcntl(reader_.Get(), F_GETPIPE_SZ) : 0;
        std::size_t left = static_cast<std::size_t>(std::max(capacity, 0));
        for (std::size_t count = 1; left > 0 && count > 0; left -= std::min(left, count)) {
            count = Read();
        }
    }

    std::string text;
    bool isCut = false;

private:
    void Keep(std::string_view bytes) {
        const std::string_view kept = bytes.substr(0, limit_ - text.size());
        text += kept;
        isCut = isCut || kept.size() < bytes.size();
    }

    std::size_t limit_;
    FileDescriptor reader_;
    FileDescriptor writer_;
};

/// How a child is started: its streams and its signals.
class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    void SetStreams(int output, int errors) {
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }

    void SetDefaultSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }

    Result<pid_t> Spawn(std::vector<std::string> command) const {
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (std::string& word : command) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
        std::string locale = "LC_ALL=C";
        std::array<char*, 3> environment = {path.data(), locale.data(), nullptr};
        pid_t child = -1;
        const int failed =
            posix_spawn(&child, arguments.front(), &actions_, &attributes_, arguments.data(), environment.data());
        return failed != 0 ? Result<pid_t>(ErrnoError(failed)) : child;
    }

private:
    posix_spawn_file_actions_t actions_ = {};
    posix_spawnattr_t attributes_ = {};
};

/// A child of this process, which doesn't outlive its owner.
class Child {
public:
    explicit Child(pid_t process) : process_(process), handle_(OpenProcess(process)) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    /// By its handle alone: where somebody else reaps this process's children, the number may be a stranger's by now.
    ~Child() {
        if (process_ > 0 && handle_ && syscall(SYS_pidfd_send_signal, handle_.Get(), SIGKILL, nullptr, 0) == 0) {
            Reap();
        } else if (process_ > 0) {
            waitpid(process_, nullptr, WNOHANG);
        }
    }

    const FileDescriptor& Handle() const { return handle_; }

    /// The exit code of the child, which has ended or will at once.
    Result<int> Reap() {
        process_ = -1;
        siginfo_t info = {};
        while (waitid(P_PIDFD, static_cast<id_t>(handle_.Get()), &info, WEXITED) != 0) {
            if (errno != EINTR) {
                return ErrnoError();
            }
        }
        return info.si_code == CLD_EXITED ? info.si_status : -1;
    }

private:
    pid_t process_;
    FileDescriptor handle_;
};

int MillisecondsUntil(Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

/// Reads the child's streams until it has ended. False at the end of its time.
bool ReadUntilEnd(const Child& child, Stream& output, Stream& errors, Clock::time_point end) {
    std::array<pollfd, 3> entries = {};
    do {
        entries = {{{child.Handle().Get(), POLLIN, 0}, {output.Reader(), POLLIN, 0}, {errors.Reader(), POLLIN, 0}}};
        const int ready = poll(entries.data(), entries.size(), MillisecondsUntil(end));
        if (ready == 0 || (ready < 0 && errno != EINTR)) {
            return false;
        }
        output.Read();
        errors.Read();
    } while (entries.front().revents == 0);
    output.Drain();
    errors.Drain();
    return true;
}

}  // namespace

FileDescriptor OpenProcess(pid_t process) {
    // The C library declares pidfd_open() for C alone.
    return FileDescriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

Result<ProgramOutcome> RunProgram(const std::vector<std::string>& command, const ProgramLimits& limits) {
    Stream output(limits.output);
    Stream errors(limits.errors);
    for (Stream* stream : {&output, &errors}) {
        if (const Failure failure = stream->Open()) {
            return *failure;
        }
    }
    SpawnSetup setup;
    setup.SetStreams(output.Writer(), errors.Writer());
    setup.SetDefaultSignals();
    const Clock::time_point end = Clock::now() + limits.time;
    const Result<pid_t> process = setup.Spawn(command);
    if (!process) {
        return process.Reason();
    }
    Child child(*process);
    if (!child.Handle()) {
        return ErrnoError();
    }
    output.CloseWriter();
    errors.CloseWriter();
    ProgramOutcome outcome;
    outcome.isInTime = ReadUntilEnd(child, output, errors, end);
    if (outcome.isInTime) {
        const Result<int> code = child.Reap();
        if (!code) {
            return code.Reason();
        }
        outcome.exitCode = *code;
    }
    outcome.output = std::move(output.text);
    outcome.errors = std::move(errors.text);
    outcome.isOutputCut = output.isCut;
    return outcome;
}

}  // namespace ARDV::Platform
