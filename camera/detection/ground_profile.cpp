#include "camera/detection/ground_profile.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>

namespace kova::camera {

namespace {

constexpr int kKnots = GroundModel::kKnots;
constexpr int kIntervals = kKnots - 1;
constexpr int kColumnStep = 2;
constexpr int kSubBins = 8;  // per interval
constexpr int kStates = 41;
constexpr float kLowest = -6;  // offset of state 0 [px]
constexpr float kStep = 0.5f;
constexpr int kZeroState = 12;
constexpr float kFarthest = 2;      // plane disparity of the last knot [px]
constexpr float kSteepest = 0.52f;  // [rad], 30 degrees
constexpr float kMinGain = 0.5f;    // over the flat plane, 1 being the votes of one interval
constexpr float kFewestCells = 30;  // an interval with fewer counts less

constexpr float kMinSubSupport = 0.2f;  // votes on the path, part of a sub-bin's cells
constexpr int kMaxMissing = 3;          // sub-bins

using Histogram = std::array<std::array<float, kStates>, kIntervals * kSubBins>;

float offsetOf(int state) {
    return kLowest + kStep * static_cast<float>(state);
}

/// Calls body(s, d, gradient, weight) for the measured cells below the horizon of every other
/// column: neighbours say much the same.
template <typename Body>
void forEachCell(const CellGrid& grid, const GroundModel& model, const Body& body) {
    const int reach = std::max(1, 8 / grid.binPx());
    for (int column = 0; column < grid.columns(); column += kColumnStep) {
        const double u = grid.centreX(column);
        for (int bin = reach; bin + reach < grid.bins(); ++bin) {
            const std::size_t cell = grid.index(column, bin);
            if (grid.kind[cell] != CellKind::kMeasured ||
                grid.kind[cell - reach] != CellKind::kMeasured ||
                grid.kind[cell + reach] != CellKind::kMeasured)
                continue;
            const float s = static_cast<float>(model.planeAt(u, grid.centreY(bin)));
            if (s < kFarthest)
                continue;
            const float gradient = (grid.disparity[cell + reach] - grid.disparity[cell - reach]) /
                                   static_cast<float>(2 * reach * grid.binPx());
            body(s, grid.disparity[cell], gradient,
                 kColumnStep * grid.weight[cell] * grid.confidence[cell]);
        }
    }
}

float votesOnLine(const Histogram& histogram, int interval, float from, float to) {
    float sum = 0;
    for (int sub = 0; sub < kSubBins; ++sub) {
        const float t = (static_cast<float>(sub) + 0.5f) / kSubBins;
        const float position = (from + t * (to - from) - kLowest) / kStep;
        const int state = std::clamp(static_cast<int>(position), 0, kStates - 2);
        const float part = std::clamp(position - static_cast<float>(state), 0.0f, 1.0f);
        const auto& row = histogram[interval * kSubBins + sub];
        sum += row[state] * (1 - part) + row[state + 1] * part;
    }
    return sum;
}

/// The best path of offsets through the knots; returns its votes less the cost of bending.
float bestPath(const Histogram& histogram, const GroundModel& model,
               const RectifiedGeometry& geometry, std::array<int, kKnots>& path) {
    std::array<std::array<float, kStates>, kKnots> value;
    std::array<std::array<int, kStates>, kKnots> from{};
    const double fb = geometry.fx * geometry.baseline_mm;
    for (int state = 0; state < kStates; ++state)
        value[0][state] = std::abs(state - kZeroState) <= 2 ? 0.0f : -1e9f;
    for (int k = 1; k < kKnots; ++k) {
        for (int to = 0; to < kStates; ++to) {
            value[k][to] = -1e9f;
            const float far_d = model.knot[k] + offsetOf(to);
            if (far_d < 0.3f * model.knot[k])
                continue;
            const double far_rise = model.height_mm * offsetOf(to) / far_d;
            for (int state = 0; state < kStates; ++state) {
                const float near_d = model.knot[k - 1] + offsetOf(state);
                if (value[k - 1][state] < -1e8f || near_d <= far_d * 1.05f)
                    continue;
                const double rise = far_rise - model.height_mm * offsetOf(state) / near_d;
                const float slope = static_cast<float>(std::atan2(rise, fb / far_d - fb / near_d));
                if (std::fabs(slope) > kSteepest)
                    continue;
                const float bend = slope / 0.2f;
                const float gain = votesOnLine(histogram, k - 1, offsetOf(state), offsetOf(to)) -
                                   0.05f * bend * bend - 0.02f * std::fabs(bend);
                if (value[k - 1][state] + gain > value[k][to]) {
                    value[k][to] = value[k - 1][state] + gain;
                    from[k][to] = state;
                }
            }
        }
    }
    int state =
        static_cast<int>(std::max_element(value[kKnots - 1].begin(), value[kKnots - 1].end()) -
                         value[kKnots - 1].begin());
    const float best = value[kKnots - 1][state];
    for (int k = kKnots - 1; k >= 0; --k) {
        path[k] = state;
        state = from[k][state];
    }
    return best;
}

/// Whether the ground was seen all along the path. A step or a drop makes a path with a gap: no
/// cell lies on the slope that bridges it.
bool continuous(const Histogram& histogram,
                const std::array<float, kIntervals * kSubBins>& sub_total,
                const std::array<int, kKnots>& path) {
    int missing = 0;
    for (int bin = 0; bin < kIntervals * kSubBins; ++bin) {
        if (sub_total[bin] < 0.02f)
            continue;
        const int k = bin / kSubBins;
        const float t = (static_cast<float>(bin % kSubBins) + 0.5f) / kSubBins;
        const float state =
            static_cast<float>(path[k]) * (1 - t) + static_cast<float>(path[k + 1]) * t;
        const int at = std::clamp(static_cast<int>(std::lround(state)), 0, kStates - 1);
        missing += histogram[bin][at] < kMinSubSupport * sub_total[bin];
    }
    return missing <= kMaxMissing;
}

void refineOffsets(const CellGrid& grid, GroundModel& model) {
    using Matrix = Eigen::Matrix<double, kKnots, kKnots>;
    using Vector = Eigen::Matrix<double, kKnots, 1>;
    for (int iteration = 0; iteration < 3; ++iteration) {
        Matrix matrix = Matrix::Zero();
        Vector side = Vector::Zero();
        forEachCell(grid, model, [&](float s, float d, float gradient, float weight) {
            const float t = (d - model.groundOf(s)) / (2 * groundTolerance(s));
            if (std::fabs(t) >= 1 || gradient < 0.3f * static_cast<float>(model.b))
                return;
            int k = 1;
            while (k < kKnots - 1 && s < model.knot[k]) ++k;
            const double part =
                std::clamp((s - model.knot[k]) / (model.knot[k - 1] - model.knot[k]), 0.0f, 1.0f);
            const double w = weight * (1 - t * t) * (1 - t * t);
            matrix(k, k) += w * (1 - part) * (1 - part);
            matrix(k - 1, k - 1) += w * part * part;
            matrix(k, k - 1) += w * part * (1 - part);
            matrix(k - 1, k) += w * part * (1 - part);
            side[k] += w * (1 - part) * (d - s);
            side[k - 1] += w * part * (d - s);
        });
        // Knots without evidence stay where the search put them.
        for (int k = 0; k < kKnots; ++k) {
            matrix(k, k) += 2;
            side[k] += 2 * static_cast<double>(model.knot_offset[k]);
        }
        const Vector offsets = matrix.ldlt().solve(side);
        for (int k = 0; k < kKnots; ++k) model.knot_offset[k] = static_cast<float>(offsets[k]);
    }
    for (int k = 1; k < kKnots; ++k)  // farther is never nearer
        model.knot_offset[k] =
            std::min(model.knot_offset[k],
                     0.95f * (model.knot[k - 1] + model.knot_offset[k - 1]) - model.knot[k]);
}

}  // namespace

void fitGroundProfile(const CellGrid& grid, const RectifiedGeometry& geometry,
                      const GroundModel* previous, GroundModel& model) {
    model.flat = true;
    model.knot_offset.fill(0);
    float nearest = 0;
    for (const int column : {0, grid.columns() / 2, grid.columns() - 1})
        nearest = std::max(nearest, static_cast<float>(model.planeAt(
                                        grid.centreX(column), grid.centreY(grid.bins() - 1))));
    if (nearest < 4 * kFarthest)
        return;
    const float ratio = std::pow(kFarthest / nearest, 1.0f / kIntervals);
    for (int k = 0; k < kKnots; ++k)
        model.knot[k] = nearest * std::pow(ratio, static_cast<float>(k));

    Histogram histogram{};
    std::array<float, kIntervals> total{};
    std::array<float, kIntervals * kSubBins> sub_total{};
    const float log_ratio = std::log(ratio);
    forEachCell(grid, model, [&](float s, float d, float gradient, float weight) {
        if (gradient < 0.3f * static_cast<float>(model.b) ||
            gradient > 3 * static_cast<float>(model.b))
            return;
        const float position = std::log(s / nearest) / log_ratio;
        const int bin =
            std::clamp(static_cast<int>(position * kSubBins), 0, kIntervals * kSubBins - 1);
        // A vote is as wide as the tolerance.
        const float tolerance = std::max(groundTolerance(s), kStep);
        const int low = static_cast<int>(std::ceil((d - s - tolerance - kLowest) / kStep));
        const int high = static_cast<int>(std::floor((d - s + tolerance - kLowest) / kStep));
        for (int state = std::max(low, 0); state <= std::min(high, kStates - 1); ++state) {
            const float t = (d - s - offsetOf(state)) / tolerance;
            histogram[bin][state] += weight * (1 - t * t);
        }
        total[bin / kSubBins] += weight;
        sub_total[bin] += weight;
    });

    // Every interval has the same say, although the near ones fill most of the picture.
    const float fewest =
        kFewestCells * static_cast<float>(grid.columnPx() * grid.binPx()) / kPixelsPerSample;
    for (int bin = 0; bin < kIntervals * kSubBins; ++bin) {
        const float scale = 1 / std::max(fewest, total[bin / kSubBins]);
        for (float& value : histogram[bin]) value *= scale;
        sub_total[bin] *= scale;
    }

    std::array<int, kKnots> path;
    const float best = bestPath(histogram, model, geometry, path);
    float flat = 0;
    for (int k = 0; k < kIntervals; ++k) flat += votesOnLine(histogram, k, 0, 0);
    // A profile that was there is given up less easily than a new one is believed.
    const float needed = (previous && !previous->flat ? 0.5f : 1.0f) * kMinGain;
    if (best - flat < needed || !continuous(histogram, sub_total, path))
        return;
    model.flat = false;
    for (int k = 0; k < kKnots; ++k) model.knot_offset[k] = offsetOf(path[k]);
    refineOffsets(grid, model);
    if (previous && !previous->flat) {
        for (int k = 0; k < kKnots; ++k) {
            const float s = model.knot[k];
            const float before = previous->groundOf(s) - s;
            if (std::fabs(before - model.knot_offset[k]) < 2 * groundTolerance(s))
                model.knot_offset[k] = 0.5f * (model.knot_offset[k] + before);
        }
    }
}

}  // namespace kova::camera
