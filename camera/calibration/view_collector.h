#pragma once

#include <array>
#include <string>
#include <vector>

#include "camera/base/image.h"
#include "camera/calibration/board.h"
#include "camera/calibration/calibrator.h"

namespace kova::camera {

/// Pictures of both eyes, taken at the same moment.
struct EyeViews {
    ImageView<const std::uint8_t> left, right;
};

/// Chooses the views of a live camera from which it is calibrated: the board stands still, is
/// sharp, and is where, or tilted as, it was in no view before.
class ViewCollector {
public:
    static constexpr int kViews = 15;  ///< that are enough, if they show all that is asked for
    static constexpr int kViewsPerTilt = 2;  ///< with each side of the board nearer

    /// @param calibrator  receives the views; outlives the collector
    ViewCollector(const Board& board, StereoCalibrator& calibrator)
        : board_(board), calibrator_(calibrator) {}

    /// Looks at a pair and takes it if it helps.
    /// @param name    for reports
    /// @param before  the pair of the frame before, to see whether the board moves
    BoardSighting offer(const std::string& name, const EyeViews& before, const EyeViews& now);

    bool enough() const { return missing().empty(); }
    /// What is still to be shown, for the person who holds the board.
    std::string missing() const;

private:
    /// Where the board is in the left picture, in shares of it, and how it is tilted: natural
    /// logarithms of the ratio of distances, positive where its right or lower side is farther.
    struct Place {
        double x = 0, y = 0, size = 0, tilt_x = 0, tilt_y = 0;
    };
    Place placeOf(const BoardPoints& points, int width, int height) const;
    bool isNew(const Place& place) const;
    bool coversMore(const BoardPoints& left, const BoardPoints& right, int width, int height) const;
    bool standsStill(const BoardPoints& now, const EyeViews& before) const;

    Board board_;
    StereoCalibrator& calibrator_;
    std::vector<Place> places_;
    std::array<int, 4> tilts_{};  ///< views with the left, right, upper, lower side nearer
};

}  // namespace kova::camera
