#include "camera/pipeline/pipeline.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "camera/matching/points.h"

namespace kova::camera {

namespace {

/// Turns a picture by 180 degrees, in place.
template <typename T>
void turn(Image<T>& image) {
    const int height = image.height();
    const int width = image.width();
    for (int y = 0; y < height / 2; ++y)
        std::swap_ranges(image.row(y), image.row(y) + width,
                         std::make_reverse_iterator(image.row(height - 1 - y) + width));
    if (height % 2 == 1)
        std::reverse(image.row(height / 2), image.row(height / 2) + width);
}

RectifiedGeometry flipped(const RectifiedGeometry& g) {
    // The right eye, turned, is the new left one.
    RectifiedGeometry f = g;
    f.cx = g.width - 1 - g.cx_right;
    f.cx_right = g.width - 1 - g.cx;
    f.cy = g.height - 1 - g.cy;
    return f;
}

std::array<float, 3> rotated(const std::array<double, 9>& r, const std::array<float, 3>& v,
                             bool flip) {
    std::array<float, 3> out{};
    for (int i = 0; i < 3; ++i)
        out[i] = static_cast<float>(r[3 * i] * v[0] + r[3 * i + 1] * v[1] + r[3 * i + 2] * v[2]);
    if (flip) {
        out[0] = -out[0];
        out[1] = -out[1];
    }
    return out;
}

/// The clock of live frames.
std::int64_t monotonicNowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Pipeline::Pipeline(std::unique_ptr<Rectifier> rectifier)
    : rectifier_(std::move(rectifier)),
      flipped_geometry_(flipped(rectifier_->geometry())),
      aligner_(rectifier_->geometry()),
      row_offset_(aligner_.applied()),
      matcher_(makeMatcher()),
      distance_(rectifier_->geometry()) {}

std::unique_ptr<Pipeline> Pipeline::make(const StereoCalibration& calibration, Status& status) {
    std::unique_ptr<Rectifier> rectifier = Rectifier::make(calibration, status);
    if (!rectifier)
        return nullptr;
    return std::unique_ptr<Pipeline>(new Pipeline(std::move(rectifier)));
}

void Pipeline::reset() {
    detector_.reset();
}

void Pipeline::rectify(const DecodedFrame& frame, const PipelineSettings& settings) {
    if (settings.align_rows != aligning_) {
        aligning_ = settings.align_rows;
        aligner_.reset();
        rectifier_->alignRows(aligner_.applied());
    }
    row_offset_ = aligner_.applied();
    rectifier_->rectify(frame.pair.left.view(), frame.pair.right.view(), left_, right_);
    if (settings.flip) {
        turn(left_);
        turn(right_);
        std::swap(left_, right_);
    }
    // Of a frame that was decoded before the flip only the other eye's colours are there.
    const Image<Rgba>& colour = settings.flip ? frame.pair.right_colour : frame.pair.left_colour;
    has_colour_ = !colour.empty();
    if (has_colour_ && settings.flip) {
        rectifier_->rectifyRightColour(colour.view(), colour_);
        turn(colour_);
    } else if (has_colour_) {
        rectifier_->rectifyLeftColour(colour.view(), colour_);
    }
}

Status Pipeline::process(const DecodedFrame& frame, const PipelineSettings& settings) {
    rectify(frame, settings);
    if (settings.flip != flip_) {
        flip_ = settings.flip;
        detector_.reset();
    }
    distance_ = settings.distance;

    const RectifiedGeometry& geometry = this->geometry(flip_);
    const DisparityRange range = searchRange(geometry, distance_.minMm(), distance_.maxMm());
    MatchParameters match;
    match.work_mode = settings.work_mode;
    // What lies beyond the far limit must be found there, or it would match something nearer.
    match.min_disparity = 0;
    match.max_disparity = std::min(range.max, kMostDisparities);
    match.fill = settings.fill;
    match.borrow = !settings.detect;
    match.confidence_threshold = settings.confidence_threshold;
    if (Status s = matcher_->match(left_.view(), right_.view(), match, map_); !s.ok())
        return s;
    if (aligning_ && aligner_.update(left_.view(), right_.view(), map_, flip_))
        rectifier_->alignRows(aligner_.applied());
    has_frame_ = true;
    detected_ = settings.detect;
    if (!detected_)
        return {};

    imu_.clear();
    for (const ImuSample& sample : frame.imu) {
        ImuSample turned = sample;
        turned.accel = rotated(rectifier_->rectifiedFromLeft(), sample.accel, flip_);
        turned.gyro = rotated(rectifier_->rectifiedFromLeft(), sample.gyro, flip_);
        turned.magnet = rotated(rectifier_->rectifiedFromLeft(), sample.magnet, flip_);
        imu_.push_back(turned);
    }
    DetectionInput input;
    input.left = left_.view();
    input.right = right_.view();
    input.map = &map_;
    input.half_size = settings.work_mode == WorkMode::kFast;
    input.geometry = geometry;
    input.min_disparity = range.min;
    input.max_disparity = range.max;
    input.t_ns = frame.t_ns;
    input.imu = &imu_;
    input.dropped_frames = frame.dropped_frames;
    detector_.detect(input, settings.detection, detection_);
    // Of a recording it would only tell how long ago that was.
    detection_.latency_ns = frame.position < 0 ? monotonicNowNs() - frame.t_ns : 0;
    return {};
}

ViewInput Pipeline::viewInput() const {
    ViewInput input;
    input.left = left_.view();
    if (has_colour_)
        input.left_colour = colour_.view();
    return input;
}

void Pipeline::points(float* xyz) const {
    computePoints(map_.disparity.view(), geometry(flip_), {distance_.minMm(), distance_.maxMm()},
                  xyz);
}

}  // namespace kova::camera
