#include "bench/detection/fit_stixels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "bench/detection/boosted_trees.h"

namespace kova::bench {

namespace {

using camera::StixelCandidate;
using camera::StixelFeatures;
using camera::StixelJudge;
using camera::StixelTree;
using camera::StixelTrees;

constexpr int kOwnTrees = 250;
constexpr int kTogetherTrees = 200;
constexpr int kFolds = 3;

double sigmoid(double x) {
    return 1 / (1 + std::exp(-x));
}

/// What the default limits leave out counts as a neighbour only.
double weightOf(const StixelSample& sample) {
    return sample.candidate.wanted ? sample.weight : 0;
}

LabelledFeatures labelled(const std::vector<StixelSample>& samples,
                          const std::vector<StixelFeatures>& features) {
    LabelledFeatures all{features, {}, {}};
    for (const StixelSample& s : samples) {
        all.truth.push_back(s.is_true);
        all.weight.push_back(weightOf(s));
    }
    return all;
}

std::vector<StixelFeatures> featuresOf(const std::vector<StixelSample>& samples) {
    std::vector<StixelFeatures> features;
    for (const StixelSample& s : samples) features.push_back(s.candidate.features);
    return features;
}

/// Trees for the candidates by themselves, to the samples that `wanted` takes.
template <typename Wanted>
StixelTrees fitAlone(const LabelledFeatures& all, const Wanted& wanted) {
    LabelledFeatures some = all;
    for (std::size_t i = 0; i < some.weight.size(); ++i)
        if (!wanted(i))
            some.weight[i] = 0;
    BoostOptions options;
    options.trees = kOwnTrees;
    options.features = camera::kOwnFeatures;
    return boostTrees(some, options);
}

/// All features, with the neighbours' as the product makes them from odds by themselves.
std::vector<StixelFeatures> withNeighbours(const std::vector<StixelSample>& samples,
                                           const std::vector<float>& own_odds) {
    std::vector<StixelFeatures> features;
    camera::StixelNeighbours neighbours;
    std::vector<StixelCandidate> frame;
    std::vector<int> first;
    for (std::size_t begin = 0, end = 0; begin < samples.size(); begin = end) {
        frame.clear();
        for (; end < samples.size() && samples[end].frame == samples[begin].frame; ++end) {
            frame.push_back(samples[end].candidate);
            frame.back().features[camera::kOwnOdds] = own_odds[end];
            frame.back().own_probability = static_cast<float>(sigmoid(own_odds[end]));
        }
        first.assign(static_cast<std::size_t>(frame.back().stixel.column) + 2, 0);
        for (const StixelCandidate& one : frame) ++first[one.stixel.column + 1];
        for (std::size_t c = 1; c < first.size(); ++c) first[c] += first[c - 1];
        neighbours.describe(first, frame);
        for (const StixelCandidate& one : frame) features.push_back(one.features);
    }
    return features;
}

std::vector<float> oddsOf(const StixelTrees& trees, const std::vector<StixelFeatures>& features) {
    std::vector<float> odds;
    for (const StixelFeatures& one : features) odds.push_back(trees(one));
    return odds;
}

}  // namespace

StixelJudge fitStixelJudge(const std::vector<StixelSample>& samples) {
    const std::vector<StixelFeatures> features = featuresOf(samples);
    const LabelledFeatures all = labelled(samples, features);
    const auto foldOf = [&](std::size_t i) {
        return static_cast<int>(samples[i].seed / 2 % kFolds);
    };
    std::vector<float> odds(samples.size());
    for (int fold = 0; fold < kFolds; ++fold) {
        const StixelTrees others = fitAlone(all, [&](std::size_t i) { return foldOf(i) != fold; });
        for (std::size_t i = 0; i < samples.size(); ++i)
            if (foldOf(i) == fold)
                odds[i] = others(features[i]);
    }
    StixelJudge judge;
    judge.alone = fitAlone(all, [](std::size_t) { return true; });
    BoostOptions options;
    options.trees = kTogetherTrees;
    judge.together = boostTrees(labelled(samples, withNeighbours(samples, odds)), options);
    return judge;
}

std::string stixelFitReport(const std::vector<StixelSample>& samples) {
    std::vector<float> odds(samples.size());
    const std::vector<StixelFeatures> features = featuresOf(samples);
    for (const std::uint32_t part : {0u, 1u}) {
        std::vector<StixelSample> others;
        for (const StixelSample& s : samples)
            if (s.seed % 2 != part)
                others.push_back(s);
        const StixelJudge judge = fitStixelJudge(others);
        const std::vector<float> together =
            oddsOf(judge.together, withNeighbours(samples, oddsOf(judge.alone, features)));
        for (std::size_t i = 0; i < samples.size(); ++i)
            if (samples[i].seed % 2 == part)
                odds[i] = together[i];
    }
    std::vector<std::size_t> order(samples.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t i, std::size_t k) { return odds[i] > odds[k]; });
    double things = 0;
    int frames = 0, frame = -1;
    for (const StixelSample& s : samples) {
        things += s.is_true ? weightOf(s) : 0;
        frames += s.frame != frame;
        frame = s.frame;
    }
    std::string text;
    double hits = 0, alarms = 0;
    std::size_t next = 0;
    for (const double limit : {0.02, 0.05, 0.1, 0.2, 0.4, 0.8}) {
        for (; next < order.size() && alarms <= limit * frames; ++next) {
            const StixelSample& s = samples[order[next]];
            (s.is_true ? hits : alarms) += weightOf(s);
        }
        char line[160];
        std::snprintf(
            line, sizeof line, "// %.2f false per frame: %.1f %% of the things, p >= %.2f\n", limit,
            100 * hits / things, sigmoid(odds[order[std::max<std::size_t>(next, 1) - 1]]));
        text += line;
    }
    return text;
}

std::string stixelJudgeSource(const StixelJudge& judge) {
    std::string text;
    const auto add = [&](const StixelTrees& trees) {
        text += "    {" + std::to_string(trees.bias) + ",\n     {\n";
        for (const StixelTree& tree : trees.trees) {
            text += "      {{";
            for (int k = 0; k < StixelTree::kLevels; ++k)
                text += (k ? ", " : "") + std::to_string(tree.feature[k]);
            text += "}, {";
            for (int k = 0; k < StixelTree::kLevels; ++k) {
                char one[32];
                std::snprintf(one, sizeof one, "%.9g", static_cast<double>(tree.limit[k]));
                std::string number = one;
                if (number.find_first_of(".en") == std::string::npos)
                    number += ".0";
                text += (k ? ", " : "") + number + "f";
            }
            text += "}, {";
            for (std::size_t k = 0; k < tree.value.size(); ++k)
                text += (k ? ", " : "") + std::to_string(tree.value[k]);
            text += "}},\n";
        }
        text += "     }},\n";
    };
    add(judge.alone);
    add(judge.together);
    return text;
}

}  // namespace kova::bench
