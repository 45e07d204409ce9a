#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/platform/SandboxedRun.h"

namespace zepho {
namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

constexpr int firstFreeFile = 3;  // behind the three standard ones

std::string words(const char* what, int error) {
    return std::string(what) + ": " + std::generic_category().message(error);
}

class File {
public:
    explicit File(int descriptor) : number(descriptor) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (number >= 0) ::close(number);
    }

    [[nodiscard]] int get() const { return number; }
    [[nodiscard]] bool isOpen() const { return number >= 0; }
    [[nodiscard]] int release() { return std::exchange(number, -1); }

private:
    int number;
};

// A file in memory whose number is none of the standard ones: those are overwritten in the child
// one after the other, which must not hit a file that is still to be placed.
File memoryFile(const char* name) {
    File made(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!made.isOpen() || made.get() >= firstFreeFile) return File(made.release());
    return File(::fcntl(made.get(), F_DUPFD_CLOEXEC, firstFreeFile));
}

// Leaves the file's position at its start, where the child begins to read.
bool fill(const File& file, ByteView bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t wrote = ::pwrite(file.get(), bytes.data() + done, bytes.size() - done,
                                       static_cast<off_t>(done));
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return false;
        done += static_cast<std::size_t>(wrote);
    }
    // The child holds this very file; it shall not grow it into a store of its own.
    return ::fcntl(file.get(), F_ADD_SEALS,
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

int millisecondsUntil(SteadyTime end) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

enum class Reaped { notYet, done, lost };

Reaped reap(pid_t child, int& status, int options) {
    for (;;) {
        const pid_t answer = ::waitpid(child, &status, options);
        if (answer == child) return Reaped::done;
        if (answer == 0) return Reaped::notYet;
        // ECHILD: a program that ignores SIGCHLD has its children reaped by the system.
        if (errno != EINTR) return Reaped::lost;
    }
}

// Waits until the child has ended or the time is over, without taking its status.
void waitForEnd(pid_t child, SteadyTime end) {
    // By number, since the header of glibc 2.36 cannot be used from C++.
    const File handle(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    if (handle.isOpen()) {
        pollfd ended{handle.get(), POLLIN, 0};
        while (::poll(&ended, 1, millisecondsUntil(end)) < 0 && errno == EINTR) continue;
        return;
    }
    // Kernels and containers without pidfd_open.
    while (millisecondsUntil(end) > 0) {
        siginfo_t info{};
        const int answer =
            ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
        if (answer < 0 ? errno != EINTR : info.si_pid == child) return;
        ::usleep(1000);
    }
}

std::string wait(pid_t child, std::chrono::milliseconds deadline) {
    waitForEnd(child, std::chrono::steady_clock::now() + deadline);
    int status = 0;
    Reaped reaped = reap(child, status, WNOHANG);
    if (reaped == Reaped::notYet) {
        // Not reaped, so the number is still this child's.
        ::kill(child, SIGKILL);
        (void)reap(child, status, 0);
        return "was still running after " + std::to_string(deadline.count()) + " ms";
    }
    if (reaped == Reaped::lost) return "ended, but the system does not tell how";
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

}  // namespace

RunOutput::~RunOutput() {
    if (file >= 0) ::close(file);
}

std::uint64_t RunOutput::size() const {
    struct stat facts {};
    if (file < 0 || ::fstat(file, &facts) != 0) return 0;
    return static_cast<std::uint64_t>(facts.st_size);
}

bool RunOutput::read(std::uint64_t position, void* into, std::size_t length) const {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t got = ::pread(file, static_cast<char*>(into) + done, length - done,
                                    static_cast<off_t>(position + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    return true;
}

RunResult runOnBytes(const std::string& program, const std::vector<std::string>& arguments,
                     ByteView input, std::chrono::milliseconds deadline) {
    const File in = memoryFile("zephon-run-input");
    if (!in.isOpen() || !fill(in, input)) return {words("could not get its input", errno), {}};
    File out = memoryFile("zephon-run-output");
    if (!out.isOpen()) return {words("could not get a place for its output", errno), {}};

    pid_t child = 0;
    if (const int error = SpawnPlan(in.get(), out.get()).spawn(child, program, arguments);
        error != 0)
        return {words("could not be started", error) + " (" + program + ")", {}};
    std::string problem = wait(child, deadline);
    return {std::move(problem), RunOutput(out.release())};
}

}  // namespace zepho
