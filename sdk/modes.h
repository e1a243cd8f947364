#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kova::bino {

/// Resolution and frame rate of a capture. Values 7, 8, 15 and 16 are not assigned.
enum RESOLUTION_FPS_MODE : std::int32_t {
    RESOLUTION_FPS_MODE_HD800_120FPS = 1,
    RESOLUTION_FPS_MODE_HD800_100FPS = 2,
    RESOLUTION_FPS_MODE_HD800_60FPS = 3,
    RESOLUTION_FPS_MODE_HD800_50FPS = 4,
    RESOLUTION_FPS_MODE_HD800_30FPS = 5,
    RESOLUTION_FPS_MODE_HD800_15FPS = 6,
    RESOLUTION_FPS_MODE_HD720_120FPS = 9,
    RESOLUTION_FPS_MODE_HD720_100FPS = 10,
    RESOLUTION_FPS_MODE_HD720_60FPS = 11,
    RESOLUTION_FPS_MODE_HD720_50FPS = 12,
    RESOLUTION_FPS_MODE_HD720_30FPS = 13,
    RESOLUTION_FPS_MODE_HD720_15FPS = 14,
    RESOLUTION_FPS_MODE_SD400_120FPS = 17,
    RESOLUTION_FPS_MODE_SD400_100FPS = 18,
    RESOLUTION_FPS_MODE_SD400_90FPS = 19,
    RESOLUTION_FPS_MODE_SD400_60FPS = 20,
    RESOLUTION_FPS_MODE_SD400_30FPS = 21,
    RESOLUTION_FPS_MODE_SD400_15FPS = 22,
};

/// Camera models. "1" models offer every mode, "0" models neither 120 and 100 frames per second
/// nor SD400 at 90. P models carry an inertial unit.
enum CAMERA_MODEL : std::int32_t {
    CAMERA_MODEL_QUELVAR_R0 = 0,
    CAMERA_MODEL_QUELVAR_R1 = 1,
    CAMERA_MODEL_QUELVAR_T1 = 51,
    CAMERA_MODEL_QUELVAR_P0 = 100,
    CAMERA_MODEL_QUELVAR_P1 = 101,
};

/// Trade of quality for time.
enum WORK_MODE : std::int32_t { WORK_MODE_FAST = 0, WORK_MODE_MEDIUM = 1, WORK_MODE_SLOW = 2 };

/// What retrieveDepthForObstacleDetection() delivers.
enum DEPTH_TYPE : std::int32_t {
    /// Organised point cloud: X, Y, Z as 32-bit floats [mm] per pixel, rows in order, NaN where
    /// there is no depth.
    DEPTH_TYPE_POINT_CLOUD = 10,
};

/// Views of the obstacle detection, see obstacle_view_type2str().
enum OBSTACLE_VIEW_TYPE : std::int32_t {
    OBSTACLE_VIEW_TYPE_OBSTACLE = 0,
    OBSTACLE_VIEW_TYPE_GROUND = 1,
    OBSTACLE_VIEW_TYPE_TOP_VIEW = 2,
    OBSTACLE_VIEW_TYPE_GROUND_MAP = 3,
    OBSTACLE_VIEW_TYPE_IMAGE_STIXELS = 4,
    OBSTACLE_VIEW_TYPE_STIXELS = 5,
};
constexpr int kObstacleViewTypeCount = 6;

/// One row of the table of modes.
struct ResolutionFpsMode {
    RESOLUTION_FPS_MODE mode;
    const char* name;  ///< for instance "HD720_30FPS"
    int width;         ///< [px], one eye
    int height;        ///< [px]
    float fps;         ///< nominal rate [frames/s]
};

/// All modes, in the order of their values.
const std::vector<ResolutionFpsMode>& resolution_fps_modes();

/// The row of a mode; null for a value that is not assigned.
const ResolutionFpsMode* find_resolution_fps_mode(RESOLUTION_FPS_MODE mode);

/// The row with exactly this width, height and rate; null when there is none.
const ResolutionFpsMode* find_resolution_fps_mode(int width, int height, float fps);

/// Name of a mode, for instance "HD800_50FPS"; empty for a value that is not assigned.
std::string resolution_fps_mode2str(RESOLUTION_FPS_MODE mode);

/// Display name of a camera model, for instance "Quelvar P1"; empty for an unknown code.
std::string camera_model2str(CAMERA_MODEL model);

/// Modes that a camera model offers, in the order in which they are listed; none for an unknown
/// code.
const std::vector<RESOLUTION_FPS_MODE>& camera_model_modes(CAMERA_MODEL model);

/// Index into camera_model_modes() of the mode in which a model starts; 0 for an unknown code.
int camera_model_default_mode_index(CAMERA_MODEL model);

/// Name of a view, for instance "Ground Map"; empty for an unknown value.
std::string obstacle_view_type2str(OBSTACLE_VIEW_TYPE type);

}  // namespace kova::bino
