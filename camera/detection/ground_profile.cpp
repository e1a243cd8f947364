#include "camera/detection/ground_profile.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>

#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

constexpr int kKnots = GroundModel::kKnots;
constexpr int kVoters = 4;  // side by side; the sums do not depend on the threads
constexpr int kBins = 40;   // of plane disparity, evenly in its logarithm
constexpr int kBinsPerShare = 8;
constexpr int kStates = 41;
constexpr float kLowest = -6;  // offset of state 0 [px]
constexpr float kStep = 0.5f;
constexpr float kHighest = kLowest + kStep * (kStates - 1);
constexpr float kFarthest = 2;      // plane disparity of the last bin [px]
constexpr float kLastKnot = 0.7f;   // [px]
constexpr float kMinGain = 0.25f;   // over the flat plane, 1 being the votes of kBinsPerShare bins
constexpr float kFewestCells = 30;  // eight bins with fewer count less

// Where something upright, seen over so many rows, meets the ground, so many below it are rounded.
constexpr int kUprightPx = 24, kCornerPx = 16;
constexpr float kUpright = 0.3f;     // of the ground's growth of the disparity, at most
constexpr float kOverGround = 0.5f;  // [px]

constexpr int kFirstKnee = 6, kLastKnee = 32;  // bins
/// Slopes that are tried, up and down [rad].
constexpr float kLeastSlope = 0.035f, kSlopeStep = 0.0175f;
constexpr int kSlopes = 18;
/// Heights of a level surface behind a step [mm].
constexpr std::array<float, 10> kRises = {-200, -150, -100, -60, 60, 80, 100, 120, 150, 200};

constexpr float kMinSupport = 0.2f;  // votes on the path, part of a bin's cells
constexpr float kMinCells = 0.02f;   // in a bin that counts
constexpr int kMaxMissing = 3;       // bins
/// So many times as many votes as the plane a ramp must have where both are this far apart [px].
constexpr float kInsteadUp = 12, kInsteadDown = 4, kClear = 1;
constexpr float kAlone = 0.6f;  // votes on a ramp by what lies elsewhere: less is clutter
constexpr int kMinSeen = 5;     // bins
/// So many times as much a ramp must gain as a step with a level surface behind it, up or down.
constexpr float kOverStep = 1.5f, kOverStepDown = 0.7f;
constexpr int kRampIterations = 6;
/// What is farther says little, and behind a ramp that falls away other things are seen [px].
constexpr float kFarthestOnRamp = 3;
/// Things stand above the ground: on a ramp that falls away, of which few rows are seen, they would
/// lift it.
constexpr float kOverFall = 2;
constexpr double kCellSigma = 0.35;  // [px] of one independent measurement
constexpr double kTurnSigma = 0.2;   // tangent of the angle at which a ramp is met

/// A ramp: behind a knee at the plane disparity `knee` the ground departs from the plane by
/// `rate` px per px.
struct Ramp {
    float knee = 0, rate = 0;
    float offsetAt(float s) const { return s < knee ? rate * (knee - s) : 0; }
};

/// The cells that look like ground, by plane disparity and offset from the plane.
struct Votes {
    std::array<std::array<float, kStates>, kBins> of{};
    std::array<float, kBins> all{};
    std::array<float, kBins> centre{};   ///< plane disparity [px]
    std::array<float, kBins> nearest{};  ///< largest plane disparity [px]

    float at(int bin, float offset) const {
        const float position = (offset - kLowest) / kStep;
        if (position < 0 || position > kStates - 1)
            return 0;
        const int state = std::min(static_cast<int>(position), kStates - 2);
        const float part = position - static_cast<float>(state);
        return of[bin][state] * (1 - part) + of[bin][state + 1] * part;
    }
};

/// A matcher rounds the corner between something upright and the ground before it, which then looks
/// like the foot of a ramp that rises. Follows a column downwards.
class Corners {
public:
    explicit Corners(int bin_px) : need_(kUprightPx / bin_px), reach_(kCornerPx / bin_px) {}

    /// The next measured cell.
    void pass(bool upright) {
        if (upright) {
            run_ = std::min(run_ + 1, 4 * need_);
            return;
        }
        if (run_ >= need_)
            left_ = reach_;
        run_ = std::max(0, run_ - 2);  // a few cells of a wall are measured otherwise
    }
    /// To the next bin. @return whether this one lies in a corner
    bool step() { return left_ > 0 && left_-- > 0; }

private:
    int need_, reach_, run_ = 0, left_ = 0;
};

/// Calls body(s, d, gradient, weight) for the measured cells of a column below the horizon, from
/// the far ones on, without those in corners that seem to rise.
template <typename Body>
void forEachCell(const GroundCells& cells, const GroundModel& model, int column, const Body& body) {
    const int reach = cells.gradientReach();
    const auto b = static_cast<float>(model.b);
    const auto above = static_cast<float>(model.a * cells.u(column) + model.c);
    const float* v = cells.v();
    const float* d = cells.disparity(column);
    const float* gradient = cells.gradient(column);
    const float* weight = cells.weight(column);
    Corners corners(cells.binPx());
    const int begin = cells.firstBin(column, model, kFarthest);
    for (int bin = 0; bin < cells.bins(); ++bin) {
        const float s = above + b * v[bin];
        if (weight[bin] > 0)
            corners.pass(std::fabs(gradient[bin]) < kUpright * b && d[bin] > kFarthest &&
                         d[bin] > s + kOverGround);
        const bool rounded = corners.step() && d[bin] > s;
        if (bin < begin || rounded)
            continue;
        if ((weight[bin] > 0) & (weight[bin - reach] > 0) & (weight[bin + reach] > 0) &
            (s >= kFarthest))
            body(s, d[bin], gradient[bin], weight[bin]);
    }
}

/// The votes of a column.
void vote(const GroundCells& cells, const GroundModel& model, int column, Votes& votes) {
    const auto b = static_cast<float>(model.b);
    int bin = kBins - 1;
    forEachCell(cells, model, column, [&](float s, float d, float gradient, float weight) {
        if (gradient < 0.3f * b || gradient > 3 * b)
            return;
        while (bin > 0 && s > votes.nearest[bin]) --bin;
        // A vote is as wide as the tolerance.
        const float tolerance = std::max(groundTolerance(s), kStep);
        const float low = (d - s - tolerance - kLowest) / kStep;
        const float high = (d - s + tolerance - kLowest) / kStep;
        if (high >= 0 && low <= kStates - 1) {
            const int last = std::min(static_cast<int>(high), kStates - 1);
            for (int state = std::max(0, static_cast<int>(std::ceil(low))); state <= last;
                 ++state) {
                const float t = (d - s - (kLowest + kStep * static_cast<float>(state))) / tolerance;
                votes.of[bin][state] += weight * (1 - t * t);
            }
        }
        votes.all[bin] += weight;
    });
}

/// Every part has the same say, although the near ones fill most of the picture.
void shareOut(Votes& votes, float cell_px) {
    const float fewest = kFewestCells * cell_px / kPixelsPerSample;
    for (int first = 0; first < kBins; first += kBinsPerShare) {
        float sum = 0;
        for (int bin = first; bin < first + kBinsPerShare; ++bin) sum += votes.all[bin];
        const float scale = 1 / std::max(fewest, sum);
        for (int bin = first; bin < first + kBinsPerShare; ++bin) {
            for (float& value : votes.of[bin]) value *= scale;
            votes.all[bin] *= scale;
        }
    }
}

void collectVotes(const GroundCells& cells, const GroundModel& model, float nearest,
                  std::array<Votes, kVoters>& parts) {
    const float log_ratio = std::log(kFarthest / nearest) / kBins;
    Votes& votes = parts[0];
    for (int bin = 0; bin < kBins; ++bin) {
        votes.nearest[bin] = nearest * std::exp(log_ratio * static_cast<float>(bin));
        votes.centre[bin] = nearest * std::exp(log_ratio * (static_cast<float>(bin) + 0.5f));
    }
    for (Votes& part : parts) part.nearest = votes.nearest;
    parallelFor(kVoters, [&](int part) {
        for (int column = part; column < cells.columns(); column += kVoters)
            vote(cells, model, column, parts[part]);
    });
    for (int part = 1; part < kVoters; ++part)
        for (int bin = 0; bin < kBins; ++bin) {
            votes.all[bin] += parts[part].all[bin];
            for (int state = 0; state < kStates; ++state)
                votes.of[bin][state] += parts[part].of[bin][state];
        }
    shareOut(votes, static_cast<float>(cells.columnPx() * cells.binPx()));
}

/// What a ramp from the bin `first` on gains over the plane; nothing where it is not seen all
/// along: no cell lies on the slope that bridges a step or a drop.
float gainOf(const Votes& votes, const Ramp& ramp, int first) {
    float gain = 0;
    float clear = 0, on_plane = 0, elsewhere = 0;
    int missing = 0, seen = 0;
    for (int bin = first; bin < kBins; ++bin) {
        const float offset = ramp.offsetAt(votes.centre[bin]);
        if (votes.centre[bin] + offset < kFarthest)
            break;  // beyond its horizon
        if (offset > kHighest || votes.all[bin] < kMinCells)
            continue;
        const float on_it = votes.at(bin, offset);
        gain += on_it - votes.at(bin, 0);
        if (std::fabs(offset) > kClear) {
            clear += on_it;
            on_plane += votes.at(bin, 0);
            elsewhere += votes.all[bin] - on_it;
        }
        missing += on_it < kMinSupport * votes.all[bin];
        ++seen;
    }
    // Beside a raised surface the plane goes on, behind the knee of a ramp it does not.
    const bool instead = clear > (ramp.rate > 0 ? kInsteadUp : kInsteadDown) * on_plane;
    const bool all_along = missing <= kMaxMissing && 4 * missing <= seen && seen >= kMinSeen;
    const bool alone = clear > kAlone * elsewhere;
    return instead && all_along && alone ? gain : 0;
}

/// The ramp that gains most over the plane, if it gains `needed`.
float bestRamp(const Votes& votes, const GroundModel& model, double fb, float needed, Ramp& best) {
    // No ramp from here on gains more.
    std::array<float, kBins + 1> most{};
    for (int bin = kBins - 1; bin >= 0; --bin)
        most[bin] = most[bin + 1] + *std::max_element(votes.of[bin].begin(), votes.of[bin].end()) -
                    votes.at(bin, 0);
    float best_gain = needed;
    for (int first = kFirstKnee; first <= kLastKnee; ++first) {
        const float knee = 0.5f * (votes.centre[first - 1] + votes.centre[first]);
        const auto far = static_cast<float>(fb / (knee * model.height_mm));
        for (int i = 0; i < 2 * kSlopes; ++i) {
            const float slope = kLeastSlope + kSlopeStep * static_cast<float>(i / 2);
            const float stretch = 1 + (i % 2 ? slope : -slope) * far;
            const float cost = 0.02f + 0.2f * slope;
            if (most[first] - cost <= best_gain)
                break;
            if (stretch < 0.1f)
                continue;  // falls away from the line of sight
            const Ramp ramp = {knee, 1 - 1 / stretch};
            const float gain = gainOf(votes, ramp, first) - cost;
            if (gain > best_gain) {
                best_gain = gain;
                best = ramp;
            }
        }
    }
    return best_gain;
}

/// What a ramp must gain lest it is a step with a level surface behind it.
float bestStep(const Votes& votes, const GroundModel& model) {
    float best = 0;
    for (const float rise : kRises) {
        const auto height = static_cast<float>(model.height_mm);
        if (rise > 0.6f * height)
            continue;
        float gain = 0;
        for (int bin = kBins - 1; bin >= kFirstKnee; --bin) {
            const float s = votes.centre[bin];
            gain += votes.at(bin, s * rise / (height - rise)) - votes.at(bin, 0);
            best = std::max(best, (rise > 0 ? kOverStep : kOverStepDown) * gain);
        }
    }
    return best;
}

/// The model with the ramp d = s + p + q s + r x behind its knee.
/// @param nearest  largest disparity of the plane in the picture [px]
GroundModel withRamp(GroundModel model, const RectifiedGeometry& geometry,
                     const Eigen::Vector3d& plane, float nearest) {
    const auto knee = static_cast<float>(-plane[0] / plane[1]);
    model.flat = false;
    model.knot[0] = nearest;
    // A ramp that falls away ends at its own horizon.
    const auto horizon = static_cast<float>((kLastKnot - plane[0]) / (1 + plane[1]));
    const float ratio = std::pow(std::max(kLastKnot, horizon) / knee, 1.0f / (kKnots - 2));
    for (int k = 1; k < kKnots; ++k) {
        model.knot[k] = knee * std::pow(ratio, static_cast<float>(k - 1));
        model.knot_offset[k] = static_cast<float>(plane[0] + plane[1] * model.knot[k]);
    }
    model.stretch_per_px = plane[2] / plane[0] / geometry.fx;
    model.stretch = 1 - model.stretch_per_px * geometry.cx;
    return model;
}

/// The plane d = s + p + q s + r x behind the knee, x = (u - cx) / fx, by reweighted least squares
/// (Tukey's biweight); false where there is none.
bool refineRamp(const CellGrid& grid, const RectifiedGeometry& geometry, const GroundModel& model,
                float nearest, GroundCells& cells, Eigen::Vector3d& plane) {
    for (int iteration = 0; iteration < kRampIterations; ++iteration) {
        // On the ramp that was found, what stands on it is known.
        const bool near_is_known = iteration >= kRampIterations / 2;
        if (iteration == kRampIterations / 2)
            cells.findShadowed(grid, withRamp(model, geometry, plane, nearest));
        Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();
        Eigen::Vector3d side = Eigen::Vector3d::Zero();
        const bool up = plane[1] < 0;
        GroundLine line;
        line.wide = iteration < 2 ? 1.5f : 1.0f;
        line.b = static_cast<float>(model.b * (1 + plane[1]));
        line.min_gradient = 0.3f * line.b;
        line.max_gradient = 1e6f;
        line.least = kFarthestOnRamp;
        line.steep = up ? 1 : kOverFall;
        line.over_fy = static_cast<float>(model.b);
        for (int column = 0; column < cells.columns(); ++column) {
            const double x = (cells.u(column) - geometry.cx) / geometry.fx;
            const double above = model.a * cells.u(column) + model.c;
            line.above = static_cast<float>((1 + plane[1]) * above + plane[0] + plane[2] * x);
            line.cy = static_cast<float>(-above / model.b);
            // Behind its knee.
            line.most = static_cast<float>(-(plane[0] + plane[2] * x) / plane[1]);
            const GroundSums sums = groundSums(line, cells.below(0, column, near_is_known));
            matrix(0, 0) += sums.w;
            matrix(0, 1) += sums.wy;
            matrix(0, 2) += sums.w * x;
            matrix(1, 1) += sums.wyy;
            matrix(1, 2) += sums.wy * x;
            matrix(2, 2) += sums.w * x * x;
            side += Eigen::Vector3d(sums.wr, sums.wyr, sums.wr * x);
        }
        matrix = Eigen::Matrix3d(matrix.selfadjointView<Eigen::Upper>());
        // The angle is a matter of luck, up to 10 degrees or so.
        const double turn = kTurnSigma * plane[0] / kCellSigma;
        const double sure = 1 / (turn * turn);
        matrix(2, 2) += sure;
        side[2] -= sure * plane[2];
        for (int i = 0; i < 2; ++i) matrix(i, i) += 0.1;  // solvable
        plane += matrix.ldlt().solve(side);
        if (!plane.allFinite() || plane[0] * plane[1] >= 0 || plane[1] < -0.95)
            return false;
    }
    return true;
}

}  // namespace

void fitGroundProfile(const CellGrid& grid, const RectifiedGeometry& geometry,
                      const GroundModel* previous, GroundCells& cells, GroundModel& model) {
    model.flat = true;
    model.knot_offset.fill(0);
    model.stretch = 1;
    model.stretch_per_px = 0;
    float nearest = 0;
    for (const int column : {0, cells.columns() / 2, cells.columns() - 1})
        nearest = std::max(nearest, static_cast<float>(model.planeAt(cells.u(column),
                                                                     cells.v()[cells.bins() - 1])));
    if (nearest < 4 * kFarthest)
        return;
    std::array<Votes, kVoters> parts;
    collectVotes(cells, model, nearest, parts);
    const Votes& votes = parts[0];
    Ramp ramp;
    const double fb = geometry.fx * geometry.baseline_mm;
    // A profile that was there is given up less easily than a new one is believed.
    const float needed = (previous && !previous->flat ? 0.5f : 1.0f) * kMinGain;
    const float gain = bestRamp(votes, model, fb, needed, ramp);
    if (gain <= needed || gain < bestStep(votes, model))
        return;
    Eigen::Vector3d plane(ramp.rate * ramp.knee, -ramp.rate, 0);
    if (!refineRamp(grid, geometry, model, nearest, cells, plane))
        return;
    const auto knee = static_cast<float>(-plane[0] / plane[1]);
    if (knee > 0.95f * nearest || knee < 1.2f * kFarthest)
        return;
    model = withRamp(model, geometry, plane, nearest);
}

}  // namespace kova::camera
