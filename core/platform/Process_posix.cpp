#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/platform/Descriptor.h"
#include "core/platform/Process.h"

namespace zepho {
namespace {

void check(int error, const std::string& what) {
    if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class FileActions {
public:
    FileActions() { check(::posix_spawn_file_actions_init(&actions), "spawn"); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions); }
    posix_spawn_file_actions_t* get() { return &actions; }

private:
    posix_spawn_file_actions_t actions{};
};

class Attributes {
public:
    Attributes() { check(::posix_spawnattr_init(&attributes), "spawn"); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&attributes); }
    posix_spawnattr_t* get() { return &attributes; }

private:
    posix_spawnattr_t attributes{};
};

// Opened here and not by the child, so that a failure costs the log and not the child. The append
// mode keeps the file whole when a straggler of an earlier child still writes to it.
Descriptor openOutput(const std::string& path) {
    if (path.empty()) return {};
    int fd = -1;
    do {
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    return aboveStandard(Descriptor(fd));
}

void describeFiles(FileActions& actions, const ProcessSpec& spec, const Descriptor& output) {
    check(::posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0),
          "spawn");
    for (const int target : {STDOUT_FILENO, STDERR_FILENO}) {
        check(output.isOpen()
                  ? ::posix_spawn_file_actions_adddup2(actions.get(), output.number(), target)
                  : ::posix_spawn_file_actions_addopen(actions.get(), target, "/dev/null", O_WRONLY,
                                                       0),
              "spawn");
    }
    // Everything of ours is closed on exec; what a library opened without that ends here.
    check(::posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1), "spawn");
    if (!spec.workingDirectory.empty())
        check(::posix_spawn_file_actions_addchdir_np(actions.get(), spec.workingDirectory.c_str()),
              spec.workingDirectory);
}

void describeSignals(Attributes& attributes) {
    sigset_t all;
    sigset_t none;
    ::sigfillset(&all);
    ::sigemptyset(&none);
    check(::posix_spawnattr_setsigdefault(attributes.get(), &all), "spawn");
    check(::posix_spawnattr_setsigmask(attributes.get(), &none), "spawn");
    check(::posix_spawnattr_setpgroup(attributes.get(), 0), "spawn");
    check(::posix_spawnattr_setflags(attributes.get(), POSIX_SPAWN_SETSIGDEF |
                                                           POSIX_SPAWN_SETSIGMASK |
                                                           POSIX_SPAWN_SETPGROUP),
          "spawn");
}

ExitCause causeOfSignal(int number) {
    switch (number) {
        case SIGILL:
            return ExitCause::illegalInstruction;
        case SIGABRT:
            return ExitCause::aborted;
        case SIGKILL:
            return ExitCause::killed;
        case SIGBUS:
            return ExitCause::busError;
        case SIGSEGV:
            return ExitCause::segmentationFault;
        default:
            return ExitCause::otherSignal;
    }
}

ProcessExit exitFrom(const siginfo_t& info) {
    if (info.si_code == CLD_EXITED) return {ExitCause::exited, info.si_status};
    return {causeOfSignal(info.si_status), info.si_status};
}

int waitidRetrying(std::int32_t pid, siginfo_t& info, int options) {
    int result = 0;
    do {
        info = {};
        result = ::waitid(P_PID, static_cast<id_t>(pid), &info, options);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

std::shared_ptr<Process> Process::spawn(const ProcessSpec& spec) {
    const Descriptor output = openOutput(spec.outputFile);
    FileActions actions;
    describeFiles(actions, spec, output);
    Attributes attributes;
    describeSignals(attributes);
    std::vector<char*> words;
    words.reserve(spec.arguments.size() + 2);
    words.push_back(const_cast<char*>(spec.executable.c_str()));
    for (const std::string& word : spec.arguments) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_t pid = 0;
    check(::posix_spawn(&pid, spec.executable.c_str(), actions.get(), attributes.get(),
                        words.data(), ::environ),
          spec.executable);
    try {
        return std::make_shared<Process>(pid);
    } catch (...) {
        // Nobody could watch or end it.
        ::kill(-pid, SIGKILL);
        siginfo_t info{};
        waitidRetrying(pid, info, WEXITED);
        throw;
    }
}

Process::~Process() {
    if (!running()) return;
    try {
        std::thread([pid = id] {
            siginfo_t info{};
            waitidRetrying(pid, info, WEXITED);
        }).detach();
    } catch (const std::system_error&) {
        return;  // a zombie is the lesser evil
    }
}

// Called under the lock.
void Process::look() {
    if (ended) return;
    siginfo_t info{};
    if (waitidRetrying(id, info, WEXITED | WNOHANG | WNOWAIT) != 0) {
        // Somebody else has taken the status, so nothing is known but that it is gone.
        if (errno == ECHILD) ended = ProcessExit{ExitCause::exited, -1};
        return;
    }
    if (info.si_pid == 0) return;
    // Helpers that the child left behind would keep its memory and its port; this is the last
    // moment at which the number of the group is certainly theirs.
    ::kill(-id, SIGKILL);
    ended = exitFrom(info);
    waitidRetrying(id, info, WEXITED | WNOHANG);
}

bool Process::running() {
    const std::lock_guard guard(lock);
    look();
    return !ended.has_value();
}

std::optional<ProcessExit> Process::exitStatus() {
    const std::lock_guard guard(lock);
    look();
    return ended;
}

bool Process::waitForExit(std::chrono::milliseconds limit, std::chrono::milliseconds poll) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (running()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left <= std::chrono::milliseconds(0)) return false;
        std::this_thread::sleep_for(std::min(left, poll));
    }
    return true;
}

void Process::terminate() {
    const std::lock_guard guard(lock);
    look();
    if (!ended) ::kill(id, SIGTERM);
}

void Process::killGroup() {
    const std::lock_guard guard(lock);
    look();
    if (ended) return;
    ::kill(-id, SIGKILL);
    // The child may have left its group.
    ::kill(id, SIGKILL);
}

}  // namespace zepho
