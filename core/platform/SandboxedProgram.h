// The inside of a sandbox: what a program does that SandboxedRun.h starts on doubtful bytes.
//
// The program trusts itself up to enterSandbox() and nothing afterwards: from there on it can
// compute, allocate within its limit, write to its standard output and end, and nothing else. Made
// for small programs of one thread: this file needs neither the C++ run-time library nor any other
// of ours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zepho {

// The whole standard input as memory; empty unless that is a file with something in it. It stays
// for the life of the program.
[[nodiscard]] std::span<const std::uint8_t> mapStandardInput();

struct SandboxLimits {
    std::uint64_t addressSpace = 0;  // bytes, all that is mapped already included
    std::uint32_t cpuSeconds = 0;
};

// Gives up, for good: files, processes, new privileges, a core dump, and whatever system call is not
// needed to compute and to answer (a kernel without such filters is taken as it is). Exceeding the
// limit of time or making another call ends the program by a signal; memory beyond the limit is
// refused, and no file grows. The program also ends when its parent does. False if a limit could not be set.
[[nodiscard]] bool enterSandbox(const SandboxLimits& limits);

[[nodiscard]] bool writeStandardOutput(const void* bytes, std::size_t size);

// Ends at once, without the work that a C++ program does at its end.
[[noreturn]] void endProgram(int exitCode);

}  // namespace zepho
