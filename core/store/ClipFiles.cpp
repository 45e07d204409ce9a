#include "core/store/ClipFiles.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "core/platform/Files.h"

namespace zepho {

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
