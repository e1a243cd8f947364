#include "camera/detection/stixel_search.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/detection/ground_profile.h"

namespace kova::camera {

namespace {

constexpr int kMaxLevels = 240;
constexpr int kMaxBins = 512;
constexpr int kStride = kMaxLevels + 2 + 9;
constexpr std::uint8_t kFromGround = 254;
constexpr std::uint8_t kFromSky = 253;
constexpr float kNever = 1e9f;
/// Heights of the raised surfaces that are tried [mm].
constexpr std::array<float, 9> kRises = {-200, -130, -70, 60, 100, 150, 210, 280, 360};
constexpr int kRaised = static_cast<int>(kRises.size());
constexpr int kFromRaised = 241;    // and on, one code for each
constexpr float kStep = 4.0f;       // between the ground and a raised surface [nat]
constexpr float kSmallStep = 2.0f;  // between neighbouring raised surfaces
/// Back pointers of ground, sky and raised surfaces lie behind those of the levels.

// Standard deviation of one independent measurement [px].
constexpr float kObjectSigma = 0.6f;
constexpr float kGroundSigma = 0.5f;
// Costs are negative logarithms of probabilities [nat].
constexpr float kNewSegment = 5.0f;
constexpr float kSlant = 1.5f;        // the next level farther, within one object
constexpr float kNearerAbove = 2.3f;  // ordering: 0.1
constexpr float kFloating = 2.5f;     // gravity: 0.08
constexpr float kBelowGround = 7.0f;  // 0.001
constexpr float kObjectAboveSky = 4.0f;
constexpr float kMissingGround = 0.25f;
constexpr float kMissingObject = 0.25f;
constexpr float kMissingSky = 0.05f;
constexpr float kSkySigma = 0.5f;
constexpr float kSkyPrior = 0.15f;  // per cell: measured cells are seldom sky

/// log of (range / (sigma * sqrt(2 pi))) for an outlier anywhere in 128 px.
constexpr float kUniform = 4.6f;

/// Cost at which a measurement is rather an outlier.
float outlierCost(float confidence) {
    return std::max(0.3f, kUniform + std::log(confidence / (1 - confidence)));
}

struct Column {
    int bins = 0;
    std::array<float, kMaxBins> d, weight, cap, ground, plane;
    std::array<float, kMaxBins> confidence;
    std::array<CellKind, kMaxBins> kind;
    std::array<float, kRaised> ratio;  ///< of a raised surface's disparity to the ground's; 0: none
};

float dataCost(float difference, float sigma, float weight, float cap) {
    const float t = difference / sigma;
    return weight * std::min(0.5f * t * t, cap);
}

/// Appends the segment of the bins [begin, end), counted from the bottom. What does not fit its
/// level is an outlier and does not count for its disparity.
void emit(const CellGrid& grid, const Column& in, const std::uint8_t* path, const float* level,
          int column, int begin, int end, std::vector<Segment>& out) {
    if (out.size() == out.capacity())
        return;
    Segment segment;
    const int state = path[begin];
    segment.kind = state == kFromGround   ? SegmentKind::kGround
                   : state == kFromSky    ? SegmentKind::kSky
                   : state >= kFromRaised ? SegmentKind::kRaised
                                          : SegmentKind::kObject;
    if (segment.kind == SegmentKind::kRaised)
        segment.rise_mm = kRises[state - kFromRaised];
    segment.y_top = (in.bins - end) * grid.binPx();
    segment.y_bottom = grid.binEnd(in.bins - 1 - begin);
    float sum = 0, sum_d = 0, sum_dd = 0, sum_v = 0, sum_vv = 0, sum_vd = 0, sure = 0, too_near = 0;
    float fine = 0, coarse = 0;
    for (int t = begin; t < end; ++t) {
        if (in.kind[t] == CellKind::kEmpty)
            continue;
        const float w = in.weight[t];
        if (segment.kind == SegmentKind::kRaised) {
            const float g = in.ground[t];
            const float sigma = kGroundSigma + 0.012f * g;
            segment.evidence +=
                dataCost(in.d[t] - g, sigma, w, in.cap[t]) -
                dataCost(in.d[t] - g * in.ratio[state - kFromRaised], sigma, w, in.cap[t]);
        } else if (segment.kind == SegmentKind::kObject) {
            const float at = level[path[t]];
            const float difference = in.d[t] - at;
            const float scale = 1 + 0.01f * in.d[t];
            if (std::fabs(difference) > 3 * kObjectSigma * scale)
                continue;
            const float to_ground =
                in.ground[t] < 0 ? in.weight[t] * in.cap[t]
                                 : dataCost(in.d[t] - in.ground[t],
                                            kGroundSigma + 0.012f * in.ground[t], w, in.cap[t]);
            segment.evidence +=
                to_ground - dataCost(difference / scale, kObjectSigma, w, in.cap[t]);
        }
        const std::size_t cell = grid.index(column, in.bins - 1 - t);
        fine += grid.fine[cell];
        coarse += grid.coarse[cell];
        const float v = static_cast<float>(begin - t);
        sum += w;
        sum_d += w * in.d[t];
        sum_dd += w * in.d[t] * in.d[t];
        sum_v += w * v;
        sum_vv += w * v * v;
        sum_vd += w * v * in.d[t];
        sure += w * in.confidence[t];
        too_near += in.kind[t] == CellKind::kTooNear ? w : 0;
    }
    if (sum > 0) {
        segment.disparity = sum_d / sum;
        segment.confidence = sure / sum;
        segment.samples = sum;
        segment.texture = coarse / std::max(0.1f, fine);
        segment.too_near = too_near > 0.5f * sum;
        const float spread = std::max(0.0f, sum_dd / sum - segment.disparity * segment.disparity);
        // Errors that a whole segment shares do not average out.
        segment.sigma_px = std::sqrt(0.15f * 0.15f + std::max(spread, 0.09f) / std::max(1.0f, sum));
        const float variance = sum_vv - sum_v * sum_v / sum;
        if (variance > 0)
            segment.slant =
                (sum_vd - sum_v * sum_d / sum) / variance / static_cast<float>(grid.binPx());
    }
    out.push_back(segment);
}

}  // namespace

struct StixelSearch::Scratch {
    Column column;
    std::array<float, kMaxLevels> cost, next, suffix, prefix;
    std::array<std::uint8_t, kMaxLevels> suffix_at, prefix_at;
    std::array<std::uint8_t, kMaxBins> path;
    std::vector<std::uint8_t> back = std::vector<std::uint8_t>(kMaxBins * kStride);
};

void StixelSearch::resize(const CellGrid& grid, float max_disparity) {
    levels_.clear();
    for (float d = 0.5f; d < max_disparity + 2 && levels_.size() < kMaxLevels;
         d += d < 32 ? 0.5f : (d < 64 ? 1.0f : 2.0f))
        levels_.push_back(d);
    segments_.resize(static_cast<std::size_t>(grid.columns()));
    for (auto& list : segments_) list.reserve(64);
}

void StixelSearch::run(const CellGrid& grid, const GroundModel* ground) {
    constexpr int kColumnsPerTask = 8;
    const int tasks = (grid.columns() + kColumnsPerTask - 1) / kColumnsPerTask;
    parallelFor(tasks, [&](int task) {
        const int end = std::min(grid.columns(), (task + 1) * kColumnsPerTask);
        for (int column = task * kColumnsPerTask; column < end; ++column)
            runColumn(grid, ground, column);
    });
}

void StixelSearch::runColumn(const CellGrid& grid, const GroundModel* ground, int column) {
    static thread_local Scratch scratch;
    Scratch& s = scratch;
    Column& in = s.column;
    in.bins = std::min(grid.bins(), kMaxBins);

    // The column, turned over: index 0 is the bottom.
    float low = 1e9f;
    float high = 0;
    for (int t = 0; t < in.bins; ++t) {
        const int bin = grid.bins() - 1 - t;
        const std::size_t cell = grid.index(column, bin);
        in.kind[t] = grid.kind[cell];
        in.d[t] = grid.kind[cell] == CellKind::kTooNear ? levels_.back() : grid.disparity[cell];
        in.weight[t] = grid.weight[cell];
        in.cap[t] = outlierCost(std::clamp(grid.confidence[cell], 0.02f, 0.98f));
        in.confidence[t] = grid.confidence[cell];
        in.plane[t] = -1;
        in.ground[t] = -1;
        if (ground) {
            in.plane[t] =
                static_cast<float>(ground->planeAt(grid.centreX(column), grid.centreY(bin)));
            if (in.plane[t] > 0.7f)
                in.ground[t] = ground->groundOf(in.plane[t]);
        }
        if (in.kind[t] != CellKind::kEmpty) {
            low = std::min(low, in.d[t]);
            high = std::max(high, in.d[t]);
        }
    }
    for (int j = 0; j < kRaised; ++j) {
        const float height = ground ? static_cast<float>(ground->height_mm) : 0;
        in.ratio[j] = kRises[j] < 0.6f * height ? height / (height - kRises[j]) : 0;
    }
    segments_[column].clear();
    if (high <= 0)
        return;

    // Only levels that were seen can be the best.
    const int first =
        std::max(0, static_cast<int>(std::lower_bound(levels_.begin(), levels_.end(), low - 0.5f) -
                                     levels_.begin()) -
                        1);
    const int last =
        std::min(static_cast<int>(levels_.size()) - 1,
                 static_cast<int>(std::lower_bound(levels_.begin(), levels_.end(), high + 0.5f) -
                                  levels_.begin()));
    const float* level = levels_.data() + first;
    const int count = last - first + 1;

    // The cell's cost at every level is added to `s.next`.
    const auto addObjectCost = [&](int t) {
        if (in.kind[t] == CellKind::kEmpty)
            return kMissingObject;
        const float d = in.d[t];
        const float scale = 0.5f / (kObjectSigma * kObjectSigma);
        const float cap = in.cap[t];
        const float weight = in.weight[t];
        for (int k = 0; k < count; ++k) {
            // Levels lie farther apart where disparities are large.
            const float difference = (d - level[k]) / (1 + 0.01f * d);
            s.next[k] += weight * std::min(scale * difference * difference, cap);
        }
        return 0.0f;
    };
    const auto groundCost = [&](int t) {
        if (in.ground[t] < 0)
            return kNever;
        if (in.kind[t] == CellKind::kEmpty)
            return kMissingGround;
        return dataCost(in.d[t] - in.ground[t], kGroundSigma + 0.012f * in.ground[t], in.weight[t],
                        in.cap[t]);
    };
    const auto raisedCost = [&](int t, int j) {
        if (in.ground[t] < 0 || !(in.ratio[j] > 0))
            return kNever;
        if (in.kind[t] == CellKind::kEmpty)
            return kMissingGround;
        const float d = in.ground[t] * in.ratio[j];
        return dataCost(in.d[t] - d, kGroundSigma + 0.012f * d, in.weight[t], in.cap[t]);
    };
    const auto skyCost = [&](int t) {
        if (in.plane[t] > 1)
            return kNever;  // below the horizon
        if (in.kind[t] == CellKind::kEmpty)
            return kMissingSky;
        return kSkyPrior +
               dataCost(std::max(0.0f, in.d[t] - 0.5f), kSkySigma, in.weight[t], in.cap[t]);
    };
    const auto footCost = [&](float d, int t, float ratio) {
        const float g = in.ground[t] * ratio;
        if (g < 0)
            return ground ? kFloating : 0.0f;
        const float tolerance = 1 + 0.04f * g;
        return d > g + tolerance ? kFloating : (d < g - tolerance ? kBelowGround : 0.0f);
    };

    float ground_cost = groundCost(0);
    float sky_cost = ground ? kNever : skyCost(0);
    std::array<float, kRaised> raised;
    for (int j = 0; j < kRaised; ++j) raised[j] = std::min(kNever, kStep + raisedCost(0, j));
    for (int k = 0; k < count; ++k) s.next[k] = 0.5f * kNewSegment;
    const float missing = addObjectCost(0);
    for (int k = 0; k < count; ++k) s.cost[k] = s.next[k] + missing;

    for (int t = 1; t < in.bins; ++t) {
        std::uint8_t* back = s.back.data() + static_cast<std::size_t>(t) * kStride;
        // Best object nearer than a level, and best farther one.
        float best = kNever;
        int at = 0;
        for (int k = count - 1; k >= 0; --k) {
            s.suffix[k] = best;
            s.suffix_at[k] = static_cast<std::uint8_t>(at);
            if (s.cost[k] < best) {
                best = s.cost[k];
                at = k;
            }
        }
        const float best_object = best;
        const int best_object_at = at;
        best = kNever;
        at = 0;
        for (int k = 0; k < count; ++k) {
            s.prefix[k] = best;
            s.prefix_at[k] = static_cast<std::uint8_t>(at);
            if (s.cost[k] < best) {
                best = s.cost[k];
                at = k;
            }
        }
        for (int k = 0; k < count; ++k) {
            float value = s.cost[k];
            int from = k;
            const float slanted = k + 1 < count ? s.cost[k + 1] + kSlant : kNever;
            if (slanted < value) {
                value = slanted;
                from = k + 1;
            }
            const float behind = s.suffix[k] + kNewSegment;
            if (behind < value) {
                value = behind;
                from = s.suffix_at[k];
            }
            const float before = s.prefix[k] + kNewSegment + kNearerAbove;
            if (before < value) {
                value = before;
                from = s.prefix_at[k];
            }
            s.next[k] = value;
            back[k] = static_cast<std::uint8_t>(from);
        }
        const int raised_at =
            static_cast<int>(std::min_element(raised.begin(), raised.end()) - raised.begin());
        const float best_raised = raised[raised_at];
        if (best_raised < kNever) {
            for (int k = 0; k < count; ++k) {
                const float value =
                    best_raised + kNewSegment + footCost(level[k], t, in.ratio[raised_at]);
                if (value < s.next[k]) {
                    s.next[k] = value;
                    back[k] = static_cast<std::uint8_t>(kFromRaised + raised_at);
                }
            }
        }
        if (ground_cost < kNever) {
            for (int k = 0; k < count; ++k) {
                const float value = ground_cost + kNewSegment + footCost(level[k], t, 1);
                if (value < s.next[k]) {
                    s.next[k] = value;
                    back[k] = kFromGround;
                }
            }
        }
        if (sky_cost < kNever) {
            const float value = sky_cost + kNewSegment + kObjectAboveSky;
            for (int k = 0; k < count; ++k) {
                if (value < s.next[k]) {
                    s.next[k] = value;
                    back[k] = kFromSky;
                }
            }
        }

        // Ground goes on, or begins again behind an object.
        float next_ground = kNever;
        const float g = groundCost(t);
        if (g < kNever) {
            next_ground = ground_cost;
            back[kMaxLevels] = kFromGround;
            for (int k = 0; k < count; ++k) {
                const float value =
                    s.cost[k] + kNewSegment + (level[k] < in.ground[t] - 1 ? kBelowGround : 0);
                if (value < next_ground) {
                    next_ground = value;
                    back[kMaxLevels] = static_cast<std::uint8_t>(k);
                }
            }
            if (best_raised + kStep < next_ground) {
                next_ground = best_raised + kStep;
                back[kMaxLevels] = static_cast<std::uint8_t>(kFromRaised + raised_at);
            }
            next_ground = std::min(kNever, next_ground + g);
        }
        std::array<float, kRaised> next_raised;
        for (int j = 0; j < kRaised; ++j) {
            next_raised[j] = kNever;
            const float cost = raisedCost(t, j);
            if (cost >= kNever)
                continue;
            float value = raised[j];
            int from = kFromRaised + j;
            const auto offer = [&](float other, int code) {
                if (other < value) {
                    value = other;
                    from = code;
                }
            };
            if (j > 0)
                offer(raised[j - 1] + kSmallStep, kFromRaised + j - 1);
            if (j + 1 < kRaised)
                offer(raised[j + 1] + kSmallStep, kFromRaised + j + 1);
            offer(ground_cost + kStep, kFromGround);
            offer(best_object + kNewSegment + 1, best_object_at);
            next_raised[j] = std::min(kNever, value + cost);
            back[kMaxLevels + 2 + j] = static_cast<std::uint8_t>(from);
        }
        float next_sky = kNever;
        const float sky = skyCost(t);
        if (sky < kNever) {
            next_sky = sky_cost;
            back[kMaxLevels + 1] = kFromSky;
            if (ground_cost + kNewSegment < next_sky) {
                next_sky = ground_cost + kNewSegment;
                back[kMaxLevels + 1] = kFromGround;
            }
            if (best_object + kNewSegment < next_sky) {
                next_sky = best_object + kNewSegment;
                back[kMaxLevels + 1] = static_cast<std::uint8_t>(best_object_at);
            }
            if (best_raised + kNewSegment < next_sky) {
                next_sky = best_raised + kNewSegment;
                back[kMaxLevels + 1] = static_cast<std::uint8_t>(kFromRaised + raised_at);
            }
            next_sky = std::min(kNever, next_sky + sky);
        }
        const float empty = addObjectCost(t);
        for (int k = 0; k < count; ++k) s.cost[k] = s.next[k] + empty;
        ground_cost = next_ground;
        sky_cost = next_sky;
        raised = next_raised;
    }

    // Back from the top.
    int state =
        static_cast<int>(std::min_element(s.cost.begin(), s.cost.begin() + count) - s.cost.begin());
    float best_end = s.cost[state];
    if (ground_cost < best_end) {
        best_end = ground_cost;
        state = kFromGround;
    }
    if (sky_cost < best_end) {
        best_end = sky_cost;
        state = kFromSky;
    }
    for (int j = 0; j < kRaised; ++j)
        if (raised[j] < best_end) {
            best_end = raised[j];
            state = kFromRaised + j;
        }
    int end = in.bins;  // of the segment that is being followed down
    for (int t = in.bins - 1; t >= 0; --t) {
        s.path[t] = static_cast<std::uint8_t>(state);
        int from = state;
        if (t > 0) {
            const std::uint8_t* back = s.back.data() + static_cast<std::size_t>(t) * kStride;
            from = state == kFromGround   ? back[kMaxLevels]
                   : state == kFromSky    ? back[kMaxLevels + 1]
                   : state >= kFromRaised ? back[kMaxLevels + 2 + state - kFromRaised]
                                          : back[state];
        }
        const bool goes_on = t > 0 && (from == state || (state < kMaxLevels && from == state + 1));
        if (!goes_on) {
            emit(grid, in, s.path.data(), level, column, t, end, segments_[column]);
            end = t;
        }
        state = from;
    }
    std::reverse(segments_[column].begin(), segments_[column].end());
}

}  // namespace kova::camera
