#include "camera/detection/map_kernel.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <random>
#include <vector>

#include "camera/base/disparity.h"

namespace kova::camera {

class PaintMapRowTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(PaintMapRowTest);

TEST_P(PaintMapRowTest, EqualsThePlainForm) {
    std::mt19937 random(8);
    const auto byte = [&] { return static_cast<std::uint8_t>(random()); };
    for (const int width : {1, 3, 31, 32, 33, 130, 640}) {
        const auto size = static_cast<std::size_t>(width);
        std::vector<std::uint16_t> disparity(size), low(size), high(size);
        std::vector<std::uint8_t> confidence(size), grey(size), value(size);
        for (std::size_t x = 0; x < size; ++x) {
            const auto kind = random() % 6;
            low[x] = static_cast<std::uint16_t>(random() % 4000);
            high[x] = static_cast<std::uint16_t>(low[x] + random() % 64 - 4);
            disparity[x] = kind == 0   ? kInvalidDisparity
                           : kind == 1 ? kTooNearDisparity
                                       : static_cast<std::uint16_t>(low[x] + random() % 80 - 8);
            if (kind < 2)
                high[x] = 0xFFFF;
            confidence[x] = kind == 2 ? kFilledConfidence : kind == 3 ? 0 : byte();
            grey[x] = random() % 2 ? static_cast<std::uint8_t>(250 + random() % 5) : byte();
            value[x] = random() % 2 ? kMapObstacle : kMapGround;
        }
        MapRow row;
        row.width = width;
        row.disparity = disparity.data();
        row.confidence = confidence.data();
        row.grey = grey.data();
        row.low = low.data();
        row.high = high.data();
        row.value = value.data();
        std::vector<std::uint8_t> got(size), expected(size);
        paintMapRow(row, got.data());
        paintMapRowReference(row, expected.data());
        EXPECT_EQ(got, expected) << width;
    }
}

}  // namespace kova::camera
