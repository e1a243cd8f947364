#pragma once

#include <algorithm>
#include <random>

#include "camera/base/image.h"

namespace kova::test {

/// A pair whose left half is nearer than its right half, with texture that is mostly coarse, and
/// noise. Deterministic.
struct TexturedPair {
    camera::Image<std::uint8_t> left, right;
    int near, far;  ///< [px]

    TexturedPair(int width, int height, int near_px, int far_px, unsigned seed = 1)
        : left(width, height), right(width, height), near(near_px), far(far_px) {
        std::mt19937 random(seed);
        const int wide = width + std::max(near_px, far_px);
        camera::Image<std::uint8_t> texture(wide, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < wide; ++x) {
                const int fresh = static_cast<int>(random() % 200) + 20;
                const int beside = x > 0 ? texture.at(x - 1, y) : fresh;
                const int above = y > 0 ? texture.at(x, y - 1) : fresh;
                texture.at(x, y) = static_cast<std::uint8_t>((2 * fresh + beside + above) / 4);
            }
        }
        const auto noisy = [&](int v) {
            return static_cast<std::uint8_t>(std::clamp(v + int(random() % 3) - 1, 0, 255));
        };
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) right.at(x, y) = noisy(texture.at(x, y));
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                left.at(x, y) = noisy(texture.at(std::max(x - truth(x, y), 0), y));
    }

    int truth(int x, int) const { return x < left.width() / 2 ? near : far; }
};

}  // namespace kova::test
