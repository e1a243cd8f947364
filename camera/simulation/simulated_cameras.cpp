#include "camera/simulation/simulated_cameras.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "camera/base/log.h"
#include "camera/simulation/scene.h"
#include "camera/simulation/sequence.h"

namespace kova::camera {

namespace {

constexpr const char* kVariable = "KOVA_SIMULATED_CAMERAS";

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (true) {
        const std::size_t end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end - begin));
        if (end == std::string::npos)
            return parts;
        begin = end + 1;
    }
}

Status wrong(const std::string& what) {
    return {ErrorCode::kInvalidArgument, what};
}

bool parseNumber(const std::string& text, double low, double high, double& value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == 0 && std::isfinite(value) && value >= low && value <= high;
}

bool parseWhole(const std::string& text, double high, double& value) {
    return parseNumber(text, 0, high, value) && value == std::floor(value);
}

Status parseOption(const std::string& text, SimulatedCameraOptions& camera) {
    const std::size_t equals = text.find('=');
    const std::string key = text.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    const auto bad = [&](const std::string& expected) {
        return wrong("'" + text + "': " + key + " needs " + expected);
    };
    double number = 0;
    if (key == "scene") {
        for (const SceneDescription& scene : sceneList())
            if (scene.name == value) {
                camera.scene = value;
                return {};
            }
        return bad("the name of a scene; 'kova simulate --list-scenes' lists them");
    }
    if (key == "seed") {
        if (!parseWhole(value, 4294967295.0, number))
            return bad("a whole number from 0 to 4294967295");
        camera.seed = static_cast<std::uint32_t>(number);
        return {};
    }
    if (key == "unplug_s" || key == "stall_s") {
        if (!parseNumber(value, 0.001, 1e6, number))
            return bad("a time in seconds above 0");
        (key == "unplug_s" ? camera.unplug_s : camera.stall_s) = number;
        return {};
    }
    if (key == "corrupt_every" || key == "drop_every") {
        if (!parseWhole(value, 1e6, number) || number < 2)
            return bad("a whole number from 2 on");
        (key == "drop_every" ? camera.drop_every : camera.corrupt_every) = static_cast<int>(number);
        return {};
    }
    if (key == "noise") {
        if (!parseNumber(value, 0, 100, number))
            return bad("a factor from 0 to 100");
        camera.noise_scale = number;
        return {};
    }
    if (key == "imu") {
        if (value != "dead")
            return bad("the value 'dead'");
        camera.dead_imu = true;
        return {};
    }
    if (key == "lenses") {
        if (value != "distorted")
            return bad("the value 'distorted'");
        camera.lens_distortion = true;
        return {};
    }
    return wrong("unknown option '" + key +
                 "'; known are scene, seed, unplug_s, stall_s, corrupt_every, drop_every, noise, "
                 "imu, lenses");
}

std::vector<SimulatedCameraOptions> fromEnvironment() {
    const char* text = std::getenv(kVariable);
    if (!text || !*text)
        return {};
    Result<std::vector<SimulatedCameraOptions>> cameras = parseSimulatedCameras(text);
    if (!cameras.ok()) {
        logWarning("simulation",
                   std::string(kVariable) + ": " + cameras.status().message() + "; no camera");
        return {};
    }
    return std::move(cameras.value());
}

}  // namespace

Result<std::vector<SimulatedCameraOptions>> parseSimulatedCameras(const std::string& text) {
    static const std::pair<const char*, bino::CAMERA_MODEL> kModels[] = {
        {"R0", bino::CAMERA_MODEL_QUELVAR_R0},
        {"R1", bino::CAMERA_MODEL_QUELVAR_R1},
        {"P0", bino::CAMERA_MODEL_QUELVAR_P0},
        {"P1", bino::CAMERA_MODEL_QUELVAR_P1}};
    std::vector<SimulatedCameraOptions> cameras;
    for (const std::string& part : split(text, ',')) {
        const std::vector<std::string> words = split(part, ':');
        SimulatedCameraOptions camera;
        const auto model = std::find_if(std::begin(kModels), std::end(kModels),
                                        [&](const auto& m) { return words[0] == m.first; });
        if (model == std::end(kModels))
            return wrong("unknown model '" + words[0] + "'; known are R0, R1, P0, P1");
        camera.model = model->second;
        for (std::size_t i = 1; i < words.size(); ++i)
            if (Status s = parseOption(words[i], camera); !s.ok())
                return s;
        cameras.push_back(camera);
    }
    return cameras;
}

std::vector<CameraInfo> listSimulatedCameras() {
    std::vector<CameraInfo> list;
    for (const SimulatedCameraOptions& camera : fromEnvironment())
        list.push_back(simulatedCameraInfo(camera.model, camera.seed));
    return list;
}

Result<std::unique_ptr<Source>> openSimulatedCamera(int index, bino::RESOLUTION_FPS_MODE mode) {
    const std::vector<SimulatedCameraOptions> cameras = fromEnvironment();
    if (index < 0 || index >= static_cast<int>(cameras.size()))
        return Status(ErrorCode::kInvalidCamera, "there is no simulated camera " +
                                                     std::to_string(index) + "; " + kVariable +
                                                     " names " + std::to_string(cameras.size()));
    Result<std::unique_ptr<SimulatedSource>> source = SimulatedSource::open(cameras[index], mode);
    if (!source.ok())
        return source.status();
    return std::unique_ptr<Source>(std::move(source.value()));
}

}  // namespace kova::camera
