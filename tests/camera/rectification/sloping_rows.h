#pragma once

#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"
#include "camera/base/parallel.h"
#include "camera/rectification/row_offset.h"

namespace kova::test {

/// A smooth texture with detail of 5 to 60 px, of about 120 +- 30 grey levels.
class SmoothTexture {
public:
    explicit SmoothTexture(unsigned seed) {
        std::mt19937 random(seed);
        const auto uniform = [&](double low, double high) {
            return low + (high - low) * static_cast<double>(random() % 10000) / 10000;
        };
        std::array<Wave, 24> waves;
        for (Wave& wave : waves) {
            const double angle = uniform(0, 6.2832), length = uniform(5, 20) * uniform(1, 3);
            wave = {6.2832 * std::cos(angle) / length, 6.2832 * std::sin(angle) / length,
                    uniform(0, 6.2832)};
        }
        greys_.resize(static_cast<std::size_t>(kSize) * kSize);
        camera::parallelFor(kSize * 6 / 10, [&](int v) {
            for (int u = 0; u < kSize; ++u) {
                const double x = 1.0 * u / kFine - kBorder, y = 1.0 * v / kFine - kBorder;
                double sum = 120;
                for (const Wave& w : waves) sum += 9 * std::cos(w.x * x + w.y * y + w.phase);
                greys_[static_cast<std::size_t>(v) * kSize + u] = static_cast<float>(sum);
            }
        });
    }
    double at(double x, double y) const {
        const double u = std::fmin(std::fmax((x + kBorder) * kFine, 0), kSize - 2);
        const double v = std::fmin(std::fmax((y + kBorder) * kFine, 0), kSize - 2);
        const int u0 = static_cast<int>(u), v0 = static_cast<int>(v);
        const double fu = u - u0, fv = v - v0;
        return (1 - fv) * ((1 - fu) * grey(u0, v0) + fu * grey(u0 + 1, v0)) +
               fv * ((1 - fu) * grey(u0, v0 + 1) + fu * grey(u0 + 1, v0 + 1));
    }

private:
    static constexpr int kFine = 3, kBorder = 20, kSize = 520 * kFine;
    struct Wave {
        double x, y, phase;
    };
    float grey(int u, int v) const { return greys_[static_cast<std::size_t>(v) * kSize + u]; }

    std::vector<float> greys_;
};

/// A textured surface whose disparity grows downwards, seen by eyes whose rows are apart.
struct SlopingRows {
    camera::Image<std::uint8_t> left, right;
    camera::DisparityMap map;  ///< true, sure everywhere

    int width = 400, height = 240;
    double near = 16, slope = 0.04;  ///< disparity [px] in the middle, per row
    double noise = 0;                ///< deviation [grey levels]
    double gain = 1;                 ///< of the right eye
    std::function<double(double x, double y)> texture;

    double disparity(double y) const { return near + slope * (y - 0.5 * height); }

    /// @param down  how far the right picture's rows lie below the left one's, at x in the right
    ///              picture and y in the left one [px]
    void paint(const std::function<double(double x, double y)>& down, unsigned seed = 1) {
        std::mt19937 random(seed);
        const auto grey = [&](double v) {
            // Near enough to normal.
            double sum = 0;
            for (int i = 0; i < 4; ++i) sum += static_cast<double>(random() % 10000) / 10000 - 0.5;
            v += noise * sum * 1.732;
            return static_cast<std::uint8_t>(std::lround(std::fmin(std::fmax(v, 0), 255)));
        };
        left.resize(width, height);
        right.resize(width, height);
        map.resize(width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                double row = y;
                for (int i = 0; i < 5; ++i) row = y - down(x, row);
                left.at(x, y) = grey(texture(x, y));
                right.at(x, y) = grey(gain * texture(x + disparity(row), row));
                map.disparity.at(x, y) =
                    static_cast<std::uint16_t>(std::lround(disparity(y) * camera::kDisparityScale));
                map.confidence.at(x, y) = 190;
            }
    }

    camera::RectifiedGeometry geometry() const {
        camera::RectifiedGeometry g;
        g.width = width;
        g.height = height;
        g.fx = g.fy = 0.6 * width;
        g.cx = g.cx_right = 0.5 * width;
        g.cy = 0.5 * height;
        g.baseline_mm = 120;
        return g;
    }
};

}  // namespace kova::test
