#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/detection/detection_frame.h"
#include "camera/sources/frame.h"
#include "sdk/records.h"

namespace kova::camera {

struct StixelCandidate;

/// What may change from frame to frame.
struct DetectionSettings {
    bino::ObstacleDetectionParameters obstacles;
    bino::ObstacleDetectionStixelsParameters stixels;
    bool use_imu = false;
    /// Confirmation over several frames; off for single pictures.
    bool temporal = true;
};

/// One frame to look at.
struct DetectionInput {
    ImageView<const std::uint8_t> left;  ///< rectified, grey
    /// Rectified, grey, same size; without it stixels are judged by the disparities alone.
    ImageView<const std::uint8_t> right;
    const DisparityMap* map = nullptr;  ///< same size
    bool half_size = false;             ///< the map was matched at half the size
    RectifiedGeometry geometry;
    /// What is farther than this [px] may be measured, which helps to tell things from what is
    /// behind them, but is not reported.
    int min_disparity = 0;
    int max_disparity = 128;  ///< searched, exclusive [px]
    std::int64_t t_ns = 0;
    /// Samples since the frame before, turned into the rectified left frame.
    const std::vector<ImuSample>* imu = nullptr;
    std::int64_t dropped_frames = 0;  ///< since the frame before
};

/// What a frame's detection does, in this order.
enum DetectionStage {
    kCells,
    kGroundFit,
    kSearch,
    kJudging,
    kTracking,
    kMapping,
    kDetectionStages
};
const char* stageName(DetectionStage stage);
/// [ms]; for benchmarks.
using DetectionTimes = std::array<double, kDetectionStages>;

/// Ground, stixels and obstacles of a sequence of frames. Keeps what it tracks; the same sequence
/// gives the same result. Memory is allocated when the size changes, not per frame.
class Detector {
public:
    Detector();
    ~Detector();
    Detector(const Detector&) = delete;
    Detector& operator=(const Detector&) = delete;

    /// Forgets what was tracked: another source, a seek.
    void reset();

    /// What was judged in the last frame, kept or not; for fitting the judge.
    const std::vector<StixelCandidate>& candidates() const;

    /// What the last frame took.
    const DetectionTimes& times() const;

    void detect(const DetectionInput& input, const DetectionSettings& settings,
                DetectionFrame& frame);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
