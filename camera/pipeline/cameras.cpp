#include "camera/pipeline/cameras.h"

#include <string>
#include <utility>

#include "camera/base/log.h"
#include "camera/calibration/epipolar.h"
#include "camera/calibration/store.h"
#include "camera/rectification/rectifier.h"
#include "camera/simulation/simulated_cameras.h"
#include "camera/sources/camera_config.h"
#include "camera/sources/decode.h"
#include "camera/sources/v4l2_source.h"

namespace kova::camera {

namespace {

struct AttachedCamera {
    V4l2Device device;
    CameraConfig config;
    CameraInfo info;
};

std::vector<AttachedCamera> attachedCameras(V4l2System& system) {
    std::vector<AttachedCamera> cameras;
    std::string forbidden;
    for (const std::string& node : system.videoNodes()) {
        AttachedCamera camera;
        const NodeKind kind = queryDevice(system, node, camera.device);
        if (kind == NodeKind::kForbidden)
            forbidden += (forbidden.empty() ? "" : ", ") + node;
        if (kind != NodeKind::kCamera)
            continue;
        Result<CameraConfig> config =
            loadCameraConfig(calibrationFolders().front().string(), camera.device.serial);
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
    if (!forbidden.empty())
        logWarning("cameras", "no permission to open " + forbidden + "; " + kPermissionAdvice);
    return cameras;
}

/// Looks at a few frames: are the rows of the rectified pair aligned?
Status checkFit(Source& source) {
    Status status;
    const std::unique_ptr<Rectifier> rectifier = Rectifier::make(source.calibration(), status);
    if (!rectifier)
        return status;
    EpipolarCheck check(rectifier->geometry().disparityOffset());
    FrameDecoder decoder(source.stream());
    RawFrame frame;
    StereoPair pair;
    Image<std::uint8_t> left, right;
    int looked_at = 0;
    for (int tries = 0; tries < 30 && looked_at < 2; ++tries) {
        const Status grabbed = source.grab(frame);
        if (!grabbed.ok() && grabbed.code() != ErrorCode::kNoNewFrame)
            return grabbed;
        // The first frames of many cameras are dark: their exposure still settles.
        if (!grabbed.ok() || tries < 5 || !decoder.decode(frame, pair).ok())
            continue;
        rectifier->rectify(pair.left.view(), pair.right.view(), left, right);
        check.add(left.view(), right.view());
        ++looked_at;
    }
    const EpipolarReport report = check.report();
    if (!report.status().ok())
        return {ErrorCode::kCalibrationMisfit,
                source.camera().name + ": the calibration does not fit the pictures: " +
                    report.words + "; calibrate again with 'kova calibrate'"};
    return {};
}

Result<std::unique_ptr<Source>> openAttached(const AttachedCamera& camera,
                                             const bino::ResolutionFpsMode& mode, bool calibrated,
                                             V4l2System& system) {
    StereoCalibration calibration;
    if (calibrated) {
        Result<StereoCalibration> found =
            findCalibration(camera.info.serial_number, mode.width, mode.height);
        if (!found.ok())
            return found.status();
        calibration = std::move(found.value());
    }
    auto source = V4l2Source::open(system, camera.device, camera.config, mode, calibration);
    if (!source.ok())
        return source.status();
    if (calibrated)
        if (Status s = checkFit(*source.value()); !s.ok())
            return s;
    return std::unique_ptr<Source>(std::move(source.value()));
}

Result<std::unique_ptr<Source>> openAny(int index, bino::RESOLUTION_FPS_MODE mode, bool calibrated,
                                        V4l2System& system) {
    const bino::ResolutionFpsMode* wanted = bino::find_resolution_fps_mode(mode);
    if (!wanted)
        return Status(ErrorCode::kInvalidMode,
                      "unknown resolution mode " + std::to_string(static_cast<int>(mode)));
    const std::vector<AttachedCamera> attached = attachedCameras(system);
    const int real = static_cast<int>(attached.size());
    const int all = real + static_cast<int>(listSimulatedCameras().size());
    if (index < 0 || index >= all)
        return Status(ErrorCode::kInvalidCamera, "there is no camera " + std::to_string(index) +
                                                     "; was it unplugged? 'kova list' shows them");
    if (index >= real)
        return openSimulatedCamera(index - real, mode);
    return openAttached(attached[static_cast<std::size_t>(index)], *wanted, calibrated, system);
}

}  // namespace

std::vector<CameraInfo> listCameras(V4l2System& system) {
    std::vector<CameraInfo> list;
    for (const AttachedCamera& camera : attachedCameras(system)) list.push_back(camera.info);
    for (const CameraInfo& simulated : listSimulatedCameras()) list.push_back(simulated);
    return list;
}

std::vector<bino::RESOLUTION_FPS_MODE> cameraModes(int index, V4l2System& system) {
    const std::vector<AttachedCamera> attached = attachedCameras(system);
    const int real = static_cast<int>(attached.size());
    if (index < 0)
        return {};
    if (index >= real) {
        const std::vector<CameraInfo> simulated = listSimulatedCameras();
        const auto i = static_cast<std::size_t>(index - real);
        if (i >= simulated.size())
            return {};
        return bino::camera_model_modes(static_cast<bino::CAMERA_MODEL>(simulated[i].model));
    }
    const AttachedCamera& camera = attached[static_cast<std::size_t>(index)];
    std::vector<bino::RESOLUTION_FPS_MODE> modes;
    for (const bino::RESOLUTION_FPS_MODE mode :
         bino::camera_model_modes(static_cast<bino::CAMERA_MODEL>(camera.info.model)))
        if (!matchMode(camera.device, camera.config, *bino::find_resolution_fps_mode(mode)).empty())
            modes.push_back(mode);
    return modes;
}

Result<std::unique_ptr<Source>> openCamera(int index, bino::RESOLUTION_FPS_MODE mode,
                                           V4l2System& system) {
    return openAny(index, mode, true, system);
}

Result<std::unique_ptr<Source>> openUncalibrated(int index, bino::RESOLUTION_FPS_MODE mode,
                                                 V4l2System& system) {
    return openAny(index, mode, false, system);
}

}  // namespace kova::camera
