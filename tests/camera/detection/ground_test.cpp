#include <gtest/gtest.h>

#include "tests/camera/detection/synthetic_scene.h"

namespace kova {
namespace {

using camera::DetectionFrame;
using camera::GroundState;
using test::SyntheticScene;

TEST(GroundTest, ScatteredDepthIsNoGround) {
    for (const double height_mm : {400.0, 600.0, 1200.0}) {
        for (unsigned seed = 1; seed <= 4; ++seed) {
            SyntheticScene scene(640, 400, height_mm);
            scene.addGround();
            scene.finish(seed, 3.0);
            DetectionFrame frame;
            scene.detectAlone(frame);
            EXPECT_EQ(frame.ground.state, GroundState::kLost) << height_mm << " " << seed;
        }
    }
}

TEST(GroundTest, NoisyGroundIsFound) {
    for (const double height_mm : {400.0, 600.0, 1200.0}) {
        SyntheticScene scene(640, 400, height_mm);
        scene.addGround();
        scene.finish(1, 0.4);
        DetectionFrame frame;
        scene.detectAlone(frame);
        EXPECT_EQ(frame.ground.state, GroundState::kFound) << height_mm;
        EXPECT_NEAR(frame.ground.pitch_deg, 8, 0.1);
        EXPECT_NEAR(frame.ground.roll_deg, 0, 0.1);
        EXPECT_NEAR(frame.ground.height_mm, height_mm, 0.01 * height_mm);
    }
}

// Farther away a pavement and the ground are one within the noise: that bends nothing.
TEST(GroundTest, PavementDoesNotBendTheGround) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SyntheticScene scene(640, 400, 600);
        scene.addGround();
        scene.addPavement(-9000, -1800, 120);
        scene.addPavement(1800, 9000, 120);
        scene.finish(seed, 0.5);
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        EXPECT_TRUE(frame.ground.model.flat) << seed;
    }
}

TEST(GroundTest, PavementOnOneSideDoesNotTurnTheGround) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SyntheticScene scene(640, 400, 1200);
        scene.addGround();
        scene.addPavement(1000, 9000, 110);
        scene.finish(seed, 0.3);
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        EXPECT_NEAR(frame.ground.roll_deg, 0, 0.35) << seed;
    }
}

// The knee of a ramp that is met at an angle lies nearer on one side.
TEST(GroundTest, RampMetAtAnAngleIsFollowed) {
    for (const double height_mm : {400.0, 600.0, 1200.0}) {
        SyntheticScene scene(640, 400, height_mm);
        scene.addGround();
        scene.addRamp(5000, 0.105, 12);
        scene.finish(1, 0.2);
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        const camera::GroundModel& ground = frame.ground.model;
        ASSERT_FALSE(ground.flat) << height_mm;
        for (const int u : {60, 320, 580})
            for (int v = 399; ground.planeAt(u, v) > 1; v -= 5)
                EXPECT_NEAR(ground.inColumn(u).groundOf(static_cast<float>(ground.planeAt(u, v))),
                            scene.disparityAt(u, v), 0.3)
                    << height_mm << " at " << u << ", " << v;
    }
}

TEST(GroundTest, DownwardRampIsFollowed) {
    SyntheticScene scene(640, 400, 1200);
    scene.addGround();
    scene.addRamp(4500, -0.105, 0);
    scene.finish(1, 0.2);
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    const camera::GroundModel& ground = frame.ground.model;
    ASSERT_FALSE(ground.flat);
    for (int v = 399; scene.disparityAt(320, v) > 5; v -= 5)
        EXPECT_NEAR(ground.groundOf(static_cast<float>(ground.planeAt(320, v))),
                    scene.disparityAt(320, v), 0.5)
            << v;
}

// Things on a ramp that falls away hide some of the few rows that are seen of it, and a matcher
// carries their depth on to its surface around them: what lies above is believed less.
TEST(GroundTest, ThingsOnADownwardRampDoNotLiftIt) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SyntheticScene scene(640, 400, 1200);
        scene.addGround();
        scene.addRamp(4500, -0.105, 0);
        scene.finish(seed, 0.2);
        for (int y = 0; y < 400; ++y)
            for (int x = 0; x < 640; ++x)
                if (x / 16 % 2 == 0 && scene.disparityAt(x, y) < 9.5)
                    scene.map.disparity.at(x, y) += 9;
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        const camera::GroundModel& ground = frame.ground.model;
        ASSERT_FALSE(ground.flat) << seed;
        for (int v = 399; scene.disparityAt(320, v) > 5; v -= 5)
            EXPECT_NEAR(ground.groundOf(static_cast<float>(ground.planeAt(320, v))),
                        scene.disparityAt(320, v), 0.25)
                << seed << " at " << v;
    }
}

// A matcher carries the depth of things on to what is beside them, here all on one side.
TEST(GroundTest, ThingsOnAnUpwardRampDoNotTurnIt) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SyntheticScene scene(640, 400, 600);
        scene.addGround();
        scene.addRamp(5000, 0.105, 0);
        scene.finish(seed, 0.2);
        for (int y = 0; y < 400; ++y)
            for (int x = 320; x < 640; ++x)
                if (const int at = x % 60; scene.disparityAt(x, y) < 9 && (at < 24 || at >= 46))
                    scene.map.disparity.at(x, y) += at < 10 ? 128 : 10;
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        const camera::GroundModel& ground = frame.ground.model;
        ASSERT_FALSE(ground.flat) << seed;
        for (const int u : {60, 580})
            EXPECT_NEAR(ground.inColumn(u).groundOf(6), ground.inColumn(320).groundOf(6), 0.08)
                << seed;
    }
}

// What lies behind a kerb across the way is level again: no ramp.
TEST(GroundTest, KerbAheadIsNoRamp) {
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SyntheticScene scene(640, 400, 600);
        scene.addGround(0, 5000);
        scene.addGround(5000, 1e6, 120);
        scene.addWall(0, 40000, 0, 120, 5000);
        scene.finish(seed, 0.5);
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        EXPECT_TRUE(frame.ground.model.flat) << seed;
        EXPECT_NEAR(frame.ground.pitch_deg, 8, 0.15) << seed;
    }
}

// A third of what lies behind the knee would be on a ramp, the rest is anywhere.
TEST(GroundTest, ClutterIsNoRamp) {
    SyntheticScene scene(640, 400, 600);
    scene.addGround();
    scene.addRamp(5000, 0.105, 0);
    scene.finish(1, 0.2);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 640; ++x)
            if (const int strip = x / 16; strip % 3 != 0 && scene.disparityAt(x, y) < 9)
                scene.map.disparity.at(x, y) += static_cast<std::uint16_t>(20 * (1 + strip % 5));
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    EXPECT_TRUE(frame.ground.model.flat);
}

// A matcher that compares blocks rounds the corner before a wall, as if the floor rose there.
TEST(GroundTest, TheRoundedFootOfAWallIsNoRamp) {
    for (const double ahead_mm : {2400.0, 3000.0}) {
        SyntheticScene scene(640, 400, 400);
        scene.addGround();
        scene.addWall(0, 40000, 0, 2500, ahead_mm);
        scene.finish(1, 0.1);
        constexpr int kReach = 16;
        for (int x = 0; x < 640; ++x)
            for (int y = kReach; y < 400 - kReach; ++y) {
                double sum = 0;
                for (int k = -kReach; k <= kReach; ++k) sum += scene.disparityAt(x, y + k);
                scene.map.disparity.at(x, y) = static_cast<std::uint16_t>(
                    std::lround(sum / (2 * kReach + 1) * camera::kDisparityScale));
            }
        DetectionFrame frame;
        scene.detectAlone(frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        EXPECT_TRUE(frame.ground.model.flat) << ahead_mm;
    }
}

// A camera close to the floor sees a ramp in few rows; what is half the size has half of them.
TEST(GroundTest, ARampInFewRowsIsFollowedAtHalfTheSize) {
    SyntheticScene scene(640, 400, 400);
    scene.addGround();
    scene.addRamp(5500, 0.105, 0);
    scene.finish(1, 0.2);
    camera::DetectionInput input = scene.input();
    input.half_size = true;
    DetectionFrame frame;
    camera::Detector().detect(input, {}, frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    const camera::GroundModel& ground = frame.ground.model;
    ASSERT_FALSE(ground.flat);
    for (int v = 399; ground.planeAt(320, v) > 3; v -= 5)
        EXPECT_NEAR(ground.groundOf(static_cast<float>(ground.planeAt(320, v))),
                    scene.disparityAt(320, v), 0.3)
            << v;
}

// What a matcher compares ends at the picture's lower edge, and what lies above is farther.
TEST(GroundTest, TheLowerEdgeDoesNotTurnTheGround) {
    for (const bool half_size : {false, true}) {
        SyntheticScene scene(640, 400, 1200);
        scene.addGround();
        scene.finish(1, 0.2);
        for (int y = half_size ? 384 : 392; y < 400; ++y)
            for (int x = 0; x < 640; ++x) scene.map.disparity.at(x, y) -= 8;
        camera::DetectionInput input = scene.input();
        input.half_size = half_size;
        DetectionFrame frame;
        camera::Detector().detect(input, {}, frame);
        ASSERT_EQ(frame.ground.state, GroundState::kFound);
        EXPECT_NEAR(frame.ground.pitch_deg, 8, 0.03) << half_size;
    }
}

// A matcher puts the ground before the foot of a wall too near.
TEST(GroundTest, GroundBelowNearerThingsDoesNotTurnTheGround) {
    SyntheticScene scene(640, 400, 1200);
    scene.addGround();
    scene.addWall(0, 40000, 0, 3000, 6000);
    scene.finish(1, 0.2);
    // From the foot at 7.6 px on.
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 640; ++x)
            if (const double d = scene.disparityAt(x, y); d > 7.7 && d < 10)
                scene.map.disparity.at(x, y) += 6;
    DetectionFrame frame;
    scene.detectAlone(frame);
    ASSERT_EQ(frame.ground.state, GroundState::kFound);
    EXPECT_NEAR(frame.ground.pitch_deg, 8, 0.15);
}

// A matcher carries the depth of the ground a few rows up the face of what stands on it.
TEST(GroundMap, TheFootOfAThingIsNotGround) {
    SyntheticScene scene(640, 400, 600);
    scene.addGround();
    scene.addWall(0, 1500, 0, 300, 5000);
    scene.finish(1, 0.2);
    const auto overGround = [&](int x, int y) {
        return scene.disparityAt(x, y) - scene.disparityAt(100, y);
    };
    for (int y = 0; y < 400; ++y)
        for (int x = 290; x < 350; ++x)
            if (overGround(x, y) > 0.05 && overGround(x, y) < 0.8)
                scene.map.disparity.at(x, y) = scene.map.disparity.at(x - 190, y);
    camera::DetectionSettings settings;
    settings.obstacles.obstacle_min_height = 0.1f;  // too low to be reported
    DetectionFrame frame;
    scene.detectAlone(frame, settings);
    EXPECT_TRUE(frame.stixels.empty());
    int face = 0, ground = 0;
    for (int y = 0; y < 400; ++y)
        for (int x = 290; x < 350; ++x)
            if (overGround(x, y) > 0.05) {
                ++face;
                ground += frame.ground_map.at(x, y) == 255;
            }
    EXPECT_GT(face, 1000);
    EXPECT_LT(ground, 0.03 * face) << ground << " of " << face;
}

// A matcher carries the depth of a roof into the sky above it. A bright sky is not smooth: its
// noise changes by more than a weak texture does, but no more over 4 px than over 1.
TEST(GroundMap, DepthInANoisySkyIsUnsure) {
    SyntheticScene scene(640, 400, 600);
    scene.addGround();
    scene.addWall(0, 20000, 0, 3000, 6000);
    scene.finish(1, 0.2);
    constexpr int kRoof = 60;
    std::mt19937 random(3);
    for (int y = 0; y < kRoof; ++y)
        for (int x = 0; x < 640; ++x) {
            int sum = 0;
            for (int i = 0; i < 4; ++i) sum += static_cast<int>(random() % 7) - 3;
            scene.left.at(x, y) = static_cast<std::uint8_t>(230 + sum * 3 / 4);
        }
    DetectionFrame frame;
    scene.detectAlone(frame);
    const auto obstaclePart = [&](int y_begin, int y_end) {
        int count = 0;
        for (int y = y_begin; y < y_end; ++y)
            for (int x = 0; x < 640; ++x) count += frame.ground_map.at(x, y) == 0;
        return count / (640.0 * (y_end - y_begin));
    };
    EXPECT_LT(obstaclePart(30, kRoof - 6), 0.1);
    EXPECT_GT(obstaclePart(kRoof + 6, 140), 0.9);
}

}  // namespace
}  // namespace kova
