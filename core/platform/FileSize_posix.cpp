#include <sys/stat.h>

#include "core/platform/FileSize.h"

namespace zepho {

std::int64_t fileSizeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<std::int64_t>(info.st_size) : -1;
}

}  // namespace zepho
