#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "camera/detection/detector.h"
#include "camera/matching/matcher.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

class Street : public testing::Test {
protected:
    void SetUp() override {
        root_ = test::realData("kitti-odometry-seq1");
        KOVA_NEED_REAL_DATA(root_);
        for (const auto& entry : std::filesystem::directory_iterator(root_ / "image_l"))
            names_.push_back(entry.path().filename().string());
        std::sort(names_.begin(), names_.end());
    }

    void detect(std::size_t i) {
        const cv::Mat left = cv::imread((root_ / "image_l" / names_[i]).string(), 0);
        const cv::Mat right = cv::imread((root_ / "image_r" / names_[i]).string(), 0);
        const int width = left.cols / 4 * 4;
        const auto view = [&](const cv::Mat& m) {
            return ImageView<const std::uint8_t>{m.data, width, m.rows,
                                                 static_cast<std::ptrdiff_t>(m.step)};
        };
        MatchParameters match;
        match.work_mode = WorkMode::kMedium;
        ASSERT_TRUE(matcher_->match(view(left), view(right), match, map_).ok());
        DetectionInput input;
        input.left = view(left);
        input.right = view(right);
        input.map = &map_;
        input.geometry = {width,    left.rows, 707.0912, 707.0912,
                          601.8873, 183.1104,  601.8873, 537.15};
        input.t_ns = static_cast<std::int64_t>(i) * 100'000'000;
        detector_.detect(input, DetectionSettings(), frame_);
    }

    std::filesystem::path root_;
    std::vector<std::string> names_;
    std::unique_ptr<Matcher> matcher_ = makeMatcher();
    Detector detector_;
    DisparityMap map_;
    DetectionFrame frame_;
};

/// The parked car on the right of frame 24 stands 6 to 9 m ahead; the road before it is ground.
TEST_F(Street, TheParkedCarAndTheRoadAreSeen) {
    for (std::size_t i = 22; i <= 24; ++i) detect(i);
    int on_car = 0;
    int columns = 0;
    for (const ColumnRange& c : frame_.columns) {
        if (c.x_begin < 850 || c.x_end > 1000)
            continue;
        ++columns;
        on_car += c.state == ColumnState::kOccupied && c.distance_mm > 6000 && c.distance_mm < 9000;
    }
    EXPECT_GE(on_car, 0.9 * columns);
    int ground = 0;
    int pixels = 0;
    for (int y = 230; y < 360; ++y)
        for (int x = 560; x < 680; ++x) {
            ++pixels;
            ground += frame_.ground_map.at(x, y) == 255;
        }
    EXPECT_GT(ground, 0.9 * pixels);
}

}  // namespace
}  // namespace kova::camera
