#include "camera/simulation/texture.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/simulation/random.h"

namespace kova::camera {

namespace {

/// Uniform cubic B-spline weights of the four lattice points around a fraction.
void splineWeights(float f, float w[4]) {
    const float g = 1.0f - f;
    w[0] = g * g * g / 6.0f;
    w[1] = (3.0f * f * f * f - 6.0f * f * f + 4.0f) / 6.0f;
    w[2] = (3.0f * g * g * g - 6.0f * g * g + 4.0f) / 6.0f;
    w[3] = f * f * f / 6.0f;
}

/// Adds one octave to a periodic picture of `size`^2: normal numbers on a lattice of `cells`^2,
/// smoothly interpolated, deviation about `amplitude`.
void addOctave(std::vector<float>& picture, int size, int cells, std::uint32_t seed,
               float amplitude) {
    const int step = size / cells;
    std::vector<float> weights(static_cast<std::size_t>(step) * 4);
    for (int i = 0; i < step; ++i)
        splineWeights((static_cast<float>(i) + 0.5f) / static_cast<float>(step), &weights[i * 4]);
    // A spline over independent numbers keeps (0.479)^2 of their variance, on average over phases.
    float kept = 0;
    for (int i = 0; i < step; ++i)
        for (int k = 0; k < 4; ++k)
            kept += weights[i * 4 + k] * weights[i * 4 + k] / static_cast<float>(step);
    const float scale = amplitude / kept;

    parallelFor(size, [&](int y) {
        const int cy = y / step;
        const float* wy = &weights[static_cast<std::size_t>(y % step) * 4];
        std::vector<float> column(cells);
        for (int cx = 0; cx < cells; ++cx) {
            float sum = 0;
            for (int k = 0; k < 4; ++k)
                sum +=
                    wy[k] * normalFloat(hash(seed, static_cast<std::uint32_t>(cx),
                                             static_cast<std::uint32_t>((cy + k) & (cells - 1))));
            column[cx] = sum * scale;
        }
        float* row = &picture[static_cast<std::size_t>(y) * size];
        for (int x = 0; x < size; ++x) {
            const int cx = x / step;
            const float* wx = &weights[static_cast<std::size_t>(x % step) * 4];
            float sum = 0;
            for (int k = 0; k < 4; ++k) sum += wx[k] * column[(cx + k) & (cells - 1)];
            row[x] += sum;
        }
    });
}

/// Half the size, with the binomial filter 1 3 3 1: little aliasing, little loss.
std::vector<float> halved(const std::vector<float>& in, int size) {
    const int half = size / 2, mask = size - 1;
    static constexpr float kWeights[4] = {0.125f, 0.375f, 0.375f, 0.125f};
    std::vector<float> out(static_cast<std::size_t>(half) * half);
    parallelFor(half, [&](int y) {
        for (int x = 0; x < half; ++x) {
            float sum = 0;
            for (int j = 0; j < 4; ++j) {
                const float* row = &in[static_cast<std::size_t>((2 * y - 1 + j) & mask) * size];
                float line = 0;
                for (int i = 0; i < 4; ++i) line += kWeights[i] * row[(2 * x - 1 + i) & mask];
                sum += kWeights[j] * line;
            }
            out[static_cast<std::size_t>(y) * half + x] = sum;
        }
    });
    return out;
}

}  // namespace

const NoiseTexture& NoiseTexture::instance() {
    static const NoiseTexture texture;
    return texture;
}

NoiseTexture::NoiseTexture() {
    constexpr int kSize = 1 << kSizeLog2;
    constexpr int kOctaves = kSizeLog2 - 1;
    std::vector<float> level(static_cast<std::size_t>(kSize) * kSize);
    const float amplitude = 1.0f / std::sqrt(static_cast<float>(kOctaves));
    for (int k = 0; k < kOctaves; ++k)
        addOctave(level, kSize, 4 << k, 0x51D0u + static_cast<std::uint32_t>(k), amplitude);

    std::size_t total = 0;
    for (int l = 0; l < kLevels; ++l) total += std::size_t{1} << 2 * (kSizeLog2 - l);
    memory_.resize(total);
    std::int16_t* out = memory_.data();
    for (int l = 0; l < kLevels; ++l) {
        levels_[l] = out;
        inverse_mm_[l] = 1.0f / (kTexelMm * static_cast<float>(1 << l));
        for (const float value : level)
            *out++ = static_cast<std::int16_t>(
                std::lrint(std::clamp(value, -7.9f, 7.9f) * (1.0f / kScale)));
        if (l + 1 < kLevels)
            level = halved(level, kSize >> l);
    }
}

BumpMap::BumpMap(std::uint32_t seed, double deviation_mm) {
    if (deviation_mm <= 0)
        return;
    heights_.resize(static_cast<std::size_t>(kSize) * kSize);
    // Lattices of 6.4, 3.2 and 1.6 m: the longest waves are the gentle curvature of a floor.
    constexpr float kShares[3] = {0.8f, 0.5f, 0.3f};
    for (int k = 0; k < 3; ++k)
        addOctave(heights_, kSize, 4 << k, hash(seed, 77u + static_cast<std::uint32_t>(k)),
                  kShares[k] * static_cast<float>(deviation_mm));
}

}  // namespace kova::camera
