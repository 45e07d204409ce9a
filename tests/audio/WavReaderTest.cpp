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
using test::littleEndian;
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
    const auto one = [](int tag, int bits, const std::string& body) {
        return decoded(riff(formatChunk(tag, 1, 8000, bits) + chunk("data", body)));
    };
    EXPECT_EQ(one(1, 8, std::string("\x80\x00\xFF\x40", 4)), (Samples{0, -1, 127 / 128.F, -.5F}));
    EXPECT_EQ(one(1, 16, packed<std::int16_t>({1, -1, 32767})),
              (Samples{1 / 32768.F, -1 / 32768.F, 32767 / 32768.F}));
    EXPECT_EQ(one(1, 24, std::string("\0\0\x80\xFF\xFF\x7F\0\0\x40\xFF\xFF\xFF", 12)),
              (Samples{-1, 8388607 / 8388608.F, 0.5F, -1 / 8388608.F}));
    EXPECT_EQ(one(1, 32, packed<std::int32_t>({1 << 30, INT32_MIN, 3})),
              (Samples{0.5F, -1, 3 / 2147483648.F}));
    EXPECT_EQ(one(3, 32, packed<float>({1.75F, -3, 1e-40F})), (Samples{1.75F, -3, 1e-40F}));
    const float huge = std::numeric_limits<float>::infinity();
    EXPECT_EQ(one(3, 32, packed<float>({std::numeric_limits<float>::quiet_NaN(), 2, huge, -huge})),
              (Samples{0, 2, 0, 0}));
    // The tag matters for 32 bits only; an extensible file of 32 bits holds floats.
    EXPECT_EQ(one(3, 16, two16), two);
    EXPECT_EQ(one(0xFFFE, 16, two16), two);
    EXPECT_EQ(one(0xFFFE, 24, std::string("\0\0\x80", 3) + std::string(3, '\0')), (Samples{-1, 0}));
    EXPECT_EQ(one(0xFFFE, 32, packed<float>({2.5F})), (Samples{2.5F}));
    for (const int tag : {0, 2, 6, 0x55}) EXPECT_EQ(one(tag, 16, two16), refused) << tag;
    for (const int bits : {0, 1, 4, 7, 12, 20, 40, 64, 65535})
        EXPECT_EQ(one(1, bits, std::string(70000, 'x')), refused) << bits;
}

TEST(WavReader, AveragesChannelsAndDropsAnIncompleteFrame) {
    const auto many = [](int channels, int bits, int tag, const std::string& body) {
        return decoded(riff(formatChunk(tag, channels, 8000, bits) + chunk("data", body)));
    };
    EXPECT_EQ(many(2, 32, 3, packed<float>({1, -1, 0.5F, 1, 7})), (Samples{0, 0.75F}));
    EXPECT_EQ(many(3, 16, 1, packed<std::int16_t>({8192, 8192, 8192, 1, 1})), (Samples{0.25F}));
    EXPECT_EQ(many(4, 8, 1, std::string("\xC0\xC0\x80\x80\x80", 5)), (Samples{0.25F}));
    EXPECT_EQ(many(65535, 16, 1, std::string(131069, 'x')), refused);
    EXPECT_EQ(many(65535, 16, 1, std::string(131071, '\0')), (Samples{0}));
    EXPECT_EQ(many(0, 16, 1, two16), refused);
}

TEST(WavReader, TellsTheFormatThatTheFileDeclared) {
    const auto wav = parseWavWithFormat(
        asBytes(riff(formatChunk(3, 2, 22050, 16) + chunk("data", std::string(22050 * 4, 'x')))));
    ASSERT_TRUE(wav);
    EXPECT_EQ(wav->format.channels, 2);
    EXPECT_EQ(wav->format.sampleRate, 22050);
    EXPECT_EQ(wav->format.bitsPerSample, 16);
    EXPECT_TRUE(wav->format.isFloat);
    EXPECT_EQ(wav->pcm.sampleRate, 22050);
    EXPECT_EQ(wav->pcm.durationMs(), 1000);
    EXPECT_EQ(wavDurationMs(asBytes(riff(mono16 + chunk("data", std::string(2 * 8004, 'x'))))),
              1001);  // 1000.5 away from zero
    EXPECT_EQ(wavDurationMs({}), 0);

    const auto rated = [](std::uint32_t rate) {
        return decoded(riff(formatChunk(1, 1, rate, 16) + chunk("data", two16)));
    };
    EXPECT_EQ(rated(0), refused);
    EXPECT_EQ(rated(0x7FFFFFFF), two);
    EXPECT_EQ(rated(0x80000000), refused);  // has no place in a buffer's rate
}

TEST(WavReader, WalksTheChunks) {
    const std::string data = chunk("data", two16);
    const std::string odd = chunk("LIST", "abc");
    EXPECT_EQ(decoded(riff(odd + mono16 + data)), two);
    EXPECT_EQ(decoded(riff(mono16 + odd + data + odd)), two);
    EXPECT_EQ(decoded(riff(mono16 + chunk("JUNK", "") + data)), two);
    EXPECT_EQ(decoded(riff(chunk("JUNK", "") + data)), refused);
    EXPECT_EQ(decoded(riff(mono16 + odd + odd)), refused);
    // Later chunks win over earlier ones, and the format may come last if the walk reaches it.
    EXPECT_EQ(decoded(riff(formatChunk(1, 1, 8000, 8) + mono16 + data)), two);
    EXPECT_EQ(decoded(riff(mono16 + chunk("data", "xxxxxx") + data)), two);
    EXPECT_EQ(decoded(riff(data + mono16)), two);
    EXPECT_EQ(decoded(riff(chunkClaiming("data", 400, two16) + mono16)), refused);
    // Sizes beyond the end: data is cut to what there is, anything else ends the walk.
    for (const std::uint32_t size : {1001U, 0x7FFFFFFFU, 0xFFFFFFF0U, 0xFFFFFFFFU}) {
        const std::string cut = riff(mono16 + chunkClaiming("data", size, std::string(1000, '\0')));
        EXPECT_EQ(decoded(cut), Samples(500, 0.0F)) << size;
        EXPECT_EQ(decoded(riff(mono16 + chunkClaiming("LIST", size, data))), refused) << size;
    }
    // A format chunk must be whole; its extension is skipped.
    const std::string longFormat = mono16.substr(8) + std::string(24, 'x');
    EXPECT_EQ(decoded(riff(chunk("fmt ", longFormat) + data)), two);
    EXPECT_EQ(decoded(riff(chunkClaiming("fmt ", 14, mono16.substr(8, 14)) + data + odd)), refused);
    EXPECT_EQ(decoded(riff(data + odd + mono16.substr(0, 23))), refused);
    EXPECT_EQ(decoded(riff(data + odd + chunkClaiming("fmt ", 900, mono16.substr(8)))), two);
}

TEST(WavReader, RefusesWhatIsTooShortOrNoWave) {
    const std::string empty = riff(mono16 + chunk("data", ""));
    ASSERT_EQ(empty.size(), 44U);
    EXPECT_EQ(decoded(empty), refused);
    EXPECT_EQ(decoded(empty + "xx"), refused);  // no sample inside the chunk
    const std::string one = riff(formatChunk(1, 1, 8000, 8) + chunkClaiming("data", 99, "\x80"));
    EXPECT_EQ(decoded(one), (Samples{0}));
    EXPECT_EQ(decoded(one.substr(0, 44)), refused);
    EXPECT_EQ(decoded(""), refused);
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
    EXPECT_EQ(probed(riff(mono16 + chunk("data", second) + chunk("LIST", std::string(500, 'x')))),
              "8000 1000 16552");
    EXPECT_EQ(probed(riff(formatChunk(1, 2, 8000, 24) + chunk("data", second))), "8000 333 16044");
    // Never patched, too long, or beyond the bytes that are looked at: the size of the file counts.
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 0, second))), "8000 1000 16044");
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 0xFFFFFFFF, second))), "8000 1000 16044");
    const std::string list = chunk("LIST", std::string(1000, 'x'));
    EXPECT_EQ(probed(riff(mono16 + list + chunk("data", second))), "8000 1063 17052");
    EXPECT_EQ(probed(riff(mono16 + chunk("LIST", "") + chunk("data", second))), "8000 1001 16052");
    // The chunk's size is believed as long as the whole file has that many bytes.
    EXPECT_EQ(probed(riff(mono16 + chunkClaiming("data", 16044, second))), "8000 1003 16044");
    EXPECT_EQ(probed(riff(mono16 + chunk("data", ""))), "8000 0 44");
    EXPECT_EQ(probed(riff(chunk("data", second) + mono16)), "none");
    EXPECT_EQ(probed(riff(formatChunk(1, 1, 8000, 4) + chunk("data", second))), "8000 4000 16044");
    EXPECT_EQ(probed(riff(formatChunk(1, 1, 0xFFFFFFFF, 16) + chunk("data", second))),
              "4294967295 0 16044");
    EXPECT_EQ(probed(riff(formatChunk(1, 0, 8000, 16) + chunk("data", second))), "none");
    EXPECT_EQ(probed(riff(formatChunk(1, 1, 0, 16) + chunk("data", second))), "none");
    EXPECT_EQ(probed(riff(formatChunk(1, 1, 8000, 0) + chunk("data", second))), "none");
    EXPECT_EQ(probed(riff(mono16 + chunk("data", two16)).substr(0, 43)), "none");
    EXPECT_EQ(probed("RIFX" + riff(mono16 + chunk("data", second)).substr(4)), "none");
    // A format chunk whose 16 bytes end behind the head is not taken.
    const std::string filler = chunk("LIST", std::string(1024 - 12 - 8 - 24, 'x'));
    EXPECT_EQ(probed(riff(filler + mono16 + chunk("data", second))), "8000 1062 17032");
    EXPECT_EQ(probed(riff(chunk("JUNK", "") + filler + mono16 + chunk("data", second))), "none");
    EXPECT_FALSE(readWavHeader(dir.file("missing.wav")));
    EXPECT_FALSE(readWavHeader(dir.path()));
}

TEST(AudioSniffing, TellsFormatsApart) {
    struct Row {
        std::string bytes;
        std::string_view extension;
        bool engineReads;
    };
    const std::string sync = "\xFF\xE0";
    const std::string nearly = "\xFF\xDF";
    const std::vector<Row> rows{
        {"RIFF????AVI ", ".wav", true},
        {"RIFF????AVI", "", false},
        {"RIFF????" + sync, ".mp3", true},
        {"RIFF????WAVE" + sync, ".wav", true},
        {"OggS", ".ogg", false},
        {"OggS" + sync, ".ogg", false},
        {"Ogg" + sync, ".mp3", true},
        {"ID3", "", false},
        {"ID3\x04", ".mp3", true},
        {sync, "", false},
        {"ab" + sync, ".mp3", true},
        {"ab" + nearly, "", false},
        {"abc\xFF", "", false},
        {std::string(8190, 'x') + sync, ".mp3", true},
        {std::string(8191, 'x') + sync, "", false},
        {"hello, world", "", false},
        {"", "", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(sniffExtension(asBytes(row.bytes)), row.extension) << row.bytes.substr(0, 16);
        EXPECT_EQ(engineReadsFormat(asBytes(row.bytes)), row.engineReads)
            << row.bytes.substr(0, 16);
    }
    // Deliberately loose: the other tests come first.
    EXPECT_TRUE(looksLikeMp3(asBytes("OggS" + sync)));
    EXPECT_TRUE(looksLikeOgg(asBytes("OggS" + sync)));
}

}  // namespace
}  // namespace zepho
