#include "bench/detection/boosted_trees.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kova::bench {
namespace {

using camera::StixelFeatures;
using camera::StixelTrees;

/// Things are where exactly one of two features is positive; a third says nothing.
LabelledFeatures exclusiveOr(int count) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-1, 1);
    LabelledFeatures all;
    for (int i = 0; i < count; ++i) {
        StixelFeatures f = camera::unknownFeatures();
        for (const int k : {camera::kEvidence, camera::kTexture, camera::kCorrelation})
            f[k] = uniform(random);
        all.features.push_back(f);
        all.truth.push_back((f[camera::kEvidence] > 0) != (f[camera::kTexture] > 0));
        all.weight.push_back(1);
    }
    return all;
}

StixelFeatures at(float evidence, float texture) {
    StixelFeatures f = camera::unknownFeatures();
    f[camera::kEvidence] = evidence;
    f[camera::kTexture] = texture;
    return f;
}

TEST(BoostTrees, LearnWhatOnlyTwoFeaturesTogetherSay) {
    BoostOptions options;
    options.trees = 60;
    const StixelTrees trees = boostTrees(exclusiveOr(4000), options);
    EXPECT_EQ(trees.trees.size(), 60u);
    EXPECT_GT(trees(at(0.5f, -0.5f)), 2);
    EXPECT_GT(trees(at(-0.5f, 0.5f)), 2);
    EXPECT_LT(trees(at(0.5f, 0.5f)), -2);
    EXPECT_LT(trees(at(-0.5f, -0.5f)), -2);
}

TEST(BoostTrees, WhatIsNotKnownIsLearntToo) {
    LabelledFeatures all = exclusiveOr(2000);
    for (std::size_t i = 0; i < all.truth.size(); ++i) {
        all.truth[i] = i % 3 == 0;
        if (all.truth[i])
            all.features[i][camera::kTexture] = std::nanf("");
    }
    BoostOptions options;
    options.trees = 40;
    const StixelTrees trees = boostTrees(all, options);
    EXPECT_GT(trees(at(0, std::nanf(""))), 2);
    EXPECT_LT(trees(at(0, -0.99f)), -2);
}

TEST(BoostTrees, ASampleWithoutWeightSaysNothing) {
    LabelledFeatures all = exclusiveOr(2000);
    const LabelledFeatures half = exclusiveOr(1000);  // the same random numbers
    for (std::size_t i = 1000; i < 2000; ++i) {
        all.truth[i] = !all.truth[i];
        all.weight[i] = 0;
    }
    BoostOptions options;
    options.trees = 5;
    const StixelTrees trees = boostTrees(all, options), expected = boostTrees(half, options);
    ASSERT_EQ(trees.trees.size(), expected.trees.size());
    EXPECT_EQ(trees.bias, expected.bias);
    for (std::size_t i = 0; i < trees.trees.size(); ++i) {
        EXPECT_EQ(trees.trees[i].feature, expected.trees[i].feature);
        EXPECT_EQ(trees.trees[i].limit, expected.trees[i].limit);
        EXPECT_EQ(trees.trees[i].value, expected.trees[i].value);
    }
}

TEST(BoostTrees, AsksOnlyAboutTheFirstFeatures) {
    BoostOptions options;
    options.trees = 10;
    options.features = camera::kTexture;
    for (const camera::StixelTree& tree : boostTrees(exclusiveOr(500), options).trees)
        for (const std::uint8_t feature : tree.feature) EXPECT_LT(feature, camera::kTexture);
}

TEST(BoostTrees, TheBiasIsTheShareOfThings) {
    LabelledFeatures all;
    for (int i = 0; i < 100; ++i) {
        all.features.push_back(camera::unknownFeatures());
        all.truth.push_back(i < 20);
        all.weight.push_back(1);
    }
    BoostOptions options;
    options.trees = 0;
    EXPECT_NEAR(boostTrees(all, options)(camera::unknownFeatures()), std::log(0.25), 1e-3);
}

}  // namespace
}  // namespace kova::bench
