#include "camera/detection/ground_fit.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <random>

#include "camera/base/parallel.h"
#include "camera/detection/ground_profile.h"

namespace kova::camera {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180;
constexpr double kGravitySigma = 2 * kDegree;
constexpr double kRollSigma = 3 * kDegree;
constexpr double kTrackAngleSigma = 1.5 * kDegree;
constexpr double kTrackHeightSigma = 0.05;
constexpr double kMinHeightMm = 80;
constexpr double kMaxHeightMm = 5000;
constexpr double kMaxPitch = 40 * kDegree;
constexpr double kMaxRoll = 15 * kDegree;
constexpr double kMaxGravityError = 10 * kDegree;
constexpr int kHypotheses = 200;
constexpr std::size_t kMaxScored = 1500;
constexpr std::size_t kRounds = 5;
constexpr std::size_t kFirstScored = kMaxScored / kRounds;
constexpr float kHopeless = 0.6f;  // of the best score so far
constexpr std::size_t kMaxRefined = 4000;
constexpr float kMinArea = 0.02f;
constexpr float kMinPlaneDisparity = 1;
constexpr int kIterations = 6;
constexpr float kMaxSpread = 0.97f;
constexpr int kReachAcross = 16;         // of what is nearer, into the ground beside it [px]
constexpr int kReachDown = 16;           // from its foot
constexpr double kShadowedWorth = 0.05;  // of a cell within that reach

double angleBetween(const std::array<double, 3>& p, const std::array<double, 3>& q) {
    return std::acos(std::clamp(p[0] * q[0] + p[1] * q[1] + p[2] * q[2], -1.0, 1.0));
}

bool plausible(const GroundModel& model, const GroundPrior& prior) {
    if (model.height_mm < kMinHeightMm || model.height_mm > kMaxHeightMm)
        return false;
    if (prior.has_gravity)
        return angleBetween(model.down, prior.down) <= kMaxGravityError;
    return std::fabs(model.pitch()) <= kMaxPitch && std::fabs(model.roll()) <= kMaxRoll;
}

/// Rows per pixel offset over which the gradient down a column is taken.
int gradientBins(const CellGrid& grid) {
    return std::max(1, 8 / grid.binPx());
}

}  // namespace

/// Finds the cells within the matcher's reach of something nearer than the plane: down to its foot
/// and below that, and beside it. There the matcher puts the ground up to a pixel too near.
void GroundFitter::findShadowed(const CellGrid& grid, const GroundModel& model) {
    const std::size_t cells = static_cast<std::size_t>(grid.columns()) * grid.bins();
    below_.resize(cells);
    shadowed_.assign(cells, 0);
    const int side = kReachAcross / grid.columnPx();
    const int down = kReachDown / grid.binPx();
    parallelFor(grid.columns(), [&](int column) {
        const double u = grid.centreX(column);
        float foot = 0;  // disparity of the last thing above
        int left = 0;    // bins from its foot on
        for (int bin = 0; bin < grid.bins(); ++bin) {
            const std::size_t cell = grid.index(column, bin);
            const float s = std::max(1.0f, static_cast<float>(model.planeAt(u, grid.centreY(bin))));
            const bool too_near = grid.kind[cell] == CellKind::kTooNear;
            if (too_near || (grid.kind[cell] == CellKind::kMeasured &&
                             grid.disparity[cell] > s + 3 * groundTolerance(s))) {
                foot = too_near ? 1e6f : grid.disparity[cell];
                left = down + 1;
            }
            below_[cell] = left > 0;
            left -= left > 0 && s >= foot;
        }
    });
    parallelFor(grid.columns(), [&](int column) {
        std::uint8_t* out = shadowed_.data() + grid.index(column, 0);
        const int last = std::min(grid.columns() - 1, column + side);
        for (int other = std::max(0, column - side); other <= last; ++other) {
            const std::uint8_t* from = below_.data() + grid.index(other, 0);
            for (int bin = 0; bin < grid.bins(); ++bin) out[bin] |= from[bin];
        }
    });
}

void GroundFitter::collect(const CellGrid& grid) {
    samples_.clear();
    ground_like_.clear();
    scored_.clear();
    const int reach = gradientBins(grid);
    const auto measured = [&](int column, int bin) {
        return bin >= 0 && bin < grid.bins() &&
               grid.kind[grid.index(column, bin)] == CellKind::kMeasured;
    };
    for (int column = 0; column < grid.columns(); ++column) {
        for (int bin = 0; bin < grid.bins(); ++bin) {
            if (!measured(column, bin))
                continue;
            const std::size_t cell = grid.index(column, bin);
            const int above = measured(column, bin - reach) ? bin - reach : bin;
            const int below = measured(column, bin + reach) ? bin + reach : bin;
            Sample sample;
            sample.u = grid.centreX(column);
            sample.v = grid.centreY(bin);
            sample.d = grid.disparity[cell];
            sample.gradient = 0;
            if (below > above)
                sample.gradient = (grid.disparity[grid.index(column, below)] -
                                   grid.disparity[grid.index(column, above)]) /
                                  static_cast<float>((below - above) * grid.binPx());
            sample.weight = grid.weight[cell] * grid.confidence[cell];
            sample.cell = static_cast<std::uint32_t>(cell);
            if (sample.gradient > 0.015f && grid.confidence[cell] > 0.3f)
                ground_like_.push_back(static_cast<std::uint32_t>(samples_.size()));
            samples_.push_back(sample);
        }
    }
    // In rounds over the whole picture, so that the first ones are a fair part.
    const std::size_t step = std::max<std::size_t>(1, samples_.size() / kMaxScored);
    for (std::size_t round = 0; round < kRounds; ++round)
        for (std::size_t i = round * step; i < samples_.size(); i += kRounds * step)
            scored_.push_back(samples_[i]);
}

/// Explained cells less those clearly below, weighted, times how well the priors agree.
float GroundFitter::score(const GroundModel& model, const GroundPrior& prior, float to_beat) const {
    float sum = 0;
    const float a = static_cast<float>(model.a);
    const float b = static_cast<float>(model.b);
    const float c = static_cast<float>(model.c);
    const float min_gradient = 0.4f * b;
    const float max_gradient = 2.5f * b;
    const auto add = [&](const Sample& sample) {
        const float s = a * sample.u + b * sample.v + c;
        if (s < kMinPlaneDisparity)
            return;
        // Narrower than for labels: a plane that compromises between two levels must not win.
        const float tolerance = 0.35f + 0.012f * s;
        const float r = sample.d - s;
        if (r < -4 * tolerance) {
            sum -= 0.7f * sample.weight;
        } else if (std::fabs(r) < tolerance && sample.gradient > min_gradient &&
                   sample.gradient < max_gradient) {
            const float t = r / tolerance;
            sum += sample.weight * (1 - t * t);
        }
    };
    // A part of the cells tells most planes that are far from the best one.
    const std::size_t first = std::min(scored_.size(), kFirstScored);
    for (std::size_t i = 0; i < first; ++i) add(scored_[i]);
    if (sum * static_cast<float>(scored_.size()) < kHopeless * to_beat * static_cast<float>(first))
        return 0;
    for (std::size_t i = first; i < scored_.size(); ++i) add(scored_[i]);
    double disagreement = 0;
    if (prior.has_gravity) {
        const double e = angleBetween(model.down, prior.down) / kGravitySigma;
        disagreement = e * e;
    } else {
        const double e = model.roll() / kRollSigma;
        disagreement = e * e;
    }
    if (prior.has_track) {
        const double e = angleBetween(model.down, prior.track.down) / kTrackAngleSigma;
        const double g = std::log(model.height_mm / prior.track.height_mm) / kTrackHeightSigma;
        disagreement += std::min(9.0, e * e + g * g);
    }
    return sum * static_cast<float>(1 - std::min(0.8, 0.1 * disagreement));
}

GroundModel GroundFitter::search(const RectifiedGeometry& geometry, const GroundPrior& prior,
                                 float& best) const {
    GroundModel model;
    best = 0;
    if (prior.has_track && plausible(prior.track, prior)) {
        model = prior.track;
        model.flat = true;
        best = score(model, prior, 0);
    }
    if (ground_like_.size() < 30)
        return model;
    std::mt19937 random(20240229);
    const auto draw = [&]() -> const Sample& {
        return samples_[ground_like_[random() % ground_like_.size()]];
    };
    const double prior_roll = std::atan2(prior.down[0], prior.down[1]);
    const double roll_sigma = prior.has_gravity ? kGravitySigma : kRollSigma;
    for (int i = 0; i < kHypotheses; ++i) {
        const Sample& p = draw();
        const Sample& q = draw();
        GroundModel trial;
        bool ok = false;
        if (i % 3 != 0) {
            // Two points and a drawn roll; the sum of three uniform numbers is nearly normal.
            double z = 0;
            for (int k = 0; k < 3; ++k) z += static_cast<double>(random() % 2001) / 1000 - 1;
            const double lean = std::tan(prior_roll + z * roll_sigma) * geometry.fy / geometry.fx;
            const double qp = p.v + lean * p.u;
            const double qq = q.v + lean * q.u;
            if (std::fabs(qp - qq) < 4)
                continue;
            const double b = (p.d - q.d) / (qp - qq);
            ok = GroundModel::fromCoefficients(lean * b, b, p.d - b * qp, geometry, trial);
        } else {
            const Sample& r = draw();
            const double ux = q.u - p.u, vx = q.v - p.v, dx = q.d - p.d;
            const double uy = r.u - p.u, vy = r.v - p.v, dy = r.d - p.d;
            const double det = ux * vy - uy * vx;
            if (std::fabs(det) < 100)
                continue;
            const double a = (dx * vy - dy * vx) / det;
            const double b = (ux * dy - uy * dx) / det;
            ok = GroundModel::fromCoefficients(a, b, p.d - a * p.u - b * p.v, geometry, trial);
        }
        if (!ok || !plausible(trial, prior))
            continue;
        const float value = score(trial, prior, best);
        if (value > best) {
            best = value;
            model = trial;
        }
    }
    return model;
}

void GroundFitter::refine(const CellGrid& grid, const RectifiedGeometry& geometry,
                          const GroundPrior& prior, GroundModel& model) {
    constexpr double kCellSigma = 0.35;  // [px] of one independent measurement
    for (int iteration = 0; iteration < kIterations; ++iteration) {
        const bool near_is_known = iteration >= kIterations / 2;
        if (near_is_known)
            findShadowed(grid, model);
        // On the way a part of the cells will do.
        const std::size_t stride =
            iteration < kIterations - 2 ? samples_.size() / kMaxRefined + 1 : 1;
        const double stand_for = static_cast<double>(stride) / (kCellSigma * kCellSigma);
        // d = A x + B y + C in normalised picture coordinates: (A, B, C) is the plane's normal,
        // scaled, so that the priors are linear.
        Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();
        Eigen::Vector3d side = Eigen::Vector3d::Zero();
        const auto add = [&](const Eigen::Vector3d& row, double value, double weight) {
            matrix += weight * row * row.transpose();
            side += weight * value * row;
        };
        const double min_gradient = (near_is_known ? 0.6 : 0.4) * model.b;
        const double max_gradient = (near_is_known ? 1.7 : 2.5) * model.b;
        // Wider, pavements beside the way would turn the plane.
        const double wide = iteration < 3 ? 1.05 : 0.7;
        for (std::size_t i = 0; i < samples_.size(); i += stride) {
            const Sample& sample = samples_[i];
            const double s = model.planeAt(sample.u, sample.v);
            if (s < kMinPlaneDisparity || sample.gradient < min_gradient ||
                sample.gradient > max_gradient)
                continue;
            const double t = (sample.d - s) / (wide * groundTolerance(static_cast<float>(s)));
            if (std::fabs(t) >= 1)
                continue;
            const double tukey = (1 - t * t) * (1 - t * t);
            add({(sample.u - geometry.cx) / geometry.fx, (sample.v - geometry.cy) / geometry.fy, 1},
                sample.d,
                (near_is_known && shadowed_[sample.cell] ? kShadowedWorth : 1) * stand_for * tukey *
                    sample.weight);
        }
        const double scale = model.b * geometry.fy;
        const auto angle = [&](const std::array<double, 3>& down, double sigma, bool pitch) {
            const double weight = 1 / (sigma * sigma * scale * scale);
            add({1, -down[0] / down[1], 0}, 0, weight);
            if (pitch)
                add({0, -down[2] / down[1], 1}, 0, weight);
        };
        angle(prior.down, prior.has_gravity ? kGravitySigma : kRollSigma, prior.has_gravity);
        if (prior.has_track) {
            angle(prior.track.down, kTrackAngleSigma, true);
            const double track_scale = prior.track.b * geometry.fy;
            const double sigma = kTrackHeightSigma * track_scale;
            add({0, 1, 0}, track_scale, 1 / (sigma * sigma));
        }
        if (std::fabs(matrix.determinant()) < 1e-9)
            return;
        const Eigen::Vector3d x = matrix.ldlt().solve(side);
        GroundModel next;
        const double a = x[0] / geometry.fx;
        const double b = x[1] / geometry.fy;
        if (!GroundModel::fromCoefficients(a, b, x[2] - a * geometry.cx - b * geometry.cy, geometry,
                                           next))
            return;
        model = next;
    }
}

void GroundFitter::judge(const CellGrid& grid, float min_support, GroundFit& fit) const {
    const GroundModel& model = fit.model;
    float inliers = 0;
    float below = 0;
    float near_weight = 0, near_squares = 0;
    int cells = 0;
    float low_u = 1e9f, high_u = -1, low_v = 1e9f, high_v = -1;
    GroundModel surface = model;
    float column = -1;
    for (const Sample& sample : samples_) {
        const float s = static_cast<float>(model.planeAt(sample.u, sample.v));
        if (s < kMinPlaneDisparity)
            continue;
        if (!model.flat && sample.u != column) {
            column = sample.u;
            surface = model.inColumn(column);
        }
        const float tolerance = 1.5f * groundTolerance(s);
        const float r = sample.d - surface.groundOf(s);
        if (const float t = 1.5f * r / tolerance; std::fabs(t) < 2) {
            near_weight += sample.weight;
            near_squares += sample.weight * t * t;
        }
        if (std::fabs(r) <= tolerance && sample.gradient > 0.3f * static_cast<float>(model.b)) {
            inliers += sample.weight;
            ++cells;
            low_u = std::min(low_u, sample.u);
            high_u = std::max(high_u, sample.u);
            low_v = std::min(low_v, sample.v);
            high_v = std::max(high_v, sample.v);
        } else if (r < -2 * tolerance) {
            below += sample.weight;
        }
    }
    fit.support = inliers > 0 ? inliers / (inliers + below) : 0;
    fit.area = static_cast<float>(cells) / static_cast<float>(grid.columns() * grid.bins());
    const bool wide =
        high_u - low_u > 0.12f * static_cast<float>(grid.columnEnd(grid.columns() - 1));
    const bool high = high_v - low_v > static_cast<float>(std::max(16, 5 * grid.binPx()));
    fit.spread = near_weight > 0 ? std::sqrt(near_squares / near_weight) : 2;
    fit.found = fit.support >= min_support && fit.area >= kMinArea && wide && high &&
                fit.spread <= kMaxSpread;
}

GroundFit GroundFitter::fit(const CellGrid& grid, const RectifiedGeometry& geometry,
                            const GroundPrior& prior, float min_support) {
    GroundFit result;
    collect(grid);
    float best = 0;
    result.model = search(geometry, prior, best);
    if (best <= 0)
        return result;
    refine(grid, geometry, prior, result.model);
    if (!plausible(result.model, prior))
        return result;
    fitGroundProfile(grid, geometry, prior.has_track ? &prior.track : nullptr, result.model);
    judge(grid, min_support, result);
    return result;
}

}  // namespace kova::camera
