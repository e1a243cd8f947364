#include "camera/detection/stixel_kernel.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <cstring>
#include <random>

#include "camera/base/image.h"

namespace kova::camera {

class StixelStepTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(StixelStepTest);

TEST_P(StixelStepTest, EqualsThePlainForm) {
    std::mt19937 random(3);
    const auto number = [&](int most) { return static_cast<float>(random() % (64 * most)) / 64; };
    for (int groups = 1; groups <= kMaxLevelGroups; ++groups) {
        const int count = groups * kLevelGroup;
        Image<float> rows(count + kLevelGroup, 4);
        float* level = rows.row(0);
        float* cost = rows.row(1);
        for (int k = 0; k < count; ++k) {
            level[k] = 0.5f + 0.5f * static_cast<float>(k);
            cost[k] = number(100);
        }
        cost[count] = kNeverCost;
        StixelStep step;
        step.groups = groups;
        step.slant = 1.5f;
        for (float& jump : step.jump) jump = number(60);
        step.other = number(80);
        step.from_ground = {number(40), 40 + number(40), number(60), number(60), number(60)};
        step.from_raised = {number(40), 40 + number(40), number(60), number(60), number(60)};
        step.d = number(100);
        step.scale = 0.7f;
        step.weight = 1.3f;
        step.cap = 6.1f;
        step.ground_until = number(90);
        step.below_ground = 7;
        float least[kMaxLevelGroups];
        float expected_least[kMaxLevelGroups];
        const float value = stixelStep(step, level, cost, rows.row(2), least);
        const float expected = stixelStepReference(step, level, cost, rows.row(3), expected_least);
        EXPECT_EQ(value, expected);
        EXPECT_EQ(std::memcmp(rows.row(2), rows.row(3), sizeof(float) * count), 0);
        EXPECT_EQ(std::memcmp(least, expected_least, sizeof(float) * groups), 0);
    }
}

}  // namespace kova::camera
