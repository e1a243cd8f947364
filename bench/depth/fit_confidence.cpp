#include "bench/depth/fit_confidence.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "camera/matching/matcher.h"
#include "camera/matching/sgm_matcher.h"

namespace kova::bench {

namespace {

using camera::ConfidenceTable;

struct Tally {
    double right = 0, all = 0;
};
using Tallies = std::array<Tally, 256>;

/// Adds a pair's pixels, with a total weight of 1.
void tally(const TruePair& pair, const camera::DisparityMap& map, Tallies& tallies) {
    Tallies counted{};
    double pixels = 0;
    for (int y = 0; y < pair.truth.height(); ++y)
        for (int x = 0; x < pair.truth.width(); ++x) {
            const float truth = pair.truth.at(x, y);
            const std::uint16_t d = map.disparity.at(x, y);
            if (truth < 0 || !camera::isDisparity(d))
                continue;
            Tally& t = counted[map.confidence.at(x, y)];
            const double error = d / double(camera::kDisparityScale) - truth;
            t.right += std::abs(error) <= 1;
            ++t.all;
            ++pixels;
        }
    for (std::size_t i = 0; i < counted.size(); ++i) {
        tallies[i].right += counted[i].right / std::max(pixels, 1.0);
        tallies[i].all += counted[i].all / std::max(pixels, 1.0);
    }
}

/// The ascending table that is nearest to the shares.
ConfidenceTable poolViolators(const Tallies& tallies) {
    struct Pool {
        double right, all;
        int scores;
        double share() const { return right / all; }
    };
    std::vector<Pool> pools;
    for (const Tally& t : tallies) {
        // A trace of doubt keeps scores that never occur from dividing by zero.
        pools.push_back({t.right + 1e-7, t.all + 2e-7, 1});
        while (pools.size() > 1 && pools[pools.size() - 2].share() >= pools.back().share()) {
            const Pool last = pools.back();
            pools.pop_back();
            pools.back().right += last.right;
            pools.back().all += last.all;
            pools.back().scores += last.scores;
        }
    }
    ConfidenceTable table{};
    std::size_t score = 0;
    for (const Pool& pool : pools)
        for (int i = 0; i < pool.scores; ++i)
            table[score++] = static_cast<std::uint8_t>(std::clamp<long>(
                std::lround(pool.share() * camera::kConfidenceScale), 1, camera::kConfidenceScale));
    return table;
}

}  // namespace

ConfidenceTable fitConfidence(const std::vector<TruePair>& pairs, bool half) {
    Tallies tallies{};
    ConfidenceTable scores;
    std::iota(scores.begin(), scores.end(), std::uint8_t{0});
    const auto matcher = camera::makeSgmMatcher(scores);
    for (const TruePair& pair : pairs) {
        camera::MatchParameters parameters;
        parameters.work_mode = half ? camera::WorkMode::kFast : camera::WorkMode::kSlow;
        parameters.max_disparity = pair.entry.levels;
        camera::DisparityMap map;
        if (matcher->match(pair.left.view(), pair.right.view(), parameters, map).ok())
            tally(pair, map, tallies);
    }
    return poolViolators(tallies);
}

}  // namespace kova::bench
