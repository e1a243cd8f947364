#pragma once

#include <cstdint>

#include "camera/base/status.h"
#include "camera/simulation/film.h"
#include "camera/simulation/renderer.h"
#include "camera/sources/frame.h"

namespace kova::camera {

struct SimulatedSequenceOptions {
    bool jpeg = false;      ///< 4:2:2, as USB cameras deliver it
    int jpeg_quality = 85;  ///< 1 to 100
    bool has_imu = true;
    std::int32_t model = 101;  ///< a CAMERA_MODEL, for CameraInfo
    bool auto_exposure = true;
    double start_s = 0;  ///< where in the drive the first frame is
};

/// The frames of a simulated drive in their order, as a source would yield them: exposure follows
/// the light with a lag, the inertial samples lie between the frames.
class SimulatedSequence {
public:
    SimulatedSequence(Renderer renderer, const SimulatedSequenceOptions& options);

    const StreamInfo& stream() const { return stream_; }
    const CameraInfo& camera() const { return camera_; }
    const StereoCalibration& calibration() const { return renderer_.rig().given; }
    const Scene& scene() const { return renderer_.scene(); }
    Renderer& renderer() { return renderer_; }

    /// Makes the next frame.
    /// @param truth  filled when not null
    /// @return kInvalidArgument when the JPEG encoder fails
    Status next(RawFrame& frame, FrameTruth* truth = nullptr);

private:
    Renderer renderer_;
    SimulatedSequenceOptions options_;
    StreamInfo stream_;
    CameraInfo camera_;
    Film film_;
    AutoExposure exposure_;
    LightPair light_;
    std::int64_t index_ = 0;
    std::int64_t imu_until_ns_ = 0;
    bool settled_ = false;
};

/// What a simulated camera says about itself.
CameraInfo simulatedCameraInfo(std::int32_t model, std::uint32_t seed);

/// A grey picture as JPEG 4:2:2, the colour planes neutral.
Status encodeJpeg(const std::vector<std::uint8_t>& grey, int width, int height, int quality,
                  std::vector<std::uint8_t>& out);

}  // namespace kova::camera
