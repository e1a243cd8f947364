#pragma once

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Where stereo frames come from: a live camera, a simulated one, a recording. Constructed open,
/// closed by its destructor. One thread at a time, but for the exposure setters and requestStop().
class Source {
public:
    virtual ~Source() = default;

    virtual const StreamInfo& stream() const = 0;
    virtual const CameraInfo& camera() const = 0;
    virtual const StereoCalibration& calibration() const = 0;

    /// Delivers the next frame, waiting at most 100 ms for it. A live source delivers its newest
    /// frame; older ones are dropped and counted.
    /// @return kNoNewFrame (nothing due yet, or a damaged frame skipped), kEndOfFile,
    ///         kInvalidCamera (gone or silent for a second; for good)
    virtual Status grab(RawFrame& frame) = 0;

    /// Frames lost since the source was opened.
    virtual std::int64_t droppedFrames() const { return 0; }

    /// Inertial samples come only between start and stop where the device must be switched on.
    virtual Status startImu() {
        return {ErrorCode::kImuMissing, "the source has no inertial unit"};
    }

    // --- Recordings ---------------------------------------------------------------------------
    virtual bool isRecording() const { return false; }
    virtual int frameCount() const { return 0; }
    /// Index of the frame grabbed last, -1 before the first.
    virtual int position() const { return -1; }
    /// The next grab delivers this frame; clamped to [0, frameCount()).
    virtual void seek(int /*index*/) {}
    /// Paced replay (the default) or every frame at once, for tools and benchmarks.
    virtual void setPaced(bool /*paced*/) {}

    // --- Live cameras -------------------------------------------------------------------------
    virtual double exposureMs() const { return 0; }
    virtual double maxExposureMs() const { return 0; }
    virtual Status setExposureMs(double /*ms*/) { return {}; }
    virtual Status setAutoExposure(bool /*automatic*/) { return {}; }
};

}  // namespace kova::camera
