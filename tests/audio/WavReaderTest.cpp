#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/audio/AudioSniffing.h"
#include "core/audio/PcmBuffer.h"
#include "core/audio/WavReader.h"
#include "core/platform/Files.h"
#include "tests/audio/WavBytes.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using test::chunk;
using test::chunkClaiming;
using test::formatChunk;
using test::packed;
using test::riff;
using Samples = std::vector<float>;

// The decoded samples, or one sample of -99 when the bytes are refused.
Samples decoded(const std::string& file) {
    const auto pcm = parseWav(asBytes(file));
    return pcm ? pcm->data : Samples{-99};
}
const Samples refused{-99};

const std::string mono16 = formatChunk(1, 1, 8000, 16);
const std::string two16 = packed<std::int16_t>({16384, -32768});
const Samples two{0.5F, -1.0F};

TEST(WavReader, DecodesEveryDepth) {
    const float huge = std::numeric_limits<float>::infinity();
    const struct {
        int tag, channels, bits;
        std::string body;
        Samples samples;
    } rows[] = {
        {1, 1, 8, std::string("\x80\x00\xFF\x40", 4), {0, -1, 127 / 128.F, -.5F}},
        {1,
         1,
         16,
         packed<std::int16_t>({1, -1, 32767}),
         {1 / 32768.F, -1 / 32768.F, 32767 / 32768.F}},
        {1,
         1,
         24,
         std::string("\0\0\x80\xFF\xFF\x7F\xFF\xFF\xFF", 9),
         {-1, 8388607 / 8388608.F, -1 / 8388608.F}},
        {1, 1, 32, packed<std::int32_t>({1 << 30, INT32_MIN, 3}), {0.5F, -1, 3 / 2147483648.F}},
        {3,
         1,
         32,
         packed<float>({1.75F, -3, 1e-40F, std::nanf(""), huge, -huge, 3e38F, -1e18F}),
         {1.75F, -3, 1e-40F, 0, 0, 0, 0, -1e18F}},
        // The tag matters for 32 bits only; an extensible file of 32 bits holds floats.
        {3, 1, 16, two16, two},
        {0xFFFE, 1, 16, two16, two},
        {0xFFFE, 1, 32, packed<float>({2.5F}), {2.5F}},
        {2, 1, 16, two16, refused},
        {0x55, 1, 16, two16, refused},
        // The mean of the channels; an incomplete frame at the end is dropped.
        {3, 2, 32, packed<float>({1, -1, 0.5F, 1, 7}), {0, 0.75F}},
        {3, 2, 32, packed<float>({3e38F, 3e38F, 1, -3e38F}), {0, 0.5F}},
        {1, 3, 16, packed<std::int16_t>({8192, 8192, 8192, 1, 1}), {0.25F}},
        {1, 4, 8, std::string("\xC0\xC0\x80\x80\x80", 5), {0.25F}},
        {1, 65535, 16, std::string(131069, 'x'), refused},
        {1, 65535, 16, std::string(131071, '\0'), {0}},
        {1, 0, 16, two16, refused},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.tag) + "/" + std::to_string(row.bits));
        EXPECT_EQ(decoded(riff(formatChunk(row.tag, row.channels, 8000, row.bits) +
                               chunk("data", row.body))),
                  row.samples);
    }
    for (const int bits : {0, 1, 12, 40, 64, 65535})
        EXPECT_EQ(
            decoded(riff(formatChunk(1, 1, 8000, bits) + chunk("data", std::string(70000, 'x')))),
            refused)
            << bits;
    // 0x80000000 has no place in a buffer's rate.
    for (const auto& [rate, samples] :
         {std::pair{0U, refused}, {0x7FFFFFFFU, two}, {0x80000000U, refused}})
        EXPECT_EQ(decoded(riff(formatChunk(1, 1, rate, 16) + chunk("data", two16))), samples);
    EXPECT_EQ(wavDurationMs(asBytes(riff(mono16 + chunk("data", std::string(2 * 8004, 'x'))))),
              1001);  // 1000.5 away from zero
}

TEST(WavReader, WalksTheChunks) {
    const std::string data = chunk("data", two16);
    const std::string odd = chunk("LIST", "abc");
    EXPECT_EQ(decoded(riff(odd + mono16 + data)), two);
    EXPECT_EQ(decoded(riff(mono16 + chunk("JUNK", "") + data)), two);
    EXPECT_EQ(decoded(riff(chunk("JUNK", "") + data)), refused);
    // Later chunks win over earlier ones, and the format may come last if the walk reaches it.
    EXPECT_EQ(decoded(riff(formatChunk(1, 1, 8000, 8) + mono16 + data)), two);
    EXPECT_EQ(decoded(riff(data + mono16)), two);
    EXPECT_EQ(decoded(riff(chunkClaiming("data", 400, two16) + mono16)), refused);
    // Sizes beyond the end: data is cut to what there is, anything else ends the walk.
    for (const std::uint32_t size : {1001U, 0xFFFFFFF0U, 0xFFFFFFFFU}) {
        const std::string cut = riff(mono16 + chunkClaiming("data", size, std::string(1000, '\0')));
        EXPECT_EQ(decoded(cut), Samples(500, 0.0F)) << size;
        EXPECT_EQ(decoded(riff(mono16 + chunkClaiming("LIST", size, data))), refused) << size;
    }
    // A format chunk must be whole; its extension is skipped.
    const std::string longFormat = mono16.substr(8) + std::string(24, 'x');
    EXPECT_EQ(decoded(riff(chunk("fmt ", longFormat) + data)), two);
    EXPECT_EQ(decoded(riff(chunkClaiming("fmt ", 14, mono16.substr(8, 14)) + data + odd)), refused);
    EXPECT_EQ(decoded(riff(data + odd + chunkClaiming("fmt ", 900, mono16.substr(8)))), two);
}

TEST(WavReader, RefusesWhatIsTooShortOrNoWave) {
    const std::string empty = riff(mono16 + chunk("data", ""));
    EXPECT_EQ(decoded(empty), refused);
    EXPECT_EQ(decoded(empty + "xx"), refused);  // no sample inside the chunk
    const std::string one = riff(formatChunk(1, 1, 8000, 8) + chunkClaiming("data", 99, "\x80"));
    EXPECT_EQ(decoded(one), (Samples{0}));
    EXPECT_EQ(decoded(one.substr(0, 44)), refused);
    const std::string good = riff(mono16 + chunk("data", two16));
    for (const std::size_t place : {0, 3, 8, 11}) {
        std::string bad = good;
        bad[place] = 'x';
        EXPECT_EQ(decoded(bad), refused) << place;
    }
    for (std::size_t length = 0; length < good.size(); ++length) {
        const std::string cut = good.substr(0, length);  // its own block, so an overrun is seen
        EXPECT_EQ(decoded(cut).size(), 1U) << length;
        EXPECT_EQ(decoded(cut) != refused, length >= 46) << length;
    }
}

TEST(WavReader, ProbesHeadersOfFiles) {
    test::TempDir dir;
    // "rate duration size", or "none".
    const auto probed = [&](const std::string& bytes) -> std::string {
        saveFileBytes(dir.file("a.wav"), asBytes(bytes));
        const auto header = readWavHeader(dir.file("a.wav"));
        if (!header) return "none";
        return std::to_string(header->sampleRate) + " " + std::to_string(header->durationMs) + " " +
               std::to_string(header->totalBytes);
    };
    const std::string second(16000, 'x');
    EXPECT_EQ(probed(riff(mono16 + chunk("data", second))), "8000 1000 16044");
    EXPECT_EQ(probed(riff(formatChunk(1, 2, 8000, 24) + chunk("data", second))), "8000 333 16044");
    // Never patched, too long, or beyond the bytes that are looked at: the size of the file counts.
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 0, second))), "8000 1000 16044");
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 0xFFFFFFFF, second))), "8000 1000 16044");
    EXPECT_EQ(probed(riff(mono16 + chunk("LIST", "") + chunk("data", second))), "8000 1001 16052");
    // The chunk's size is believed as long as the whole file has that many bytes.
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 16044, second))), "8000 1003 16044");
    EXPECT_EQ(probed(riff(chunk("data", second) + mono16)), "none");
    EXPECT_EQ(probed(riff(formatChunk(1, 1, 0xFFFFFFFF, 16) + chunk("data", second))),
              "4294967295 0 16044");
    // What would be divided by.
    for (const auto& format :
         {formatChunk(1, 0, 8000, 16), formatChunk(1, 1, 0, 16), formatChunk(1, 1, 8000, 0)})
        EXPECT_EQ(probed(riff(format + chunk("data", second))), "none");
    EXPECT_EQ(probed(riff(mono16 + chunk("data", two16)).substr(0, 43)), "none");
    EXPECT_EQ(probed("RIFX" + riff(mono16 + chunk("data", second)).substr(4)), "none");
    // A format chunk whose 16 bytes end behind the head is not taken.
    const std::string filler = chunk("LIST", std::string(1024 - 12 - 8 - 24, 'x'));
    EXPECT_EQ(probed(riff(filler + mono16 + chunk("data", second))), "8000 1062 17032");
    EXPECT_EQ(probed(riff(chunk("JUNK", "") + filler + mono16 + chunk("data", second))), "none");
    EXPECT_FALSE(readWavHeader(dir.file("missing.wav")));
}

TEST(AudioSniffing, TellsFormatsApart) {
    const std::string sync = "\xFF\xE0";
    const struct {
        std::string bytes;
        std::string_view extension;
        bool engineReads;
    } rows[] = {
        {"RIFF????AVI", "", false},
        {"RIFF????" + sync, ".mp3", true},
        {"RIFF????WAVE" + sync, ".wav", true},
        {"OggS" + sync, ".ogg", false},
        {"Ogg" + sync, ".mp3", true},
        {"ID3", "", false},
        {"ID3\x04", ".mp3", true},
        {"ab\xFF\xDF", "", false},
        {"abc\xFF", "", false},
        {std::string(8190, 'x') + sync, ".mp3", true},
        {std::string(8191, 'x') + sync, "", false},
        {"", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes.substr(0, 16));
        EXPECT_EQ(sniffExtension(asBytes(row.bytes)), row.extension);
        EXPECT_EQ(engineReadsFormat(asBytes(row.bytes)), row.engineReads);
    }
    // Deliberately loose: the other tests come first.
    EXPECT_TRUE(looksLikeMp3(asBytes("OggS" + sync)));
}

}  // namespace
}  // namespace zepho
