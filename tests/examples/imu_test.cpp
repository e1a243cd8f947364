#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cmath>
#include <fstream>

#include "tests/support/test_data.h"

#include "examples/imu_attitude.h"
#include "examples/imu_recording.h"

namespace kova::examples {
namespace {

constexpr float kG = 9.80665f;

class ImuRecordingTest : public testing::Test {
protected:
    // Makes a database with the given statements.
    std::string file(const char* sql) {
        const std::string path = (folder_ / "test.kova").string();
        sqlite3* database = nullptr;
        EXPECT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
        return path;
    }
    test::TemporaryFolder folder_;
};

constexpr const char* kTable =
    "CREATE TABLE imu (t_ns INTEGER, ax REAL, ay REAL, az REAL, gx REAL, gy REAL, gz REAL,"
    " mx REAL, my REAL, mz REAL);";

TEST_F(ImuRecordingTest, SamplesComeInTheOrderOfTheirTimes) {
    const std::string path =
        file((std::string(kTable) + "INSERT INTO imu VALUES (200, 1, 2, 3, 4, 5, 6, 7, 8, 9);"
                                    "INSERT INTO imu VALUES (100, 0, -9.5, 0, 0, 0, 0, 0, 0, 0);")
                 .c_str());
    const ImuRecording recording = readImuRecording(path);
    EXPECT_EQ(recording.error, "");
    ASSERT_EQ(recording.samples.size(), 2u);
    EXPECT_EQ(recording.samples[0].t_ns, 100);
    EXPECT_EQ(recording.samples[0].accel.y, -9.5f);
    EXPECT_EQ(recording.samples[1].t_ns, 200);
    EXPECT_EQ(recording.samples[1].accel.z, 3);
    EXPECT_EQ(recording.samples[1].gyro.x, 4);
    EXPECT_EQ(recording.samples[1].magnet.z, 9);
}

TEST_F(ImuRecordingTest, ErrorsSayWhatIsWrong) {
    EXPECT_NE(readImuRecording("/nowhere/a.kova").error.find("no such file"), std::string::npos);
    EXPECT_NE(readImuRecording(folder_.path().string()).error.find("no such file"),
              std::string::npos);
    EXPECT_NE(readImuRecording(file(kTable)).error.find("holds no inertial samples"),
              std::string::npos);
    const std::string text = (folder_ / "text.kova").string();
    std::ofstream(text) << std::string(5000, 'x');
    EXPECT_NE(readImuRecording(text).error.find("is no .kova recording"), std::string::npos);
    const std::string other = (folder_ / "empty.kova").string();
    std::ofstream(other).close();
    EXPECT_NE(readImuRecording(other).error.find("is no .kova recording"), std::string::npos);
}

imu::IMUData sample(double t_s, Size3_<float> accel, Size3_<float> gyro) {
    imu::IMUData data;
    data.t_ns = static_cast<std::int64_t>(t_s * 1e9);
    data.accel = accel;
    data.gyro = gyro;
    return data;
}

TEST(AttitudeFilterTest, LevelCameraStaysLevel) {
    AttitudeFilter filter;
    for (int i = 0; i < 500; ++i) filter.add(sample(i * 0.005, {0, -kG, 0}, {0, 0, 0}));
    const TiltAngles angles = tiltOf(filter.attitude());
    EXPECT_NEAR(angles.roll_deg, 0, 1e-3);
    EXPECT_NEAR(angles.pitch_deg, 0, 1e-3);
    EXPECT_NEAR(angles.yaw_deg, 0, 1e-3);
}

TEST(AttitudeFilterTest, FirstSampleSetsTheTilt) {
    // Rolled by 30 degrees about the optical axis, at rest.
    const float a = 30 * static_cast<float>(M_PI) / 180;
    AttitudeFilter filter;
    filter.add(sample(0, {-kG * std::sin(a), -kG * std::cos(a), 0}, {0, 0, 0}));
    EXPECT_NEAR(tiltOf(filter.attitude()).roll_deg, 30, 0.01);
    EXPECT_NEAR(tiltOf(filter.attitude()).pitch_deg, 0, 0.01);
}

TEST(AttitudeFilterTest, GyroscopeTurnsTheHeading) {
    AttitudeFilter filter;
    const float rate = static_cast<float>(M_PI) / 4;  // 45 degrees per second about y
    for (int i = 0; i <= 400; ++i) filter.add(sample(i * 0.005, {0, -kG, 0}, {0, rate, 0}));
    EXPECT_NEAR(tiltOf(filter.attitude()).yaw_deg, 90, 0.1);
}

TEST(AttitudeFilterTest, GravityHoldsADriftingGyroscope) {
    AttitudeFilter filter(1.0);
    for (int i = 0; i <= 20000; ++i) filter.add(sample(i * 0.005, {0, -kG, 0}, {0, 0, 0.01f}));
    // Left alone it would be at 57 degrees; the balance is drift times correction time.
    EXPECT_NEAR(tiltOf(filter.attitude()).roll_deg, 0.01 * 180 / M_PI, 0.05);
}

TEST(AttitudeFilterTest, ShakingIsNotTakenForGravity) {
    AttitudeFilter filter;
    filter.add(sample(0, {0, -kG, 0}, {0, 0, 0}));
    for (int i = 1; i <= 200; ++i) filter.add(sample(i * 0.005, {20, -kG, 0}, {0, 0, 0}));
    EXPECT_NEAR(tiltOf(filter.attitude()).roll_deg, 0, 1e-3);
}

TEST(AttitudeFilterTest, OddSamplesAreHarmless) {
    AttitudeFilter filter;
    filter.add(sample(1, {0, 0, 0}, {0, 0, 0}));
    filter.add(sample(0.5, {0, -kG, 0}, {5, 5, 5}));
    filter.add(sample(1000, {0, -kG, 0}, {0, 0, 0}));
    EXPECT_NEAR(filter.attitude().length(), 1, 1e-5);
    EXPECT_NEAR(tiltOf(filter.attitude()).roll_deg, 0, 1e-3);
}

std::vector<Size3_<float>> spherePoints(Size3_<float> c, float r, float height) {
    std::vector<Size3_<float>> points;
    for (int i = 0; i < 20; ++i) {
        for (int j = 0; j < 20; ++j) {
            const float z = height * (static_cast<float>(i) / 9.5f - 1);
            const float around = static_cast<float>(j) * 2 * static_cast<float>(M_PI) / 20;
            const float s = std::sqrt(1 - z * z);
            points.push_back(
                {c.x + r * s * std::cos(around), c.y + r * s * std::sin(around), c.z + r * z});
        }
    }
    return points;
}

TEST(SphereFitTest, FindsCentreAndRadius) {
    const SphereFit fit = fitSphere(spherePoints({0.5f, -0.3f, 0.2f}, 9.6f, 0.99f));
    ASSERT_TRUE(fit.valid);
    EXPECT_NEAR(fit.centre.x, 0.5, 1e-4);
    EXPECT_NEAR(fit.centre.y, -0.3, 1e-4);
    EXPECT_NEAR(fit.centre.z, 0.2, 1e-4);
    EXPECT_NEAR(fit.radius, 9.6, 1e-4);
    const std::array<float, 12> correction = correctionOf(fit, kG);
    EXPECT_NEAR(correction[0], 0.5, 1e-4);
    EXPECT_NEAR(correction[3], kG / 9.6, 1e-4);
    EXPECT_NEAR(correctionOf(fit, 0)[3], 1, 1e-6);
}

TEST(SphereFitTest, PointsOfOneSideOrTooFewAreNotFitted) {
    EXPECT_FALSE(fitSphere({}).valid);
    EXPECT_FALSE(fitSphere({{1, 2, 3}, {4, 5, 6}}).valid);
    EXPECT_FALSE(fitSphere(std::vector<Size3_<float>>(100, {0, -kG, 0})).valid);
    EXPECT_FALSE(fitSphere(spherePoints({0, 0, 0}, kG, 0.01f)).valid) << "all in one plane";
    EXPECT_EQ(correctionOf({}, kG), (std::array<float, 12>{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1}));
}

}  // namespace
}  // namespace kova::examples
