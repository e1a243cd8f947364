#include "bench/depth/depth_bench.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "bench/depth/baseline.h"
#include "camera/matching/matcher.h"
#include "camera/matching/sgm_pass.h"

namespace kova::bench {

namespace {

using camera::DisparityMap;
using camera::isDisparity;
using camera::WorkMode;

constexpr struct {
    WorkMode mode;
    const char* name;
} kModes[] = {{WorkMode::kFast, "fast"}, {WorkMode::kMedium, "medium"}, {WorkMode::kSlow, "slow"}};

/// A measured pixel with known truth.
struct Sample {
    double key;    ///< removed in ascending order
    double error;  ///< [px]
};

bool wrongBy(const Sample& sample, double limit) {
    return sample.error > limit;
}

double errorAt(const TruePair& pair, const DisparityMap& map, int x, int y) {
    return std::abs(map.disparity.at(x, y) / double(camera::kDisparityScale) - pair.truth.at(x, y));
}

std::vector<Sample> samplesOf(const TruePair& pair, const DisparityMap& map) {
    std::vector<Sample> samples;
    for (int y = 0; y < pair.truth.height(); ++y)
        for (int x = 0; x < pair.truth.width(); ++x)
            if (pair.truth.at(x, y) >= 0 && isDisparity(map.disparity.at(x, y)))
                samples.push_back({map.confidence.at(x, y) / double(camera::kConfidenceScale),
                                   errorAt(pair, map, x, y)});
    return samples;
}

/// Mean share of errors over 1 px while the samples are removed by ascending key; equal keys are
/// removed together, each with the mean of its like.
double sparsificationArea(std::vector<Sample> samples) {
    std::sort(samples.begin(), samples.end(),
              [](const Sample& a, const Sample& b) { return a.key > b.key; });
    double area = 0, wrong = 0, kept = 0;
    for (std::size_t i = 0; i < samples.size();) {
        std::size_t end = i;
        double wrong_here = 0;
        while (end < samples.size() && samples[end].key == samples[i].key)
            wrong_here += wrongBy(samples[end++], 1);
        const auto count = static_cast<double>(end - i);
        for (double k = 1; k <= count; ++k) area += (wrong + wrong_here * k / count) / (kept + k);
        wrong += wrong_here;
        kept += count;
        i = end;
    }
    return samples.empty() ? 0 : area / static_cast<double>(samples.size());
}

double bad2AtDensity(std::vector<Sample> samples, double pixels, double density) {
    const auto keep = static_cast<std::size_t>(std::lround(pixels * density / 100));
    if (keep == 0 || samples.size() < keep)
        return -1;
    std::stable_sort(samples.begin(), samples.end(),
                     [](const Sample& a, const Sample& b) { return a.key > b.key; });
    double wrong = 0;
    for (std::size_t i = 0; i < keep; ++i) wrong += wrongBy(samples[i], 2);
    return 100 * wrong / static_cast<double>(keep);
}

/// Sums over pairs, each with a weight of one.
struct ConfidenceSums {
    double pairs = 0;
    std::array<double, 10> share{}, predicted{}, right{};
    double all_right = 0, right_05 = 0, right_09 = 0, kept_09 = 0, area = 0, ideal = 0, cost = 0;

    void add(const std::vector<Sample>& samples) {
        const double weight = 1 / std::max(1.0, static_cast<double>(samples.size()));
        pairs += 1;
        for (const Sample& s : samples) {
            const auto tenth = static_cast<std::size_t>(std::min(9.0, s.key * 10));
            const double ok = wrongBy(s, 1) ? 0 : weight;
            share[tenth] += weight;
            predicted[tenth] += weight * s.key;
            right[tenth] += ok;
            all_right += ok;
            right_05 += s.key >= 0.5 ? ok : 0;
            right_09 += s.key >= 0.9 ? ok : 0;
            kept_09 += s.key >= 0.9 ? weight : 0;
        }
        area += sparsificationArea(samples);
        std::vector<Sample> ideal_order = samples;
        for (Sample& s : ideal_order) s.key = -s.error;
        ideal += sparsificationArea(std::move(ideal_order));
    }

    ConfidenceReport report(const std::string& mode) const {
        ConfidenceReport r;
        r.mode = mode;
        for (std::size_t i = 0; i < r.tenths.size(); ++i) {
            const double all = std::max(share[i], 1e-12);
            r.tenths[i] = {share[i] / pairs, predicted[i] / all, right[i] / all};
        }
        r.kept_at_05 = right_05 / all_right;
        r.kept_at_09 = right_09 / all_right;
        r.error_before = 1 - all_right / pairs;
        r.error_at_09 = kept_09 > 0 ? 1 - right_09 / kept_09 : 0;
        r.area = area / pairs;
        r.area_of_ideal = ideal / pairs;
        if (cost > 0)
            r.area_of_cost = cost / pairs;
        return r;
    }
};

/// The area of the plain cost, of the full search.
double areaOfCost(const TruePair& pair, const DisparityMap& map) {
    camera::sgm::BandMemoryPool pool;
    camera::sgm::SgmPass pass(pool);
    DisparityMap again;
    again.resize(pair.left.width(), pair.left.height());
    pass.begin(pair.left.width(), pair.left.height(), 0, pair.entry.levels);
    pass.run(pair.left.view(), pair.right.view(), 0, 0, again.disparity.view());
    std::vector<Sample> samples;
    for (int y = 0; y < pair.truth.height(); ++y)
        for (int x = 0; x < pair.truth.width(); ++x)
            if (pair.truth.at(x, y) >= 0 && isDisparity(map.disparity.at(x, y)))
                samples.push_back(
                    {-double(pass.winners().best.at(x, y)), errorAt(pair, map, x, y)});
    return sparsificationArea(std::move(samples));
}

}  // namespace

DepthReport benchDepth(const std::vector<TruePair>& pairs) {
    DepthReport report;
    const auto matcher = camera::makeMatcher();
    std::map<WorkMode, ConfidenceSums> sums;
    for (const TruePair& pair : pairs) {
        const auto thin = thinForeground(pair.truth.view());
        const auto measure = [&](const std::string& method, const DisparityMap& map) {
            DepthRow row{pair.entry.group, pair.entry.name, method, {}, {}, -1};
            row.raw = measureErrors(map.disparity.view(), pair.truth.view(), thin.view());
            auto filled = map.disparity.clone();
            fillRows(filled);
            row.filled = measureErrors(filled.view(), pair.truth.view(), thin.view());
            report.rows.push_back(row);
        };
        double density = 0, least_bad2 = 1e9;
        for (const Baseline& baseline : kBaselines) {
            DisparityMap map;
            matchBaseline(baseline, pair.left.view(), pair.right.view(), pair.entry.levels, true,
                          map.disparity);
            measure(baseline.name, map);
            DepthRow& row = report.rows.back();
            if (baseline.three_way && row.filled.bad2 < least_bad2) {
                least_bad2 = row.filled.bad2;
                density = row.raw.density;
            }
            row.bad2_at_equal_density = row.raw.bad2;
        }
        for (const auto& [mode, name] : kModes) {
            camera::MatchParameters parameters;
            parameters.work_mode = mode;
            parameters.max_disparity = pair.entry.levels;
            parameters.borrow = true;
            DisparityMap map;
            (void)matcher->match(pair.left.view(), pair.right.view(), parameters, map);
            measure(name, map);
            const std::vector<Sample> samples = samplesOf(pair, map);
            DepthRow& row = report.rows.back();
            row.bad2_at_equal_density =
                bad2AtDensity(samples, row.raw.pixels, std::min(density, row.raw.density));
            sums[mode].add(samples);
            if (mode == WorkMode::kSlow)
                sums[mode].cost += areaOfCost(pair, map);
            parameters.fill = true;
            (void)matcher->match(pair.left.view(), pair.right.view(), parameters, map);
            measure(std::string(name) + ", Fill", map);
        }
    }
    for (const auto& [mode, name] : kModes) report.confidence.push_back(sums[mode].report(name));
    return report;
}

}  // namespace kova::bench
