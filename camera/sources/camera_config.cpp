#include "camera/sources/camera_config.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace kova::camera {

namespace {

Status invalid(const std::string& what) {
    return {ErrorCode::kInvalidFile, "camera configuration: " + what};
}

Status readLayout(const std::string& text, CameraConfig& config) {
    config.layout_stated = true;
    if (text == "side_by_side")
        config.layout = FrameLayout::kSideBySide;
    else if (text == "top_bottom")
        config.layout = FrameLayout::kTopBottom;
    else if (text == "interleaved")
        config.layout = FrameLayout::kInterleaved;
    else
        return invalid("layout is '" + text +
                       "'; it may be side_by_side, top_bottom or interleaved");
    return {};
}

Status readRotation(const YAML::Node& node, std::array<double, 9>& rotation) {
    if (!node.IsSequence() || node.size() != rotation.size())
        return invalid("imu_to_camera needs nine numbers, the rows of a rotation");
    for (std::size_t i = 0; i < rotation.size(); ++i) rotation[i] = node[i].as<double>();
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) {
            double dot = 0;
            for (std::size_t k = 0; k < 3; ++k) dot += rotation[3 * i + k] * rotation[3 * j + k];
            if (!(std::abs(dot - (i == j ? 1.0 : 0.0)) < 1e-3))
                return invalid("imu_to_camera is no rotation");
        }
    return {};
}

Status readNames(const YAML::Node& node, std::vector<std::string>& names) {
    if (node.IsSequence())
        names = node.as<std::vector<std::string>>();
    else
        names = {node.as<std::string>()};
    if (names.empty() || std::find(names.begin(), names.end(), "") != names.end())
        return invalid("iio is the name of an IIO device, or a list of names");
    return {};
}

}  // namespace

Result<CameraConfig> parseCameraConfig(const std::string& yaml) {
    CameraConfig config;
    try {
        const YAML::Node root = YAML::Load(yaml);
        if (root.IsNull())
            return config;
        if (!root.IsMap())
            return invalid("the file is no list of 'key: value'");
        for (const auto& entry : root) {
            const std::string key = entry.first.as<std::string>();
            Status status;
            if (key == "layout")
                status = readLayout(entry.second.as<std::string>(), config);
            else if (key == "swapped")
                config.swapped = entry.second.as<bool>();
            else if (key == "left_flipped")
                config.left_flipped = entry.second.as<bool>();
            else if (key == "right_flipped")
                config.right_flipped = entry.second.as<bool>();
            else if (key == "iio")
                status = readNames(entry.second, config.iio);
            else if (key == "imu_to_camera")
                status = readRotation(entry.second, config.imu_to_camera);
            else
                status = invalid("unknown key '" + key +
                                 "'; known are layout, swapped, left_flipped, right_flipped, iio, "
                                 "imu_to_camera");
            if (!status.ok())
                return status;
        }
    } catch (const YAML::Exception& e) {
        return invalid(e.what());
    }
    return config;
}

Result<CameraConfig> loadCameraConfig(const std::string& folder, const std::string& serial) {
    const std::filesystem::path cameras = std::filesystem::path(folder) / "cameras";
    for (const std::string& name : {serial, std::string("default")}) {
        // A serial comes from the device; it must not lead out of the folder.
        if (name.empty() || name.find('/') != std::string::npos)
            continue;
        const std::filesystem::path path = cameras / (name + ".yaml");
        std::ifstream file(path);
        if (!file)
            continue;
        std::ostringstream text;
        text << file.rdbuf();
        Result<CameraConfig> config = parseCameraConfig(text.str());
        if (!config.ok())
            return Status(ErrorCode::kInvalidFile,
                          path.string() + ": " + config.status().message());
        return config;
    }
    return CameraConfig{};
}

}  // namespace kova::camera
