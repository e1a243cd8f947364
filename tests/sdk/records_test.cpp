#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "sdk/kova_sdk.h"

namespace kova {
namespace {

// Sizes and orders of what crosses the border of the library.
using namespace bino;
static_assert(sizeof(RESULT_CODE) == 4 && sizeof(RESOLUTION_FPS_MODE) == 4);
static_assert(sizeof(CAMERA_MODEL) == 4 && sizeof(WORK_MODE) == 4 && sizeof(DEPTH_TYPE) == 4);
static_assert(sizeof(OBSTACLE_VIEW_TYPE) == 4);
static_assert(sizeof(imu::IMU_ACCEL_RANGE) == 4 && sizeof(imu::IMU_GYRO_RANGE) == 4);

static_assert(sizeof(GrabParameters) == 28);
static_assert(offsetof(GrabParameters, rectify) == 0);
static_assert(offsetof(GrabParameters, depth_mode) == 4);
static_assert(offsetof(GrabParameters, left_right_check) == 8);
static_assert(offsetof(GrabParameters, speckle_removal) == 9);
static_assert(offsetof(GrabParameters, reserved) == 12);

static_assert(sizeof(ObstacleDetectionParameters) == 28);
static_assert(offsetof(ObstacleDetectionParameters, ground_min_region) == 0);
static_assert(offsetof(ObstacleDetectionParameters, ground_min_support) == 4);
static_assert(offsetof(ObstacleDetectionParameters, obstacle_min_height) == 8);
static_assert(offsetof(ObstacleDetectionParameters, obstacle_foot_height) == 12);
static_assert(offsetof(ObstacleDetectionParameters, clearance) == 16);
static_assert(offsetof(ObstacleDetectionParameters, max_ground_slope) == 20);
static_assert(offsetof(ObstacleDetectionParameters, min_drop) == 24);

static_assert(sizeof(ObstacleDetectionStixelsParameters) == 20);
static_assert(offsetof(ObstacleDetectionStixelsParameters, max_layers) == 16);

static_assert(sizeof(StereoParameters) == 25 * 4);
static_assert(offsetof(StereoParameters, cy) == 12);
static_assert(sizeof(ImageSizeFPS) == 12 && offsetof(ImageSizeFPS, fps) == 8);
static_assert(sizeof(ImageRecord) == 24 && offsetof(ImageRecord, data) == 0);
static_assert(sizeof(ObstacleDetectionTopViewParameters) == 20);
static_assert(offsetof(ObstacleDetectionTopViewParameters, half_width) == 4);
static_assert(offsetof(ObstacleDetectionTopViewParameters, near_distance) == 8);
static_assert(offsetof(ObstacleDetectionTopViewParameters, far_distance) == 12);
static_assert(offsetof(ObstacleDetectionTopViewParameters, pixels_per_mm) == 16);

static_assert(offsetof(imu::IMUData, accel) == 0 && offsetof(imu::IMUData, gyro) == 12 &&
              offsetof(imu::IMUData, magnet) == 24);
static_assert(sizeof(Size3_<float>) == 12 && sizeof(Size4_<unsigned char>) == 4);

static_assert(!std::is_copy_constructible_v<StereoCamera> &&
              !std::is_move_constructible_v<StereoCamera>);
static_assert(!std::is_copy_constructible_v<MatPointerVector_CPU> &&
              !std::is_move_constructible_v<MatPointerVector_CPU>);
static_assert(!std::is_copy_constructible_v<MatPointerVector_CUDA> &&
              !std::is_move_constructible_v<MatPointerVector_CUDA>);
// Opaque: nothing but the pointer to the implementation.
static_assert(sizeof(StereoCamera) == sizeof(void*));
static_assert(sizeof(MatPointerVector_CPU) == sizeof(void*));

TEST(Records, StartValues) {
    const GrabParameters grab;
    EXPECT_TRUE(grab.rectify && grab.left_right_check && grab.speckle_removal);
    EXPECT_EQ(grab.depth_mode, 0);
    const ObstacleDetectionParameters obstacle;
    EXPECT_EQ(obstacle.ground_min_region, 30);
    EXPECT_EQ(obstacle.ground_min_support, 40);
    EXPECT_EQ(obstacle.obstacle_min_height, 0.0036f);
    EXPECT_EQ(obstacle.obstacle_foot_height, 0.0014f);
    EXPECT_TRUE(std::isinf(obstacle.clearance) && obstacle.clearance > 0);
    EXPECT_EQ(obstacle.max_ground_slope, 20.0f);
    EXPECT_EQ(obstacle.min_drop, 50.0f);
    const ObstacleDetectionStixelsParameters stixels;
    EXPECT_EQ(stixels.width, 10);
    EXPECT_EQ(stixels.min_length, 10);
    EXPECT_EQ(stixels.crop_top, 0);
    EXPECT_EQ(stixels.crop_bottom, 0);
    EXPECT_EQ(stixels.max_layers, 10);
}

}  // namespace
}  // namespace kova
