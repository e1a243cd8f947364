#include <Eigen/Geometry>
#include <yaml-cpp/yaml.h>

#include <cmath>

#include "camera/calibration/format_readers.h"

namespace kova::camera {

namespace {

using RowMatrix3d = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

/// "%YAML:1.0", which OpenCV writes and others copy, is not YAML; the line is dropped.
YAML::Node parse(const CalibrationText& file) {
    std::string text = file.text;
    if (text.rfind("%YAML:", 0) == 0)
        text.erase(0, text.find('\n') == std::string::npos ? text.size() : text.find('\n'));
    return YAML::Load(text);
}

/// Numbers of a list, of a list of lists, or of a node with `data`.
void appendNumbers(const YAML::Node& node, std::vector<double>& values) {
    if (!node)
        return;
    if (node.IsMap())
        appendNumbers(node["data"], values);
    else if (node.IsSequence())
        for (const YAML::Node& item : node) appendNumbers(item, values);
    else if (node.IsScalar())
        values.push_back(node.as<double>());
}

std::vector<double> numbers(const YAML::Node& node) {
    std::vector<double> values;
    appendNumbers(node, values);
    return values;
}

Eigen::Isometry3d isometry(const std::vector<double>& by_rows) {
    Eigen::Isometry3d m = Eigen::Isometry3d::Identity();
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) m(y, x) = by_rows[y * 4 + x];
    return m;
}

void setPose(StereoCalibration& c, const Eigen::Matrix3d& rotation,
             const Eigen::Vector3d& translation_mm) {
    Eigen::Map<RowMatrix3d>(c.right_from_left.data()) = rotation;
    Eigen::Map<Eigen::Vector3d>(c.translation_mm.data()) = translation_mm;
}

Status setDistortion(const std::filesystem::path& path, const std::string& model,
                     const std::vector<double>& coefficients, CameraIntrinsics& eye) {
    if (model == "equidistant" || model == "equi" || model == "fisheye")
        eye.lens = LensModel::kEquidistant;
    else if (model == "radtan" || model == "radial-tangential" || model == "plumb_bob" ||
             model == "rational_polynomial" || model == "none" || model.empty())
        eye.lens = LensModel::kRadialTangential;
    else
        return invalidCalibration(path, "the lens model '" + model +
                                            "' is not supported; use radial-tangential or "
                                            "equidistant");
    eye.distortion = coefficients;
    return {};
}

/// One camera of EuRoC or Kalibr: a pinhole with intrinsics [fu fv cu cv].
Status readPinhole(const std::filesystem::path& path, const YAML::Node& node, CameraIntrinsics& eye,
                   int& width, int& height) {
    const std::string camera_model = node["camera_model"].as<std::string>("pinhole");
    if (camera_model != "pinhole")
        return invalidCalibration(
            path, "the camera model '" + camera_model + "' is not supported; use pinhole");
    const std::vector<double> k = numbers(node["intrinsics"]);
    const std::vector<double> size = numbers(node["resolution"]);
    if (k.size() != 4 || size.size() != 2)
        return invalidCalibration(path,
                                  "intrinsics [fu fv cu cv] or resolution [width height] is "
                                  "missing");
    eye.fx = k[0];
    eye.fy = k[1];
    eye.cx = k[2];
    eye.cy = k[3];
    width = static_cast<int>(size[0]);
    height = static_cast<int>(size[1]);
    std::vector<double> d = numbers(node["distortion_coefficients"]);
    if (d.empty())
        d = numbers(node["distortion_coeffs"]);
    return setDistortion(path, node["distortion_model"].as<std::string>(""), d, eye);
}

Status sameSize(const std::filesystem::path& path, int w0, int h0, int w1, int h1) {
    if (w0 == w1 && h0 == h1)
        return {};
    return invalidCalibration(path, "the eyes were calibrated at different resolutions (" +
                                        std::to_string(w0) + "x" + std::to_string(h0) + " and " +
                                        std::to_string(w1) + "x" + std::to_string(h1) + ")");
}

Status needTwo(const CalibrationTexts& files, const char* names) {
    if (files.size() == 2)
        return {};
    return invalidCalibration(files.front().path,
                              std::string("is of one eye only; give two files, the left eye's "
                                          "first (") +
                                  names + ")");
}

struct RosCamera {
    CameraIntrinsics eye;
    int width = 0, height = 0;
    Eigen::Matrix3d rectified_from_camera = Eigen::Matrix3d::Identity();
    std::array<double, 12> projection{};
    bool rectified = false;
};

Status readRosCamera(const CalibrationText& file, RosCamera& camera) {
    const YAML::Node node = parse(file);
    camera.width = node["image_width"].as<int>(0);
    camera.height = node["image_height"].as<int>(0);
    const std::vector<double> k = numbers(node["camera_matrix"]);
    const std::vector<double> p = numbers(node["projection_matrix"]);
    const std::vector<double> r = numbers(node["rectification_matrix"]);
    const std::vector<double> d = numbers(node["distortion_coefficients"]);
    if (k.size() != 9 || p.size() != 12 || (!r.empty() && r.size() != 9))
        return invalidCalibration(file.path,
                                  "camera_matrix (3x3), rectification_matrix (3x3) or "
                                  "projection_matrix (3x4) is missing or has another size");
    camera.eye.fx = k[0];
    camera.eye.fy = k[4];
    camera.eye.cx = k[2];
    camera.eye.cy = k[5];
    if (!r.empty())
        camera.rectified_from_camera = Eigen::Map<const RowMatrix3d>(r.data());
    std::copy(p.begin(), p.end(), camera.projection.begin());
    if (!(p[0] > 0))
        return invalidCalibration(file.path,
                                  "projection_matrix is empty: the camera is not calibrated");
    bool plain = camera.rectified_from_camera.isIdentity(1e-9);
    for (const double c : d) plain = plain && c == 0;
    for (const auto& [i, j] : {std::pair(0, 0), {4, 5}, {2, 2}, {5, 6}})
        plain = plain && std::abs(k[i] - p[j]) < 1e-6 * std::abs(k[i]);
    camera.rectified = plain;
    return setDistortion(file.path, node["distortion_model"].as<std::string>(""),
                         plain ? std::vector<double>() : d, camera.eye);
}

}  // namespace

Result<StereoCalibration> readRosCalibration(const CalibrationTexts& files) {
    if (Status s = needTwo(files, "left.yaml right.yaml"); !s.ok())
        return s;
    try {
        RosCamera left, right;
        if (Status s = readRosCamera(files[0], left); !s.ok())
            return s;
        if (Status s = readRosCamera(files[1], right); !s.ok())
            return s;
        if (Status s = sameSize(files[1].path, left.width, left.height, right.width, right.height);
            !s.ok())
            return s;
        const double shift_left = left.projection[3] / left.projection[0];
        const double shift_right = right.projection[3] / right.projection[0];
        if (shift_left == 0 && shift_right == 0)
            return invalidCalibration(files[1].path,
                                      "P[0,3] is zero in both files: there is no baseline; "
                                      "calibrate as a stereo pair");
        if (shift_left < 0 && shift_right == 0)
            return invalidCalibration(files[0].path,
                                      "is the right eye's file (P[0,3] is negative), but was given "
                                      "as the left one; swap the files");
        if (shift_right - shift_left > 0)
            return invalidCalibration(files[1].path,
                                      "P[0,3] of the right eye is positive: the eyes are swapped, "
                                      "or its sign is wrong (it is -fx * baseline)");
        if (Status s =
                checkMetres(files[1].path, "the baseline -P[0,3] / fx", shift_right - shift_left);
            !s.ok())
            return s;
        StereoCalibration c;
        c.width = left.width;
        c.height = left.height;
        c.left = left.eye;
        c.right = right.eye;
        c.rectified = left.rectified && right.rectified;
        // Both rectified frames have the same axes, so they give the pose of the raw cameras.
        const Eigen::Matrix3d right_from_rectified = right.rectified_from_camera.transpose();
        setPose(c, right_from_rectified * left.rectified_from_camera,
                right_from_rectified * Eigen::Vector3d((shift_right - shift_left) * 1000, 0, 0));
        return c;
    } catch (const YAML::Exception& e) {
        return invalidCalibration(files.front().path, std::string("cannot be read: ") + e.what());
    }
}

Result<StereoCalibration> readEurocCalibration(const CalibrationTexts& files) {
    if (Status s = needTwo(files, "cam0/sensor.yaml cam1/sensor.yaml"); !s.ok())
        return s;
    try {
        StereoCalibration c;
        int right_width = 0, right_height = 0;
        const YAML::Node left = parse(files[0]);
        const YAML::Node right = parse(files[1]);
        if (Status s = readPinhole(files[0].path, left, c.left, c.width, c.height); !s.ok())
            return s;
        if (Status s = readPinhole(files[1].path, right, c.right, right_width, right_height);
            !s.ok())
            return s;
        if (Status s = sameSize(files[1].path, c.width, c.height, right_width, right_height);
            !s.ok())
            return s;
        const std::vector<double> t0 = numbers(left["T_BS"]);
        const std::vector<double> t1 = numbers(right["T_BS"]);
        if (t0.size() != 16 || t1.size() != 16)
            return invalidCalibration(files[0].path, "T_BS (4x4) is missing or has another size");
        const Eigen::Isometry3d right_from_left = isometry(t1).inverse() * isometry(t0);
        if (Status s = checkMetres(files[1].path, "the distance of the cameras",
                                   right_from_left.translation().norm());
            !s.ok())
            return s;
        setPose(c, right_from_left.rotation(), right_from_left.translation() * 1000);
        return c;
    } catch (const YAML::Exception& e) {
        return invalidCalibration(files.front().path, std::string("cannot be read: ") + e.what());
    }
}

Result<StereoCalibration> readKalibrCalibration(const CalibrationTexts& files) {
    const CalibrationText& file = files.front();
    try {
        const YAML::Node chain = parse(file);
        if (!chain["cam0"] || !chain["cam1"])
            return invalidCalibration(file.path, "cam0 or cam1 is missing; is it of one camera?");
        StereoCalibration c;
        int right_width = 0, right_height = 0;
        if (Status s = readPinhole(file.path, chain["cam0"], c.left, c.width, c.height); !s.ok())
            return s;
        if (Status s = readPinhole(file.path, chain["cam1"], c.right, right_width, right_height);
            !s.ok())
            return s;
        if (Status s = sameSize(file.path, c.width, c.height, right_width, right_height); !s.ok())
            return s;
        const std::vector<double> t = numbers(chain["cam1"]["T_cn_cnm1"]);
        if (t.size() != 16)
            return invalidCalibration(file.path, "T_cn_cnm1 (4x4) of cam1 is missing");
        const Eigen::Isometry3d right_from_left = isometry(t);
        if (Status s = checkMetres(file.path, "the distance of the cameras",
                                   right_from_left.translation().norm());
            !s.ok())
            return s;
        setPose(c, right_from_left.linear(), right_from_left.translation() * 1000);
        return c;
    } catch (const YAML::Exception& e) {
        return invalidCalibration(file.path, std::string("cannot be read: ") + e.what());
    }
}

}  // namespace kova::camera
