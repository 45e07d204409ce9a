// Runs a short-lived program of ours on bytes that nobody vouches for, and hands on what it writes.
//
// The program gets the bytes as its standard input, a file in memory, and writes to its standard
// output, a pipe that is read while the program still works. It inherits no other descriptor, no
// environment and no signal setting. Whatever it does, it is gone and reaped when the call returns.
// Stateless; may be called from any thread, and blocks it until then. The program's own side, where
// the limits are set, is SandboxedProgram.h.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

// What a program writes, as it comes. For the call that it is handed to, and the thread of that.
class RunOutput {
public:
    using Time = std::chrono::steady_clock::time_point;

    // Does not own the pipe, whose reading end must not block.
    RunOutput(int pipeToRead, Time deadline) : pipe(pipeToRead), end(deadline) {}

    // Waits until all `length` bytes are there. False where the output or the time ended before.
    [[nodiscard]] bool read(void* into, std::size_t length);
    // Waits until the program has closed its output; false if it wrote more instead, or is late.
    [[nodiscard]] bool ended();

private:
    // 0 at the end of the output, negative when the time is over.
    std::ptrdiff_t readSome(void* into, std::size_t length);

    const int pipe;
    const Time end;
};

// Calls `take` once with the output of the program that has just begun. A program that goes on
// writing after `take` has returned is ended by that; one that still runs after `deadline` is killed,
// as it is when `take` throws.
//
// Empty if the program ended with exit code 0 or as its output was not wanted any more; else how it
// ended or why it never began, in the form "was ended by signal 11 (Segmentation fault)".
[[nodiscard]] std::string runOnBytes(const std::string& program,
                                     const std::vector<std::string>& arguments, ByteView input,
                                     std::chrono::milliseconds deadline,
                                     const std::function<void(RunOutput&)>& take);

}  // namespace zepho
