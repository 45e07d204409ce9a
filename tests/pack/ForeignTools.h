// Runs the zip tools of other makers over files of a test.
#pragma once

#include <array>
#include <cstdio>
#include <string>

#include <sys/wait.h>

namespace zepho::test {

struct ToolResult {
    int status = -1;  // the exit code, -1 if the tool did not end by itself
    std::string output;
};

// `command` for the shell; its error output is part of the output.
inline ToolResult runTool(const std::string& command) {
    ToolResult result;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return result;
    std::array<char, 4096> part{};
    for (std::size_t got = 0; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
        result.output.append(part.data(), got);
    const int status = ::pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

}  // namespace zepho::test
