// The manifest of a clone pack, cln.json: which voices a pack carries, and which bindings use them.
//
// The file's layout is told in docs/clone-packs.md. Plain values and pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/Json.h"
#include "core/base/VoiceInfo.h"

namespace zepho {

inline constexpr std::string_view packFormat = "zepho-clone-pack";
inline constexpr std::string_view packManifestName = "cln.json";
inline constexpr std::string_view packAudioFolder = "audio/";

// What a pack may hold. Import refuses more, so that a pack from a stranger costs little; export
// writes no more, so that every pack of ours can be imported.
inline constexpr std::uint64_t maxPackBytes = std::uint64_t{512} << 20;
inline constexpr std::uint64_t maxManifestBytes = std::uint64_t{8} << 20;
inline constexpr std::size_t maxPackItems = 60000;  // voices and clips together, and bindings
inline constexpr std::size_t maxPackVoices = 5000;
inline constexpr std::size_t maxEntryUses = 100;  // clips that name one entry

// What a pack says. Of the voices only the fields that travel are meaningful.
struct PackManifest {
    std::vector<VoiceInfo> voices;
    std::map<std::string, std::string> airlines;  // binding key to id on the exporting machine
};

Json voiceToPackJson(const VoiceInfo& voice);
Json packManifestJson(const PackManifest& manifest, WallTime exportedAt);

// Whether the manifest keeps to these limits.
[[nodiscard]] bool isWithinPackLimits(const PackManifest& manifest);

// What of the wrong type counts as absent. Nothing if it is beyond the limits.
[[nodiscard]] std::optional<PackManifest> readPackManifest(const Json& root);

// The parts of a binding key as it stands in a pack, borrowed from it; absent with fewer than three.
struct AirlineKeyParts {
    std::string_view airline;
    std::string_view language;
    TtsGender gender = TtsGender::auto_;
};
[[nodiscard]] std::optional<AirlineKeyParts> splitAirlineKey(std::string_view key);

}  // namespace zepho
