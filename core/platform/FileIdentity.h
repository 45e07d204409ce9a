// What tells one state of a file from another without reading it. Stateless; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zepho {

// Equal identities mean the same file with the same content, as long as the file had not been
// changed within the last tick of the file system's clock when the first one was taken.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedNs = 0;  // content, wall clock
    std::int64_t changedNs = 0;   // content or attributes, wall clock

    bool operator==(const FileIdentity&) const = default;
};

// Absent for what is missing or no regular file.
[[nodiscard]] std::optional<FileIdentity> fileIdentity(const std::string& path);

// Whether the file had rested long enough for its times to tell of every later change.
[[nodiscard]] bool hasRested(const FileIdentity& identity);

}  // namespace zepho
