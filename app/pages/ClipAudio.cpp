#include "app/pages/ClipAudio.h"

#include <limits>
#include <utility>

#include "app/Outcome.h"
#include "core/audio/AudioSniffing.h"
#include "core/base/TtsError.h"
#include "core/diag/Language.h"
#include "core/platform/Files.h"
#include "core/store/ClipStore.h"

namespace zepho {
namespace {

// What the formats are told by.
constexpr std::size_t headBytes = 8192;
// Beyond this no WAV file of 16-bit samples exists.
constexpr std::size_t maxWavSamples = std::numeric_limits<std::uint32_t>::max() / 2 - 64;

std::string lengthWarning(std::int64_t durationMs) {
    if (durationMs < shortestClipMs)
        return TF("参考音频只有 %d 毫秒,太短了(官方建议 5~30 秒)", durationMs);
    if (durationMs > referenceCapMs)
        return TF("长 %.0f 秒:超过 30 秒的部分用不上。", static_cast<double>(durationMs) / 1000);
    return {};
}

}  // namespace

ClipOutline outlineClip(const std::string& path, std::size_t columns) {
    ClipOutline outline;
    const Outcome<Bytes> loaded = attempt([&] { return loadClipBytes(path); });
    if (!loaded.ok()) {
        outline.warning = loaded.error;
        return outline;
    }
    const Bytes& bytes = *loaded.value;
    if (bytes.empty()) {
        outline.warning = T("这一段没有音频数据");
    } else if (sniffExtension(bytes).empty()) {
        outline.warning = T("这段音频不像 WAV、MP3 或 Ogg");
    } else if (const OggDecoding decoded = decodeClip(bytes); decoded.pcm) {
        outline.durationMs = decoded.pcm->durationMs();
        outline.peaks = waveformPeaks(*decoded.pcm, columns);
        outline.warning = lengthWarning(outline.durationMs);
    } else if (looksLikeOgg(bytes)) {
        outline.warning = oggResultText(decoded.result).value_or("");
    } else {
        outline.warning = T("这段音频解不开,不知道有多长。");
    }
    return outline;
}

std::optional<PlayableClip> loadPlayableClip(const std::string& path) {
    std::optional<Bytes> bytes = loadFileBytes(path);
    if (!bytes) return std::nullopt;
    const std::optional<PcmBuffer> pcm = decodeReference(*bytes);
    if (!pcm || pcm->data.size() > maxWavSamples)
        return PlayableClip{SharedBytes(std::move(*bytes)), 0};
    return PlayableClip{SharedBytes(buildWav(*pcm, 1)), pcm->durationMs()};
}

Bytes loadClipBytes(const std::string& path) {
    std::optional<FileHead> head = readFileHead(path, headBytes);
    if (head && sniffExtension(head->bytes).empty()) return std::move(head->bytes);
    std::optional<Bytes> bytes = head ? loadFileBytes(path) : std::nullopt;
    if (!bytes) throw TtsError(TtsErrorCode::badAudio, TF("打不开:%@", path));
    return std::move(*bytes);
}

}  // namespace zepho
