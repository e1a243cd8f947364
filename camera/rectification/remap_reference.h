#pragma once

#include "camera/rectification/remap.h"

namespace kova::camera {

/// What remap() computes, pixel by pixel; the truth for its kernels.
void remapReference(const RemapTable& table, const ImageView<const std::uint8_t>& source,
                    Image<std::uint8_t>& out);

/// One row of it, [begin, end).
void remapRowReference(const RemapTable& table, const ImageView<const std::uint8_t>& source, int y,
                       int begin, int end, std::uint8_t* out);

}  // namespace kova::camera
