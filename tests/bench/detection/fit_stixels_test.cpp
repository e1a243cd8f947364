#include "bench/detection/fit_stixels.h"

#include <gtest/gtest.h>

#include <random>

namespace kova::bench {
namespace {

/// Things come in fives side by side, wrong matches alone; by themselves they are much alike.
std::vector<StixelSample> fivesAndOnes(int frames) {
    std::mt19937 random(9);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<StixelSample> samples;
    for (int frame = 0; frame < frames; ++frame)
        for (int column = 0; column < 12; ++column) {
            if (column >= 5 && column < 11)
                continue;
            StixelSample s;
            s.frame = frame;
            s.seed = static_cast<std::uint32_t>(frame);
            s.is_true = column < 5;
            s.candidate.group = s.is_true ? 0 : 1;
            s.candidate.stixel.column = column;
            s.candidate.stixel.x_begin = 5 * column;
            s.candidate.stixel.x_end = 5 * column + 5;
            s.candidate.stixel.disparity = 10;
            s.candidate.stixel.y_bottom = 40;
            s.candidate.features = camera::unknownFeatures();
            s.candidate.features[camera::kEvidence] = uniform(random) + (s.is_true ? 0.2f : -0.2f);
            s.weight = s.is_true ? 0.2 : 1;
            samples.push_back(s);
        }
    return samples;
}

TEST(FitStixels, NeighboursCount) {
    const camera::StixelJudge judge = fitStixelJudge(fivesAndOnes(150));
    std::vector<camera::StixelCandidate> candidates;
    std::vector<int> first = {0};
    for (const StixelSample& s : fivesAndOnes(1)) {
        while (static_cast<int>(first.size()) <= s.candidate.stixel.column)
            first.push_back(static_cast<int>(candidates.size()));
        candidates.push_back(s.candidate);
        candidates.back().features[camera::kEvidence] = 0.5f;  // all look the same
    }
    first.push_back(static_cast<int>(candidates.size()));
    camera::StixelSupport().run(judge, first, candidates);
    ASSERT_EQ(candidates.size(), 6u);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_GT(candidates[i].stixel.confidence, 0.9f) << i;
    EXPECT_LT(candidates[5].stixel.confidence, 0.1f);
    EXPECT_NEAR(candidates[5].own_probability, candidates[0].own_probability, 1e-6f);
}

TEST(FitStixels, WhatIsNotWantedIsNotLearnt) {
    std::vector<StixelSample> samples = fivesAndOnes(60);
    const std::size_t count = samples.size();
    for (std::size_t i = 0; i < count; ++i)
        if (!samples[i].is_true) {
            // As many that look the same and are called things, which nobody wants.
            StixelSample other = samples[i];
            other.is_true = true;
            other.candidate.wanted = false;
            samples.insert(samples.begin() + static_cast<std::ptrdiff_t>(i), other);
            ++i;
        }
    const camera::StixelJudge with = fitStixelJudge(samples);
    const camera::StixelJudge without = fitStixelJudge(fivesAndOnes(60));
    for (float evidence = -1; evidence < 1; evidence += 0.25f) {
        camera::StixelFeatures f = camera::unknownFeatures();
        f[camera::kEvidence] = evidence;
        EXPECT_EQ(with.alone(f), without.alone(f));
    }
}

TEST(FitStixels, TheReportCountsThingsAndFalseOnes) {
    const std::string report = stixelFitReport(fivesAndOnes(150));
    // With their neighbours nearly all are told apart.
    const std::size_t at = report.find("// 0.10 false per frame: ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GT(std::stod(report.substr(at + 25)), 95);
}

TEST(FitStixels, TheSourceHoldsTheNumbers) {
    camera::StixelJudge judge;
    judge.alone.bias = -1250;
    camera::StixelTree tree{};
    tree.feature = {3, 1, 4, 1};
    tree.limit = {0.5f, 2, -3e-7f, 100};
    tree.value[0] = -7, tree.value[15] = 12;
    judge.together.trees.push_back(tree);
    const std::string source = stixelJudgeSource(judge);
    EXPECT_EQ(source.rfind("    {-1250,\n", 0), 0u);
    EXPECT_NE(source.find("{{3, 1, 4, 1}, {0.5f, 2.0f, -3.00000011e-07f, 100.0f}, {-7, 0, "),
              std::string::npos);
    EXPECT_NE(source.find(", 0, 12}},\n"), std::string::npos);
}

}  // namespace
}  // namespace kova::bench
