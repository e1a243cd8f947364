#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/status.h"
#include "camera/detection/detector.h"
#include "camera/matching/matcher.h"
#include "camera/pipeline/distance_range.h"
#include "camera/pipeline/frame_feeder.h"
#include "camera/rectification/rectifier.h"
#include "camera/rectification/row_aligner.h"
#include "camera/views/views.h"

namespace kova::camera {

/// What may change from frame to frame.
struct PipelineSettings {
    WorkMode work_mode = WorkMode::kFast;
    bool fill = false;               ///< complete missing depth from its surroundings
    float confidence_threshold = 0;  ///< 0 to 0.99
    DistanceRange distance;
    bool flip = false;  ///< the camera hangs upside down
    /// Follow from the frames how the rows of the eyes lie to each other, and align them.
    bool align_rows = true;
    bool detect = true;
    DetectionSettings detection;
};

/// Everything after the source, headless: rectify, match, detect; points and views on request.
/// Serves the camera, the `kova` command, benchmarks and tests alike. One thread at a time.
class Pipeline {
public:
    /// @return null and the reason in `status` when the calibration is impossible
    static std::unique_ptr<Pipeline> make(const StereoCalibration& calibration, Status& status);

    /// Geometry of the pictures delivered; constant but for the turn of a flipped camera.
    const RectifiedGeometry& geometry(bool flip = false) const {
        return flip ? flipped_geometry_ : rectifier_->geometry();
    }

    /// Forgets what is tracked over frames: after a seek. The alignment of the rows stays: it
    /// belongs to the camera, not to the place in a recording.
    void reset();

    /// Processes a frame; its pictures must have the calibration's size.
    Status process(const DecodedFrame& frame, const PipelineSettings& settings);

    // --- Results of the frame processed last ---------------------------------------------------
    bool hasFrame() const { return has_frame_; }
    /// True when its settings asked for detection.
    bool lastDetected() const { return detected_; }
    ImageView<const std::uint8_t> left() const { return left_.view(); }
    ImageView<const std::uint8_t> right() const { return right_.view(); }
    const DisparityMap& disparity() const { return map_; }
    /// Meaningful only with lastDetected().
    const DetectionFrame& detection() const { return detection_; }
    /// What led to it.
    const Detector& detector() const { return detector_; }
    ViewInput viewInput() const;

    /// How the rows of the frame processed last were aligned.
    const RowOffset& rowOffset() const { return row_offset_; }

    /// Writes width x height x 3 floats [mm], NaN where there is no depth.
    void points(float* xyz) const;

private:
    explicit Pipeline(std::unique_ptr<Rectifier> rectifier);
    void rectify(const DecodedFrame& frame, const PipelineSettings& settings);

    std::unique_ptr<Rectifier> rectifier_;
    RectifiedGeometry flipped_geometry_;
    RowAligner aligner_;
    RowOffset row_offset_;
    bool aligning_ = true;
    std::unique_ptr<Matcher> matcher_;
    Detector detector_;
    bool flip_ = false;
    DistanceRange distance_;
    Image<std::uint8_t> left_;
    Image<std::uint8_t> right_;
    Image<Rgba> colour_;
    bool has_colour_ = false;
    bool has_frame_ = false;
    bool detected_ = false;
    DisparityMap map_;
    DetectionFrame detection_;
    std::vector<ImuSample> imu_;
};

}  // namespace kova::camera
