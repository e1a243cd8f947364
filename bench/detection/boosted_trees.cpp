#include "bench/detection/boosted_trees.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "camera/base/parallel.h"

namespace kova::bench {

namespace {

using camera::StixelTree;
using camera::StixelTrees;

constexpr int kBins = 48;
constexpr int kMostLeaves = 1 << StixelTree::kLevels;
constexpr int kLargestValue = 32000;

/// One feature of all samples, as numbers of bins; 0 is not known.
struct Column {
    std::vector<float> limits;  ///< bin k + 2 and those after it lie above limits[k]
    std::vector<std::uint8_t> bin;
};

Column columnOf(const LabelledFeatures& samples, int feature) {
    Column column;
    std::vector<float> values;
    for (std::size_t i = 0; i < samples.features.size(); ++i)
        if (samples.weight[i] > 0 && !std::isnan(samples.features[i][feature]))
            values.push_back(samples.features[i][feature]);
    std::sort(values.begin(), values.end());
    // Below the least known one: whether it is known at all.
    if (!values.empty())
        column.limits.push_back(std::nextafter(values.front(), -1e30f));
    for (int k = 1; k < kBins - 2; ++k) {
        if (values.empty())
            break;
        const std::size_t at = values.size() * static_cast<std::size_t>(k) / (kBins - 2);
        const auto above = std::upper_bound(values.begin(), values.end(), values[at]);
        if (above == values.end())
            break;
        const float limit = 0.5f * (values[at] + *above);
        if (limit > column.limits.back() && limit < *above)
            column.limits.push_back(limit);
    }
    for (const camera::StixelFeatures& features : samples.features) {
        // What is not known is not above any.
        const auto below =
            std::lower_bound(column.limits.begin(), column.limits.end(), features[feature]);
        column.bin.push_back(static_cast<std::uint8_t>(below - column.limits.begin()));
    }
    return column;
}

struct Sums {
    double gradient = 0, hessian = 0;
    double gain(double ridge) const { return gradient * gradient / (hessian + ridge); }
};

/// The best question of one level about one feature.
struct Question {
    int feature = 0;
    int bin = 0;  ///< is the sample's bin above it?
    double gain = -1;
};

class Booster {
public:
    Booster(const LabelledFeatures& samples, const BoostOptions& options)
        : samples_(samples), options_(options) {
        columns_.resize(static_cast<std::size_t>(options.features));
        camera::parallelFor(options.features, [&](int f) { columns_[f] = columnOf(samples, f); });
        const std::size_t count = samples.features.size();
        double things = 0, all = 0;
        for (std::size_t i = 0; i < count; ++i) {
            all += samples.weight[i];
            things += samples.truth[i] ? samples.weight[i] : 0;
        }
        const double share = std::clamp(things / std::max(all, 1e-9), 1e-3, 1 - 1e-3);
        trees_.bias = static_cast<int>(std::lround(1e3 * std::log(share / (1 - share))));
        odds_.assign(count, 1e-3 * trees_.bias);
        gradient_.resize(count);
        hessian_.resize(count);
        leaf_.resize(count);
    }

    StixelTrees run() {
        for (int i = 0; i < options_.trees; ++i) grow();
        return std::move(trees_);
    }

private:
    void grow() {
        const std::size_t count = odds_.size();
        for (std::size_t i = 0; i < count; ++i) {
            const double p = 1 / (1 + std::exp(-odds_[i]));
            gradient_[i] = samples_.weight[i] * ((samples_.truth[i] ? 1.0 : 0.0) - p);
            hessian_[i] = samples_.weight[i] * p * (1 - p);
            leaf_[i] = 0;
        }
        StixelTree tree{};
        for (int level = 0; level < StixelTree::kLevels; ++level) {
            const Question best = bestQuestion(1 << level);
            const Column& column = columns_[best.feature];
            tree.feature[level] = static_cast<std::uint8_t>(best.feature);
            tree.limit[level] = column.limits.empty() ? 0.0f : column.limits[best.bin];
            for (std::size_t i = 0; i < count; ++i)
                leaf_[i] = static_cast<std::uint8_t>(2 * leaf_[i] + (column.bin[i] > best.bin));
        }
        std::array<Sums, kMostLeaves> sums{};
        for (std::size_t i = 0; i < count; ++i) {
            sums[leaf_[i]].gradient += gradient_[i];
            sums[leaf_[i]].hessian += hessian_[i];
        }
        for (int k = 0; k < kMostLeaves; ++k) {
            const double step = sums[k].gradient / (sums[k].hessian + options_.ridge);
            tree.value[k] = static_cast<std::int16_t>(std::clamp<long>(
                std::lround(1e3 * options_.rate * step), -kLargestValue, kLargestValue));
        }
        for (std::size_t i = 0; i < count; ++i) odds_[i] += 1e-3 * tree.value[leaf_[i]];
        trees_.trees.push_back(tree);
    }

    Question bestQuestion(int leaves) const {
        std::vector<Question> best(columns_.size());
        camera::parallelFor(static_cast<int>(columns_.size()), [&](int f) {
            const Column& column = columns_[f];
            std::array<std::array<Sums, kBins>, kMostLeaves / 2> sums{};
            for (std::size_t i = 0; i < odds_.size(); ++i) {
                Sums& sum = sums[leaf_[i]][column.bin[i]];
                sum.gradient += gradient_[i];
                sum.hessian += hessian_[i];
            }
            std::array<Sums, kMostLeaves / 2> above{}, below{};
            for (int leaf = 0; leaf < leaves; ++leaf)
                for (const Sums& one : sums[leaf]) {
                    above[leaf].gradient += one.gradient;
                    above[leaf].hessian += one.hessian;
                }
            best[f].feature = f;
            for (int bin = 0; bin < static_cast<int>(column.limits.size()); ++bin) {
                double gain = 0;
                for (int leaf = 0; leaf < leaves; ++leaf) {
                    below[leaf].gradient += sums[leaf][bin].gradient;
                    below[leaf].hessian += sums[leaf][bin].hessian;
                    above[leaf].gradient -= sums[leaf][bin].gradient;
                    above[leaf].hessian -= sums[leaf][bin].hessian;
                    gain += above[leaf].gain(options_.ridge) + below[leaf].gain(options_.ridge);
                }
                if (gain > best[f].gain)
                    best[f] = {f, bin, gain};
            }
        });
        // The first of equals, whatever came first.
        return *std::max_element(
            best.begin(), best.end(),
            [](const Question& p, const Question& q) { return p.gain < q.gain; });
    }

    const LabelledFeatures& samples_;
    const BoostOptions& options_;
    std::vector<Column> columns_;
    StixelTrees trees_;
    std::vector<double> odds_, gradient_, hessian_;
    std::vector<std::uint8_t> leaf_;
};

}  // namespace

StixelTrees boostTrees(const LabelledFeatures& samples, const BoostOptions& options) {
    return Booster(samples, options).run();
}

}  // namespace kova::bench
