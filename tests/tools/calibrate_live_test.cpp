#include "tools/commands/calibrate_live.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "camera/simulation/simulated_source.h"

namespace kova::tools {
namespace {

using testing::HasSubstr;

/// Goes on when the camera is read, but never beyond what it has rendered: what it shows depends on
/// nothing but how often it is read.
class PatientClock : public camera::SourceClock {
public:
    explicit PatientClock(camera::SimulatedSource*& source) : source_(source) {}
    std::int64_t nowNs() override { return now_; }
    void sleepUntil(std::int64_t t_ns) override {
        now_ = t_ns;
        const auto pose = static_cast<int>(static_cast<double>(now_) / 0.2e9);
        const int needed = std::min(source_->viewsWanted(), std::max(8, pose + 3));
        while (source_->viewsReady() < needed)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

private:
    camera::SimulatedSource*& source_;
    std::int64_t now_ = 0;
};

class CalibrateLive : public testing::Test {
protected:
    void open(camera::SimulatedCameraOptions options) {
        options.scene = "calibration_board";
        options.lens_distortion = true;
        auto source = camera::SimulatedSource::open(options, bino::RESOLUTION_FPS_MODE_SD400_15FPS,
                                                    std::make_unique<PatientClock>(live_));
        ASSERT_TRUE(source.ok()) << source.status().message();
        source_ = std::move(source.value());
        live_ = source_.get();
    }
    camera::Status collect(double seconds) {
        testing::internal::CaptureStderr();
        const camera::Status ended = collectLive(*source_, collector_, seconds, false);
        said_ = testing::internal::GetCapturedStderr();
        return ended;
    }

    camera::SimulatedSource* live_ = nullptr;
    std::unique_ptr<camera::SimulatedSource> source_;
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
    open({});
    const camera::Status ended = collect(30);
    ASSERT_TRUE(ended.ok()) << ended.message();
    EXPECT_TRUE(collector_.enough()) << collector_.missing();
    EXPECT_GE(calibrator_.viewCount(), camera::ViewCollector::kViews);
    EXPECT_THAT(said_, HasSubstr("view 1 taken; missing: left eye: "));
    EXPECT_THAT(said_, HasSubstr("14 more views"));
    EXPECT_THAT(said_, HasSubstr("taken; enough"));

    camera::CalibrationReport report;
    const camera::Status status = calibrator_.calibrate(report);
    ASSERT_TRUE(status.ok()) << status.message();
    const camera::StereoCalibration& truth = source_->calibration();
    EXPECT_NEAR(truth.baselineMm(), report.calibration.baselineMm(), 0.005 * truth.baselineMm());
    EXPECT_NEAR(truth.left.fx, report.calibration.left.fx, 0.005 * truth.left.fx);
    EXPECT_EQ(1.0, report.coverage.share());
}

TEST_F(CalibrateLive, EndsWithTimeAndWithTheCamera) {
    camera::SimulatedCameraOptions options;
    options.unplug_s = 1;
    open(options);
    EXPECT_TRUE(collect(0.3).ok());
    EXPECT_EQ(1, calibrator_.viewCount());
    const camera::Status ended = collect(0);
    EXPECT_EQ(camera::ErrorCode::kInvalidCamera, ended.code());
    EXPECT_FALSE(collector_.enough());
}

}  // namespace
}  // namespace kova::tools
