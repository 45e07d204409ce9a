// What lies on the disk and what this machine can do: the inference program, the model, the
// tokenizer, the compute backends. Questions to the file system that change nothing; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/base/TtsTypes.h"

namespace zepho {

struct GpuInfo {
    bool available = false;
    std::string name;
    std::int64_t recommendedWorkingSetSize = 0;  // bytes
    bool unifiedMemory = true;
};

// The model to use in a directory: its largest *.gguf, as smaller ones beside it are auxiliary.
// Empty if there is none.
[[nodiscard]] std::string findModelFile(const std::string& directory);

// The directory of the inference program, with its "/": a copy in the data root goes before the one
// that came with the program.
[[nodiscard]] std::optional<std::string> engineDirectory();
// The inference program itself, if it exists.
[[nodiscard]] std::optional<std::string> enginePath();

// The files of the backend are there.
[[nodiscard]] bool backendAvailable(ComputeBackend backend);
// The backend can be chosen on this machine.
[[nodiscard]] bool backendUsable(ComputeBackend backend);

// Asked of the system once; the answer holds for the life of the process.
[[nodiscard]] GpuInfo gpuInfo();

[[nodiscard]] bool engineInstalled();
[[nodiscard]] bool tokenizerInstalled();

// What an engine process is started with. Paths are absolute; an empty one was not found.
struct S2Files {
    std::string executable;
    std::string model;
    std::string tokenizer;  // may be missing: the process runs without it

    [[nodiscard]] bool complete() const { return !executable.empty() && !model.empty(); }
    // The files without which nothing starts, joined for people; empty if complete.
    [[nodiscard]] std::string missing() const;
};

// Searches below `root`, a directory with its "/". A model named `modelFile` goes before others.
[[nodiscard]] S2Files findS2Files(const std::string& root, const std::string& modelFile);

}  // namespace zepho
