#include "core/engine/EngineDiscovery.h"

#include <filesystem>
#include <mutex>
#include <system_error>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

// The process runs in a directory of its own, where a relative path would mean another file.
std::string absolutePath(const std::string& path) {
    if (path.empty() || path.front() == '/') return path;
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.string();
}

std::string existing(const std::string& path) {
    return fileExists(path) ? path : std::string();
}

std::string executableFor(const std::string& root) {
    if (root != ZEPHOPaths::dataRoot()) return existing(root + "engine/s2");
    return enginePath().value_or(std::string());
}

std::string modelFor(const std::string& root, const std::string& modelFile) {
    if (!modelFile.empty())
        if (std::string named = existing(root + "models/" + modelFile); !named.empty())
            return named;
    for (const char* below : {"models", "engine", ""})
        if (std::string found = findModelFile(root + below); !found.empty()) return found;
    return {};
}

// What the system tells of its graphics processor. There is no Metal here, so there is no device.
GpuInfo queryGpu() {
    return {};
}

struct GpuAnswer {
    // Guards the answer; not held while the system is asked.
    std::mutex lock;
    std::optional<GpuInfo> known;
};

GpuAnswer& gpuAnswer() {
    static auto* const made = new GpuAnswer;
    return *made;
}

}  // namespace

std::string findModelFile(const std::string& directory) {
    const std::string prefix = withTrailingSlash(directory);
    std::string best;
    std::int64_t bestSize = 0;
    std::error_code error;
    std::filesystem::directory_iterator entry(prefix, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.ends_with(".gguf")) continue;
        const std::int64_t size = fileSizeOf(prefix + name);
        if (size <= bestSize) continue;
        bestSize = size;
        best = prefix + name;
    }
    return best;
}

std::optional<std::string> engineDirectory() {
    if (fileExists(ZEPHOPaths::engineDir() + "s2")) return ZEPHOPaths::engineDir();
    return ZEPHOPaths::bundledEngineDir();
}

std::optional<std::string> enginePath() {
    const std::optional<std::string> directory = engineDirectory();
    if (!directory || !fileExists(*directory + "s2")) return std::nullopt;
    return *directory + "s2";
}

bool backendAvailable(ComputeBackend backend) {
    const std::optional<std::string> directory = engineDirectory();
    if (!directory) return false;
    return fileExists(*directory +
                      (backend == ComputeBackend::metal ? "libggml-metal.dylib" : "s2"));
}

bool backendUsable(ComputeBackend backend) {
    if (backend != ComputeBackend::metal) return true;
    return gpuInfo().available && backendAvailable(backend);
}

GpuInfo gpuInfo() {
    {
        const std::lock_guard guard(gpuAnswer().lock);
        if (gpuAnswer().known) return *gpuAnswer().known;
    }
    GpuInfo info = queryGpu();
    {
        const std::lock_guard guard(gpuAnswer().lock);
        gpuAnswer().known = info;
    }
    AppLog::info("gpu", "metal device: " + (info.available ? info.name : "(none)"));
    return info;
}

bool engineInstalled() {
    return enginePath().has_value();
}

bool tokenizerInstalled() {
    return fileSizeOf(ZEPHOPaths::modelsDir() + "tokenizer.json") > 0;
}

std::string S2Files::missing() const {
    std::string items = executable.empty() ? "engine/s2" : "";
    if (model.empty()) items += items.empty() ? "models/*.gguf" : ", models/*.gguf";
    return items;
}

S2Files findS2Files(const std::string& root, const std::string& modelFile) {
    S2Files files;
    files.executable = absolutePath(executableFor(root));
    files.model = absolutePath(modelFor(root, modelFile));
    if (!files.model.empty())
        files.tokenizer = existing(parentDirectory(files.model) + "tokenizer.json");
    return files;
}

}  // namespace zepho
