#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bench/detection/real_pairs.h"
#include "bench/detection/real_scores.h"

namespace kova::bench {

/// One work mode on the real data.
struct RealRow {
    const char* mode = "";
    RealObjectScores street, room;
    CorridorScores corridor;
    PersistenceScores persistence;
    PairAgreement pairs;
};

struct RealReport {
    std::vector<RealRow> rows;
};

/// Fast and medium on the real sequences and pairs, at default parameters.
/// @param data  folder of real data
/// @param list  annotations, tests/data/real_objects.csv
/// @return as detectSequence() and readRealObjects()
camera::Status benchRealDetection(const std::filesystem::path& data,
                                  const std::filesystem::path& list, bool align_rows,
                                  RealReport& report);

/// The report as text and for machines; `each` adds every miss, false alarm and unsteady obstacle.
std::string realTable(const RealReport& report, bool each);
std::string realJson(const RealReport& report, bool each);

}  // namespace kova::bench
