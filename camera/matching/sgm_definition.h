#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"
#include "camera/matching/strips.h"

/// What the matcher computes, in terms that both its scalar reference and its fast form share.
///
/// Semi-global matching (Hirschmüller, PAMI 2008) with four paths over 8-bit costs:
///  - census of 5x5 (Zabih and Woodfill 1994): 24 comparisons with the centre, as three bytes; in
///    noise of pixels that lie farther apart (Denoising);
///  - the cost of (x, y, d) is the sum of the Hamming distances in a 3x3 box around it, over 8, so
///    at most 27. Pixels outside a picture have the value of the nearest pixel inside;
///  - paths from the left, the right, above and below; small steps cost kSmallStep, others
///    kLargeStep, or kLargeStepAtEdge where the left picture's grey value changes by kEdge or more;
///  - their sum, saturated at 255, has its first least value at the winning level.
///
/// The picture is cut into cells of kCell columns and at most as many rows, so that a cell's costs
/// stay in the cache. A row of cells, a strip of the picture (strips.h), is a band; bands do not
/// depend on each other. Within a band the path from the
/// left runs through; that from the right starts anew kHaloColumns right of each cell; those from
/// above and below start kHaloRows outside of the band. Each cell searches its own range of levels:
/// where two cells meet, a level that the cell before did not search counts as 255.
///
/// These numbers define the result; they depend neither on the lanes of a vector nor on threads.
namespace kova::camera::sgm {

constexpr int kCell = 64;
static_assert(kStripRows <= kCell, "a band is one cell high");
constexpr int kHaloColumns = 32;
constexpr int kHaloRows = 8;

constexpr int kSmallStep = 12;
constexpr int kLargeStep = 48;
constexpr int kLargeStepAtEdge = 24;
constexpr int kEdge = 16;
/// A winner counts only if the next best level, its two neighbours apart, is dearer by 3 %.
constexpr int kUniquePercent = 3;
/// Largest difference between both eyes' disparity of a point [1/16 px].
constexpr int kMaxEyeDifference = 20;
/// See refineWinner().
constexpr int kBlunting = 16;

/// Levels [begin, end) that a cell searches; level k is the disparity min_disparity + k.
struct LevelRange {
    std::uint16_t begin = 0;
    std::uint16_t end = 0;
    int size() const { return end - begin; }
};

struct Search {
    int min_disparity = 0;  ///< [px]
    int levels = 0;         ///< 16 to 320
    /// One range per cell, row by row; none is empty.
    std::vector<LevelRange> ranges;
};

/// Cells of a band.
constexpr int cellsFor(int width) {
    return (width + kCell - 1) / kCell;
}

/// The winners of every pixel of the left picture.
struct Winners {
    Image<std::uint16_t> disparity;  ///< 1/16 px, or invalid
    Image<std::uint8_t> best;        ///< sum at the winner
    Image<std::uint8_t> second;      ///< least sum more than one level away from it; 255 if none

    void resize(int width, int height) {
        disparity.resize(width, height);
        best.resize(width, height);
        second.resize(width, height);
    }
};

/// Disparity of the winning level in 1/16 px, from the sums at the level before, at it and after
/// it: equiangular lines over sums of which a part does not depend on the offset.
///
/// Where a surface stays at one level, a path holds its neighbours dearer by kSmallStep, wherever
/// between the levels the surface lies; on both sides alike, which would draw the estimate towards
/// the level. Half of the smaller rise is therefore taken from the larger one. kBlunting does the
/// reverse where all sums are close, whose differences are mostly noise. Both were fitted on the
/// tuning pairs and on simulated ones.
inline int refineWinner(int disparity_px, int before, int best, int after) {
    const int larger = (before > after ? before : after) - best;
    const int smaller = (before < after ? before : after) - best;
    const int span = 2 * larger - smaller + kBlunting;
    const int numerator = 2 * (before - after) * kDisparityScale + span;  // over -32 spans
    return disparity_px * kDisparityScale + (numerator + 2 * kDisparityScale * span) / (2 * span) -
           kDisparityScale;
}

/// The winner of a pixel as it is stored: kInvalidDisparity if its partner lies outside of the
/// right picture, if it is at the end of the range (unless that is disparity 0), or not unique.
inline std::uint16_t judgeWinner(int x, int level, const LevelRange& range, int min_disparity,
                                 int before, int best, int after, int second) {
    const int disparity_px = min_disparity + level;
    const bool low_end = level == range.begin, high_end = level + 1 == range.end;
    if (disparity_px > x || high_end || (low_end && disparity_px > 0) ||
        second * (100 - kUniquePercent) <= best * 100)
        return kInvalidDisparity;
    const int refined = low_end ? 0 : refineWinner(disparity_px, before, best, after);
    return static_cast<std::uint16_t>(refined > 1 ? refined : 1);
}

}  // namespace kova::camera::sgm
