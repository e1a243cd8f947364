#pragma once

namespace kova::camera {

/// Levels are handled in groups of this many; rows of costs hold whole groups and are
/// aligned to 64 bytes.
constexpr int kLevelGroup = 16;
constexpr int kMaxLevelGroups = 15;
/// A cost that nothing reaches.
constexpr float kNeverCost = 1e9f;

/// Cost of entering an object from a lying surface, by where the object's foot is.
struct FootCosts {
    float below_until = 0;  ///< a level under this lies below the surface
    float above_from = 0;   ///< a level over this hangs above it
    float below = kNeverCost, on = kNeverCost, above = kNeverCost;
};

/// One row of the stixel optimisation, for all levels of a column.
struct StixelStep {
    int groups = 0;
    float slant = 0;                   ///< cost of the next level farther
    float jump[kMaxLevelGroups] = {};  ///< cost of entering from another object, per group
    float other = kNeverCost;          ///< cost of entering from the sky
    FootCosts from_ground, from_raised;
    // Data term: weight * min(scale * (d - level)^2, cap), or a constant when weight is 0.
    float d = 0, scale = 0, weight = 0, cap = 0, constant = 0;
    // For the ground of the next row: levels under this pay `below_ground`.
    float ground_until = 0, below_ground = 0;
};

/// @param cost       costs of the row below; cost[16 * groups] must exist and be kNeverCost
/// @param next       costs of this row
/// @param group_min  least of `next` per group
/// @return least of `next`, plus below_ground where the level is under ground_until
///
/// The same bits on every CPU: nothing but sums, products and minima per level.
float stixelStep(const StixelStep& step, const float* level, const float* cost, float* next,
                 float* group_min);

/// The plain form, the truth for tests.
float stixelStepReference(const StixelStep& step, const float* level, const float* cost,
                          float* next, float* group_min);

}  // namespace kova::camera
