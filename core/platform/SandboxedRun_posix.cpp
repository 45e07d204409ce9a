#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/platform/Descriptor.h"
#include "core/platform/PassingTrouble.h"
#include "core/platform/SandboxedRun.h"

namespace zepho {
namespace {

constexpr int firstFreeFile = 3;  // behind the three standard ones
constexpr int pipeSize = 1 << 20;

struct Pipe {
    Descriptor reading;  // does not block
    Descriptor writing;
};

Pipe makePipe() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return {};
    Pipe made{Descriptor(ends[0]), aboveStandard(Descriptor(ends[1]))};
    if (!made.writing.isOpen()) return made;
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    // A writer that is done can end while its bytes are read. Where that is too much to ask for, it
    // waits for the reader.
    ::fcntl(ends[0], F_SETPIPE_SZ, pipeSize);
    return made;
}

// Leaves the file's position at its start, where the child begins to read.
bool fill(const Descriptor& file, ByteView bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote = ::pwrite(file.number(), bytes.data() + done, bytes.size() - done,
                                       static_cast<off_t>(done));
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return false;
        done += static_cast<std::size_t>(wrote);
    }
    // The child holds this very file; it shall not grow it into a store of its own.
    return ::fcntl(file.number(), F_ADD_SEALS,
                   F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) == 0;
}

// What posix_spawn needs, freed in every case.
class SpawnPlan {
public:
    SpawnPlan(int input, int output) {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawnattr_init(&attributes);
        // The first refusal counts; later calls would only hide it.
        const auto step = [this](int result) {
            if (problem == 0) problem = result;
        };
        step(::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO));
        step(::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO));
        step(::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0));
        step(::posix_spawn_file_actions_addclosefrom_np(&actions, firstFreeFile));
        sigset_t all;
        sigset_t none;
        ::sigfillset(&all);
        ::sigemptyset(&none);
        step(::posix_spawnattr_setsigdefault(&attributes, &all));
        step(::posix_spawnattr_setsigmask(&attributes, &none));
        // A group of its own: an interrupt typed at the terminal is the service's to handle.
        step(::posix_spawnattr_setpgroup(&attributes, 0));
        step(::posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP));
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }

    // 0, or the system's error number.
    [[nodiscard]] int spawn(pid_t& child, const std::string& program,
                            const std::vector<std::string>& arguments) const {
        if (problem != 0) return problem;
        std::vector<char*> words{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        char* noEnvironment[] = {nullptr};
        return ::posix_spawn(&child, program.c_str(), &actions, &attributes, words.data(),
                             noEnvironment);
    }

private:
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    int problem = 0;
};

int millisecondsUntil(RunOutput::Time end) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

// Whether the descriptor is readable, or at its end, before the time is over.
bool waitUntilReadable(int descriptor, RunOutput::Time end) {
    pollfd waited{descriptor, POLLIN, 0};
    for (;;) {
        const int answer = ::poll(&waited, 1, millisecondsUntil(end));
        if (answer >= 0 || errno != EINTR) return answer > 0;
    }
}

enum class Reaped { notYet, done, lost };

// A program that has begun, and is gone when this is.
class Child {
public:
    Child(pid_t begun, std::chrono::milliseconds allowed)
        : pid(begun), deadline(allowed), latest(std::chrono::steady_clock::now() + allowed) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (reaped == Reaped::notYet) kill();
    }

    [[nodiscard]] RunOutput::Time mayRunUntil() const { return latest; }
    // Waits until it has ended or its time is over, and kills it then. What is wrong, or nothing.
    [[nodiscard]] std::string end();

private:
    [[nodiscard]] bool isLate() const { return millisecondsUntil(latest) == 0; }
    [[nodiscard]] std::string lateness() const {
        return "was still running after " + std::to_string(deadline.count()) + " ms";
    }
    // Without taking its status.
    void waitForEnd() const;
    void reap(int options);
    // Not reaped, so the number is still this child's.
    void kill() {
        ::kill(pid, SIGKILL);
        reap(0);
    }

    const pid_t pid;
    const std::chrono::milliseconds deadline;
    const RunOutput::Time latest;
    Reaped reaped = Reaped::notYet;
    int status = 0;
};

void Child::reap(int options) {
    for (;;) {
        const pid_t answer = ::waitpid(pid, &status, options);
        if (answer < 0 && errno == EINTR) continue;
        // ECHILD: a program that ignores SIGCHLD has its children reaped by the system.
        if (answer != 0) reaped = answer == pid ? Reaped::done : Reaped::lost;
        return;
    }
}

void Child::waitForEnd() const {
    // By number, since the header of glibc 2.36 cannot be used from C++.
    const Descriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (handle.isOpen()) {
        (void)waitUntilReadable(handle.number(), latest);
        return;
    }
    // Kernels and containers without pidfd_open.
    while (!isLate()) {
        siginfo_t info{};
        const int answer =
            ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
        if (answer < 0 ? errno != EINTR : info.si_pid == pid) return;
        ::usleep(1000);
    }
}

std::string Child::end() {
    waitForEnd();
    reap(WNOHANG);
    if (reaped == Reaped::notYet) {
        kill();
        return lateness();
    }
    if (reaped == Reaped::lost) return "ended, but the system does not tell how";
    // Nobody read any more what it wrote.
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) return isLate() ? lateness() : "";
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const char* name = ::sigdescr_np(signal);
        return "was ended by signal " + std::to_string(signal) + " (" +
               (name != nullptr ? name : "unnamed") + ")";
    }
    if (WEXITSTATUS(status) != 0)
        return "ended with exit code " + std::to_string(WEXITSTATUS(status));
    return {};
}

// What a program needs to begin, and its begin.
struct Start {
    Descriptor in;
    Pipe out;
    pid_t pid = 0;
    std::string problem;

    // False, with errno set, where something was refused.
    bool attempt(const std::string& program, const std::vector<std::string>& arguments,
                 ByteView input) {
        in = Descriptor();
        out = {};
        in = aboveStandard(
            Descriptor(::memfd_create("zephon-run-input", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
        if (!in.isOpen() || !fill(in, input)) return fails("could not get its input", {});
        out = makePipe();
        if (!out.writing.isOpen()) return fails("could not get a place for its output", {});
        errno = SpawnPlan(in.number(), out.writing.number()).spawn(pid, program, arguments);
        return errno == 0 || fails("could not be started", " (" + program + ")");
    }

private:
    bool fails(const char* what, const std::string& which) {
        const int number = errno;
        problem = std::string(what) + ": " + std::generic_category().message(number) + which;
        errno = number;
        return false;
    }
};

}  // namespace

std::ptrdiff_t RunOutput::readSome(void* into, std::size_t length) {
    for (;;) {
        // There may always be something, however little.
        if (millisecondsUntil(end) == 0) return -1;
        const ssize_t got = ::read(pipe, into, length);
        if (got >= 0) return got;
        if (errno == EINTR) continue;
        if (errno != EAGAIN || !waitUntilReadable(pipe, end)) return -1;
    }
}

bool RunOutput::read(void* into, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const std::ptrdiff_t got = readSome(static_cast<char*>(into) + done, length - done);
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    return true;
}

bool RunOutput::ended() {
    char more = 0;
    return readSome(&more, sizeof more) == 0;
}

std::string runOnBytes(const std::string& program, const std::vector<std::string>& arguments,
                       ByteView input, std::chrono::milliseconds deadline,
                       const std::function<void(RunOutput&)>& take) {
    Start start;
    const auto attempt = [&] { return start.attempt(program, arguments, input); };
    const auto mayPass = [](int number) {
        return isWantOfDescriptors(number) || number == EAGAIN || number == ENOMEM;
    };
    if (!outlast(attempt, mayPass)) return start.problem;
    Child child(start.pid, deadline);
    start.out.writing.close();
    RunOutput output(start.out.reading.number(), child.mayRunUntil());
    take(output);
    start.out.reading.close();
    return child.end();
}

}  // namespace zepho
