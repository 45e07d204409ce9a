#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include "core/audio/SampleKernels.h"
#include "core/audio/SimilaritySearch.h"
#include "core/audio/SpeedChange.h"
#include "tests/audio/SpeedReference.h"

namespace zepho {
namespace {

using Samples = std::vector<float>;

template <class At>
Samples generate(std::size_t count, At at) {
    Samples samples(count);
    for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<float>(at(i));
    return samples;
}

Samples tone(std::size_t count, double hertz, int rate, double level = 0.5) {
    return generate(count, [=](std::size_t i) {
        return level * std::sin(2 * M_PI * hertz * static_cast<double>(i) / rate);
    });
}

Samples noise(std::size_t count, double level) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> value(-level, level);
    return generate(count, [&](std::size_t) { return value(random); });
}

// Buzzing syllables with digital silence between them, in steps of 16 bits.
Samples speech(std::size_t count, int rate) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> breath(-0.02, 0.02);
    double phase = 0;
    return generate(count, [&](std::size_t i) {
        const double t = static_cast<double>(i) / rate;
        phase += 2 * M_PI * (130 + 40 * std::sin(t * 9)) / rate;
        const double loud = std::max(0.0, std::sin(t * 14) + 0.3);
        double voice = 0;
        for (int k = 1; k < 12; ++k) voice += std::sin(k * phase) / (1 + std::abs(k - 4));
        return std::round(loud * (0.2 * voice + breath(random)) * 32768) / 32768;
    });
}

struct Signal {
    std::string name;
    int rate;
    Samples samples;
};

std::vector<Signal> signals() {
    std::vector<Signal> all{
        {"speech at 8000", 8000, speech(12000, 8000)},
        {"speech at 11025", 11025, speech(9000, 11025)},
        {"frames of full size", 44100, speech(22050, 44100)},
        {"noise", 8000, noise(8000, 0.9)},
        {"tone of a whole period", 8000, tone(6000, 200, 8000)},
        {"tone", 8000, tone(6000, 441.7, 8000)},
        {"silence", 8000, Samples(6000)},
        {"constant", 8000, Samples(6000, 0.25F)},
        {"square", 8000, generate(6000, [](std::size_t i) { return i / 20 % 2 ? 0.5 : -0.5; })},
        {"alternating", 8000, generate(6000, [](std::size_t i) { return i % 2 ? 1.0 : -1.0; })},
        {"sparse clicks", 8000, generate(6000, [](std::size_t i) { return i % 700 ? 0 : 0.9; })},
        {"decay to nothing", 8000,
         generate(9000,
                  [](std::size_t i) {
                      return std::exp(-0.02 * static_cast<double>(i)) *
                             std::sin(0.21 * static_cast<double>(i));
                  })},
        {"faint", 8000, noise(5000, 1e-22)},
        {"enormous", 8000, noise(5000, 1e25)},
        {"rate of 3000", 3000, speech(4000, 3000)},
        {"rate of 1", 1, speech(2000, 8000)},
    };
    // Candidates one period apart differ in the last bits only, so the rounding of the sums decides.
    const Samples period = noise(37, 0.7);
    const Samples trembling = noise(6000, 2e-7);
    all.push_back({"trembling loop", 8000, generate(6000, [&](std::size_t i) {
                       return period[i % 37] * (1 + trembling[i]);
                   })});
    Samples holes = noise(6000, 0.5);
    holes[1000] = std::numeric_limits<float>::infinity();
    holes[3000] = std::numeric_limits<float>::quiet_NaN();
    all.push_back({"not all numbers", 8000, std::move(holes)});
    return all;
}

// Runs `body` with each vector width of this machine.
template <class Body>
void onEveryTarget(Body body) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        body();
    }
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

bool same(float a, float b) {
    return std::abs(a - b) <= 1e-6F || a == b || (std::isnan(a) && std::isnan(b));
}

void expectSame(const Samples& got, const Samples& wanted, const std::string& what) {
    ASSERT_EQ(got.size(), wanted.size()) << what;
    for (std::size_t i = 0; i < got.size(); ++i)
        ASSERT_TRUE(same(got[i], wanted[i])) << what << " at " << i << ": " << got[i];
}

TEST(TimeStretch, PicksTheFramesOfThePlainLoop) {
    for (const Signal& signal : signals()) {
        for (const float speed : {1.25F, 0.8F}) {
            SCOPED_TRACE(signal.name + " at speed " + std::to_string(speed));
            const auto reference = test::referenceStretch(signal.samples, signal.rate, speed);
            ASSERT_GT(reference.frames.size(), 5U);
            onEveryTarget([&] {
                SimilaritySearch search(reference.length, reference.mostCandidates);
                for (const test::ReferenceFrame& frame : reference.frames) {
                    ASSERT_EQ(search.best(signal.samples, frame.first, frame.candidates,
                                          frame.target.data(), frame.inPos),
                              frame.pick)
                        << "frame at " << frame.inPos;
                }
                const auto got = timeStretch({signal.samples, signal.rate}, speed);
                EXPECT_EQ(got.sampleRate, signal.rate);
                expectSame(got.data, reference.samples, "samples");
            });
        }
    }
}

// The tone that a clip holds, by the crossings of zero in its middle.
double hertzOf(const PcmBuffer& pcm) {
    const std::size_t begin = pcm.data.size() / 4;
    const std::size_t end = begin * 3;
    int rises = 0;
    for (std::size_t i = begin; i < end; ++i) rises += pcm.data[i - 1] < 0 && pcm.data[i] >= 0;
    return rises * static_cast<double>(pcm.sampleRate) / static_cast<double>(end - begin);
}

TEST(TimeStretch, KeepsThePitchThatResamplingMoves) {
    const PcmBuffer clip{tone(32000, 440, 16000), 16000};
    for (const float speed : {0.5F, 0.8F, 1.25F, 2.0F}) {
        const auto stretched = changeSpeed(clip, speed, TtsSpeedMode::localStretch);
        EXPECT_NEAR(hertzOf(stretched), 440, 3) << speed;
        EXPECT_NEAR(static_cast<double>(stretched.data.size()), 32000 / speed, 1500) << speed;
        const auto resampled = changeSpeed(clip, speed, TtsSpeedMode::localResample);
        EXPECT_NEAR(hertzOf(resampled), 440 * speed, 3) << speed;
        EXPECT_EQ(resampled.data.size(), static_cast<std::size_t>(std::lround(32000 / speed)));
        EXPECT_EQ(changeSpeed(clip, speed, TtsSpeedMode::engine).data, stretched.data);
    }
}

TEST(TimeStretch, LeavesAloneWhatNeedsNoChange) {
    const PcmBuffer clip{speech(4000, 8000), 8000};
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float speed : {1.0F, 1.005F, 0.9951F, 0.0F, -1.0F, nan})
        EXPECT_EQ(timeStretch(clip, speed).data, clip.data) << speed;
    EXPECT_EQ(timeStretch(clip, 3).data, timeStretch(clip, 2).data);
    EXPECT_EQ(timeStretch(clip, 0.1F).data, timeStretch(clip, 0.5F).data);
    EXPECT_EQ(timeStretch({clip.data, 0}, 2).data, clip.data);
    for (const auto mode : {TtsSpeedMode::localStretch, TtsSpeedMode::engine})
        EXPECT_EQ(changeSpeed(clip, 2, mode).data, timeStretch(clip, 2).data);
    EXPECT_EQ(changeSpeed(clip, 2, TtsSpeedMode::localResample).data,
              changeSpeedByResample(clip, 2).data);
    // Finer, and with the same bounds.
    EXPECT_EQ(changeSpeedByResample(clip, 1.0005F).data, clip.data);
    EXPECT_EQ(changeSpeedByResample(clip, 1.005F).data.size(), 3980U);
    EXPECT_EQ(changeSpeedByResample(clip, -1).data, clip.data);
    EXPECT_EQ(changeSpeedByResample(clip, 9).data.size(), 2000U);
    EXPECT_EQ(changeSpeedByResample({{0.5F}, 8000}, 2).data, Samples{0.5F});  // round(0.5) is 1
}

TEST(TimeStretch, MeetsItsBoundsInLength) {
    // 44100 Hz: frames of 1764, a search of 353 to each side.
    const Samples enough = tone(1764 + 2 * 353, 300, 44100);
    const Samples tooFew(enough.begin(), enough.end() - 1);
    EXPECT_EQ(timeStretch({tooFew, 44100}, 1.5F).data,
              changeSpeedByResample({tooFew, 44100}, 1.5F).data);
    expectSame(timeStretch({enough, 44100}, 1.5F).data,
               test::referenceStretch(enough, 44100, 1.5F).samples, "one frame");
}

TEST(Resample, DrawsLinesBetweenTheSamples) {
    const Samples ramp{0, 1, 2, 3};
    EXPECT_EQ(interpolate(ramp, 4, 1.5F), (Samples{0, 1.5F, 3, 3}));
    EXPECT_TRUE(interpolate({}, 4, 1).empty());
    // Positions are floats: far into a long clip they move in steps.
    const Samples saw = generate(70000, [](std::size_t i) { return i % 2; });
    const auto late = interpolate(saw, 60001, 1.1F);
    EXPECT_EQ(late[60000], 0.0F);  // 66000 exactly, where doubles would have gone beyond it
    const auto up = resample({ramp, 8000}, 16000);
    EXPECT_EQ(up.sampleRate, 16000);
    EXPECT_EQ(up.data, (Samples{0, 0.5F, 1, 1.5F, 2, 2.5F, 3, 3}));
    EXPECT_EQ(resample({ramp, 8000}, 4000).data, (Samples{0, 2}));
    EXPECT_EQ(resample({ramp, 48000}, 1).data, Samples{0});
    for (const int rate : {8000, 0, -5}) {
        EXPECT_EQ(resample({ramp, 8000}, rate).sampleRate, 8000) << rate;
        EXPECT_EQ(resample({ramp, 8000}, rate).data, ramp) << rate;
    }
}

TEST(SpeedChange, SamplesOfAnyLoudnessStayNumbers) {
    const Samples wild = generate(20000, [](std::size_t i) {
        return i % 3 == 0 ? loudestSample : i % 3 == 1 ? -loudestSample : 1e-30F;
    });
    for (const float speed : {0.8F, 1.25F}) {
        PcmBuffer pcm = resample(timeStretch({wild, 8000}, speed), 11025);
        peakNormalize(pcm, 0.95F);
        for (const float sample : pcm.data) ASSERT_LE(std::abs(sample), 1.0F);
    }
}

TEST(Level, AppliesGainAndNormalisesPeaks) {
    PcmBuffer pcm{{0.5F, -0.25F, 0}, 8000};
    applyGain(pcm, 4);
    EXPECT_EQ(pcm.data, (Samples{2, -1, 0}));
    peakNormalize(pcm, 0.5F);
    EXPECT_EQ(pcm.data, (Samples{0.5F, -0.25F, 0}));
    peakNormalize(pcm, 0.5004F);  // within 0.1 %
    EXPECT_EQ(pcm.data.front(), 0.5F);
    pcm.data = {0.1F, -0.8F};
    peakNormalize(pcm, 0.4F);
    EXPECT_FLOAT_EQ(pcm.data.back(), -0.4F);
    for (const Samples& quiet : {Samples{9e-6F, -9e-6F}, Samples(5), Samples()}) {
        pcm.data = quiet;
        peakNormalize(pcm, 1);
        EXPECT_EQ(pcm.data, quiet);
    }
}

}  // namespace
}  // namespace zepho
