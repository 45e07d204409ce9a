// Decoding of files that real encoders made, through the helper program and by the entries alone.
#include <chrono>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "core/audio/AudioSniffing.h"
#include "core/audio/ClipDecoding.h"
#include "core/diag/AppLog.h"
#include "core/platform/PlatformPaths.h"
#include "helper/DecoderEntries.h"
#include "tests/tools/EncodedClips.h"

namespace zepho {
namespace {

using test::encodeMp3;
using test::encodeOpus;
using test::encodeVorbis;
using test::toneMono;
using test::toneWav;

void expectTone(const std::optional<PcmBuffer>& heard, int rate, int channels, std::size_t frames) {
    ASSERT_TRUE(heard);
    EXPECT_EQ(heard->sampleRate, rate);
    ASSERT_EQ(heard->data.size(), frames);
    const PcmBuffer meant = toneMono(rate, channels, frames);
    double difference = 0;
    double energy = 0;
    for (std::size_t i = 0; i < frames; ++i) {
        difference += std::pow(heard->data[i] - meant.data[i], 2);
        energy += std::pow(meant.data[i], 2);
    }
    EXPECT_LT(difference, 0.02 * energy) << "lossy coding leaves a percent or so";
}

TEST(ClipDecodingTest, RealFilesDecodeToTheirMeanAtTheirRateWithoutAFrameTooMany) {
    for (const int rate : {8000, 16000, 22050, 44100, 48000})
        for (const int channels : {1, 2}) {
            SCOPED_TRACE(std::to_string(rate) + " Hz, channels: " + std::to_string(channels));
            const std::size_t frames = static_cast<std::size_t>(rate) + 123;
            const Bytes wav = toneWav(rate, channels, frames);
            expectTone(decodeReference(wav), rate, channels, frames);
            // Encoders pad MP3 at both ends, and tell by how much where a frame has room for it.
            const char* bitRate = rate > 24000 ? "-b 128" : "-b 64";
            expectTone(decodeMp3(encodeMp3(wav, bitRate)), rate, channels, frames);
            const Bytes ogg = encodeVorbis(wav);
            expectTone(decodeReference(ogg), rate, channels, frames);
            EXPECT_EQ(decodeOgg(ogg).result, OggResult::ok);
        }
}

TEST(ClipDecodingTest, TagsAroundAnMp3DoNotGetIntoTheSound) {
    const std::size_t frames = 30'000;
    const Bytes wav = toneWav(44100, 2, frames);
    for (const char* options : {"-V 4 --add-id3v2 --tt Title", "--id3v1-only --tt T", "-m m"})
        expectTone(decodeReference(encodeMp3(wav, options)), 44100, 2, frames);

    const std::string items("\3\0\0\0\0\0\0\0Title\0abc", 17);
    for (const bool headed : {false, true}) {
        const std::string ape =
            "APETAGEX" + std::string("\xD0\x07\0\0", 4) + std::string("\x31\0\0\0\1\0\0\0", 8) +
            std::string(headed ? "\0\0\0\x80" : "\0\0\0\0", 4) + std::string(8, '\0');
        const std::string tag = (headed ? ape : "") + items + ape + "TAG" + std::string(125, ' ');
        Bytes tagged = encodeMp3(wav);
        tagged.insert(tagged.end(), tag.begin(), tag.end());
        expectTone(decodeMp3(tagged), 44100, 2, frames);
    }
}

TEST(ClipDecodingTest, TellsKindsAndDamageApart) {
    const std::size_t frames = 44'100;
    const Bytes wav = toneWav(44100, 2, frames);
    const Bytes mp3 = encodeMp3(wav);
    const Bytes ogg = encodeVorbis(wav);
    const auto opusHeadAt = [](std::size_t position) {
        Bytes bytes(2000, 0);
        std::memcpy(bytes.data(), "OggS", 4);
        std::memcpy(bytes.data() + position, "OpusHead", 8);
        return bytes;
    };
    EXPECT_EQ(decodeOgg({}).result, OggResult::failed);
    EXPECT_EQ(decodeOgg(mp3).result, OggResult::notVorbis);
    EXPECT_EQ(decodeOgg(encodeOpus(wav)).result, OggResult::opus);
    EXPECT_EQ(decodeOgg(opusHeadAt(504)).result, OggResult::opus) << "the last place looked at";
    EXPECT_EQ(decodeOgg(opusHeadAt(505)).result, OggResult::failed);
    EXPECT_FALSE(decodeReference({}));
    EXPECT_FALSE(decodeReference(asBytes("a text file")));
    EXPECT_FALSE(decodeReference(ByteView(mp3).first(10)));
    // Begins like WAV but does not parse: the MP3 behind it is found.
    Bytes both = toBytes("RIFF\x10\0\0\0");
    both.insert(both.end(), mp3.begin(), mp3.end());
    EXPECT_EQ(sniffExtension(both), ".wav");
    EXPECT_TRUE(decodeReference(both));

    // Within the headers there is nothing to hear.
    EXPECT_EQ(decodeOgg(ByteView(ogg).first(1000)).result, OggResult::failed);

    // More than the library can count: refused before a byte is read.
    float* samples = nullptr;
    std::uint64_t count = 0;
    std::uint32_t rate = 0;
    EXPECT_EQ(zepho_ogg_decode(ogg.data(), std::uint64_t{1} << 31, &samples, &count, &rate), 0);
}

TEST(ClipDecodingTest, DecodesTenMinutesOfALongerClip) {
    AppLog::clear();
    constexpr std::size_t tenMinutes = std::size_t{600} * 8000;
    const auto silence = [](std::size_t frames) {
        PcmBuffer pcm{std::vector<float>(frames), 8000};
        return encodeMp3(buildWav(pcm, 1), "-b 64");
    };
    // A deadline that no busy machine reaches.
    DecoderHelper helper(programDirectory() + "zephon-decode",
                         {.deadline = std::chrono::minutes(1)});
    for (const std::size_t frames : {tenMinutes, tenMinutes + 80'000}) {
        const DecodedClip clip = helper.decode(DecoderEntry::mp3, silence(frames));
        ASSERT_TRUE(clip.pcm);
        EXPECT_EQ(clip.pcm->data.size(), tenMinutes);
    }
    EXPECT_TRUE(AppLog::snapshot().empty()) << "a long clip is no fault of the helper";
}

}  // namespace
}  // namespace zepho
