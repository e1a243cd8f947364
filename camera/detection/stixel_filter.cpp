#include "camera/detection/stixel_filter.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/detection/ground_profile.h"
#include "camera/detection/stixel_features.h"

namespace kova::camera {

namespace {

constexpr float kUnit10mInMm = 10000;
constexpr float kReferenceWidth = 1280;
constexpr float kDegreesPerRadian = 57.29577951f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
/// Evidence against ground and mean confidence without which a stixel is not even considered.
constexpr float kMinEvidence = 1;
constexpr float kMinConfidence = 0.25f;
/// A drop stands for itself.
constexpr float kMinDropEvidence = 14;
constexpr float kMinDropConfidence = 0.65f;
/// More for one shorter than the minimum length, at length 0.
constexpr float kShortEvidence = 20;
/// The height from which on something may be an obstacle, if the user wants it [mm].
constexpr float kLowestMm = 20;
/// An object whose foot was seen this low stands on the ground [mm].
constexpr float kStandsBelowMm = 200;
/// Without a ground only upright surfaces of some height count [mm].
constexpr float kMinHeightWithoutGround = 120;
constexpr float kMinSamplesWithoutGround = 3;
/// So many standard deviations of its disparity beyond the far limit, it may still be within.
constexpr float kRangeSigmas = 2;
constexpr float kMinDisparity = 0.25f;
constexpr int kMinBinsForSlope = 6;
/// A surface counts as a slope when its slant exceeds an upright one's by this much.
constexpr float kSlantSigmas = 1;
/// A lower edge of a surface parallel to the ground is no obstacle: it may be unevenness [mm].
constexpr float kMinEdgeMm = 90;
constexpr int kStepBins = 4;
/// Farther edges cannot be told from uneven ground [px].
constexpr float kMinDropDisparity = 6;
constexpr int kMinColumnsBesideDrop = 3;
constexpr float kSameEdgePart = 0.15f;
/// Cells without depth that a free path may lead over.
constexpr int kMaxGapBins = 4;

double dot(const std::array<double, 3>& p, const std::array<double, 3>& q) {
    return p[0] * q[0] + p[1] * q[1] + p[2] * q[2];
}

std::array<double, 3> pointAt(const RectifiedGeometry& geometry, double u, double v, double d) {
    const double z = geometry.fx * geometry.baseline_mm / d;
    return {(u - geometry.cx) / geometry.fx * z, (v - geometry.cy) / geometry.fy * z, z};
}

/// Evidence that one shorter than the minimum length needs besides [nat].
float shortEvidence(const StixelContext& context, const Stixel& stixel) {
    const float min_length =
        static_cast<float>(context.stixels.min_length * context.geometry.width) / kReferenceWidth;
    const float length = static_cast<float>(stixel.y_bottom - stixel.y_top);
    return length < min_length ? kShortEvidence * (1 - length / min_length) : 0.0f;
}

/// Mean distance of a row's measured pixels from a disparity, cut off at 2 px; 1 without any.
float rowMisfit(const StixelContext& context, int column, int y, float expected) {
    const std::uint16_t* d = context.map->disparity.row(y);
    const std::uint8_t* sure = context.map->confidence.row(y);
    const float offset = static_cast<float>(context.geometry.disparityOffset());
    float sum = 0;
    int count = 0;
    for (int x = context.grid->columnBegin(column); x < context.grid->columnEnd(column); ++x) {
        if (!isDisparity(d[x]) || sure[x] == kFilledConfidence)
            continue;
        const float value = static_cast<float>(d[x]) / kDisparityScale + offset;
        sum += std::min(2.0f, std::fabs(value - expected));
        ++count;
    }
    return count > 0 ? sum / static_cast<float>(count) : 1.0f;
}

/// Disparity of what is seen in a row above an object.
float behindAt(const StixelContext& context, const GroundModel& ground, int column, int y,
               const Segment* above) {
    if (!above || above->kind == SegmentKind::kSky)
        return 0;
    if (above->kind == SegmentKind::kObject)
        return above->disparity;
    const auto s = static_cast<float>(ground.planeAt(context.grid->centreX(column), y));
    const auto height = static_cast<float>(ground.height_mm);
    const float rise = above->kind == SegmentKind::kRaised ? above->rise_mm : 0;
    return s > 0 ? ground.groundOf(s) * height / (height - rise) : 0;
}

/// The row within one bin of `y` that parts an object below from what is above it best.
int refineTop(const StixelContext& context, const GroundModel& ground, int column, int y,
              float disparity, const Segment* above) {
    const int reach = context.grid->binPx();
    const int begin = std::max(0, y - reach);
    const int end = std::min(context.geometry.height - 1, y + reach);
    // Cost of calling rows above `row` background and the others object, less that of calling all
    // of them object.
    float cost = 0;
    float best = 0;
    int best_row = begin;
    for (int row = begin; row < end; ++row) {
        const float behind = behindAt(context, ground, column, row, above);
        cost +=
            rowMisfit(context, column, row, behind) - rowMisfit(context, column, row, disparity);
        if (cost < best) {
            best = cost;
            best_row = row + 1;
        }
    }
    return best_row;
}

}  // namespace

GroundAxes groundAxes(const GroundEstimate& ground) {
    GroundAxes axes;
    if (ground.state == GroundState::kLost)
        return axes;
    const auto& n = ground.model.down;
    const double along = n[2];
    axes.ahead = {-along * n[0], -along * n[1], 1 - along * n[2]};
    const double norm = std::sqrt(dot(axes.ahead, axes.ahead));
    for (double& value : axes.ahead) value /= norm;
    const auto& f = axes.ahead;
    axes.right = {n[1] * f[2] - n[2] * f[1], n[2] * f[0] - n[0] * f[2], n[0] * f[1] - n[1] * f[0]};
    return axes;
}

bool StixelFilter::makeStixel(const StixelContext& context, const Segment& segment,
                              const Segment* below, const Segment* above, int column,
                              StixelCandidate& candidate) const {
    const RectifiedGeometry& geometry = context.geometry;
    const double fb = geometry.fx * geometry.baseline_mm;
    const double u = context.grid->centreX(column);
    const auto& limits = context.obstacles;
    const bool has_ground = context.ground->state != GroundState::kLost;
    const GroundModel ground = context.ground->model.inColumn(u);

    Stixel& stixel = candidate.stixel;
    stixel = Stixel();
    stixel.column = column;
    stixel.x_begin = context.grid->columnBegin(column);
    stixel.x_end = context.grid->columnEnd(column);
    stixel.disparity = segment.too_near ? context.max_disparity : segment.disparity;
    stixel.sigma_px = segment.sigma_px;
    stixel.too_near = segment.too_near;
    if (stixel.disparity + kRangeSigmas * stixel.sigma_px < context.min_disparity ||
        stixel.disparity < kMinDisparity)
        return false;  // surely farther than asked for
    const float d = stixel.disparity;
    stixel.distance_mm = static_cast<float>(fb) / d;
    stixel.sigma_mm = stixel.distance_mm * stixel.sigma_px / d;
    stixel.confidence = segment.confidence;
    stixel.y_top = refineTop(context, ground, column, segment.y_top, d, above);
    stixel.y_bottom = std::max(segment.y_bottom, stixel.y_top + 1);
    const int bins = (segment.y_bottom - segment.y_top) / context.grid->binPx();
    candidate.evidence = segment.evidence;
    candidate.measured = segment.samples / static_cast<float>(std::max(1, bins));

    if (has_ground) {
        const auto planeAt = [&](int row) { return static_cast<float>(ground.planeAt(u, row)); };
        stixel.low_mm = ground.heightOver(planeAt(stixel.y_bottom - 1), d);
        stixel.high_mm = ground.heightOver(planeAt(stixel.y_top), d);
        const float sigma_height = static_cast<float>(ground.height_mm) * stixel.sigma_px *
                                   std::max(0.0f, planeAt(stixel.y_top)) / (d * d);
        if (!(stixel.high_mm >= std::max(kLowestMm, 3 * sigma_height)))
            return false;
        candidate.wanted = stixel.high_mm >= limits.obstacle_min_height * kUnit10mInMm &&
                           !(stixel.low_mm > limits.clearance);
        if (stixel.low_mm < kStandsBelowMm && !(below && below->kind == SegmentKind::kRaised)) {
            // It stands on the ground: its foot is where the ground has its disparity.
            const double row = (ground.planeOf(d) - ground.a * u - ground.c) / ground.b;
            int foot =
                std::clamp(static_cast<int>(std::lround(row)), stixel.y_top + 1, geometry.height);
            if (below && below->kind == SegmentKind::kObject)
                foot = std::min(foot, below->y_top);
            stixel.y_bottom = std::max(foot, stixel.y_top + 1);
            stixel.low_mm = std::max(0.0f, ground.heightOver(planeAt(stixel.y_bottom - 1), d));
            const float slant = segment.slant - kSlantSigmas * segment.slant_sigma;
            if (bins >= kMinBinsForSlope && slant > 0) {
                const float half =
                    0.5f * slant * static_cast<float>(segment.y_bottom - segment.y_top);
                const float far_d = std::max(0.3f * d, d - half);
                const float run = static_cast<float>(fb) * (1 / far_d - 1 / (d + half));
                const float rise = ground.heightOver(planeAt(segment.y_top), far_d) -
                                   ground.heightOver(planeAt(segment.y_bottom - 1), d + half);
                if (std::atan2(rise, run) * kDegreesPerRadian <= limits.max_ground_slope)
                    candidate.wanted = false;  // a slope that is still ground
            }
        }
    } else {
        stixel.low_mm = stixel.high_mm = kNaN;
        const float extent = static_cast<float>(stixel.y_bottom - stixel.y_top) *
                             stixel.distance_mm / static_cast<float>(geometry.fy);
        if (extent < kMinHeightWithoutGround || segment.samples < kMinSamplesWithoutGround)
            return false;
        candidate.wanted = extent >= limits.obstacle_min_height * kUnit10mInMm;
        const float drift = segment.slant * static_cast<float>(segment.y_bottom - segment.y_top);
        if (stixel.distance_mm * std::fabs(drift) / d > extent)
            return false;  // lies rather than stands
    }

    if (candidate.evidence - shortEvidence(context, stixel) < kMinEvidence)
        candidate.wanted = false;
    // What is seen behind something nearer may well stand behind it.
    candidate.hangs = has_ground && stixel.low_mm > kStandsBelowMm &&
                      !(below && below->kind == SegmentKind::kObject &&
                        below->disparity > d - std::max(1.0f, 0.05f * d));
    candidate.texture = segment.texture;
    if (has_ground && segment.slant_sigma > 0) {
        const float off = segment.slant - static_cast<float>(ground.b);
        candidate.upright = (off * off - segment.slant * segment.slant) /
                            (2 * segment.slant_sigma * segment.slant_sigma);
    }
    if (candidate.evidence < kMinEvidence || stixel.confidence < kMinConfidence)
        return false;

    const auto point = pointAt(geometry, u, 0.5 * (stixel.y_top + stixel.y_bottom), d);
    stixel.ahead_mm = static_cast<float>(dot(point, axes_.ahead));
    stixel.lateral_mm = static_cast<float>(dot(point, axes_.right));
    return true;
}

/// The edge of a surface that lies higher than what is before it: an obstacle, while the surface
/// behind the edge is none.
bool StixelFilter::makeEdge(const StixelContext& context, const std::vector<Segment>& segments,
                            std::size_t index, int column, StixelCandidate& candidate) const {
    const Segment& segment = segments[index];
    // The face of an edge may pass as a few narrow steps.
    const auto isStep = [&](std::size_t i) {
        return i + 1 < segments.size() && segments[i].kind == SegmentKind::kRaised &&
               segments[i + 1].kind == SegmentKind::kRaised &&
               segments[i + 1].rise_mm > segments[i].rise_mm &&
               segments[i].y_bottom - segments[i].y_top <= kStepBins * context.grid->binPx();
    };
    if (isStep(index))
        return false;
    std::size_t lowest = index;
    while (lowest > 0 && isStep(lowest - 1)) --lowest;
    const int y_edge = segment.y_bottom;
    const Segment* below = lowest > 0 ? &segments[lowest - 1] : nullptr;
    const RectifiedGeometry& geometry = context.geometry;
    const GroundModel ground = context.ground->model.inColumn(context.grid->centreX(column));
    float before = 0;
    if (below && below->kind == SegmentKind::kRaised)
        before = below->rise_mm;
    else if (!below || below->kind != SegmentKind::kGround)
        return false;
    if (segment.rise_mm - before < kMinEdgeMm)
        return false;
    const double u = context.grid->centreX(column);
    const float height = static_cast<float>(ground.height_mm);
    // The face of the edge has one disparity: that of the ground at its foot and of the surface at
    // its rim. The optimisation goes over from one to the other where both fit it equally badly,
    // halfway up the face.
    const auto ratioOf = [&](float rise) { return height / (height - rise); };
    const float ratio = ratioOf(segment.rise_mm);
    const Segment& next = segments[index - 1];
    const float ratio_below = next.kind == SegmentKind::kRaised ? ratioOf(next.rise_mm) : 1.0f;
    const float s = static_cast<float>(ground.planeAt(u, y_edge));
    const float d = ground.groundOf(s) * 0.5f * (ratio + ratio_below);
    const double rim = (ground.planeOf(d / ratio) - ground.a * u - ground.c) / ground.b;
    const double foot = (ground.planeOf(d) - ground.a * u - ground.c) / ground.b;
    Stixel& stixel = candidate.stixel;
    stixel = Stixel();
    stixel.column = column;
    stixel.x_begin = context.grid->columnBegin(column);
    stixel.x_end = context.grid->columnEnd(column);
    stixel.disparity = d;
    stixel.sigma_px = segment.sigma_px > 0 ? std::min(segment.sigma_px, 0.4f) : 0.4f;
    stixel.distance_mm = static_cast<float>(geometry.fx * geometry.baseline_mm) / d;
    stixel.sigma_mm = stixel.distance_mm * stixel.sigma_px / d;
    stixel.confidence = segment.confidence;
    stixel.y_top = std::clamp(static_cast<int>(std::lround(rim)), 0, geometry.height - 1);
    candidate.edge = true;
    stixel.y_bottom =
        std::clamp(static_cast<int>(std::lround(foot)), stixel.y_top + 1, geometry.height);
    stixel.low_mm = 0;
    stixel.high_mm = segment.rise_mm;
    const float sigma_height = height * stixel.sigma_px * s / (d * d);
    if (stixel.high_mm < 3 * sigma_height || segment.evidence < kMinEvidence)
        return false;
    candidate.evidence = segment.evidence - shortEvidence(context, stixel);
    candidate.wanted = stixel.high_mm >= context.obstacles.obstacle_min_height * kUnit10mInMm &&
                       candidate.evidence >= kMinEvidence;
    const auto point = pointAt(geometry, u, stixel.y_top, d);
    stixel.ahead_mm = static_cast<float>(dot(point, axes_.ahead));
    stixel.lateral_mm = static_cast<float>(dot(point, axes_.right));
    return true;
}

/// What begins below the ground's height is seen over the edge of a drop. True when all of it lies
/// below the ground; what reaches higher, a wall beyond the edge, is judged as an obstacle too.
bool StixelFilter::collectDrop(const StixelContext& context, const Segment& segment,
                               const Segment* below, int column, std::vector<Drop>& drops) const {
    const GroundModel ground = context.ground->model.inColumn(context.grid->centreX(column));
    const double u = context.grid->centreX(column);
    const int bin = context.grid->binPx();
    const float d = segment.disparity;
    const auto depthAt = [&](double row) {
        return -ground.heightOver(static_cast<float>(ground.planeAt(u, row)), d);
    };
    const bool wholly = depthAt(segment.y_top + 0.5 * bin) > 0;
    // Around the edge the matcher smears: what counts lies a little above it.
    const double row = wholly ? segment.y_top + 0.5 * bin : segment.y_bottom - 1.5 * bin;
    const float depth = depthAt(row);
    const float sigma = static_cast<float>(ground.height_mm) * segment.sigma_px *
                        std::max(0.0f, static_cast<float>(ground.planeAt(u, row))) / (d * d);
    const double level_row = (ground.planeOf(d) - ground.a * u - ground.c) / ground.b;
    const bool over_an_edge = below && below->kind == SegmentKind::kGround &&
                              segment.y_bottom - level_row > 2.5 * bin &&
                              segment.confidence >= kMinDropConfidence;
    if (depth > std::max(context.obstacles.min_drop, 4 * sigma) &&
        segment.evidence > kMinDropEvidence && (wholly || over_an_edge) &&
        ground.planeAt(u, segment.y_bottom) >= kMinDropDisparity) {
        if (below && below->kind == SegmentKind::kObject && !drops.empty() &&
            drops.back().column == column) {
            drops.back().y_top = std::min(drops.back().y_top, segment.y_top);
            return wholly;  // more of the surface beyond the same edge
        }
        Drop drop;
        drop.column = column;
        drop.depth_mm = depth;
        drop.y_top = std::max(segment.y_top, static_cast<int>(std::max(0.0, level_row)));
        drop.y_bottom = segment.y_bottom;
        const float edge = ground.groundOf(static_cast<float>(ground.planeAt(u, segment.y_bottom)));
        const auto point = pointAt(context.geometry, u, segment.y_bottom, edge);
        drop.ahead_mm = static_cast<float>(dot(point, axes_.ahead));
        drop.lateral_mm = static_cast<float>(dot(point, axes_.right));
        drops.push_back(drop);
    }
    return wholly;
}

void StixelFilter::collectColumn(const StixelContext& context, const std::vector<Segment>& segments,
                                 int column, Part& part) const {
    const bool has_ground = context.ground->state != GroundState::kLost;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const Segment& segment = segments[i];
        if (segment.kind == SegmentKind::kRaised) {
            StixelCandidate candidate;
            if (makeEdge(context, segments, i, column, candidate))
                part.candidates.push_back(candidate);
            continue;
        }
        if (segment.kind != SegmentKind::kObject)
            continue;
        const Segment* below = i > 0 ? &segments[i - 1] : nullptr;
        const Segment* above = i + 1 < segments.size() ? &segments[i + 1] : nullptr;
        if (has_ground && segment.disparity > 0 &&
            collectDrop(context, segment, below, column, part.drops))
            continue;
        StixelCandidate candidate;
        if (makeStixel(context, segment, below, above, column, candidate))
            part.candidates.push_back(candidate);
    }
}

/// An edge is wider than two columns.
void StixelFilter::dropLoneDrops(DetectionFrame& frame) {
    drops_.clear();
    const int count = static_cast<int>(frame.drops.size());
    for (int i = 0; i < count; ++i) {
        const Drop& one = frame.drops[i];
        int beside = 0;
        for (int k = std::max(0, i - 6); k < std::min(count, i + 7); ++k) {
            const Drop& other = frame.drops[k];
            const int apart = std::abs(other.column - one.column);
            beside += apart >= 1 && apart <= 3 &&
                      std::fabs(other.ahead_mm - one.ahead_mm) < kSameEdgePart * one.ahead_mm;
        }
        if (beside >= kMinColumnsBesideDrop)
            drops_.push_back(one);
    }
    std::swap(frame.drops, drops_);
}

void StixelFilter::freeRange(const StixelContext& context, const std::vector<Segment>& segments,
                             int column, ColumnRange& range) const {
    range.free_mm = 0;
    if (context.ground->state == GroundState::kLost || segments.empty() ||
        segments.front().kind != SegmentKind::kGround)
        return;
    const CellGrid& grid = *context.grid;
    const GroundModel ground = context.ground->model.inColumn(context.grid->centreX(column));
    const int crop = context.stixels.crop_bottom;
    int gap = 0;
    const int first = (context.geometry.height - crop - 1) / grid.binPx();
    for (int bin = first; bin >= segments.front().y_top / grid.binPx(); --bin) {
        const std::size_t cell = grid.index(column, bin);
        const float s = static_cast<float>(ground.planeAt(grid.centreX(column), grid.centreY(bin)));
        if (s < 1)
            break;
        const float g = ground.groundOf(s);
        const bool seen = grid.kind[cell] == CellKind::kMeasured &&
                          std::fabs(grid.disparity[cell] - g) < 2 * groundTolerance(s);
        if (!seen) {
            if (++gap > kMaxGapBins)
                break;
            continue;
        }
        gap = 0;
        const auto point = pointAt(context.geometry, grid.centreX(column), grid.centreY(bin), g);
        range.free_mm = static_cast<float>(dot(point, axes_.ahead));
    }
}

void StixelFilter::measureFeatures(const StixelContext& context) {
    constexpr int kPerTask = 8;
    const int count = static_cast<int>(candidates_.size());
    parallelFor((count + kPerTask - 1) / kPerTask, [&](int task) {
        for (int i = task * kPerTask; i < std::min(count, (task + 1) * kPerTask); ++i)
            if (StixelCandidate& one = candidates_[i]; isJudged(one))
                one.features = featuresOf(context, one);
    });
}

void StixelFilter::run(const StixelContext& context, const StixelSearch& search,
                       DetectionFrame& frame) {
    const CellGrid& grid = *context.grid;
    axes_ = groundAxes(*context.ground);
    frame.stixels.clear();
    frame.columns.resize(static_cast<std::size_t>(grid.columns()));
    first_.assign(static_cast<std::size_t>(grid.columns()) + 1, 0);
    parallelFor(kParts, [&](int p) {
        Part& part = parts_[p];
        part.candidates.clear();
        part.drops.clear();
        const int end = grid.columns() * (p + 1) / kParts;
        for (int column = grid.columns() * p / kParts; column < end; ++column) {
            collectColumn(context, search.segments(column), column, part);
            first_[column + 1] = static_cast<int>(part.candidates.size());
            ColumnRange& range = frame.columns[column];
            range = ColumnRange();
            range.x_begin = grid.columnBegin(column);
            range.x_end = grid.columnEnd(column);
            freeRange(context, search.segments(column), column, range);
        }
    });
    candidates_.clear();
    frame.drops.clear();
    for (int p = 0; p < kParts; ++p) {
        const Part& part = parts_[p];
        const int end = grid.columns() * (p + 1) / kParts;
        for (int column = grid.columns() * p / kParts; column < end; ++column)
            first_[column + 1] += static_cast<int>(candidates_.size());
        candidates_.insert(candidates_.end(), part.candidates.begin(), part.candidates.end());
        frame.drops.insert(frame.drops.end(), part.drops.begin(), part.drops.end());
    }
    measureFeatures(context);
    support_.run(context.half_size ? kHalfStixelJudge : kFullStixelJudge, first_, candidates_);
    dropLoneDrops(frame);
    for (int column = 0; column < grid.columns(); ++column) {
        const std::size_t begin = frame.stixels.size();
        for (int i = first_[column]; i < first_[column + 1]; ++i)
            if (candidates_[i].kept)
                frame.stixels.push_back(candidates_[i].stixel);
        // Stable, in place: a column has few.
        const auto first = frame.stixels.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto nearer = [](const Stixel& p, const Stixel& q) {
            return p.distance_mm < q.distance_mm;
        };
        for (auto next = first; next != frame.stixels.end(); ++next)
            std::rotate(std::upper_bound(first, next, *next, nearer), next, next + 1);
        const std::size_t most =
            begin + static_cast<std::size_t>(std::max(0, context.stixels.max_layers));
        if (frame.stixels.size() > most)
            frame.stixels.resize(most);
    }
}

}  // namespace kova::camera
