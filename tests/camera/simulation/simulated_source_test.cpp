#include "camera/simulation/simulated_source.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <set>

#include "camera/base/log.h"
#include "camera/simulation/film.h"
#include "camera/simulation/simulated_cameras.h"

namespace kova::camera {
namespace {

/// Time that passes only when the camera waits or the test says so.
class FakeClock : public SourceClock {
public:
    explicit FakeClock(std::int64_t& now) : now_(now) {}
    std::int64_t nowNs() override { return now_; }
    void sleepUntil(std::int64_t t_ns) override { now_ = std::max(now_, t_ns); }

private:
    std::int64_t& now_;
};

constexpr std::int64_t kMs = 1'000'000;
constexpr auto kMode = bino::RESOLUTION_FPS_MODE_SD400_15FPS;

class SimulatedSourceTest : public testing::Test {
protected:
    void open(SimulatedCameraOptions options) {
        options.scene = "wall";  // quick to render
        Result<std::unique_ptr<SimulatedSource>> result =
            SimulatedSource::open(options, kMode, std::make_unique<FakeClock>(now_));
        ASSERT_TRUE(result.ok()) << result.status().message();
        source_ = std::move(result.value());
    }
    double meanOfNext() {
        EXPECT_TRUE(source_->grab(frame_).ok());
        return meanGrey(frame_.data, 640, 400);
    }

    std::int64_t now_ = 50'000 * kMs;
    std::unique_ptr<SimulatedSource> source_;
    RawFrame frame_;
};

TEST_F(SimulatedSourceTest, DeliversAtTheNominalRate) {
    open({});
    EXPECT_EQ(source_->stream().width, 1280);
    EXPECT_EQ(source_->stream().height, 400);
    EXPECT_EQ(source_->stream().nominal_fps, 15);
    EXPECT_TRUE(source_->calibration().check().ok());
    std::int64_t last = 0;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(source_->grab(frame_).ok());
        EXPECT_EQ(frame_.sequence, i);
        EXPECT_EQ(frame_.data.size(), 1280u * 400);
        if (i > 0) {
            EXPECT_NEAR(static_cast<double>(frame_.t_ns - last), 1e9 / 15, 2);
        }
        last = frame_.t_ns;
    }
    EXPECT_EQ(source_->droppedFrames(), 0);
}

TEST_F(SimulatedSourceTest, SlowReaderGetsTheNewestFrameAndTheCountOfLostOnes) {
    open({});
    ASSERT_TRUE(source_->grab(frame_).ok());
    now_ += 410 * kMs;  // frames 1 to 6 are due
    ASSERT_TRUE(source_->grab(frame_).ok());
    EXPECT_EQ(frame_.sequence, 6);
    EXPECT_EQ(source_->droppedFrames(), 5);
}

TEST_F(SimulatedSourceTest, UnplugIsForGood) {
    SimulatedCameraOptions options;
    options.unplug_s = 0.5;
    open(options);
    int frames = 0;
    while (frames < 100 && source_->grab(frame_).ok()) ++frames;
    EXPECT_EQ(frames, 8);  // at 0, 67, ..., 467 ms
    EXPECT_EQ(source_->grab(frame_).code(), ErrorCode::kInvalidCamera);
}

TEST_F(SimulatedSourceTest, StallGivesNoFrameThenNoCamera) {
    SimulatedCameraOptions options;
    options.stall_s = 0.2;
    open(options);
    while (source_->grab(frame_).ok()) {
    }
    const std::int64_t silent_since = now_;
    int waits = 1;
    while (source_->grab(frame_).code() == ErrorCode::kNoNewFrame && waits < 100) ++waits;
    EXPECT_EQ(source_->grab(frame_).code(), ErrorCode::kInvalidCamera);
    EXPECT_GE(waits, 8);
    EXPECT_LE(now_ - silent_since, 1200 * kMs);
}

TEST_F(SimulatedSourceTest, CorruptAndLostFramesOnRequest) {
    SimulatedCameraOptions options;
    options.drop_every = 3;
    options.corrupt_every = 5;
    open(options);
    std::set<std::int64_t> whole, cut;
    for (int i = 0; i < 10; ++i) {
        const Status status = source_->grab(frame_);
        if (status.code() == ErrorCode::kNoNewFrame) {
            --i;
            continue;
        }
        ASSERT_TRUE(status.ok());
        (frame_.data.size() == 1280u * 400 ? whole : cut).insert(frame_.sequence);
    }
    EXPECT_EQ(whole, (std::set<std::int64_t>{0, 1, 3, 6, 7, 10, 12, 13}));
    EXPECT_EQ(cut, (std::set<std::int64_t>{4, 9}));
    EXPECT_EQ(source_->droppedFrames(), 4);
}

TEST_F(SimulatedSourceTest, ManualExposureSetsTheBrightness) {
    open({});
    ASSERT_TRUE(source_->setExposureMs(2).ok());
    EXPECT_NEAR(source_->exposureMs(), 2, 1e-9);
    const double dark = meanOfNext();
    ASSERT_TRUE(source_->setExposureMs(4).ok());
    const double bright = meanOfNext();
    EXPECT_NEAR(bright / dark, 2.0, 0.1);
    EXPECT_EQ(frame_.exposure_us, 4000);
    ASSERT_TRUE(source_->setExposureMs(1e9).ok());
    EXPECT_EQ(source_->exposureMs(), source_->maxExposureMs());
    EXPECT_EQ(source_->setExposureMs(NAN).code(), ErrorCode::kInvalidArgument);
}

TEST_F(SimulatedSourceTest, AutomaticExposureReturnsWithALag) {
    open({});
    ASSERT_TRUE(source_->setExposureMs(1).ok());
    const double dark = meanOfNext();
    EXPECT_LT(dark, 60);
    ASSERT_TRUE(source_->setAutoExposure(true).ok());
    EXPECT_LT(meanOfNext(), 1.1 * dark);
    const double soon = meanOfNext();
    for (int i = 0; i < 40; ++i) meanOfNext();
    const double settled = meanOfNext();
    EXPECT_LT(soon, 0.8 * settled);
    EXPECT_NEAR(settled, AutoExposure::kTarget, 6);
}

TEST_F(SimulatedSourceTest, InertialSamplesOfARestingCameraShowGravity) {
    open({});
    ASSERT_TRUE(source_->grab(frame_).ok());
    EXPECT_TRUE(frame_.imu.empty());  // not started
    ASSERT_TRUE(source_->startImu().ok());
    ASSERT_TRUE(source_->grab(frame_).ok());
    ASSERT_TRUE(source_->grab(frame_).ok());
    ASSERT_NEAR(static_cast<double>(frame_.imu.size()), 1000.0 / 15 / 5, 1.5);
    const double tilt = 8 * 3.14159265 / 180;
    for (const ImuSample& sample : frame_.imu) {
        EXPECT_LE(sample.t_ns, frame_.t_ns);
        EXPECT_GT(sample.t_ns, frame_.t_ns - 80 * kMs);
        // Tilted down, part of gravity lies along the optical axis.
        EXPECT_NEAR(sample.accel[1], -9.81 * std::cos(tilt), 0.25);
        EXPECT_NEAR(sample.accel[2], -9.81 * std::sin(tilt), 0.25);
        EXPECT_NEAR(sample.gyro[0], 0, 0.02);
    }
}

TEST_F(SimulatedSourceTest, DeadInertialUnitAndModelsWithoutOne) {
    SimulatedCameraOptions options;
    options.dead_imu = true;
    open(options);
    ASSERT_TRUE(source_->startImu().ok());
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(source_->grab(frame_).ok());
    EXPECT_TRUE(frame_.imu.empty());

    options = {};
    options.model = bino::CAMERA_MODEL_QUELVAR_R0;
    open(options);
    EXPECT_FALSE(source_->camera().has_imu);
    EXPECT_EQ(source_->startImu().code(), ErrorCode::kImuMissing);
}

TEST(SimulatedSource, ModesAreThoseOfTheModel) {
    SimulatedCameraOptions options;
    options.model = bino::CAMERA_MODEL_QUELVAR_P0;
    const auto result = SimulatedSource::open(options, bino::RESOLUTION_FPS_MODE_HD800_120FPS);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.status().code(), ErrorCode::kInvalidMode);
}

TEST(SimulatedCameras, ReadsModelsAndOptions) {
    const auto result = parseSimulatedCameras(
        "P1:scene=street:seed=7:unplug_s=10.5,R0:noise=2:imu=dead:lenses=distorted");
    ASSERT_TRUE(result.ok()) << result.status().message();
    ASSERT_EQ(result.value().size(), 2u);
    const SimulatedCameraOptions &first = result.value()[0], &second = result.value()[1];
    EXPECT_EQ(first.model, bino::CAMERA_MODEL_QUELVAR_P1);
    EXPECT_EQ(first.scene, "street");
    EXPECT_EQ(first.seed, 7u);
    EXPECT_EQ(first.unplug_s, 10.5);
    EXPECT_EQ(second.model, bino::CAMERA_MODEL_QUELVAR_R0);
    EXPECT_EQ(second.scene, "demo");
    EXPECT_EQ(second.noise_scale, 2);
    EXPECT_TRUE(second.dead_imu);
    EXPECT_FALSE(first.lens_distortion);
    EXPECT_TRUE(second.lens_distortion);
}

TEST(SimulatedCameras, RefusesBadTextInWords) {
    for (const char* text :
         {"", "X1", "p1", "P1,", "P1:scene=moon", "P1:seed=-1", "P1:seed=1.5",
          "P1:seed=", "P1:unplug_s=0", "P1:unplug_s=nan", "P1:colour=red", "P1:imu=on",
          "P1:lenses=good", "P1:drop_every=1", "P1::", "P1:noise=1x", "T1"}) {
        const auto result = parseSimulatedCameras(text);
        EXPECT_FALSE(result.ok()) << text;
        EXPECT_EQ(result.status().code(), ErrorCode::kInvalidArgument);
        EXPECT_FALSE(result.status().message().empty());
    }
}

TEST(SimulatedCameras, EnvironmentDecidesAndBadTextIsOneLogLine) {
    std::vector<std::string> lines;
    setLogSink(
        [&](LogLevel, const std::string&, const std::string& text) { lines.push_back(text); });
    ::unsetenv("KOVA_SIMULATED_CAMERAS");
    EXPECT_TRUE(listSimulatedCameras().empty());
    EXPECT_TRUE(lines.empty());
    ::setenv("KOVA_SIMULATED_CAMERAS", "P1:seed=3,R0", 1);
    const std::vector<CameraInfo> cameras = listSimulatedCameras();
    ASSERT_EQ(cameras.size(), 2u);
    EXPECT_EQ(cameras[0].model, bino::CAMERA_MODEL_QUELVAR_P1);
    EXPECT_TRUE(cameras[0].has_imu);
    EXPECT_EQ(cameras[1].model, bino::CAMERA_MODEL_QUELVAR_R0);
    EXPECT_EQ(openSimulatedCamera(2, kMode).status().code(), ErrorCode::kInvalidCamera);
    ::setenv("KOVA_SIMULATED_CAMERAS", "P1:seed=x", 1);
    EXPECT_TRUE(listSimulatedCameras().empty());
    EXPECT_EQ(lines.size(), 1u);
    ::unsetenv("KOVA_SIMULATED_CAMERAS");
    setLogSink({});
}

}  // namespace
}  // namespace kova::camera
