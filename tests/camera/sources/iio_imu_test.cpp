#include "camera/sources/iio_imu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using testing::HasSubstr;

constexpr std::array<double, 9> kStraight = {1, 0, 0, 0, 1, 0, 0, 0, 1};

struct IioImuTest : testing::Test {
    test::TemporaryFolder folder;

    void write(const std::string& device, const std::string& file, const std::string& text) {
        std::filesystem::create_directories(folder / device);
        std::ofstream(folder / device / file) << text << "\n";
    }
    void writeImu(const std::string& device) {
        write(device, "name", "bmi160");
        const char* axes[] = {"x", "y", "z"};
        for (int i = 0; i < 3; ++i) {
            write(device, std::string("in_accel_") + axes[i] + "_raw",
                  std::to_string(100 * (i + 1)));
            write(device, std::string("in_anglvel_") + axes[i] + "_raw", std::to_string(-10 * i));
        }
        write(device, "in_accel_scale", "0.01");
        write(device, "in_anglvel_scale", "0.001");
    }
};

TEST_F(IioImuTest, RawValuesAreScaled) {
    write("iio:device0", "name", "light");
    writeImu("iio:device1");
    auto imu = IioImu::open({"bmi160"}, kStraight, folder.path());
    ASSERT_TRUE(imu.ok()) << imu.status().message();
    const auto sample = imu.value()->read();
    ASSERT_TRUE(sample.ok());
    EXPECT_THAT(sample.value().accel, testing::ElementsAre(1.0f, 2.0f, 3.0f));
    EXPECT_NEAR(sample.value().gyro[2], -0.02f, 1e-7f);
    EXPECT_THAT(sample.value().magnet, testing::ElementsAre(0, 0, 0));
}

TEST_F(IioImuTest, MountMatrixThenRotationIntoTheCamera) {
    writeImu("iio:device0");
    write("iio:device0", "in_accel_mount_matrix", "0, 1, 0; -1, 0, 0; 0, 0, 1");
    // x of the unit is y of the camera, y is -x.
    auto imu = IioImu::open({"bmi160"}, {0, -1, 0, 1, 0, 0, 0, 0, 1}, folder.path());
    ASSERT_TRUE(imu.ok());
    const auto accel = imu.value()->read().value().accel;
    // mount: (2, -1, 3); into the camera: (1, 2, 3)
    EXPECT_THAT(accel, testing::ElementsAre(1.0f, 2.0f, 3.0f));
}

TEST_F(IioImuTest, SensorsMayBeDevicesOfTheirOwn) {
    for (const char* channel : {"accel", "anglvel", "magn"})
        for (const char* axis : {"x", "y", "z"}) {
            const std::string device = std::string("iio:device_") + channel;
            write(device, "name", "lsm9");
            write(device, std::string("in_") + channel + "_" + axis + "_raw", "5");
            write(device, std::string("in_") + channel + "_" + axis + "_scale", "0.1");
        }
    auto imu = IioImu::open({"lsm9"}, kStraight, folder.path());
    ASSERT_TRUE(imu.ok()) << imu.status().message();
    const auto sample = imu.value()->read().value();
    EXPECT_NEAR(sample.accel[1], 0.5f, 1e-6f);
    EXPECT_NEAR(sample.magnet[0], 50.0f, 1e-4f) << "gauss to microtesla";
}

TEST_F(IioImuTest, SensorsMayHaveNamesOfTheirOwn) {
    const std::pair<const char*, const char*> devices[] = {{"accel_3d", "accel"},
                                                           {"gyro_3d", "anglvel"}};
    for (const auto& [name, channel] : devices)
        for (const char* axis : {"x", "y", "z"}) {
            write(name, "name", name);
            write(name, std::string("in_") + channel + "_" + axis + "_raw", "7");
        }
    EXPECT_FALSE(IioImu::open({"accel_3d"}, kStraight, folder.path()).ok());
    auto imu = IioImu::open({"accel_3d", "gyro_3d"}, kStraight, folder.path());
    ASSERT_TRUE(imu.ok()) << imu.status().message();
    EXPECT_EQ(imu.value()->read().value().gyro[1], 7);
}

TEST_F(IioImuTest, OffsetsAreAddedBeforeScaling) {
    writeImu("iio:device0");
    write("iio:device0", "in_accel_offset", "100");
    write("iio:device0", "in_anglvel_y_offset", "-10");
    auto imu = IioImu::open({"bmi160"}, kStraight, folder.path());
    ASSERT_TRUE(imu.ok());
    const auto sample = imu.value()->read().value();
    EXPECT_THAT(sample.accel, testing::ElementsAre(2.0f, 3.0f, 4.0f));
    EXPECT_THAT(sample.gyro, testing::ElementsAre(0.0f, -0.02f, -0.02f));
}

TEST_F(IioImuTest, AnUnknownNameListsTheOthers) {
    write("iio:device0", "name", "light");
    const auto imu = IioImu::open({"bmi160"}, kStraight, folder.path());
    EXPECT_EQ(imu.status().code(), ErrorCode::kImuMissing);
    EXPECT_THAT(imu.status().message(), HasSubstr("light"));
    EXPECT_FALSE(IioImu::open({"bmi160"}, kStraight, folder / "nowhere").ok());
}

TEST_F(IioImuTest, ReadingRunsUntilTheDeviceIsGone) {
    writeImu("iio:device0");
    auto imu = IioImu::open({"bmi160"}, kStraight, folder.path());
    ASSERT_TRUE(imu.ok());
    imu.value()->start();
    std::vector<ImuSample> samples;
    while (samples.size() < 3) imu.value()->drain(samples);
    EXPECT_LT(samples[0].t_ns, samples[1].t_ns);
    std::filesystem::remove_all(folder / "iio:device0");
    EXPECT_EQ(imu.value()->read().status().code(), ErrorCode::kImuMissing);
}

}  // namespace
}  // namespace kova::camera
