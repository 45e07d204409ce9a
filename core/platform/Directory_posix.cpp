#include <cerrno>
#include <memory>
#include <string_view>

#include <dirent.h>

#include "core/platform/Directory.h"
#include "core/platform/PassingTrouble.h"

namespace zepho {

bool forEachName(const std::string& path, const std::function<void(std::string_view name)>& visit) {
    DIR* opened = nullptr;
    outlast([&] { return (opened = ::opendir(path.c_str())) != nullptr; },
            [](int number) { return !isVerdictOnPath(number); });
    if (opened == nullptr) return false;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opened, ::closedir);
    errno = 0;
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") visit(name);
        errno = 0;
    }
    return errno == 0;
}

std::optional<std::vector<std::string>> listDirectory(const std::string& path) {
    std::vector<std::string> names;
    if (!forEachName(path, [&](std::string_view name) { names.emplace_back(name); }))
        return std::nullopt;
    return names;
}

}  // namespace zepho
