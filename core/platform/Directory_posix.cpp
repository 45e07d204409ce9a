#include <cerrno>
#include <memory>
#include <string_view>

#include <dirent.h>

#include "core/platform/Directory.h"
#include "core/platform/PassingTrouble.h"

namespace zepho {

std::optional<std::vector<std::string>> listDirectory(const std::string& path) {
    DIR* opened = nullptr;
    outlast([&] { return (opened = ::opendir(path.c_str())) != nullptr; },
            [](int number) { return !isVerdictOnPath(number); });
    if (opened == nullptr) return std::nullopt;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opened, ::closedir);
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
