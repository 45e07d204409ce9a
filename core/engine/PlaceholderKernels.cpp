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

// The sine of an angle in turns, which lies between -0.5 and 0.5.
HWY_INLINE FloatVec sineOfTurns(FloatVec turns) {
    const Floats d;
    // Folded to a quarter turn on either side, where the odd polynomial of best approximation is
    // 3.4e-9 from the sine at most.
    const FloatVec size = hn::Abs(turns);
    const FloatVec x = hn::CopySign(hn::Min(size, hn::Sub(hn::Set(d, 0.5F), size)), turns);
    const FloatVec square = hn::Mul(x, x);
    FloatVec sum = hn::Set(d, 39.536706078F);
    sum = hn::MulAdd(sum, square, hn::Set(d, -76.549782295F));
    sum = hn::MulAdd(sum, square, hn::Set(d, 81.601004073F));
    sum = hn::MulAdd(sum, square, hn::Set(d, -41.341655032F));
    sum = hn::MulAdd(sum, square, hn::Set(d, 6.2831851601F));
    return hn::Mul(sum, x);
}

// The sine of an angle of some radians around 0.
HWY_INLINE FloatVec sineOfSmall(FloatVec radians) {
    const Floats d;
    const FloatVec turns = hn::Mul(radians, hn::Set(d, static_cast<float>(turnsPerRadian)));
    return sineOfTurns(hn::Sub(turns, hn::Round(turns)));
}

// The sine of an angle of any size. Late in a long line an angle has thousands of turns and more, so
// the whole turns are taken off in double precision.
HWY_INLINE FloatVec sineOfLarge(FloatVec radians) {
    const DoubleVec scale = hn::Set(Doubles(), turnsPerRadian);
    const DoubleVec low = hn::Mul(lowHalf(radians), scale);
    const DoubleVec high = hn::Mul(highHalf(radians), scale);
    return sineOfTurns(joined(hn::Sub(low, hn::Round(low)), hn::Sub(high, hn::Round(high))));
}

// The envelope of a segment from sample `index` of it on: rises over the first twelfth and falls over
// the last eighth.
HWY_INLINE FloatVec envelope(std::size_t index, FloatVec length) {
    const Floats d;
    const hn::RebindToSigned<Floats> integers;
    const FloatVec one = hn::Set(d, 1.0F);
    const FloatVec t =
        hn::Div(hn::ConvertTo(d, hn::Iota(integers, static_cast<std::int32_t>(index))), length);
    const FloatVec rise = hn::Mul(t, hn::Set(d, 12.0F));
    const FloatVec fall = hn::Mul(hn::Sub(one, t), hn::Set(d, 8.0F));
    return hn::Min(hn::Min(rise, fall), one);
}

// The time in seconds from sample `position` of the line on. A double counts samples exactly for as
// long as any memory lasts.
HWY_INLINE FloatVec timeAt(std::size_t position) {
    const DoubleVec low = hn::Iota(Doubles(), static_cast<double>(position));
    const DoubleVec high =
        hn::Add(low, hn::Set(Doubles(), static_cast<double>(hn::Lanes(Doubles()))));
    return hn::Div(joined(low, high), hn::Set(Floats(), sampleRate));
}

// The products that make an angle are rounded one by one, as in plain code: late in a line one unit
// in the last place of an angle is far from nothing.
HWY_INLINE FloatVec formant(FloatVec time, float hertz) {
    const Floats d;
    return sineOfLarge(hn::Mul(hn::Mul(time, hn::Set(d, hertz)), hn::Set(d, twoPi)));
}

void shapeVoicedBlock(const Sound& sound, std::size_t first, float* HWY_RESTRICT block,
                      std::size_t count) {
    const Floats d;
    const FloatVec stress = hn::Set(d, sound.stress);
    const FloatVec length = hn::Set(d, static_cast<float>(sound.length));
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const FloatVec open = hn::Max(sineOfSmall(hn::LoadU(d, block + i)), hn::Zero(d));
        const FloatVec pulse = hn::MulAdd(open, hn::Set(d, 0.65F), hn::Set(d, 0.35F));
        const FloatVec time = timeAt(sound.start + first + i);
        FloatVec body = formant(time, sound.formants[0]);
        body = hn::MulAdd(formant(time, sound.formants[1]), hn::Set(d, 0.55F), body);
        body = hn::MulAdd(formant(time, sound.formants[2]), hn::Set(d, 0.3F), body);
        const FloatVec voice = hn::Mul(hn::Mul(pulse, body), hn::Set(d, 0.22F));
        hn::StoreU(hn::Mul(hn::Mul(envelope(first + i, length), voice), stress), d, block + i);
    }
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
