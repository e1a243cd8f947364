#pragma once

#include <cstdint>
#include <limits>

/// Records that cross the border of the camera library, by value. Names and order of the fields are
/// fixed; tests/sdk checks sizes and offsets.
namespace kova::bino {

/// How the next frame is taken.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | rectify | flag | deliver rectified pictures; false is reserved and treated as true |
/// | depth_mode | 0, 1 | 0 Standard, 1 Fill |
/// | left_right_check | flag | reserved, the check is always made |
/// | speckle_removal | flag | reserved, speckles are always removed |
/// | reserved | - | zero |
///
/// What is occluded or unsure stays without depth; Fill completes it from its surroundings.
struct GrabParameters {
    bool rectify = true;
    std::int32_t depth_mode = 0;
    bool left_right_check = true;
    bool speckle_removal = true;
    std::int32_t reserved[4] = {0, 0, 0, 0};
};

/// Filters of the obstacle detection. Each is monotone: a stricter value never adds.
///
/// | field | unit | meaning; what a larger value does |
/// |---|---|---|
/// | ground_min_region | 1/1000 of the picture | smaller ground is "not sure"; never more ground |
/// | ground_min_support | % | support that the ground plane needs; never more ground |
/// | obstacle_min_height | 10 m | what an obstacle must rise above; never more obstacles |
/// | obstacle_foot_height | 10 m | how far down it reaches; never more obstacle pixels |
/// | clearance | mm over ground | things wholly higher are ignored; never fewer obstacles |
/// | max_ground_slope | degrees | steeper surfaces are obstacles; never less ground |
/// | min_drop | mm | a surface lower than the ground by more is a drop; never more drops |
///
/// Support is inliers / (inliers + confident points clearly below the plane). Some part of an
/// obstacle must rise above obstacle_min_height (0.0036 = 36 mm; less than 20 mm counts as 20);
/// between the two heights (0.0014 = 14 mm) unattached pixels are "not sure".
struct ObstacleDetectionParameters {
    std::int32_t ground_min_region = 30;
    std::uint8_t ground_min_support = 40;
    float obstacle_min_height = 0.0036f;
    float obstacle_foot_height = 0.0014f;
    float clearance = std::numeric_limits<float>::infinity();
    float max_ground_slope = 20.0f;
    float min_drop = 50.0f;
};

/// Shape of the stixels. Pixel values count at a picture 1280 wide and scale with the width.
///
/// | field | unit | meaning; what a larger value does |
/// |---|---|---|
/// | width | px at 1280 wide | width of a stixel; coarser |
/// | min_length | px at 1280 wide | shorter ones need more evidence; never more stixels |
/// | crop_top, crop_bottom | px | rows ignored at the edge (sky, the robot's own bumper) |
/// | max_layers | 1 | stixels per column, the nearest kept first; never fewer stixels |
struct ObstacleDetectionStixelsParameters {
    std::int32_t width = 10;
    std::int32_t min_length = 10;
    std::int32_t crop_top = 0;
    std::int32_t crop_bottom = 0;
    std::int32_t max_layers = 10;
};

/// Geometry of the stereo camera: 25 floats.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | fx, fy, cx, cy | px | left camera (the rectified one when asked for) |
/// | distortion_left | 1 | k1, k2, p1, p2, k3 of the left camera; zero when rectified |
/// | right_fx, right_fy, right_cx, right_cy | px | right camera |
/// | distortion_right | 1 | as distortion_left |
/// | rotation | rad | rotation vector, right from left |
/// | translation | mm | right from left; (-baseline, 0, 0) when rectified |
/// | baseline | mm | distance of the two cameras, positive |
struct StereoParameters {
    float fx = 0, fy = 0, cx = 0, cy = 0;
    float distortion_left[5] = {0, 0, 0, 0, 0};
    float right_fx = 0, right_fy = 0, right_cx = 0, right_cy = 0;
    float distortion_right[5] = {0, 0, 0, 0, 0};
    float rotation[3] = {0, 0, 0};
    float translation[3] = {0, 0, 0};
    float baseline = 0;
};

/// Size of the pictures that the library delivers and the nominal rate.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | width, height | px | one eye, constant from open to close; the width is a multiple of 4 |
/// | fps | frames/s | nominal rate of the mode or of the recording |
struct ImageSizeFPS {
    int width = 0;
    int height = 0;
    float fps = 0;
};

/// Geometry of the top view.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | side_range | mm | half width of the driving corridor |
/// | half_width | mm | half width of the area shown |
/// | near_distance, far_distance | mm | bounds of the area shown, ahead of the camera |
/// | pixels_per_mm | px/mm | scale |
struct ObstacleDetectionTopViewParameters {
    float side_range = 0;
    float half_width = 0;
    float near_distance = 0;
    float far_distance = 0;
    float pixels_per_mm = 0;
};

/// A picture or point cloud in host memory, owned by the camera and valid until the next grab.
///
/// | field | unit | meaning |
/// |---|---|---|
/// | data | - | first byte, top row first; null when there is none |
/// | reserved | - | zero |
struct ImageRecord {
    void* data = nullptr;
    std::uint64_t reserved[2] = {0, 0};
};

}  // namespace kova::bino
