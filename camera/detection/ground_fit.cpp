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
constexpr std::size_t kKept = 24;  // hypotheses that are scored on all cells of kMaxScored
constexpr std::size_t kMaxScored = 1500;
constexpr std::size_t kRounds = 5;
constexpr std::size_t kMinGroundLike = 30;
constexpr float kMinConfidence = 0.3f;  // of a cell that a plane is drawn through
constexpr float kMinArea = 0.02f;
constexpr int kIterations = 6;
constexpr float kInlier = 1.5f;  // tolerances
constexpr float kMaxSpread = 0.97f;
constexpr double kCellSigma = 0.35;  // [px] of one independent measurement

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

/// How well a plane agrees with what is known before, 0.2 to 1.
float agreement(const GroundModel& model, const GroundPrior& prior) {
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
    return static_cast<float>(1 - std::min(0.8, 0.1 * disagreement));
}

}  // namespace

/// A part of the measured cells, in rounds over the whole picture, so that the first one is fair.
void GroundFitter::chooseScored(const CellGrid& grid) {
    scored_.ground_like.clear();
    scored_.ground_like.reserve(2 * kMaxScored);
    std::size_t all = 0;
    for (int column = 0; column < cells_.columns(); ++column) all += cells_.measuredCount(column);
    const std::size_t step = std::max<std::size_t>(1, all / kMaxScored);
    const std::size_t count = (all + step - 1) / step;
    constexpr std::size_t kGroup = kGroundGroup;
    const std::size_t per_round = ((count + kRounds - 1) / kRounds + kGroup - 1) / kGroup * kGroup;
    scored_.first = per_round;
    for (std::vector<float>* list :
         {&scored_.u, &scored_.v, &scored_.d, &scored_.gradient, &scored_.weight}) {
        list->reserve(2 * kMaxScored + kRounds * kGroup);
        list->assign(kRounds * per_round, 0);
    }
    std::size_t number = 0, next = 0;  // next: of the measured cells from this column on
    for (int column = 0; column < cells_.columns(); ++column) {
        const auto measured = static_cast<std::size_t>(cells_.measuredCount(column));
        for (; next < measured; next += step, ++number) {
            const int bin = cells_.measured(column)[next];
            const std::size_t at = number % kRounds * per_round + number / kRounds;
            scored_.u[at] = cells_.u(column);
            scored_.v[at] = cells_.v()[bin];
            scored_.d[at] = cells_.disparity(column)[bin];
            scored_.gradient[at] = cells_.gradient(column)[bin];
            scored_.weight[at] = cells_.weight(column)[bin];
            if (scored_.gradient[at] > 0.015f &&
                grid.confidence[grid.index(column, bin)] > kMinConfidence)
                scored_.ground_like.push_back(static_cast<std::uint32_t>(at));
        }
        next -= measured;
    }
}

float GroundFitter::score(const GroundModel& model, std::size_t begin, std::size_t end) const {
    GroundTrial trial;
    trial.a = static_cast<float>(model.a);
    trial.b = static_cast<float>(model.b);
    trial.c = static_cast<float>(model.c);
    trial.min_gradient = 0.4f * trial.b;
    trial.max_gradient = 2.5f * trial.b;
    return groundScore(
        trial, scored_.u.data() + begin,
        {scored_.v.data() + begin, scored_.d.data() + begin, scored_.gradient.data() + begin,
         scored_.weight.data() + begin, static_cast<int>(end - begin)});
}

/// Draws planes through two cells and with a drawn roll, or through three.
void GroundFitter::draw(const RectifiedGeometry& geometry, const GroundPrior& prior) {
    const std::vector<std::uint32_t>& candidates = scored_.ground_like;
    if (candidates.size() < kMinGroundLike)
        return;
    std::mt19937 random(20240229);
    struct Point {
        double u, v, d;
    };
    const auto point = [&]() -> Point {
        const std::uint32_t i = candidates[random() % candidates.size()];
        return {scored_.u[i], scored_.v[i], scored_.d[i]};
    };
    const double prior_roll = std::atan2(prior.down[0], prior.down[1]);
    const double roll_sigma = prior.has_gravity ? kGravitySigma : kRollSigma;
    for (int i = 0; i < kHypotheses; ++i) {
        const Point p = point();
        const Point q = point();
        Trial trial;
        bool ok = false;
        if (i % 3 != 0) {
            // The sum of three uniform numbers is nearly normal.
            double z = 0;
            for (int k = 0; k < 3; ++k) z += static_cast<double>(random() % 2001) / 1000 - 1;
            const double lean = std::tan(prior_roll + z * roll_sigma) * geometry.fy / geometry.fx;
            const double qp = p.v + lean * p.u;
            const double qq = q.v + lean * q.u;
            if (std::fabs(qp - qq) < 4)
                continue;
            const double b = (p.d - q.d) / (qp - qq);
            ok = GroundModel::fromCoefficients(lean * b, b, p.d - b * qp, geometry, trial.model);
        } else {
            const Point r = point();
            const double ux = q.u - p.u, vx = q.v - p.v, dx = q.d - p.d;
            const double uy = r.u - p.u, vy = r.v - p.v, dy = r.d - p.d;
            const double det = ux * vy - uy * vx;
            if (std::fabs(det) < 100)
                continue;
            const double a = (dx * vy - dy * vx) / det;
            const double b = (ux * dy - uy * dx) / det;
            ok =
                GroundModel::fromCoefficients(a, b, p.d - a * p.u - b * p.v, geometry, trial.model);
        }
        if (ok && plausible(trial.model, prior))
            trials_.push_back(trial);
    }
}

/// The plane that explains most; all are scored on a part of the cells, the best ones on more
/// (preemptive: Nister, 2003).
bool GroundFitter::search(const RectifiedGeometry& geometry, const GroundPrior& prior,
                          GroundModel& best) {
    trials_.clear();
    trials_.reserve(kHypotheses + 1);
    if (prior.has_track && plausible(prior.track, prior)) {
        Trial& track = trials_.emplace_back();
        track.model = prior.track;
        track.model.flat = true;
    }
    draw(geometry, prior);
    for (Trial& trial : trials_) {
        trial.agreement = agreement(trial.model, prior);
        trial.score = trial.agreement * score(trial.model, 0, scored_.first);
    }
    const std::size_t kept = std::min(trials_.size(), kKept);
    // Of equal ones the first drawn; equal planes are the same.
    std::partial_sort(trials_.begin(), trials_.begin() + static_cast<std::ptrdiff_t>(kept),
                      trials_.end(),
                      [](const Trial& p, const Trial& q) { return p.score > q.score; });
    float most = 0;
    for (std::size_t i = 0; i < kept; ++i) {
        Trial& trial = trials_[i];
        trial.score += trial.agreement * score(trial.model, scored_.first, scored_.u.size());
        if (trial.score > most) {
            most = trial.score;
            best = trial.model;
        }
    }
    return most > 0;
}

/// d = A x + B y + C in normalised picture coordinates: (A, B, C) is the plane's normal, scaled, so
/// that the priors are linear. Solved for what is to be added to the plane of before.
void GroundFitter::refine(const CellGrid& grid, const RectifiedGeometry& geometry,
                          const GroundPrior& prior, GroundModel& model) {
    for (int iteration = 0; iteration < kIterations; ++iteration) {
        const bool near_is_known = iteration >= kIterations / 2;
        if (iteration == kIterations / 2)
            cells_.findShadowed(grid, model);
        GroundLine line;
        line.b = static_cast<float>(model.b);
        // Wider, pavements beside the way would turn the plane.
        line.wide = near_is_known ? 0.7f : 1.05f;
        line.min_gradient = (near_is_known ? 0.6f : 0.4f) * line.b;
        line.max_gradient = (near_is_known ? 1.7f : 2.5f) * line.b;
        line.cy = static_cast<float>(geometry.cy);
        line.over_fy = static_cast<float>(1 / geometry.fy);
        Eigen::Matrix3d matrix = Eigen::Matrix3d::Zero();
        Eigen::Vector3d side = Eigen::Vector3d::Zero();
        for (int column = 0; column < cells_.columns(); ++column) {
            line.above = static_cast<float>(model.a * cells_.u(column) + model.c);
            const GroundSums sums =
                groundSums(line, cells_.below(cells_.firstBin(column, model, kMinPlaneDisparity),
                                              column, near_is_known));
            const double x = (cells_.u(column) - geometry.cx) / geometry.fx;
            matrix(0, 0) += sums.w * x * x;
            matrix(0, 1) += sums.wy * x;
            matrix(0, 2) += sums.w * x;
            matrix(1, 1) += sums.wyy;
            matrix(1, 2) += sums.wy;
            matrix(2, 2) += sums.w;
            side += Eigen::Vector3d(x * sums.wr, sums.wyr, sums.wr);
        }
        matrix =
            Eigen::Matrix3d(matrix.selfadjointView<Eigen::Upper>()) / (kCellSigma * kCellSigma);
        side /= kCellSigma * kCellSigma;
        const Eigen::Vector3d before(model.a * geometry.fx, model.b * geometry.fy,
                                     model.planeAt(geometry.cx, geometry.cy));
        const auto add = [&](const Eigen::Vector3d& row, double value, double weight) {
            matrix += weight * row * row.transpose();
            side += weight * (value - row.dot(before)) * row;
        };
        const double scale = before[1];
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
        const Eigen::Vector3d x = before + matrix.ldlt().solve(side);
        GroundModel next;
        const double a = x[0] / geometry.fx;
        const double c = x[1] / geometry.fy;
        if (!GroundModel::fromCoefficients(a, c, x[2] - a * geometry.cx - c * geometry.cy, geometry,
                                           next))
            return;
        model = next;
    }
}

void GroundFitter::judgeColumn(const GroundModel& model, int column, Evidence& evidence) const {
    const GroundModel surface = model.flat ? model : model.inColumn(cells_.u(column));
    const auto b = static_cast<float>(model.b);
    const auto above = static_cast<float>(model.a * cells_.u(column) + model.c);
    const float* v = cells_.v();
    const float* d = cells_.disparity(column);
    const float* gradient = cells_.gradient(column);
    const float* weight = cells_.weight(column);
    evidence = {};
    for (int bin = cells_.firstBin(column, model, kMinPlaneDisparity); bin < cells_.bins(); ++bin) {
        const float s = above + b * v[bin];
        if (weight[bin] <= 0 || s < kMinPlaneDisparity)
            continue;
        const float tolerance = groundTolerance(s);
        const float t = (d[bin] - surface.groundOf(s)) / tolerance;
        if (std::fabs(t) < 2) {
            evidence.near_weight += weight[bin];
            evidence.near_squares += weight[bin] * t * t;
        }
        if (std::fabs(t) <= kInlier && gradient[bin] > 0.3f * b) {
            evidence.inliers += weight[bin];
            if (evidence.cells++ == 0)
                evidence.top = bin;
            evidence.bottom = bin;
        } else if (t < -2 * kInlier) {
            evidence.below += weight[bin];
        }
    }
}

void GroundFitter::judge(const CellGrid& grid, float min_support, GroundFit& fit) {
    evidence_.resize(cells_.columns());
    parallelFor(cells_.columns(),
                [&](int column) { judgeColumn(fit.model, column, evidence_[column]); });
    Evidence all;
    int left = cells_.columns(), right = -1;
    all.top = cells_.bins();
    for (int column = 0; column < cells_.columns(); ++column) {
        const Evidence& one = evidence_[column];
        all.near_weight += one.near_weight;
        all.near_squares += one.near_squares;
        all.inliers += one.inliers;
        all.below += one.below;
        if (one.cells == 0)
            continue;
        all.cells += one.cells;
        left = std::min(left, column);
        right = column;
        all.top = std::min(all.top, one.top);
        all.bottom = std::max(all.bottom, one.bottom);
    }
    fit.support = all.inliers > 0 ? all.inliers / (all.inliers + all.below) : 0;
    fit.area = static_cast<float>(all.cells) / static_cast<float>(grid.columns() * grid.bins());
    const auto width = static_cast<float>(grid.columnEnd(grid.columns() - 1));
    const bool wide = right > left && cells_.u(right) - cells_.u(left) > 0.12f * width;
    const bool high = (all.bottom - all.top) * grid.binPx() > std::max(16, 5 * grid.binPx());
    fit.spread = all.near_weight > 0 ? std::sqrt(all.near_squares / all.near_weight) : 2;
    fit.found = fit.support >= min_support && fit.area >= kMinArea && wide && high &&
                fit.spread <= kMaxSpread;
}

GroundFit GroundFitter::fitCells(const CellGrid& grid, const CellGrid& finer,
                                 const RectifiedGeometry& geometry, const GroundPrior& prior,
                                 float min_support) {
    GroundFit result;
    if (!search(geometry, prior, result.model))
        return result;
    refine(grid, geometry, prior, result.model);
    if (!plausible(result.model, prior))
        return result;
    fitGroundProfile(finer, geometry, prior.has_track ? &prior.track : nullptr,
                     &finer == &grid ? cells_ : finer_cells_, result.model);
    judge(grid, min_support, result);
    return result;
}

GroundFit GroundFitter::fit(const CellGrid& grid, const CellGrid& finer,
                            const RectifiedGeometry& geometry, const GroundPrior& prior,
                            float min_support) {
    cells_.collect(grid);
    if (&finer != &grid)
        finer_cells_.collect(finer);
    chooseScored(grid);
    GroundFit result = fitCells(grid, finer, geometry, prior, min_support);
    if (!result.found && prior.has_track) {
        // The track may be what is wrong.
        GroundPrior alone = prior;
        alone.has_track = false;
        result = fitCells(grid, finer, geometry, alone, min_support);
    }
    return result;
}

}  // namespace kova::camera
