#include "core/store/ClipFiles.h"

#include <chrono>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "core/platform/Directory.h"
#include "core/platform/Files.h"

namespace zepho {

FileNames listClips(const std::string& dir) {
    FileNames names;
    std::vector<std::string> stale;
    const bool listed = forEachName(dir, [&](std::string_view name) {
        if (isTemporaryName(name))
            stale.emplace_back(name);
        else
            names.add(name);
    });
    if (!listed) return {};
    names.sort();
    for (const std::string& name : stale) deleteFile(dir + name);
    return names;
}

bool deleteFile(const std::string& path) {
    std::error_code error;
    std::filesystem::remove(path, error);
    return !error;
}

bool deleteFilePatiently(const std::string& path) {
    if (deleteFile(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return fileIsMissing(path) || deleteFile(path);
}

}  // namespace zepho
