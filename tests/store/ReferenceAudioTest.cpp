#include <random>

#include "core/audio/ClipDecoding.h"
#include "core/audio/SpeedChange.h"
#include "core/audio/WavReader.h"
#include "core/store/ReferenceAudio.h"
#include "tests/audio/WavBytes.h"
#include "tests/store/VoiceFixture.h"
#include "tests/tools/EncodedClips.h"

namespace zepho::test {
namespace {

class ReferenceAudioTest : public VoiceFixture {
protected:
    // A voice of these clips; an empty one stands for a file that is not there.
    VoiceInfo voiceOf(const std::vector<Bytes>& files) {
        VoiceInfo voice;
        voice.display = "Anna";
        for (const Bytes& file : files) {
            const std::string name = "clip-" + std::to_string(voice.clips.size());
            if (file.empty())
                std::filesystem::remove(clips() + name);
            else
                saveFileBytes(clips() + name, file);
            voice.clips.push_back({name, "text", 0});
        }
        AppLog::clear();
        return voice;
    }

    // What the engine would get; empty if nothing.
    Bytes referenceOf(const std::vector<Bytes>& files) {
        const auto bytes = library.referenceAudio(voiceOf(files));
        if (!bytes) return {};
        return {bytes->view().begin(), bytes->view().end()};
    }
};

std::vector<std::string> warnings() {
    return logged(LogLevel::warn);
}

using Lines = std::vector<std::string>;

TEST_F(ReferenceAudioTest, SingleClipGoesOutAsItIsOrRewritten) {
    EXPECT_FALSE(library.referenceAudio(VoiceInfo()));
    const Bytes mp3 = encodeMp3(wavOf(16000, 6000));
    for (const Bytes& clip : {wavOf(8000, 30000), wavOf(8000, 6000, 2), mp3,
                              toBytes("what no reader knows"), toBytes("RIFF but no WAV at all")})
        EXPECT_EQ(referenceOf({clip}), clip);
    EXPECT_TRUE(warnings().empty());
    EXPECT_TRUE(referenceOf({{}}).empty());
    EXPECT_EQ(warnings(), Lines{"cannot read reference audio (clip-0)"});

    // Too long: the beginning, in mono.
    for (const int channels : {1, 2}) {
        const Bytes clip = wavOf(8000, 30001, channels);
        PcmBuffer pcm = *parseWav(clip);
        pcm.data.resize(240000);
        EXPECT_EQ(referenceOf({clip}), buildWav(pcm, 1));
        EXPECT_EQ(warnings(), Lines{"reference audio for Anna was 30 s; trimmed to 30 s "
                                    "before sending it to the engine"});
    }
    EXPECT_EQ(wavDurationMs(referenceOf({encodeMp3(wavOf(16000, 42000))})), 30000);

    // What the engine cannot read.
    const auto rewritten = parseWavWithFormat(referenceOf({encodeVorbis(wavOf(16000, 10000, 2))}));
    ASSERT_TRUE(rewritten);
    EXPECT_EQ(rewritten->format.sampleRate, 16000);
    EXPECT_EQ(rewritten->format.channels, 1);
    EXPECT_EQ(rewritten->pcm.durationMs(), 10000);
    for (const auto& [clip, result] : {std::pair{encodeOpus(wavOf(48000, 6000)), OggResult::opus},
                                       {toBytes("OggS, and then nothing"), OggResult::failed}}) {
        EXPECT_TRUE(referenceOf({clip}).empty());
        EXPECT_EQ(
            logged(LogLevel::error),
            Lines{"reference audio for Anna is ogg but cannot be decoded; the engine does not "
                  "accept ogg, so this voice is unusable. " +
                  *oggResultText(result)});
    }
}

TEST_F(ReferenceAudioTest, ClipsAreMergedUpToTheCap) {
    VoiceInfo voice;
    for (const char* text : {" one ", "\n", "", "two  three\t"})
        voice.clips.push_back({"x", text, 0});
    EXPECT_EQ(VoiceLibrary::referenceText(voice), "one two  three");

    const Bytes fifteen = wavOf(8000, 15000);
    EXPECT_EQ(parseWav(referenceOf({fifteen, fifteen, fifteen}))->durationMs(), 30000);
    EXPECT_EQ(logged(LogLevel::info),
              Lines{"merged the Anna reference clips into one - 3 clip(s), 30.0 s"});
    EXPECT_EQ(warnings(), Lines{"merged reference audio already reached 30 s (the vendor "
                                "caps it at 30 s); skipping the rest"});

    // Broken clips cost only themselves.
    const Bytes good = wavOf(8000, 6000, 2);
    const Bytes junk = toBytes("junk");
    EXPECT_EQ(referenceOf({{}, good}), buildWav(*parseWav(good), 1));
    EXPECT_EQ(warnings(), Lines{"cannot decode this clip, skipping it in the merge: clip-0"});
    EXPECT_EQ(referenceOf({good, junk}), buildWav(*parseWav(good), 1));
    EXPECT_TRUE(referenceOf({junk, {}}).empty());
    EXPECT_EQ(warnings().size(), 2U);

    const Bytes ogg = encodeVorbis(wavOf(16000, 6000));
    const auto mixed = parseWav(referenceOf({encodeMp3(wavOf(16000, 6000)), ogg, good}));
    ASSERT_TRUE(mixed);
    EXPECT_EQ(mixed->sampleRate, 16000);
    EXPECT_NEAR(static_cast<double>(mixed->durationMs()), 18600, 150);
}

// The merge in full lists, with nothing left out.
Bytes plainMerge(const std::vector<Bytes>& files) {
    PcmBuffer merged;
    std::int64_t total = 0;
    for (const Bytes& file : files) {
        if (total >= 30000) break;
        const std::optional<PcmBuffer> parsed = parseWav(file);
        if (!parsed) continue;
        const PcmBuffer& clip = *parsed;
        if (merged.sampleRate == 0) merged.sampleRate = clip.sampleRate;
        const PcmBuffer converted = resample(clip, merged.sampleRate);
        if (!merged.data.empty()) {
            const PcmBuffer gap = PcmBuffer::silence(merged.sampleRate, 300);
            merged.data.insert(merged.data.end(), gap.data.begin(), gap.data.end());
            total += 300;
        }
        const std::int64_t room = 30000 - total;
        auto take = static_cast<std::int64_t>(converted.data.size());
        if (room >= 1) {
            const auto clipMs = std::llround(static_cast<double>(take) / clip.sampleRate * 1000);
            if (room < clipMs)
                take = std::min<std::int64_t>(
                    take, std::llround(static_cast<double>(merged.sampleRate * room) / 1000));
        }
        merged.data.insert(merged.data.end(), converted.data.begin(),
                           converted.data.begin() + take);
        total += std::llround(static_cast<double>(take) / merged.sampleRate * 1000);
    }
    return merged.isEmpty() ? Bytes() : buildWav(merged, 1);
}

TEST_F(ReferenceAudioTest, EveryMergeEqualsThePlainOne) {
    std::mt19937 random(7);
    const std::array rates{800, 1000, 1103, 1600};
    // The gap crosses the cap; lengths just about it; then whatever comes.
    std::vector<std::vector<Bytes>> voices{
        {wavOf(1000, 29800), wavOf(800, 9000)},
        {wavOf(1000, 29700), wavOf(1600, 9000)},
        {wavOf(1000, 29999), wavOf(1000, 40000), wavOf(1000, 5000)},
        {wavOf(1000, 0), wavOf(800, 31000)},
        {wavOf(1000, 6000), wavOf(800, 0), wavOf(800, 6000)},
    };
    for (int i = 0; i < 40; ++i) {
        std::vector<Bytes> voice;
        for (unsigned clip = 0; clip < 2 + random() % 3; ++clip)
            voice.push_back(wavOf(rates.at(random() % 4), 1000 + random() % 24000, 1, 4));
        voices.push_back(std::move(voice));
    }
    for (const std::vector<Bytes>& voice : voices) {
        const Bytes expected = plainMerge(voice);
        EXPECT_FALSE(expected.empty());
        EXPECT_EQ(referenceOf(voice), expected);
    }
}

TEST_F(ReferenceAudioTest, AbsurdRatesStayWithinTheBound) {
    const auto claiming = [](std::uint32_t rate, std::size_t samples) {
        return toBytes(riff(formatChunk(1, 1, rate, 8) + chunk("data", std::string(samples, 'x'))));
    };
    constexpr std::size_t bound = 2000000;
    const auto sizeOf = [&](const std::vector<Bytes>& files) {
        return referenceAudio(voiceOf(files), clips(), bound)->size();
    };
    // 2000 million samples a second: the gap alone would take gigabytes.
    EXPECT_EQ(sizeOf({claiming(2000000000, 1000), wavOf(8000, 6000)}), 44 + bound * 2);
    // One sample a second behind a gap that crosses the cap: let through whole, but not endlessly.
    EXPECT_EQ(sizeOf({wavOf(44100, 29800), claiming(1, 4000)}), 44 + bound * 2);
    EXPECT_EQ(sizeOf({wavOf(8000, 29800), claiming(1, 10)}), 44 + (29800 + 300 + 10000) * 8 * 2);
}

}  // namespace
}  // namespace zepho::test
