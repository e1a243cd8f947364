#include "camera/detection/ground_kernel.h"

#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/ground_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

#ifndef KOVA_GROUND_KERNEL_CONSTANTS
#define KOVA_GROUND_KERNEL_CONSTANTS
namespace kova::camera {
namespace {
// Narrower than for labels: a plane that compromises between two levels must not win.
constexpr float kScoreTolerance = 0.35f, kScoreTolerancePerPx = 0.012f;
constexpr float kBelow = -4;  // tolerances
constexpr float kBelowCost = -0.7f;
}  // namespace
}  // namespace kova::camera
#endif

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

GroundSums sumsImpl(const GroundLine& line, const GroundColumn& cells) {
    const hn::CappedTag<float, kGroundGroup> tag;
    const int lanes = static_cast<int>(hn::Lanes(tag));
    const auto above = hn::Set(tag, line.above);
    const auto b = hn::Set(tag, line.b);
    const auto wide = hn::Set(tag, line.wide);
    const auto min_gradient = hn::Set(tag, line.min_gradient);
    const auto max_gradient = hn::Set(tag, line.max_gradient);
    const auto cy = hn::Set(tag, line.cy);
    const auto over_fy = hn::Set(tag, line.over_fy);
    const auto one = hn::Set(tag, 1.0f);
    const auto tolerance = hn::Set(tag, groundTolerance(0));
    const auto per_px = hn::Set(tag, groundTolerance(1) - groundTolerance(0));
    const auto least = hn::Set(tag, line.least);
    const auto most = hn::Set(tag, line.most);
    const auto steep = hn::Set(tag, line.steep);
    alignas(64) float w[kGroundGroup], wy[kGroundGroup], wyy[kGroundGroup], wr[kGroundGroup],
        wyr[kGroundGroup];
    for (int k = 0; k < kGroundGroup; k += lanes) {
        auto sum_w = hn::Zero(tag), sum_wy = sum_w, sum_wyy = sum_w, sum_wr = sum_w,
             sum_wyr = sum_w;
        for (int i = k; i < cells.count; i += kGroundGroup) {
            const auto v = hn::LoadU(tag, cells.v + i);
            const auto s = hn::Add(above, hn::Mul(b, v));
            const auto r = hn::Sub(hn::LoadU(tag, cells.disparity + i), s);
            const auto off = hn::Max(r, hn::Mul(r, steep));
            const auto t = hn::Div(off, hn::Mul(wide, hn::Add(tolerance, hn::Mul(per_px, s))));
            const auto tukey = hn::Max(hn::Zero(tag), hn::Sub(one, hn::Mul(t, t)));
            const auto gradient = hn::LoadU(tag, cells.gradient + i);
            const auto like =
                hn::And(hn::And(hn::Ge(s, least), hn::Le(s, most)),
                        hn::And(hn::Ge(gradient, min_gradient), hn::Le(gradient, max_gradient)));
            const auto weight = hn::Mul(hn::LoadU(tag, cells.weight + i), hn::Mul(tukey, tukey));
            const auto add = hn::IfThenElseZero(like, weight);
            const auto add_y = hn::Mul(add, hn::Mul(hn::Sub(v, cy), over_fy));
            sum_w = hn::Add(sum_w, add);
            sum_wy = hn::Add(sum_wy, add_y);
            sum_wyy = hn::Add(sum_wyy, hn::Mul(add_y, hn::Mul(hn::Sub(v, cy), over_fy)));
            sum_wr = hn::Add(sum_wr, hn::Mul(add, r));
            sum_wyr = hn::Add(sum_wyr, hn::Mul(add_y, r));
        }
        hn::Store(sum_w, tag, w + k);
        hn::Store(sum_wy, tag, wy + k);
        hn::Store(sum_wyy, tag, wyy + k);
        hn::Store(sum_wr, tag, wr + k);
        hn::Store(sum_wyr, tag, wyr + k);
    }
    GroundSums sums;
    for (int k = 0; k < kGroundGroup; ++k) {
        sums.w += w[k];
        sums.wy += wy[k];
        sums.wyy += wyy[k];
        sums.wr += wr[k];
        sums.wyr += wyr[k];
    }
    return sums;
}

float scoreImpl(const GroundTrial& trial, const float* HWY_RESTRICT u, const GroundColumn& cells) {
    const hn::CappedTag<float, kGroundGroup> tag;
    const int lanes = static_cast<int>(hn::Lanes(tag));
    const auto a = hn::Set(tag, trial.a);
    const auto b = hn::Set(tag, trial.b);
    const auto c = hn::Set(tag, trial.c);
    const auto min_gradient = hn::Set(tag, trial.min_gradient);
    const auto max_gradient = hn::Set(tag, trial.max_gradient);
    const auto one = hn::Set(tag, 1.0f);
    const auto tolerance = hn::Set(tag, kScoreTolerance);
    const auto per_px = hn::Set(tag, kScoreTolerancePerPx);
    const auto least = hn::Set(tag, kMinPlaneDisparity);
    const auto below = hn::Set(tag, kBelow);
    const auto cost = hn::Set(tag, kBelowCost);
    alignas(64) float score[kGroundGroup];
    for (int k = 0; k < kGroundGroup; k += lanes) {
        auto sum = hn::Zero(tag);
        for (int i = k; i < cells.count; i += kGroundGroup) {
            const auto s = hn::Add(
                hn::Add(hn::Mul(a, hn::LoadU(tag, u + i)), hn::Mul(b, hn::LoadU(tag, cells.v + i))),
                c);
            const auto t = hn::Div(hn::Sub(hn::LoadU(tag, cells.disparity + i), s),
                                   hn::Add(tolerance, hn::Mul(per_px, s)));
            const auto gradient = hn::LoadU(tag, cells.gradient + i);
            const auto like =
                hn::And(hn::Lt(hn::Abs(t), one),
                        hn::And(hn::Gt(gradient, min_gradient), hn::Lt(gradient, max_gradient)));
            const auto worth = hn::IfThenElse(like, hn::Sub(one, hn::Mul(t, t)),
                                              hn::IfThenElseZero(hn::Lt(t, below), cost));
            const auto value = hn::Mul(hn::LoadU(tag, cells.weight + i), worth);
            sum = hn::Add(sum, hn::IfThenElseZero(hn::Ge(s, least), value));
        }
        hn::Store(sum, tag, score + k);
    }
    float sum = 0;
    for (const float part : score) sum += part;
    return sum;
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(sumsImpl);
HWY_EXPORT(scoreImpl);

GroundSums groundSums(const GroundLine& line, const GroundColumn& cells) {
    return HWY_DYNAMIC_DISPATCH(sumsImpl)(line, cells);
}

float groundScore(const GroundTrial& trial, const float* u, const GroundColumn& cells) {
    return HWY_DYNAMIC_DISPATCH(scoreImpl)(trial, u, cells);
}

GroundSums groundSumsReference(const GroundLine& line, const GroundColumn& cells) {
    GroundSums parts[kGroundGroup];
    const float per_px = groundTolerance(1) - groundTolerance(0);
    for (int i = 0; i < cells.count; ++i) {
        const float s = line.above + line.b * cells.v[i];
        const float gradient = cells.gradient[i];
        if (s < line.least || s > line.most || gradient < line.min_gradient ||
            gradient > line.max_gradient)
            continue;
        const float r = cells.disparity[i] - s;
        const float t =
            std::max(r, r * line.steep) / (line.wide * (groundTolerance(0) + per_px * s));
        const float tukey = std::max(0.0f, 1 - t * t);
        const float w = cells.weight[i] * (tukey * tukey);
        const float y = (cells.v[i] - line.cy) * line.over_fy;
        GroundSums& part = parts[i % kGroundGroup];
        part.w += w;
        part.wy += w * y;
        part.wyy += w * y * y;
        part.wr += w * r;
        part.wyr += w * y * r;
    }
    GroundSums sums;
    for (const GroundSums& part : parts) {
        sums.w += part.w;
        sums.wy += part.wy;
        sums.wyy += part.wyy;
        sums.wr += part.wr;
        sums.wyr += part.wyr;
    }
    return sums;
}

float groundScoreReference(const GroundTrial& trial, const float* u, const GroundColumn& cells) {
    float parts[kGroundGroup] = {};
    for (int i = 0; i < cells.count; ++i) {
        const float s = trial.a * u[i] + trial.b * cells.v[i] + trial.c;
        if (s < kMinPlaneDisparity)
            continue;
        const float t = (cells.disparity[i] - s) / (kScoreTolerance + kScoreTolerancePerPx * s);
        const float gradient = cells.gradient[i];
        if (std::fabs(t) < 1 && gradient > trial.min_gradient && gradient < trial.max_gradient)
            parts[i % kGroundGroup] += cells.weight[i] * (1 - t * t);
        else if (t < kBelow)
            parts[i % kGroundGroup] += cells.weight[i] * kBelowCost;
    }
    float sum = 0;
    for (const float part : parts) sum += part;
    return sum;
}

}  // namespace kova::camera
#endif
