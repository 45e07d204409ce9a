// The text of a file that was dropped on a text field.
#pragma once

#include <cstddef>
#include <string>

namespace zepho {

// Far beyond every limit on a line's length, and read at once.
inline constexpr std::size_t textFileLimit = std::size_t{256} * 1024;

// UTF-8 without its byte order mark. Throws std::runtime_error with a sentence for the person where
// the file cannot be read, is larger than the limit, or is no such text. Blocks on the disk.
[[nodiscard]] std::string textOfFile(const std::string& path);

}  // namespace zepho
