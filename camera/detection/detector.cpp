#include "camera/detection/detector.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "camera/detection/cell_grid.h"
#include "camera/detection/compared_pictures.h"
#include "camera/detection/gravity_filter.h"
#include "camera/detection/ground_map.h"
#include "camera/detection/ground_tracker.h"
#include "camera/detection/obstacle_tracker.h"
#include "camera/detection/stixel_filter.h"
#include "camera/detection/stixel_search.h"

namespace kova::camera {

namespace {

constexpr int kReferenceWidth = 1280;
/// Below that ramps far away are seen in too few rows for cells of eight.
constexpr int kHdWidth = 1000;
constexpr int kCellRows = 4, kHalfSizeCellRows = 8;
constexpr int kDarkMedian = 12;
constexpr int kSaturatedValue = 252;
constexpr float kSaturatedPart = 0.2f;
constexpr float kLowTexturePart = 0.25f;

/// Looks at every fourth pixel of every fourth row.
DetectionHealth judgePicture(const ImageView<const std::uint8_t>& left, const CellGrid& grid) {
    DetectionHealth health;
    int histogram[256] = {};
    int count = 0;
    for (int y = 0; y < left.height; y += 4)
        for (int x = 0; x < left.width; x += 4) {
            ++histogram[left.at(x, y)];
            ++count;
        }
    double sum = 0;
    int below = 0;
    int median = 255;
    int saturated = 0;
    for (int value = 0; value < 256; ++value) {
        sum += static_cast<double>(value) * histogram[value];
        below += histogram[value];
        if (median == 255 && 2 * below >= count)
            median = value;
        if (value >= kSaturatedValue)
            saturated += histogram[value];
    }
    const float all = static_cast<float>(std::max(1, count));
    health.brightness = static_cast<float>(sum) / all;
    health.saturated_part = static_cast<float>(saturated) / all;
    health.too_dark = median < kDarkMedian;
    health.saturated = health.saturated_part > kSaturatedPart;
    const auto empty = std::count(grid.kind.begin(), grid.kind.end(), CellKind::kEmpty);
    health.measured_part = 1 - static_cast<float>(empty) /
                                   static_cast<float>(std::max<std::size_t>(1, grid.kind.size()));
    health.low_texture = health.measured_part < kLowTexturePart;
    return health;
}

/// Notes how long each stage takes.
class StageClock {
public:
    explicit StageClock(DetectionTimes& times) : times_(times) {}
    void done(DetectionStage stage) {
        const auto now = Clock::now();
        times_[stage] = std::chrono::duration<double, std::milli>(now - last_).count();
        last_ = now;
    }

private:
    using Clock = std::chrono::steady_clock;
    DetectionTimes& times_;
    Clock::time_point last_ = Clock::now();
};

}  // namespace

const char* stageName(DetectionStage stage) {
    switch (stage) {
        case kCells:
            return "cells";
        case kGroundFit:
            return "ground";
        case kSearch:
            return "stixel search";
        case kJudging:
            return "stixels judged";
        case kTracking:
            return "obstacles tracked";
        case kMapping:
            return "ground map";
        case kDetectionStages:
            break;
    }
    return "";
}

struct Detector::Impl {
    ComparedPictures pictures;
    CellGrid grid;
    CellGrid finer_grid;  ///< for ramps, where the other is too coarse
    GravityFilter gravity;
    GroundTracker ground;
    StixelSearch search;
    StixelFilter filter;
    ObstacleTracker obstacles;
    GroundMapper mapper;
    DetectionTimes times{};
    int width = 0, height = 0, column_px = 0;
    float max_disparity = 0;
    bool half_size = false, has_finer = false;

    void fit(const DetectionInput& input, const DetectionSettings& settings) {
        const RectifiedGeometry& geometry = input.geometry;
        const int columns_px = std::clamp(
            (settings.stixels.width * geometry.width + kReferenceWidth / 2) / kReferenceWidth, 2,
            128);
        const float end = static_cast<float>(input.max_disparity + geometry.disparityOffset());
        if (width == geometry.width && height == geometry.height && column_px == columns_px &&
            max_disparity == end && half_size == input.half_size)
            return;
        if (width != geometry.width || height != geometry.height)
            reset();
        width = geometry.width;
        height = geometry.height;
        column_px = columns_px;
        max_disparity = end;
        half_size = input.half_size;
        pictures.resize(width, height);
        grid.resize(width, height, column_px, input.half_size ? kHalfSizeCellRows : kCellRows);
        has_finer = input.half_size && width < kHdWidth;
        if (has_finer)
            finer_grid.resize(width, height, column_px, kCellRows);
        search.resize(grid, end);
    }

    void reset() {
        gravity.reset();
        ground.reset();
        obstacles.reset();
    }
};

Detector::Detector() : impl_(std::make_unique<Impl>()) {}
Detector::~Detector() = default;

void Detector::reset() {
    impl_->reset();
}

const std::vector<StixelCandidate>& Detector::candidates() const {
    return impl_->filter.candidates();
}

const DetectionTimes& Detector::times() const {
    return impl_->times;
}

void Detector::detect(const DetectionInput& input, const DetectionSettings& settings,
                      DetectionFrame& frame) {
    Impl& my = *impl_;
    my.fit(input, settings);
    frame.t_ns = input.t_ns;
    frame.width = input.geometry.width;
    frame.height = input.geometry.height;
    frame.column_px = my.column_px;
    frame.geometry = input.geometry;
    frame.ground_map.resize(frame.width, frame.height);

    const bool imu = settings.use_imu && input.imu;
    if (imu)
        my.gravity.update(*input.imu);
    const GravityFilter* gravity = imu && my.gravity.ready() ? &my.gravity : nullptr;

    StixelContext context;
    context.grid = &my.grid;
    context.pictures = &my.pictures;
    context.map = input.map;
    context.half_size = input.half_size;
    context.geometry = input.geometry;
    context.ground = &frame.ground;
    context.min_disparity =
        static_cast<float>(input.min_disparity + input.geometry.disparityOffset());
    context.max_disparity = my.max_disparity;
    context.obstacles = settings.obstacles;
    context.stixels = settings.stixels;
    context.stixels.crop_top = std::clamp(context.stixels.crop_top, 0, frame.height);
    context.stixels.crop_bottom =
        std::clamp(context.stixels.crop_bottom, 0, frame.height - context.stixels.crop_top);

    StageClock clock(my.times);
    my.pictures.set(input.left, input.right, input.map->noisy);
    my.grid.reduce(input.left, my.pictures, *input.map, input.geometry.disparityOffset(),
                   context.stixels.crop_top, context.stixels.crop_bottom);
    frame.health = judgePicture(input.left, my.grid);
    frame.health.dropped_frames = input.dropped_frames;
    clock.done(kCells);
    if (my.has_finer)
        my.finer_grid.reduce(input.left, my.pictures, *input.map, input.geometry.disparityOffset(),
                             context.stixels.crop_top, context.stixels.crop_bottom);
    frame.ground = my.ground.update(
        my.grid, my.has_finer ? my.finer_grid : my.grid, input.geometry, gravity, input.t_ns,
        static_cast<float>(settings.obstacles.ground_min_support) / 100, settings.temporal);
    clock.done(kGroundFit);
    my.search.run(my.grid, static_cast<float>(input.geometry.fy),
                  frame.ground.state == GroundState::kLost ? nullptr : &frame.ground.model);
    clock.done(kSearch);
    my.filter.run(context, my.search, frame);
    clock.done(kJudging);
    my.obstacles.update(input.geometry, gravity ? &gravity->rotation() : nullptr, settings.temporal,
                        frame);
    clock.done(kTracking);
    my.mapper.run(context, my.search, input.left, frame);
    clock.done(kMapping);
}

}  // namespace kova::camera
