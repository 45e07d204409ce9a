#include "core/config/ZEPHOPaths.h"

#include <cstdlib>
#include <system_error>

#include "core/platform/Files.h"
#include "core/platform/PlatformPaths.h"
#include "core/platform/Unicode.h"

namespace zepho::ZEPHOPaths {
namespace {

std::string chooseDataRoot() {
    if (const char* home = std::getenv("ZEPHO_HOME"); home != nullptr)
        if (std::string path = trimmed(home); !path.empty()) return withTrailingSlash(path);
    if (const auto portable = portableCandidate(); portable && directoryExists(*portable))
        return withTrailingSlash(*portable);
    return withTrailingSlash(userDataDirectory() + "Zephon");
}

}  // namespace

const std::string& dataRoot() {
    // Never destroyed: a background thread may ask for it while the process ends.
    static const auto* const root = new std::string(chooseDataRoot());
    return *root;
}

std::string dataDir() {
    return dataRoot() + "data/";
}
std::string voicesDir() {
    return dataRoot() + "clone/";
}
std::string cacheDir() {
    return dataRoot() + "temp/";
}
std::string modelsDir() {
    return dataRoot() + "models/";
}
std::string engineDir() {
    return dataRoot() + "engine/";
}
std::string logsDir() {
    return dataRoot() + "logs/";
}
std::string configFile() {
    return dataDir() + "config.json";
}
std::string voicesFile() {
    return dataDir() + "voices.json";
}
std::string engineLog() {
    return logsDir() + "s2-engine.log";
}
std::string enginePidFile() {
    return logsDir() + "s2.pid";
}

void ensureDirectories() {
    for (const std::string& path :
         {dataDir(), voicesDir(), cacheDir(), modelsDir(), engineDir(), logsDir()}) {
        try {
            createDirectories(path);
        } catch (const std::system_error&) {
            continue;
        }
    }
}

std::optional<std::string> portableCandidate() {
    const std::string directory = programDirectory();
    if (directory.empty()) return std::nullopt;
    return directory + "Zephon-data";
}

std::optional<std::string> bundledEngineDir() {
    if (const std::string packaged = packagedEngineDirectory();
        !packaged.empty() && fileExists(packaged + "s2"))
        return packaged;
    if (const char* named = std::getenv("ZEPHO_ENGINE_DIR"); named != nullptr)
        return withTrailingSlash(named);
    return std::nullopt;
}

}  // namespace zepho::ZEPHOPaths
