// The processes of this machine, as far as this user may see them. Stateless; any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zepho {

struct ProcessEntry {
    std::int32_t pid = 0;
    std::int32_t parent = 0;
    // Whoever started it is gone: its parent is the first process, or the user's service manager,
    // which takes that part in a desktop session.
    bool orphaned = false;
    std::string program;  // the first word of its command line, whole even with blanks in it
};

// Without those that have no command line (the kernel's, zombies).
[[nodiscard]] std::vector<ProcessEntry> listProcesses();

// The first word of the command line of one process.
[[nodiscard]] std::optional<std::string> programOfProcess(std::int32_t pid);

[[nodiscard]] std::int32_t ownProcessId();

// Kills the process if `accepts` its program. What was looked at is what is killed, even if the
// number changes hands in between. Whether it was killed.
bool killProcessIf(std::int32_t pid, const std::function<bool(std::string_view program)>& accepts);

}  // namespace zepho
