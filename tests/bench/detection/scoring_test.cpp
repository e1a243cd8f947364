#include "bench/detection/scoring.h"

#include <gtest/gtest.h>

#include <cmath>

#include "camera/simulation/scene_builder.h"

namespace kova::bench {
namespace {

using camera::ColumnState;
using camera::SurfaceLabel;

constexpr int kWidth = 160, kHeight = 100, kLevels = 64, kColumn = 5;
const camera::RectifiedGeometry kGeometry = {kWidth, kHeight, 100, 100, 79.5, 49.5, 79.5, 120};

/// Ground of a level plane, `height_mm` below a camera that looks `pitch` [rad] down.
void paintGround(SceneTruth& truth, double height_mm, double pitch) {
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const double v = (y - kGeometry.cy) / kGeometry.fy;
            const double sink = std::cos(pitch) * v + std::sin(pitch);
            const bool ground = sink > 0.02;
            truth.disparity.at(x, y) =
                ground ? static_cast<float>(100 * 120 * sink / height_mm) : 0.0f;
            truth.label.at(x, y) = static_cast<std::uint8_t>(ground ? SurfaceLabel::kGround
                                                                    : SurfaceLabel::kBackground);
        }
}

SceneTruth emptyTruth() {
    SceneTruth truth;
    truth.disparity.resize(kWidth, kHeight);
    truth.label.resize(kWidth, kHeight);
    truth.object.resize(kWidth, kHeight);
    truth.in_right.resize(kWidth, kHeight);
    truth.textured.resize(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            truth.object.at(x, y) = -1;
            truth.in_right.at(x, y) = truth.textured.at(x, y) = 1;
        }
    paintGround(truth, 600, 0.1);
    return truth;
}

void paint(SceneTruth& truth, int x0, int x1, int y0, int y1, float disparity, SurfaceLabel label) {
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            truth.disparity.at(x, y) = disparity;
            truth.label.at(x, y) = static_cast<std::uint8_t>(label);
        }
}

Findings nothingFound() {
    Findings findings;
    findings.ground_map.resize(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) findings.ground_map.at(x, y) = 127;
    findings.states.assign(kWidth, ColumnState::kUnknown);
    return findings;
}

Scores scoreOf(const Findings& findings, const SceneTruth& truth) {
    Scores scores;
    score(findings, truth, kGeometry, kLevels, kColumn, scores);
    return scores;
}

/// An object at 10 px, that is 1.2 m, in the columns 40 to 59.
VisibleObject standing() {
    VisibleObject object;
    object.height_mm = 500;
    object.distance_mm = 1200;
    object.contrast_px = 8;
    for (int x = 40; x < 60; ++x) object.columns.push_back({x, 10.0f, 10.0f});
    return object;
}

TEST(Scoring, AnObjectIsFoundByHalfOfItsColumnsAtItsDistance) {
    Findings findings = nothingFound();
    findings.obstacles = {{40, 45, 10.9f}, {45, 49, 9.1f}};
    EXPECT_FALSE(isFound(standing(), findings));  // 9 of 20
    findings.obstacles.push_back({49, 50, 10});
    EXPECT_TRUE(isFound(standing(), findings));
    findings.obstacles = {{40, 60, 11.1f}};  // more than 1 px off
    EXPECT_FALSE(isFound(standing(), findings));
    VisibleObject near = standing();
    for (ObjectColumn& c : near.columns) c.nearest = c.farthest = 40;
    findings.obstacles = {{40, 60, 41.9f}};  // within 5 %
    EXPECT_TRUE(isFound(near, findings));
    findings.obstacles = {{40, 60, 42.1f}};
    EXPECT_FALSE(isFound(near, findings));
}

TEST(Scoring, ObjectsBehindTheRangeOrWithLittleContrastAreNotJudged) {
    SceneTruth truth = emptyTruth();
    truth.objects = {standing(), standing(), standing(), standing()};
    truth.objects[1].distance_mm = 12100;
    truth.objects[2].contrast_px = 2.4;
    truth.objects[3].height_mm = 150;
    const Scores scores = scoreOf(nothingFound(), truth);
    EXPECT_EQ(1, scores.low.all);
    EXPECT_EQ(3, scores.all.all);
    EXPECT_EQ(0, scores.low.hits);
}

TEST(Scoring, NeighbouringFalseColumnsAreOneAlarm) {
    const SceneTruth truth = emptyTruth();
    Findings findings = nothingFound();
    findings.obstacles = {{20, 25, 10}, {25, 30, 10.5f}, {30, 35, 15}, {80, 85, 10}};
    EXPECT_EQ(3, scoreOf(findings, truth).false_positives);
}

TEST(Scoring, WhatLiesWithinOneColumnAndTheToleranceIsNoAlarm) {
    SceneTruth truth = emptyTruth();
    paint(truth, 40, 60, 30, 60, 10, SurfaceLabel::kObstacle);
    Findings findings = nothingFound();
    findings.obstacles = {{35, 40, 10}, {60, 65, 10.9f}};
    EXPECT_EQ(0, scoreOf(findings, truth).false_positives);
    findings.obstacles = {{30, 34, 10}, {40, 45, 11.6f}};
    EXPECT_EQ(2, scoreOf(findings, truth).false_positives);
}

TEST(Scoring, RaisedLevelsMayBeCalledObstaclesButNotGroundOrNothing) {
    SceneTruth truth = emptyTruth();
    paint(truth, 40, 60, 60, 70, 10, SurfaceLabel::kRaised);
    paint(truth, 80, 100, 60, 70, 10, SurfaceLabel::kDrop);
    Findings findings = nothingFound();
    findings.obstacles = {{45, 50, 10}};
    EXPECT_EQ(0, scoreOf(findings, truth).false_positives);
    findings.obstacles = {{90, 95, 10}};
    EXPECT_EQ(1, scoreOf(findings, truth).false_positives);
    // A fit is told that they are none.
    const std::vector<FoundColumn> raised = {{45, 50, 10}};
    EXPECT_FALSE(areFalse(raised, truth, 64, 5, true)[0]);
    EXPECT_TRUE(areFalse(raised, truth, 64, 5, false)[0]);
}

TEST(Scoring, PlaneErrorsAreThoseBetweenTheTwoPlanes) {
    const SceneTruth truth = emptyTruth();
    Findings findings = nothingFound();
    findings.has_ground = true;
    const double wrong = 0.1 + 0.4 * 3.14159265358979 / 180;  // 0.4 degrees more
    findings.ground =
        camera::GroundModel::fromNormal({0, std::cos(wrong), std::sin(wrong)}, 612, kGeometry);
    const Scores scores = scoreOf(findings, truth);
    ASSERT_EQ(1u, scores.pitch_deg.size());
    EXPECT_NEAR(0.4, scores.pitch_deg[0], 0.01);
    EXPECT_NEAR(0, scores.roll_deg[0], 0.01);
    EXPECT_NEAR(2, scores.height_percent[0], 0.1);
    EXPECT_EQ(0, scores.plane_far_off.hits);
    EXPECT_EQ(1, scores.no_ground.all);
    EXPECT_EQ(1, scoreOf(nothingFound(), truth).no_ground.hits);
}

TEST(Scoring, FreeIsCountedWhereSomethingIsNearerThanTheSearch) {
    SceneTruth truth = emptyTruth();
    paint(truth, 40, 60, 20, 90, 70, SurfaceLabel::kObstacle);  // 70 of 64 px
    Findings findings = nothingFound();
    std::fill(findings.states.begin(), findings.states.begin() + 45, ColumnState::kFree);
    std::fill(findings.states.begin() + 55, findings.states.end(), ColumnState::kTooNear);
    const Scores scores = scoreOf(findings, truth);
    EXPECT_EQ(20, scores.free_at_too_near.all);
    EXPECT_EQ(5, scores.free_at_too_near.hits);
    EXPECT_EQ(10, scores.too_near_unknown.hits);
    EXPECT_EQ(5, scores.too_near_named.hits);
    EXPECT_EQ(1, scores.free_frames.hits);
}

TEST(Scoring, IntervalsByDriveAreWiderWhereDrivesDiffer) {
    Rate alike, apart;
    for (int drive = 0; drive < 10; ++drive) {
        Rate same, own;
        same.all = own.all = 100;
        same.hits = 50;
        own.hits = drive % 2 ? 100 : 0;
        same.closeDrive();
        own.closeDrive();
        alike.add(same);
        apart.add(own);
    }
    EXPECT_EQ(alike.interval(), apart.interval());
    EXPECT_LT(apart.intervalByDrive()[0], 30);
    EXPECT_GT(apart.intervalByDrive()[1], 70);
    EXPECT_LT(apart.intervalByDrive()[0], apart.interval()[0]);
}

TEST(SceneTruth, TheRimOfAConesBaseIsNotDemanded) {
    camera::SceneBuilder b("", 3);
    b.patch(0, 5000, 20000, 20000, b.concrete());
    b.cone(0, 3000);
    b.scene.path.length_mm = 0;
    b.scene.path.sway_mm = 0;
    b.scene.path.vibration_deg = 0;
    b.scene.path.vibration_mm = 0;
    camera::RigOptions rig;
    rig.residual = rig.optics = false;
    const double plate_px = 380 * 300 / 3000.0, cone_px = 380 * 220 / 3000.0;
    camera::Renderer renderer(b.scene, camera::makeRig(rig));
    camera::FrameTruth shown;
    renderer.truth(0, 0.005, shown);
    const camera::StereoCalibration c = renderer.rig().given;
    const camera::RectifiedGeometry g = {c.width,   c.height,  c.left.fx,  c.left.fy,
                                         c.left.cx, c.left.cy, c.right.cx, 120};
    camera::Image<std::uint8_t> left(c.width, c.height);
    SceneTruth truth;
    judgeTruth(shown, b.scene, 0, g, left.view(), truth);
    ASSERT_EQ(1u, truth.objects.size());
    const auto columns = static_cast<double>(truth.objects[0].columns.size());
    EXPECT_LT(columns, plate_px - 3);
    EXPECT_NEAR(cone_px, columns, 3);
}

}  // namespace
}  // namespace kova::bench
