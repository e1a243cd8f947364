#pragma once

#include <vector>

#include "camera/detection/detection_frame.h"
#include "camera/detection/stixel_judge.h"

namespace kova::camera {

/// What may become a stixel: it passed every limit that one column can be judged by.
struct StixelCandidate {
    Stixel stixel;
    float evidence = 0;  ///< against ground [nat]
    float texture = 1;   ///< of its segment, see there
    /// How much better an upright surface explains the slant of its cells than one that is
    /// parallel to the ground [nat].
    float upright = 100;
    float measured = 1;  ///< part of its segment's cells, by weight
    bool edge = false;   ///< of a raised surface
    bool hangs = false;  ///< nothing is seen below it
    bool wanted = true;  ///< within the limits that the user sets
    bool kept = false;   ///< set by StixelSupport
    StixelFeatures features = unknownFeatures();
    int group = 0;              ///< set by StixelSupport: the same for neighbours, see there
    float own_probability = 0;  ///< set by StixelSupport: without its neighbours
};

/// The judge does not know what has no disparity.
inline bool isJudged(const StixelCandidate& one) {
    return !one.stixel.too_near;
}

/// Tells what stands beside each candidate.
class StixelNeighbours {
public:
    /// Fills in the features from kNearest on, from `group` and `own_probability`.
    /// @param first  index of each column's first candidate; one more than columns
    void describe(const std::vector<int>& first, std::vector<StixelCandidate>& candidates);

private:
    std::vector<float> group_sums_;
};

/// Judges candidates together with their neighbours: wrong matches are narrow and unsure, real
/// things are wider than a column or stand out clearly.
///
/// Candidates of neighbouring columns at about the same distance that overlap in height make a
/// group. Every candidate is given a probability by what is known of itself, see StixelJudge, then
/// by that and what stands beside it; it becomes the stixel's confidence. What is nearer than the
/// search can see is judged by the evidence of its group.
///
/// What the user does not want is judged like the rest and left out at last: a stricter limit
/// changes nothing about the others.
class StixelSupport {
public:
    /// @param first  index of each column's first candidate; one more than columns
    void run(const StixelJudge& judge, const std::vector<int>& first,
             std::vector<StixelCandidate>& candidates);

private:
    struct Group {
        float evidence = 0;  ///< of what is too near [nat]
        int columns = 0;
        int last_column = -2;
    };
    std::vector<int> parent_;
    std::vector<Group> groups_;
    StixelNeighbours neighbours_;
};

}  // namespace kova::camera
