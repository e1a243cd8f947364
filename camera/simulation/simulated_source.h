#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "camera/base/status.h"
#include "camera/sources/source.h"
#include "sdk/modes.h"

namespace kova::camera {

/// What a simulated camera is asked to be, faults included; 0 is no fault.
struct SimulatedCameraOptions {
    bino::CAMERA_MODEL model = bino::CAMERA_MODEL_QUELVAR_P1;
    std::string scene = "demo";
    std::uint32_t seed = 1;
    double unplug_s = 0;
    double stall_s = 0;
    int corrupt_every = 0;
    int drop_every = 0;
    double noise_scale = 1;
    bool dead_imu = false;
    bool lens_distortion = false;  ///< pictures before rectification
};

/// The time by which a simulated camera delivers; a test brings its own.
class SourceClock {
public:
    virtual ~SourceClock() = default;
    virtual std::int64_t nowNs() = 0;
    virtual void sleepUntil(std::int64_t t_ns) = 0;
};

/// A live camera that looks at a rendered scene.
///
/// A short drive is rendered by a thread of low priority while the camera runs, kept in memory (at
/// most about 140 MB) and shown forth and back at the nominal rate, at most 30 new views a second
/// (one for each pose where a board is shown);
/// until 8 views are there the camera stands. Exposure, gain and noise are applied to each frame
/// as it is delivered; motion blur stays that of the nominal exposure.
class SimulatedSource : public Source {
public:
    /// @param clock  null: the machine's monotonic clock
    /// @return kInvalidMode (the model lacks the mode), kInvalidArgument (unknown scene)
    static Result<std::unique_ptr<SimulatedSource>> open(const SimulatedCameraOptions& options,
                                                         bino::RESOLUTION_FPS_MODE mode,
                                                         std::unique_ptr<SourceClock> clock = {});
    ~SimulatedSource() override;
    SimulatedSource(const SimulatedSource&) = delete;
    SimulatedSource& operator=(const SimulatedSource&) = delete;

    const StreamInfo& stream() const override;
    const CameraInfo& camera() const override;
    const StereoCalibration& calibration() const override;
    Status grab(RawFrame& frame) override;
    std::int64_t droppedFrames() const override;
    Status startImu() override;
    double exposureMs() const override;
    double maxExposureMs() const override;
    /// Also switches automatic exposure off.
    Status setExposureMs(double ms) override;
    Status setAutoExposure(bool automatic) override;

    /// Views rendered so far, and how many there will be.
    int viewsReady() const;
    int viewsWanted() const;

private:
    SimulatedSource();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
