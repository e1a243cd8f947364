#pragma once

#include <string>
#include <vector>

#include "bench/detection/real_sequence.h"
#include "bench/detection/scoring.h"

namespace kova::bench {

/// Within this distance real scenes are annotated and judged.
constexpr float kRealRangeMm = 15000;

/// A run of neighbouring stixels at about the same distance.
struct StixelRun {
    int frame = 0;
    int x_begin = 0, x_end = 0, y_top = 0, y_bottom = 0;  ///< [px]
    float distance_mm = 0;                                ///< nearest
    float high_mm = 0;                                    ///< over the ground
    float confidence = 0;                                 ///< of the most confident one, 0..1
};

/// What was found of a list of things that stand in a sequence.
struct RealObjectScores {
    int frames = 0;  ///< annotated ones
    Rate found;
    std::vector<RealObject> missed;
    std::vector<StixelRun> false_alarms;
};

/// Compares detection with a list. A thing is found when at least half of the columns of its box
/// carry an obstacle, reaching into its rows, between its near and far limit; a false alarm is a
/// run of obstacle stixels within kRealRangeMm that is not explained by any box of its frame, one
/// stixel wider to all sides. Tolerance of distances: max(1 px of disparity, 5 %).
RealObjectScores scoreRealObjects(const std::vector<RealFrame>& frames,
                                  const std::vector<RealObject>& objects);

/// The way that the camera took afterwards was free.
struct CorridorScores {
    int frames = 0;
    std::vector<StixelRun> reported;                    ///< in the corridor, which was free
    float lowest_height_mm = 0, highest_height_mm = 0;  ///< of the camera over the ground
    Rate ground_found;                                  ///< frames
};

/// Looks for obstacles within kRealRangeMm in the corridor of ±900 mm about the later positions of
/// the camera, up to the last one. What begins more than 2 m above the ground does not count.
CorridorScores scoreCorridor(const std::vector<RealFrame>& frames,
                             const std::vector<CameraPose>& poses);

/// How steady obstacles of a scene at rest are.
struct PersistenceScores {
    Rate found_again;  ///< pairs of an obstacle and one of the next five frames
    Rate steady;       ///< obstacles found again in at least 80 % of the next five frames
    std::vector<StixelRun> unsteady;
};

/// Follows every obstacle within kRealRangeMm into the next five frames by the camera's poses. It
/// is found again where at least half of its stixels meet a confirmed one at the predicted place
/// (one stixel, max(1 px, 5 %)). Stixels that leave the picture or the range, or have something
/// nearer before them then, are not asked for.
PersistenceScores scorePersistence(const std::vector<RealFrame>& frames,
                                   const std::vector<CameraPose>& poses);

}  // namespace kova::bench
