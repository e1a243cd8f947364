#include "bench/detection/real_scores.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/test_data.h"

namespace kova::bench {
namespace {

/// On a made-up camera of 500 px and 100 mm.
camera::Stixel stixel(int x_begin, float distance_mm, int y_top = 100, int y_bottom = 200) {
    camera::Stixel s;
    s.x_begin = x_begin;
    s.x_end = x_begin + 10;
    s.y_top = y_top;
    s.y_bottom = y_bottom;
    s.distance_mm = distance_mm;
    s.ahead_mm = distance_mm;
    s.lateral_mm = (static_cast<float>(x_begin) + 5 - 400) * distance_mm / 500;
    s.disparity = 50'000 / distance_mm;
    s.confirmed = true;
    s.obstacle_id = 1;
    return s;
}

RealFrame frameOf(std::vector<camera::Stixel> stixels) {
    RealFrame frame;
    frame.geometry = {800, 300, 500, 500, 400, 150, 400, 100};
    frame.column_px = 10;
    frame.ground.state = camera::GroundState::kFound;
    frame.ground.height_mm = 1000;
    frame.stixels = std::move(stixels);
    for (const camera::Stixel& s : frame.stixels) {
        camera::Obstacle obstacle;
        obstacle.id = s.obstacle_id;
        obstacle.distance_mm = s.distance_mm;
        if (frame.obstacles.empty())
            frame.obstacles.push_back(obstacle);
    }
    return frame;
}

CameraPose poseAt(double x_m, double z_m) {
    return {{1, 0, 0, x_m, 0, 1, 0, 0, 0, 0, 1, z_m}};
}

TEST(RealScores, HalfOfTheColumnsAtTheDistanceAreAFind) {
    RealObject box{0, 200, 90, 240, 210, 5, 6, true, "box"};
    const auto found = [&](std::vector<camera::Stixel> stixels) {
        return scoreRealObjects({frameOf(std::move(stixels))}, {box}).found.hits;
    };
    EXPECT_EQ(found({stixel(200, 5500), stixel(210, 5500)}), 1);
    EXPECT_EQ(found({stixel(200, 5500)}), 0);
    EXPECT_EQ(found({stixel(200, 8500), stixel(210, 8500)}), 0);
    EXPECT_EQ(found({stixel(200, 5500, 0, 80), stixel(210, 5500, 0, 80)}), 0);
    EXPECT_EQ(found({stixel(200, 4600), stixel(210, 6700)}), 1) << "within a pixel of disparity";
}

TEST(RealScores, WhatNoBoxExplainsIsAFalseAlarm) {
    const RealObject box{0, 200, 90, 240, 210, 5, 6, false, "box"};
    const auto alarms = [&](std::vector<camera::Stixel> stixels) {
        return scoreRealObjects({frameOf(std::move(stixels))}, {box}).false_alarms.size();
    };
    EXPECT_EQ(alarms({stixel(200, 5500)}), 0u);
    EXPECT_EQ(alarms({stixel(190, 5500)}), 0u) << "one stixel beside it";
    EXPECT_EQ(alarms({stixel(170, 5500)}), 1u);
    EXPECT_EQ(alarms({stixel(200, 9000)}), 1u);
    EXPECT_EQ(alarms({stixel(400, 9000), stixel(410, 9100), stixel(420, 5000)}), 2u);
    EXPECT_EQ(alarms({stixel(400, 15100)}), 0u) << "beyond what is annotated";
}

TEST(RealScores, TheWayDrivenLaterIsTheCorridor) {
    const std::vector<CameraPose> poses = {poseAt(0, 0), poseAt(0, 5), poseAt(2, 10)};
    const auto reported = [&](camera::Stixel s) {
        return scoreCorridor({frameOf({s}), frameOf({}), frameOf({})}, poses).reported.size();
    };
    EXPECT_EQ(reported(stixel(395, 3000)), 1u);
    EXPECT_EQ(reported(stixel(600, 3000)), 0u) << "1.2 m to the side";
    EXPECT_EQ(reported(stixel(505, 8000)), 1u) << "after the bend";
    EXPECT_EQ(reported(stixel(395, 12000)), 0u) << "beyond the last pose";
    camera::Stixel high = stixel(395, 3000);
    high.low_mm = 2500;
    EXPECT_EQ(reported(high), 0u);
}

TEST(RealScores, ObstaclesAreLookedForWhereThePosePutsThem) {
    const std::vector<CameraPose> poses = {poseAt(0, 0), poseAt(0, 1)};
    const auto again = [&](std::vector<camera::Stixel> then) {
        return scorePersistence({frameOf({stixel(495, 8000)}), frameOf(std::move(then))}, poses)
            .found_again;
    };
    EXPECT_EQ(again({stixel(510, 7000)}).hits, 1);
    EXPECT_EQ(again({stixel(510, 8600)}).hits, 0);
    EXPECT_EQ(again({}).hits, 0);
    EXPECT_EQ(again({}).all, 1);
    EXPECT_EQ(again({stixel(510, 4000)}).all, 0) << "hidden by something nearer";
}

TEST(RealScores, BadListsAreRefusedWithTheLine) {
    const test::TemporaryFolder folder;
    const auto path = folder / "list.csv";
    std::ofstream(path) << "# comment\nsequence,frame,...\nstreet,2,1,2,3,4,5.0,6.0,perhaps,car\n";
    const auto objects = readRealObjects(path, "street");
    ASSERT_FALSE(objects.ok());
    EXPECT_NE(objects.status().message().find("line 3"), std::string::npos);
    EXPECT_FALSE(readRealObjects(folder / "none.csv", "street").ok());
}

}  // namespace
}  // namespace kova::bench
