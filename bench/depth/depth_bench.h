#pragma once

#include <array>
#include <string>
#include <vector>

#include "bench/depth/ground_truth.h"
#include "bench/depth/metrics.h"

namespace kova::bench {

/// How one method did on one pair.
struct DepthRow {
    std::string group, pair, method;
    DepthErrors raw;     ///< as the method leaves it
    DepthErrors filled;  ///< completed by fillRows()
    /// Share of errors over 2 px at the density of the sparser of this method and the better 3WAY;
    /// the least confident pixels go first. Negative where it cannot be told.
    double bad2_at_equal_density = -1;
};

/// How well the confidence of a work mode is calibrated, every pair with the same weight.
struct ConfidenceReport {
    std::string mode;
    struct Tenth {
        double share = 0;      ///< of all disparities
        double predicted = 0;  ///< mean confidence, 0 to 1
        double right = 0;      ///< share that is right to within 1 px, 0 to 1
    };
    std::array<Tenth, 10> tenths;
    double kept_at_05 = 0;    ///< share of the right pixels that a threshold of 0.5 keeps
    double kept_at_09 = 0;    ///< ... of 0.9
    double error_before = 0;  ///< share of wrong pixels without a threshold
    double error_at_09 = 0;   ///< ... with 0.9
    /// Area under the share of errors over 1 px while the least sure pixels are removed; mean over
    /// the pairs. Of the confidence, of the plain cost (slow only, else negative), of the ideal.
    double area = 0, area_of_cost = -1, area_of_ideal = 0;
};

struct DepthReport {
    std::vector<DepthRow> rows;
    std::vector<ConfidenceReport> confidence;
};

/// Runs all methods on all pairs.
DepthReport benchDepth(const std::vector<TruePair>& pairs);

/// The report as text: pair by pair, then means of the groups.
std::string depthTable(const DepthReport& report, bool every_pair);
std::string depthJson(const DepthReport& report);

}  // namespace kova::bench
