#include "core/audio/SimilaritySearch.h"

#include <algorithm>
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
//  2. A first look, at a projection that costs a fraction of the whole: the sums of blocks of samples
//     where the target is smooth, its loud beginning where it is noise. Cauchy and Schwarz tell how
//     much what is not seen could still add to a score.
//  3. The whole dot products, only for candidates that could still win.
//  4. Fused multiply-adds round otherwise than the plain loop does. Candidates whose scores lie
//     within the rounding of both are scored again exactly as the plain loop would.
//
// In the first look a lane is a candidate and its neighbours in the vector are its neighbours in the
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
    float* blocks;
    float* means;
    float* energies;
    float* unseen;
    float* dots;
    float* scores;

    // What an energy may be off, relative to the whole.
    [[nodiscard]] float doubt() const {
        return (static_cast<float>(length) + 128) * std::numeric_limits<float>::epsilon() / 2;
    }
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

// Makes `count` sums reach twice as far: each takes in the one `half` places behind it.
HWY_INLINE void doubleSums(float* sums, std::size_t count, std::size_t half) {
    for (std::size_t c = 0; c < count; c += lanes)
        hn::StoreU(hn::Add(load(sums + c), load(sums + c + half)), floats, sums + c);
}

// Adds to the totals of each group windows of `count` sums that lie `step` apart. Windows that are
// cut at the same places share what they hold on either side of the cut; nothing is subtracted, so
// the sums are accurate to some units in the last place, also where a loud passage ends.
void addWindows(const float* sums, std::size_t padded, std::size_t step, std::size_t count,
                float* totals) {
    const std::size_t size = count * step;
    for (std::size_t offset = 0; offset < std::min(step, padded); offset += lanes) {
        for (std::size_t cut = offset; cut < padded; cut += size) {
            Vector behind = hn::Zero(floats);
            for (std::size_t c = cut + size; c > cut;) {
                c -= step;
                behind = hn::Add(behind, load(sums + c));
                if (c < padded) hn::StoreU(hn::Add(load(totals + c), behind), floats, totals + c);
            }
            Vector before = hn::Zero(floats);
            for (std::size_t c = cut + step; c < std::min(cut + size, padded); c += step) {
                before = hn::Add(before, load(sums + c + size - step));
                hn::StoreU(hn::Add(load(totals + c), before), floats, totals + c);
            }
        }
    }
}

// Adds to the totals of each group the squares of `terms` values that lie `stride` apart. Works in
// job.sums.
void addSquares(const SearchJob& job, const float* values, std::size_t padded, std::size_t stride,
                std::size_t terms, float* totals) {
    const std::size_t used = padded + stride * (terms - 1);
    for (std::size_t c = 0; c < used; c += lanes) {
        // The last vector ends where the values do: the clip may end there too.
        const std::size_t at = std::min(c, used - lanes);
        hn::StoreU(hn::Mul(load(values + at), load(values + at)), floats, job.sums + at);
    }
    // sums[c] covers `span` values from c on, until that is as far as a vector reaches.
    std::size_t span = 1;
    std::size_t done = 0;
    for (; span * stride < lanes; span *= 2) {
        if ((terms & span) != 0) {
            const float* more = job.sums + done * stride;
            for (std::size_t c = 0; c < padded; c += lanes)
                hn::StoreU(hn::Add(load(totals + c), load(more + c)), floats, totals + c);
            done += span;
        }
        doubleSums(job.sums, used - (2 * span - 1) * stride, span * stride);
    }
    addWindows(job.sums + done * stride, padded, span * stride, terms / span, totals);
}

// Group g of a tile meets target[i] with the vector that group 0 meets g * apart later: each vector
// of the clip is loaded once for all groups.
template <std::size_t width>
constexpr std::size_t apart = std::max(lanes, width) / width;

template <std::size_t width, std::size_t from, std::size_t... group>
HWY_INLINE void multiplyStep(Vector* sums, const float* values, const float* target, std::size_t p,
                             std::index_sequence<group...>) {
    const Vector samples = load(values + p * width);
    ((sums[from + group] = hn::MulAdd(
          samples, hn::Set(floats, target[p - (from + group) * apart<width>]), sums[from + group])),
     ...);
}

template <std::size_t width, std::size_t from, std::size_t to>
HWY_INLINE void multiplyRange(Vector* sums, const float* values, const float* target,
                              std::size_t begin, std::size_t end) {
    for (std::size_t p = begin; p < end; ++p)
        multiplyStep<width, from>(sums, values, target, p, std::make_index_sequence<to - from>());
}

template <std::size_t width, std::size_t groups, std::size_t... stage>
HWY_INLINE void multiplyAll(Vector* sums, const float* values, const float* target,
                            std::size_t terms, std::index_sequence<stage...>) {
    constexpr std::size_t step = apart<width>;
    (multiplyRange<width, 0, stage + 1>(sums, values, target, stage * step, (stage + 1) * step),
     ...);
    multiplyRange<width, 0, groups>(sums, values, target, (groups - 1) * step, terms);
    (multiplyRange<width, stage + 1, groups>(sums, values, target, terms + stage * step,
                                             terms + (stage + 1) * step),
     ...);
}

template <std::size_t width, std::size_t groups>
HWY_INLINE void dotTile(const float* values, const float* target, std::size_t terms, float* dots) {
    Vector sums[groups];
    for (std::size_t g = 0; g < groups; ++g) sums[g] = hn::Zero(floats);
    multiplyAll<width, groups>(sums, values, target, terms, std::make_index_sequence<groups - 1>());
    for (std::size_t g = 0; g < groups; ++g)
        hn::StoreU(sums[g], floats, dots + g * apart<width> * width);
}

// Tiles of `groups` groups from `c` on, as many as there is room for.
template <std::size_t width, std::size_t groups>
HWY_INLINE void dotTiles(const SearchJob& job, const float* values, const float* target,
                         std::size_t terms, std::size_t padded, std::size_t& c) {
    constexpr std::size_t step = apart<width> * width;
    if (terms < groups * apart<width>) return;
    for (; c + groups * step <= padded; c += groups * step) {
        for (std::size_t at = c; at < c + step; at += lanes)
            dotTile<width, groups>(values + at, target, terms, job.dots + at);
    }
}

// Dot products of all groups over `terms` values that lie `width` apart.
template <std::size_t width>
void dotProducts(const SearchJob& job, const float* values, const float* target, std::size_t terms,
                 std::size_t padded) {
    std::size_t c = 0;
    dotTiles<width, 9>(job, values, target, terms, padded, c);
    dotTiles<width, 3>(job, values, target, terms, padded, c);
    for (; c < padded; c += lanes) dotTile<width, 1>(values + c, target, terms, job.dots + c);
}

// Sums of `width` samples from each place on.
template <std::size_t width>
void sumBlocks(const SearchJob& job, std::size_t used) {
    const std::size_t pairs = used - 1;
    for (std::size_t c = 0; c < pairs; c += lanes) {
        const std::size_t at = std::min(c, pairs - lanes);
        hn::StoreU(hn::Add(load(job.clip + at), load(job.clip + at + 1)), floats, job.blocks + at);
    }
    for (std::size_t half = 2; half < width; half *= 2)
        doubleSums(job.blocks, used - 2 * half + 1, half);
}

// The first look at all groups, at the sums of the first `terms` blocks of `width` samples. Leaves in
// `scores` what each candidate can reach at most. False, with nothing done, where more of the target
// than the share `mostUnseen` would stay unseen.
template <std::size_t width>
bool look(const SearchJob& job, std::size_t padded, std::size_t terms, float power,
          float mostUnseen) {
    const float* values = job.clip;
    const float* target = job.target;
    if constexpr (width > 1) {
        for (std::size_t j = 0; j < terms; ++j) {
            float sum = 0;
            for (std::size_t i = 0; i < width; ++i) sum += job.target[j * width + i];
            job.means[j] = sum / width;
        }
        target = job.means;
    }
    const float seen = squareSum(target, terms) * width;
    const float unseen = std::max(power - seen, 0.0F) + job.doubt() * power;
    if (unseen > mostUnseen * power) return false;

    if constexpr (width > 1) {
        sumBlocks<width>(job, padded + terms * width);
        values = job.blocks;
    }
    std::fill_n(job.unseen, padded, 0.0F);
    addSquares(job, values, padded, width, terms, job.unseen);
    dotProducts<width>(job, values, target, terms, padded);
    const Vector share = hn::Set(floats, 1.0F / width);
    const Vector more = hn::Set(floats, 1 + job.doubt());
    const Vector norm = hn::Set(floats, std::sqrt(unseen) * 1.0001F);
    for (std::size_t c = 0; c < padded; c += lanes) {
        const Vector energy = load(job.energies + c);
        const Vector rest = hn::NegMulAdd(load(job.unseen + c), share, hn::Mul(energy, more));
        const Vector most =
            hn::MulAdd(hn::Sqrt(hn::Max(rest, hn::Zero(floats))), norm, load(job.dots + c));
        hn::StoreU(hn::Div(most, hn::Sqrt(energy)), floats, job.scores + c);
    }
    // Lanes behind the last candidate count for nothing.
    std::fill(job.scores + job.candidates, job.scores + padded, lowest);
    return true;
}

float highestOf(const float* values, std::size_t count) {
    Vector highest = load(values);
    for (std::size_t c = lanes; c < count; c += lanes) highest = hn::Max(highest, load(values + c));
    return hn::GetLane(hn::MaxOfLanes(floats, highest));
}

// The place of a value that is among them.
std::size_t indexOf(const float* values, std::size_t count, float value) {
    for (std::size_t c = 0; c + lanes < count; c += lanes) {
        const auto found =
            hn::FindFirstTrue(floats, hn::Eq(load(values + c), hn::Set(floats, value)));
        if (found >= 0) return c + static_cast<std::size_t>(found);
    }
    return static_cast<std::size_t>(std::find(values + count - lanes, values + count - 1, value) -
                                    values);
}

// Scores `together` candidates over the whole length.
template <std::size_t together>
void score(const SearchJob& job, const std::size_t* candidates) {
    Vector sums[together];
    for (std::size_t k = 0; k < together; ++k) sums[k] = hn::Zero(floats);
    std::size_t i = 0;
    for (; i + lanes <= job.length; i += lanes) {
        const Vector target = load(job.target + i);
        for (std::size_t k = 0; k < together; ++k)
            sums[k] = hn::MulAdd(load(job.clip + candidates[k] + i), target, sums[k]);
    }
    for (std::size_t k = 0; k < together; ++k) {
        const std::size_t c = candidates[k];
        float dot = hn::GetLane(hn::SumOfLanes(floats, sums[k]));
        for (std::size_t rest = i; rest < job.length; ++rest)
            dot += job.clip[c + rest] * job.target[rest];
        job.scores[c] = dot / std::sqrt(job.energies[c]);
    }
}

// Scores all candidates that can win, of those that `scores` tells how far they can reach, and gives
// the others the lowest score. The highest one.
float scorePromising(const SearchJob& job, std::size_t padded, float blur) {
    constexpr std::size_t together = 4;
    std::size_t waiting[together];
    std::size_t count = 0;
    const std::size_t first = indexOf(job.scores, padded, highestOf(job.scores, padded));
    score<1>(job, &first);
    float highest = job.scores[first];
    for (std::size_t c = 0; c < padded; c += lanes) {
        const auto promising = hn::Ge(load(job.scores + c), hn::Set(floats, highest - 2 * blur));
        if (hn::AllFalse(floats, promising)) {
            hn::StoreU(hn::Set(floats, lowest), floats, job.scores + c);
            continue;
        }
        for (std::size_t k = c; k < c + lanes; ++k) {
            if (k == first) continue;
            if (job.scores[k] < highest - 2 * blur) {
                job.scores[k] = lowest;
                continue;
            }
            waiting[count++] = k;
            if (count < together) continue;
            score<together>(job, waiting);
            for (const std::size_t scored : waiting)
                highest = std::max(highest, job.scores[scored]);
            count = 0;
        }
    }
    for (std::size_t k = 0; k < count; ++k) {
        score<1>(job, waiting + k);
        highest = std::max(highest, job.scores[waiting[k]]);
    }
    return highest;
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

bool isSilent(const float* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (samples[i] != 0) return false;
    }
    return true;
}

std::size_t findBest(const SearchJob& job) {
    const std::size_t padded = (job.candidates + lanes - 1) / lanes * lanes;
    const float power = squareSum(job.target, job.length);
    // With silence on either side all candidates score 0, so the first one wins. The squares of very
    // small samples vanish in a sum, but their scores need not.
    if (power == 0 && isSilent(job.target, job.length) &&
        std::isfinite(squareSum(job.clip, padded + job.length)))
        return 0;

    std::fill_n(job.energies, padded, energyFloor);
    addSquares(job, job.clip, padded, 1, job.length, job.energies);
    const float loudness = sumOf(job.energies, padded);
    const bool maybeSilent = loudness < 2 * energyFloor * static_cast<float>(padded);
    if (maybeSilent && power < 1e24F && isSilent(job.clip, padded + job.length)) return 0;
    // Far from the ordinary, where sums may overflow or vanish, the plain loop is the answer.
    const bool ordinary = power > 1e-24F && power < 1e24F && loudness < 1e24F;
    if (!ordinary) {
        std::fill_n(job.scores, padded, 0.0F);
        return bestPlainly(job, padded, 0.0F);
    }

    // Blocks where they show nearly all of the target, else its beginning.
    constexpr float smooth = 0.2F;
    constexpr float whatever = 2;
    if (!look<8>(job, padded, job.length / 8, power, smooth) &&
        !look<4>(job, padded, job.length / 4, power, smooth))
        look<1>(job, padded, job.length * 2 / 5, power, whatever);
    // What a score may be off, for the plain loop and for this one, of two candidates together.
    const float unit = std::numeric_limits<float>::epsilon() / 2;
    const float blur = (5 * static_cast<float>(job.length) + 128) * unit * std::sqrt(power);
    const float threshold = scorePromising(job, padded, blur) - blur;
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
      blocks(sums.size()),
      means(length),
      energies(mostCandidates + widestVector),
      unseen(mostCandidates + widestVector),
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
    const SearchJob job{clip.data() + first, candidates,    target,        length,
                        otherwise - first,   sums.data(),   blocks.data(), means.data(),
                        energies.data(),     unseen.data(), dots.data(),   scores.data()};
    return first + HWY_DYNAMIC_DISPATCH(findBest)(job);
}

}  // namespace zepho
#endif
