// require() states what only a fault of this program can break, and stops the process when it is
// broken. Never used on bytes that come from a file, a socket or another process.
#pragma once

namespace zepho {

[[noreturn]] void requirementFailed(const char* what) noexcept;

inline void require(bool condition, const char* what) noexcept {
    if (!condition) requirementFailed(what);
}

}  // namespace zepho
