#include <algorithm>
#include <cmath>

#include "camera/rectification/remap.h"

namespace kova::camera {

RemapTable::RemapTable(int width, int height, int source_width, int source_height)
    : position_(width, height),
      fraction_(width, height),
      reads_four_bytes_(static_cast<std::size_t>(height), source_width >= 4 && source_height >= 2),
      source_width_(source_width),
      source_height_(source_height) {
    KOVA_DCHECK(source_width > 0 && source_height > 0);
    KOVA_DCHECK(source_width <= 16384 && source_height <= 16384);
}

void RemapTable::set(int x, int y, double source_x, double source_y) {
    const auto fixed = [](double position, int size) {
        // A position that is not a number would stay one: it goes to the first pixel.
        const double inside = position > 0 ? std::min(position, size - 1.0) : 0.0;
        return static_cast<int>(std::floor(inside * kOne + 0.5));
    };
    const int fx = fixed(source_x, source_width_);
    const int fy = fixed(source_y, source_height_);
    const int x0 = std::min(fx / kOne, std::max(0, source_width_ - 2));
    const int y0 = std::min(fy / kOne, std::max(0, source_height_ - 2));
    position_.at(x, y) = static_cast<std::uint32_t>(x0) | static_cast<std::uint32_t>(y0) << 16U;
    fraction_.at(x, y) = static_cast<std::uint16_t>((fx - x0 * kOne) | (fy - y0 * kOne) << 8);
    if (y0 + 2 >= source_height_ && x0 + 4 > source_width_)
        reads_four_bytes_[static_cast<std::size_t>(y)] = 0;
}

}  // namespace kova::camera
