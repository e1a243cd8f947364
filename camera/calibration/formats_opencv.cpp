#include <opencv2/core.hpp>

#include "camera/calibration/format_readers.h"

namespace kova::camera {

namespace {

cv::Mat matrixOf(const cv::FileStorage& storage, const char* name) {
    cv::Mat m;
    storage[name] >> m;
    if (!m.empty())
        m.convertTo(m, CV_64F);
    return m;
}

/// Keeps the first file's value where both have one.
void take(cv::Mat& into, const cv::FileStorage& storage, const char* name) {
    if (into.empty())
        into = matrixOf(storage, name);
}

void setEye(CameraIntrinsics& eye, const cv::Mat& m, const cv::Mat& d) {
    eye.fx = m.at<double>(0, 0);
    eye.fy = m.at<double>(1, 1);
    eye.cx = m.at<double>(0, 2);
    eye.cy = m.at<double>(1, 2);
    if (!d.empty())
        eye.distortion.assign(d.begin<double>(), d.end<double>());
}

}  // namespace

Result<StereoCalibration> readOpenCvCalibration(const CalibrationTexts& files,
                                                const ReadCalibrationOptions& options) {
    StereoCalibration c;
    cv::Mat m1, m2, d1, d2, r, t;
    for (const CalibrationText& file : files) {
        try {
            const cv::FileStorage storage(file.text,
                                          cv::FileStorage::READ | cv::FileStorage::MEMORY);
            take(m1, storage, "M1");
            take(m2, storage, "M2");
            take(d1, storage, "D1");
            take(d2, storage, "D2");
            take(r, storage, "R");
            take(t, storage, "T");
            for (const char* name : {"image_width", "width"})
                if (c.width == 0 && !storage[name].empty())
                    storage[name] >> c.width;
            for (const char* name : {"image_height", "height"})
                if (c.height == 0 && !storage[name].empty())
                    storage[name] >> c.height;
        } catch (const cv::Exception& e) {
            return invalidCalibration(file.path, "cannot be read as OpenCV YAML: " + e.err);
        }
    }
    const std::filesystem::path& path = files.front().path;
    if (m1.total() != 9 || m2.total() != 9)
        return invalidCalibration(path, "M1 or M2 (3x3), the camera matrices, is missing");
    if (r.empty() || t.empty())
        return invalidCalibration(path,
                                  "has intrinsics only; give extrinsics.yml with R and T as the "
                                  "second file");
    if (r.total() == 3) {
        // Some write the rotation as an angle-axis vector; which of the two is meant cannot be
        // mistaken.
        const double angle = cv::norm(r);
        cv::Matx33d rotation = cv::Matx33d::eye();
        if (angle > 0) {
            const cv::Vec3d a(r.at<double>(0) / angle, r.at<double>(1) / angle,
                              r.at<double>(2) / angle);
            const cv::Matx33d cross(0, -a[2], a[1], a[2], 0, -a[0], -a[1], a[0], 0);
            rotation += std::sin(angle) * cross + (1 - std::cos(angle)) * (cross * cross);
        }
        r = cv::Mat(rotation, true);
    }
    if (r.total() != 9 || t.total() != 3)
        return invalidCalibration(path, "R is not 3x3 or T is not 3x1");
    if (d1.total() > 14 || d2.total() > 14)
        return invalidCalibration(path, "D1 or D2 has more than 14 coefficients");
    setEye(c.left, m1, d1);
    setEye(c.right, m2, d2);
    for (int i = 0; i < 9; ++i) c.right_from_left[i] = r.at<double>(i / 3, i % 3);
    for (int i = 0; i < 3; ++i) c.translation_mm[i] = t.at<double>(i) * options.mm_per_unit;
    return c;
}

}  // namespace kova::camera
