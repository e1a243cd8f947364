#include "bench/detection/scoring.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

#include "camera/pipeline/distance_range.h"

namespace kova::bench {

namespace {

using camera::RectifiedGeometry;
using camera::SurfaceLabel;

/// Half a pixel is the rounding of a search whose last disparity it is.
constexpr float kEndSlack = 1.0f;

float toleranceAt(float disparity) {
    return std::max(1.0f, 0.05f * disparity);
}

bool isObstacle(std::uint8_t label) {
    return label == static_cast<std::uint8_t>(SurfaceLabel::kObstacle) ||
           label == static_cast<std::uint8_t>(SurfaceLabel::kOverhead);
}

/// A step that is too high to drive over may be reported or not.
bool mayBeObstacle(std::uint8_t label) {
    return isObstacle(label) || label == static_cast<std::uint8_t>(SurfaceLabel::kRaised);
}

bool isGround(std::uint8_t label) {
    return label == static_cast<std::uint8_t>(SurfaceLabel::kGround);
}

void scoreObjects(const Findings& findings, const SceneTruth& truth,
                  const RectifiedGeometry& geometry, int max_disparity, Scores& scores) {
    const double scale = geometry.fx * geometry.baseline_mm;
    const double near_range = geometry.width >= 1000 ? 6000 : 3000;
    for (const VisibleObject& object : truth.objects) {
        if (object.distance_mm > judgedRangeMm(geometry) ||
            scale / object.distance_mm >= max_disparity)
            continue;
        const double found = isFound(object, findings);
        const auto count = [&](Rate& rate) {
            rate.hits += found;
            rate.all += 1;
        };
        if (object.overhead) {
            count(scores.overhead);
            continue;
        }
        count(scores.all);
        const auto place =
            std::upper_bound(kContrastClasses.begin(), kContrastClasses.end(), object.contrast_px);
        count(scores.curve[static_cast<std::size_t>(place - kContrastClasses.begin())]);
        const bool judged = isJudged(object, geometry, max_disparity);
        if (judged)
            count(scores.low);
        if (judged && object.height_mm >= 499)
            count(scores.high);
        if (object.height_mm >= 199 && object.distance_mm <= near_range)
            count(scores.near);
    }
}

/// Disparities of true obstacles per column of the picture, in steps of 1/4 px.
class ObstacleSets {
public:
    ObstacleSets(const SceneTruth& truth, int max_disparity, bool raised_counts)
        : width_(truth.disparity.width()), steps_(kSteps * (max_disparity + 2)) {
        set_.assign(static_cast<std::size_t>(width_) * steps_, 0);
        for (int y = 0; y < truth.disparity.height(); ++y)
            for (int x = 0; x < width_; ++x)
                if (raised_counts ? mayBeObstacle(truth.label.at(x, y))
                                  : isObstacle(truth.label.at(x, y)))
                    set_[index(x, stepOf(truth.disparity.at(x, y)))] = 1;
    }
    bool any(int x_begin, int x_end, float low, float high) const {
        for (int x = std::max(0, x_begin); x < std::min(width_, x_end); ++x)
            for (int s = stepOf(low); s <= stepOf(high); ++s)
                if (set_[index(x, s)])
                    return true;
        return false;
    }

private:
    static constexpr int kSteps = 4;
    int stepOf(float d) const {
        return std::clamp(static_cast<int>(std::lround(d * kSteps)), 0, steps_ - 1);
    }
    std::size_t index(int x, int step) const { return static_cast<std::size_t>(x) * steps_ + step; }
    int width_, steps_;
    std::vector<std::uint8_t> set_;
};

/// A run of neighbouring false columns at about the same distance counts once.
int falseRuns(const std::vector<FoundColumn>& wrong) {
    int runs = 0;
    for (const FoundColumn& f : wrong)
        runs += std::none_of(wrong.begin(), wrong.end(), [&](const FoundColumn& other) {
            return other.x_end == f.x_begin &&
                   std::abs(other.disparity - f.disparity) <= toleranceAt(f.disparity);
        });
    return runs;
}

void scoreMap(const Findings& findings, const SceneTruth& truth, const RectifiedGeometry& geometry,
              Scores& scores) {
    const auto far_limit =
        static_cast<float>(geometry.fx * geometry.baseline_mm / judgedRangeMm(geometry));
    for (int y = 0; y < truth.label.height(); ++y)
        for (int x = 0; x < truth.label.width(); ++x) {
            const std::uint8_t label = truth.label.at(x, y), said = findings.ground_map.at(x, y);
            // A raised surface may be called either; neither is held against the detector.
            if (label == static_cast<std::uint8_t>(SurfaceLabel::kRaised))
                continue;
            const bool ground = isGround(label), obstacle = isObstacle(label);
            if (said != 127) {
                scores.map_right.all += 1;
                scores.map_right.hits += said == 255 ? ground : obstacle;
            }
            if ((ground || obstacle) && truth.textured.at(x, y) && truth.in_right.at(x, y) &&
                truth.disparity.at(x, y) >= far_limit) {
                scores.map_labelled.all += 1;
                scores.map_labelled.hits += said != 127;
            }
            if (obstacle) {
                scores.obstacle_as_ground.all += 1;
                scores.obstacle_as_ground.hits += said == 255;
            }
        }
}

/// Least squares y = p x + q z + r, every place on the ground with about the same weight.
struct PlaneSum {
    cv::Matx33d normal = cv::Matx33d::zeros();
    cv::Vec3d right{0, 0, 0};
    void add(double u, double v, double z, double weight) {
        const cv::Vec3d row(u * z, z, 1);
        normal += weight * (row * row.t());
        right += weight * v * z * row;
    }
    bool solve(cv::Vec3d& plane) const {
        return cv::solve(normal, right, plane, cv::DECOMP_CHOLESKY);
    }
};

void scorePlane(const Findings& findings, const SceneTruth& truth, const RectifiedGeometry& g,
                Scores& scores) {
    int ground = 0;
    for (int y = 0; y < g.height; y += 3)
        for (int x = 0; x < g.width; x += 3) ground += isGround(truth.label.at(x, y));
    if (ground >= 0.2 * ((g.width / 3) * (g.height / 3))) {
        scores.no_ground.all += 1;
        scores.no_ground.hits += !findings.has_ground;
    }
    const PlaneErrors errors = planeErrors(findings, truth, g);
    if (!errors.judged)
        return;
    scores.pitch_deg.push_back(std::abs(errors.pitch_deg));
    scores.roll_deg.push_back(std::abs(errors.roll_deg));
    scores.height_percent.push_back(std::abs(errors.height_percent));
    scores.plane_far_off.all += 1;
    scores.plane_far_off.hits += errors.farOff();
}

void scoreTooNear(const Findings& findings, const SceneTruth& truth, int max_disparity,
                  Scores& scores) {
    using camera::ColumnState;
    bool any = false, free = false;
    for (int x = 0; x < truth.disparity.width(); ++x) {
        bool too_near = false;
        for (int y = 0; y < truth.disparity.height(); ++y)
            too_near |= isObstacle(truth.label.at(x, y)) &&
                        truth.disparity.at(x, y) >= static_cast<float>(max_disparity);
        if (!too_near)
            continue;
        any = true;
        free |= findings.states[x] == ColumnState::kFree;
        const auto count = [&](Rate& rate, ColumnState state) {
            rate.all += 1;
            rate.hits += findings.states[x] == state;
        };
        count(scores.free_at_too_near, ColumnState::kFree);
        count(scores.too_near_unknown, ColumnState::kUnknown);
        count(scores.too_near_occupied, ColumnState::kOccupied);
        count(scores.too_near_named, ColumnState::kTooNear);
    }
    scores.free_frames.all += any;
    scores.free_frames.hits += free;
}

void append(const std::vector<double>& from, std::vector<double>& to) {
    to.insert(to.end(), from.begin(), from.end());
}

/// Wilson's 95 % interval [%] of a share p of n.
std::array<double, 2> wilson(double p, double n) {
    if (n <= 0)
        return {0, 100};
    constexpr double z = 1.96;
    const double spread = 1 + z * z / n;
    const double middle = (p + z * z / (2 * n)) / spread;
    const double half = z * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n)) / spread;
    return {100 * std::max(0.0, middle - half), 100 * std::min(1.0, middle + half)};
}

constexpr Rate Scores::*kRates[] = {&Scores::all,
                                    &Scores::low,
                                    &Scores::high,
                                    &Scores::near,
                                    &Scores::overhead,
                                    &Scores::map_right,
                                    &Scores::map_labelled,
                                    &Scores::obstacle_as_ground,
                                    &Scores::plane_far_off,
                                    &Scores::no_ground,
                                    &Scores::free_at_too_near,
                                    &Scores::free_frames,
                                    &Scores::too_near_unknown,
                                    &Scores::too_near_occupied,
                                    &Scores::too_near_named};

}  // namespace

bool matches(const FoundColumn& found, float nearest, float farthest) {
    if (found.too_near)
        return nearest >= found.disparity - kEndSlack;
    return found.disparity <= nearest + toleranceAt(nearest) &&
           found.disparity >= farthest - toleranceAt(farthest);
}

bool isFound(const VisibleObject& object, const Findings& findings) {
    std::size_t hit = 0;
    for (const ObjectColumn& column : object.columns)
        hit += std::any_of(findings.obstacles.begin(), findings.obstacles.end(),
                           [&](const FoundColumn& f) {
                               return column.x >= f.x_begin && column.x < f.x_end &&
                                      matches(f, column.nearest, column.farthest);
                           });
    return 2 * hit >= object.columns.size();
}

bool PlaneErrors::farOff() const {
    return judged && (std::abs(pitch_deg) > 0.5 || std::abs(roll_deg) > 0.5);
}

PlaneErrors planeErrors(const Findings& findings, const SceneTruth& truth,
                        const RectifiedGeometry& g) {
    PlaneErrors errors;
    if (!findings.has_ground)
        return errors;
    const double scale = g.fx * g.baseline_mm;
    PlaneSum is, said;
    int points = 0;
    for (int y = 0; y < g.height; y += 3)
        for (int x = 0; x < g.width; x += 3) {
            if (!isGround(truth.label.at(x, y)))
                continue;
            const double z = scale / truth.disparity.at(x, y);
            if (z < 2000 || z > 8000)
                continue;
            const float d = findings.ground.inColumn(x).groundOf(
                static_cast<float>(findings.ground.planeAt(x, y)));
            if (d <= 0.5f)
                continue;
            const double u = (x - g.cx) / g.fx, v = (y - g.cy) / g.fy;
            // What a pixel shows of the ground grows with the cube of the distance.
            const double weight = z * z * z * 1e-9;
            is.add(u, v, z, weight);
            said.add(u, v, scale / d, weight);
            ++points;
        }
    cv::Vec3d a, b;
    if (points < 0.05 * ((g.width / 3) * (g.height / 3)) || !is.solve(a) || !said.solve(b))
        return errors;
    const auto degrees = [](double slope) { return std::atan(slope) * 180 / CV_PI; };
    const auto heightOf = [](const cv::Vec3d& p) {
        return p[2] / std::sqrt(1 + p[0] * p[0] + p[1] * p[1]);
    };
    errors.judged = true;
    errors.pitch_deg = degrees(b[1]) - degrees(a[1]);
    errors.roll_deg = degrees(b[0]) - degrees(a[0]);
    errors.height_percent = 100 * (heightOf(b) / heightOf(a) - 1);
    return errors;
}

double judgedRangeMm(const RectifiedGeometry& geometry) {
    constexpr double kFarthestMm = 12000;
    return std::min<double>(kFarthestMm, camera::reachMm(geometry));
}

bool isJudged(const VisibleObject& object, const RectifiedGeometry& geometry, int max_disparity) {
    const double scale = geometry.fx * geometry.baseline_mm;
    return object.distance_mm <= judgedRangeMm(geometry) &&
           scale / object.distance_mm < max_disparity && !object.overhead &&
           object.height_mm >= 199 && object.contrast_px >= judgedContrast(geometry.width);
}

std::vector<FoundColumn> falseColumns(const Findings& findings, const SceneTruth& truth,
                                      int max_disparity, int column_px) {
    const std::vector<bool> wrong =
        areFalse(findings.obstacles, truth, max_disparity, column_px, true);
    std::vector<FoundColumn> list;
    for (std::size_t i = 0; i < wrong.size(); ++i)
        if (wrong[i])
            list.push_back(findings.obstacles[i]);
    return list;
}

std::vector<bool> areFalse(const std::vector<FoundColumn>& found, const SceneTruth& truth,
                           int max_disparity, int column_px, bool raised_counts) {
    const ObstacleSets obstacles(truth, max_disparity, raised_counts);
    std::vector<bool> wrong;
    for (const FoundColumn& f : found) {
        const float tolerance = toleranceAt(f.disparity);
        const float high = f.too_near ? 1e6f : f.disparity + tolerance;
        wrong.push_back(!obstacles.any(f.x_begin - column_px, f.x_end + column_px,
                                       f.disparity - tolerance, high));
    }
    return wrong;
}

std::array<double, 2> Rate::interval() const {
    return wilson(all > 0 ? hits / all : 0, all);
}

std::array<double, 2> Rate::intervalByDrive() const {
    if (all <= 0 || drives_ < 2)
        return interval();
    const double p = hits / all;
    // Variance of a ratio of sums over drives (Cochran, Sampling Techniques, 1977).
    const double scatter = hits_hits_ - 2 * p * hits_all_ + p * p * all_all_;
    const double variance = drives_ / (drives_ - 1) * scatter / (all * all);
    const double worth = variance > 1e-12 ? p * (1 - p) / variance : 0;
    return wilson(p, std::clamp(worth, std::min(drives_, all), all));
}

void Rate::closeDrive() {
    if (all <= 0)
        return;
    drives_ = 1;
    hits_hits_ = hits * hits;
    hits_all_ = hits * all;
    all_all_ = all * all;
}

void Rate::add(const Rate& other) {
    hits += other.hits;
    all += other.all;
    drives_ += other.drives_;
    hits_hits_ += other.hits_hits_;
    hits_all_ += other.hits_all_;
    all_all_ += other.all_all_;
}

void Scores::closeDrive() {
    for (const auto rate : kRates) (this->*rate).closeDrive();
    for (Rate& rate : curve) rate.closeDrive();
}

void Scores::add(const Scores& other) {
    frames += other.frames;
    false_positives += other.false_positives;
    for (const auto rate : kRates) (this->*rate).add(other.*rate);
    for (std::size_t i = 0; i < curve.size(); ++i) curve[i].add(other.curve[i]);
    for (const auto list : {&Scores::pitch_deg, &Scores::roll_deg, &Scores::height_percent})
        append(other.*list, this->*list);
}

void score(const Findings& findings, const SceneTruth& truth, const RectifiedGeometry& geometry,
           int max_disparity, int column_px, Scores& scores) {
    ++scores.frames;
    scoreObjects(findings, truth, geometry, max_disparity, scores);
    scores.false_positives += falseRuns(falseColumns(findings, truth, max_disparity, column_px));
    scoreMap(findings, truth, geometry, scores);
    scorePlane(findings, truth, geometry, scores);
    scoreTooNear(findings, truth, max_disparity, scores);
}

}  // namespace kova::bench
