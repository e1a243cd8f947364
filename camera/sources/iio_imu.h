#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// An inertial unit among the Linux Industrial I/O devices, read about 200 times a second through
/// sysfs on a thread of its own; stamped with CLOCK_MONOTONIC when read.
class IioImu {
public:
    /// @param names          of the devices as in `/sys/bus/iio/devices/*/name`; accelerometer,
    ///                       gyroscope and magnetometer may be devices of their own
    /// @param imu_to_camera  rotation, rows, after the driver's mount matrix
    /// @param folder         where the devices are
    /// @return kImuMissing, with the names there are
    static Result<std::unique_ptr<IioImu>> open(const std::vector<std::string>& names,
                                                const std::array<double, 9>& imu_to_camera,
                                                const std::string& folder = "/sys/bus/iio/devices");
    ~IioImu();
    IioImu(const IioImu&) = delete;
    IioImu& operator=(const IioImu&) = delete;

    /// Starts the reading; harmless when it runs.
    void start();

    /// Appends the samples since the last call.
    void drain(std::vector<ImuSample>& samples);

    /// One sample, read now.
    /// @return kImuMissing when the device is gone
    Result<ImuSample> read();

private:
    IioImu();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
