// Any bytes as the manifest of a clone pack, cln.json: what is read stays the same when it is written
// and read again, and never exceeds what a pack may hold.
#include <nlohmann/json.hpp>

#include "core/pack/PackManifest.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

bool same(const VoiceInfo& left, const VoiceInfo& right) {
    if (left.clips.size() != right.clips.size()) return false;
    for (std::size_t at = 0; at < left.clips.size(); ++at) {
        const VoiceClip& one = left.clips[at];
        const VoiceClip& other = right.clips[at];
        if (one.fileName != other.fileName || one.text != other.text ||
            one.durationMs != other.durationMs)
            return false;
    }
    return left.id == right.id && left.display == right.display &&
           left.language == right.language && left.gender == right.gender &&
           left.style == right.style && left.note == right.note;
}

void checkKey(std::string_view key) {
    const auto parts = splitAirlineKey(key);
    if (!parts) return;
    const auto within = [key](std::string_view part) {
        return part.data() >= key.data() && part.data() + part.size() <= key.data() + key.size() &&
               part.find(':') == std::string_view::npos;
    };
    require(within(parts->airline) && within(parts->language), "a part from elsewhere");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkKey(asText({data, size}));
    const std::optional<Json> root = parseJsonObject(ByteView(data, size));
    if (!root) return 0;
    const std::optional<PackManifest> read = readPackManifest(*root);
    require(read.has_value() || size > maxEntryUses, "too many voices in too few bytes");
    if (!read) return 0;
    require(isWithinPackLimits(*read), "more than a pack may hold");
    for (const auto& [key, voice] : read->airlines) checkKey(key);

    const std::optional<Json> written = parseJsonObject(jsonString(packManifestJson(*read, {})));
    require(written.has_value(), "our own manifest does not read");
    const std::optional<PackManifest> again = readPackManifest(*written);
    require(again && again->airlines == read->airlines, "a binding changed");
    require(again->voices.size() == read->voices.size(), "a voice got lost");
    for (std::size_t at = 0; at < read->voices.size(); ++at)
        require(same(again->voices[at], read->voices[at]), "a voice changed");
    return 0;
}
