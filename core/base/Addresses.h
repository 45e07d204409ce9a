// The addresses of the services on the internet that the program speaks to. Nothing else in the tree
// names a host, and every operation that uses one can be given another, as the tests do.
#pragma once

namespace ZEPHO {

// The hub that packs are shared on. A placeholder: the top-level domain .example belongs to nobody,
// so a build that sets no other address reaches no one.
inline constexpr const char* hubAddress = "https://hub.zephon.example:443/API/hub.php";

}  // namespace ZEPHO

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
