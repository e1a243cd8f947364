#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "camera/base/status.h"
#include "camera/sources/iio_imu.h"
#include "camera/sources/source.h"
#include "camera/sources/v4l2_modes.h"
#include "camera/sources/v4l2_system.h"

namespace kova::camera {

/// A stereo camera behind Video4Linux that delivers both eyes in one stream. Memory-mapped buffers,
/// the driver's clock; the newest frame wins, what was passed over or lost by the driver is
/// counted.
class V4l2Source : public Source {
public:
    /// Opens a device and starts streaming in `wanted`. Of the ways in which the device can deliver
    /// it the first that starts is taken, so that a camera without the bandwidth for uncompressed
    /// pictures falls back to JPEG.
    ///
    /// @param calibration  of one eye's picture in this mode
    /// @param iio_folder   where Linux lists inertial units
    /// @return kInvalidCamera (busy, no permission, gone, no bandwidth; the message says what to
    ///         do), kInvalidMode (the device lacks the mode)
    static Result<std::unique_ptr<V4l2Source>> open(
        V4l2System& system, const V4l2Device& device, const CameraConfig& config,
        const bino::ResolutionFpsMode& wanted, const StereoCalibration& calibration,
        const std::string& iio_folder = "/sys/bus/iio/devices");
    ~V4l2Source() override;
    V4l2Source(const V4l2Source&) = delete;
    V4l2Source& operator=(const V4l2Source&) = delete;

    const StreamInfo& stream() const override { return stream_; }
    const CameraInfo& camera() const override { return camera_; }
    const StereoCalibration& calibration() const override { return calibration_; }
    Status grab(RawFrame& frame) override;
    std::int64_t droppedFrames() const override { return dropped_; }
    Status startImu() override;

    double exposureMs() const override;
    double maxExposureMs() const override;
    Status setExposureMs(double ms) override;
    Status setAutoExposure(bool automatic) override;

private:
    struct Buffer {
        void* address = nullptr;
        std::size_t length = 0;
    };

    V4l2Source(V4l2System& system, std::string node) : system_(system), node_(std::move(node)) {}
    Status start(const StereoMatch& match);
    Status mapBuffers();
    void stop();
    bool setControl(std::uint32_t id, std::int32_t value);
    bool getControl(std::uint32_t id, std::int32_t& value) const;
    void learnExposure();
    /// A dequeued buffer's frame becomes `frame` when it is whole.
    bool take(const void* buffer, RawFrame& frame);
    Status lost(const std::string& why);

    V4l2System& system_;
    std::string node_;
    int fd_ = -1;
    bool streaming_ = false;
    std::vector<Buffer> buffers_;
    StreamInfo stream_;
    CameraInfo camera_;
    StereoCalibration calibration_;
    std::unique_ptr<IioImu> imu_;  ///< null when the configuration names none
    std::int64_t dropped_ = 0;
    std::int64_t damaged_ = 0;  ///< of the dropped ones
    std::int64_t last_sequence_ = -1;
    std::int64_t last_frame_ns_ = 0;  ///< when the device was last heard of
    Status lost_;                     ///< not ok once the device is gone
    double max_exposure_ms_ = 0;
    std::int32_t min_exposure_ = 0;  ///< [100 µs]
    std::int32_t max_exposure_ = 0;  ///< [100 µs], 0: no such control
};

}  // namespace kova::camera
