#include "camera/detection/stixel_judge.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kova::camera {
namespace {

TEST(StixelTree, AnswersByWhatLiesAboveItsLimits) {
    StixelTree tree{};
    tree.feature = {kEvidence, kTexture, kHangs, kLogLow};
    tree.limit = {1, 2, 0.5f, 3};
    for (int k = 0; k < 16; ++k) tree.value[k] = static_cast<std::int16_t>(100 + k);
    StixelFeatures features = unknownFeatures();
    EXPECT_EQ(tree(features), 100);  // what is not known lies above nothing
    features[kEvidence] = 1.5f;
    EXPECT_EQ(tree(features), 108);
    features[kLogLow] = 4;
    EXPECT_EQ(tree(features), 109);
    features[kTexture] = 2;  // at the limit, not above it
    EXPECT_EQ(tree(features), 109);
    features[kTexture] = 2.5f;
    features[kHangs] = 1;
    EXPECT_EQ(tree(features), 115);
}

TEST(StixelTrees, AddUpToTheOdds) {
    StixelTree tree{};
    tree.feature = {kEvidence, kEvidence, kEvidence, kEvidence};
    tree.value.fill(-250);
    tree.value[15] = 750;
    const StixelTrees trees = {1500, {tree, tree}};
    StixelFeatures features = unknownFeatures();
    EXPECT_FLOAT_EQ(trees(features), 1.0f);
    features[kEvidence] = 1;
    EXPECT_FLOAT_EQ(trees(features), 3.0f);
}

class FittedJudge : public testing::TestWithParam<const StixelJudge*> {};

TEST_P(FittedJudge, AsksAboutWhatIsKnownThen) {
    const auto check = [](const StixelTrees& trees, int features) {
        EXPECT_GE(trees.trees.size(), 50u);
        for (const StixelTree& tree : trees.trees)
            for (int level = 0; level < StixelTree::kLevels; ++level) {
                EXPECT_LT(tree.feature[level], features);
                EXPECT_TRUE(std::isfinite(tree.limit[level]));
            }
    };
    check(GetParam()->alone, kOwnFeatures);
    check(GetParam()->together, kStixelFeatures);
}

TEST_P(FittedJudge, ManyAtOnceAreJudgedAsOne) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> uniform(-3, 6);
    StixelTrees::Features batch;
    std::array<StixelFeatures, StixelTrees::kAtOnce> each;
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < StixelTrees::kAtOnce; ++i)
            for (int f = 0; f < kStixelFeatures; ++f)
                each[i][f] = batch[f][i] = random() % 8 ? uniform(random) : std::nanf("");
        for (const StixelTrees* trees : {&GetParam()->alone, &GetParam()->together}) {
            const auto odds = (*trees)(batch);
            for (int i = 0; i < StixelTrees::kAtOnce; ++i) EXPECT_EQ(odds[i], (*trees)(each[i]));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, FittedJudge, testing::Values(&kFullStixelJudge, &kHalfStixelJudge));

}  // namespace
}  // namespace kova::camera
