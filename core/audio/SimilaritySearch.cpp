#include "core/audio/SimilaritySearch.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

#include "core/platform/Require.h"

// The vectors of these targets have no size at compile time; NEON serves their machines.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "core/audio/SimilaritySearch.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// How the search goes, for one target:
//
//  1. The energies of all candidates, from sums of squares over 1, 2, 4 … samples.
//  2. The dot products over the first part of the samples. The target fades out, so the rest of it
//     weighs little, and Cauchy and Schwarz tell how much it could still add to a score.
//  3. The rest of the samples, only for groups of candidates that could still win.
//  4. Fused multiply-adds round otherwise than the plain loop does. Candidates whose scores lie
//     within the rounding of both are scored again exactly as the plain loop would.
//
// In all products a lane is a candidate and its neighbours in the vector are its neighbours in the
// clip. A group is one vector of candidates.

#ifndef ZEPHO_SIMILARITY_SEARCH_ONCE
#define ZEPHO_SIMILARITY_SEARCH_ONCE
namespace zepho {
namespace {

constexpr float energyFloor = 1e-6F;
constexpr float lowest = -3.4028235e38F;
constexpr std::size_t widestVector = 16;

struct SearchJob {
    const float* clip;  // the first candidate
    std::size_t candidates;
    const float* target;
    std::size_t length;
    std::size_t otherwise;
    float* sums;
    float* energies;
    float* restEnergies;
    float* dots;
    float* scores;
};

}  // namespace
}  // namespace zepho
#endif

HWY_BEFORE_NAMESPACE();
namespace zepho::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;
using Vector = hn::Vec<Floats>;
constexpr Floats floats{};
constexpr std::size_t lanes = hn::MaxLanes(floats);
static_assert(lanes <= widestVector);

HWY_INLINE Vector load(const float* place) {
    return hn::LoadU(floats, place);
}

float squareSum(const float* values, std::size_t count) {
    Vector sum = hn::Zero(floats);
    std::size_t i = 0;
    for (; count - i >= lanes; i += lanes)
        sum = hn::MulAdd(load(values + i), load(values + i), sum);
    float total = hn::GetLane(hn::SumOfLanes(floats, sum));
    for (; i < count; ++i) total += values[i] * values[i];
    return total;
}

HWY_INLINE void addTo(float* sums, const float* values, std::size_t count) {
    for (std::size_t c = 0; c < count; c += lanes)
        hn::StoreU(hn::Add(load(sums + c), load(values + c)), floats, sums + c);
}

// Energies of all groups over the whole length and over its last `rest` samples, a power of two. Only sums of
// positive numbers, few for each energy, so they are accurate to some units in the last place.
void computeEnergies(const SearchJob& job, std::size_t padded, std::size_t rest) {
    const std::size_t used = padded + job.length;
    for (std::size_t c = 0; c < used; c += lanes) {
        // The last vector ends with the clip's samples that are still sure to exist.
        const std::size_t at = std::min(c, used - lanes);
        hn::StoreU(hn::Mul(load(job.clip + at), load(job.clip + at)), floats, job.sums + at);
    }
    for (std::size_t c = 0; c < padded; c += lanes)
        hn::StoreU(hn::Set(floats, energyFloor), floats, job.energies + c);
    std::size_t done = 0;
    // sums[c] covers `span` samples from c on.
    for (std::size_t span = 1; span <= job.length; span *= 2) {
        if ((job.length & span) != 0) {
            addTo(job.energies, job.sums + done, padded);
            done += span;
        }
        if (span == rest) {
            const float* last = job.sums + job.length - rest;
            for (std::size_t c = 0; c < padded; c += lanes)
                hn::StoreU(load(last + c), floats, job.restEnergies + c);
        }
        for (std::size_t c = 0; c + 2 * span < used + lanes; c += lanes) {
            const Vector sum = hn::Add(load(job.sums + c), load(job.sums + c + span));
            hn::StoreU(sum, floats, job.sums + c);
        }
    }
}

// Group g of a tile meets target[i] with the vector that group 0 meets at i + g * lanes: each vector
// of the clip is loaded once for all groups.
template <std::size_t from, std::size_t... group>
HWY_INLINE void multiplyStep(Vector* sums, const float* clip, const float* target, std::size_t p,
                             std::index_sequence<group...>) {
    const Vector samples = load(clip + p);
    ((sums[from + group] = hn::MulAdd(samples, hn::Set(floats, target[p - (from + group) * lanes]),
                                      sums[from + group])),
     ...);
}

template <std::size_t from, std::size_t to>
HWY_INLINE void multiplyRange(Vector* sums, const float* clip, const float* target,
                              std::size_t begin, std::size_t end) {
    for (std::size_t p = begin; p < end; ++p)
        multiplyStep<from>(sums, clip, target, p, std::make_index_sequence<to - from>());
}

template <std::size_t groups, std::size_t... stage>
HWY_INLINE void multiplyAll(Vector* sums, const float* clip, const float* target,
                            std::size_t length, std::index_sequence<stage...>) {
    (multiplyRange<0, stage + 1>(sums, clip, target, stage * lanes, (stage + 1) * lanes), ...);
    multiplyRange<0, groups>(sums, clip, target, (groups - 1) * lanes, length);
    (multiplyRange<stage + 1, groups>(sums, clip, target, length + stage * lanes,
                                      length + (stage + 1) * lanes),
     ...);
}

template <std::size_t groups>
HWY_INLINE void dotTile(const float* clip, const float* target, std::size_t length, float* dots) {
    Vector sums[groups];
    for (std::size_t g = 0; g < groups; ++g) sums[g] = hn::Zero(floats);
    multiplyAll<groups>(sums, clip, target, length, std::make_index_sequence<groups - 1>());
    for (std::size_t g = 0; g < groups; ++g) hn::StoreU(sums[g], floats, dots + g * lanes);
}

// Dot products of all groups over the first `length` samples.
void firstDots(const SearchJob& job, std::size_t padded, std::size_t length) {
    constexpr std::size_t wide = 9;
    constexpr std::size_t narrow = 3;
    std::size_t c = 0;
    if (length >= wide * lanes) {
        for (; c + wide * lanes <= padded; c += wide * lanes)
            dotTile<wide>(job.clip + c, job.target, length, job.dots + c);
    }
    if (length >= narrow * lanes) {
        for (; c + narrow * lanes <= padded; c += narrow * lanes)
            dotTile<narrow>(job.clip + c, job.target, length, job.dots + c);
    }
    for (; c < padded; c += lanes) dotTile<1>(job.clip + c, job.target, length, job.dots + c);
}

// Completes the dot products of the group at `c` and scores it.
Vector finishGroup(const SearchJob& job, std::size_t c, std::size_t from) {
    const float* clip = job.clip + c;
    Vector sum0 = load(job.dots + c);
    Vector sum1 = hn::Zero(floats);
    Vector sum2 = hn::Zero(floats);
    Vector sum3 = hn::Zero(floats);
    std::size_t i = from;
    for (; i + 4 <= job.length; i += 4) {
        sum0 = hn::MulAdd(load(clip + i), hn::Set(floats, job.target[i]), sum0);
        sum1 = hn::MulAdd(load(clip + i + 1), hn::Set(floats, job.target[i + 1]), sum1);
        sum2 = hn::MulAdd(load(clip + i + 2), hn::Set(floats, job.target[i + 2]), sum2);
        sum3 = hn::MulAdd(load(clip + i + 3), hn::Set(floats, job.target[i + 3]), sum3);
    }
    for (; i < job.length; ++i)
        sum0 = hn::MulAdd(load(clip + i), hn::Set(floats, job.target[i]), sum0);
    const Vector dot = hn::Add(hn::Add(sum0, sum1), hn::Add(sum2, sum3));
    const Vector score = hn::Div(dot, hn::Sqrt(load(job.energies + c)));
    hn::StoreU(score, floats, job.scores + c);
    // Lanes behind the last candidate count for nothing.
    for (std::size_t k = job.candidates; k < c + lanes; ++k) job.scores[k] = lowest;
    return load(job.scores + c);
}

// Scores `groups` groups as the plain loop does, each operation rounded alike.
template <std::size_t groups>
void scorePlainly(const SearchJob& job, const std::size_t* starts) {
    Vector dots[groups];
    Vector energies[groups];
    for (std::size_t g = 0; g < groups; ++g) {
        dots[g] = hn::Zero(floats);
        energies[g] = hn::Set(floats, energyFloor);
    }
    for (std::size_t i = 0; i < job.length; ++i) {
        const Vector target = hn::Set(floats, job.target[i]);
        for (std::size_t g = 0; g < groups; ++g) {
            const Vector samples = load(job.clip + starts[g] + i);
            dots[g] = hn::Add(dots[g], hn::Mul(samples, target));
            energies[g] = hn::Add(energies[g], hn::Mul(samples, samples));
        }
    }
    for (std::size_t g = 0; g < groups; ++g)
        hn::StoreU(hn::Div(dots[g], hn::Sqrt(energies[g])), floats, job.scores + starts[g]);
}

// The first of the highest plain scores among the groups that hold a score of `threshold` or more.
std::size_t bestPlainly(const SearchJob& job, std::size_t padded, float threshold) {
    constexpr std::size_t together = 4;
    std::size_t starts[together];
    std::size_t waiting = 0;
    std::size_t winner = job.otherwise;
    float highest = lowest;
    const auto judge = [&](std::size_t start) HWY_ATTR {
        for (std::size_t c = start; c < std::min(start + lanes, job.candidates); ++c) {
            if (job.scores[c] > highest) {
                highest = job.scores[c];
                winner = c;
            }
        }
    };
    for (std::size_t c = 0; c < padded; c += lanes) {
        const auto near = hn::Ge(load(job.scores + c), hn::Set(floats, threshold));
        if (hn::AllFalse(floats, near)) continue;
        starts[waiting++] = c;
        if (waiting < together) continue;
        scorePlainly<together>(job, starts);
        for (const std::size_t start : starts) judge(start);
        waiting = 0;
    }
    for (std::size_t g = 0; g < waiting; ++g) {
        scorePlainly<1>(job, starts + g);
        judge(starts[g]);
    }
    return winner;
}

float sumOf(const float* values, std::size_t count) {
    Vector sum = load(values);
    for (std::size_t c = lanes; c < count; c += lanes) sum = hn::Add(sum, load(values + c));
    return hn::GetLane(hn::SumOfLanes(floats, sum));
}

float highestOf(const float* values, std::size_t count) {
    Vector highest = load(values);
    for (std::size_t c = lanes; c < count; c += lanes) highest = hn::Max(highest, load(values + c));
    return hn::GetLane(hn::MaxOfLanes(floats, highest));
}

// The group that holds `value`.
std::size_t groupOf(const float* values, std::size_t count, float value) {
    std::size_t c = 0;
    while (c + lanes < count &&
           hn::AllFalse(floats, hn::Eq(load(values + c), hn::Set(floats, value))))
        c += lanes;
    return c;
}

bool isSilent(const float* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (samples[i] != 0) return false;
    }
    return true;
}

std::size_t findBest(const SearchJob& job) {
    const std::size_t padded = (job.candidates + lanes - 1) / lanes * lanes;
    const std::size_t rest = std::bit_floor(job.length * 5 / 8);
    const std::size_t split = job.length - rest;
    const float restPower = squareSum(job.target + split, rest);
    const float power = squareSum(job.target, split) + restPower;
    // With silence on either side all candidates score 0. The squares of very small samples vanish in
    // a sum, their scores need not.
    if (power == 0 && isSilent(job.target, job.length) &&
        std::isfinite(squareSum(job.clip, padded + job.length)))
        return 0;

    computeEnergies(job, padded, rest);
    const float loudness = sumOf(job.energies, padded);
    const bool maybeSilent = loudness < 2 * energyFloor * static_cast<float>(padded);
    if (maybeSilent && power < 1e24F && isSilent(job.clip, padded + job.length)) return 0;
    // Far from the ordinary, where sums may overflow or vanish, the plain loop is the answer.
    const bool ordinary = power > 1e-24F && power < 1e24F && loudness < 1e24F;
    if (!ordinary) {
        std::fill_n(job.scores, padded, 0.0F);
        return bestPlainly(job, padded, 0.0F);
    }

    firstDots(job, padded, split);
    // What a score may be off, for the plain loop and for this one, of two candidates together.
    const float unit = std::numeric_limits<float>::epsilon() / 2;
    const float blur = (5 * static_cast<float>(job.length) + 128) * unit * std::sqrt(power);
    const Vector restNorm = hn::Set(floats, std::sqrt(restPower) * 1.0001F);
    for (std::size_t c = 0; c < padded; c += lanes) {
        const Vector most =
            hn::MulAdd(hn::Sqrt(load(job.restEnergies + c)), restNorm, load(job.dots + c));
        hn::StoreU(hn::Div(most, hn::Sqrt(load(job.energies + c))), floats, job.scores + c);
    }
    const std::size_t promising = groupOf(job.scores, padded, highestOf(job.scores, padded));
    Vector highest = hn::MaxOfLanes(floats, finishGroup(job, promising, split));
    for (std::size_t c = 0; c < padded; c += lanes) {
        if (c == promising) continue;
        const Vector needed = hn::Sub(highest, hn::Set(floats, 2 * blur));
        if (hn::AllFalse(floats, hn::Ge(load(job.scores + c), needed))) {
            hn::StoreU(hn::Set(floats, lowest), floats, job.scores + c);
            continue;
        }
        highest = hn::Max(highest, hn::MaxOfLanes(floats, finishGroup(job, c, split)));
    }

    const float threshold = hn::GetLane(highest) - blur;
    std::size_t near = 0;
    std::size_t winner = 0;
    for (std::size_t c = 0; c < padded; c += lanes) {
        const auto wins = hn::Ge(load(job.scores + c), hn::Set(floats, threshold));
        const auto first = hn::FindFirstTrue(floats, wins);
        if (first < 0) continue;
        near += hn::CountTrue(floats, wins);
        winner = c + static_cast<std::size_t>(first);
    }
    if (near == 1) return winner;
    return bestPlainly(job, padded, threshold);
}

}  // namespace
}  // namespace zepho::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zepho {

HWY_EXPORT(findBest);

SimilaritySearch::SimilaritySearch(std::size_t length, std::size_t mostCandidates)
    : length(length),
      sums(mostCandidates + 2 * length + 4 * widestVector),
      energies(mostCandidates + widestVector),
      restEnergies(mostCandidates + widestVector),
      dots(mostCandidates + widestVector),
      scores(mostCandidates + widestVector) {
    require(length >= 4 * widestVector, "a search over too few samples");
}

std::size_t SimilaritySearch::best(std::span<const float> clip, std::size_t first,
                                   std::size_t candidates, const float* target,
                                   std::size_t otherwise) {
    require(candidates >= 1 && candidates + widestVector <= scores.size(), "candidates");
    require(first + candidates + length + widestVector <= clip.size(),
            "candidates beyond the clip");
    const SearchJob job{clip.data() + first, candidates,   target,          length,
                        otherwise - first,   sums.data(),  energies.data(), restEnergies.data(),
                        dots.data(),         scores.data()};
    return first + HWY_DYNAMIC_DISPATCH(findBest)(job);
}

}  // namespace zepho
#endif
