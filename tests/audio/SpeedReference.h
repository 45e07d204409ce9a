// The time stretch as a plain loop, slow and obvious: the oracle of the fast one.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace zepho::test {

// One search as the plain loop met it.
struct ReferenceFrame {
    std::size_t inPos;
    std::size_t first;  // candidate
    std::size_t candidates;
    std::vector<float> target;
    std::size_t pick;
};

struct ReferenceStretch {
    std::vector<float> samples;
    std::vector<ReferenceFrame> frames;  // all but the first, which is not searched
    std::size_t length = 0;              // of candidates and targets
    std::size_t mostCandidates = 0;
};

// `speed` is within 0.5 … 2 and not 1; the clip is long enough for one frame and the search.
inline ReferenceStretch referenceStretch(const std::vector<float>& in, int rate, float speed) {
    const long count = static_cast<long>(in.size());
    const long frame = std::max(std::lround(static_cast<float>(rate) * 0.04F), 128L);
    const long hopOut = frame / 2;
    const long hopIn = std::max(std::lround(speed * static_cast<float>(hopOut)), 1L);
    const long search = std::max(std::lround(static_cast<float>(rate) * 0.008F), 1L);
    const long outLen = std::lround(static_cast<float>(count) / speed) + frame;
    ReferenceStretch result;
    result.length = static_cast<std::size_t>(hopOut);
    result.mostCandidates = static_cast<std::size_t>(2 * search + 1);
    std::vector<float> out(static_cast<std::size_t>(outLen), 0.0F);
    long inPos = 0;
    long outPos = 0;
    while (inPos + frame + search < count && outPos + frame <= outLen) {
        long best = inPos;
        long first = -1;
        long tried = 0;
        float bestScore = -3.4028235e38F;
        for (long d = -search; d <= search && outPos != 0; ++d) {
            const long cand = inPos + d;
            if (cand < 0 || cand + hopOut > count) continue;
            if (tried++ == 0) first = cand;
            float dot = 0;
            float energy = 1e-6F;
            for (long i = 0; i < hopOut; ++i) {
                dot += in[cand + i] * out[outPos + i];
                energy += in[cand + i] * in[cand + i];
            }
            const float score = dot / std::sqrt(energy);
            if (score > bestScore) {
                bestScore = score;
                best = cand;
            }
        }
        if (outPos != 0) {
            result.frames.push_back(
                {static_cast<std::size_t>(inPos), static_cast<std::size_t>(first),
                 static_cast<std::size_t>(tried),
                 std::vector<float>(out.begin() + outPos, out.begin() + outPos + hopOut),
                 static_cast<std::size_t>(best)});
        }
        for (long i = 0; i < frame; ++i) {
            const float turn = static_cast<float>(i) * 6.283185F / static_cast<float>(frame - 1);
            out[outPos + i] += in[best + i] * ((1 - std::cos(turn)) * 0.5F);
        }
        outPos += hopOut;
        inPos += hopIn;
    }
    out.resize(static_cast<std::size_t>(std::min(outLen, outPos + hopOut)));
    result.samples = std::move(out);
    return result;
}

}  // namespace zepho::test
