#include "sdk/modes.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace kova::bino {

namespace {

const std::vector<RESOLUTION_FPS_MODE>& allModes() {
    static const std::vector<RESOLUTION_FPS_MODE> modes = [] {
        std::vector<RESOLUTION_FPS_MODE> all;
        for (const ResolutionFpsMode& row : resolution_fps_modes()) all.push_back(row.mode);
        return all;
    }();
    return modes;
}

// The "0" models have the slower sensor: nothing above 60 frames per second.
const std::vector<RESOLUTION_FPS_MODE>& slowModes() {
    static const std::vector<RESOLUTION_FPS_MODE> modes = [] {
        std::vector<RESOLUTION_FPS_MODE> slow;
        for (const ResolutionFpsMode& row : resolution_fps_modes())
            if (row.fps <= 60.0f)
                slow.push_back(row.mode);
        return slow;
    }();
    return modes;
}

struct ModelRow {
    CAMERA_MODEL model;
    const char* name;
    bool fast;
};
constexpr std::array<ModelRow, 5> kModels = {{
    {CAMERA_MODEL_QUELVAR_R0, "Quelvar R0", false},
    {CAMERA_MODEL_QUELVAR_R1, "Quelvar R1", true},
    {CAMERA_MODEL_QUELVAR_T1, "Quelvar T1", true},
    {CAMERA_MODEL_QUELVAR_P0, "Quelvar P0", false},
    {CAMERA_MODEL_QUELVAR_P1, "Quelvar P1", true},
}};

const ModelRow* findModel(CAMERA_MODEL model) {
    const auto row = std::find_if(kModels.begin(), kModels.end(),
                                  [&](const ModelRow& r) { return r.model == model; });
    return row == kModels.end() ? nullptr : &*row;
}

}  // namespace

const std::vector<ResolutionFpsMode>& resolution_fps_modes() {
    static const std::vector<ResolutionFpsMode> modes = {
        {RESOLUTION_FPS_MODE_HD800_120FPS, "HD800_120FPS", 1280, 800, 120},
        {RESOLUTION_FPS_MODE_HD800_100FPS, "HD800_100FPS", 1280, 800, 100},
        {RESOLUTION_FPS_MODE_HD800_60FPS, "HD800_60FPS", 1280, 800, 60},
        {RESOLUTION_FPS_MODE_HD800_50FPS, "HD800_50FPS", 1280, 800, 50},
        {RESOLUTION_FPS_MODE_HD800_30FPS, "HD800_30FPS", 1280, 800, 30},
        {RESOLUTION_FPS_MODE_HD800_15FPS, "HD800_15FPS", 1280, 800, 15},
        {RESOLUTION_FPS_MODE_HD720_120FPS, "HD720_120FPS", 1280, 720, 120},
        {RESOLUTION_FPS_MODE_HD720_100FPS, "HD720_100FPS", 1280, 720, 100},
        {RESOLUTION_FPS_MODE_HD720_60FPS, "HD720_60FPS", 1280, 720, 60},
        {RESOLUTION_FPS_MODE_HD720_50FPS, "HD720_50FPS", 1280, 720, 50},
        {RESOLUTION_FPS_MODE_HD720_30FPS, "HD720_30FPS", 1280, 720, 30},
        {RESOLUTION_FPS_MODE_HD720_15FPS, "HD720_15FPS", 1280, 720, 15},
        {RESOLUTION_FPS_MODE_SD400_120FPS, "SD400_120FPS", 640, 400, 120},
        {RESOLUTION_FPS_MODE_SD400_100FPS, "SD400_100FPS", 640, 400, 100},
        {RESOLUTION_FPS_MODE_SD400_90FPS, "SD400_90FPS", 640, 400, 90},
        {RESOLUTION_FPS_MODE_SD400_60FPS, "SD400_60FPS", 640, 400, 60},
        {RESOLUTION_FPS_MODE_SD400_30FPS, "SD400_30FPS", 640, 400, 30},
        {RESOLUTION_FPS_MODE_SD400_15FPS, "SD400_15FPS", 640, 400, 15},
    };
    return modes;
}

const ResolutionFpsMode* find_resolution_fps_mode(RESOLUTION_FPS_MODE mode) {
    for (const ResolutionFpsMode& row : resolution_fps_modes())
        if (row.mode == mode)
            return &row;
    return nullptr;
}

const ResolutionFpsMode* find_resolution_fps_mode(int width, int height, float fps) {
    for (const ResolutionFpsMode& row : resolution_fps_modes())
        if (row.width == width && row.height == height && row.fps == fps)
            return &row;
    return nullptr;
}

std::string resolution_fps_mode2str(RESOLUTION_FPS_MODE mode) {
    const ResolutionFpsMode* row = find_resolution_fps_mode(mode);
    return row ? row->name : "";
}

std::string camera_model2str(CAMERA_MODEL model) {
    const ModelRow* row = findModel(model);
    return row ? row->name : "";
}

const std::vector<RESOLUTION_FPS_MODE>& camera_model_modes(CAMERA_MODEL model) {
    static const std::vector<RESOLUTION_FPS_MODE> none;
    const ModelRow* row = findModel(model);
    if (!row)
        return none;
    return row->fast ? allModes() : slowModes();
}

int camera_model_default_mode_index(CAMERA_MODEL model) {
    const std::vector<RESOLUTION_FPS_MODE>& modes = camera_model_modes(model);
    const auto entry = std::find(modes.begin(), modes.end(), RESOLUTION_FPS_MODE_HD800_50FPS);
    return entry == modes.end() ? 0 : static_cast<int>(entry - modes.begin());
}

std::string obstacle_view_type2str(OBSTACLE_VIEW_TYPE type) {
    static constexpr std::array<const char*, kObstacleViewTypeCount> kNames = {
        "Image With Obstacle", "Image With Ground",  "Top View",
        "Ground Map",          "Image With Stixels", "Stixels"};
    const auto index = static_cast<std::uint32_t>(type);
    return index < kNames.size() ? kNames[index] : "";
}

}  // namespace kova::bino
