#include "bench/detection/fit_stixels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kova::bench {
namespace {

using camera::StixelFeatures;

/// Candidates whose odds are known: 2 * evidence + a bump of the disparity, and more for groups.
std::vector<StixelSample> drawSamples(int count) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<StixelSample> samples;
    for (int i = 0; i < count; ++i) {
        StixelSample s;
        s.features = camera::unknownFeatures();
        s.features[camera::kEvidence] = uniform(random);
        s.features[camera::kLogDisparity] = uniform(random);
        if (i % 2)
            s.features[camera::kCorrelation] = uniform(random);
        const double bump = 2 * std::cos(3 * s.features[camera::kLogDisparity]);
        const double odds = 2 * s.features[camera::kEvidence] + bump;
        s.is_true = uniform(random) * 0.5 + 0.5 < 1 / (1 + std::exp(-odds));
        s.frame = i;
        s.seed = static_cast<std::uint32_t>(i / 50);
        samples.push_back(s);
    }
    return samples;
}

TEST(FitStixels, FindsTheCurvesThatMadeTheData) {
    const camera::StixelJudge judge = fitStixelJudge(drawSamples(20000));
    const auto odds = [&](float evidence, float disparity) {
        StixelFeatures f = camera::unknownFeatures();
        f[camera::kEvidence] = evidence;
        f[camera::kLogDisparity] = disparity;
        return judge.odds(f, 0);
    };
    EXPECT_NEAR(odds(0.8f, 0) - odds(-0.8f, 0), 3.2, 0.4);
    EXPECT_NEAR(odds(0, 0) - odds(0, 0.9f), 2 - 2 * std::cos(2.7), 0.7);
    EXPECT_NEAR(odds(0, 0), 2, 0.5);
    // What says nothing is given no weight.
    for (const float x : {-0.9f, 0.0f, 0.9f})
        EXPECT_NEAR(judge.own[camera::kCorrelation](x), 0, 0.2);
}

TEST(FitStixels, EvidenceIsMadeToRise) {
    std::vector<StixelSample> samples = drawSamples(4000);
    for (StixelSample& s : samples) s.features[camera::kEvidence] *= -1;  // speaks against
    const camera::StixelJudge judge = fitStixelJudge(samples);
    const auto& value = judge.own[camera::kEvidence].value;
    for (std::size_t k = 1; k < value.size(); ++k) EXPECT_GE(value[k], value[k - 1] - 1e-6f);
}

TEST(FitStixels, NeighboursCount) {
    // Things come in fives side by side, wrong matches alone.
    std::mt19937 random(9);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<StixelSample> samples;
    for (int frame = 0; frame < 1000; ++frame)
        for (int group = 0; group < 2; ++group)
            for (int column = 0; column < (group ? 1 : 5); ++column) {
                StixelSample s;
                s.features = camera::unknownFeatures();
                s.is_true = group == 0;
                s.features[camera::kEvidence] = uniform(random) + (s.is_true ? 0.3f : -0.3f);
                s.frame = frame;
                s.group = group;
                s.column = column;
                samples.push_back(s);
            }
    const camera::StixelJudge judge = fitStixelJudge(samples);
    StixelFeatures f = camera::unknownFeatures();
    f[camera::kEvidence] = 0;
    EXPECT_GT(judge.odds(f, 3), judge.odds(f, 0) + 2);
}

TEST(FitStixels, TheSourceHoldsTheNumbers) {
    camera::StixelJudge judge{};
    judge.bias = 1.25f;
    judge.own_weight = 0.5f;
    judge.near.value[7] = 3;
    const std::string source = stixelJudgeSource(judge);
    EXPECT_EQ(source.rfind("    1.25f,\n    {{\n", 0), 0u);
    EXPECT_NE(source.find("    0.5f,\n"), std::string::npos);
    EXPECT_NE(source.find("0.0f, 3.0f}},\n"), std::string::npos);
}

}  // namespace
}  // namespace kova::bench
