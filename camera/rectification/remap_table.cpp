#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"
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
    setFixed(x, y, fixed(source_x, source_width_), fixed(source_y, source_height_));
}

void RemapTable::setFixed(int x, int y, int source_x, int source_y) {
    const int fx = std::clamp(source_x, 0, (source_width_ - 1) * kOne);
    const int fy = std::clamp(source_y, 0, (source_height_ - 1) * kOne);
    const int x0 = std::min(fx / kOne, std::max(0, source_width_ - 2));
    const int y0 = std::min(fy / kOne, std::max(0, source_height_ - 2));
    position_.at(x, y) = static_cast<std::uint32_t>(x0) | static_cast<std::uint32_t>(y0) << 16U;
    fraction_.at(x, y) = static_cast<std::uint16_t>((fx - x0 * kOne) | (fy - y0 * kOne) << 8);
    if (y0 + 2 >= source_height_ && x0 + 4 > source_width_)
        reads_four_bytes_[static_cast<std::size_t>(y)] = 0;
}

void RemapTable::forgetEnds(int y) {
    reads_four_bytes_[static_cast<std::size_t>(y)] = source_width_ >= 4 && source_height_ >= 2;
}

void moveRows(const RemapTable& base, const RowOffset& offset, RemapTable& out) {
    KOVA_DCHECK(out.width() == base.width() && out.height() == base.height());
    // Lenses bend so little over a few pixels that the slope of the table itself says where its
    // neighbours lie; over more of them its rounding is averaged out.
    constexpr int kReach = 8;
    const int width = base.width(), height = base.height();
    parallelFor(height, [&](int y) {
        out.forgetEnds(y);
        const int above = std::max(y - kReach, 0), below = std::min(y + kReach, height - 1);
        const float per_row = 1.0F / static_cast<float>(std::max(below - above, 1));
        const auto sideways = static_cast<float>(offset.sideways(y));
        const auto first = static_cast<float>(offset.at(0, y));
        const auto step =
            static_cast<float>(offset.at(width, y) - offset.at(0, y)) / static_cast<float>(width);
        // As by floor(v + 0.5), of what is far from the ends of the range.
        const auto rounded = [](float v) {
            constexpr int kAbove = 4096;
            return static_cast<int>(v + (kAbove + 0.5F)) - kAbove;
        };
        for (int x = 0; x < width; ++x) {
            const int before = std::max(x - kReach, 0), after = std::min(x + kReach, width - 1);
            const float down = (first + step * static_cast<float>(x)) * per_row;
            const float right = sideways / static_cast<float>(std::max(after - before, 1));
            const auto moved = [&](int at, int from_x, int to_x, int from_y, int to_y) {
                return at + rounded(right * static_cast<float>(to_x - from_x) +
                                    down * static_cast<float>(to_y - from_y));
            };
            out.setFixed(x, y,
                         moved(base.fixedX(x, y), base.fixedX(before, y), base.fixedX(after, y),
                               base.fixedX(x, above), base.fixedX(x, below)),
                         moved(base.fixedY(x, y), base.fixedY(before, y), base.fixedY(after, y),
                               base.fixedY(x, above), base.fixedY(x, below)));
        }
    });
}

}  // namespace kova::camera
