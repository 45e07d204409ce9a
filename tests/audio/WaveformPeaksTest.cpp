#include <algorithm>

#include <gtest/gtest.h>

#include "core/audio/WaveformPeaks.h"
#include "tests/audio/WavBytes.h"

namespace zepho {
namespace {

using Peaks = std::vector<WaveformPeak>;

TEST(WaveformPeaks, EverySampleCountsInExactlyOneColumn) {
    // A single spike shows in one column, wherever it stands and however the columns divide.
    for (const std::size_t columns : {1U, 2U, 7U, 64U, 100U, 101U}) {
        for (std::size_t at = 0; at < 101; ++at) {
            PcmBuffer pcm{std::vector<float>(101), 8000};
            pcm.data[at] = -1;
            const Peaks peaks = waveformPeaks(pcm, columns);
            ASSERT_EQ(peaks.size(), columns);
            EXPECT_EQ(std::ranges::count(peaks, -1, &WaveformPeak::min), 1)
                << columns << " columns, sample " << at;
        }
    }
    // Fewer samples than columns.
    const PcmBuffer two{{-0.5F, 0.5F}, 8000};
    EXPECT_EQ(waveformPeaks(two, 4),
              (Peaks{{-0.5F, -0.5F}, {-0.5F, -0.5F}, {0.5F, 0.5F}, {0.5F, 0.5F}}));
    EXPECT_TRUE(waveformPeaks(two, 0).empty());
    EXPECT_TRUE(waveformPeaks(asBytes("no sound at all"), 10).empty());

    // Stereo floats of a loud recorder: the mean of the channels, inside the picture.
    const std::string loud =
        test::riff(test::formatChunk(3, 2, 48000, 32) +
                   test::chunk("data", test::packed<float>({4, 4, -3, -1, 0.5F, 0.25F})));
    EXPECT_EQ(waveformPeaks(asBytes(loud), 3), (Peaks{{1, 1}, {-1, -1}, {0.375F, 0.375F}}));
}

}  // namespace
}  // namespace zepho
