#include "core/base/Hash.h"

#include <array>
#include <charconv>
#include <cstddef>

#include "core/platform/Sha256.h"

namespace zepho {

std::string sha256Utf8(std::string_view text) {
    return sha256Bytes(asBytes(text));
}

std::string sha256Bytes(ByteView bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string hex;
    hex.reserve(64);
    for (const std::uint8_t byte : sha256Digest(bytes)) {
        hex += digits[byte >> 4];
        hex += digits[byte & 15];
    }
    return hex;
}

std::int64_t stableHash(std::string_view text) {
    std::uint64_t hash = 5381;
    for (const char c : text) hash = hash * 33 + static_cast<unsigned char>(c);
    return static_cast<std::int64_t>(hash);
}

std::string makeCacheKey(const TtsRequest& request, const VoiceInfo& voice,
                         std::string_view engineTag, std::int64_t sampleRate, bool speedApplied) {
    // Not by printf: in a language with a decimal comma the window would look for other clips.
    std::array<char, 64> speed{};
    const auto speedEnd =
        std::to_chars(speed.data(), speed.data() + speed.size(), static_cast<double>(request.speed),
                      std::chars_format::fixed, 3);
    std::string joined;
    joined.reserve(256);
    joined = engineTag;
    const auto append = [&joined](std::string_view part) {
        joined += '|';
        joined += part;
    };
    append(voice.id);
    append(voice.profileFile);
    append(voice.style);
    append(std::to_string(voice.seed));
    append({speed.data(), static_cast<std::size_t>(speedEnd.ptr - speed.data())});
    append(speedApplied ? "True" : "False");
    append(std::to_string(sampleRate));
    append(std::to_string(request.seed));
    append(request.style);
    append(request.effectiveText());
    return sha256Utf8(joined);
}

}  // namespace zepho
