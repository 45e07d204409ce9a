// Runs a short-lived program of ours on bytes that nobody vouches for, and hands back what it wrote.
//
// The program gets the bytes as its standard input and writes to its standard output; both are
// files in memory, so nothing passes through a pipe. It inherits no other descriptor, no
// environment and no signal setting. Whatever it does, it is gone and reaped when the call returns.
// Stateless; may be called from any thread, and blocks it until then. The program's own side, where
// the limits are set, is SandboxedProgram.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

// What a program wrote. Belongs to one thread; goes away with its object.
class RunOutput {
public:
    RunOutput() = default;
    explicit RunOutput(int openFile) : file(openFile) {}
    RunOutput(RunOutput&& other) noexcept : file(std::exchange(other.file, -1)) {}
    RunOutput& operator=(RunOutput&& other) noexcept {
        std::swap(file, other.file);
        return *this;
    }
    ~RunOutput();

    [[nodiscard]] std::uint64_t size() const;
    // Whether all `length` bytes from `position` on could be copied to `into`.
    [[nodiscard]] bool read(std::uint64_t position, void* into, std::size_t length) const;

private:
    int file = -1;
};

struct RunResult {
    // Empty if the program ended with exit code 0; else how it ended or why it never began, in the
    // form "was ended by signal 11 (Segmentation fault)".
    std::string problem;
    RunOutput output;
};

// Kills the program when it still runs after `deadline`.
[[nodiscard]] RunResult runOnBytes(const std::string& program,
                                   const std::vector<std::string>& arguments, ByteView input,
                                   std::chrono::milliseconds deadline);

}  // namespace zepho
