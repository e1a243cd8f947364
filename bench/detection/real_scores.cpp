#include "bench/detection/real_scores.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace kova::bench {

namespace {

using camera::Stixel;

constexpr double kCorridorMm = 900;
constexpr float kOverTheVehicleMm = 2000;
constexpr int kFollowedFrames = 5;

float toleranceAt(float disparity) {
    return std::max(1.0f, 0.05f * disparity);
}

float scaleOf(const RealFrame& frame) {
    return static_cast<float>(frame.geometry.fx * frame.geometry.baseline_mm);
}

bool atDistanceOf(const Stixel& s, const RealObject& object, float scale) {
    const float nearest = scale / static_cast<float>(1000 * object.near_m);
    const float farthest = scale / static_cast<float>(1000 * object.far_m);
    if (s.too_near)
        return nearest >= s.disparity - 1;
    return s.disparity <= nearest + toleranceAt(nearest) &&
           s.disparity >= farthest - toleranceAt(farthest);
}

bool sharesRows(const Stixel& s, const RealObject& object, int margin) {
    return s.y_top < object.y1 + margin && s.y_bottom > object.y0 - margin;
}

bool isFound(const RealObject& object, const RealFrame& frame) {
    const int end = std::min(object.x1, frame.geometry.width);
    int hit = 0;
    for (int x = object.x0; x < end; ++x)
        hit += std::any_of(frame.stixels.begin(), frame.stixels.end(), [&](const Stixel& s) {
            return x >= s.x_begin && x < s.x_end && sharesRows(s, object, 0) &&
                   atDistanceOf(s, object, scaleOf(frame));
        });
    return 2 * hit >= end - object.x0;
}

bool explains(const RealObject& object, const Stixel& s, const RealFrame& frame) {
    const int margin = frame.column_px;
    return s.x_begin < object.x1 + margin && s.x_end > object.x0 - margin &&
           sharesRows(s, object, margin) && atDistanceOf(s, object, scaleOf(frame));
}

/// Stixels come by column; those that touch one of the run's at about its distance join it.
std::vector<StixelRun> runsOf(const std::vector<Stixel>& stixels, int frame) {
    std::vector<StixelRun> runs;
    std::vector<Stixel> last;  // of each run
    for (const Stixel& s : stixels) {
        std::size_t i = 0;
        while (i < runs.size() &&
               !(last[i].x_end == s.x_begin &&
                 std::abs(last[i].disparity - s.disparity) <= toleranceAt(s.disparity)))
            ++i;
        if (i == runs.size()) {
            runs.push_back({frame, s.x_begin, s.x_end, s.y_top, s.y_bottom, s.distance_mm,
                            s.high_mm, s.confidence});
            last.push_back(s);
            continue;
        }
        StixelRun& run = runs[i];
        run.x_end = s.x_end;
        run.y_top = std::min(run.y_top, s.y_top);
        run.y_bottom = std::max(run.y_bottom, s.y_bottom);
        run.distance_mm = std::min(run.distance_mm, s.distance_mm);
        run.high_mm = std::max(run.high_mm, s.high_mm);
        run.confidence = std::max(run.confidence, s.confidence);
        last[i] = s;
    }
    return runs;
}

void append(std::vector<StixelRun> from, std::vector<StixelRun>& to) {
    to.insert(to.end(), from.begin(), from.end());
}

/// Distance [mm] of a place ahead from the way of the camera after frame `now`.
double fromWay(double x_mm, double z_mm, const std::vector<CameraPose>& poses, std::size_t now) {
    double nearest = std::numeric_limits<double>::infinity();
    double x0 = 0, z0 = 0;
    for (std::size_t k = now + 1; k < poses.size(); ++k) {
        const auto p = poses[now].cameraOf({poses[k].m[3], poses[k].m[7], poses[k].m[11]});
        const double x1 = 1000 * p[0], z1 = 1000 * p[2];
        const double length2 = (x1 - x0) * (x1 - x0) + (z1 - z0) * (z1 - z0);
        const double along =
            length2 > 0 ? ((x_mm - x0) * (x1 - x0) + (z_mm - z0) * (z1 - z0)) / length2 : 0;
        // Beyond its two ends the way is not known to be free.
        if (along >= 0 && along <= 1)
            nearest = std::min(
                nearest, std::hypot(x_mm - x0 - along * (x1 - x0), z_mm - z0 - along * (z1 - z0)));
        x0 = x1, z0 = z1;
    }
    return nearest;
}

enum class Again { kNotAsked, kYes, kNo };

/// Looks for a stixel of frame `from` at its place in frame `to`.
Again foundAgain(const Stixel& s, const RealFrame& from, const CameraPose& from_pose,
                 const RealFrame& to, const CameraPose& to_pose) {
    const camera::RectifiedGeometry& g = from.geometry;
    const double z = s.distance_mm / 1000;
    const double u = 0.5 * (s.x_begin + s.x_end), v = 0.5 * (s.y_top + s.y_bottom);
    const auto p =
        to_pose.cameraOf(from_pose.worldOf({(u - g.cx) / g.fx * z, (v - g.cy) / g.fy * z, z}));
    if (p[2] <= 0)
        return Again::kNotAsked;
    const float disparity = scaleOf(to) / static_cast<float>(1000 * p[2]);
    const double x = g.fx * p[0] / p[2] + g.cx, y = g.fy * p[1] / p[2] + g.cy;
    // Near the left edge the right eye does not see it, near the search's end it is "too near".
    if (disparity > 120 || x < disparity + to.column_px || x > g.width - 1 - to.column_px ||
        y < to.column_px || y > g.height - 1 - to.column_px)
        return Again::kNotAsked;
    bool hidden = false;
    for (const Stixel& other : to.stixels) {
        if (other.x_end + to.column_px <= x || other.x_begin - to.column_px > x)
            continue;
        if (std::abs(other.disparity - disparity) <= toleranceAt(disparity))
            return Again::kYes;
        hidden |= other.disparity > disparity + toleranceAt(disparity);
    }
    return hidden ? Again::kNotAsked : Again::kNo;
}

}  // namespace

RealObjectScores scoreRealObjects(const std::vector<RealFrame>& frames,
                                  const std::vector<RealObject>& objects) {
    RealObjectScores scores;
    std::set<int> annotated;
    for (const RealObject& object : objects) {
        if (object.frame < 0 || object.frame >= static_cast<int>(frames.size()))
            continue;
        annotated.insert(object.frame);
        if (!object.must)
            continue;
        const bool found = isFound(object, frames[static_cast<std::size_t>(object.frame)]);
        scores.found.all += 1;
        scores.found.hits += found;
        if (!found)
            scores.missed.push_back(object);
    }
    for (const int index : annotated) {
        const RealFrame& frame = frames[static_cast<std::size_t>(index)];
        std::vector<Stixel> unexplained;
        for (const Stixel& s : frame.stixels)
            if (s.distance_mm <= kRealRangeMm &&
                std::none_of(objects.begin(), objects.end(), [&](const RealObject& object) {
                    return object.frame == index && explains(object, s, frame);
                }))
                unexplained.push_back(s);
        append(runsOf(unexplained, index), scores.false_alarms);
    }
    scores.frames = static_cast<int>(annotated.size());
    return scores;
}

CorridorScores scoreCorridor(const std::vector<RealFrame>& frames,
                             const std::vector<CameraPose>& poses) {
    CorridorScores scores;
    scores.lowest_height_mm = std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i + 1 < std::min(frames.size(), poses.size()); ++i) {
        const RealFrame& frame = frames[i];
        ++scores.frames;
        scores.ground_found.all += 1;
        scores.ground_found.hits += frame.ground.state == camera::GroundState::kFound;
        scores.lowest_height_mm = std::min(scores.lowest_height_mm, frame.ground.height_mm);
        scores.highest_height_mm = std::max(scores.highest_height_mm, frame.ground.height_mm);
        std::vector<Stixel> inside;
        for (const Stixel& s : frame.stixels)
            if (s.ahead_mm <= kRealRangeMm && !(s.low_mm > kOverTheVehicleMm) &&
                fromWay(s.lateral_mm, s.ahead_mm, poses, i) <= kCorridorMm)
                inside.push_back(s);
        append(runsOf(inside, static_cast<int>(i)), scores.reported);
    }
    return scores;
}

PersistenceScores scorePersistence(const std::vector<RealFrame>& frames,
                                   const std::vector<CameraPose>& poses) {
    PersistenceScores scores;
    const std::size_t count = std::min(frames.size(), poses.size());
    for (std::size_t i = 0; i < count; ++i) {
        for (const camera::Obstacle& obstacle : frames[i].obstacles) {
            if (obstacle.distance_mm > kRealRangeMm)
                continue;
            std::vector<Stixel> parts;
            for (const Stixel& s : frames[i].stixels)
                if (s.obstacle_id == obstacle.id && !s.too_near && s.distance_mm <= kRealRangeMm)
                    parts.push_back(s);
            Rate again;
            for (std::size_t k = i + 1; k < std::min(count, i + 1 + kFollowedFrames); ++k) {
                int yes = 0, asked = 0;
                for (const Stixel& s : parts) {
                    const Again answer = foundAgain(s, frames[i], poses[i], frames[k], poses[k]);
                    yes += answer == Again::kYes;
                    asked += answer != Again::kNotAsked;
                }
                again.all += asked > 0;
                again.hits += asked > 0 && 2 * yes >= asked;
            }
            if (again.all == 0)
                continue;
            scores.found_again.all += again.all;
            scores.found_again.hits += again.hits;
            scores.steady.all += 1;
            const bool steady = again.hits >= 0.8 * again.all;
            scores.steady.hits += steady;
            if (!steady)
                scores.unsteady.push_back({static_cast<int>(i), obstacle.x_begin, obstacle.x_end,
                                           obstacle.y_top, obstacle.y_bottom, obstacle.distance_mm,
                                           obstacle.high_mm, obstacle.confidence});
        }
    }
    return scores;
}

}  // namespace kova::bench
