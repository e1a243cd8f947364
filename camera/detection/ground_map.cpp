#include "camera/detection/ground_map.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/detection/ground_profile.h"
#include "camera/detection/map_kernel.h"

namespace kova::camera {

namespace {

constexpr std::int32_t kUnsure = -1;
constexpr std::int32_t kGround = -2;
constexpr float kUnit10mInMm = 10000;
constexpr float kDegreesPerRadian = 57.29577951f;
/// Change of the picture over 4 px by that over 1 px: 1 for noise alone, more for any surface.
constexpr float kMinTexture = 1.15f;
constexpr double kFootSlack = 2;     // rows by which a foot may be lower than its disparity says
constexpr double kHighestFace = 24;  // of a thing whose foot seems to be ground [rows]

/// Whether the picture shows more than noise around a cell. In a bright sky noise alone passes the
/// grid's test, and the matcher carries depth into it from the roofs below.
bool showsSurface(const CellGrid& grid, int column, int bin) {
    if (grid.kind[grid.index(column, bin)] == CellKind::kEmpty)
        return false;
    float fine = 0;
    float coarse = 0;
    for (int c = std::max(0, column - 1); c <= std::min(grid.columns() - 1, column + 1); ++c) {
        for (int b = std::max(0, bin - 2); b <= std::min(grid.bins() - 1, bin + 2); ++b) {
            fine += grid.fine[grid.index(c, b)];
            coarse += grid.coarse[grid.index(c, b)];
        }
    }
    return coarse >= kMinTexture * fine;
}

/// The row from which on a piece of ground is that: before what stands on it nothing is farther
/// than its foot. What seems to be is its face, where that differs from the ground by less than
/// noise.
int topOfGround(const GroundModel& ground, double u, int y_top, const Segment& above) {
    const auto s = static_cast<float>(ground.planeAt(u, y_top));
    if (above.kind != SegmentKind::kObject || s <= 1)
        return y_top;
    const double face = (above.disparity - ground.groundOf(s)) / ground.b + kFootSlack;
    // What hangs over the ground has no foot.
    return face > 0 && face <= kHighestFace ? y_top + static_cast<int>(std::lround(face)) : y_top;
}

}  // namespace

/// For every pixel of a row, what depth it must have to be what; a column writes past its end into
/// the next one, which is written after it.
struct GroundMapper::Expected {
    static constexpr int kAtOnce = 8;
    std::vector<std::uint16_t> low, high;
    std::vector<std::uint8_t> value;

    void resize(int width) {
        const auto size = static_cast<std::size_t>(width + kAtOnce);
        low.resize(size);
        high.resize(size);
        value.resize(size);
    }
    void set(int x_begin, int x_end, float least, float most, std::uint8_t label) {
        constexpr float kMost = kFirstReservedDisparity - 1;
        const bool none = most < 0 || least > kMost;
        const auto from = static_cast<std::uint16_t>(none ? 1 : std::max(0.0f, least));
        const auto to = static_cast<std::uint16_t>(none ? 0 : std::min(kMost, most));
        for (int x = x_begin; x < x_end; x += kAtOnce) {
            std::fill_n(low.data() + x, kAtOnce, from);
            std::fill_n(high.data() + x, kAtOnce, to);
            std::fill_n(value.data() + x, kAtOnce, label);
        }
    }
};

GroundMapper::GroundMapper() = default;
GroundMapper::~GroundMapper() = default;

void GroundMapper::labelRows(const StixelContext& context, const StixelSearch& search,
                             const DetectionFrame& frame) {
    const int columns = context.grid->columns();
    height_ = context.geometry.height;
    labels_.resize(static_cast<std::size_t>(columns) * height_);
    in_column_.resize(static_cast<std::size_t>(columns));
    parallelFor(columns, [&](int column) {
        std::int32_t* label = labels_.data() + static_cast<std::size_t>(column) * height_;
        std::fill(label, label + height_, kUnsure);
        const double u = context.grid->centreX(column);
        GroundModel& ground = in_column_[static_cast<std::size_t>(column)];
        ground = context.ground->model.inColumn(u);
        if (context.ground->state == GroundState::kLost)
            return;
        const std::vector<Segment>& segments = search.segments(column);
        for (std::size_t i = 0; i < segments.size(); ++i) {
            const Segment& segment = segments[i];
            if (segment.kind != SegmentKind::kGround)
                continue;
            const int top = i + 1 < segments.size()
                                ? topOfGround(ground, u, segment.y_top, segments[i + 1])
                                : segment.y_top;
            for (int y = top; y < segment.y_bottom; ++y) {
                const float s = static_cast<float>(ground.planeAt(u, y));
                if (s > 1 && std::fabs(ground.slopeAt(s, context.geometry)) * kDegreesPerRadian <=
                                 context.obstacles.max_ground_slope)
                    label[y] = kGround;
            }
        }
    });
    for (std::size_t i = 0; i < frame.stixels.size(); ++i) {
        const Stixel& stixel = frame.stixels[i];
        std::int32_t* label = labels_.data() + static_cast<std::size_t>(stixel.column) * height_;
        for (int y = stixel.y_top; y < stixel.y_bottom; ++y)
            label[y] = stixel.confirmed ? static_cast<std::int32_t>(i) : kUnsure;
    }
}

void GroundMapper::dropSmallRegions(const StixelContext& context) {
    const CellGrid& grid = *context.grid;
    const int columns = grid.columns();
    const int bins = grid.bins();
    const auto isGround = [&](int column, int bin) {
        const int y = std::min(height_ - 1, bin * grid.binPx() + grid.binPx() / 2);
        return labels_[static_cast<std::size_t>(column) * height_ + y] == kGround;
    };
    const double least = context.obstacles.ground_min_region * 0.001 *
                         static_cast<double>(context.geometry.width) * context.geometry.height;
    region_.assign(static_cast<std::size_t>(columns) * bins, 0);
    std::int32_t region = 0;
    for (int start = 0; start < columns * bins; ++start) {
        if (region_[start] != 0 || !isGround(start / bins, start % bins))
            continue;
        ++region;
        stack_.clear();
        stack_.push_back(start);
        region_[start] = region;
        double area = 0;
        for (std::size_t next = 0; next < stack_.size(); ++next) {
            const int column = stack_[next] / bins;
            const int bin = stack_[next] % bins;
            area += static_cast<double>(grid.columnEnd(column) - grid.columnBegin(column)) *
                    (grid.binEnd(bin) - bin * grid.binPx());
            const int neighbours[4][2] = {
                {column - 1, bin}, {column + 1, bin}, {column, bin - 1}, {column, bin + 1}};
            for (const auto& n : neighbours) {
                if (n[0] < 0 || n[0] >= columns || n[1] < 0 || n[1] >= bins)
                    continue;
                const int cell = n[0] * bins + n[1];
                if (region_[cell] == 0 && isGround(n[0], n[1])) {
                    region_[cell] = region;
                    stack_.push_back(cell);
                }
            }
        }
        if (area >= least)
            continue;
        for (const std::int32_t cell : stack_) {
            const int column = cell / bins;
            const int bin = cell % bins;
            std::int32_t* label = labels_.data() + static_cast<std::size_t>(column) * height_;
            for (int y = bin * grid.binPx(); y < grid.binEnd(bin); ++y)
                if (label[y] == kGround)
                    label[y] = kUnsure;
        }
    }
}

void GroundMapper::paintRow(const StixelContext& context, const ImageView<const std::uint8_t>& left,
                            int y, Expected& expected, DetectionFrame& frame) const {
    const CellGrid& grid = *context.grid;
    const float offset = static_cast<float>(context.geometry.disparityOffset());
    const float foot = context.obstacles.obstacle_foot_height * kUnit10mInMm /
                       static_cast<float>(context.ground->model.height_mm);
    const std::uint16_t* d = context.map->disparity.row(y);
    bool any_too_near = false;
    for (int column = 0; column < grid.columns(); ++column) {
        const std::int32_t label = labels_[static_cast<std::size_t>(column) * height_ + y];
        float at = -1;
        float tolerance = 0;
        std::uint8_t value = kMapUnsure;
        if (label == kGround) {
            const GroundModel& surface = in_column_[static_cast<std::size_t>(column)];
            const float s = static_cast<float>(surface.planeAt(grid.centreX(column), y));
            at = surface.groundOf(s) - offset;
            // A pixel is noisier than a cell; higher than the foot of an obstacle is not ground.
            tolerance = std::max(2 * groundTolerance(s), s * foot);
            value = kMapGround;
        } else if (label != kUnsure) {
            const Stixel& stixel = frame.stixels[static_cast<std::size_t>(label)];
            if (stixel.too_near) {
                any_too_near = true;
            } else if (surface_[grid.index(column, y / grid.binPx())]) {
                at = stixel.disparity - offset;
                tolerance = 1.5f + 0.06f * stixel.disparity;
                value = kMapObstacle;
            }
        }
        expected.set(grid.columnBegin(column), grid.columnEnd(column),
                     (at - tolerance) * kDisparityScale, (at + tolerance) * kDisparityScale, value);
    }
    MapRow row;
    row.width = frame.width;
    row.disparity = d;
    row.confidence = context.map->confidence.row(y);
    row.grey = left.row(y);
    row.low = expected.low.data();
    row.high = expected.high.data();
    row.value = expected.value.data();
    std::uint8_t* out = frame.ground_map.row(y);
    paintMapRow(row, out);
    if (!any_too_near)
        return;
    for (int column = 0; column < grid.columns(); ++column) {
        const std::int32_t label = labels_[static_cast<std::size_t>(column) * height_ + y];
        if (label < 0 || !frame.stixels[static_cast<std::size_t>(label)].too_near)
            continue;
        for (int x = grid.columnBegin(column); x < grid.columnEnd(column); ++x)
            if (d[x] == kTooNearDisparity)
                out[x] = kMapObstacle;
    }
}

void GroundMapper::run(const StixelContext& context, const StixelSearch& search,
                       const ImageView<const std::uint8_t>& left, DetectionFrame& frame) {
    labelRows(context, search, frame);
    dropSmallRegions(context);
    const CellGrid& grid = *context.grid;
    surface_.resize(grid.kind.size());
    for (const Stixel& stixel : frame.stixels) {
        const int end = std::min(grid.bins(), (stixel.y_bottom - 1) / grid.binPx() + 1);
        for (int bin = stixel.y_top / grid.binPx(); bin < end; ++bin)
            surface_[grid.index(stixel.column, bin)] = showsSurface(grid, stixel.column, bin);
    }
    constexpr int kRowsPerTask = 32;
    const int tasks = (frame.height + kRowsPerTask - 1) / kRowsPerTask;
    const int bottom = frame.height - context.stixels.crop_bottom;
    scratch_.reserve([&](Expected& expected) { expected.resize(frame.width); });
    parallelFor(tasks, [&](int task) {
        const auto expected = scratch_.take();
        const int end = std::min(frame.height, (task + 1) * kRowsPerTask);
        for (int y = task * kRowsPerTask; y < end; ++y) {
            if (y < context.stixels.crop_top || y >= bottom)
                std::fill(frame.ground_map.row(y), frame.ground_map.row(y) + frame.width,
                          kMapUnsure);
            else
                paintRow(context, left, y, *expected, frame);
        }
    });
}

}  // namespace kova::camera
