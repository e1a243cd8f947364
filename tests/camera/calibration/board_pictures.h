#pragma once

#include <opencv2/aruco/charuco.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

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

    BoardCamera(const CameraIntrinsics& eye, int width, int height)
        : width_(width), height_(height) {
        std::vector<cv::Point2f> pixels;
        for (int y = 0; y < height * kFine; ++y)
            for (int x = 0; x < width * kFine; ++x)
                pixels.emplace_back((x + 0.5F) / kFine - 0.5F, (y + 0.5F) / kFine - 0.5F);
        const cv::Matx33d k(eye.fx, 0, eye.cx, 0, eye.fy, eye.cy, 0, 0, 1);
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
        return inside ? board.picture.at<std::uint8_t>(y, x) : 120;
    }

    int width_, height_;
    std::vector<cv::Point2f> rays_;
};

}  // namespace kova::camera::test
