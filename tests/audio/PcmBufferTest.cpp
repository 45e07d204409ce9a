#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/audio/PcmBuffer.h"
#include "tests/audio/WavBytes.h"

namespace zepho {
namespace {

using Samples = std::vector<float>;

std::vector<std::int16_t> valuesOf(const Bytes& wav) {
    std::vector<std::int16_t> values((wav.size() - 44) / 2);
    std::memcpy(values.data(), wav.data() + 44, values.size() * 2);
    return values;
}

TEST(BuildWav, WritesTheWholeFile) {
    using test::littleEndian;
    const auto expected = [](std::uint64_t rate, std::uint64_t channels, const std::string& data) {
        return "RIFF" + littleEndian(36 + data.size(), 4) + "WAVEfmt " + littleEndian(16, 4) +
               littleEndian(1, 2) + littleEndian(channels, 2) + littleEndian(rate, 4) +
               littleEndian(rate * channels * 2, 4) + littleEndian(channels * 2, 2) +
               littleEndian(16, 2) + "data" + littleEndian(data.size(), 4) + data;
    };
    const std::vector<std::int16_t> values{32767, -32767, 16384, -16384, 0, 1};
    const PcmBuffer pcm{{1.5F, -1.5F, 0.5F, -0.5F, -0.0F, 1.4F / 32767}, 24000};
    EXPECT_EQ(asText(buildWav(pcm, 1)), expected(24000, 1, test::packed(values)));
    std::vector<std::int16_t> triple;
    for (const std::int16_t value : values) triple.insert(triple.end(), 3, value);
    EXPECT_EQ(asText(buildWav(pcm, 3)), expected(24000, 3, test::packed(triple)));
    EXPECT_EQ(asText(buildWav(pcm, 0)), asText(buildWav(pcm, 1)));
    EXPECT_EQ(asText(buildWav({}, -2)), expected(44100, 1, ""));
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(valuesOf(buildWav({{infinity, -infinity}, 1}, 1)),
              (std::vector<std::int16_t>{32767, -32767}));
}

TEST(BuildWav, RoundsHalfAwayFromZeroEverywhere) {
    Samples samples;
    // Both neighbours of each half step, and floats of every exponent.
    for (int i = -32768; i <= 32768; ++i) {
        const float half = (static_cast<float>(i) + 0.5F) / 32767;
        for (const float sample : {half, std::nextafter(half, -2.0F), std::nextafter(half, 2.0F)})
            samples.push_back(sample);
    }
    for (std::uint32_t bits = 0; bits < 0x7F800000U; bits += 20011) {
        samples.push_back(std::bit_cast<float>(bits));
        samples.push_back(-std::bit_cast<float>(bits));
    }
    // Of every length near the width of a vector, too.
    for (std::size_t count = 1; count < 70; ++count) {
        const auto few = valuesOf(buildWav({Samples(count, -0.5F), 8000}, 1));
        ASSERT_EQ(few, std::vector<std::int16_t>(count, -16384));
    }
    const auto mono = valuesOf(buildWav({samples, 8000}, 1));
    const auto stereo = valuesOf(buildWav({samples, 8000}, 2));
    ASSERT_EQ(mono.size(), samples.size());
    ASSERT_EQ(stereo.size(), 2 * samples.size());
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const float scaled = std::min(std::max(samples[i], -1.0F), 1.0F) * 32767.0F;
        const auto wanted = static_cast<std::int16_t>(std::round(scaled));
        wrong += mono[i] != wanted || stereo[2 * i] != wanted || stereo[2 * i + 1] != wanted;
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(BuildWavDeathTest, RefusesWhatIsNoNumber) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const std::size_t place : {0UL, 300UL, 1026UL}) {
        PcmBuffer pcm{Samples(1027, 0.5F), 8000};
        pcm.data[place] = std::numeric_limits<float>::quiet_NaN();
        EXPECT_DEATH(buildWav(pcm, 1), "not a number") << place;
        EXPECT_DEATH(buildWav(pcm, 2), "not a number") << place;
    }
}

TEST(PcmBuffer, TellsItsDuration) {
    EXPECT_EQ((PcmBuffer{Samples(1), 16}.durationMs()), 63);  // 62.5 away from zero
    EXPECT_EQ((PcmBuffer{Samples(1000), 0}.durationMs()), 0);
    EXPECT_TRUE(PcmBuffer::silence(1000, -5).isEmpty());
    EXPECT_TRUE(PcmBuffer::silence(100, 4).isEmpty());
    EXPECT_EQ(PcmBuffer::silence(100, 5).data, Samples(1));
}

TEST(FadeEdges, FadesBothEndsAndMeetsInTheMiddle) {
    PcmBuffer pcm{Samples(10, 1.0F), 1000};
    fadeEdges(pcm, 4);
    EXPECT_EQ(pcm.data, (Samples{0, 0.25F, 0.5F, 0.75F, 1, 1, 0.75F, 0.5F, 0.25F, 0}));
    pcm.data.assign(5, 1.0F);
    fadeEdges(pcm, 10);
    EXPECT_EQ(pcm.data, (Samples{0, 0.5F, 1, 0.5F, 0}));
    const Samples untouched{1};
    for (PcmBuffer same : {PcmBuffer{untouched, 1000}, PcmBuffer{untouched, 0}}) {
        for (const int ms : {0, -3, 1000}) fadeEdges(same, ms);
        EXPECT_EQ(same.data, untouched);
    }
}

}  // namespace
}  // namespace zepho
