#include <cerrno>
#include <memory>
#include <string_view>

#include <dirent.h>

#include "core/platform/Directory.h"

namespace zepho {

std::optional<std::vector<std::string>> listDirectory(const std::string& path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
    if (!directory) return std::nullopt;
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
        errno = 0;
    }
    if (errno != 0) return std::nullopt;
    return names;
}

}  // namespace zepho
