#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

#include "camera/base/disparity.h"
#include "camera/detection/detector.h"

namespace kova::test {

/// Disparity maps with exact geometry and the pictures of both eyes, seen by a camera over a plane.
/// Shapes are given in the ground's frame [mm]: lateral to the right, up, ahead.
class SyntheticScene {
public:
    camera::RectifiedGeometry geometry;
    camera::DisparityMap map;
    camera::Image<std::uint8_t> left, right;

    explicit SyntheticScene(int width = 640, int height = 400, double height_mm = 600,
                            double pitch_deg = 8, double roll_deg = 0) {
        const double focal = 760.0 * width / 1280;
        geometry = {width, height, focal, focal, width / 2.0, height / 2.0, width / 2.0, 120};
        const double pitch = pitch_deg * 0.017453292519943295;
        const double roll = roll_deg * 0.017453292519943295;
        down_ = {std::sin(roll) * std::cos(pitch), std::cos(roll) * std::cos(pitch),
                 std::sin(pitch)};
        height_mm_ = height_mm;
        const double s = down_[2];
        const double n = std::sqrt(1 - s * s);
        ahead_ = {-s * down_[0] / n, -s * down_[1] / n, (1 - s * s) / n};
        right_ = {down_[1] * ahead_[2] - down_[2] * ahead_[1],
                  down_[2] * ahead_[0] - down_[0] * ahead_[2],
                  down_[0] * ahead_[1] - down_[1] * ahead_[0]};
        depth_.assign(static_cast<std::size_t>(width) * height,
                      std::numeric_limits<double>::infinity());
        left.resize(width, height);
        map.resize(width, height);
        paintTexture();
    }

    /// The ground between two distances; `up_mm` lower or higher than the plane, rising by `slope`.
    void addGround(double from_mm = 0, double to_mm = 1e6, double up_mm = 0, double slope = 0) {
        forEachPixel([&](double u, double v, double& z) {
            const auto ray = rayAt(u, v);
            // up = height - down.p = up_mm + slope * (ahead.p - from)
            const double along = dot(down_, ray) + slope * dot(ahead_, ray);
            if (along <= 0)
                return;
            const double t = (height_mm_ - up_mm + slope * from_mm) / along;
            const double ahead = t * dot(ahead_, ray);
            if (ahead >= from_mm && ahead < to_mm)
                z = std::min(z, t);
        });
    }

    /// A ramp that rises by `slope` from a line on the ground on that lies `from_mm` ahead and is
    /// met at an angle: the way up leads to the right by `turn_deg`.
    void addRamp(double from_mm, double slope, double turn_deg) {
        const double turn = turn_deg * 0.017453292519943295;
        forEachPixel([&](double u, double v, double& z) {
            const auto ray = rayAt(u, v);
            const double onward =
                std::cos(turn) * dot(ahead_, ray) + std::sin(turn) * dot(right_, ray);
            const double along = dot(down_, ray) + slope * onward;
            const double t = (height_mm_ + slope * std::cos(turn) * from_mm) / along;
            if (along > 0 && t * onward >= std::cos(turn) * from_mm)
                z = slope > 0 ? std::min(z, t) : t;
        });
    }

    /// Disparity of what was painted [px].
    double disparityAt(int u, int v) const {
        return geometry.fx * geometry.baseline_mm /
               depth_[static_cast<std::size_t>(v) * geometry.width + u];
    }

    /// A level surface beside the way, `up_mm` over the ground: a pavement.
    void addPavement(double lateral_from_mm, double lateral_to_mm, double up_mm) {
        forEachPixel([&](double u, double v, double& z) {
            const auto ray = rayAt(u, v);
            const double along = dot(down_, ray);
            if (along <= 0)
                return;
            const double t = (height_mm_ - up_mm) / along;
            const double lateral = t * dot(right_, ray);
            if (lateral >= lateral_from_mm && lateral < lateral_to_mm)
                z = std::min(z, t);
        });
    }

    /// An upright rectangle across the view.
    void addWall(double lateral_mm, double width_mm, double low_mm, double high_mm,
                 double ahead_mm) {
        forEachPixel([&](double u, double v, double& z) {
            const auto ray = rayAt(u, v);
            const double along = dot(ahead_, ray);
            if (along <= 0)
                return;
            const double t = ahead_mm / along;
            const double lateral = t * dot(right_, ray);
            const double up = height_mm_ - t * dot(down_, ray);
            if (std::fabs(lateral - lateral_mm) <= width_mm / 2 && up >= low_mm && up <= high_mm)
                z = std::min(z, t);
        });
    }

    /// Turns depth into a disparity map with noise that is alike over 4 x 4 pixels.
    void finish(unsigned seed = 1, double noise_px = 0.15, int max_disparity = 128) {
        std::mt19937 random(seed);
        const int per_row = (geometry.width + 3) / 4;
        std::vector<double> noise(static_cast<std::size_t>(per_row) * ((geometry.height + 3) / 4));
        for (double& value : noise) {
            value = 0;
            for (int i = 0; i < 3; ++i) value += static_cast<double>(random() % 2001) / 1000 - 1;
            value *= noise_px;
        }
        for (int y = 0; y < geometry.height; ++y) {
            for (int x = 0; x < geometry.width; ++x) {
                const double z = depth_[static_cast<std::size_t>(y) * geometry.width + x];
                double d = geometry.fx * geometry.baseline_mm / z;
                d += noise[static_cast<std::size_t>(y / 4) * per_row + x / 4];
                auto& out = map.disparity.at(x, y);
                map.confidence.at(x, y) = 180;
                if (!std::isfinite(z) || d < 0.5) {
                    out = camera::kInvalidDisparity;
                    map.confidence.at(x, y) = 0;
                } else if (d >= max_disparity) {
                    out = camera::kTooNearDisparity;
                    map.confidence.at(x, y) = 0;
                } else {
                    out = static_cast<std::uint16_t>(std::lround(d * camera::kDisparityScale));
                }
            }
        }
        paintRight();
    }

    camera::DetectionInput input(std::int64_t t_ns = 0) const {
        camera::DetectionInput in;
        in.left = left.view();
        in.right = right.view();
        in.map = &map;
        in.geometry = geometry;
        in.t_ns = t_ns;
        return in;
    }

    /// Detects in this scene alone.
    void detectAlone(camera::DetectionFrame& frame,
                     camera::DetectionSettings settings = camera::DetectionSettings()) const {
        settings.temporal = false;
        camera::Detector detector;
        detector.detect(input(), settings, frame);
    }

    /// Smooth texture, stronger over a distance than from pixel to pixel, as surfaces have it.
    void paintTexture() {
        constexpr int kCell = 6;
        const int across = geometry.width / kCell + 2;
        std::mt19937 random(5);
        std::vector<int> lattice(static_cast<std::size_t>(across) * (geometry.height / kCell + 2));
        for (int& value : lattice) value = 60 + static_cast<int>(random() % 100);
        for (int y = 0; y < geometry.height; ++y) {
            for (int x = 0; x < geometry.width; ++x) {
                const int fx = x % kCell;
                const int fy = y % kCell;
                const int* at = &lattice[static_cast<std::size_t>(y / kCell) * across + x / kCell];
                const int top = at[0] * (kCell - fx) + at[1] * fx;
                const int bottom = at[across] * (kCell - fx) + at[across + 1] * fx;
                left.at(x, y) =
                    static_cast<std::uint8_t>((top * (kCell - fy) + bottom * fy) / (kCell * kCell));
            }
        }
    }

private:
    /// What the right eye sees of the texture; where it sees what the left one does not, other
    /// texture.
    void paintRight() {
        const int width = geometry.width;
        right.resize(width, geometry.height);
        std::vector<double> nearest(static_cast<std::size_t>(width));
        for (int y = 0; y < geometry.height; ++y) {
            for (int x = 0; x < width; ++x) right.at(x, y) = left.at(width - 1 - x, y);
            std::fill(nearest.begin(), nearest.end(), -1.0);
            for (int x = 0; x + 1 < width; ++x) {
                const double d0 = disparityAt(x, y), d1 = disparityAt(x + 1, y);
                if (std::fabs(d0 - d1) > 0.9)
                    continue;  // two surfaces
                const double from = x - d0, to = x + 1 - d1;
                for (int at = std::max(0, static_cast<int>(std::ceil(from))); at <= to; ++at) {
                    if (d0 <= nearest[at])
                        continue;
                    nearest[at] = d0;
                    const double part = (at - from) / (to - from);
                    right.at(at, y) = static_cast<std::uint8_t>(
                        std::lround((1 - part) * left.at(x, y) + part * left.at(x + 1, y)));
                }
            }
        }
    }

    using Vector = std::array<double, 3>;
    static double dot(const Vector& p, const Vector& q) {
        return p[0] * q[0] + p[1] * q[1] + p[2] * q[2];
    }
    Vector rayAt(double u, double v) const {
        return {(u - geometry.cx) / geometry.fx, (v - geometry.cy) / geometry.fy, 1};
    }
    template <typename Body>
    void forEachPixel(const Body& body) {
        for (int y = 0; y < geometry.height; ++y)
            for (int x = 0; x < geometry.width; ++x)
                body(x, y, depth_[static_cast<std::size_t>(y) * geometry.width + x]);
    }

    double height_mm_ = 0;
    Vector down_{}, ahead_{}, right_{};
    std::vector<double> depth_;
};

}  // namespace kova::test
