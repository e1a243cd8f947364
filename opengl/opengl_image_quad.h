#pragma once

namespace kova {

/// Half sizes, in normalised device units, of a quad that keeps an image's aspect ratio.
struct QuadExtents {
    float horizontal = 1;
    float vertical = 1;
};

/// Fits an image into a viewport; a view of width or height -1 is filled.
QuadExtents fitQuad(int image_width, int image_height, int view_width, int view_height);

/// Draws the bound texture as a quad, its first row at the top, and unbinds it.
void drawTexturedQuad(const QuadExtents& extents);

}  // namespace kova
