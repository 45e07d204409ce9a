// Finds where a clip continues most like what has just been laid down: the hot loop of the time
// stretch.
//
// For each candidate, score = dot(candidate, target) / sqrt(1e-6 + dot(candidate, candidate)); the
// highest wins, the first of equals. The answer is that of a plain loop which sums in 32-bit floats,
// sample after sample, on every machine. One object serves one clip and one thread.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace zepho {

class SimilaritySearch {
public:
    // Candidates and targets are `length` samples long, and at most `mostCandidates` are compared.
    // `length` is at least 64.
    SimilaritySearch(std::size_t length, std::size_t mostCandidates);

    // The best of the candidates that start at clip[first] … clip[first + candidates - 1], at least
    // one. The clip goes on for 16 samples behind the last of them. `otherwise` is the answer when
    // no score is a number.
    [[nodiscard]] std::size_t best(std::span<const float> clip, std::size_t first,
                                   std::size_t candidates, const float* target,
                                   std::size_t otherwise);

private:
    const std::size_t length;
    // Room for work, kept from one call to the next.
    std::vector<float> sums;      // sums of squares over a power of two of values
    std::vector<float> blocks;    // sums of neighbouring samples
    std::vector<float> means;     // of the target's blocks
    std::vector<float> energies;  // one value for each candidate, as the following
    std::vector<float> unseen;
    std::vector<float> dots;
    std::vector<float> scores;
};

}  // namespace zepho
