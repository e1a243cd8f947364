#include "camera/pipeline/cameras.h"

#include <cstdlib>
#include <string>

#include "camera/base/log.h"
#include "camera/sources/camera_config.h"
#include "camera/sources/v4l2_source.h"

namespace kova::camera {

namespace {

struct AttachedCamera {
    V4l2Device device;
    CameraConfig config;
    CameraInfo info;
};

std::string configurationFolder() {
    if (const char* folder = std::getenv("XDG_CONFIG_HOME"); folder && *folder)
        return std::string(folder) + "/kova";
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + "/.config/kova";
}

std::vector<AttachedCamera> attachedCameras() {
    V4l2System& system = realV4l2System();
    std::vector<AttachedCamera> cameras;
    for (const std::string& node : system.videoNodes()) {
        AttachedCamera camera;
        if (!queryDevice(system, node, camera.device))
            continue;
        Result<CameraConfig> config = loadCameraConfig(configurationFolder(), camera.device.serial);
        if (config.ok())
            camera.config = config.value();
        else
            logWarning("cameras", config.status().message());
        bino::CAMERA_MODEL model = bino::CAMERA_MODEL_QUELVAR_R0;
        if (!modelOf(camera.device, camera.config, model))
            continue;  // a webcam, a capture card
        camera.info.model = model;
        camera.info.name = camera.device.name;
        camera.info.serial_number = serialNumber(camera.device.serial);
        camera.info.hardware_version = camera.device.hardware_version;
        camera.info.has_imu = !camera.config.iio.empty();
        cameras.push_back(camera);
    }
    return cameras;
}

}  // namespace

std::vector<CameraInfo> listCameras() {
    std::vector<CameraInfo> list;
    for (const AttachedCamera& camera : attachedCameras()) list.push_back(camera.info);
    return list;
}

Result<std::unique_ptr<Source>> openCamera(int index, bino::RESOLUTION_FPS_MODE mode) {
    const bino::ResolutionFpsMode* wanted = bino::find_resolution_fps_mode(mode);
    if (!wanted)
        return Status(ErrorCode::kInvalidMode,
                      "unknown resolution mode " + std::to_string(static_cast<int>(mode)));
    const std::vector<AttachedCamera> attached = attachedCameras();
    if (index < 0 || index >= static_cast<int>(attached.size()))
        return Status(ErrorCode::kInvalidCamera, "there is no camera " + std::to_string(index) +
                                                     "; was it unplugged? 'kova list' shows them");
    return Status(ErrorCode::kNotCalibrated, "the camera is not calibrated; run 'kova calibrate'");
}

}  // namespace kova::camera
