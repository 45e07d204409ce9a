// This file is compiled once for each kind of vector unit; the best one is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "core/engine/PlaceholderKernels.cpp"
#include <cstdint>

#include <hwy/foreach_target.h>
// foreach_target.h has to come first.
#include <hwy/highway.h>

#include "core/engine/PlaceholderKernels.h"

HWY_BEFORE_NAMESPACE();
namespace zepho::placeholder::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;
using FloatVec = hn::Vec<Floats>;

// A vector of floats in double precision is two vectors. On a processor without a vector unit that we
// know, where a vector is a single number, it is one, and its second half repeats the first.
#if HWY_TARGET == HWY_SCALAR
using Doubles = hn::Rebind<double, Floats>;
using DoubleVec = hn::Vec<Doubles>;
HWY_INLINE DoubleVec lowHalf(FloatVec floats) {
    return hn::PromoteTo(Doubles(), floats);
}
HWY_INLINE DoubleVec highHalf(FloatVec floats) {
    return lowHalf(floats);
}
HWY_INLINE FloatVec joined(DoubleVec low, DoubleVec /*high*/) {
    return hn::DemoteTo(Floats(), low);
}
#else
using Doubles = hn::RepartitionToWide<Floats>;
using DoubleVec = hn::Vec<Doubles>;
using HalfFloats = hn::Half<Floats>;
HWY_INLINE DoubleVec lowHalf(FloatVec floats) {
    return hn::PromoteTo(Doubles(), hn::LowerHalf(HalfFloats(), floats));
}
HWY_INLINE DoubleVec highHalf(FloatVec floats) {
    return hn::PromoteTo(Doubles(), hn::UpperHalf(HalfFloats(), floats));
}
HWY_INLINE FloatVec joined(DoubleVec low, DoubleVec high) {
    return hn::Combine(Floats(), hn::DemoteTo(HalfFloats(), high), hn::DemoteTo(HalfFloats(), low));
}
#endif

constexpr double turnsPerRadian = 0.15915494309189533577;

// The sine of an angle in turns, which lies between -0.75 and 0.75.
HWY_INLINE FloatVec sineOfTurns(FloatVec turns) {
    const Floats d;
    // Folded to a quarter turn on either side, where the odd polynomial of best approximation is
    // 3.4e-9 from the sine at most.
    const FloatVec size = hn::Abs(turns);
    const FloatVec sign = hn::And(turns, hn::SignBit(d));
    const FloatVec x = hn::Xor(hn::Min(size, hn::Sub(hn::Set(d, 0.5F), size)), sign);
    const FloatVec square = hn::Mul(x, x);
    FloatVec sum = hn::Set(d, 39.536706078F);
    sum = hn::MulAdd(sum, square, hn::Set(d, -76.549782295F));
    sum = hn::MulAdd(sum, square, hn::Set(d, 81.601004073F));
    sum = hn::MulAdd(sum, square, hn::Set(d, -41.341655032F));
    sum = hn::MulAdd(sum, square, hn::Set(d, 6.2831851601F));
    return hn::Mul(sum, x);
}

// Without a fused multiply-add the difference below would be rounded away.
#if HWY_NATIVE_FMA
constexpr std::size_t nearSamples = std::size_t{1} << 23;
#else
constexpr std::size_t nearSamples = 0;
#endif

// The sine of an angle below 2^22 radians: the product's rounding error, which the fused operation
// tells, makes up for what a float cannot hold, and so does the second part of the constant for what
// the first lacks. The nearest whole number may be missed by a little, which sineOfTurns() bears.
HWY_INLINE FloatVec sineOfNear(FloatVec radians) {
    const Floats d;
    constexpr auto scale = static_cast<float>(turnsPerRadian);
    constexpr auto rest = static_cast<float>(turnsPerRadian - static_cast<double>(scale));
    const FloatVec turns = hn::Mul(radians, hn::Set(d, scale));
    const FloatVec part = hn::MulSub(radians, hn::Set(d, scale), hn::Round(turns));
    return sineOfTurns(hn::MulAdd(radians, hn::Set(d, rest), part));
}

// The sine of an angle of any size: the whole turns are taken off in double precision.
HWY_INLINE FloatVec sineOfFar(FloatVec radians) {
    const DoubleVec scale = hn::Set(Doubles(), turnsPerRadian);
    const DoubleVec low = hn::Mul(lowHalf(radians), scale);
    const DoubleVec high = hn::Mul(highHalf(radians), scale);
    return sineOfTurns(joined(hn::Sub(low, hn::Round(low)), hn::Sub(high, hn::Round(high))));
}

// The sine of an angle of one turn at most.
HWY_INLINE FloatVec sineOfPhase(FloatVec radians) {
    const Floats d;
    const FloatVec turns = hn::Mul(radians, hn::Set(d, static_cast<float>(turnsPerRadian)));
    return sineOfTurns(hn::Sub(turns, hn::Round(turns)));
}

// The numbers from `first` on, for as long as they fit 31 bits.
HWY_INLINE FloatVec countFrom(std::size_t first) {
    const hn::RebindToSigned<Floats> integers;
    return hn::ConvertTo(Floats(), hn::Iota(integers, static_cast<std::int32_t>(first)));
}

// The numbers from `first` on. A double counts samples exactly for as long as any memory lasts.
HWY_INLINE FloatVec countFromFar(std::size_t first) {
    const DoubleVec low = hn::Iota(Doubles(), static_cast<double>(first));
    const DoubleVec lanes = hn::Set(Doubles(), static_cast<double>(hn::Lanes(Doubles())));
    return joined(low, hn::Add(low, lanes));
}

// The envelope of a segment from sample `index` of it on: rises over the first twelfth and falls over
// the last eighth.
HWY_INLINE FloatVec envelope(std::size_t index, FloatVec length) {
    const Floats d;
    const FloatVec one = hn::Set(d, 1.0F);
    const FloatVec t = hn::Div(countFrom(index), length);
    const FloatVec rise = hn::Mul(t, hn::Set(d, 12.0F));
    const FloatVec fall = hn::Mul(hn::Sub(one, t), hn::Set(d, 8.0F));
    return hn::Min(hn::Min(rise, fall), one);
}

// The products that make an angle are rounded one by one, as in plain code: late in a line one unit
// in the last place of an angle is far from nothing.
template <bool isNear>
HWY_INLINE FloatVec formant(FloatVec time, float hertz) {
    const Floats d;
    const FloatVec radians = hn::Mul(hn::Mul(time, hn::Set(d, hertz)), hn::Set(d, twoPi));
    return isNear ? sineOfNear(radians) : sineOfFar(radians);
}

template <bool isNear>
HWY_INLINE void shapeVoicedAt(const Sound& sound, std::size_t first, float* HWY_RESTRICT block,
                              std::size_t count) {
    const Floats d;
    const FloatVec stress = hn::Set(d, sound.stress);
    const FloatVec length = hn::Set(d, static_cast<float>(sound.length));
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const FloatVec open = hn::Max(sineOfPhase(hn::LoadU(d, block + i)), hn::Zero(d));
        const FloatVec pulse = hn::MulAdd(open, hn::Set(d, 0.65F), hn::Set(d, 0.35F));
        const std::size_t position = sound.start + first + i;
        const FloatVec time =
            hn::Div(isNear ? countFrom(position) : countFromFar(position), hn::Set(d, sampleRate));
        FloatVec body = formant<isNear>(time, sound.formants[0]);
        body = hn::MulAdd(formant<isNear>(time, sound.formants[1]), hn::Set(d, 0.55F), body);
        body = hn::MulAdd(formant<isNear>(time, sound.formants[2]), hn::Set(d, 0.3F), body);
        const FloatVec voice = hn::Mul(hn::Mul(pulse, body), hn::Set(d, 0.22F));
        hn::StoreU(hn::Mul(hn::Mul(envelope(first + i, length), voice), stress), d, block + i);
    }
}

void shapeVoicedBlock(const Sound& sound, std::size_t first, float* HWY_RESTRICT block,
                      std::size_t count) {
    if (sound.start + first + blockSize <= nearSamples)
        shapeVoicedAt<true>(sound, first, block, count);
    else
        shapeVoicedAt<false>(sound, first, block, count);
}

void shapeNoiseBlock(const Sound& sound, std::size_t first, float* HWY_RESTRICT block,
                     std::size_t count) {
    const Floats d;
    const FloatVec stress = hn::Set(d, sound.stress);
    const FloatVec length = hn::Set(d, static_cast<float>(sound.length));
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const FloatVec noise = hn::Mul(hn::LoadU(d, block + i), hn::Set(d, 0.18F));
        hn::StoreU(hn::Mul(hn::Mul(noise, envelope(first + i, length)), stress), d, block + i);
    }
}

}  // namespace zepho::placeholder::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace zepho::placeholder {

HWY_EXPORT(shapeVoicedBlock);
HWY_EXPORT(shapeNoiseBlock);

void shapeVoiced(const Sound& sound, std::size_t first, float* block, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(shapeVoicedBlock)(sound, first, block, count);
}

void shapeNoise(const Sound& sound, std::size_t first, float* block, std::size_t count) {
    HWY_DYNAMIC_DISPATCH(shapeNoiseBlock)(sound, first, block, count);
}

}  // namespace zepho::placeholder
#endif
