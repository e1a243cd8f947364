#include "camera/calibration/formats.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "camera/calibration/format_readers.h"

namespace kova::camera {

namespace {

namespace fs = std::filesystem;

/// Calibrations are a few kilobytes; what is larger is something else.
constexpr std::uintmax_t kLargestFile = 4U << 20U;

Result<CalibrationText> readText(const fs::path& path) {
    std::error_code error;
    if (fs::is_directory(path, error))
        return Status(ErrorCode::kCannotOpenFile, path.string() + ": is a folder, not a file");
    if (!fs::exists(path, error))
        return Status(ErrorCode::kCannotOpenFile, path.string() + ": no such file");
    const std::uintmax_t size = fs::file_size(path, error);
    if (!error && size > kLargestFile)
        return invalidCalibration(path, "too large for a calibration");
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in)
        return Status(ErrorCode::kCannotOpenFile,
                      path.string() + ": cannot be read; is it yours to read?");
    return CalibrationText{path, text.str()};
}

/// The files of a folder that together are a calibration.
std::vector<fs::path> filesOfFolder(const fs::path& folder) {
    const std::vector<std::vector<const char*>> usual = {
        {"calibration.yml"},
        {"calibration.yaml"},
        {"cam0/sensor.yaml", "cam1/sensor.yaml"},
        {"mav0/cam0/sensor.yaml", "mav0/cam1/sensor.yaml"},
        {"left.yaml", "right.yaml"},
        {"intrinsics.yml", "extrinsics.yml"},
        {"camchain.yaml"},
        {"calib_cam_to_cam.txt"},
        {"calib.txt"},
    };
    for (const auto& names : usual) {
        std::vector<fs::path> paths;
        for (const char* name : names)
            if (fs::is_regular_file(folder / name))
                paths.push_back(folder / name);
        if (paths.size() == names.size())
            return paths;
    }
    return {};
}

bool has(const std::string& text, const char* word) {
    return text.find(word) != std::string::npos;
}

bool onlyNumbers(const std::string& text) {
    bool digit = false;
    for (const char c : text) {
        digit = digit || std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (!std::isspace(static_cast<unsigned char>(c)) && !std::isdigit(c & 0x7F) &&
            !std::strchr("+-.eE", c))
            return false;
    }
    return digit;
}

CalibrationFormat guessFormat(const CalibrationTexts& files) {
    const std::string& text = files.front().text;
    if (has(text, "opencv-matrix"))
        return has(text, "lens_model") && has(text, "rectified") ? CalibrationFormat::kKova
                                                                 : CalibrationFormat::kOpenCv;
    if (has(text, "T_BS"))
        return CalibrationFormat::kEuroc;
    if (has(text, "camera_matrix") && has(text, "projection_matrix"))
        return CalibrationFormat::kRos;
    if (has(text, "cam0:") && has(text, "camera_model"))
        return CalibrationFormat::kKalibr;
    if (has(text, "cam0") && has(text, "baseline"))
        return CalibrationFormat::kMiddlebury;
    if (has(text, "P0:") || has(text, "P2:") || has(text, "P_rect_0") || onlyNumbers(text))
        return CalibrationFormat::kKitti;
    return CalibrationFormat::kAuto;
}

Result<StereoCalibration> readAs(CalibrationFormat format, const CalibrationTexts& files,
                                 const ReadCalibrationOptions& options) {
    switch (format) {
        case CalibrationFormat::kKova:
            return calibrationFromYaml(files.front().text);
        case CalibrationFormat::kOpenCv:
            return readOpenCvCalibration(files, options);
        case CalibrationFormat::kRos:
            return readRosCalibration(files);
        case CalibrationFormat::kKitti:
            return readKittiCalibration(files, options);
        case CalibrationFormat::kEuroc:
            return readEurocCalibration(files);
        case CalibrationFormat::kKalibr:
            return readKalibrCalibration(files);
        case CalibrationFormat::kMiddlebury:
            return readMiddleburyCalibration(files);
        case CalibrationFormat::kAuto:
            break;
    }
    return invalidCalibration(files.front().path,
                              "not a calibration of a known form (OpenCV, ROS camera_info, KITTI, "
                              "EuRoC, Kalibr, Middlebury)");
}

/// Size of the pictures: what the file says, what the caller says, and that both agree.
Status settleSize(const fs::path& path, const ReadCalibrationOptions& options,
                  StereoCalibration& c) {
    const bool asked = options.width > 0 && options.height > 0;
    if (c.width <= 0 || c.height <= 0) {
        if (!asked)
            return {ErrorCode::kInvalidArgument,
                    path.string() + ": does not say the size of the pictures; give it"};
        c.width = options.width;
        c.height = options.height;
        return {};
    }
    if (asked && (c.width != options.width || c.height != options.height))
        return {ErrorCode::kInvalidFile,
                path.string() + ": made for pictures of " + std::to_string(c.width) + "x" +
                    std::to_string(c.height) + ", these are " + std::to_string(options.width) +
                    "x" + std::to_string(options.height) +
                    "; calibrate at this resolution, or use the one it was made for"};
    return {};
}

}  // namespace

const char* formatName(CalibrationFormat format) {
    switch (format) {
        case CalibrationFormat::kAuto:
            return "unknown";
        case CalibrationFormat::kKova:
            return "OpenCV YAML in one file";
        case CalibrationFormat::kOpenCv:
            return "OpenCV intrinsics and extrinsics";
        case CalibrationFormat::kRos:
            return "ROS camera_info";
        case CalibrationFormat::kKitti:
            return "KITTI";
        case CalibrationFormat::kEuroc:
            return "EuRoC";
        case CalibrationFormat::kKalibr:
            return "Kalibr";
        case CalibrationFormat::kMiddlebury:
            return "Middlebury";
    }
    return "unknown";
}

Status invalidCalibration(const fs::path& path, const std::string& what) {
    return {ErrorCode::kInvalidFile, path.string() + ": " + what};
}

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

Status checkMetres(const fs::path& path, const std::string& what, double metres) {
    if (!std::isfinite(metres))
        return invalidCalibration(path, what + " is not a number");
    if (std::abs(metres) > 20)
        return invalidCalibration(path, what + " of " + numberText(std::abs(metres)) +
                                            " m is impossible; is it in millimetres instead of "
                                            "metres?");
    return {};
}

Result<StereoCalibration> readCalibration(const std::vector<fs::path>& paths,
                                          const ReadCalibrationOptions& options) {
    if (paths.empty() || paths.size() > 2)
        return Status(ErrorCode::kInvalidArgument, "a calibration is one file or two");
    std::vector<fs::path> files = paths;
    std::error_code error;
    if (files.size() == 1 && fs::is_directory(files[0], error)) {
        files = filesOfFolder(paths[0]);
        if (files.empty())
            return Status(ErrorCode::kCannotOpenFile,
                          paths[0].string() + ": no calibration of a usual name in this folder");
    }
    CalibrationTexts texts;
    for (const fs::path& path : files) {
        Result<CalibrationText> text = readText(path);
        if (!text.ok())
            return text.status();
        texts.push_back(std::move(text.value()));
    }
    const CalibrationFormat format =
        options.format == CalibrationFormat::kAuto ? guessFormat(texts) : options.format;
    // The second half of a pair is often forgotten but lies beside the first.
    if (texts.size() == 1 && format == CalibrationFormat::kOpenCv) {
        const fs::path beside = files[0].parent_path() / "extrinsics.yml";
        if (fs::is_regular_file(beside, error) && !fs::equivalent(beside, files[0], error))
            if (Result<CalibrationText> text = readText(beside); text.ok())
                texts.push_back(std::move(text.value()));
    }
    Result<StereoCalibration> result = readAs(format, texts, options);
    if (!result.ok())
        return result;
    if (Status s = settleSize(files[0], options, result.value()); !s.ok())
        return s;
    if (Status s = result.value().check(); !s.ok())
        return Status(s.code(), files[0].string() + ": " + s.message());
    return result;
}

}  // namespace kova::camera
