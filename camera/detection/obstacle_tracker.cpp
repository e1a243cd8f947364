#include "camera/detection/obstacle_tracker.h"

#include <algorithm>
#include <cmath>

#include "camera/detection/union_find.h"

namespace kova::camera {

namespace {

/// How far what was seen may lie from where it is expected: columns, and disparity.
constexpr float kConfirmColumns = 1.5f;
constexpr float kConfirmPx = 0.5f;
constexpr float kConfirmPart = 0.04f;
/// The same while the camera's motion is looked for.
constexpr float kMotionColumns = 0.75f;
constexpr float kMotionPx = 0.3f;
constexpr float kMotionPart = 0.02f;
constexpr std::array<float, 12> kAdvances = {50,  100, 150, 200,  300,  400,
                                             500, 600, 800, 1000, 1200, 1500};  // [mm]
constexpr float kFastest = 15000;                                               ///< camera [mm/s]
constexpr float kOwnMotion = 1500;  ///< of obstacles [mm/s]
constexpr int kMostShift = 4;       ///< turn between two frames [columns]
/// More time between two frames counts as this much [s].
constexpr float kLongestPause = 0.3f;
constexpr std::size_t kMotionSamples = 80;  ///< stixels that are looked at for the motion
/// Part of the stixels that a motion must explain more than standing still does.
constexpr float kWorthMoving = 0.05f;
constexpr float kFollowLog = 0.3f;
constexpr int kMaxMissed = 3;
/// An obstacle needs this many columns, or stands on its own evidence.
constexpr float kJoinPx = 1.0f;
constexpr float kJoinPart = 0.05f;

bool sameDistance(float p, float q) {
    return std::fabs(p - q) <= std::max(kJoinPx, kJoinPart * std::max(p, q));
}

/// A slit of one or two columns beside something is rather a hole in what was seen of it than a
/// way: not known to be free.
void closeGaps(std::vector<ColumnRange>& columns) {
    constexpr std::size_t kSlit = 2;
    const auto isTaken = [&](std::size_t i) {
        return i < columns.size() && (columns[i].state == ColumnState::kOccupied ||
                                      columns[i].state == ColumnState::kTooNear);
    };
    for (std::size_t begin = 0, end = 0; begin < columns.size(); begin = end + 1) {
        for (end = begin; end < columns.size() && columns[end].state == ColumnState::kFree;) ++end;
        if (end - begin > kSlit || (!isTaken(begin - 1) && !isTaken(end)))
            continue;
        for (std::size_t i = begin; i < end; ++i) columns[i].state = ColumnState::kUnknown;
    }
}

}  // namespace

void ObstacleTracker::reset() {
    frames_ = 0;
    tracks_.clear();
    next_id_ = 1;
    for (Look& look : history_) look.seen.clear();
}

/// Whether a stixel, put back by a motion, lies where something was seen.
bool ObstacleTracker::wasSeen(const Look& look, const RectifiedGeometry& geometry,
                              const Motion& motion, const Stixel& stixel, float reach,
                              float apart) {
    const float back = stixel.distance_mm / (stixel.distance_mm + motion.advance_mm);
    const float d = stixel.disparity * back;
    const auto centre = static_cast<float>(geometry.cx);
    const float now = 0.5f * static_cast<float>(stixel.x_begin + stixel.x_end);
    const float u = centre + (now - motion.shift_px - centre) * back;
    const auto& seen = look.seen;
    auto it = std::lower_bound(seen.begin(), seen.end(), u - reach,
                               [](const Seen& one, float value) { return one.u < value; });
    for (; it != seen.end() && it->u <= u + reach; ++it)
        if (std::fabs(it->disparity - d) <= apart)
            return true;
    return false;
}

ObstacleTracker::Motion ObstacleTracker::motionSince(const Look& look,
                                                     const RectifiedGeometry& geometry,
                                                     const Rotation* rotation, float pause,
                                                     const DetectionFrame& frame) {
    const auto width = static_cast<float>(frame.column_px);
    const std::size_t count = frame.stixels.size();
    const std::size_t step = 1 + count / kMotionSamples;
    const auto matched = [&](const Motion& motion) {
        int matches = 0;
        for (std::size_t i = 0; i < count; i += step) {
            const Stixel& s = frame.stixels[i];
            matches += wasSeen(look, geometry, motion, s, kMotionColumns * width,
                               kMotionPx + kMotionPart * s.disparity);
        }
        return matches;
    };
    Motion best;
    const int standing = matched(best);
    const float worth = kWorthMoving * static_cast<float>(count) / static_cast<float>(step);
    const auto looked_at = static_cast<float>((count + step - 1) / step);
    if (looked_at - static_cast<float>(standing) <= worth)
        return best;  // nothing can explain so much more
    int most = standing;
    // Uphill along one axis, then along the other, in either order: what a turn alone explains by
    // chance must not hide what driving explains.
    for (const bool turn_first : {false, true}) {
        Motion own;
        int own_most = standing;
        const auto offer = [&](const Motion& motion) {
            if (const int matches = matched(motion); matches > own_most) {
                own_most = matches;
                own = motion;
            }
        };
        for (const bool turning : {turn_first, !turn_first}) {
            const Motion from = own;
            for (int k = 1; turning && k <= kMostShift && !rotation; ++k) {
                offer({from.advance_mm, from.shift_px + width * static_cast<float>(k)});
                offer({from.advance_mm, from.shift_px - width * static_cast<float>(k)});
            }
            for (const float advance : kAdvances)
                if (!turning && advance <= kFastest * pause)
                    offer({advance, from.shift_px});
        }
        if (own_most > most) {
            most = own_most;
            best = own;
        }
    }
    return static_cast<float>(most - standing) > worth ? best : Motion();
}

void ObstacleTracker::confirm(const RectifiedGeometry& geometry, const Rotation* rotation,
                              DetectionFrame& frame) {
    if (rotation) {
        // Where a direction at infinity moved to; exact for turns about the vertical, close for
        // small ones.
        const auto shift = static_cast<float>(geometry.fx * (*rotation)[2]);
        for (Look& look : history_)
            for (Seen& seen : look.seen) seen.u += shift;
    }
    const float reach = kConfirmColumns * static_cast<float>(frame.column_px);
    for (Stixel& stixel : frame.stixels) stixel.confirmed = stixel.too_near;
    for (const Look& look : history_) {
        if (look.seen.empty())
            continue;
        const float pause =
            std::clamp(static_cast<float>(frame.t_ns - look.t_ns) * 1e-9f, 0.0f, kLongestPause);
        const Motion motion = motionSince(look, geometry, rotation, pause, frame);
        for (Stixel& stixel : frame.stixels) {
            const float d = stixel.disparity;
            const float apart =
                kConfirmPx + kConfirmPart * d + d / stixel.distance_mm * kOwnMotion * pause;
            stixel.confirmed =
                stixel.confirmed || wasSeen(look, geometry, motion, stixel, reach, apart);
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
    history_[0].seen.clear();
    history_[0].t_ns = frame.t_ns;
    for (const Stixel& stixel : frame.stixels)
        history_[0].seen.push_back(
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
    closeGaps(frame.columns);
}

}  // namespace kova::camera
