#include <cstdlib>
#include <filesystem>

#include <pwd.h>
#include <unistd.h>

#include "core/platform/Files.h"
#include "core/platform/PlatformPaths.h"

namespace zepho {

std::string executablePath() {
    std::error_code error;
    const std::filesystem::path link = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : link.string();
}

std::string programDirectory() {
    return parentDirectory(executablePath());
}

namespace {

// <prefix>/bin/zephon finds <prefix>/lib/zephon/.
std::string packagedDirectory() {
    const std::string bin = programDirectory();
    return bin.empty() ? std::string() : bin + "../lib/zephon/";
}

}  // namespace

std::string packagedEngineDirectory() {
    const std::string packaged = packagedDirectory();
    return packaged.empty() ? std::string() : packaged + "engine/";
}

std::string helperProgram(const std::string& name) {
    const std::string beside = programDirectory() + name;
    return fileExists(beside) ? beside : packagedDirectory() + name;
}

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    struct passwd record {};
    struct passwd* found = nullptr;
    char buffer[4096];
    if (::getpwuid_r(::getuid(), &record, buffer, sizeof buffer, &found) == 0 && found != nullptr)
        return found->pw_dir;
    return {};
}

std::string userDataDirectory() {
    // A relative XDG_DATA_HOME is to be ignored by the base directory rules.
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/')
        return withTrailingSlash(data);
    return withTrailingSlash(homeDirectory()) + ".local/share/";
}

}  // namespace zepho
