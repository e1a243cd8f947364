#include "camera/detection/detector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
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
    // The camera looks down: the wall's upper end is nearer along its axis, 1880 mm.
    ASSERT_FALSE(frame.obstacles.empty());
    EXPECT_GT(frame.obstacles.front().distance_mm, 1850);
    EXPECT_LT(frame.obstacles.front().distance_mm, 2050);
}

TEST(Detector, ThinPostIsFound) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(100, 40, 0, 1200, 3000);  // 5 px wide
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_FALSE(frame.obstacles.empty());
    EXPECT_NEAR(frame.obstacles.front().ahead_mm, 3000, 100);
    EXPECT_NEAR(frame.obstacles.front().lateral_mm, 100, 60);
}

TEST(Detector, LowBoxIsFound) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 400, 0, 120, 2500);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_FALSE(frame.obstacles.empty());
    EXPECT_NEAR(frame.obstacles.front().ahead_mm, 2500, 125);
    EXPECT_NEAR(frame.obstacles.front().high_mm, 120, 40);
}

TEST(Detector, TableTopIsFoundThoughNothingIsSeenBelowIt) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 900, 600, 750, 3000);
    scene.addWall(0, 20000, 0, 2500, 7000);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    int on_top = 0;
    for (const Stixel& s : frame.stixels) on_top += std::fabs(s.distance_mm - 3000) < 150;
    EXPECT_GE(on_top, 20);  // of 22 columns
}

/// The low contrast of dim light drowns in noise; the matcher finds it all the same.
TEST(Detector, BoxOfLittleTextureIsFound) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 400, 0, 400, 3000);
    scene.finish();
    std::mt19937 random(8);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 640; ++x)
            scene.left.at(x, y) = static_cast<std::uint8_t>(60 + random() % 12);
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.obstacles.size(), 1u);
    EXPECT_NEAR(frame.obstacles.front().ahead_mm, 3000, 100);
}

TEST(Detector, LowBoxFarAwayIsFoundInNoise) {
    int columns = 0;
    for (unsigned seed = 1; seed <= 10; ++seed) {
        SyntheticScene scene;
        scene.addGround();
        scene.addWall(0, 900, 0, 350, 6500);
        scene.finish(seed, 0.3);
        DetectionFrame frame;
        scene.detectAlone(frame);
        for (const Stixel& s : frame.stixels) columns += std::fabs(s.distance_mm - 6500) < 600;
    }
    EXPECT_GE(columns, 95);  // of 10 times 10 or 11
}

TEST(Detector, RampIsGround) {
    SyntheticScene scene;
    scene.addGround(0, 4000);
    scene.addGround(4000, 1e6, 0, 0.1);  // 5.7 degrees
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    EXPECT_FALSE(frame.ground.model.flat);
    // In a single frame noise may pass for a low thing in a column.
    EXPECT_LE(std::count_if(frame.stixels.begin(), frame.stixels.end(),
                            [](const Stixel& s) { return s.ahead_mm < 9000; }),
              1);
    // What is 3 m up the ramp is labelled ground.
    EXPECT_EQ(frame.ground_map.at(320, 158), 255);
}

TEST(Detector, EdgeOfThePlatformIsADropAndNotFree) {
    SyntheticScene scene;
    scene.addGround(0, 3000);
    scene.addGround(3000, 1e6, -500);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    ASSERT_GT(frame.drops.size(), frame.columns.size() / 2);
    int free = 0;
    for (const ColumnRange& column : frame.columns) free += column.state == ColumnState::kFree;
    EXPECT_LT(free, static_cast<int>(frame.columns.size() / 20));
    EXPECT_NEAR(frame.drops[frame.drops.size() / 2].ahead_mm, 3000, 300);
}

TEST(Detector, PavementBehindItsKerbIsNeitherObstacleNorGround) {
    SyntheticScene scene;
    scene.addGround(0, 3000);
    scene.addGround(3000, 1e6, 150);
    scene.addWall(0, 20000, 0, 150, 3000);
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    ASSERT_FALSE(frame.obstacles.empty());
    int at_the_kerb = 0;
    for (const Stixel& stixel : frame.stixels)
        at_the_kerb += std::fabs(stixel.ahead_mm - 3000) < 300;
    EXPECT_GT(at_the_kerb, static_cast<int>(0.7 * static_cast<double>(frame.columns.size())));
    EXPECT_LT(static_cast<int>(frame.stixels.size()) - at_the_kerb,
              static_cast<int>(frame.columns.size() / 20));
}

TEST(Detector, WhatIsNearerThanTheSearchIsTooNearAndNeverFree) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 300, 0, 1500, 330);  // 128 px lie at 356 mm
    scene.finish();
    DetectionFrame frame;
    scene.detectAlone(frame);
    int too_near = 0;
    for (const ColumnRange& column : frame.columns) {
        const float middle = 0.5f * static_cast<float>(column.x_begin + column.x_end);
        if (std::fabs(middle - 320) < 140) {
            too_near += column.state == ColumnState::kTooNear;
            EXPECT_NE(column.state, ColumnState::kFree) << column.x_begin;
        }
    }
    EXPECT_GT(too_near, 40);
}

TEST(Detector, FilledDepthNeverDecides) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 600, 0, 1000, 3000);
    scene.finish();
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 640; ++x)
            if (scene.map.confidence.at(x, y) != 0)
                scene.map.confidence.at(x, y) = kFilledConfidence;
    DetectionFrame frame;
    scene.detectAlone(frame);
    EXPECT_EQ(frame.ground.state, GroundState::kLost);
    EXPECT_TRUE(frame.obstacles.empty());
    EXPECT_EQ(partOf(frame, 127), 1);
}

TEST(Detector, SaturatedGroundIsUnsure) {
    SyntheticScene scene;
    scene.addGround();
    scene.finish();
    for (int y = 300; y < 340; ++y)
        for (int x = 200; x < 400; ++x) scene.left.at(x, y) = 255;
    DetectionFrame frame;
    scene.detectAlone(frame);
    for (int y = 300; y < 340; ++y)
        for (int x = 200; x < 400; ++x) ASSERT_EQ(frame.ground_map.at(x, y), 127);
    EXPECT_EQ(frame.ground_map.at(300, 370), 255);
}

TEST(Detector, ChangingTheSizeThatIsMatchedLeavesNothingBehind) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 400, 0, 300, 2500);
    scene.finish();
    DetectionSettings settings;
    settings.temporal = false;
    Detector both;
    for (const bool half_size : {true, false}) {
        DetectionInput input = scene.input();
        input.half_size = half_size;
        DetectionFrame frame, fresh;
        both.detect(input, settings, frame);
        Detector().detect(input, settings, fresh);
        ASSERT_EQ(frame.stixels.size(), fresh.stixels.size()) << half_size;
        for (std::size_t i = 0; i < fresh.stixels.size(); ++i)
            EXPECT_EQ(frame.stixels[i].y_top, fresh.stixels[i].y_top) << half_size;
        EXPECT_EQ(frame.ground.area, fresh.ground.area) << half_size;
    }
}

TEST(Detector, LimitsLeaveOutWhatTheyName) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(-800, 500, 0, 400, 4000);
    scene.addWall(800, 700, 600, 710, 3000);  // hangs
    scene.finish();
    const auto obstacles = [&](const DetectionSettings& settings) {
        DetectionFrame frame;
        scene.detectAlone(frame, settings);
        return std::count_if(frame.obstacles.begin(), frame.obstacles.end(),
                             [](const Obstacle& one) { return one.ahead_mm < 10000; });
    };
    DetectionSettings settings;
    EXPECT_EQ(obstacles(settings), 2);
    settings.obstacles.obstacle_min_height = 0.03f;  // 300 mm
    EXPECT_EQ(obstacles(settings), 2);
    settings.obstacles.obstacle_min_height = 0.05f;
    EXPECT_EQ(obstacles(settings), 1);
    settings.obstacles.clearance = 700;
    EXPECT_EQ(obstacles(settings), 1);
    settings.obstacles.clearance = 500;
    EXPECT_EQ(obstacles(settings), 0);
    settings = DetectionSettings();
    settings.stixels.min_length = 500;  // what hangs has too little evidence for that
    EXPECT_EQ(obstacles(settings), 1);
}

TEST(Detector, WhatMayBeWithinTheFarLimitIsKept) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(0, 500, 0, 400, 3848);  // 11.85 px
    scene.finish();
    const auto obstacles = [&](int least_disparity) {
        DetectionInput input = scene.input();
        input.min_disparity = least_disparity;
        DetectionFrame frame;
        DetectionSettings settings;
        settings.temporal = false;
        Detector().detect(input, settings, frame);
        return frame.obstacles.size();
    };
    EXPECT_EQ(obstacles(11), 1u);
    EXPECT_EQ(obstacles(12), 1u);  // nearer to the limit than its error
    EXPECT_EQ(obstacles(13), 0u);
}

/// Nothing that a stricter limit reports was not there before.
TEST(Detector, StricterLimitsNeverAdd) {
    SyntheticScene scene;
    scene.addGround();
    scene.addWall(-700, 300, 0, 90, 2500);
    scene.addWall(0, 300, 0, 300, 3500);
    scene.addWall(700, 300, 1500, 2200, 4000);
    scene.addWall(200, 40, 0, 900, 2800);
    scene.finish(3, 0.3);
    const auto look = [&](const DetectionSettings& settings, DetectionFrame& frame) {
        scene.detectAlone(frame, settings);
    };
    const auto contains = [](const DetectionFrame& all, const Stixel& one) {
        for (const Stixel& s : all.stixels)
            if (s.column == one.column && s.disparity == one.disparity)
                return true;
        return false;
    };
    DetectionFrame loose;
    look(DetectionSettings(), loose);
    ASSERT_FALSE(loose.stixels.empty());
    for (int which = 0; which < 6; ++which) {
        for (int step = 1; step <= 4; ++step) {
            DetectionSettings strict;
            switch (which) {
                case 0:
                    strict.obstacles.obstacle_min_height *= static_cast<float>(1 + 3 * step);
                    break;
                case 1:
                    strict.obstacles.clearance = 2000.0f / static_cast<float>(step);
                    break;
                case 2:
                    strict.stixels.min_length *= 1 + 2 * step;
                    break;
                case 3:
                    strict.stixels.max_layers = 4 - step;
                    break;
                case 4:
                    strict.obstacles.ground_min_region *= 1 + 5 * step;
                    break;
                default:
                    strict.obstacles.max_ground_slope += static_cast<float>(15 * step);
                    break;
            }
            DetectionFrame frame;
            look(strict, frame);
            for (const Stixel& s : frame.stixels)
                EXPECT_TRUE(contains(loose, s)) << "limit " << which << " step " << step;
            EXPECT_LE(partOf(frame, 0), partOf(loose, 0));
            if (which == 4) {
                EXPECT_LE(partOf(frame, 255), partOf(loose, 255));
            }
            for (std::size_t c = 0; c < frame.columns.size(); ++c) {
                if (frame.columns[c].stixel >= 0) {
                    EXPECT_GE(frame.columns[c].distance_mm, loose.columns[c].distance_mm);
                }
            }
        }
    }
}

class DetectorOverTime : public testing::Test {
protected:
    void next(const SyntheticScene& scene) {
        detector_.detect(scene.input(t_ns_), DetectionSettings(), frame_);
        t_ns_ += 33'000'000;
    }
    Detector detector_;
    DetectionFrame frame_;
    std::int64_t t_ns_ = 1'000'000'000;
};

TEST_F(DetectorOverTime, AGhostOfOneFrameDoesNotShowAndATrueObstacleDoesAfterTwo) {
    SyntheticScene empty;
    empty.addGround();
    empty.finish();
    SyntheticScene box;
    box.addGround();
    box.addWall(0, 500, 0, 500, 3000);
    box.finish();
    for (int i = 0; i < 3; ++i) next(empty);
    next(box);
    EXPECT_TRUE(frame_.obstacles.empty());
    EXPECT_EQ(partOf(frame_, 0), 0);
    for (int i = 0; i < 3; ++i) {
        next(empty);
        EXPECT_TRUE(frame_.obstacles.empty());
    }
    next(box);
    next(box);
    ASSERT_EQ(frame_.obstacles.size(), 1u);
    const int id = frame_.obstacles.front().id;
    next(box);
    ASSERT_EQ(frame_.obstacles.size(), 1u);
    EXPECT_EQ(frame_.obstacles.front().id, id);
    EXPECT_EQ(frame_.obstacles.front().age, 2);
}

TEST_F(DetectorOverTime, AStillSceneDoesNotFlicker) {
    int changes = 0;
    std::vector<bool> before;
    for (unsigned i = 0; i < 8; ++i) {
        SyntheticScene scene;
        scene.addGround();
        scene.addWall(-600, 400, 0, 700, 2500);
        scene.addWall(500, 300, 0, 1600, 4000);
        scene.finish(100 + i, 0.25);
        next(scene);
        std::vector<bool> occupied;
        for (const ColumnRange& c : frame_.columns)
            occupied.push_back(c.state == ColumnState::kOccupied);
        if (i > 1)
            for (std::size_t c = 0; c < occupied.size(); ++c) changes += occupied[c] != before[c];
        before = occupied;
        EXPECT_EQ(frame_.obstacles.size(), 2u) << i;
    }
    // Only columns at the sides of the two may change their mind.
    EXPECT_LE(changes, 8);
}

TEST_F(DetectorOverTime, GroundIsHeldForHalfASecondThenLost) {
    SyntheticScene floor;
    floor.addGround();
    floor.finish();
    SyntheticScene blind;
    blind.finish();
    next(floor);
    next(floor);
    ASSERT_EQ(frame_.ground.state, GroundState::kFound);
    next(blind);
    EXPECT_EQ(frame_.ground.state, GroundState::kHeld);
    EXPECT_EQ(frame_.ground.since_seen_ns, 33'000'000);
    for (int i = 0; i < 16; ++i) next(blind);
    EXPECT_EQ(frame_.ground.state, GroundState::kLost);
    EXPECT_EQ(partOf(frame_, 127), 1);
    for (const ColumnRange& column : frame_.columns) EXPECT_EQ(column.state, ColumnState::kUnknown);
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
    EXPECT_EQ(one.ground.model.a, three.ground.model.a);
    EXPECT_EQ(one.ground.model.b, three.ground.model.b);
    EXPECT_EQ(one.ground.model.c, three.ground.model.c);
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
