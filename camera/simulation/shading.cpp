#include "camera/simulation/shading.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "camera/simulation/random.h"
#include "camera/simulation/texture.h"

namespace kova::camera {

namespace {

/// log2 of a positive number, within 0.09: the exponent and a straight line through the mantissa.
float fastLog2(float x) {
    std::uint32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return static_cast<float>(bits) * (1.0f / 8388608.0f) - 127.0f;
}

/// Share of a sample of width w that a joint of width `joint` at the distance d covers.
float covered(float d, float joint, float w) {
    const float reach = 0.5f * (joint + w) - d;
    if (reach <= 0)
        return 0;
    return std::min(reach / w, std::min(1.0f, joint / w));
}

float floorOf(float x) {
    const auto i = static_cast<float>(static_cast<int>(x));
    return i > x ? i - 1.0f : i;
}

/// What a pattern adds to the base [grey levels] for a sample at (u, v), w wide.
float patternAt(const Material& m, float u, float v, float w) {
    const float size_v = m.pattern_mm;
    // Tiles are square, bricks and planks long.
    const float size_u = m.pattern == Pattern::kBricks   ? 3.0f * size_v
                         : m.pattern == Pattern::kPlanks ? 11.0f * size_v
                                                         : size_v;
    const float row = floorOf(v / size_v);
    float shifted = u;
    if (m.pattern == Pattern::kBricks)
        shifted += (static_cast<int>(row) & 1) ? 0.5f * size_u : 0.0f;
    else if (m.pattern == Pattern::kPlanks)
        shifted += size_u * unitFloat(hash(static_cast<std::uint32_t>(static_cast<int>(row))));
    const float column = floorOf(shifted / size_u);
    const float in_u = shifted - column * size_u, in_v = v - row * size_v;
    const float du = std::min(in_u, size_u - in_u), dv = std::min(in_v, size_v - in_v);

    if (m.pattern == Pattern::kStripes || m.pattern == Pattern::kChecks) {
        // Dark fields; +1 or -1 each, smooth over the sample's width at their borders.
        const float across = std::clamp(2.0f * dv / w, 0.0f, 1.0f);
        const float along =
            m.pattern == Pattern::kChecks ? std::clamp(2.0f * du / w, 0.0f, 1.0f) : 1.0f;
        int parity = static_cast<int>(row);
        if (m.pattern == Pattern::kChecks)
            parity += static_cast<int>(column);
        const float fade = std::clamp(2.0f - 2.0f * w / size_v, 0.0f, 1.0f);
        return 0.5f * m.pattern_depth * ((parity & 1 ? -1.0f : 1.0f) * across * along * fade);
    }
    const float joint = std::max(covered(du, m.joint_mm, w), covered(dv, m.joint_mm, w));
    const float fade = std::clamp(1.5f - 1.5f * w / size_v, 0.0f, 1.0f);
    const float tone = normalFloat(hash(static_cast<std::uint32_t>(static_cast<int>(row)),
                                        static_cast<std::uint32_t>(static_cast<int>(column)), 5u)) *
                       m.pattern_variety * fade;
    return tone * (1.0f - joint) - m.pattern_depth * joint;
}

struct Level {
    int coarse = 0;      ///< the coarser of two levels
    float fraction = 0;  ///< share of samples taken from it
};

Level levelFor(float width_mm) {
    const float level =
        std::clamp(fastLog2(std::max(width_mm, 0.01f) * (1.0f / NoiseTexture::kTexelMm)), 0.0f,
                   static_cast<float>(NoiseTexture::kLevels - 1) - 0.01f);
    const int fine = static_cast<int>(level);
    return {std::min(fine + 1, NoiseTexture::kLevels - 1), level - static_cast<float>(fine)};
}

/// Where in a pixel and when in the exposure the samples of a pixel are taken.
struct SamplePattern {
    float x[9] = {}, y[9] = {};  ///< [px], along the longer side of a long pixel first
    float time[9] = {};          ///< -0.5 to 0.5
    int order[9] = {};           ///< in time; mixes the levels of the texture as well
};

/// Position and time are permutations of each other, so that neither follows the other.
SamplePattern patternOf(bool square, int count) {
    static constexpr int kFour[4] = {2, 0, 3, 1}, kSix[6] = {3, 0, 4, 1, 5, 2},
                         kNine[9] = {4, 0, 7, 2, 8, 5, 1, 6, 3};
    SamplePattern p;
    const auto n = static_cast<float>(count);
    for (int i = 0; i < count; ++i) {
        const float along = (static_cast<float>(i) + 0.5f) / n - 0.5f;
        p.order[i] = count == 4 ? kFour[i] : count == 6 ? kSix[i] : kNine[i];
        p.time[i] = (static_cast<float>(p.order[i]) + 0.5f) / n - 0.5f;
        p.x[i] = along;
        if (!square)
            continue;
        if (count == 9) {
            p.x[i] = static_cast<float>(i % 3 - 1) * (1.0f / 3.0f);
            p.y[i] = static_cast<float>(i / 3 - 1) * (1.0f / 3.0f);
        } else {
            p.y[i] = p.time[i];  // every row and every column once
            p.time[i] = (static_cast<float>((i * 5 + 1) % count) + 0.5f) / n - 0.5f;
        }
    }
    return p;
}

/// All patterns there are, by their number of samples: 4, 6 or 9.
std::array<SamplePattern, 10> patternsOf(bool square) {
    std::array<SamplePattern, 10> all;
    for (const int count : {4, 6, 9}) all[count] = patternOf(square, count);
    return all;
}
const std::array<SamplePattern, 10> kSquare = patternsOf(true), kLine = patternsOf(false);

/// Pixels that are nearly square on the surface and hardly move need few samples.
/// @param slenderness  length of the pixel's print on the surface by its width
/// @param motion_px    during the exposure
int sampleCount(float slenderness, float motion_px) {
    if (slenderness < 4.0f && motion_px < 1.0f)
        return 4;
    return slenderness < 9.0f && motion_px < 2.5f ? 6 : 9;
}

}  // namespace

Footprint footprintAt(const SurfacePoint& point, const Vec3& direction, const Vec3& right,
                      const Vec3& down, float t) {
    const float facing = dot(point.normal, direction);
    const float limit = 0.01f * length(direction);
    const float inverse =
        1.0f / (std::abs(facing) > limit ? facing : (facing < 0 ? -limit : limit));
    const Vec3 dx = (right - direction * (dot(point.normal, right) * inverse)) * t;
    const Vec3 dy = (down - direction * (dot(point.normal, down) * inverse)) * t;
    return {dot(dx, point.along_u), dot(dx, point.along_v), dot(dy, point.along_u),
            dot(dy, point.along_v)};
}

float albedo(const Material& m, float u, float v, const Footprint& f, float motion_x,
             float motion_y) {
    const float a = std::sqrt(f.u_x * f.u_x + f.v_x * f.v_x);
    const float b = std::sqrt(f.u_y * f.u_y + f.v_y * f.v_y);
    // Seen flat, a pixel is long and narrow on the surface: then all samples lie along its length.
    const float longer = std::max(a, b), shorter = std::min(a, b);
    const bool square = longer < 2.2f * shorter;
    const float motion = std::max(std::abs(motion_x), std::abs(motion_y));
    const int count = sampleCount(square ? 2.0f : longer / shorter, motion);
    const auto n = static_cast<float>(count);
    const float width = square ? longer * 0.5f : std::max(shorter * 0.8f, 1.1f * longer / n);
    const Level level = levelFor(width);
    const int coarse_from = static_cast<int>(level.fraction * n + 0.5f);

    const NoiseTexture& noise = NoiseTexture::instance();
    const SamplePattern& pattern = square ? kSquare[count] : kLine[count];
    const bool swapped = !square && b >= a;
    const float* across = swapped ? pattern.y : pattern.x;
    const float* downwards = swapped ? pattern.x : pattern.y;
    const float tu0 = m.cosine * u - m.sine * v + m.offset_u;
    const float tv0 = m.sine * u + m.cosine * v + m.offset_v;
    float sum = 0;
    for (int i = 0; i < count; ++i) {
        const float x = across[i] - motion_x * pattern.time[i];
        const float y = downwards[i] - motion_y * pattern.time[i];
        const float du = x * f.u_x + y * f.u_y, dv = x * f.v_x + y * f.v_y;
        const int l = pattern.order[i] < coarse_from ? level.coarse : level.coarse - 1;
        sum += m.contrast * noise.sample(tu0 + m.cosine * du - m.sine * dv,
                                         tv0 + m.sine * du + m.cosine * dv, l);
        if (m.pattern != Pattern::kNone)
            sum += patternAt(m, u + du, v + dv, width);
    }
    return std::max(m.base + sum / n, 2.0f);
}

float albedoSample(const Material& m, float u, float v, float width) {
    const Level level = levelFor(width);
    const float tu = m.cosine * u - m.sine * v + m.offset_u;
    const float tv = m.sine * u + m.cosine * v + m.offset_v;
    float value = m.contrast * NoiseTexture::instance().sample(
                                   tu, tv, level.fraction > 0.5f ? level.coarse : level.coarse - 1);
    if (m.pattern != Pattern::kNone)
        value += patternAt(m, u, v, width);
    return std::max(m.base + value, 2.0f);
}

float illumination(const Scene& scene, const Vec3& normal, bool in_shadow) {
    const float facing =
        std::max(dot(normal, scene.light), 0.0f) * (in_shadow ? 1.0f - scene.shadow : 1.0f);
    // The ground in full light is the measure; what faces up gets a little more from the sky.
    const float direct = facing / std::max(-scene.light.y, 0.3f);
    return scene.ambient * (0.87f - 0.13f * normal.y) +
           (1.0f - scene.ambient) * std::min(direct, 1.3f);
}

float skyAt(const Scene& scene, const Vec3& direction) {
    const Vec3 d = normalized(direction);
    const float up = std::max(-d.y, 0.0f);
    const float stretch = 900.0f / (0.15f + up);
    const float clouds = NoiseTexture::instance().sample(d.x * stretch, d.z * stretch, 5);
    return scene.sky * (1.0f - 0.2f * up) + scene.sky_contrast * clouds;
}

float surroundingsAt(const Scene& scene, const Vec3& direction) {
    const Vec3 d = normalized(direction);
    const NoiseTexture& noise = NoiseTexture::instance();
    const float around = std::atan2(d.x, d.z) * 3000.0f;
    const float skyline = 0.25f + 0.1f * noise.sample(around, 0, 6);
    if (-d.y > skyline)
        return skyAt(scene, direction);
    return std::max(85.0f + 35.0f * noise.sample(around, d.y * 3000.0f, 3), 10.0f);
}

}  // namespace kova::camera
