#pragma once

namespace kova::camera {

/// How far a cell may lie from the ground and still belong to it [px]: matching noise and the
/// unevenness of real floors.
constexpr float groundTolerance(float s) {
    return 0.5f + 0.02f * s;
}

/// The ground is looked for where the plane has this disparity or more [px].
constexpr float kMinPlaneDisparity = 1;

/// Cells are handled in groups of this many; lists hold whole groups.
constexpr int kGroundGroup = 8;

/// Lists of cells: rows v, disparities, gradients of these down the column, weights.
struct GroundColumn {
    const float* v = nullptr;
    const float* disparity = nullptr;
    const float* gradient = nullptr;
    const float* weight = nullptr;
    int count = 0;  ///< a multiple of kGroundGroup
};

/// The plane s = above + b * v in one column, and which cells of it count.
struct GroundLine {
    float above = 0, b = 0;
    float least = kMinPlaneDisparity, most = 1e6f;  ///< of s [px]
    float wide = 1;  ///< tolerances to where a cell's weight falls to nothing
    /// A cell that lies above the plane counts as so many times as far from it.
    float steep = 1;
    float min_gradient = 0, max_gradient = 0;
    float cy = 0, over_fy = 1;  ///< y = (v - cy) * over_fy
};

/// A column's part of the normal equations of a plane: sums of the weights w, Tukey's biweight of
/// the residual r included, times y and r.
struct GroundSums {
    float w = 0, wy = 0, wyy = 0, wr = 0, wyr = 0;
};

/// A plane d = a u + b v + c that is to be scored.
struct GroundTrial {
    float a = 0, b = 0, c = 0;
    float min_gradient = 0, max_gradient = 0;
};

/// The same bits on every CPU: sums are kept apart for each place in a group.
GroundSums groundSums(const GroundLine& line, const GroundColumn& cells);

/// Weight of what lies on the plane and looks like ground, less that of what lies clearly below.
/// @param u  columns, as `cells`
float groundScore(const GroundTrial& trial, const float* u, const GroundColumn& cells);

/// The plain forms, the truth for tests.
GroundSums groundSumsReference(const GroundLine& line, const GroundColumn& cells);
float groundScoreReference(const GroundTrial& trial, const float* u, const GroundColumn& cells);

}  // namespace kova::camera
