// Whole files, read and written so that a crash leaves the old or the new content, never half.
//
// Stateless; may be called from any thread. Failures of writing are thrown as std::system_error with
// the system's own error number, which describeError() turns into words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

// All bytes of the file, or nothing if it cannot be read (missing, unreadable, a directory). Trouble
// that may pass, such as a want of descriptors, is waited out for a tenth of a second.
[[nodiscard]] std::optional<Bytes> loadFileBytes(const std::string& path);

// Hands the file over in pieces, each gone after its call, until `take` gives false or the file ends.
// False if it cannot be read to that point.
[[nodiscard]] bool readFilePieces(const std::string& path,
                                  const std::function<bool(ByteView)>& take);

struct FileHead {
    Bytes bytes;
    std::int64_t fileSize = 0;  // 0 if the system does not tell
};
// The first `maxBytes` bytes of the file, fewer if it is shorter; nothing if it cannot be read.
[[nodiscard]] std::optional<FileHead> readFileHead(const std::string& path, std::size_t maxBytes);

// Creates the parent directories, writes a temporary file beside `path`, syncs it, renames it over
// `path` and syncs the directory. The permissions stay those of a file that was there before. Throws
// std::system_error and leaves no temporary file behind.
void saveFileBytes(const std::string& path, ByteView bytes);

// The same for content that is made piece by piece: `appendNext` adds the next piece to an empty
// buffer and gives false after the last one. What it throws comes out, the old file untouched.
void saveFilePieces(const std::string& path, const std::function<bool(Bytes&)>& appendNext);

// What is in the file stays there after a power cut. Throws std::system_error.
void syncFile(const std::string& path);
// So do the names in the directory, as far as its file system does that.
void syncDirectory(const std::string& path);

// Creates the directory and what is missing above it. Throws std::system_error.
void createDirectories(const std::string& path);

[[nodiscard]] bool fileExists(const std::string& path);
// Whether the system says that nothing has this path. Not the opposite of fileExists(): where it
// cannot tell, for want of a permission or on a failing disk, both are false.
[[nodiscard]] bool fileIsMissing(const std::string& path);
[[nodiscard]] bool directoryExists(const std::string& path);

// Whether `name` is a temporary file that a killed saveFileBytes() left behind.
[[nodiscard]] bool isTemporaryName(std::string_view name);

// `path` with one "/" at its end.
std::string withTrailingSlash(std::string path);
// The directory part of `path`, with its "/"; empty when there is none.
std::string parentDirectory(const std::string& path);
// The part of `path` behind its last "/".
std::string lastPathComponent(const std::string& path);

}  // namespace zepho
