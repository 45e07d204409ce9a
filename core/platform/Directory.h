// What lies in a directory. Stateless; any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zepho {

// In no order, without "." and ".."; absent where the directory cannot be listed. Costs a third of
// std::filesystem's iterator, which makes a path of every name.
[[nodiscard]] std::optional<std::vector<std::string>> listDirectory(const std::string& path);

// The same, one name after the other, each gone after its call. False where the directory cannot be
// listed to its end.
[[nodiscard]] bool forEachName(const std::string& path,
                               const std::function<void(std::string_view name)>& visit);

// Deletes the temporary files that killed saveFileBytes() calls left there (core/platform/Files.h).
// Those of processes that live may still be under way, and stay. A failure is ignored.
void removeStaleTemporaries(const std::string& path);

}  // namespace zepho
