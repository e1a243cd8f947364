#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <cmath>
#include <cstdio>

#include "camera/calibration/format_readers.h"
#include "camera/calibration/formats.h"
#include "camera/calibration/store.h"

namespace kova::camera {

namespace {

namespace fs = std::filesystem;

/// Enough digits that reading gives the same number.
std::string exact(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

template <typename Values>
std::string list(const Values& values, const char* separator = ", ") {
    std::string text;
    for (const double v : values) text += (text.empty() ? "" : separator) + exact(v);
    return text;
}

std::array<double, 9> matrixOf(const CameraIntrinsics& eye) {
    return {eye.fx, 0, eye.cx, 0, eye.fy, eye.cy, 0, 0, 1};
}

cv::Mat asMat(int rows, int cols, const double* values) {
    return cv::Mat(rows, cols, CV_64F, const_cast<double*>(values)).clone();
}

Status writeOpenCv(const StereoCalibration& c, const fs::path& folder) {
    if (c.left.lens != LensModel::kRadialTangential)
        return {ErrorCode::kInvalidArgument,
                "OpenCV's intrinsics.yml does not say the lens model; an equidistant lens would be "
                "read as another one"};
    const auto storage = [] {
        return cv::FileStorage(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY |
                                           cv::FileStorage::FORMAT_YAML);
    };
    cv::FileStorage intrinsics = storage();
    intrinsics << "image_width" << c.width << "image_height" << c.height;
    const auto eye = [&](const char* m, const char* d, const CameraIntrinsics& camera) {
        std::vector<double> k = camera.distortion;
        if (k.size() < 4)
            k.resize(4, 0.0);
        intrinsics << m << asMat(3, 3, matrixOf(camera).data()) << d
                   << asMat(1, static_cast<int>(k.size()), k.data());
    };
    eye("M1", "D1", c.left);
    eye("M2", "D2", c.right);
    cv::FileStorage extrinsics = storage();
    extrinsics << "R" << asMat(3, 3, c.right_from_left.data()) << "T"
               << asMat(3, 1, c.translation_mm.data());
    if (Status s = writeTextFile(folder / "intrinsics.yml", intrinsics.releaseAndGetString());
        !s.ok())
        return s;
    return writeTextFile(folder / "extrinsics.yml", extrinsics.releaseAndGetString());
}

struct RosEye {
    std::array<double, 9> rotation;
    std::array<double, 12> projection;
};

Status rosEyes(const StereoCalibration& c, RosEye& left, RosEye& right) {
    const double shift_m = -c.baselineMm() / 1000;
    if (c.rectified) {
        left.rotation = right.rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        left.projection = {c.left.fx, 0, c.left.cx, 0, 0, c.left.fy, c.left.cy, 0, 0, 0, 1, 0};
        right.projection = {c.right.fx, 0,          c.right.cx, c.right.fx * shift_m,
                            0,          c.right.fy, c.right.cy, 0,
                            0,          0,          1,          0};
        return {};
    }
    cv::Mat r1, r2, p1, p2, q;
    const cv::Mat k1 = asMat(3, 3, matrixOf(c.left).data());
    const cv::Mat k2 = asMat(3, 3, matrixOf(c.right).data());
    const cv::Mat r = asMat(3, 3, c.right_from_left.data());
    const cv::Mat t = asMat(3, 1, c.translation_mm.data());
    const auto distortion = [](const CameraIntrinsics& eye) {
        std::vector<double> d = eye.distortion;
        d.resize(std::max<std::size_t>(4, d.size()), 0.0);
        return d;
    };
    const cv::Size size(c.width, c.height);
    if (c.left.lens == LensModel::kEquidistant)
        cv::fisheye::stereoRectify(k1, distortion(c.left), k2, distortion(c.right), size, r, t, r1,
                                   r2, p1, p2, q, cv::CALIB_ZERO_DISPARITY, size, 0, 1);
    else
        cv::stereoRectify(k1, distortion(c.left), k2, distortion(c.right), size, r, t, r1, r2, p1,
                          p2, q, cv::CALIB_ZERO_DISPARITY, 0, size);
    p2.at<double>(0, 3) = p2.at<double>(0, 0) * shift_m;
    const auto fill = [](RosEye& eye, const cv::Mat& rotation, const cv::Mat& projection) {
        std::copy(rotation.begin<double>(), rotation.end<double>(), eye.rotation.begin());
        std::copy(projection.begin<double>(), projection.end<double>(), eye.projection.begin());
    };
    fill(left, r1, p1);
    fill(right, r2, p2);
    return {};
}

std::string rosText(const StereoCalibration& c, const CameraIntrinsics& camera, const RosEye& eye,
                    const char* name) {
    const bool fisheye = camera.lens == LensModel::kEquidistant;
    std::vector<double> d = camera.distortion;
    d.resize(fisheye ? 4 : d.size() > 5 ? 8 : 5, 0.0);
    const auto matrix = [](const char* key, int rows, int cols, const std::string& data) {
        return std::string(key) + ":\n  rows: " + std::to_string(rows) +
               "\n  cols: " + std::to_string(cols) + "\n  data: [" + data + "]\n";
    };
    return "image_width: " + std::to_string(c.width) +
           "\nimage_height: " + std::to_string(c.height) + "\ncamera_name: " + name + "\n" +
           matrix("camera_matrix", 3, 3, list(matrixOf(camera))) + "distortion_model: " +
           (fisheye        ? "equidistant"
            : d.size() > 5 ? "rational_polynomial"
                           : "plumb_bob") +
           "\n" + matrix("distortion_coefficients", 1, static_cast<int>(d.size()), list(d)) +
           matrix("rectification_matrix", 3, 3, list(eye.rotation)) +
           matrix("projection_matrix", 3, 4, list(eye.projection));
}

Status writeRos(const StereoCalibration& c, const fs::path& folder) {
    RosEye left{}, right{};
    if (Status s = rosEyes(c, left, right); !s.ok())
        return s;
    if (Status s = writeTextFile(folder / "left.yaml", rosText(c, c.left, left, "left")); !s.ok())
        return s;
    return writeTextFile(folder / "right.yaml", rosText(c, c.right, right, "right"));
}

/// The pose of the right camera in metres, as the rows of a 4x4 matrix: right from left, or, since
/// the body's frame is the left camera's, its inverse.
std::array<double, 16> pose(const StereoCalibration& c, bool left_from_right) {
    const auto& r = c.right_from_left;
    const auto& t = c.translation_mm;
    std::array<double, 16> m{};
    m[15] = 1;
    for (int i = 0; i < 3; ++i) {
        double shift = left_from_right ? 0 : t[i];
        for (int j = 0; j < 3; ++j) {
            m[i * 4 + j] = left_from_right ? r[j * 3 + i] : r[i * 3 + j];
            if (left_from_right)
                shift -= r[j * 3 + i] * t[j];
        }
        m[i * 4 + 3] = shift / 1000;
    }
    return m;
}

std::vector<double> fourCoefficients(const CameraIntrinsics& eye) {
    std::vector<double> d = eye.distortion;
    d.resize(4, 0.0);
    return d;
}

Status needFourCoefficients(const StereoCalibration& c, const char* what) {
    for (const CameraIntrinsics* eye : {&c.left, &c.right})
        for (std::size_t i = 4; i < eye->distortion.size(); ++i)
            if (eye->distortion[i] != 0)
                return {ErrorCode::kInvalidArgument,
                        std::string(what) +
                            " holds four distortion coefficients, this calibration has more; "
                            "calibrate with --coefficients 4"};
    return {};
}

std::string pinhole(const StereoCalibration& c, const CameraIntrinsics& eye, const char* indent,
                    bool kalibr) {
    const bool fisheye = eye.lens == LensModel::kEquidistant;
    const std::string line = std::string("\n") + indent;
    return indent + std::string("camera_model: pinhole") + line + "intrinsics: [" +
           list(std::array<double, 4>{eye.fx, eye.fy, eye.cx, eye.cy}) + "]" + line +
           "distortion_model: " +
           (fisheye ? (kalibr ? "equi" : "equidistant")
                    : (kalibr ? "radtan" : "radial-tangential")) +
           line + (kalibr ? "distortion_coeffs: [" : "distortion_coefficients: [") +
           list(fourCoefficients(eye)) + "]" + line + "resolution: [" + std::to_string(c.width) +
           ", " + std::to_string(c.height) + "]\n";
}

Status writeKalibr(const StereoCalibration& c, const fs::path& path) {
    if (Status s = needFourCoefficients(c, "Kalibr"); !s.ok())
        return s;
    const std::array<double, 16> m = pose(c, false);
    std::string text = "cam0:\n" + pinhole(c, c.left, "  ", true) + "cam1:\n  T_cn_cnm1:\n";
    for (int i = 0; i < 4; ++i)
        text += "  - [" +
                list(std::array<double, 4>{m[i * 4], m[i * 4 + 1], m[i * 4 + 2], m[i * 4 + 3]}) +
                "]\n";
    return writeTextFile(path, text + pinhole(c, c.right, "  ", true));
}

Status writeEuroc(const StereoCalibration& c, const fs::path& folder) {
    if (Status s = needFourCoefficients(c, "EuRoC"); !s.ok())
        return s;
    const std::array<double, 16> identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const auto text = [&](const std::array<double, 16>& body_from_camera,
                          const CameraIntrinsics& eye) {
        return "sensor_type: camera\nT_BS:\n  cols: 4\n  rows: 4\n  data: [" +
               list(body_from_camera) + "]\n" + pinhole(c, eye, "", false);
    };
    std::error_code error;
    fs::create_directories(folder / "cam0", error);
    fs::create_directories(folder / "cam1", error);
    if (Status s = writeTextFile(folder / "cam0" / "sensor.yaml", text(identity, c.left)); !s.ok())
        return s;
    return writeTextFile(folder / "cam1" / "sensor.yaml", text(pose(c, true), c.right));
}

Status needRectified(const StereoCalibration& c, const char* what) {
    if (c.rectified)
        return {};
    return {ErrorCode::kInvalidArgument,
            std::string(what) +
                " describes rectified pictures; these are not, so it would lose the distortion"};
}

Status writeKitti(const StereoCalibration& c, const fs::path& path) {
    if (Status s = needRectified(c, "KITTI"); !s.ok())
        return s;
    std::string text;
    for (int i = 0; i < 2; ++i) {
        const CameraIntrinsics& eye = i == 0 ? c.left : c.right;
        const double shift = i == 0 ? 0 : -eye.fx * c.baselineMm() / 1000;
        const std::string name = "rect_0" + std::to_string(i);
        text +=
            "S_" + name + ": " + std::to_string(c.width) + " " + std::to_string(c.height) + "\nP_" +
            name + ": " +
            list(std::array<double, 12>{eye.fx, 0, eye.cx, shift, 0, eye.fy, eye.cy, 0, 0, 0, 1, 0},
                 " ") +
            "\n";
    }
    return writeTextFile(path, text);
}

Status writeMiddlebury(const StereoCalibration& c, const fs::path& path) {
    if (Status s = needRectified(c, "Middlebury's calib.txt"); !s.ok())
        return s;
    const auto camera = [](const CameraIntrinsics& eye) {
        return "[" + exact(eye.fx) + " 0 " + exact(eye.cx) + "; 0 " + exact(eye.fy) + " " +
               exact(eye.cy) + "; 0 0 1]";
    };
    return writeTextFile(path, "cam0=" + camera(c.left) + "\ncam1=" + camera(c.right) +
                                   "\ndoffs=" + exact(c.right.cx - c.left.cx) + "\nbaseline=" +
                                   exact(c.baselineMm()) + "\nwidth=" + std::to_string(c.width) +
                                   "\nheight=" + std::to_string(c.height) + "\n");
}

Status writeAs(const StereoCalibration& c, CalibrationFormat format, const fs::path& path) {
    switch (format) {
        case CalibrationFormat::kKova:
            return writeTextFile(path, toYaml(c));
        case CalibrationFormat::kOpenCv:
            return writeOpenCv(c, path);
        case CalibrationFormat::kRos:
            return writeRos(c, path);
        case CalibrationFormat::kKitti:
            return writeKitti(c, path);
        case CalibrationFormat::kEuroc:
            return writeEuroc(c, path);
        case CalibrationFormat::kKalibr:
            return writeKalibr(c, path);
        case CalibrationFormat::kMiddlebury:
            return writeMiddlebury(c, path);
        case CalibrationFormat::kAuto:
            break;
    }
    return {ErrorCode::kInvalidArgument, "say in which form the calibration is to be written"};
}

}  // namespace

Status writeCalibration(const StereoCalibration& calibration, CalibrationFormat format,
                        const fs::path& path) {
    if (Status s = calibration.check(); !s.ok())
        return s;
    const bool folder = format == CalibrationFormat::kOpenCv || format == CalibrationFormat::kRos ||
                        format == CalibrationFormat::kEuroc;
    std::error_code error;
    if (folder)
        fs::create_directories(path, error);
    try {
        return writeAs(calibration, format, path);
    } catch (const cv::Exception& e) {
        return {ErrorCode::kInvalidArgument, "calibration: cannot be written: " + e.err};
    }
}

}  // namespace kova::camera
