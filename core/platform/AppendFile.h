// A file that grows at its end, each piece written straight through to the system.
//
// Owned by one thread at a time. What a killed process had written is in the file.
#pragma once

#include <optional>
#include <string>

#include "core/platform/Bytes.h"
#include "core/platform/Descriptor.h"

namespace zepho {

class AppendFile {
public:
    // An empty file in the place of what is there. Absent if the system refuses.
    [[nodiscard]] static std::optional<AppendFile> createEmpty(const std::string& path);
    // The file as it stands. Absent if it is missing or the system refuses.
    [[nodiscard]] static std::optional<AppendFile> openAtEnd(const std::string& path);

    // Throws std::system_error; a part of the bytes may then be in the file.
    void write(ByteView bytes);

private:
    AppendFile(Descriptor opened, std::string path);
    static std::optional<AppendFile> open(const std::string& path, int flags);

    Descriptor file;
    std::string name;
};

}  // namespace zepho
