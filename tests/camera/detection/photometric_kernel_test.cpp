#include "camera/detection/photometric_kernel.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <random>
#include <vector>

#include "camera/base/image.h"

namespace kova::camera {

class PatchSumsTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(PatchSumsTest);

TEST_P(PatchSumsTest, EqualThePlainForm) {
    std::mt19937 random(4);
    constexpr int kWidth = 200, kRows = 24;
    for (const bool white : {false, true}) {  // the largest sums
        Image<std::uint8_t> left(kWidth, kRows), right(kWidth, kRows);
        for (int y = 0; y < kRows; ++y)
            for (int x = 0; x < kWidth; ++x) {
                left.at(x, y) = white ? 255 : static_cast<std::uint8_t>(random());
                right.at(x, y) = white ? 255 : static_cast<std::uint8_t>(random());
            }
        for (const int most : {1, 7, 8, 9, 30, 150}) {
            std::vector<PatchRow> rows;
            for (int y = 0; y < kRows; ++y) {
                const int pixels = most == 150 ? most : static_cast<int>(random() % (most + 1));
                rows.push_back({left.row(y) + random() % 40, right.row(y) + random() % 40, pixels,
                                static_cast<int>(random() % 16)});
            }
            const PatchSums got = patchSums(rows.data(), kRows);
            const PatchSums expected = patchSumsReference(rows.data(), kRows);
            EXPECT_EQ(got.n, expected.n);
            EXPECT_EQ(got.p, expected.p);
            EXPECT_EQ(got.q, expected.q);
            EXPECT_EQ(got.pp, expected.pp);
            EXPECT_EQ(got.qq, expected.qq);
            EXPECT_EQ(got.pq, expected.pq);
        }
    }
}

}  // namespace kova::camera
