#include "camera/detection/obstacle_tracker.h"

#include <algorithm>
#include <cmath>

namespace kova::camera {

namespace {

/// How far what was seen may have moved between two frames: columns, and inverse distance.
constexpr float kConfirmColumns = 3;
constexpr float kConfirmLog = 0.22f;
constexpr float kConfirmPx = 1.5f;
constexpr float kFollowLog = 0.3f;
constexpr int kMaxMissed = 3;
/// An obstacle needs this many columns, or stands on its own evidence.
constexpr float kJoinPx = 1.0f;
constexpr float kJoinPart = 0.05f;

bool sameDistance(float p, float q) {
    return std::fabs(p - q) <= std::max(kJoinPx, kJoinPart * std::max(p, q));
}

int root(std::vector<int>& parent, int i) {
    while (parent[i] != i) {
        parent[i] = parent[parent[i]];
        i = parent[i];
    }
    return i;
}

}  // namespace

void ObstacleTracker::reset() {
    frames_ = 0;
    tracks_.clear();
    next_id_ = 1;
    for (auto& list : history_) list.clear();
}

void ObstacleTracker::confirm(const RectifiedGeometry& geometry, const Rotation* rotation,
                              DetectionFrame& frame) {
    // Where a direction at infinity moved to; exact for turns about the vertical, close for small
    // ones.
    const float shift = rotation ? static_cast<float>(geometry.fx * (*rotation)[2]) : 0;
    for (auto& list : history_)
        for (Seen& seen : list) seen.u += shift;
    const float reach = kConfirmColumns * static_cast<float>(frame.column_px);
    for (Stixel& stixel : frame.stixels) {
        const float u = 0.5f * static_cast<float>(stixel.x_begin + stixel.x_end);
        const auto matches = [&](const Seen& seen) {
            return std::fabs(seen.u - u) <= reach &&
                   (std::fabs(std::log(seen.disparity / stixel.disparity)) <= kConfirmLog ||
                    std::fabs(seen.disparity - stixel.disparity) <= kConfirmPx);
        };
        stixel.confirmed = stixel.too_near;
        for (const auto& list : history_) {
            if (stixel.confirmed)
                break;
            const auto begin =
                std::lower_bound(list.begin(), list.end(), u - reach,
                                 [](const Seen& seen, float value) { return seen.u < value; });
            for (auto it = begin; it != list.end() && it->u <= u + reach; ++it) {
                if (matches(*it)) {
                    stixel.confirmed = true;
                    break;
                }
            }
        }
    }
}

void ObstacleTracker::cluster(const RectifiedGeometry& geometry, DetectionFrame& frame) {
    auto& stixels = frame.stixels;
    const int count = static_cast<int>(stixels.size());
    parent_.resize(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) parent_[i] = i;
    // Stixels are sorted by column: partners lie in the next two columns.
    for (int i = 0; i < count; ++i) {
        if (!stixels[i].confirmed)
            continue;
        for (int k = i + 1; k < count && stixels[k].column <= stixels[i].column + 2; ++k) {
            if (stixels[k].confirmed && sameDistance(stixels[i].disparity, stixels[k].disparity))
                parent_[root(parent_, k)] = root(parent_, i);
        }
    }
    frame.obstacles.clear();
    std::vector<float>& nearest = group_disparity_;
    nearest.clear();
    for (int i = 0; i < count; ++i) stixels[i].obstacle_id = 0;
    // Until the tracks give real ids, an obstacle's index + 1 stands in.
    for (int i = 0; i < count; ++i) {
        if (!stixels[i].confirmed)
            continue;
        const int r = root(parent_, i);
        const Stixel& s = stixels[i];
        if (r == i || stixels[r].obstacle_id == 0) {
            Obstacle obstacle;
            obstacle.x_begin = s.x_begin;
            obstacle.x_end = s.x_end;
            obstacle.y_top = s.y_top;
            obstacle.y_bottom = s.y_bottom;
            obstacle.ahead_mm = s.ahead_mm;
            obstacle.distance_mm = s.distance_mm;
            obstacle.sigma_mm = s.sigma_mm;
            obstacle.low_mm = s.low_mm;
            obstacle.high_mm = s.high_mm;
            frame.obstacles.push_back(obstacle);
            nearest.push_back(s.disparity);
            stixels[r].obstacle_id = static_cast<int>(frame.obstacles.size());
        }
        const int index = stixels[r].obstacle_id;
        stixels[i].obstacle_id = index;
        Obstacle& o = frame.obstacles[static_cast<std::size_t>(index) - 1];
        o.x_begin = std::min(o.x_begin, s.x_begin);
        o.x_end = std::max(o.x_end, s.x_end);
        o.y_top = std::min(o.y_top, s.y_top);
        o.y_bottom = std::max(o.y_bottom, s.y_bottom);
        if (s.distance_mm < o.distance_mm) {
            o.distance_mm = s.distance_mm;
            o.sigma_mm = s.sigma_mm;
            o.ahead_mm = s.ahead_mm;
        }
        o.low_mm = std::min(o.low_mm, s.low_mm);
        o.high_mm = std::max(o.high_mm, s.high_mm);
        nearest[static_cast<std::size_t>(index) - 1] =
            std::max(nearest[static_cast<std::size_t>(index) - 1], s.disparity);
        // Sums for now: confidence over columns, lateral extent below.
        o.confidence += s.confidence;
        o.lateral_mm += s.lateral_mm;
        o.age += 1;
    }
    for (Obstacle& o : frame.obstacles) {
        const float parts = static_cast<float>(o.age);
        o.lateral_mm /= parts;
        const float mean = o.confidence / parts;
        // Several columns that agree are surer than one.
        o.confidence = 1 - (1 - mean) / std::min(4.0f, parts);
        o.age = 0;
        o.width_mm = static_cast<float>(o.x_end - o.x_begin) * o.distance_mm /
                     static_cast<float>(geometry.fx);
    }
}

void ObstacleTracker::follow(DetectionFrame& frame) {
    for (Track& track : tracks_) track.taken = false;
    std::vector<Obstacle>& obstacles = frame.obstacles;
    ids_.assign(obstacles.size(), 0);
    for (std::size_t i = 0; i < obstacles.size(); ++i) {
        Obstacle& o = obstacles[i];
        Track* best = nullptr;
        float best_cost = 1;
        for (Track& track : tracks_) {
            if (track.taken)
                continue;
            const float scale = std::fabs(std::log(track.disparity / group_disparity_[i]));
            const float apart =
                std::fabs(0.5f * static_cast<float>(o.x_begin + o.x_end - track.obstacle.x_begin -
                                                    track.obstacle.x_end));
            const float size = 30 + 0.5f * static_cast<float>(o.x_end - o.x_begin);
            const float cost = 0.5f * scale / kFollowLog + 0.5f * apart / size;
            if (scale < kFollowLog && apart < size && cost < best_cost) {
                best_cost = cost;
                best = &track;
            }
        }
        if (!best) {
            tracks_.emplace_back();
            best = &tracks_.back();
            best->obstacle.id = next_id_++;
        }
        o.id = best->obstacle.id;
        o.age = best->obstacle.age + 1;
        best->obstacle = o;
        best->disparity = group_disparity_[i];
        best->missed = 0;
        best->taken = true;
        ids_[i] = o.id;
    }
    for (Stixel& stixel : frame.stixels)
        if (stixel.obstacle_id > 0)
            stixel.obstacle_id = ids_[static_cast<std::size_t>(stixel.obstacle_id) - 1];
    for (Track& track : tracks_)
        if (!track.taken)
            ++track.missed;
    tracks_.erase(std::remove_if(tracks_.begin(), tracks_.end(),
                                 [](const Track& t) { return t.missed > kMaxMissed; }),
                  tracks_.end());
    std::sort(obstacles.begin(), obstacles.end(), [](const Obstacle& p, const Obstacle& q) {
        return p.ahead_mm != q.ahead_mm ? p.ahead_mm < q.ahead_mm : p.id < q.id;
    });
}

void ObstacleTracker::update(const RectifiedGeometry& geometry, const Rotation* rotation,
                             bool temporal, DetectionFrame& frame) {
    if (!temporal)
        reset();
    if (frames_ == 0) {
        for (Stixel& stixel : frame.stixels) stixel.confirmed = true;
    } else {
        confirm(geometry, rotation, frame);
    }
    std::swap(history_[0], history_[1]);
    history_[0].clear();
    for (const Stixel& stixel : frame.stixels)
        history_[0].push_back(
            {0.5f * static_cast<float>(stixel.x_begin + stixel.x_end), stixel.disparity});
    ++frames_;

    cluster(geometry, frame);
    follow(frame);

    frame.nearest = NearestInCorridor();
    for (std::size_t i = 0; i < frame.stixels.size(); ++i) {
        const Stixel& stixel = frame.stixels[i];
        if (!stixel.confirmed)
            continue;
        ColumnRange& column = frame.columns[static_cast<std::size_t>(stixel.column)];
        if (column.stixel < 0) {  // nearest first within a column
            column.stixel = static_cast<int>(i);
            column.state = stixel.too_near ? ColumnState::kTooNear : ColumnState::kOccupied;
            column.distance_mm = stixel.distance_mm;
            column.sigma_mm = stixel.sigma_mm;
            column.ahead_mm = stixel.ahead_mm;
            column.lateral_mm = stixel.lateral_mm;
        }
        if (insideSideRange(stixel.lateral_mm) &&
            (!frame.nearest.exists || stixel.ahead_mm < frame.nearest.ahead_mm)) {
            frame.nearest.exists = true;
            frame.nearest.ahead_mm = stixel.ahead_mm;
            frame.nearest.sigma_mm = stixel.sigma_mm;
            frame.nearest.obstacle_id = stixel.obstacle_id;
            frame.nearest.zone = zoneOf(stixel.ahead_mm);
        }
    }
    for (ColumnRange& column : frame.columns)
        if (column.stixel < 0)
            column.state = column.free_mm >= kFarMm ? ColumnState::kFree : ColumnState::kUnknown;
}

}  // namespace kova::camera
