#include "camera/detection/cell_kernel.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <random>

#include "camera/base/disparity.h"

namespace kova::camera {

class CellColumnsTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(CellColumnsTest);

TEST_P(CellColumnsTest, EqualThePlainForm) {
    std::mt19937 random(5);
    for (const int width : {1, 4, 7, 19, 36, 64, 131, 640}) {
        Image<std::uint16_t> disparity(width, kMostCellRows);
        Image<std::uint8_t> confidence(width, kMostCellRows), grey(width, kMostCellRows);
        for (int y = 0; y < kMostCellRows; ++y)
            for (int x = 0; x < width; ++x) {
                const auto kind = random() % 8;
                disparity.at(x, y) = kind == 0   ? kInvalidDisparity
                                     : kind == 1 ? kTooNearDisparity
                                                 : static_cast<std::uint16_t>(random() % 8191);
                confidence.at(x, y) = kind == 2   ? 0
                                      : kind == 3 ? kFilledConfidence
                                                  : static_cast<std::uint8_t>(random() % 201);
                grey.at(x, y) = static_cast<std::uint8_t>(random());
            }
        for (int count = 0; count <= kMostCellRows; ++count) {
            CellRows rows;
            rows.width = width;
            rows.count = count;
            for (int i = 0; i < count; ++i) {
                rows.disparity[i] = disparity.row(i);
                rows.confidence[i] = confidence.row(i);
                rows.grey[i] = grey.row(i);
                rows.compared[i] = grey.row(kMostCellRows - 1 - i);
            }
            CellColumns got, expected;
            got.resize(width);
            expected.resize(width);
            sumCellColumns(rows, got);
            sumCellColumnsReference(rows, expected);
            EXPECT_EQ(got.count, expected.count);
            EXPECT_EQ(got.too_near, expected.too_near);
            EXPECT_EQ(got.sum, expected.sum);
            EXPECT_EQ(got.sure, expected.sure);
            EXPECT_EQ(got.low, expected.low);
            EXPECT_EQ(got.high, expected.high);
            EXPECT_EQ(got.change1, expected.change1);
            EXPECT_EQ(got.change4, expected.change4);
        }
    }
}

}  // namespace kova::camera
