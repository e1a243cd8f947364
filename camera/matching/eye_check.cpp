#include "camera/matching/eye_check.h"

#include <algorithm>
#include <limits>

#include "camera/base/disparity.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/matching/eye_check.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#include "camera/base/row_loop-inl.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Column of the right picture that the pixels from x on claim; behind the row where there is none.
template <class D>
HWY_INLINE hn::Vec<D> partnerOf(D d, hn::Vec<D> disparity, int x, int width) {
    alignas(64) static constexpr std::int32_t kSteps[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                            8, 9, 10, 11, 12, 13, 14, 15};
    const auto here = hn::Add(hn::Set(d, x), hn::Load(d, kSteps));
    const auto px =
        hn::ShiftRight<kDisparityFractionBits>(hn::Add(disparity, hn::Set(d, kDisparityScale / 2)));
    const auto partner = hn::Sub(here, px);
    const auto none = hn::Or(hn::Lt(partner, hn::Zero(d)),
                             hn::Gt(disparity, hn::Set(d, kFirstReservedDisparity - 1)));
    // Not the same one for all: each would wait for the one before.
    const auto behind = hn::Add(hn::Set(d, width), hn::And(here, hn::Set(d, kClaimsBehind - 1)));
    return hn::IfThenElse(none, behind, partner);
}

/// What the pixels [begin, end) claim, and what they hold up for it: the cost in the upper half
/// decides, of equal ones the lesser disparity, which is that of the first.
void makeClaims(const std::uint16_t* disparity, const std::uint8_t* cost, int width, int begin,
                int end, std::int32_t* partner, std::int32_t* claim) {
    coverRow(hn::CappedTag<std::int32_t, 16>(), begin, end, [&](auto d, int x) HWY_ATTR {
        const hn::Rebind<std::uint16_t, decltype(d)> d16;
        const hn::Rebind<std::uint8_t, decltype(d)> d8;
        const auto value = hn::PromoteTo(d, hn::LoadU(d16, disparity + x));
        const auto dear = hn::PromoteTo(d, hn::LoadU(d8, cost + x));
        hn::StoreU(partnerOf(d, value, x, width), d, partner + (x - begin));
        hn::StoreU(hn::Or(hn::ShiftLeft<16>(dear), value), d, claim + (x - begin));
    });
}

/// Drops what is unlike the holder of its partner; to do so twice changes nothing more.
void dropUnlike(const std::int32_t* held, int width, int max_difference, std::uint16_t* disparity) {
    coverRow(hn::CappedTag<std::int32_t, 16>(), 0, width, [&](auto d, int x) HWY_ATTR {
        const hn::Rebind<std::uint16_t, decltype(d)> d16;
        const auto value = hn::PromoteTo(d, hn::LoadU(d16, disparity + x));
        const auto partner = partnerOf(d, value, x, width);
        const auto holder = hn::And(hn::GatherIndex(d, held, partner), hn::Set(d, 0xFFFF));
        const auto apart = hn::Abs(hn::Sub(holder, value));
        const auto drop = hn::Or(hn::Gt(apart, hn::Set(d, max_difference)),
                                 hn::Gt(partner, hn::Set(d, width - 1)));
        const auto reserved = hn::Gt(value, hn::Set(d, kFirstReservedDisparity - 1));
        const auto invalid = hn::Set(d, kInvalidDisparity);
        const auto kept = hn::IfThenElse(hn::AndNot(reserved, drop), invalid, value);
        hn::StoreU(hn::DemoteTo(d16, kept), d16, disparity + x);
    });
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(makeClaims);
HWY_EXPORT(dropUnlike);

void checkEyes(std::uint16_t* disparity, const std::uint8_t* cost, int width, int max_difference,
               std::int32_t* held) {
    constexpr int kChunk = 256;
    std::int32_t partner[kChunk], claim[kChunk];
    // Dearer than any claim.
    std::fill(held, held + width + kClaimsBehind, std::numeric_limits<std::int32_t>::max());
    for (int begin = 0; begin < width; begin += kChunk) {
        const int end = std::min(begin + kChunk, width);
        HWY_DYNAMIC_DISPATCH(makeClaims)(disparity, cost, width, begin, end, partner, claim);
        for (int i = 0; i < end - begin; ++i) {
            const std::int32_t before = held[partner[i]], now = claim[i];
            held[partner[i]] = now < before ? now : before;
        }
    }
    HWY_DYNAMIC_DISPATCH(dropUnlike)(held, width, max_difference, disparity);
}

}  // namespace kova::camera
#endif  // HWY_ONCE
