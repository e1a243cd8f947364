#include "camera/detection/stixel_search.h"

#include <gtest/gtest.h>

#include <vector>

namespace kova::camera {
namespace {

constexpr int kWidth = 5, kHeight = 80, kBinPx = 4;

/// One column of a picture in which no ground is known.
class StixelSearchTest : public testing::Test {
protected:
    StixelSearchTest() { grid_.resize(kWidth, kHeight, kWidth, kBinPx); }

    /// Segments of a column with these disparities from the top on, each cell worth `weight`.
    const std::vector<Segment>& segments(const std::vector<float>& disparity, float weight,
                                         float focal_px) {
        for (int bin = 0; bin < grid_.bins(); ++bin) {
            const std::size_t cell = grid_.index(0, bin);
            grid_.kind[cell] = CellKind::kMeasured;
            grid_.disparity[cell] = disparity[bin];
            grid_.weight[cell] = weight;
            grid_.confidence[cell] = 0.9f;
        }
        search_.resize(grid_, 64);
        search_.run(grid_, focal_px, nullptr);
        return search_.segments(0);
    }

    CellGrid grid_;
    StixelSearch search_;
};

TEST_F(StixelSearchTest, TwoSurfacesArePartedWhereTheyMeet) {
    std::vector<float> column(20, 5);
    for (int bin = 12; bin < 20; ++bin) column[bin] = 10;
    const auto& found = segments(column, 1, 760);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].y_bottom, kHeight);
    EXPECT_EQ(found[0].y_top, 12 * kBinPx);
    EXPECT_FLOAT_EQ(found[0].disparity, 10);
    EXPECT_EQ(found[1].y_bottom, 12 * kBinPx);
    EXPECT_EQ(found[1].y_top, 0);
    EXPECT_FLOAT_EQ(found[1].disparity, 5);
}

// The same cells show twice the angle with half the focal length, in which borders are twice as
// likely.
TEST_F(StixelSearchTest, ThingsOfFewCellsArePartedWhereCellsShowMore) {
    std::vector<float> column(20, 5);
    column[9] = column[10] = 6.5f;
    EXPECT_EQ(segments(column, 1, 760).size(), 1u);
    const auto& found = segments(column, 1, 380);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[1].y_top, 9 * kBinPx);
    EXPECT_EQ(found[1].y_bottom, 11 * kBinPx);
}

}  // namespace
}  // namespace kova::camera
