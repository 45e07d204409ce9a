#include "core/audio/AudioSniffing.h"

#include <algorithm>

#include "core/audio/WavReader.h"

namespace zepho {

bool looksLikeOgg(ByteView bytes) {
    return asText(bytes).starts_with("OggS");
}

bool looksLikeMp3(ByteView bytes) {
    constexpr std::size_t stretch = 8192;
    if (bytes.size() < 4) return false;
    if (asText(bytes).starts_with("ID3")) return true;
    const ByteView first = bytes.first(std::min(bytes.size(), stretch));
    return std::adjacent_find(first.begin(), first.end(), [](int sync, int rest) {
               return sync == 0xFF && rest >= 0xE0;
           }) != first.end();
}

std::string_view sniffExtension(ByteView bytes) {
    if (looksLikeWav(bytes)) return ".wav";
    if (looksLikeOgg(bytes)) return ".ogg";
    if (looksLikeMp3(bytes)) return ".mp3";
    return {};
}

bool engineReadsFormat(ByteView bytes) {
    return looksLikeWav(bytes) || (looksLikeMp3(bytes) && !looksLikeOgg(bytes));
}

}  // namespace zepho
