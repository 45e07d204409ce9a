// Decoding of files that real encoders made, through the helper program and by the entries alone.
#include <cmath>
#include <cstring>
#include <numeric>

#include <gtest/gtest.h>

#include "core/audio/AudioSniffing.h"
#include "core/audio/ClipDecoding.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "helper/DecoderEntries.h"
#include "tests/tools/EncodedClips.h"

namespace zepho {
namespace {

using test::encodeMp3;
using test::encodeOpus;
using test::encodeVorbis;
using test::toneMono;
using test::toneWav;

// The energy of the difference against that of the tone; lossy coding leaves a percent or so.
double relativeError(const PcmBuffer& heard, const PcmBuffer& meant) {
    double difference = 0;
    double energy = 0;
    for (std::size_t i = 0; i < meant.data.size(); ++i) {
        const double off = heard.data[i] - meant.data[i];
        difference += off * off;
        energy += static_cast<double>(meant.data[i]) * meant.data[i];
    }
    return difference / energy;
}

void expectTone(const std::optional<PcmBuffer>& heard, int rate, int channels, std::size_t frames) {
    ASSERT_TRUE(heard);
    EXPECT_EQ(heard->sampleRate, rate);
    ASSERT_EQ(heard->data.size(), frames);
    EXPECT_LT(relativeError(*heard, toneMono(rate, channels, frames)), 0.02);
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
    for (const char* options : {"-V 4", "-V 4 --id3v2-only --tt Title --ta Artist",
                                "--id3v1-only --tt T", "--add-id3v2 --tt T", "-m m"})
        expectTone(decodeReference(encodeMp3(wav, options)), 44100, 2, frames);

    const auto apeTag = [](bool headed) {
        const std::string items("\3\0\0\0\0\0\0\0Title\0abc", 17);
        std::string part =
            "APETAGEX" + std::string("\xD0\x07\0\0", 4) + std::string("\x31\0\0\0\1\0\0\0", 8) +
            std::string(headed ? "\0\0\0\x80" : "\0\0\0\0", 4) + std::string(8, '\0');
        return (headed ? part : "") + items + part;
    };
    for (const bool headed : {false, true}) {
        Bytes tagged = encodeMp3(wav);
        const std::string tag = apeTag(headed) + "TAG" + std::string(125, ' ');
        tagged.insert(tagged.end(), tag.begin(), tag.end());
        expectTone(decodeMp3(tagged), 44100, 2, frames);
    }

    // Without the encoder's tag the padding is part of the stream: more frames, none lost.
    const std::optional<PcmBuffer> untagged = decodeMp3(encodeMp3(wav, "-t"));
    ASSERT_TRUE(untagged);
    EXPECT_GT(untagged->data.size(), frames);
    EXPECT_EQ(untagged->data.size() % 1152, 0U);
}

TEST(ClipDecodingTest, TheKindOfAFileIsSettledInOrder) {
    const Bytes wav = toneWav(8000, 1, 8000);
    const Bytes mp3 = encodeMp3(wav);
    EXPECT_FALSE(decodeMp3({}));
    EXPECT_EQ(decodeOgg({}).result, OggResult::failed);
    EXPECT_EQ(decodeOgg(mp3).result, OggResult::notVorbis);
    EXPECT_EQ(decodeOgg(asBytes("a text file")).result, OggResult::notVorbis);
    EXPECT_FALSE(decodeReference(asBytes("a text file")));
    EXPECT_FALSE(decodeReference({}));

    // Begins like WAV but does not parse: the MP3 behind it is found.
    Bytes both = toBytes("RIFF\x10\0\0\0");
    both.insert(both.end(), mp3.begin(), mp3.end());
    EXPECT_EQ(sniffExtension(both), ".wav");
    EXPECT_TRUE(decodeReference(both));

    std::int32_t status = 7;
    EXPECT_FALSE(callDecoder(DecoderEntry::mp3, {}, status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(callDecoder(DecoderEntry::mp3, mp3, status));
    EXPECT_EQ(status, 1);
}

TEST(ClipDecodingTest, OpusIsToldFromDamage) {
    const Bytes opus = encodeOpus(toneWav(48000, 1, 48000));
    EXPECT_EQ(decodeOgg(opus).result, OggResult::opus);
    EXPECT_FALSE(decodeOgg(opus).pcm);
    EXPECT_FALSE(decodeReference(opus));

    const auto withWordAt = [](std::size_t position, std::size_t size) {
        Bytes bytes(size, 0);
        std::memcpy(bytes.data(), "OggS", 4);
        std::memcpy(bytes.data() + position, "OpusHead", 8);
        return decodeOgg(bytes).result;
    };
    EXPECT_EQ(withWordAt(4, 12), OggResult::opus);
    EXPECT_EQ(withWordAt(504, 512), OggResult::opus);
    EXPECT_EQ(withWordAt(504, 2000), OggResult::opus) << "the last place looked at";
    EXPECT_EQ(withWordAt(505, 2000), OggResult::failed);
    EXPECT_EQ(withWordAt(506, 2000), OggResult::failed);
}

TEST(ClipDecodingTest, FilesCutShortGiveWhatTheyHoldOrNothing) {
    const std::size_t frames = 44'100;
    const Bytes wav = toneWav(44100, 2, frames);
    const Bytes mp3 = encodeMp3(wav);
    const Bytes ogg = encodeVorbis(wav);
    const auto half = [](const Bytes& bytes) { return ByteView(bytes).first(bytes.size() / 2); };

    const std::optional<PcmBuffer> part = decodeReference(half(mp3));
    ASSERT_TRUE(part);
    EXPECT_GT(part->data.size(), frames / 4);
    EXPECT_LT(part->data.size(), frames);
    const OggDecoding oggPart = decodeOgg(half(ogg));
    EXPECT_LT(oggPart.pcm.value_or(PcmBuffer{}).data.size(), frames);
    // Within the headers there is nothing to hear.
    EXPECT_EQ(decodeOgg(ByteView(ogg).first(1000)).result, OggResult::failed);
    EXPECT_FALSE(decodeReference(ByteView(mp3).first(10)));
}

TEST(ClipDecodingTest, TenMinutesIsTheLongestClip) {
    AppLog::clear();
    constexpr std::size_t tenMinutes = std::size_t{600} * 8000;
    const auto silence = [](std::size_t frames) {
        PcmBuffer pcm{std::vector<float>(frames), 8000};
        return encodeMp3(buildWav(pcm, 1), "-b 64");
    };
    const std::optional<PcmBuffer> longest = decodeMp3(silence(tenMinutes));
    ASSERT_TRUE(longest);
    EXPECT_EQ(longest->data.size(), tenMinutes);
    EXPECT_FALSE(decodeMp3(silence(tenMinutes + 1)));
    EXPECT_TRUE(AppLog::snapshot().empty()) << "a long clip is no fault of the helper";
}

TEST(ClipDecodingTest, EntriesRefuseBadArgumentsAndLeaveTheirOutputs) {
    const Bytes wav = toneWav(8000, 2, 8000);
    const Bytes mp3 = encodeMp3(wav);
    const Bytes ogg = encodeVorbis(wav);
    struct Case {
        decltype(&zepho_mp3_decode) entry;
        const Bytes* good;
    };
    for (const Case& one : {Case{zepho_mp3_decode, &mp3}, Case{zepho_ogg_decode, &ogg}}) {
        float mark = 0;
        float* samples = &mark;
        std::uint64_t frames = 1;
        std::uint32_t rate = 2;
        const std::uint8_t* data = one.good->data();
        const std::uint64_t size = one.good->size();
        EXPECT_EQ(one.entry(nullptr, size, &samples, &frames, &rate), 0);
        EXPECT_EQ(one.entry(data, 0, &samples, &frames, &rate), 0);
        EXPECT_EQ(one.entry(data, size, nullptr, &frames, &rate), 0);
        EXPECT_EQ(one.entry(data, size, &samples, nullptr, &rate), 0);
        EXPECT_EQ(one.entry(data, size, &samples, &frames, nullptr), 0);
        EXPECT_EQ(one.entry(data, 20, &samples, &frames, &rate), 0);
        EXPECT_EQ(samples, &mark);
        EXPECT_EQ(frames, 1U);
        EXPECT_EQ(rate, 2U);
        ASSERT_EQ(one.entry(data, size, &samples, &frames, &rate), 1);
        EXPECT_EQ(frames, 8000U);
        EXPECT_EQ(rate, 8000U);
        zepho_audio_free(samples);
    }
    float* samples = nullptr;
    std::uint64_t frames = 0;
    std::uint32_t rate = 0;
    EXPECT_EQ(zepho_ogg_decode(ogg.data(), std::uint64_t{1} << 31, &samples, &frames, &rate), 0);
    zepho_audio_free(nullptr);
}

TEST(ClipDecodingTest, EveryOggResultHasItsSentence) {
    EXPECT_FALSE(oggResultText(OggResult::ok));
    EXPECT_EQ(oggResultText(OggResult::noDecoder),
              "zepho_audio.dll is not next to the app, so ogg cannot be decoded - the engine does "
              "not accept ogg either; please use WAV or MP3.");
    EXPECT_EQ(oggResultText(OggResult::notVorbis), "this is not an ogg file.");
    EXPECT_EQ(
        oggResultText(OggResult::opus),
        "this is Opus inside .ogg. Opus and Vorbis are different codecs and only Vorbis is "
        "supported here;convert it to WAV / MP3 / Ogg Vorbis with another tool and try again.");
    EXPECT_EQ(oggResultText(OggResult::failed),
              "cannot decode the ogg (the file may be truncated or corrupt).");
}

}  // namespace
}  // namespace zepho
