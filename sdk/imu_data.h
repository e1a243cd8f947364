#pragma once

#include <cstdint>

#include "sdk/size.h"

namespace kova::imu {

/// Measuring range of the accelerometer; 3 is the widest.
enum IMU_ACCEL_RANGE : std::int32_t {
    IMU_ACCEL_RANGE_2G = 0,
    IMU_ACCEL_RANGE_4G = 1,
    IMU_ACCEL_RANGE_8G = 2,
    IMU_ACCEL_RANGE_16G = 3,
};

/// Measuring range of the gyroscope; 3 is the widest.
enum IMU_GYRO_RANGE : std::int32_t {
    IMU_GYRO_RANGE_250DPS = 0,
    IMU_GYRO_RANGE_500DPS = 1,
    IMU_GYRO_RANGE_1000DPS = 2,
    IMU_GYRO_RANGE_2000DPS = 3,
};

/// One sample of the inertial unit, in the camera's frame (x right, y down, z forward). Begins with
/// nine floats in this order.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | accel | m/s² | specific force: a camera at rest and level reads (0, -9.81, 0) |
/// | gyro | rad/s | angular rate |
/// | magnet | µT | magnetic field; (0, 0, 0) where there is no magnetometer |
/// | t_ns | ns | capture time, on the clock of the frames |
struct IMUData {
    Size3_<float> accel;
    Size3_<float> gyro;
    Size3_<float> magnet;
    std::int64_t t_ns = 0;
};

}  // namespace kova::imu
