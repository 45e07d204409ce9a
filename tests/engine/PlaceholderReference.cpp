#include "tests/engine/PlaceholderReference.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "core/platform/Unicode.h"

namespace zepho::test {
namespace {

struct Piece {
    char kind = 'p';  // v(oiced), f(ricative), p(ause)
    int ms = 0;
    unsigned vowel = 0;
    float stress = 1;
};

std::vector<Piece> piecesOf(std::string_view text) {
    std::vector<Piece> pieces;
    bool bracketed = false;
    forEachGrapheme(text, [&](const Grapheme& grapheme) {
        const std::string character(grapheme.bytes);
        const std::uint32_t c = grapheme.first;
        if (character == "[") {
            bracketed = true;
        } else if (character == "]") {
            bracketed = false;
        } else if (bracketed) {
        } else if (std::string(",.!?;:，。！？、；：").find(character) != std::string::npos) {
            pieces.push_back({'p', 220, 0, 1});
        } else if (isWhiteSpace(c)) {
            pieces.push_back({'p', 70, 0, 1});
        } else if (isLetterOrNumber(c)) {
            const bool fricative = std::string("sSfFhHxXcCzZ").find(character) != std::string::npos;
            const float stress = static_cast<float>(c & 3) / 4.0F / 3.0F + 0.75F;
            pieces.push_back({fricative ? 'f' : 'v', c > 0x2E80 ? 170 : 80, c % 5, stress});
        }
    });
    pieces.push_back({'p', 120, 0, 1});
    return pieces;
}

}  // namespace

PcmBuffer placeholderReference(std::string_view text, TtsGender gender, std::int64_t seed) {
    static const float formants[5][3] = {{730, 1090, 2440},
                                         {270, 2290, 3010},
                                         {300, 870, 2240},
                                         {530, 1840, 2480},
                                         {570, 840, 2410}};
    static const float basePitch[3] = {155, 205, 112};
    const float twoPi = 6.283185F;

    PcmBuffer pcm;
    pcm.sampleRate = 44100;
    if (trimmed(text).empty()) return pcm;
    const std::vector<Piece> pieces = piecesOf(text);

    auto state = static_cast<std::uint32_t>(static_cast<std::uint64_t>(seed) & 0xFFFFFFFF);
    state = state * 0x9E3779B1U + 1U;
    const float f0 = basePitch[static_cast<int>(gender)] *
                     (static_cast<float>((state >> 16) & 255) * 0.3F / 255.0F + 0.85F);
    float phase = 0;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const Piece& piece = pieces[i];
        const auto n = std::llround(piece.ms * 44100.0 / 1000.0);
        const float slope =
            1.0F + static_cast<float>(i) * -0.18F /
                       static_cast<float>(std::max<std::size_t>(pieces.size(), 2) - 1);
        const float inc = f0 * slope * twoPi / 44100.0F;
        const float* f = formants[piece.vowel];
        for (long long j = 0; j < n; ++j) {
            const float t = static_cast<float>(j) / static_cast<float>(n);
            const float env = std::min(std::min(t * 12.0F, (1.0F - t) * 8.0F), 1.0F);
            float sample = 0;
            if (piece.kind == 'v') {
                phase += inc;
                if (phase > twoPi) phase -= twoPi;
                const float time = static_cast<float>(pcm.data.size()) / 44100.0F;
                const float body = std::sin(time * f[0] * twoPi) +
                                   0.55F * std::sin(time * f[1] * twoPi) +
                                   0.3F * std::sin(time * f[2] * twoPi);
                const float pulse = std::max(std::sin(phase), 0.0F) * 0.65F + 0.35F;
                sample = env * (pulse * body * 0.22F) * piece.stress;
            } else if (piece.kind == 'f') {
                state = state * 1664525U + 1013904223U;
                const int level = static_cast<int>((state >> 8) & 0xFFFF) - 32768;
                sample = static_cast<float>(level) / 32768.0F * 0.18F * env * piece.stress;
            }
            pcm.data.push_back(sample);
        }
    }
    fadeEdges(pcm, 10);
    return pcm;
}

}  // namespace zepho::test
