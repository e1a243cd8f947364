#pragma once

#include <opencv2/aruco/charuco.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <random>
#include <vector>

#include "camera/calibration/board.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera::test {

/// A board as a flat picture, and where its origin (point 0) lies in it.
struct BoardTexture {
    cv::Mat picture;
    double px_per_mm = 2;
    cv::Point2d origin_mm;
};

inline BoardTexture drawBoard(const Board& board) {
    BoardTexture t;
    const double s = board.square_mm;
    const auto px = [&](double mm) { return static_cast<int>(std::lround(mm * t.px_per_mm)); };
    if (board.kind == BoardKind::kCharuco) {
        const auto charuco = cv::aruco::CharucoBoard::create(
            board.columns, board.rows, static_cast<float>(s), static_cast<float>(0.75 * s),
            cv::aruco::getPredefinedDictionary(cv::aruco::DICT_4X4_50));
        cv::Mat inner;
        charuco->draw({px(board.columns * s), px(board.rows * s)}, inner, 0, 1);
        cv::copyMakeBorder(inner, t.picture, px(s), px(s), px(s), px(s), cv::BORDER_CONSTANT, 255);
        t.origin_mm = {2 * s, 2 * s};
        return t;
    }
    const bool circles = board.kind == BoardKind::kAsymmetricCircles;
    const double width = (circles ? 2 * board.columns + 2 : board.columns + 3) * s;
    const double height = (board.rows + 3) * s;
    t.picture = cv::Mat(px(height), px(width), CV_8U, cv::Scalar(255));
    t.origin_mm = {2 * s, 2 * s};
    if (circles) {
        for (int id = 0; id < board.pointCount(); ++id) {
            const auto p = board.point(id);
            cv::circle(t.picture, {px(p[0] + 2 * s), px(p[1] + 2 * s)}, px(0.55 * s), 0, -1,
                       cv::LINE_AA);
        }
        // A circle drawn at a pixel has its middle at that pixel's centre.
        t.origin_mm += cv::Point2d(0.5 / t.px_per_mm, 0.5 / t.px_per_mm);
        return t;
    }
    for (int y = 0; y <= board.rows; ++y)
        for (int x = 0; x <= board.columns; ++x)
            if ((x + y) % 2 == 0)
                t.picture(cv::Rect(px((x + 1) * s), px((y + 1) * s), px(s), px(s))) = 0;
    return t;
}

/// Rays of a camera through a fine grid of points, `kFine` by `kFine` per pixel.
class BoardCamera {
public:
    static constexpr int kFine = 2;
    static constexpr int kBackground = 120;  ///< [grey levels]

    BoardCamera(const CameraIntrinsics& eye, int width, int height)
        : width_(width), height_(height) {
        std::vector<cv::Point2f> pixels;
        for (int y = 0; y < height * kFine; ++y)
            for (int x = 0; x < width * kFine; ++x)
                pixels.emplace_back((x + 0.5F) / kFine - 0.5F, (y + 0.5F) / kFine - 0.5F);
        const cv::Matx33d k(eye.fx, 0, eye.cx, 0, eye.fy, eye.cy, 0, 0, 1);
        if (eye.lens == LensModel::kEquidistant)
            cv::fisheye::undistortPoints(pixels, rays_, k, eye.distortion);
        else
            cv::undistortPoints(pixels, rays_, k, eye.distortion, cv::noArray(), cv::noArray(),
                                cv::TermCriteria(cv::TermCriteria::COUNT, 15, 0));
    }

    /// The board whose points p have the coordinates rotation * p + translation.
    Image<std::uint8_t> see(const BoardTexture& board, const cv::Matx33d& rotation,
                            const cv::Vec3d& translation, std::mt19937& random) const {
        // The board's plane is z = 0: a homography takes rays to it.
        const cv::Matx33d board_from_ray =
            cv::Matx33d(rotation(0, 0), rotation(0, 1), translation[0], rotation(1, 0),
                        rotation(1, 1), translation[1], rotation(2, 0), rotation(2, 1),
                        translation[2])
                .inv();
        const double* h = board_from_ray.val;
        Image<std::uint8_t> image(width_, height_);
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x) {
                int sum = 0;
                for (int v = 0; v < kFine; ++v)
                    for (int u = 0; u < kFine; ++u) {
                        const cv::Point2f& r = rays_[static_cast<std::size_t>(
                            (y * kFine + v) * width_ * kFine + x * kFine + u)];
                        const double w = h[6] * r.x + h[7] * r.y + h[8];
                        if (w <= 0) {  // behind the camera
                            sum += kBackground;
                            continue;
                        }
                        sum += grey(board, (h[0] * r.x + h[1] * r.y + h[2]) / w,
                                    (h[3] * r.x + h[4] * r.y + h[5]) / w);
                    }
                const int noise = static_cast<int>(random() % 5) - 2;
                image.at(x, y) =
                    cv::saturate_cast<std::uint8_t>(30 + 0.75 * sum / (kFine * kFine) + noise);
            }
        return image;
    }

private:
    static int grey(const BoardTexture& board, double x_mm, double y_mm) {
        const int x = cvFloor((x_mm + board.origin_mm.x) * board.px_per_mm);
        const int y = cvFloor((y_mm + board.origin_mm.y) * board.px_per_mm);
        const bool inside = x >= 0 && y >= 0 && x < board.picture.cols && y < board.picture.rows;
        return inside ? board.picture.at<std::uint8_t>(y, x) : kBackground;
    }

    int width_, height_;
    std::vector<cv::Point2f> rays_;
};

/// Poses of the board: its middle goes to all parts of the view, tilted to all sides.
struct BoardPose {
    cv::Matx33d rotation;
    cv::Vec3d translation;
};

inline std::vector<BoardPose> poses(const Board& board, double distance) {
    std::vector<BoardPose> result;
    const auto last = board.point(board.pointCount() - 1);
    const cv::Vec3d middle(last[0] / 2, last[1] / 2, 0);
    for (int i = 0; i < 12; ++i) {
        const double a = i * 2.4;
        BoardPose p;
        cv::Rodrigues(cv::Vec3d(0.5 * std::sin(a), 0.5 * std::cos(a * 1.3), 0.15 * std::sin(a * 2)),
                      p.rotation);
        const double z = distance * (1 + 0.15 * (i % 3));
        const cv::Vec3d centre(0.24 * z * std::cos(i * 1.7) + 40, 0.16 * z * std::sin(i * 1.1), z);
        p.translation = centre - p.rotation * middle;
        result.push_back(p);
    }
    return result;
}

/// Poses for a very wide lens: the board faces the camera from all sides.
inline std::vector<BoardPose> posesAround(const Board& board, double distance) {
    const auto last = board.point(board.pointCount() - 1);
    std::vector<BoardPose> result;
    for (int i = 0; i < 18; ++i) {
        // The middle, and two rings around it.
        const double off = i < 3 ? 0 : i < 9 ? 0.35 : 0.75;
        const double side = i * 1.0472 + (i < 9 ? 0.5 : 0);
        cv::Matx33d turn, tilt;
        cv::Rodrigues(cv::Vec3d(-off * std::sin(side) * 0.7, off * std::cos(side), 0), turn);
        cv::Rodrigues(cv::Vec3d(0.45 * std::sin(i * 2.4), 0.45 * std::cos(i * 3.1), 0), tilt);
        BoardPose p;
        p.rotation = turn * tilt;
        p.translation = turn * cv::Vec3d(20, 0, distance * (1 + 0.2 * (i % 3))) -
                        p.rotation * cv::Vec3d(last[0] / 2, last[1] / 2, 0);
        result.push_back(p);
    }
    return result;
}

/// Both eyes of a camera before a board.
class Stage {
public:
    Stage(const Board& board, const StereoCalibration& camera)
        : texture_(drawBoard(board)),
          left_(camera.left, camera.width, camera.height),
          right_(camera.right, camera.width, camera.height),
          rotation_(camera.right_from_left.data()),
          translation_(camera.translation_mm.data()) {}

    Image<std::uint8_t> left(const BoardPose& p) {
        return left_.see(texture_, p.rotation, p.translation, random_);
    }
    Image<std::uint8_t> right(const BoardPose& p) {
        return right_.see(texture_, rotation_ * p.rotation,
                          rotation_ * p.translation + translation_, random_);
    }

private:
    BoardTexture texture_;
    BoardCamera left_, right_;
    cv::Matx33d rotation_;
    cv::Vec3d translation_;
    std::mt19937 random_{1};
};

}  // namespace kova::camera::test
