#include "camera/detection/stixel_kernel.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/stixel_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

float stepImpl(const StixelStep& step, const float* HWY_RESTRICT level,
               const float* HWY_RESTRICT cost, float* HWY_RESTRICT next,
               float* HWY_RESTRICT group_min) {
    const hn::CappedTag<float, kLevelGroup> tag;
    const int lanes = static_cast<int>(hn::Lanes(tag));
    const auto slant = hn::Set(tag, step.slant);
    const auto entering = [&](const FootCosts& foot, auto at) {
        const auto below = hn::Lt(at, hn::Set(tag, foot.below_until));
        const auto above = hn::Gt(at, hn::Set(tag, foot.above_from));
        return hn::IfThenElse(
            below, hn::Set(tag, foot.below),
            hn::IfThenElse(above, hn::Set(tag, foot.above), hn::Set(tag, foot.on)));
    };
    const auto scale = hn::Set(tag, step.scale);
    const auto weight = hn::Set(tag, step.weight);
    const auto cap = hn::Set(tag, step.cap);
    const auto constant = hn::Set(tag, step.constant);
    const auto d = hn::Set(tag, step.d);
    const auto until = hn::Set(tag, step.ground_until);
    const auto penalty = hn::Set(tag, step.below_ground);
    auto to_ground = hn::Set(tag, kNeverCost);
    for (int group = 0; group < step.groups; ++group) {
        const auto entry = hn::Set(tag, std::min(step.jump[group], step.other));
        auto least = hn::Set(tag, kNeverCost);
        for (int k = group * kLevelGroup; k < (group + 1) * kLevelGroup; k += lanes) {
            const auto at = hn::LoadU(tag, level + k);
            auto value =
                hn::Min(hn::Load(tag, cost + k), hn::Add(hn::LoadU(tag, cost + k + 1), slant));
            value = hn::Min(value, entry);
            value = hn::Min(value, entering(step.from_ground, at));
            value = hn::Min(value, entering(step.from_raised, at));
            const auto off = hn::Sub(d, at);
            const auto misfit = hn::Min(hn::Mul(scale, hn::Mul(off, off)), cap);
            value = hn::Add(value, hn::Add(constant, hn::Mul(weight, misfit)));
            hn::Store(value, tag, next + k);
            least = hn::Min(least, value);
            const auto under = hn::IfThenElseZero(hn::Lt(at, until), penalty);
            to_ground = hn::Min(to_ground, hn::Add(value, under));
        }
        group_min[group] = hn::GetLane(hn::MinOfLanes(tag, least));
    }
    return hn::GetLane(hn::MinOfLanes(tag, to_ground));
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(stepImpl);

float stixelStep(const StixelStep& step, const float* level, const float* cost, float* next,
                 float* group_min) {
    return HWY_DYNAMIC_DISPATCH(stepImpl)(step, level, cost, next, group_min);
}

float stixelStepReference(const StixelStep& step, const float* level, const float* cost,
                          float* next, float* group_min) {
    const auto entering = [](const FootCosts& foot, float at) {
        return at < foot.below_until ? foot.below : (at > foot.above_from ? foot.above : foot.on);
    };
    float to_ground = kNeverCost;
    for (int group = 0; group < step.groups; ++group) {
        group_min[group] = kNeverCost;
        for (int k = group * kLevelGroup; k < (group + 1) * kLevelGroup; ++k) {
            const float at = level[k];
            const float entry =
                std::min({step.jump[group], step.other, entering(step.from_ground, at),
                          entering(step.from_raised, at)});
            const float off = step.d - at;
            const float misfit = std::min(step.scale * (off * off), step.cap);
            const float value = std::min({cost[k], cost[k + 1] + step.slant, entry}) +
                                (step.constant + step.weight * misfit);
            next[k] = value;
            group_min[group] = std::min(group_min[group], value);
            to_ground =
                std::min(to_ground, value + (at < step.ground_until ? step.below_ground : 0.0f));
        }
    }
    return to_ground;
}

}  // namespace kova::camera
#endif
