// The outside addresses of this folder: where models come from, and where releases are told.
#pragma once

namespace zepho {

// Repository of the model files, the same on both hosts.
inline constexpr const char* hfRepo = "tessmarin/s2-pro-gguf";
inline constexpr const char* hostOfficial = "https://huggingface.co";
inline constexpr const char* hostMirror = "https://hf-mirror.com";

namespace UpdateSource {

inline constexpr const char* owner = "dalvoren";
inline constexpr const char* repo = "Corvanteer";
inline constexpr const char* macTagPrefix = "zepho-macos-v";
inline constexpr const char* tagPrefix = "zepho-v";
inline constexpr const char* page = "https://github.com/dalvoren/Corvanteer/releases";
inline constexpr const char* api =
    "https://api.github.com/repos/dalvoren/Corvanteer/releases?per_page=30";
inline constexpr const char* feed = "https://github.com/dalvoren/Corvanteer/releases.atom";

}  // namespace UpdateSource
}  // namespace zepho
