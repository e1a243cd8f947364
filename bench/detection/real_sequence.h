#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/detection/detection_frame.h"
#include "camera/matching/matcher.h"

namespace kova::bench {

/// A real sequence that is judged: where it lies below the folder of real data, and its rate.
struct RealSequence {
    const char* name;    ///< as in tests/data/real_objects.csv
    const char* folder;  ///< below the folder of real data
    double fps;          ///< where the set has no time stamps
    bool has_poses;      ///< poses.txt
};
constexpr RealSequence kStreet = {"street", "kitti-odometry-seq1", 10, true};
constexpr RealSequence kRoom = {"room", "euroc-micro-imu", 20, false};

/// What detection said about a frame of a real sequence, as far as it is judged.
struct RealFrame {
    camera::RectifiedGeometry geometry;
    int column_px = 0;
    camera::GroundEstimate ground;
    std::vector<camera::Stixel> stixels;      ///< confirmed ones, by column
    std::vector<camera::Obstacle> obstacles;  ///< nearest first
};

/// Detects in all frames of a sequence in order, at default parameters, without the inertial unit.
/// @param data  folder of real data
/// @return as openSequence(); kInvalidFile for a picture that cannot be read
camera::Result<std::vector<RealFrame>> detectSequence(const std::filesystem::path& data,
                                                      const RealSequence& sequence,
                                                      camera::WorkMode mode,
                                                      bool align_rows = true);

/// A thing that stands in a frame, annotated by eye; tests/data/real_objects.csv says how.
struct RealObject {
    int frame = 0;
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;  ///< box [px], half-open
    double near_m = 0, far_m = 0;        ///< z between which an obstacle is expected there
    bool must = false;                   ///< has to be found; else it only explains what is
    std::string kind;
};

/// Reads the annotations of one sequence.
/// @return kCannotOpenFile; kInvalidFile, with the line
camera::Result<std::vector<RealObject>> readRealObjects(const std::filesystem::path& path,
                                                        const std::string& sequence);

/// Where a camera stood: world_from_camera, 3x4 by rows, in metres.
struct CameraPose {
    std::array<double, 12> m{};

    using Point = std::array<double, 3>;
    Point worldOf(const Point& in_camera) const;
    Point cameraOf(const Point& in_world) const;
};

/// Reads poses.txt of a sequence.
/// @return kCannotOpenFile; kInvalidFile when a number is missing
camera::Result<std::vector<CameraPose>> readPoses(const std::filesystem::path& path);

}  // namespace kova::bench
