#include "camera/calibration/stereo_fit.h"

#include <Eigen/Dense>
#include <opencv2/calib3d.hpp>

#include <algorithm>
#include <cmath>

#include "camera/calibration/lens.h"

namespace kova::camera {

namespace {

/// Where k3 stands among OpenCV's uncertainties, after fx fy cx cy k1 k2 p1 p2.
constexpr int kSigmaOfK3 = 8;
/// A fifth coefficient that is less clear than this only bends the picture's corners.
constexpr double kClearSigmas = 5;

using Points3 = std::vector<std::vector<cv::Point3f>>;
using Points2 = std::vector<std::vector<cv::Point2f>>;

struct Eye {
    cv::Mat matrix = cv::Mat::eye(3, 3, CV_64F);
    cv::Mat distortion;
    double rms = 0;
    double focal_sigma = 0;
    bool clear_k3 = false;
};

Eye pinholeEye(const Points3& board, const Points2& pixels, cv::Size size, int flags) {
    Eye eye;
    std::vector<cv::Mat> rotations, translations;
    cv::Mat sigmas, extrinsic_sigmas, errors;
    eye.rms = cv::calibrateCamera(board, pixels, size, eye.matrix, eye.distortion, rotations,
                                  translations, sigmas, extrinsic_sigmas, errors, flags);
    eye.focal_sigma = sigmas.at<double>(0) / eye.matrix.at<double>(0, 0);
    eye.clear_k3 = eye.distortion.total() > 4 && std::abs(eye.distortion.at<double>(4)) >
                                                     kClearSigmas * sigmas.at<double>(kSigmaOfK3);
    return eye;
}

void setEye(CameraIntrinsics& to, const Eye& from, LensModel lens, int coefficients) {
    to.fx = from.matrix.at<double>(0, 0);
    to.fy = from.matrix.at<double>(1, 1);
    to.cx = from.matrix.at<double>(0, 2);
    to.cy = from.matrix.at<double>(1, 2);
    to.lens = lens;
    const cv::Mat flat = from.distortion.reshape(1, 1);
    to.distortion.assign(flat.begin<double>(), flat.end<double>());
    to.distortion.resize(static_cast<std::size_t>(coefficients), 0.0);
}

void setPlace(StereoCalibration& c, const cv::Mat& rotation, const cv::Mat& translation) {
    for (int i = 0; i < 9; ++i) c.right_from_left[i] = rotation.at<double>(i / 3, i % 3);
    for (int i = 0; i < 3; ++i) c.translation_mm[i] = translation.at<double>(i);
}

/// Root mean square of the difference of the rows after rectification. The rectified pictures have
/// the left eye's focal length.
double epipolarRms(const Eye& left, const Eye& right, const cv::Mat& r, const cv::Mat& t,
                   const BoardObservations& views, bool fisheye) {
    cv::Mat r1, r2, p1, p2, q;
    const cv::Size size(640, 480);  // matters for p1 and p2 only, which are not used
    const cv::Matx33d ideal = cv::Matx33d::eye();
    cv::stereoRectify(ideal, cv::noArray(), ideal, cv::noArray(), size, r, t, r1, r2, p1, p2, q);
    const double focal = left.matrix.at<double>(1, 1);
    double sum = 0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < views.left.size(); ++i) {
        std::vector<cv::Point2f> a, b;
        if (fisheye) {
            cv::fisheye::undistortPoints(views.left[i], a, left.matrix, left.distortion, r1);
            cv::fisheye::undistortPoints(views.right[i], b, right.matrix, right.distortion, r2);
        } else {
            cv::undistortPoints(views.left[i], a, left.matrix, left.distortion, r1);
            cv::undistortPoints(views.right[i], b, right.matrix, right.distortion, r2);
        }
        for (std::size_t k = 0; k < a.size(); ++k) sum += std::pow(focal * (a[k].y - b[k].y), 2);
        count += a.size();
    }
    return std::sqrt(sum / static_cast<double>(std::max<std::size_t>(1, count)));
}

StereoFit fitPinhole(const BoardObservations& v, cv::Size size, bool same, int coefficients) {
    const auto flagsOf = [](int n) {
        return n == 8 ? cv::CALIB_RATIONAL_MODEL : n == 4 ? cv::CALIB_FIX_K3 : 0;
    };
    const bool choose = !same && coefficients == 0;
    int count = same ? 4 : choose ? 5 : coefficients;
    int lens = same ? cv::CALIB_FIX_K3 | cv::CALIB_ZERO_TANGENT_DIST : flagsOf(count);
    Eye left = pinholeEye(v.board, v.left, size, lens);
    Eye right = pinholeEye(v.board, v.right, size, lens);
    if (choose && !left.clear_k3 && !right.clear_k3) {
        count = 4;
        lens = flagsOf(count);
        left = pinholeEye(v.board, v.left, size, lens);
        right = pinholeEye(v.board, v.right, size, lens);
    }
    StereoFit fit;
    fit.lenses = same ? LensFreedom::kSame : LensFreedom::kFree;
    fit.left_rms_px = left.rms;
    fit.right_rms_px = right.rms;
    fit.focal_sigma = std::max(left.focal_sigma, right.focal_sigma);
    cv::Mat rotation, translation, e, f, errors;
    fit.stereo_rms_px = cv::stereoCalibrate(
        v.board, v.left, v.right, left.matrix, left.distortion, right.matrix, right.distortion,
        size, rotation, translation, e, f, errors,
        lens | cv::CALIB_USE_INTRINSIC_GUESS | (same ? cv::CALIB_SAME_FOCAL_LENGTH : 0),
        cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 60, 1e-6));
    for (int i = 0; i < errors.rows; ++i)
        fit.view_errors_px.push_back({errors.at<double>(i, 0), errors.at<double>(i, 1)});
    fit.epipolar_rms_px = epipolarRms(left, right, rotation, translation, v, false);
    setEye(fit.calibration.left, left, LensModel::kRadialTangential, count);
    setEye(fit.calibration.right, right, LensModel::kRadialTangential, count);
    setPlace(fit.calibration, rotation, translation);
    return fit;
}

// --- Fisheye ------------------------------------------------------------------------------------

/// Every view with as many points as the largest, some twice: OpenCV's stereo fit asks for that.
template <typename Point>
std::vector<std::vector<Point>> padded(const std::vector<std::vector<Point>>& views) {
    std::size_t most = 0;
    for (const auto& view : views) most = std::max(most, view.size());
    std::vector<std::vector<Point>> out = views;
    for (std::size_t i = 0; i < views.size(); ++i)
        for (std::size_t k = views[i].size(); k < most; ++k)
            out[i].push_back(views[i][k % views[i].size()]);
    return out;
}

const cv::TermCriteria kFisheyeConvergence(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50,
                                           1e-7);

Eye fisheyeEye(const Points3& board, const Points2& pixels, cv::Size size) {
    Eye eye;
    std::vector<cv::Mat> rotations, translations;
    eye.rms = cv::fisheye::calibrate(
        board, pixels, size, eye.matrix, eye.distortion, rotations, translations,
        cv::fisheye::CALIB_RECOMPUTE_EXTRINSIC | cv::fisheye::CALIB_FIX_SKEW, kFisheyeConvergence);
    return eye;
}

/// Distances between the points of a view and where the cameras expect them, for a pose of the
/// board (rotation vector, translation) in the left eye's frame: x and y, left then right.
Eigen::VectorXd residuals(const StereoCalibration& c, const Eigen::Matrix<double, 6, 1>& pose,
                          const BoardObservations& v, std::size_t view) {
    const auto count = static_cast<Eigen::Index>(v.board[view].size());
    Eigen::VectorXd r(4 * count);
    const Eigen::Vector3d turn = pose.head<3>();
    const Eigen::Matrix3d rotation =
        turn.norm() > 1e-12 ? Eigen::AngleAxisd(turn.norm(), turn.normalized()).toRotationMatrix()
                            : Eigen::Matrix3d::Identity();
    const Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>> right_from_left(
        c.right_from_left.data());
    const Eigen::Map<const Eigen::Vector3d> translation(c.translation_mm.data());
    for (Eigen::Index i = 0; i < count; ++i) {
        const auto k = static_cast<std::size_t>(i);
        const cv::Point3f& b = v.board[view][k];
        const Eigen::Vector3d left = rotation * Eigen::Vector3d(b.x, b.y, b.z) + pose.tail<3>();
        const Eigen::Vector3d right = right_from_left * left + translation;
        const ImagePoint p = projectRay(c.left, {left.x(), left.y(), left.z()});
        const ImagePoint q = projectRay(c.right, {right.x(), right.y(), right.z()});
        r.segment<4>(4 * i) << p.x - v.left[view][k].x, p.y - v.left[view][k].y,
            q.x - v.right[view][k].x, q.y - v.right[view][k].y;
    }
    return r;
}

/// Errors of a view with the pose of the board that suits both eyes best (Levenberg-Marquardt).
std::array<double, 2> viewError(const StereoCalibration& c, const Eye& left,
                                const BoardObservations& v, std::size_t view) {
    std::vector<cv::Point2f> ideal;
    cv::fisheye::undistortPoints(v.left[view], ideal, left.matrix, left.distortion);
    cv::Vec3d turn, at;
    cv::solvePnP(v.board[view], ideal, cv::Matx33d::eye(), cv::noArray(), turn, at);
    Eigen::Matrix<double, 6, 1> pose;
    pose << turn[0], turn[1], turn[2], at[0], at[1], at[2];
    Eigen::VectorXd r = residuals(c, pose, v, view);
    double damping = 1e-3;
    for (int round = 0; round < 20; ++round) {
        Eigen::MatrixXd j(r.size(), 6);
        for (int k = 0; k < 6; ++k) {
            const double step = k < 3 ? 1e-6 : 1e-3;
            Eigen::Matrix<double, 6, 1> moved = pose;
            moved[k] += step;
            j.col(k) = (residuals(c, moved, v, view) - r) / step;
        }
        Eigen::Matrix<double, 6, 6> a = j.transpose() * j;
        a.diagonal() *= 1 + damping;
        const Eigen::Matrix<double, 6, 1> next = pose - a.ldlt().solve(j.transpose() * r);
        const Eigen::VectorXd there = residuals(c, next, v, view);
        const bool better = there.squaredNorm() < r.squaredNorm();
        damping *= better ? 0.1 : 10;
        if (better) {
            const bool done = r.squaredNorm() - there.squaredNorm() < 1e-9 * r.squaredNorm();
            pose = next;
            r = there;
            if (done)
                break;
        }
    }
    std::array<double, 2> error = {0, 0};
    for (Eigen::Index i = 0; i < r.size(); i += 4) {
        error[0] += r.segment<2>(i).squaredNorm();
        error[1] += r.segment<2>(i + 2).squaredNorm();
    }
    for (double& e : error) e = std::sqrt(e / static_cast<double>(v.board[view].size()));
    return error;
}

StereoFit fitFisheye(const BoardObservations& v, cv::Size size) {
    Eye left = fisheyeEye(v.board, v.left, size);
    Eye right = fisheyeEye(v.board, v.right, size);
    StereoFit fit;
    fit.lenses = LensFreedom::kFisheye;
    fit.left_rms_px = left.rms;
    fit.right_rms_px = right.rms;
    cv::Mat rotation, translation;
    cv::fisheye::stereoCalibrate(
        padded(v.board), padded(v.left), padded(v.right), left.matrix, left.distortion,
        right.matrix, right.distortion, size, rotation, translation,
        cv::fisheye::CALIB_USE_INTRINSIC_GUESS | cv::fisheye::CALIB_RECOMPUTE_EXTRINSIC |
            cv::fisheye::CALIB_FIX_SKEW,
        kFisheyeConvergence);
    setEye(fit.calibration.left, left, LensModel::kEquidistant, 4);
    setEye(fit.calibration.right, right, LensModel::kEquidistant, 4);
    setPlace(fit.calibration, rotation, translation);
    double sum = 0;
    for (std::size_t i = 0; i < v.board.size(); ++i) {
        fit.view_errors_px.push_back(viewError(fit.calibration, left, v, i));
        const std::array<double, 2>& e = fit.view_errors_px.back();
        sum += (e[0] * e[0] + e[1] * e[1]) / 2;
    }
    fit.stereo_rms_px = std::sqrt(sum / static_cast<double>(v.board.size()));
    fit.epipolar_rms_px = epipolarRms(left, right, rotation, translation, v, true);
    return fit;
}

}  // namespace

StereoFit fitStereo(const BoardObservations& views, int width, int height, LensFreedom lenses,
                    int coefficients) {
    const cv::Size size(width, height);
    StereoFit fit = lenses == LensFreedom::kFisheye
                        ? fitFisheye(views, size)
                        : fitPinhole(views, size, lenses == LensFreedom::kSame, coefficients);
    fit.calibration.width = width;
    fit.calibration.height = height;
    if (!std::isfinite(fit.stereo_rms_px) || !std::isfinite(fit.epipolar_rms_px))
        CV_Error(cv::Error::StsNoConv, "the fit does not converge");
    return fit;
}

}  // namespace kova::camera
