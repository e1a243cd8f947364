#include <gtest/gtest.h>

#include <cstdio>

#include "bench/detection/real_scores.h"
#include "tests/support/test_data.h"

namespace kova::bench {
namespace {

constexpr const char* kList = KOVA_TEST_LISTS "/real_objects.csv";

/// Limits of regression, a little worse than what was measured; the aims lie beyond them.
struct Limits {
    camera::WorkMode mode;
    double street_found_percent, street_alarms;
    double room_found_percent, room_alarms;
    double found_again_percent;
};

class RealObjects : public testing::TestWithParam<Limits> {
protected:
    void SetUp() override {
        data_ = test::realData("");
        KOVA_NEED_REAL_DATA(test::realData(kStreet.folder));
        KOVA_NEED_REAL_DATA(test::realData(kRoom.folder));
    }

    RealObjectScores score(const RealSequence& sequence, const std::vector<RealFrame>& frames) {
        const auto objects = readRealObjects(kList, sequence.name);
        EXPECT_TRUE(objects.ok()) << objects.status().message();
        const RealObjectScores scores = scoreRealObjects(frames, objects.value());
        std::printf(
            "%s: %.0f of %.0f things found (aim 99 %%), %zu false alarms in %d frames "
            "(aim 1 in 50)\n",
            sequence.name, scores.found.hits, scores.found.all, scores.false_alarms.size(),
            scores.frames);
        return scores;
    }

    std::filesystem::path data_;
};

TEST_P(RealObjects, StreetIsSeenAsListedAndItsWayIsFree) {
    const Limits& limits = GetParam();
    const auto frames = detectSequence(data_, kStreet, limits.mode);
    ASSERT_TRUE(frames.ok()) << frames.status().message();
    ASSERT_EQ(frames.value().size(), 51u);
    const RealObjectScores objects = score(kStreet, frames.value());
    EXPECT_GE(objects.found.all, 60);
    EXPECT_GE(objects.found.percent(), limits.street_found_percent);
    EXPECT_LE(objects.false_alarms.size(), limits.street_alarms);

    const auto poses = readPoses(data_ / kStreet.folder / "poses.txt");
    ASSERT_TRUE(poses.ok()) << poses.status().message();
    const CorridorScores corridor = scoreCorridor(frames.value(), poses.value());
    std::printf(
        "corridor: %zu obstacles reported in it (aim 0); camera at %.0f to %.0f mm "
        "(aim 1650, 2 %%)\n",
        corridor.reported.size(), corridor.lowest_height_mm, corridor.highest_height_mm);
    EXPECT_EQ(corridor.frames, 50);
    EXPECT_EQ(corridor.reported.size(), 0u);
    EXPECT_EQ(corridor.ground_found.percent(), 100);
    EXPECT_GT(corridor.lowest_height_mm, 1560);
    EXPECT_LT(corridor.highest_height_mm, 1780);

    const PersistenceScores persistence = scorePersistence(frames.value(), poses.value());
    std::printf("obstacles found again in one of the next 5 frames: %.1f %% of %.0f (aim 80 %%)\n",
                persistence.found_again.percent(), persistence.found_again.all);
    EXPECT_GT(persistence.found_again.all, 500);
    EXPECT_GE(persistence.found_again.percent(), limits.found_again_percent);
}

TEST_P(RealObjects, RoomIsSeenAsListed) {
    const Limits& limits = GetParam();
    const auto frames = detectSequence(data_, kRoom, limits.mode);
    ASSERT_TRUE(frames.ok()) << frames.status().message();
    // The boxes belong to this picture.
    const camera::RectifiedGeometry& g = frames.value().front().geometry;
    ASSERT_EQ(g.width, 752);
    ASSERT_NEAR(g.fx, 436.36, 0.5) << "the rectification has changed: list the room again";
    ASSERT_NEAR(g.cx, 364.44, 1) << "the rectification has changed: list the room again";
    ASSERT_NEAR(g.cy, 256.95, 1) << "the rectification has changed: list the room again";
    const RealObjectScores objects = score(kRoom, frames.value());
    EXPECT_GE(objects.found.percent(), limits.room_found_percent);
    EXPECT_LE(objects.false_alarms.size(), limits.room_alarms);
}

INSTANTIATE_TEST_SUITE_P(, RealObjects,
                         testing::Values(Limits{camera::WorkMode::kFast, 90, 13, 100, 2, 84},
                                         Limits{camera::WorkMode::kMedium, 94, 9, 100, 3, 78}),
                         [](const auto& info) {
                             return info.param.mode == camera::WorkMode::kFast ? "fast" : "medium";
                         });

}  // namespace
}  // namespace kova::bench
