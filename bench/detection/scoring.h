#pragma once

#include <array>
#include <vector>

#include "bench/detection/plain_detector.h"
#include "bench/detection/scene_truth.h"

namespace kova::bench {

/// How many of how many.
struct Rate {
    double hits = 0, all = 0;
    double percent() const { return all > 0 ? 100 * hits / all : 0; }
    /// Wilson's 95 % interval [%], every instance counted as independent.
    std::array<double, 2> interval() const;
    /// The same for as many instances as the scatter between the drives says they are worth, since
    /// the frames of a drive show the same things. With nothing or everything hit, the drives
    /// count.
    std::array<double, 2> intervalByDrive() const;

    /// To be called when one drive has been counted, before it is added to others.
    void closeDrive();
    void add(const Rate& other);

private:
    double drives_ = 0, hits_hits_ = 0, hits_all_ = 0, all_all_ = 0;  ///< sums over drives
};

/// Upper borders of the classes of C [px]; one more class lies above the last.
constexpr std::array<double, 7> kContrastClasses = {0.5, 1.0, 1.6, 2.5, 4.0, 6.0, 10.0};

/// How a detector did on the frames of one group of scenes.
struct Scores {
    int frames = 0;
    Rate all;       ///< objects within judgedRangeMm()
    Rate low;       ///< of 20 cm and more, with enough contrast
    Rate high;      ///< of 50 cm and more, with enough contrast
    Rate near;      ///< of 20 cm and more, in the range of the fast mode
    Rate overhead;  ///< what hangs over the way
    std::array<Rate, kContrastClasses.size() + 1> curve;  ///< by C
    int false_positives = 0;
    Rate map_right;     ///< labelled pixels that are right
    Rate map_labelled;  ///< textured ground and obstacle in range that is labelled
    Rate obstacle_as_ground;
    std::vector<double> pitch_deg, roll_deg, height_percent;  ///< errors, without sign
    Rate plane_far_off;     ///< ground found, but pitch or roll over 0.5 degrees off
    Rate no_ground;         ///< none found though it fills a fifth of the picture
    Rate free_at_too_near;  ///< columns called free where something is nearer than the search
    Rate free_frames;       ///< frames in which one such column is, of those that have any
    Rate too_near_unknown, too_near_occupied, too_near_named;  ///< what such columns are called

    /// Ends a drive for all rates.
    void closeDrive();
    void add(const Scores& other);
};

/// What is said of the ground against what it is, both as planes through the true ground 2 to 8 m
/// ahead: said less true.
struct PlaneErrors {
    bool judged = false;  ///< enough ground is seen there
    double pitch_deg = 0, roll_deg = 0, height_percent = 0;
    bool farOff() const;
};
PlaneErrors planeErrors(const Findings& findings, const SceneTruth& truth,
                        const camera::RectifiedGeometry& geometry);

/// Up to where objects are judged [mm]: 12 m, or as far as the camera measures.
double judgedRangeMm(const camera::RectifiedGeometry& geometry);

/// From which contrast on objects are judged, by the picture's width.
constexpr double judgedContrast(int width) {
    return width >= 1000 ? 1.6 : 2.5;
}

/// Whether a found column lies at the distance of a column of an object.
bool matches(const FoundColumn& found, float nearest, float farthest);

/// At least half of its columns carry an obstacle at its distance.
bool isFound(const VisibleObject& object, const Findings& findings);

/// It stands on the ground, is 20 cm high or more, in range and has contrast enough.
bool isJudged(const VisibleObject& object, const camera::RectifiedGeometry& geometry,
              int max_disparity);

/// The columns that lie near no true obstacle. What is raised over the ground, a pavement, may be
/// called an obstacle; nothing is too far away to be a false one.
std::vector<FoundColumn> falseColumns(const Findings& findings, const SceneTruth& truth,
                                      int max_disparity, int column_px);

/// Of each, whether it lies near no true obstacle.
/// @param raised_counts  what is raised over the ground is one too
std::vector<bool> areFalse(const std::vector<FoundColumn>& found, const SceneTruth& truth,
                           int max_disparity, int column_px, bool raised_counts);

/// Adds what a detector says about a frame.
/// @param max_disparity  end of its search [px]
/// @param column_px      width of its columns
void score(const Findings& findings, const SceneTruth& truth,
           const camera::RectifiedGeometry& geometry, int max_disparity, int column_px,
           Scores& scores);

}  // namespace kova::bench
