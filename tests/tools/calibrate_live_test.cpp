#include "tools/commands/calibrate_live.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "camera/simulation/film.h"
#include "camera/simulation/renderer.h"
#include "camera/simulation/simulated_source.h"

namespace kova::tools {
namespace {

using testing::HasSubstr;

/// A live camera at the simulator's board. Each pose is rendered when it is due, so that what the
/// camera shows depends on nothing but how often it is read.
class BoardSource : public camera::Source {
public:
    BoardSource()
        : renderer_(camera::makeScene("calibration_board", 1).value(), rig()),
          film_(renderer_.rig()) {
        stream_.width = 2 * renderer_.rig().width;
        stream_.height = renderer_.rig().height;
        stream_.nominal_fps = kFps;
    }
    const camera::StreamInfo& stream() const override { return stream_; }
    const camera::CameraInfo& camera() const override { return camera_; }
    const camera::StereoCalibration& calibration() const override { return renderer_.rig().given; }
    camera::Status grab(camera::RawFrame& frame) override {
        const double t_s = number_ / kFps;
        const auto pose = static_cast<int>(t_s / renderer_.scene().showing.hold_s + 1e-6);
        if (pose != pose_)
            renderer_.render(t_s, camera::kNominalExposureUs * 1e-6, light_);
        pose_ = pose;
        film_.expose(light_, {}, number_, frame.data);
        frame.t_ns = static_cast<std::int64_t>(t_s * 1e9);
        frame.sequence = number_++;
        return {};
    }

private:
    static constexpr double kFps = 15;  // three frames of each pose: every third pair moves
    static camera::SimulatedRig rig() {
        camera::RigOptions options;
        options.lens_distortion = true;
        return camera::makeRig(options);
    }

    camera::Renderer renderer_;
    camera::Film film_;
    camera::StreamInfo stream_;
    camera::CameraInfo camera_;
    camera::LightPair light_;
    int number_ = 0, pose_ = -1;
};

class Clock : public camera::SourceClock {
public:
    std::int64_t nowNs() override { return now_; }
    void sleepUntil(std::int64_t t_ns) override { now_ = std::max(now_, t_ns); }

private:
    std::int64_t now_ = 0;
};

class CalibrateLive : public testing::Test {
protected:
    camera::Status collect(camera::Source& source, double seconds) {
        testing::internal::CaptureStderr();
        const camera::Status ended = collectLive(source, collector_, seconds, false);
        said_ = testing::internal::GetCapturedStderr();
        return ended;
    }

    camera::Board board_ = [] {
        camera::Board board;
        board.square_mm = 60;
        return board;
    }();
    camera::StereoCalibrator calibrator_{board_};
    camera::ViewCollector collector_{board_, calibrator_};
    std::string said_;
};

TEST_F(CalibrateLive, ABoardThatIsShownAllAroundIsEnough) {
    BoardSource source;
    const camera::Status ended = collect(source, 30);
    ASSERT_TRUE(ended.ok()) << ended.message();
    EXPECT_TRUE(collector_.enough()) << collector_.missing();
    EXPECT_GE(calibrator_.viewCount(), camera::ViewCollector::kViews);
    EXPECT_THAT(said_, HasSubstr("view 1 taken; missing: left eye: "));
    EXPECT_THAT(said_, HasSubstr("14 more views"));
    EXPECT_THAT(said_, HasSubstr("taken; enough"));

    camera::CalibrationReport report;
    const camera::Status status = calibrator_.calibrate(report);
    ASSERT_TRUE(status.ok()) << status.message();
    const camera::StereoCalibration& truth = source.calibration();
    EXPECT_NEAR(truth.baselineMm(), report.calibration.baselineMm(), 0.005 * truth.baselineMm());
    EXPECT_NEAR(truth.left.fx, report.calibration.left.fx, 0.005 * truth.left.fx);
    EXPECT_EQ(1.0, report.coverage.share());
}

TEST_F(CalibrateLive, EndsWithTimeAndWithTheCamera) {
    camera::SimulatedCameraOptions options;
    options.scene = "calibration_board";
    options.unplug_s = 1;
    auto source = camera::SimulatedSource::open(options, bino::RESOLUTION_FPS_MODE_SD400_15FPS,
                                                std::make_unique<Clock>());
    ASSERT_TRUE(source.ok()) << source.status().message();
    EXPECT_TRUE(collect(*source.value(), 0.3).ok());
    EXPECT_GE(calibrator_.viewCount(), 1);
    const camera::Status ended = collect(*source.value(), 0);
    EXPECT_EQ(camera::ErrorCode::kInvalidCamera, ended.code());
    EXPECT_FALSE(collector_.enough());
}

}  // namespace
}  // namespace kova::tools
