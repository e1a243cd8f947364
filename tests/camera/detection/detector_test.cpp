#include "camera/detection/detector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "camera/base/parallel.h"
#include "tests/camera/detection/synthetic_scene.h"

namespace kova::camera {
namespace {

using test::SyntheticScene;

float partOf(const DetectionFrame& frame, std::uint8_t value) {
    int count = 0;
    for (int y = 0; y < frame.height; ++y)
        for (int x = 0; x < frame.width; ++x) count += frame.ground_map.at(x, y) == value;
    return static_cast<float>(count) / static_cast<float>(frame.width * frame.height);
}

struct Pose {
    const char* name;
    double height_mm, pitch_deg, roll_deg;
};
class GroundPose : public testing::TestWithParam<Pose> {};

TEST_P(GroundPose, PlaneIsRecovered) {
    const Pose& pose = GetParam();
    SyntheticScene scene(640, 400, pose.height_mm, pose.pitch_deg, pose.roll_deg);
    scene.addGround();
    scene.addWall(-900, 300, 0, 500, 3500);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    EXPECT_NEAR(frame.ground.pitch_deg, pose.pitch_deg, 0.15);
    EXPECT_NEAR(frame.ground.roll_deg, pose.roll_deg, 0.15);
    EXPECT_NEAR(frame.ground.height_mm, pose.height_mm, 0.02 * pose.height_mm);
}

INSTANTIATE_TEST_SUITE_P(Poses, GroundPose,
                         testing::Values(Pose{"Low", 400, 8, 0}, Pose{"Middle", 600, 8, 0},
                                         Pose{"High", 1200, 8, 0}, Pose{"Level", 600, 0, 0},
                                         Pose{"LooksDown", 600, 20, 0}, Pose{"Rolled", 600, 8, 4}),
                         [](const auto& info) { return info.param.name; });

TEST(Detector, BoxOnTheGroundIsFoundAtItsDistance) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(200, 500, 0, 400, 4000);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.obstacles.size(), 1u);
    const Obstacle& box = frame.obstacles.front();
    EXPECT_NEAR(box.ahead_mm, 4000, 120);
    EXPECT_NEAR(box.lateral_mm, 200, 60);
    EXPECT_NEAR(box.width_mm, 500, 120);
    EXPECT_NEAR(box.high_mm, 400, 60);
    EXPECT_NEAR(box.low_mm, 0, 30);
    EXPECT_TRUE(frame.nearest.exists);
    EXPECT_EQ(frame.nearest.zone, Zone::kMidToFar);
    EXPECT_GT(partOf(frame, 255), 0.4f);
    EXPECT_GT(partOf(frame, 0), 0.005f);  // 47 x 38 px
}

TEST(Detector, EmptyFloorHasNoObstacleAndIsFree) {
    SyntheticScene scene;
    scene.addGround();
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    EXPECT_TRUE(frame.obstacles.empty());
    EXPECT_TRUE(frame.drops.empty());
    int free = 0;
    for (const ColumnRange& column : frame.columns) free += column.state == ColumnState::kFree;
    EXPECT_GT(free, static_cast<int>(0.9 * static_cast<double>(frame.columns.size())));
}

TEST(Detector, WallWithoutGroundIsNoGround) {
    SyntheticScene scene;
    scene.addWall(0, 20000, -5000, 5000, 2000);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    EXPECT_EQ(frame.ground.state, GroundState::kLost);
    EXPECT_EQ(partOf(frame, 255), 0);
    ASSERT_FALSE(frame.obstacles.empty());
    EXPECT_NEAR(frame.obstacles.front().distance_mm, 2000, 100);
}

TEST(Detector, TheSameInputGivesTheSameOnAnyNumberOfThreads) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(-500, 300, 0, 1700, 3000);
    scene.finish();
    DetectionFrame one;
    DetectionFrame three;
    setThreadCount(1);
    scene.detectAlone(one);
    setThreadCount(3);
    scene.detectAlone(three);
    setThreadCount(0);
    ASSERT_EQ(one.stixels.size(), three.stixels.size());
    for (std::size_t i = 0; i < one.stixels.size(); ++i) {
        EXPECT_EQ(one.stixels[i].disparity, three.stixels[i].disparity);
        EXPECT_EQ(one.stixels[i].y_top, three.stixels[i].y_top);
    }
    for (int y = 0; y < one.height; ++y)
        ASSERT_EQ(std::memcmp(one.ground_map.row(y), three.ground_map.row(y),
                              static_cast<std::size_t>(one.width)),
                  0);
}

}  // namespace
}  // namespace kova::camera
