#include "core/store/ReferenceAudio.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "core/audio/AudioSniffing.h"
#include "core/audio/ClipDecoding.h"
#include "core/audio/PcmBuffer.h"
#include "core/audio/SpeedChange.h"
#include "core/audio/WavReader.h"
#include "core/diag/AppLog.h"
#include "core/diag/FormatText.h"
#include "core/platform/Files.h"
#include "core/platform/Unicode.h"
#include "core/store/ClipStore.h"

namespace zepho {
namespace {

constexpr std::int64_t gapMs = 300;
constexpr auto capSeconds = referenceCapMs / 1000;

std::optional<Bytes> readClip(const std::string& directory, const VoiceClip& clip) {
    const std::string path = clipPathIn(directory, clip.fileName);
    return path.empty() ? std::nullopt : loadFileBytes(path);
}

std::size_t samplesFor(int rate, std::int64_t ms) {
    return static_cast<std::size_t>(
        std::llround(static_cast<double>(rate) * static_cast<double>(ms) / 1000));
}

std::int64_t millisecondsOf(std::size_t samples, int rate) {
    return std::llround(static_cast<double>(samples) / std::max(rate, 1) * 1000);
}

std::optional<SharedBytes> singleClip(const VoiceInfo& voice, const std::string& directory) {
    const VoiceClip& clip = voice.clips.front();
    std::optional<Bytes> bytes = readClip(directory, clip);
    if (!bytes) {
        AppLog::warn("voices", "cannot read reference audio (" + clip.fileName + ")");
        return std::nullopt;
    }
    OggDecoding decoding = decodeClip(*bytes);
    if (!decoding.pcm) {
        if (!looksLikeOgg(*bytes)) return SharedBytes(std::move(*bytes));
        AppLog::error("voices", "reference audio for " + voice.display +
                                    " is ogg but cannot be decoded; the engine does not accept "
                                    "ogg, so this voice is unusable. " +
                                    oggResultText(decoding.result).value_or(std::string()));
        return std::nullopt;
    }
    PcmBuffer& pcm = *decoding.pcm;
    const std::int64_t duration = pcm.durationMs();
    if (duration <= referenceCapMs) {
        if (engineReadsFormat(*bytes)) return SharedBytes(std::move(*bytes));
        return SharedBytes(buildWav(pcm, 1));
    }
    bytes.reset();
    pcm.data.resize(std::min(pcm.data.size(), samplesFor(pcm.sampleRate, referenceCapMs)));
    AppLog::warn("voices",
                 formatText("reference audio for %@ was %.0f s; trimmed to %d s before "
                            "sending it to the engine",
                            voice.display, static_cast<double>(duration) / 1000, capSeconds));
    return SharedBytes(buildWav(pcm, 1));
}

// Strings clips together at the rate of the first one, with a short silence between them, until
// the cap is reached.
class ClipMerger {
public:
    explicit ClipMerger(std::size_t bound) : mostSamples(bound) {}

    [[nodiscard]] bool isFull() const { return totalMs >= referenceCapMs; }
    [[nodiscard]] const PcmBuffer& result() const { return merged; }

    void add(const PcmBuffer& clip) {
        if (merged.sampleRate == 0) merged.sampleRate = clip.sampleRate;
        if (!merged.data.empty()) {
            grow(samplesFor(merged.sampleRate, gapMs));
            totalMs += gapMs;
        }
        const std::size_t taken = append(clip, share(clip));
        totalMs += millisecondsOf(taken, merged.sampleRate);
    }

private:
    // How much faster the clip's samples follow each other than those of the result.
    [[nodiscard]] float stepOf(const PcmBuffer& clip) const {
        return static_cast<float>(clip.sampleRate) / static_cast<float>(merged.sampleRate);
    }

    // The clip's samples once it has the result's rate.
    [[nodiscard]] std::size_t convertedCount(const PcmBuffer& clip) const {
        if (clip.data.empty() || clip.sampleRate == merged.sampleRate) return clip.data.size();
        const float length = static_cast<float>(clip.data.size()) / stepOf(clip);
        return static_cast<std::size_t>(std::clamp(std::round(length), 1.0F, 1e15F));
    }

    // How many of them are wanted. Whether the cap cuts a clip is measured by its own rate although
    // the count is one at the result's: the same clips are to give the same reference as ever. A gap
    // that crosses the cap lets the whole next clip through.
    [[nodiscard]] std::size_t share(const PcmBuffer& clip) const {
        const std::size_t count = convertedCount(clip);
        const std::int64_t room = referenceCapMs - totalMs;
        if (room < 1 || room >= millisecondsOf(count, clip.sampleRate)) return count;
        return std::min(samplesFor(merged.sampleRate, room), count);
    }

    // Only what is wanted gets converted: the rest of a long clip would cost memory for nothing.
    std::size_t append(const PcmBuffer& clip, std::size_t wanted) {
        const std::size_t count = std::min(wanted, mostSamples - merged.data.size());
        if (clip.sampleRate == merged.sampleRate) {
            const auto end = clip.data.begin() + static_cast<std::ptrdiff_t>(count);
            merged.data.insert(merged.data.end(), clip.data.begin(), end);
        } else if (count > 0) {
            const std::vector<float> converted = interpolate(clip.data, count, stepOf(clip));
            merged.data.insert(merged.data.end(), converted.begin(), converted.end());
        }
        return count;
    }

    void grow(std::size_t silence) {
        merged.data.resize(std::min(merged.data.size() + silence, mostSamples), 0.0F);
    }

    const std::size_t mostSamples;
    PcmBuffer merged;
    std::int64_t totalMs = 0;
};

std::optional<SharedBytes> mergedClips(const VoiceInfo& voice, const std::string& directory,
                                       std::size_t mostSamples) {
    ClipMerger merger(mostSamples);
    for (const VoiceClip& clip : voice.clips) {
        if (merger.isFull()) {
            AppLog::warn("voices", formatText("merged reference audio already reached %d s (the "
                                              "vendor caps it at %d s); skipping the rest",
                                              capSeconds, capSeconds));
            break;
        }
        std::optional<PcmBuffer> pcm;
        if (const std::optional<Bytes> bytes = readClip(directory, clip))
            pcm = decodeClip(*bytes).pcm;
        if (!pcm || pcm->sampleRate < 1) {
            AppLog::warn("voices",
                         "cannot decode this clip, skipping it in the merge: " + clip.fileName);
            continue;
        }
        merger.add(*pcm);
    }
    const PcmBuffer& merged = merger.result();
    if (merged.isEmpty()) return std::nullopt;
    AppLog::info("voices", formatText("merged the %@ reference clips into one - %d clip(s), %.1f s",
                                      voice.display, voice.clips.size(),
                                      static_cast<double>(merged.data.size()) / merged.sampleRate));
    return SharedBytes(buildWav(merged, 1));
}

}  // namespace

std::string referenceText(const VoiceInfo& voice) {
    std::string joined;
    for (const VoiceClip& clip : voice.clips) {
        const std::string_view text = trimmedView(clip.text);
        if (text.empty()) continue;
        if (!joined.empty()) joined += ' ';
        joined += text;
    }
    return joined;
}

std::optional<SharedBytes> referenceAudio(const VoiceInfo& voice, const std::string& clipsDirectory,
                                          std::size_t mostSamples) {
    if (voice.clips.empty()) return std::nullopt;
    if (voice.clips.size() == 1) return singleClip(voice, clipsDirectory);
    return mergedClips(voice, clipsDirectory, mostSamples);
}

}  // namespace zepho
