#pragma once

#include <cstdint>

#include "camera/base/image.h"

namespace kova::camera {

/// Disparity is left minus right: pixel (x, y) of the left picture lies at (x - d, y) in the right
/// one. Fixed point with 4 fractional bits.
constexpr int kDisparityFractionBits = 4;
constexpr int kDisparityScale = 1 << kDisparityFractionBits;  ///< steps per px

/// No disparity: occluded, unsure, out of range.
constexpr std::uint16_t kInvalidDisparity = 0xFFFF;
/// The surface is nearer than the search can see; no disparity, but not free either.
constexpr std::uint16_t kTooNearDisparity = 0xFFFE;
/// Smallest value that is not a disparity.
constexpr std::uint16_t kFirstReservedDisparity = kTooNearDisparity;

constexpr bool isDisparity(std::uint16_t d) {
    return d < kFirstReservedDisparity;
}

/// Confidence is the probability, in 1/200, that a disparity is right to within 1 px: 1..200, 0
/// where there is none.
constexpr int kConfidenceScale = 200;
/// A disparity completed from its surroundings, not measured. Never decides about obstacles.
constexpr std::uint8_t kFilledConfidence = 255;

/// What matching yields for a rectified pair; both pictures have the size of the left one.
struct DisparityMap {
    Image<std::uint16_t> disparity;  ///< 1/16 px, or a reserved value
    Image<std::uint8_t> confidence;  ///< see kConfidenceScale
    bool noisy = false;              ///< the pictures hold more noise than texture

    void resize(int width, int height) {
        disparity.resize(width, height);
        confidence.resize(width, height);
    }
};

}  // namespace kova::camera
