#include "core/engine/PlaceholderEngine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "core/diag/Language.h"
#include "core/engine/PlaceholderKernels.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

using placeholder::blockSize;
using placeholder::Sound;
using placeholder::twoPi;

// The first three resonances of five vowels, in hertz.
constexpr std::array<std::array<float, 3>, 5> formants{{
    {730, 1090, 2440},
    {270, 2290, 3010},
    {300, 870, 2240},
    {530, 1840, 2480},
    {570, 840, 2410},
}};

// Scalars above this are ideographs and their like: one of them is a syllable.
constexpr char32_t lastShortScalar = 0x2E80;

constexpr int shortSoundMs = 80;
constexpr int longSoundMs = 170;
constexpr int markPauseMs = 220;
constexpr int blankPauseMs = 70;
constexpr int closingPauseMs = 120;
constexpr int fadeMs = 10;

enum class SegmentKind { voiced, fricative, pause };

struct Segment {
    SegmentKind kind = SegmentKind::pause;
    int durationMs = 0;
    int vowel = 0;  // index into `formants`
    float stress = 1;

    [[nodiscard]] std::size_t samples() const {
        return static_cast<std::size_t>(
            std::llround(static_cast<double>(durationMs) * ZEPHO::defaultSampleRate / 1000));
    }
};

bool isPauseMark(std::string_view character) {
    static constexpr std::array<std::string_view, 13> marks{",",  ".",  "!",  "?",  ";",  ":", "，",
                                                            "。", "！", "？", "、", "；", "："};
    return std::find(marks.begin(), marks.end(), character) != marks.end();
}

bool isFricative(std::string_view character) {
    return character.size() == 1 &&
           std::string_view("sSfFhHxXcCzZ").find(character.front()) != std::string_view::npos;
}

Segment soundOf(const Grapheme& character) {
    const char32_t scalar = character.first;
    Segment segment;
    segment.kind = isFricative(character.bytes) ? SegmentKind::fricative : SegmentKind::voiced;
    segment.durationMs = scalar > lastShortScalar ? longSoundMs : shortSoundMs;
    segment.vowel = static_cast<int>(scalar % formants.size());
    segment.stress = static_cast<float>(scalar & 3) / 4 / 3 + 0.75F;
    return segment;
}

Segment pauseOf(int ms) {
    Segment segment;
    segment.durationMs = ms;
    return segment;
}

// What stands in brackets is a direction to the speaker and makes no sound.
std::vector<Segment> segmentsOf(std::string_view text) {
    std::vector<Segment> segments;
    bool inBrackets = false;
    forEachGrapheme(text, [&](const Grapheme& character) {
        if (character.bytes == "[")
            inBrackets = true;
        else if (character.bytes == "]")
            inBrackets = false;
        else if (inBrackets)
            return;
        else if (isPauseMark(character.bytes))
            segments.push_back(pauseOf(markPauseMs));
        else if (isWhiteSpace(character.first))
            segments.push_back(pauseOf(blankPauseMs));
        else if (isLetterOrNumber(character.first))
            segments.push_back(soundOf(character));
    });
    segments.push_back(pauseOf(closingPauseMs));
    return segments;
}

float basePitch(TtsGender gender) {
    switch (gender) {
        case TtsGender::female:
            return 205;
        case TtsGender::male:
            return 112;
        case TtsGender::auto_:
            break;
    }
    return 155;
}

// Speaks the segments of one line in order. The oscillator and the noise run on from one segment to
// the next, each value made from the one before; everything else is left to the vector kernels.
class Speaker {
public:
    Speaker(TtsGender gender, std::int64_t seed)
        : state(static_cast<std::uint32_t>(seed) * 0x9E3779B1U + 1),
          pitch(basePitch(gender) *
                (static_cast<float>((state >> 16) & 255) * 0.3F / 255 + 0.85F)) {}

    // `slope` lowers the pitch of this segment; `line` holds zeros at the segment's place.
    void speak(const Segment& segment, float slope, std::size_t start, std::vector<float>& line) {
        if (segment.kind == SegmentKind::pause) return;
        const Sound sound{start, segment.samples(), segment.stress,
                          formants[static_cast<std::size_t>(segment.vowel)]};
        const float increment = pitch * slope * twoPi / placeholder::sampleRate;
        for (std::size_t first = 0; first < sound.length; first += blockSize) {
            const std::size_t count = std::min(blockSize, sound.length - first);
            if (segment.kind == SegmentKind::voiced) {
                oscillate(increment, count);
                placeholder::shapeVoiced(sound, first, block.data(), count);
            } else {
                rustle(count);
                placeholder::shapeNoise(sound, first, block.data(), count);
            }
            std::copy_n(block.data(), count, line.data() + start + first);
        }
    }

private:
    void oscillate(float increment, std::size_t count) {
        float angle = phase;
        for (std::size_t i = 0; i < count; ++i) {
            angle += increment;
            // A branch, taken once in some hundred samples, keeps the comparison out of the chain
            // of additions that each sample waits for.
            if (angle > twoPi) [[unlikely]]
                angle -= twoPi;
            block[i] = angle;
        }
        phase = angle;
    }

    void rustle(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            state = state * 1664525U + 1013904223U;
            const auto level = static_cast<std::int32_t>((state >> 8) & 0xFFFF) - 32768;
            block[i] = static_cast<float>(level) / 32768;
        }
    }

    std::uint32_t state;
    float pitch;  // in hertz
    float phase = 0;
    alignas(64) std::array<float, blockSize> block{};
};

}  // namespace

PlaceholderEngine::PlaceholderEngine(EngineOptions options) : opts(std::move(options)) {}

void PlaceholderEngine::configure(const EngineOptions& options) {
    const std::lock_guard guard(lock);
    opts = options;
}

EngineOptions PlaceholderEngine::options() const {
    const std::lock_guard guard(lock);
    return opts;
}

EngineHealth PlaceholderEngine::checkHealth() {
    EngineHealth health;
    health.ready = true;
    health.backend = T("占位波形");
    health.detail = T("bin 里还没有模型;这是可听的假音频,只用来验证链路");
    return health;
}

PcmBuffer PlaceholderEngine::synthesize(const S2Params& params, const VoiceHint& hint) {
    PcmBuffer pcm;
    pcm.sampleRate = ZEPHO::defaultSampleRate;
    if (trimmedView(params.text).empty()) return pcm;

    const std::vector<Segment> segments = segmentsOf(params.text);
    std::size_t total = 0;
    for (const Segment& segment : segments) total += segment.samples();
    pcm.data.resize(total);

    Speaker speaker(hint.gender, hint.seed);
    const auto steps = static_cast<float>(std::max<std::size_t>(segments.size(), 2) - 1);
    std::size_t start = 0;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        // The pitch falls by 18 % over the line.
        const float slope = 1 + static_cast<float>(i) * -0.18F / steps;
        speaker.speak(segments[i], slope, start, pcm.data);
        start += segments[i].samples();
    }
    fadeEdges(pcm, fadeMs);
    return pcm;
}

}  // namespace zepho
