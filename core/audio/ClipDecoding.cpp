#include "core/audio/ClipDecoding.h"

#include <utility>

#include "core/audio/AudioSniffing.h"
#include "core/audio/WavReader.h"
#include "core/diag/Language.h"

namespace zepho {
namespace {

constexpr std::int32_t opusInside = -2;

}  // namespace

std::optional<PcmBuffer> callDecoder(DecoderEntry entry, ByteView bytes, std::int32_t& status) {
    DecodedClip clip = DecoderHelper::shared().decode(entry, bytes);
    status = clip.status;
    return std::move(clip.pcm);
}

std::optional<PcmBuffer> decodeMp3(ByteView bytes) {
    std::int32_t status = 0;
    return callDecoder(DecoderEntry::mp3, bytes, status);
}

OggDecoding decodeOgg(ByteView bytes) {
    if (bytes.empty()) return {OggResult::failed, std::nullopt};
    if (!looksLikeOgg(bytes)) return {OggResult::notVorbis, std::nullopt};
    std::int32_t status = 0;
    if (std::optional<PcmBuffer> pcm = callDecoder(DecoderEntry::ogg, bytes, status))
        return {OggResult::ok, std::move(pcm)};
    return {status == opusInside ? OggResult::opus : OggResult::failed, std::nullopt};
}

std::optional<PcmBuffer> decodeReference(ByteView bytes) {
    // The test for MP3 passes on WAV and Ogg too, so the order matters.
    if (std::optional<PcmBuffer> pcm = parseWav(bytes)) return pcm;
    if (looksLikeOgg(bytes)) return decodeOgg(bytes).pcm;
    if (looksLikeMp3(bytes)) return decodeMp3(bytes);
    return std::nullopt;
}

std::optional<std::string> oggResultText(OggResult result) {
    switch (result) {
        case OggResult::ok:
            return std::nullopt;
        case OggResult::noDecoder:
            return T("这台机器旁边没有 zepho_audio.dll,ogg 解不开 —— ") +
                   T("引擎自己也不认 ogg,请换成 WAV 或 MP3。");
        case OggResult::notVorbis:
            return T("这不是 ogg 文件。");
        case OggResult::opus:
            return T("这是 Opus 编码的 .ogg。Opus 和 Vorbis 是两种编码,这里只能解 Vorbis;") +
                   T("用别的工具转成 WAV / MP3 / Ogg Vorbis 再来。");
        case OggResult::failed:
            return T("ogg 解不开(文件可能不完整或已损坏)。");
    }
    return std::nullopt;
}

}  // namespace zepho
