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

}  // namespace
}  // namespace kova
