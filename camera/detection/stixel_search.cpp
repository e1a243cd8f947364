#include "camera/detection/stixel_search.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/detection/ground_profile.h"
#include "camera/detection/stixel_kernel.h"

namespace kova::camera {

namespace {

constexpr int kMaxLevels = kLevelGroup * kMaxLevelGroups;
/// Distance of two rows of costs: a whole group more, for the level after the last.
constexpr int kRowStride = kMaxLevels + kLevelGroup;
constexpr int kMaxBins = 512;
constexpr std::uint8_t kFromGround = 254;
constexpr std::uint8_t kFromSky = 253;
constexpr float kNever = kNeverCost;
/// Heights of the raised surfaces that are tried [mm].
constexpr std::array<float, 9> kRises = {-200, -130, -70, 60, 100, 150, 210, 280, 360};
constexpr int kRaised = static_cast<int>(kRises.size());
constexpr int kFromRaised = kMaxLevels + 1;  // and on, one code for each
constexpr float kStep = 4.0f;                // between the ground and a raised surface [nat]
constexpr float kSmallStep = 2.0f;           // between neighbouring raised surfaces

// Standard deviation of one independent measurement [px].
constexpr float kObjectSigma = 0.6f;
constexpr float kGroundSigma = 0.5f;
// Costs are negative logarithms of probabilities [nat].
/// A border between two cells at kBorderFocal. Borders come by the angle: in pictures of half the
/// size a cell sees twice as much, and twice as many.
constexpr float kNewSegment = 3.0f;
constexpr float kBorderFocal = 760;  ///< [px]
constexpr float kLeastNewSegment = 1.0f;
constexpr float kSlant = 1.5f;        // the next level farther, within one object
constexpr float kNearerAbove = 2.3f;  // ordering: 0.1
constexpr float kFloating = 2.5f;     // gravity: 0.08
constexpr float kBelowGround = 7.0f;  // 0.001
constexpr float kObjectAboveSky = 4.0f;
constexpr float kRaisedAbove = 1.0f;
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
    float height_mm = 0;               ///< of the camera
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
    // What was not measured above an object is not known to belong to it.
    if (segment.kind == SegmentKind::kObject)
        while (end > begin + 1 && in.kind[end - 1] == CellKind::kEmpty) --end;
    segment.y_top = (in.bins - end) * grid.binPx();
    segment.y_bottom = grid.binEnd(in.bins - 1 - begin);
    float sum = 0, sum_d = 0, sum_dd = 0, sum_v = 0, sum_vv = 0, sum_vd = 0, sure = 0, too_near = 0;
    float fine = 0, coarse = 0, sum_ratio = 0;
    for (int t = begin; t < end; ++t) {
        if (in.kind[t] == CellKind::kEmpty)
            continue;
        const float w = in.weight[t];
        if (segment.kind == SegmentKind::kRaised) {
            const float g = in.ground[t];
            const float sigma = kGroundSigma + 0.012f * g;
            sum_ratio += w * in.d[t] / g;
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
        if (segment.kind == SegmentKind::kRaised)
            segment.rise_mm = in.height_mm * (1 - sum / std::max(0.1f * sum, sum_ratio));
        segment.samples = sum;
        segment.texture = coarse / std::max(0.1f, fine);
        segment.too_near = too_near > 0.5f * sum;
        const float spread = std::max(0.0f, sum_dd / sum - segment.disparity * segment.disparity);
        // Errors that a whole segment shares do not average out.
        segment.sigma_px = std::sqrt(0.15f * 0.15f + std::max(spread, 0.09f) / std::max(1.0f, sum));
        const float variance = sum_vv - sum_v * sum_v / sum;
        if (variance > 0) {
            const auto bin = static_cast<float>(grid.binPx());
            segment.slant = (sum_vd - sum_v * sum_d / sum) / variance / bin;
            segment.slant_sigma = kObjectSigma / std::sqrt(variance) / bin;
        }
    }
    out.push_back(segment);
}

FootCosts footCosts(float base, float surface) {
    FootCosts foot;
    if (base >= kNever)
        return foot;
    if (surface < 0) {  // above the horizon nothing stands
        foot.below_until = foot.above_from = 0;
        foot.above = foot.on = base + kFloating;
        return foot;
    }
    const float tolerance = 1 + 0.04f * surface;
    foot.below_until = surface - tolerance;
    foot.above_from = surface + tolerance;
    foot.below = base + kBelowGround;
    foot.on = base;
    foot.above = base + kFloating;
    return foot;
}

}  // namespace

/// What one column's pass keeps: costs of every state at every bin, from which the way back is
/// found without back pointers.
struct StixelSearch::Scratch {
    Column column;
    Scratch() { start.fill(kNever); }
    Image<float> cost{kRowStride, kMaxBins};
    Image<float> start{kRowStride, 1};  ///< below the lowest bin
    struct Row {
        std::array<float, kMaxLevelGroups> group_min{};
        float ground = kNever, sky = kNever;
        float to_ground = kNever;  ///< least of the objects for ground above
        std::array<float, kRaised> raised{};
        int best_raised = 0;         ///< index of the least of `raised`
        int best_group = 0;          ///< of the least of `group_min`
        float best_object = kNever;  ///< the least of `group_min`

        void findBest(int groups) {
            best_raised =
                static_cast<int>(std::min_element(raised.begin(), raised.end()) - raised.begin());
            const auto* least = std::min_element(group_min.begin(), group_min.begin() + groups);
            best_group = static_cast<int>(least - group_min.begin());
            best_object = *least;
        }
    };
    std::vector<Row> rows = std::vector<Row>(kMaxBins);
    std::array<std::uint8_t, kMaxBins> path;
    int groups = 0;
    float new_segment = kNewSegment;

    float groundCost(int t) const;
    float raisedCost(int t, int j) const;
    float skyCost(int t) const;
    void forward(const float* level, bool has_ground);
    void enterObjects(int t, StixelStep& step) const;
    void lyingSurfaces(int t);
    int before(int t, int state, const float* level) const;
    int bestObjectAt(int t) const;
};

float StixelSearch::Scratch::groundCost(int t) const {
    const Column& in = column;
    if (in.ground[t] < 0)
        return kNever;
    if (in.kind[t] == CellKind::kEmpty)
        return kMissingGround;
    return dataCost(in.d[t] - in.ground[t], kGroundSigma + 0.012f * in.ground[t], in.weight[t],
                    in.cap[t]);
}

float StixelSearch::Scratch::raisedCost(int t, int j) const {
    const Column& in = column;
    if (in.ground[t] < 0 || !(in.ratio[j] > 0))
        return kNever;
    if (in.kind[t] == CellKind::kEmpty)
        return kMissingGround;
    const float d = in.ground[t] * in.ratio[j];
    return dataCost(in.d[t] - d, kGroundSigma + 0.012f * d, in.weight[t], in.cap[t]);
}

float StixelSearch::Scratch::skyCost(int t) const {
    const Column& in = column;
    if (in.plane[t] > 1)
        return kNever;  // below the horizon
    if (in.kind[t] == CellKind::kEmpty)
        return kMissingSky;
    return kSkyPrior + dataCost(std::max(0.0f, in.d[t] - 0.5f), kSkySigma, in.weight[t], in.cap[t]);
}

/// Fills in what it costs to begin an object at bin t, from the states of the bin below it.
void StixelSearch::Scratch::enterObjects(int t, StixelStep& step) const {
    const Row& below = rows[t - 1];
    // From a group as near or nearer, or from the best one, which lies farther.
    float nearer = kNever;
    for (int g = groups - 1; g > below.best_group; --g) {
        nearer = std::min(nearer, below.group_min[g]);
        step.jump[g] =
            std::min(nearer + new_segment, below.best_object + new_segment + kNearerAbove);
    }
    for (int g = 0; g <= below.best_group; ++g) step.jump[g] = below.best_object + new_segment;
    step.other = below.sky < kNever ? below.sky + new_segment + kObjectAboveSky : kNever;
    step.from_ground =
        footCosts(below.ground < kNever ? below.ground + new_segment : kNever, column.ground[t]);
    const int j = below.best_raised;
    step.from_raised = footCosts(below.raised[j] < kNever ? below.raised[j] + new_segment : kNever,
                                 column.ground[t] < 0 ? -1 : column.ground[t] * column.ratio[j]);
}

/// Costs of ground, raised surfaces and sky at bin t.
void StixelSearch::Scratch::lyingSurfaces(int t) {
    const Row& below = rows[t - 1];
    Row& row = rows[t];
    const float best_raised = below.raised[below.best_raised];
    const float best_object = below.best_object;
    const auto sum = [](float p, float q) { return std::min(kNever, p + q); };

    row.ground = sum(std::min({below.ground, best_raised + kStep, below.to_ground + new_segment}),
                     groundCost(t));
    row.sky = sum(std::min({below.sky, below.ground + new_segment, best_raised + new_segment,
                            best_object + new_segment}),
                  skyCost(t));
    if (column.ground[t] < 0) {  // above the horizon nothing lies
        row.raised.fill(kNever);
        return;
    }
    for (int j = 0; j < kRaised; ++j) {
        float value = std::min(
            {below.raised[j], below.ground + kStep, best_object + new_segment + kRaisedAbove});
        if (j > 0)
            value = std::min(value, below.raised[j - 1] + kSmallStep);
        if (j + 1 < kRaised)
            value = std::min(value, below.raised[j + 1] + kSmallStep);
        row.raised[j] = sum(value, raisedCost(t, j));
    }
}

void StixelSearch::Scratch::forward(const float* level, bool has_ground) {
    const Column& in = column;
    const int count = groups * kLevelGroup;
    for (int t = 0; t < in.bins; ++t) {
        StixelStep step;
        step.groups = groups;
        step.slant = kSlant;
        if (in.kind[t] == CellKind::kEmpty) {
            step.constant = kMissingObject;
        } else {
            // Levels lie farther apart where disparities are large.
            const float sigma = kObjectSigma * (1 + 0.01f * in.d[t]);
            step.d = in.d[t];
            step.scale = 0.5f / (sigma * sigma);
            step.weight = in.weight[t];
            step.cap = in.cap[t];
        }
        if (t + 1 < in.bins && in.ground[t + 1] >= 0) {
            step.ground_until = in.ground[t + 1] - 1;
            step.below_ground = kBelowGround;
        }
        const float* below = start.row(0);
        if (t > 0) {
            enterObjects(t, step);
            below = cost.row(t - 1);
        } else {
            std::fill_n(step.jump, kMaxLevelGroups, 0.5f * new_segment);
        }
        Row& row = rows[t];
        row.to_ground = stixelStep(step, level, below, cost.row(t), row.group_min.data());
        cost.row(t)[count] = kNever;
        if (t > 0) {
            lyingSurfaces(t);
        } else {
            row.ground = groundCost(0);
            row.sky = has_ground ? kNever : skyCost(0);
            for (int j = 0; j < kRaised; ++j)
                row.raised[j] = std::min(kNever, kStep + raisedCost(0, j));
        }
        row.findBest(groups);
    }
}

int StixelSearch::Scratch::bestObjectAt(int t) const {
    const float* row = cost.row(t);
    return static_cast<int>(std::min_element(row, row + groups * kLevelGroup) - row);
}

/// The best state at bin t - 1 for `state` at bin t: the same comparisons as on the way forward.
int StixelSearch::Scratch::before(int t, int state, const float* level) const {
    const Row& below = rows[t - 1];
    const float* costs = cost.row(t - 1);
    const int raised_at = below.best_raised;
    int from = state;
    float value = 0;
    const auto offer = [&](float other, int code) {
        if (other < value) {
            value = other;
            from = code;
        }
    };
    if (state == kFromGround) {
        value = below.ground;
        offer(below.raised[raised_at] + kStep, kFromRaised + raised_at);
        if (below.to_ground + new_segment < value) {
            for (int k = 0; k < groups * kLevelGroup; ++k)
                offer(costs[k] + new_segment +
                          (level[k] < column.ground[t] - 1 ? kBelowGround : 0.0f),
                      k);
        }
        return from;
    }
    if (state == kFromSky) {
        value = below.sky;
        offer(below.ground + new_segment, kFromGround);
        offer(below.raised[raised_at] + new_segment, kFromRaised + raised_at);
        if (below.best_object + new_segment < value)
            from = bestObjectAt(t - 1);
        return from;
    }
    if (state >= kFromRaised) {
        const int j = state - kFromRaised;
        value = below.raised[j];
        if (j > 0)
            offer(below.raised[j - 1] + kSmallStep, state - 1);
        if (j + 1 < kRaised)
            offer(below.raised[j + 1] + kSmallStep, state + 1);
        offer(below.ground + kStep, kFromGround);
        if (below.best_object + new_segment + kRaisedAbove < value)
            from = bestObjectAt(t - 1);
        return from;
    }
    value = costs[state];
    offer(costs[state + 1] + kSlant, state + 1);
    StixelStep step;
    enterObjects(t, step);
    const auto entering = [&](const FootCosts& foot) {
        const float at = level[state];
        return at < foot.below_until ? foot.below : (at > foot.above_from ? foot.above : foot.on);
    };
    offer(entering(step.from_ground), kFromGround);
    offer(entering(step.from_raised), kFromRaised + raised_at);
    offer(step.other, kFromSky);
    const int own_group = state / kLevelGroup;
    if (step.jump[own_group] < value) {
        value = kNever;
        for (int g = 0; g < groups; ++g) {
            const float extra = g < own_group ? kNearerAbove : 0.0f;
            if (below.group_min[g] + new_segment + extra < value) {
                value = below.group_min[g] + new_segment + extra;
                const float* group = costs + g * kLevelGroup;
                from = static_cast<int>(std::min_element(group, group + kLevelGroup) - costs);
            }
        }
    }
    return from;
}

StixelSearch::StixelSearch() = default;
StixelSearch::~StixelSearch() = default;

void StixelSearch::resize(const CellGrid& grid, float max_disparity) {
    levels_.clear();
    float d = 0.5f;
    while (levels_.size() < kMaxLevels &&
           (d < max_disparity + 2 || levels_.size() % kLevelGroup != 0)) {
        levels_.push_back(d);
        d += d < 32 ? 0.5f : (d < 64 ? 1.0f : 2.0f);
    }
    segments_.resize(static_cast<std::size_t>(grid.columns()));
    for (auto& list : segments_) list.reserve(64);
}

void StixelSearch::run(const CellGrid& grid, float focal_px, const GroundModel* ground) {
    new_segment_ = std::max(kLeastNewSegment, kNewSegment - std::log(kBorderFocal / focal_px));
    constexpr int kColumnsPerTask = 8;
    const int tasks = (grid.columns() + kColumnsPerTask - 1) / kColumnsPerTask;
    scratch_.reserve([](Scratch&) {});
    parallelFor(tasks, [&](int task) {
        const auto scratch = scratch_.take();
        const int end = std::min(grid.columns(), (task + 1) * kColumnsPerTask);
        for (int column = task * kColumnsPerTask; column < end; ++column)
            runColumn(grid, ground, column, *scratch);
    });
}

void StixelSearch::runColumn(const CellGrid& grid, const GroundModel* ground, int column,
                             Scratch& scratch) {
    scratch.new_segment = new_segment_;
    Column& in = scratch.column;
    in.bins = std::min(grid.bins(), kMaxBins);

    // The column, turned over: index 0 is the bottom.
    const GroundModel surface = ground ? ground->inColumn(grid.centreX(column)) : GroundModel();
    float low = kNever;
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
                in.ground[t] = surface.groundOf(in.plane[t]);
        }
        if (in.kind[t] != CellKind::kEmpty) {
            low = std::min(low, in.d[t]);
            high = std::max(high, in.d[t]);
        }
    }
    in.height_mm = ground ? static_cast<float>(ground->height_mm) : 0;
    for (int j = 0; j < kRaised; ++j) {
        const float height = in.height_mm;
        in.ratio[j] = kRises[j] < 0.6f * height ? height / (height - kRises[j]) : 0;
    }
    segments_[column].clear();
    if (high <= 0)
        return;

    // Only levels near what was seen can be the best.
    const auto levelOf = [&](float d) {
        return static_cast<int>(std::lower_bound(levels_.begin(), levels_.end(), d) -
                                levels_.begin());
    };
    const int last_group = static_cast<int>(levels_.size()) / kLevelGroup - 1;
    const int first = std::min(std::max(0, levelOf(low - 1)) / kLevelGroup, last_group);
    const int last = std::min(levelOf(high + 1) / kLevelGroup, last_group);
    scratch.groups = last - first + 1;
    const float* level = levels_.data() + first * kLevelGroup;
    scratch.forward(level, ground != nullptr);

    // Back from the top.
    const Scratch::Row& top = scratch.rows[in.bins - 1];
    int state = scratch.bestObjectAt(in.bins - 1);
    float best = scratch.cost.row(in.bins - 1)[state];
    const auto offer = [&](float value, int code) {
        if (value < best) {
            best = value;
            state = code;
        }
    };
    offer(top.ground, kFromGround);
    offer(top.sky, kFromSky);
    for (int j = 0; j < kRaised; ++j) offer(top.raised[j], kFromRaised + j);
    int end = in.bins;  // of the segment that is being followed down
    for (int t = in.bins - 1; t >= 0; --t) {
        scratch.path[t] = static_cast<std::uint8_t>(state);
        const int from = t > 0 ? scratch.before(t, state, level) : state;
        const bool goes_on = t > 0 && (from == state || (state < kMaxLevels && from == state + 1));
        if (!goes_on) {
            emit(grid, in, scratch.path.data(), level, column, t, end, segments_[column]);
            end = t;
        }
        state = from;
    }
    std::reverse(segments_[column].begin(), segments_[column].end());
}

}  // namespace kova::camera
