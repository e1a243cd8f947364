#include "camera/sources/camera_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using testing::HasSubstr;

TEST(CameraConfig, EveryKeyIsRead) {
    const auto config = parseCameraConfig(
        "layout: top_bottom\nswapped: true\nleft_flipped: true\nright_flipped: true\n"
        "iio: bmi160\nimu_to_camera: [0, -1, 0, 1, 0, 0, 0, 0, 1]\n");
    ASSERT_TRUE(config.ok()) << config.status().message();
    const CameraConfig& c = config.value();
    EXPECT_TRUE(c.layout_stated);
    EXPECT_EQ(c.layout, FrameLayout::kTopBottom);
    EXPECT_TRUE(c.swapped && c.left_flipped && c.right_flipped);
    EXPECT_EQ(c.iio, std::vector<std::string>{"bmi160"});
    EXPECT_EQ(c.imu_to_camera[1], -1);
}

TEST(CameraConfig, AnInertialUnitMayHaveSeveralNames) {
    const auto config = parseCameraConfig("iio: [accel_3d, gyro_3d]\n");
    ASSERT_TRUE(config.ok()) << config.status().message();
    EXPECT_EQ(config.value().iio, (std::vector<std::string>{"accel_3d", "gyro_3d"}));
}

TEST(CameraConfig, AnEmptyFileStatesNothing) {
    const auto config = parseCameraConfig("");
    ASSERT_TRUE(config.ok());
    EXPECT_FALSE(config.value().layout_stated);
    EXPECT_TRUE(config.value().iio.empty());
}

TEST(CameraConfig, MistakesAreSaidInWords) {
    const std::pair<const char*, const char*> rows[] = {
        {"layout: diagonal", "side_by_side, top_bottom or interleaved"},
        {"layuot: top_bottom", "unknown key 'layuot'"},
        {"swapped: perhaps", "camera configuration"},
        {"imu_to_camera: [1, 2]", "nine numbers"},
        {"imu_to_camera: [1, 0, 0, 0, 1, 0, 0, 0, 2]", "no rotation"},
        {"iio: []", "a list of names"},
        {"iio: {a: b}", "camera configuration"},
        {"- a\n- b", "key: value"},
        {"a: [", "camera configuration"},
    };
    for (const auto& [text, words] : rows) {
        const auto config = parseCameraConfig(text);
        EXPECT_EQ(config.status().code(), ErrorCode::kInvalidFile) << text;
        EXPECT_THAT(config.status().message(), HasSubstr(words)) << text;
    }
}

TEST(CameraConfig, TheCamerasOwnFileComesBeforeTheDefault) {
    const test::TemporaryFolder folder;
    std::filesystem::create_directories(folder / "cameras");
    EXPECT_FALSE(loadCameraConfig(folder.path(), "77").value().swapped) << "there is no file";
    std::ofstream(folder / "cameras" / "default.yaml") << "swapped: true\n";
    EXPECT_TRUE(loadCameraConfig(folder.path(), "77").value().swapped);
    EXPECT_TRUE(loadCameraConfig(folder.path(), "").value().swapped);
    std::ofstream(folder / "cameras" / "77.yaml") << "left_flipped: true\n";
    EXPECT_FALSE(loadCameraConfig(folder.path(), "77").value().swapped);
    EXPECT_TRUE(loadCameraConfig(folder.path(), "77").value().left_flipped);
}

TEST(CameraConfig, ABrokenFileIsNamed) {
    const test::TemporaryFolder folder;
    std::filesystem::create_directories(folder / "cameras");
    std::ofstream(folder / "cameras" / "77.yaml") << "layout: x\n";
    EXPECT_THAT(loadCameraConfig(folder.path(), "77").status().message(), HasSubstr("77.yaml"));
    EXPECT_TRUE(loadCameraConfig(folder.path(), "../cameras/77").ok()) << "stays in its folder";
}

}  // namespace
}  // namespace kova::camera
