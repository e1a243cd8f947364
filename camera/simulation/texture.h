#pragma once

#include <cstdint>
#include <vector>

namespace kova::camera {

/// Noise with the spectrum of natural surfaces: equal energy in every octave from 2 m to 4 mm of
/// wavelength (amplitude 1/f), about normal, mean 0, deviation 1, periodic after 4.096 m. A pyramid
/// of half-size levels lets a sample be as wide as a pixel's footprint.
class NoiseTexture {
public:
    /// Made on first use and kept; the same bytes every time.
    static const NoiseTexture& instance();

    static constexpr float kTexelMm = 2.0f;
    static constexpr int kSizeLog2 = 11;
    static constexpr int kLevels = kSizeLog2 - 1;

    /// Bilinear sample of one level at (u, v) [mm].
    float sample(float u, float v, int level) const {
        const int shift = level;
        const float inverse = inverse_mm_[level];
        const float x = u * inverse - 0.5f, y = v * inverse - 0.5f;
        int ix = static_cast<int>(x), iy = static_cast<int>(y);
        ix -= x < static_cast<float>(ix);
        iy -= y < static_cast<float>(iy);
        const float fx = x - static_cast<float>(ix), fy = y - static_cast<float>(iy);
        const int bits = kSizeLog2 - shift, mask = (1 << bits) - 1;
        const int x0 = ix & mask, x1 = (ix + 1) & mask;
        const std::int16_t* row0 = levels_[level] + ((iy & mask) << bits);
        const std::int16_t* row1 = levels_[level] + (((iy + 1) & mask) << bits);
        const float a = row0[x0] + fx * (row0[x1] - row0[x0]);
        const float b = row1[x0] + fx * (row1[x1] - row1[x0]);
        return (a + fy * (b - a)) * kScale;
    }

private:
    NoiseTexture();
    static constexpr float kScale = 1.0f / 4096.0f;
    std::vector<std::int16_t> memory_;
    const std::int16_t* levels_[kLevels] = {};
    float inverse_mm_[kLevels] = {};
};

/// Unevenness of the ground: smooth heights [mm] on a periodic grid, wavelengths from 1.6 m to
/// 25.6 m, so that a floor is neither flat nor rough.
class BumpMap {
public:
    BumpMap() = default;
    /// @param deviation_mm  standard deviation of the heights
    BumpMap(std::uint32_t seed, double deviation_mm);

    /// Height above the plane [mm], upwards, at the place (x, z) [mm].
    float height(float x, float z) const {
        if (heights_.empty())
            return 0;
        const float u = x * (1.0f / kCellMm), v = z * (1.0f / kCellMm);
        int iu = static_cast<int>(u), iv = static_cast<int>(v);
        iu -= u < static_cast<float>(iu);
        iv -= v < static_cast<float>(iv);
        const float fu = u - static_cast<float>(iu), fv = v - static_cast<float>(iv);
        const int u0 = iu & (kSize - 1), u1 = (iu + 1) & (kSize - 1);
        const float* r0 = &heights_[static_cast<std::size_t>(iv & (kSize - 1)) * kSize];
        const float* r1 = &heights_[static_cast<std::size_t>((iv + 1) & (kSize - 1)) * kSize];
        const float a = r0[u0] + fu * (r0[u1] - r0[u0]);
        const float b = r1[u0] + fu * (r1[u1] - r1[u0]);
        return a + fv * (b - a);
    }

private:
    static constexpr int kSize = 256;
    static constexpr float kCellMm = 100.0f;
    std::vector<float> heights_;
};

}  // namespace kova::camera
