#include "sdk/stereo_camera.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <set>
#include <thread>

#include "tests/support/simulated_recording.h"
#include "tests/support/test_data.h"

namespace kova::bino {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 200;

/// One recording for all tests of the file: six frames of a still scene, with an inertial unit.
const std::string& recording() {
    static const test::TemporaryFolder folder;
    static const std::string path = [] {
        const std::string made = (folder / "six.kova").string();
        test::SimulatedRecordingOptions options;
        options.width = kWidth;
        options.height = kHeight;
        options.still = options.imu = true;
        options.fps = 100;
        test::recordSimulation(made, options);
        return made;
    }();
    return path;
}

RESULT_CODE grabSoon(StereoCamera& camera, GrabParameters parameters = {}) {
    RESULT_CODE code;
    do code = camera.grab(parameters);
    while (code == RESULT_NOT_NEW_FRAME);
    return code;
}

struct OpenRecording : testing::Test {
    StereoCamera camera;
    void SetUp() override {
        ASSERT_EQ(camera.open(recording().c_str(), WORK_MODE_FAST), RESULT_OK);
        ASSERT_EQ(camera.startObstacleDetection(false, false), RESULT_OK);
    }
    const float* cloud() {
        return static_cast<const float*>(
            camera.retrieveDepthForObstacleDetection(DEPTH_TYPE_POINT_CLOUD).data);
    }
};

TEST(StereoCameraClosed, EveryOperationIsHarmless) {
    StereoCamera camera;
    EXPECT_EQ(camera.grab({}), RESULT_CAMERA_NOT_OPEN);
    EXPECT_EQ(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE).data, nullptr);
    EXPECT_EQ(camera.retrieveDepthForObstacleDetection(DEPTH_TYPE_POINT_CLOUD).data, nullptr);
    EXPECT_EQ(camera.getImageSizeFPS().width, 0);
    EXPECT_EQ(camera.getKovaNumberOfFrames(), 0);
    EXPECT_EQ(camera.getCurrentKovaPosition(), -1);
    EXPECT_EQ(camera.getDistanceMinValue(), 0);
    EXPECT_EQ(camera.getDistanceMaxValue(), 0);
    EXPECT_EQ(camera.getExposureTime(), 0);
    EXPECT_EQ(camera.getMaxExposureTime(), 0);
    EXPECT_EQ(camera.getSerialNumber(), 0u);
    EXPECT_EQ(camera.getHardwareVersion(), "");
    EXPECT_FALSE(camera.isIMUSupported());
    EXPECT_EQ(camera.setFlip(true), RESULT_CAMERA_NOT_OPEN);
    EXPECT_EQ(camera.setDistanceMaxValue(1), RESULT_CAMERA_NOT_OPEN);
    EXPECT_EQ(camera.changeWorkMode(WORK_MODE_SLOW), RESULT_CAMERA_NOT_OPEN);
    EXPECT_EQ(camera.startObstacleDetection(false, false), RESULT_CAMERA_NOT_OPEN);
    EXPECT_EQ(camera.stopObstacleDetection(), RESULT_CAMERA_NOT_OPEN);
    camera.setTargetKovaPosition(3);
    camera.close();
    camera.close();
}

TEST(StereoCameraOpen, MissingFilesFoldersAndForeignFilesHaveTheirCodes) {
    const test::TemporaryFolder folder;
    StereoCamera camera;
    EXPECT_EQ(camera.open((folder / "missing.kova").c_str(), WORK_MODE_FAST),
              RESULT_CAN_NOT_OPEN_FILE);
    EXPECT_EQ(camera.open(folder.path().c_str(), WORK_MODE_FAST), RESULT_CAN_NOT_OPEN_FILE);
    EXPECT_EQ(camera.open(static_cast<const char*>(nullptr), WORK_MODE_FAST),
              RESULT_CAN_NOT_OPEN_FILE);
    std::ofstream(folder / "text.kova") << "no recording";
    EXPECT_EQ(camera.open((folder / "text.kova").c_str(), WORK_MODE_FAST),
              RESULT_INVALID_KOVA_FILE);
    EXPECT_EQ(camera.open(recording().c_str(), WORK_MODE_FAST), RESULT_OK)
        << "a failure does not spoil the next open";
}

TEST(StereoCameraOpen, ACameraThatDoesNotExistIsInvalid) {
    StereoCamera camera;
    EXPECT_EQ(camera.open(RESOLUTION_FPS_MODE_SD400_30FPS, 99, WORK_MODE_FAST, true),
              RESULT_INVALID_CAMERA);
    EXPECT_EQ(camera.open(static_cast<RESOLUTION_FPS_MODE>(7), 0, WORK_MODE_FAST, true),
              RESULT_INVALID_RESOLUTION_MODE);
}

TEST_F(OpenRecording, SaysWhatTheRecordingHolds) {
    const ImageSizeFPS size = camera.getImageSizeFPS();
    EXPECT_EQ(size.width, kWidth);
    EXPECT_EQ(size.height, kHeight);
    EXPECT_EQ(size.fps, 100.0f);
    EXPECT_EQ(camera.getKovaNumberOfFrames(), 6);
    EXPECT_EQ(camera.getSerialNumber(), 4711u);
    EXPECT_EQ(camera.getHardwareVersion(), "1.0");
    EXPECT_TRUE(camera.isIMUSupported());
    const StereoParameters stereo = camera.getStereoParameters(true);
    EXPECT_NEAR(stereo.fx, 190, 2);
    EXPECT_NEAR(stereo.baseline, 120, 1);
}

TEST_F(OpenRecording, PositionFollowsTheFramesAndSeeks) {
    EXPECT_EQ(camera.getCurrentKovaPosition(), -1);
    EXPECT_EQ(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE).data, nullptr);
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(grabSoon(camera), RESULT_OK);
        EXPECT_EQ(camera.getCurrentKovaPosition(), i);
    }
    EXPECT_EQ(grabSoon(camera), RESULT_END_OF_KOVA_FILE);
    camera.setTargetKovaPosition(2);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_EQ(camera.getCurrentKovaPosition(), 2);
    camera.setTargetKovaPosition(-5);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_EQ(camera.getCurrentKovaPosition(), 0);
    camera.setTargetKovaPosition(99);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_EQ(camera.getCurrentKovaPosition(), 5);
}

TEST_F(OpenRecording, ViewsAreFilledAndDifferAndBuffersTakeTurns) {
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    std::set<void*> first;
    std::set<std::string> contents;
    for (int type = 0; type < kObstacleViewTypeCount; ++type) {
        void* data =
            camera.retrieveObstacleDetectionView(static_cast<OBSTACLE_VIEW_TYPE>(type)).data;
        ASSERT_NE(data, nullptr) << type;
        EXPECT_EQ(camera.retrieveObstacleDetectionView(static_cast<OBSTACLE_VIEW_TYPE>(type)).data,
                  data)
            << "kept until the next grab";
        first.insert(data);
        contents.insert(std::string(static_cast<char*>(data), kWidth * kHeight));
    }
    EXPECT_EQ(first.size(), 6u);
    EXPECT_EQ(contents.size(), 6u);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    for (int type = 0; type < kObstacleViewTypeCount; ++type)
        EXPECT_EQ(
            first.count(
                camera.retrieveObstacleDetectionView(static_cast<OBSTACLE_VIEW_TYPE>(type)).data),
            0u)
            << "what is on screen is not written";
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_EQ(first.count(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_STIXELS).data),
              1u);
    EXPECT_EQ(camera.retrieveObstacleDetectionView(static_cast<OBSTACLE_VIEW_TYPE>(6)).data,
              nullptr);
    EXPECT_EQ(camera.retrieveDepthForObstacleDetection(static_cast<DEPTH_TYPE>(3)).data, nullptr);
}

TEST_F(OpenRecording, PointsLieWithinTheDistanceRange) {
    camera.setDistanceMinValue(1000);
    camera.setDistanceMaxValue(4000);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    const float* points = cloud();
    ASSERT_NE(points, nullptr);
    int valid = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const float* p = points + 3 * i;
        EXPECT_EQ(std::isnan(p[0]), std::isnan(p[2]));
        EXPECT_EQ(std::isnan(p[1]), std::isnan(p[2]));
        if (std::isnan(p[2]))
            continue;
        ++valid;
        ASSERT_GE(p[2], 1000 * 0.999f);
        ASSERT_LE(p[2], 4000 * 1.001f);
    }
    EXPECT_GT(valid, kWidth * kHeight / 20);
}

TEST_F(OpenRecording, DistanceSettersClampAndTheGettersSaySo) {
    const float reach = camera.getDistanceMaxValue();
    EXPECT_NEAR(reach, 190 * 120 / 4.0, 60);
    camera.setDistanceMaxValue(1e9f);
    EXPECT_EQ(camera.getDistanceMaxValue(), reach);
    for (const WORK_MODE mode : {WORK_MODE_SLOW, WORK_MODE_MEDIUM, WORK_MODE_FAST}) {
        EXPECT_EQ(camera.changeWorkMode(mode), RESULT_OK);
        EXPECT_EQ(camera.getDistanceMaxValue(), reach) << "the same in every work mode";
    }
    EXPECT_EQ(camera.changeWorkMode(static_cast<WORK_MODE>(3)), RESULT_INVALID_RESOLUTION_MODE);
}

TEST_F(OpenRecording, StoppedDetectionKeepsTheLastPictures) {
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    void* const data = camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE).data;
    ASSERT_NE(data, nullptr);
    const std::string content(static_cast<char*>(data), kWidth * kHeight * 4);
    EXPECT_EQ(camera.stopObstacleDetection(), RESULT_OK);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_EQ(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE).data, data);
    EXPECT_EQ(content, std::string(static_cast<char*>(data), kWidth * kHeight * 4));
    EXPECT_NE(cloud(), nullptr) << "depth goes on";
    EXPECT_EQ(camera.startObstacleDetection(true, false), RESULT_OK);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_NE(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE).data, nullptr);
}

TEST_F(OpenRecording, FlipTurnsPicturesAndPoints) {
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    const std::vector<float> upright(cloud(), cloud() + 3 * kWidth * kHeight);
    EXPECT_EQ(camera.setFlip(true), RESULT_OK);
    camera.setTargetKovaPosition(0);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    const float* turned = cloud();
    // The ground, below in the upright pictures, is above in the turned ones.
    const auto validIn = [](const float* points, int from, int to) {
        int valid = 0;
        for (int i = from * kWidth; i < to * kWidth; ++i) valid += !std::isnan(points[3 * i + 2]);
        return valid;
    };
    EXPECT_GT(validIn(upright.data(), kHeight / 2, kHeight),
              validIn(upright.data(), 0, kHeight / 2));
    EXPECT_LT(validIn(turned, kHeight / 2, kHeight), validIn(turned, 0, kHeight / 2));
    EXPECT_EQ(camera.getImageSizeFPS().width, kWidth) << "the size never changes";
}

/// Mean of red minus blue over a picture of kWidth x kHeight; null counts as grey.
double redness(const ImageRecord& view) {
    const auto* rgba = static_cast<const std::uint8_t*>(view.data);
    double sum = 0;
    for (int i = 0; rgba && i < kWidth * kHeight; ++i) sum += rgba[4 * i] - rgba[4 * i + 2];
    return sum / (kWidth * kHeight);
}

// The left eye looks through a red glass, the right one through a blue one.
TEST(StereoCameraColour, AFlippedCameraShowsTheColoursOfItsOtherEye) {
    const test::TemporaryFolder folder;
    test::SimulatedRecordingOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.still = true;
    options.fps = 100;
    options.stream = [](camera::StreamInfo& stream) {
        stream.pixel_format = camera::PixelFormat::kRgb;
    };
    options.frame = [](int, camera::RawFrame& frame) {
        std::vector<std::uint8_t> rgb;
        for (std::size_t i = 0; i < frame.data.size(); ++i) {
            const bool left = i % (2 * kWidth) < kWidth;
            const auto weak = static_cast<std::uint8_t>(frame.data[i] / 2);
            rgb.insert(rgb.end(),
                       {left ? frame.data[i] : weak, frame.data[i], left ? weak : frame.data[i]});
        }
        frame.data = rgb;
    };
    const std::string path = (folder / "colour.kova").string();
    test::recordSimulation(path, options);
    StereoCamera camera;
    ASSERT_EQ(camera.open(path.c_str(), WORK_MODE_FAST), RESULT_OK);
    ASSERT_EQ(camera.startObstacleDetection(false, false), RESULT_OK);
    const auto shown = [&] {
        camera.setTargetKovaPosition(0);
        EXPECT_EQ(grabSoon(camera), RESULT_OK);
        return redness(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE));
    };
    const double upright = shown();
    EXPECT_GT(upright, 10);
    camera.setFlip(true);
    EXPECT_LT(shown(), -10);
    // It stays flipped when another source is opened, from the first frame on.
    ASSERT_EQ(camera.open(path.c_str(), WORK_MODE_FAST), RESULT_OK);
    ASSERT_EQ(camera.startObstacleDetection(false, false), RESULT_OK);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    EXPECT_LT(redness(camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_OBSTACLE)), -10);
    camera.setFlip(false);
    EXPECT_NEAR(shown(), upright, 1);
}

TEST_F(OpenRecording, FillCompletesWhatStandardLeavesOpen) {
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    const auto holes = [&] {
        const float* points = cloud();
        int count = 0;
        for (int i = 0; i < kWidth * kHeight; ++i) count += std::isnan(points[3 * i + 2]);
        return count;
    };
    const int standard = holes();
    GrabParameters fill;
    fill.depth_mode = 1;
    camera.setTargetKovaPosition(0);
    ASSERT_EQ(grabSoon(camera, fill), RESULT_OK);
    EXPECT_LT(holes(), standard);
}

TEST_F(OpenRecording, ConfidenceThresholdNeverAddsPoints) {
    const auto validAt = [&](float threshold) {
        camera.setConfidenceThreshold(threshold);
        camera.setTargetKovaPosition(0);
        EXPECT_EQ(grabSoon(camera), RESULT_OK);
        const float* points = cloud();
        int count = 0;
        for (int i = 0; i < kWidth * kHeight; ++i) count += !std::isnan(points[3 * i + 2]);
        return count;
    };
    const int all = validAt(0);
    const int half = validAt(0.5f);
    const int sure = validAt(0.99f);
    EXPECT_LE(half, all);
    EXPECT_LE(sure, half);
    EXPECT_LT(sure, all);
}

TEST_F(OpenRecording, ImuNeedsAnImu) {
    EXPECT_EQ(
        camera.startRetrieveIMU(static_cast<imu::IMU_ACCEL_RANGE>(9), imu::IMU_GYRO_RANGE_2000DPS),
        RESULT_INVALID_IMU_DATA_TYPE);
    EXPECT_EQ(camera.startObstacleDetection(true, false), RESULT_OK);
    const test::TemporaryFolder folder;
    test::SimulatedRecordingOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.frames = 1;
    test::recordSimulation((folder / "blind.kova").string(), options);
    ASSERT_EQ(camera.open((folder / "blind.kova").c_str(), WORK_MODE_FAST), RESULT_OK);
    EXPECT_FALSE(camera.isIMUSupported());
    EXPECT_EQ(camera.startObstacleDetection(true, false), RESULT_INVALID_IMU);
    EXPECT_EQ(camera.startObstacleDetection(false, false), RESULT_OK);
    EXPECT_EQ(grabSoon(camera), RESULT_OK) << "a file of one frame is shown";
}

TEST_F(OpenRecording, WidthsThatLeaveTheCameraAreMultiplesOfFour) {
    const test::TemporaryFolder folder;
    test::SimulatedRecordingOptions options;
    options.width = 306;
    options.height = 93;
    options.frames = 1;
    test::recordSimulation((folder / "odd.kova").string(), options);
    ASSERT_EQ(camera.open((folder / "odd.kova").c_str(), WORK_MODE_MEDIUM), RESULT_OK);
    EXPECT_EQ(camera.getImageSizeFPS().width, 304);
    EXPECT_EQ(camera.getImageSizeFPS().height, 93);
    camera.startObstacleDetection(false, false);
    ASSERT_EQ(grabSoon(camera), RESULT_OK);
    const auto* map = static_cast<const std::uint8_t*>(
        camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_GROUND_MAP).data);
    for (int i = 0; i < 304 * 93; ++i)
        ASSERT_TRUE(map[i] == 0 || map[i] == 127 || map[i] == 255) << i;
}

TEST_F(OpenRecording, TheSameFramesGiveTheSameBytes) {
    const auto run = [&] {
        std::string all;
        EXPECT_EQ(camera.open(recording().c_str(), WORK_MODE_MEDIUM), RESULT_OK);
        EXPECT_EQ(camera.startObstacleDetection(true, false), RESULT_OK);
        while (grabSoon(camera) == RESULT_OK) {
            const void* map =
                camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_GROUND_MAP).data;
            all.append(static_cast<const char*>(map), kWidth * kHeight);
            all.append(reinterpret_cast<const char*>(cloud()), kWidth * kHeight * 12);
        }
        return all;
    };
    const std::string first = run();
    EXPECT_EQ(first.size(), std::size_t(6 * kWidth * kHeight * 13));
    EXPECT_TRUE(first == run());
}

TEST_F(OpenRecording, SettersFromOtherThreadsAndTwoGrabbersAreSafe) {
    std::atomic<bool> stop{false};
    std::thread setter([&] {
        for (int i = 0; !stop; ++i) {
            camera.setConfidenceThreshold(0.1f * static_cast<float>(i % 9));
            camera.setDistanceMaxValue(3000.0f + 100.0f * static_cast<float>(i % 20));
            camera.setFlip(i % 2 == 0);
            camera.changeWorkMode(static_cast<WORK_MODE>(i % 3));
            camera.setObstacleDetectionParameters({});
            camera.getDistanceMinValue();
            camera.getCurrentKovaPosition();
            camera.setTargetKovaPosition(i % 6);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::thread grabber([&] {
        while (!stop) {
            if (camera.grab({}) == RESULT_OK)
                camera.retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE_TOP_VIEW);
        }
    });
    int frames = 0;
    while (frames < 20) {
        if (camera.grab({}) == RESULT_OK) {
            ++frames;
            EXPECT_NE(cloud(), nullptr);
        }
    }
    stop = true;
    setter.join();
    grabber.join();
}

}  // namespace
}  // namespace kova::bino
