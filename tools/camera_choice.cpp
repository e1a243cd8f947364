#include "tools/camera_choice.h"

#include <algorithm>
#include <vector>

#include "camera/pipeline/cameras.h"

namespace kova::tools {

namespace {

/// The mode of a name, else the one in which the camera's model starts, else, where the camera
/// lacks that one, the first it has.
const bino::ResolutionFpsMode* findMode(const std::string& name, int camera,
                                        bino::CAMERA_MODEL model) {
    if (name.empty()) {
        const std::vector<bino::RESOLUTION_FPS_MODE> offered = camera::cameraModes(camera);
        if (offered.empty())
            return nullptr;
        const auto index = static_cast<std::size_t>(bino::camera_model_default_mode_index(model));
        const bino::RESOLUTION_FPS_MODE usual = bino::camera_model_modes(model)[index];
        const bool has = std::find(offered.begin(), offered.end(), usual) != offered.end();
        return bino::find_resolution_fps_mode(has ? usual : offered.front());
    }
    for (const bino::ResolutionFpsMode& mode : bino::resolution_fps_modes())
        if (name == mode.name)
            return &mode;
    return nullptr;
}

}  // namespace

camera::Result<CameraChoice> chooseCamera(int index, const std::string& mode) {
    const std::vector<camera::CameraInfo> cameras = camera::listCameras();
    if (index < 0 || index >= static_cast<int>(cameras.size()))
        return camera::Status(camera::ErrorCode::kInvalidCamera,
                              "there is no camera " + std::to_string(index) +
                                  "; 'kova list' shows " + std::to_string(cameras.size()));
    CameraChoice choice;
    choice.index = index;
    choice.info = cameras[static_cast<std::size_t>(index)];
    choice.mode = findMode(mode, index, static_cast<bino::CAMERA_MODEL>(choice.info.model));
    if (!choice.mode)
        return camera::Status(camera::ErrorCode::kInvalidMode,
                              "unknown mode '" + mode + "'; 'kova list' shows the camera's modes");
    return choice;
}

}  // namespace kova::tools
