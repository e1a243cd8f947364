#pragma once

#include <cstdint>

namespace kova::camera {

constexpr std::uint8_t kMapObstacle = 0;
constexpr std::uint8_t kMapUnsure = 127;
constexpr std::uint8_t kMapGround = 255;
/// From here on a grey level may be anything.
constexpr std::uint8_t kMapSaturated = 252;

/// What a row of pixels is compared with; all arrays have one entry per pixel.
struct MapRow {
    int width = 0;
    const std::uint16_t* disparity = nullptr;
    const std::uint8_t* confidence = nullptr;
    const std::uint8_t* grey = nullptr;
    const std::uint16_t* low = nullptr;   ///< least disparity that fits; above `high`: none does
    const std::uint16_t* high = nullptr;  ///< greatest
    const std::uint8_t* value = nullptr;  ///< what a pixel that fits is
};

/// Labels every pixel that was measured and fits; ground does not where it is saturated. The rest
/// is not sure. The same bits on every CPU.
void paintMapRow(const MapRow& row, std::uint8_t* out);

/// The plain form, the truth for tests.
void paintMapRowReference(const MapRow& row, std::uint8_t* out);

}  // namespace kova::camera
