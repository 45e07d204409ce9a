#include <cerrno>

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/platform/SandboxedProgram.h"

#if defined(__linux__)
#include <cstddef>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

namespace zepho {
namespace {

template <class Resource>
bool limit(Resource resource, std::uint64_t soft, std::uint64_t hard) {
    const rlimit both{static_cast<rlim_t>(soft), static_cast<rlim_t>(hard)};
    return ::setrlimit(resource, &both) == 0;
}

template <class Resource>
bool limit(Resource resource, std::uint64_t value) {
    return limit(resource, value, value);
}

#if defined(__linux__) && (defined(__x86_64__) || defined(__aarch64__))

#if defined(__x86_64__)
constexpr std::uint32_t thisArchitecture = AUDIT_ARCH_X86_64;
#else
constexpr std::uint32_t thisArchitecture = AUDIT_ARCH_AARCH64;
#endif

// A list of rules for the kernel, tried from the first to the last. Arguments are compared by their
// lower halves, which hold the whole of every value compared here (both machines are little-endian).
class CallFilter {
public:
    CallFilter() {
        load(offsetof(seccomp_data, arch));
        add(BPF_JMP | BPF_JEQ | BPF_K, thisArchitecture, 1, 0);
        answer(SECCOMP_RET_KILL_PROCESS);
        load(offsetof(seccomp_data, nr));
    }

    void allow(std::uint32_t call) {
        add(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1);
        answer(SECCOMP_RET_ALLOW);
    }
    void refuse(std::uint32_t call) {
        add(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1);
        answer(SECCOMP_RET_ERRNO | EPERM);
    }
    void allowIfEqual(std::uint32_t call, unsigned argument, std::uint32_t value) {
        compare(call, argument, BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
    }
    void allowWithoutBit(std::uint32_t call, unsigned argument, std::uint32_t bit) {
        compare(call, argument, BPF_JMP | BPF_JSET | BPF_K, bit, 1, 0);
    }

    // A kernel without filters says EINVAL or ENOSYS; the other limits then stand alone.
    bool install() {
        answer(SECCOMP_RET_KILL_PROCESS);
        const sock_fprog program{length, rules};
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0) return true;
        return errno == EINVAL || errno == ENOSYS;
    }

private:
    void add(std::uint16_t code, std::uint32_t value, std::uint8_t ifTrue, std::uint8_t ifFalse) {
        rules[length++] = {code, ifTrue, ifFalse, value};
    }
    void load(std::size_t position) {
        add(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(position), 0, 0);
    }
    void answer(std::uint32_t what) { add(BPF_RET | BPF_K, what, 0, 0); }
    void compare(std::uint32_t call, unsigned argument, std::uint16_t test, std::uint32_t value,
                 std::uint8_t skipIfTrue, std::uint8_t skipIfFalse) {
        add(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4);
        load(offsetof(seccomp_data, args) + argument * sizeof(std::uint64_t));
        add(test, value, skipIfTrue, skipIfFalse);
        answer(SECCOMP_RET_ALLOW);
        answer(SECCOMP_RET_KILL_PROCESS);
    }

    static constexpr std::size_t room = 96;
    sock_filter rules[room];
    std::uint16_t length = 0;
};

bool filterCalls() {
    const auto self = static_cast<std::uint32_t>(::getpid());
    CallFilter filter;
    filter.allowIfEqual(__NR_write, 0, STDOUT_FILENO);
    filter.allow(__NR_exit_group);
    filter.allow(__NR_exit);
    // The allocator; code is never mapped.
    filter.allow(__NR_brk);
    filter.allow(__NR_munmap);
    filter.allow(__NR_mremap);
    filter.allow(__NR_madvise);
    filter.allowWithoutBit(__NR_mmap, 2, PROT_EXEC);
    filter.allowWithoutBit(__NR_mprotect, 2, PROT_EXEC);
    filter.allow(__NR_futex);
    filter.allow(__NR_getrandom);
    // qsort() asks how much memory there is.
    filter.allow(__NR_sysinfo);
    // abort(), by which the allocator ends a program whose heap is broken. Its last words are for
    // nobody.
    filter.refuse(__NR_writev);
    filter.allow(__NR_rt_sigprocmask);
    filter.allow(__NR_rt_sigaction);
    filter.allow(__NR_getpid);
    filter.allow(__NR_gettid);
    filter.allowIfEqual(__NR_tgkill, 0, self);
    return filter.install();
}

#else

bool filterCalls() {
    return true;
}

#endif

bool giveUpPrivileges() {
#if defined(__linux__)
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0;
#else
    return true;
#endif
}

}  // namespace

std::span<const std::uint8_t> mapStandardInput() {
    struct stat facts {};
    if (::fstat(STDIN_FILENO, &facts) != 0 || !S_ISREG(facts.st_mode) || facts.st_size <= 0)
        return {};
    const auto size = static_cast<std::size_t>(facts.st_size);
    void* bytes = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, STDIN_FILENO, 0);
    if (bytes == MAP_FAILED) return {};
    return {static_cast<const std::uint8_t*>(bytes), size};
}

bool enterSandbox(const SandboxLimits& limits) {
    // At the softer limit of time comes the signal that tells what it was about.
    return limit(RLIMIT_AS, limits.addressSpace) && limit(RLIMIT_FSIZE, 0) &&
           limit(RLIMIT_CPU, limits.cpuSeconds, limits.cpuSeconds + 1) && limit(RLIMIT_NOFILE, 0) &&
           limit(RLIMIT_NPROC, 0) && limit(RLIMIT_CORE, 0) && giveUpPrivileges() && filterCalls();
}

bool writeStandardOutput(const void* bytes, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t wrote =
            ::write(STDOUT_FILENO, static_cast<const char*>(bytes) + done, size - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return false;
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

void endProgram(int exitCode) {
    ::_exit(exitCode);
}

}  // namespace zepho
