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

Lines warnings() {
    return logged(LogLevel::warn);
}

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
    const Bytes rewritten = referenceOf({encodeVorbis(wavOf(16000, 10000, 2))});
    EXPECT_EQ(wavDurationMs(rewritten), 10000);
    EXPECT_EQ(rewritten.size(), 44 + 16000 * 10 * 2) << "mono, at its own rate";
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
    EXPECT_EQ(wavDurationMs(referenceOf({fifteen, fifteen, fifteen})), 30000);
    EXPECT_EQ(logged(LogLevel::info),
              Lines{"merged the Anna reference clips into one - 3 clip(s), 30.0 s"});
    EXPECT_EQ(warnings(), Lines{"merged reference audio already reached 30 s (the vendor "
                                "caps it at 30 s); skipping the rest"});

    // Broken clips cost only themselves.
    const Bytes good = wavOf(8000, 6000, 2);
    const Bytes junk = toBytes("junk");
    EXPECT_EQ(referenceOf({{}, good, junk}), buildWav(*parseWav(good), 1));
    const std::string skipping = "cannot decode this clip, skipping it in the merge: clip-";
    EXPECT_EQ(warnings(), (Lines{skipping + "0", skipping + "2"}));
    EXPECT_TRUE(referenceOf({junk, {}}).empty());

    const Bytes ogg = encodeVorbis(wavOf(16000, 6000));
    const Bytes mixed = referenceOf({encodeMp3(wavOf(16000, 6000)), ogg, good});
    EXPECT_NEAR(static_cast<double>(wavDurationMs(mixed)), 18600, 150);
}

TEST_F(ReferenceAudioTest, MergeEndsWhereItAlwaysDid) {
    const struct {
        std::vector<Bytes> clips;
        std::int64_t ms;
    } rows[] = {
        {{wavOf(1000, 6000), wavOf(800, 0), wavOf(800, 6000)}, 6000 + 300 + 6000},
        {{wavOf(1000, 0), wavOf(800, 31000)}, 30000},
        {{wavOf(1000, 10000), wavOf(800, 25000)}, 30000},
        // A gap that reaches the cap lets the next clip through, and nothing behind it.
        {{wavOf(1000, 29699), wavOf(800, 9000)}, 30000},
        {{wavOf(1000, 29700), wavOf(1600, 9000)}, 30000 + 9000},
        {{wavOf(1000, 29999), wavOf(1000, 40000), wavOf(1000, 5000)}, 29999 + 300 + 40000},
        // The cap is held against the samples as if they had the clip's own rate.
        {{wavOf(1000, 10000), wavOf(1600, 25000)}, 10000 + 300 + 25000},
        {{wavOf(1000, 10000), wavOf(1600, 32000)}, 30000},
    };
    for (const auto& row : rows) EXPECT_EQ(wavDurationMs(referenceOf(row.clips)), row.ms);

    const PcmBuffer first = *parseWav(wavOf(1000, 6000));
    const PcmBuffer second = *parseWav(wavOf(1600, 7000));
    PcmBuffer joint = first;
    joint.data.resize(6300);
    const std::vector<float> converted = resample(second, 1000).data;
    joint.data.insert(joint.data.end(), converted.begin(), converted.end());
    EXPECT_EQ(referenceOf({buildWav(first, 1), buildWav(second, 1)}), buildWav(joint, 1));
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
