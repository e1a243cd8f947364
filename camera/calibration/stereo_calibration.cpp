#include "camera/calibration/stereo_calibration.h"

#include <Eigen/Geometry>
#include <opencv2/core.hpp>

#include <cmath>
#include <cstdio>

namespace kova::camera {

namespace {

cv::Mat cameraMatrix(const CameraIntrinsics& c) {
    return (cv::Mat_<double>(3, 3) << c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1);
}

/// One row; zeros for no distortion, since other readers expect the matrix.
cv::Mat distortionMatrix(const CameraIntrinsics& c) {
    if (c.distortion.empty())
        return cv::Mat::zeros(1, c.lens == LensModel::kEquidistant ? 4 : 5, CV_64F);
    return cv::Mat(c.distortion, true).reshape(1, 1);
}

void setCameraMatrix(CameraIntrinsics& c, const cv::Mat& m) {
    c.fx = m.at<double>(0, 0);
    c.fy = m.at<double>(1, 1);
    c.cx = m.at<double>(0, 2);
    c.cy = m.at<double>(1, 2);
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

Status invalid(const std::string& what) {
    return {ErrorCode::kInvalidFile, "calibration: " + what};
}

Status checkEye(const char* name, const CameraIntrinsics& c, int width, int height) {
    const std::string eye = name;
    if (!std::isfinite(c.fx) || !std::isfinite(c.fy) || !std::isfinite(c.cx) ||
        !std::isfinite(c.cy))
        return invalid(eye + " camera: a value is not a number");
    if (c.fx <= 0 || c.fy <= 0)
        return invalid(eye + " camera: the focal length is not positive (fx " + number(c.fx) +
                       ", fy " + number(c.fy) + ")");
    if (c.fx < 0.1 * width || c.fx > 20.0 * width)
        return invalid(eye + " camera: a focal length of " + number(c.fx) +
                       " px is impossible for " + std::to_string(width) +
                       " px of width; is it in pixels?");
    if (c.cx < -0.5 * width || c.cx > 1.5 * width || c.cy < -0.5 * height || c.cy > 1.5 * height)
        return invalid(eye + " camera: the principal point (" + number(c.cx) + ", " + number(c.cy) +
                       ") is far outside the picture of " + std::to_string(width) + "x" +
                       std::to_string(height) + "; was it calibrated at another resolution?");
    for (const double k : c.distortion)
        if (!std::isfinite(k))
            return invalid(eye + " camera: a distortion coefficient is not a number");
    return {};
}

}  // namespace

double StereoCalibration::baselineMm() const {
    return std::sqrt(translation_mm[0] * translation_mm[0] + translation_mm[1] * translation_mm[1] +
                     translation_mm[2] * translation_mm[2]);
}

std::array<double, 3> StereoCalibration::rotationVector() const {
    const Eigen::Matrix3d r =
        Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(right_from_left.data());
    const Eigen::AngleAxisd turn(r);
    const Eigen::Vector3d v = turn.angle() * turn.axis();
    return {v.x(), v.y(), v.z()};
}

Status StereoCalibration::check() const {
    if (width <= 0 || height <= 0 || width > 16384 || height > 16384)
        return invalid("impossible picture size " + std::to_string(width) + "x" +
                       std::to_string(height));
    if (Status s = checkEye("left", left, width, height); !s.ok())
        return s;
    if (Status s = checkEye("right", right, width, height); !s.ok())
        return s;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double dot = 0;
            for (int k = 0; k < 3; ++k)
                dot += right_from_left[i * 3 + k] * right_from_left[j * 3 + k];
            if (!(std::abs(dot - (i == j ? 1.0 : 0.0)) < 1e-3))
                return invalid("R is not a rotation matrix");
        }
    const double baseline = baselineMm();
    if (!std::isfinite(baseline) || baseline == 0)
        return invalid("the baseline is zero; T must hold the distance of the cameras in mm");
    if (translation_mm[0] > 0 && std::abs(translation_mm[0]) > 0.5 * baseline)
        return invalid("T has a positive x (" + number(translation_mm[0]) +
                       " mm): the eyes are swapped or the sign is wrong; T takes left to right");
    if (std::abs(translation_mm[0]) <= 0.5 * baseline)
        return invalid("the cameras do not stand side by side (T = " + number(translation_mm[0]) +
                       ", " + number(translation_mm[1]) + ", " + number(translation_mm[2]) +
                       " mm)");
    if (baseline < 1)
        return invalid("a baseline of " + number(baseline) +
                       " mm is impossible; is T in metres instead of millimetres?");
    if (baseline > 20000)
        return invalid("a baseline of " + number(baseline) +
                       " mm is impossible; is T in micrometres instead of millimetres?");
    return {};
}

StereoCalibration scaledCalibration(const StereoCalibration& calibration, int width, int height) {
    StereoCalibration c = calibration;
    const double sx = static_cast<double>(width) / c.width;
    const double sy = static_cast<double>(height) / c.height;
    for (CameraIntrinsics* eye : {&c.left, &c.right}) {
        eye->fx *= sx;
        eye->fy *= sy;
        // Pixels' centres are whole numbers, the picture's edge lies half a pixel before the first.
        eye->cx = (eye->cx + 0.5) * sx - 0.5;
        eye->cy = (eye->cy + 0.5) * sy - 0.5;
    }
    c.width = width;
    c.height = height;
    return c;
}

std::string toYaml(const StereoCalibration& c) {
    cv::FileStorage storage(
        ".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_YAML);
    storage << "image_width" << c.width << "image_height" << c.height;
    storage << "M1" << cameraMatrix(c.left) << "D1" << distortionMatrix(c.left);
    storage << "M2" << cameraMatrix(c.right) << "D2" << distortionMatrix(c.right);
    storage << "R" << cv::Mat(3, 3, CV_64F, const_cast<double*>(c.right_from_left.data()));
    storage << "T" << cv::Mat(3, 1, CV_64F, const_cast<double*>(c.translation_mm.data()));
    storage << "lens_model"
            << (c.left.lens == LensModel::kEquidistant ? "equidistant" : "radial_tangential");
    storage << "rectified" << static_cast<int>(c.rectified);
    return storage.releaseAndGetString();
}

Result<StereoCalibration> calibrationFromYaml(const std::string& yaml) {
    StereoCalibration c;
    try {
        cv::FileStorage storage(yaml, cv::FileStorage::READ | cv::FileStorage::MEMORY);
        if (!storage.isOpened())
            return invalid("not OpenCV YAML");
        storage["image_width"] >> c.width;
        storage["image_height"] >> c.height;
        int rectified = 0;
        std::string lens;
        storage["rectified"] >> rectified;
        storage["lens_model"] >> lens;
        c.rectified = rectified != 0;
        const LensModel model =
            lens == "equidistant" ? LensModel::kEquidistant : LensModel::kRadialTangential;
        c.left.lens = c.right.lens = model;
        cv::Mat m1, m2, d1, d2, r, t;
        storage["M1"] >> m1;
        storage["M2"] >> m2;
        storage["D1"] >> d1;
        storage["D2"] >> d2;
        storage["R"] >> r;
        storage["T"] >> t;
        if (m1.total() != 9 || m2.total() != 9 || r.total() != 9 || t.total() != 3)
            return invalid("one of M1, M2 (3x3), R (3x3), T (3x1) is missing or has another size");
        for (cv::Mat* m : {&m1, &m2, &d1, &d2, &r, &t})
            if (!m->empty())
                m->convertTo(*m, CV_64F);
        setCameraMatrix(c.left, m1);
        setCameraMatrix(c.right, m2);
        if (!d1.empty())
            c.left.distortion.assign(d1.begin<double>(), d1.end<double>());
        if (!d2.empty())
            c.right.distortion.assign(d2.begin<double>(), d2.end<double>());
        for (int i = 0; i < 9; ++i) c.right_from_left[i] = r.at<double>(i / 3, i % 3);
        for (int i = 0; i < 3; ++i) c.translation_mm[i] = t.at<double>(i);
    } catch (const cv::Exception& e) {
        return invalid(std::string("cannot be read as OpenCV YAML: ") + e.err);
    }
    if (Status s = c.check(); !s.ok())
        return s;
    return c;
}

}  // namespace kova::camera
