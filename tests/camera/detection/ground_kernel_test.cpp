#include "camera/detection/ground_kernel.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace kova::camera {

class GroundKernelTest : public hwy::TestWithParamTarget {
protected:
    /// Rows of a plane with noise; some are not measured, some lie far off or below.
    void fill(int count, unsigned seed) {
        std::mt19937 random(seed);
        const auto number = [&](float low, float high) {
            return low + (high - low) * static_cast<float>(random() % 4096) / 4096;
        };
        for (std::vector<float>* list : {&u_, &v_, &disparity_, &gradient_, &weight_})
            list->resize(static_cast<std::size_t>(count));
        for (std::size_t i = 0; i < v_.size(); ++i) {
            u_[i] = number(0, 640);
            v_[i] = number(150, 400);
            disparity_[i] = 0.2f * (v_[i] - 160) + number(-1.5f, 1.5f) - (i % 7 == 0 ? 9.0f : 0.0f);
            gradient_[i] = number(0, 0.5f);
            weight_[i] = i % 5 == 0 ? 0 : number(0, 2);
        }
        cells_ = {v_.data(), disparity_.data(), gradient_.data(), weight_.data(), count};
    }

    std::vector<float> u_, v_, disparity_, gradient_, weight_;
    GroundColumn cells_;
};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(GroundKernelTest);

TEST_P(GroundKernelTest, SumsEqualThePlainForm) {
    GroundLine line;
    line.above = -32;
    line.b = 0.2f;
    line.wide = 1.05f;
    line.steep = 2;
    line.least = 3;
    line.most = 30;
    line.min_gradient = 0.08f;
    line.max_gradient = 0.4f;
    line.cy = 200;
    line.over_fy = 1 / 380.0f;
    int counted = 0;
    for (int groups = 0; groups <= 40; ++groups) {
        fill(groups * kGroundGroup, 1 + groups);
        const GroundSums sums = groundSums(line, cells_);
        const GroundSums expected = groundSumsReference(line, cells_);
        EXPECT_EQ(std::memcmp(&sums, &expected, sizeof sums), 0) << groups;
        counted += sums.w > 0;
    }
    EXPECT_GT(counted, 30);
}

TEST_P(GroundKernelTest, ScoreEqualsThePlainForm) {
    const GroundTrial trial = {0.001f, 0.2f, -32, 0.08f, 0.4f};
    for (int groups = 0; groups <= 40; ++groups) {
        fill(groups * kGroundGroup, 1 + groups);
        const float score = groundScore(trial, u_.data(), cells_);
        EXPECT_EQ(score, groundScoreReference(trial, u_.data(), cells_)) << groups;
        EXPECT_EQ(score != 0, groups > 0);
    }
}

}  // namespace kova::camera
