#pragma once

#include "camera/base/image.h"

namespace kova::camera {

/// `over` laid on `under` with an opacity of alpha / 256, 0..256.
inline Rgba blend(Rgba under, Rgba over, int alpha) {
    const auto mix = [alpha](int p, int q) {
        return static_cast<std::uint8_t>(p + (((q - p) * alpha) >> 8));
    };
    return {mix(under.r, over.r), mix(under.g, over.g), mix(under.b, over.b), 255};
}

/// Fills the pixels [x_begin, x_end) x [y_begin, y_end), cut to the picture.
void fillRect(const ImageView<Rgba>& out, int x_begin, int y_begin, int x_end, int y_end,
              Rgba colour, int alpha = 256);

/// A filled, anti-aliased disc.
void drawDisc(const ImageView<Rgba>& out, float x, float y, float radius, Rgba colour);

/// An anti-aliased straight line across the whole picture, y = y_left at x = 0 to y_right at
/// x = width - 1. Only for lines flatter than 45 degrees.
void drawFlatLine(const ImageView<Rgba>& out, float y_left, float y_right, float thickness,
                  Rgba colour);

/// Colour for a distance: red at 1 m over yellow and green to blue at 40 m, even in its logarithm.
Rgba distanceColour(float distance_mm);

/// The grey or colour picture as RGBA.
void copyPicture(const ImageView<const std::uint8_t>& grey, const ImageView<const Rgba>& colour,
                 const ImageView<Rgba>& out);

}  // namespace kova::camera
