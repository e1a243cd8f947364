#include "camera/detection/obstacle_tracker.h"

#include <gtest/gtest.h>

namespace kova::camera {
namespace {

constexpr int kColumns = 128;
constexpr int kColumnPx = 5;

class ObstacleTrackerTest : public testing::Test {
protected:
    void begin(std::int64_t after_ns = 33'000'000) {
        t_ns_ += after_ns;
        frame_ = DetectionFrame();
        frame_.t_ns = t_ns_;
        frame_.column_px = kColumnPx;
        frame_.columns.resize(kColumns);
    }
    void see(int column, float disparity) {
        ASSERT_TRUE(column >= 0 && column < kColumns) << column;
        Stixel stixel;
        stixel.column = column;
        stixel.x_begin = column * kColumnPx;
        stixel.x_end = stixel.x_begin + kColumnPx;
        stixel.y_top = 100;
        stixel.y_bottom = 150;
        stixel.disparity = disparity;
        stixel.distance_mm = 45600 / disparity;
        stixel.ahead_mm = stixel.distance_mm;
        frame_.stixels.push_back(stixel);
    }
    /// Things at several distances, as a street has them.
    void seeStreet(int shift) {
        const float disparities[] = {6, 9, 5, 12, 7, 4, 15, 8};
        for (int i = 0; i < 8; ++i)
            for (int k = 0; k < 3; ++k) see(8 + 6 * i + k + shift, disparities[i]);
    }
    int confirmed(const Rotation* rotation = nullptr) {
        tracker_.update({640, 400, 380, 380, 320, 200, 320, 120}, rotation, true, frame_);
        int count = 0;
        for (const Stixel& stixel : frame_.stixels) count += stixel.confirmed;
        return count;
    }

    ObstacleTracker tracker_;
    DetectionFrame frame_;
    std::int64_t t_ns_ = 0;
};

TEST_F(ObstacleTrackerTest, WhatComesBackAtAnotherDistanceIsNotConfirmed) {
    begin();
    see(10, 8);
    confirmed();  // the first frame counts at once
    begin();
    see(30, 8);
    EXPECT_EQ(confirmed(), 0);
    begin();
    see(30, 9.2f);
    EXPECT_EQ(confirmed(), 0);
    begin();
    see(30, 9.3f);
    EXPECT_EQ(confirmed(), 1);
}

TEST_F(ObstacleTrackerTest, WhatDrivesNearerBetweenSlowFramesIsConfirmed) {
    begin();
    see(10, 22);
    confirmed();
    begin(100'000'000);
    see(30, 22);
    EXPECT_EQ(confirmed(), 0);
    begin(100'000'000);
    see(30, 24.2f);  // 2073 mm, then 1884 mm: 1.9 m/s
    EXPECT_EQ(confirmed(), 1);
    begin(5'000'000);
    see(30, 40);  // 148 m/s
    EXPECT_EQ(confirmed(), 0);
}

TEST_F(ObstacleTrackerTest, ATurnWithoutAGyroscopeLosesNothing) {
    begin();
    seeStreet(0);
    confirmed();
    for (int shift = 3; shift <= 6; shift += 3) {
        begin();
        seeStreet(shift);
        EXPECT_EQ(confirmed(), 24) << shift;
    }
}

/// 1 m per frame, as from a car: what stands beside the road moves outwards by whole columns.
TEST_F(ObstacleTrackerTest, WhatADrivingCameraPassesIsConfirmed) {
    const float places[][2] = {{-200, 7000}, {-180, 7000}, {-170, 9000}, {-150, 12000},
                               {150, 12000}, {170, 9000},  {185, 9000},  {215, 7000}};
    for (int i = 0; i < 3; ++i) {
        begin(100'000'000);
        for (const auto& place : places) {
            // The place is where it is seen from the first frame.
            const float z = place[1] - 1000.0f * static_cast<float>(i);
            see(static_cast<int>((320 + place[0] * place[1] / z) / kColumnPx), 45600 / z);
        }
        const int count = confirmed();
        EXPECT_GE(count, 8) << i;
    }
}

TEST_F(ObstacleTrackerTest, ATurnThatTheGyroscopeMeasuredIsTakenFromIt) {
    begin();
    see(20, 8);
    confirmed();
    Rotation turn = {1, 0, 15 / 380.0, 0, 1, 0, -15 / 380.0, 0, 1};
    begin();
    see(26, 8);
    EXPECT_EQ(confirmed(&turn), 0);
    begin();
    see(29, 8);
    EXPECT_EQ(confirmed(&turn), 1);
}

TEST_F(ObstacleTrackerTest, ASlitBesideSomethingIsNotFree) {
    begin();
    for (ColumnRange& column : frame_.columns) column.free_mm = 8000;
    for (const int column : {10, 13, 17, 18, 0, 127}) see(column, 20);
    frame_.columns[30].free_mm = 0;
    frame_.columns[32].free_mm = 0;
    confirmed();
    const auto isFree = [&](int column) {
        return frame_.columns[column].state == ColumnState::kFree;
    };
    for (const int slit : {11, 12}) EXPECT_FALSE(isFree(slit)) << slit;
    for (const int gap : {1, 14, 15, 16, 19, 126}) EXPECT_TRUE(isFree(gap)) << gap;
    EXPECT_TRUE(isFree(31));  // between what was not seen, not beside a thing
}

}  // namespace
}  // namespace kova::camera
