#include "core/store/ClipFiles.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "core/platform/Files.h"

namespace zepho {

std::optional<std::vector<std::string>> listNames(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
        names.push_back(lastPathComponent(entry->path().native()));
    if (error) return std::nullopt;
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
    return !fileExists(path) || deleteFile(path);
}

}  // namespace zepho
