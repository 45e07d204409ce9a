#include "core/audio/SampleKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// The vectors of these targets have no size at compile time; NEON serves their machines.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "core/audio/SampleKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

// Every machine that this runs on is little-endian, so samples are taken as they lie in memory.

HWY_BEFORE_NAMESPACE();
namespace zepho::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;
using Ints = hn::RebindToSigned<Floats>;
using Shorts = hn::Rebind<std::int16_t, Floats>;
constexpr Floats floats{};
constexpr Ints ints{};
constexpr Shorts shorts{};
constexpr std::size_t lanes = hn::MaxLanes(floats);

HWY_INLINE void convertFrom16(const std::int16_t* from, float* to) {
    const auto whole = hn::PromoteTo(ints, hn::LoadU(shorts, from));
    hn::StoreU(hn::Mul(hn::ConvertTo(floats, whole), hn::Set(floats, 1.0F / 32768)), floats, to);
}

void from16Bit(const std::uint8_t* bytes, std::size_t count, float* out) {
    // Through a small buffer, since the bytes may lie at an odd address.
    constexpr std::size_t blockSize = 16 * lanes;
    HWY_ALIGN std::int16_t block[blockSize];
    std::size_t done = 0;
    for (; count - done >= blockSize; done += blockSize) {
        std::memcpy(block, bytes + 2 * done, sizeof block);
        for (std::size_t i = 0; i < blockSize; i += lanes) convertFrom16(block + i, out + done + i);
    }
    for (; done < count; ++done) {
        std::int16_t value = 0;
        std::memcpy(&value, bytes + 2 * done, 2);
        out[done] = static_cast<float>(value) * (1.0F / 32768);
    }
}

// The part behind the point is exact, so no sum is rounded on the way to the nearest number.
HWY_INLINE void convertTo16(const float* from, std::int16_t* to, hn::Mask<Floats>& sound) {
    const auto sample = hn::LoadU(floats, from);
    sound = hn::And(sound, hn::Eq(sample, sample));
    const auto one = hn::Set(floats, 1.0F);
    const auto capped = hn::Min(hn::Max(hn::Neg(one), sample), one);
    const auto scaled = hn::Mul(capped, hn::Set(floats, 32767.0F));
    const auto whole = hn::ConvertTo(ints, scaled);
    const auto rest = hn::Sub(scaled, hn::ConvertTo(floats, whole));
    const auto half = hn::Set(floats, 0.5F);
    // A mask is -1 where it holds.
    const auto up = hn::VecFromMask(ints, hn::RebindMask(ints, hn::Ge(rest, half)));
    const auto down = hn::VecFromMask(ints, hn::RebindMask(ints, hn::Le(rest, hn::Neg(half))));
    const auto rounded = hn::Add(hn::Sub(whole, up), down);
    hn::StoreU(hn::DemoteTo(shorts, rounded), shorts, to);
}

bool to16Bit(const float* samples, std::size_t count, std::uint8_t* out) {
    constexpr std::size_t blockSize = 16 * lanes;
    HWY_ALIGN std::int16_t block[blockSize];
    auto sound = hn::Eq(hn::Zero(floats), hn::Zero(floats));
    std::size_t done = 0;
    for (; count - done >= blockSize; done += blockSize) {
        for (std::size_t i = 0; i < blockSize; i += lanes)
            convertTo16(samples + done + i, block + i, sound);
        std::memcpy(out + 2 * done, block, sizeof block);
    }
    HWY_ALIGN float rest[lanes] = {};
    for (; done < count; done += lanes) {
        const std::size_t size = std::min(lanes, count - done);
        std::copy_n(samples + done, size, rest);
        convertTo16(rest, block, sound);
        std::memcpy(out + 2 * done, block, 2 * size);
    }
    return hn::AllTrue(floats, sound);
}

void accumulateWindowed(const float* samples, const float* window, std::size_t count, float* out) {
    std::size_t i = 0;
    for (; count - i >= lanes; i += lanes) {
        const auto product = hn::Mul(hn::LoadU(floats, samples + i), hn::LoadU(floats, window + i));
        hn::StoreU(hn::Add(hn::LoadU(floats, out + i), product), floats, out + i);
    }
    for (; i < count; ++i) out[i] += samples[i] * window[i];
}

void keepSamples(float* samples, std::size_t count) {
    const auto most = hn::Set(floats, loudestSample);
    std::size_t i = 0;
    for (; count - i >= lanes; i += lanes) {
        const auto sample = hn::LoadU(floats, samples + i);
        const auto isSample = hn::Le(hn::Abs(sample), most);
        hn::StoreU(hn::IfThenElseZero(isSample, sample), floats, samples + i);
    }
    for (; i < count; ++i)
        if (!(std::abs(samples[i]) <= loudestSample)) samples[i] = 0;
}

}  // namespace
}  // namespace zepho::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zepho {

HWY_EXPORT(from16Bit);
HWY_EXPORT(to16Bit);
HWY_EXPORT(accumulateWindowed);
HWY_EXPORT(keepSamples);

void floatsFrom16Bit(const std::uint8_t* bytes, std::size_t count, float* out) {
    HWY_DYNAMIC_DISPATCH(from16Bit)(bytes, count, out);
}

bool floatsTo16Bit(const float* samples, std::size_t count, std::uint8_t* out) {
    return HWY_DYNAMIC_DISPATCH(to16Bit)(samples, count, out);
}

void addWindowed(const float* samples, const float* window, std::size_t count, float* out) {
    HWY_DYNAMIC_DISPATCH(accumulateWindowed)(samples, window, count, out);
}

void silenceNonSamples(float* samples, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(keepSamples)(samples, count);
}

}  // namespace zepho
#endif
