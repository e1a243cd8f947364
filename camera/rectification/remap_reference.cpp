#include "camera/rectification/remap_reference.h"

#include <algorithm>

namespace kova::camera {

void remapRowReference(const RemapTable& table, const ImageView<const std::uint8_t>& source, int y,
                       int begin, int end, std::uint8_t* out) {
    for (int x = begin; x < end; ++x) {
        const int x0 = static_cast<int>(table.positions(y)[x] & 0xFFFFU);
        const int y0 = static_cast<int>(table.positions(y)[x] >> 16U);
        const int fx = table.fractions(y)[x] & 0xFF;
        const int fy = table.fractions(y)[x] >> 8;
        const int x1 = std::min(x0 + 1, source.width - 1);
        const int y1 = std::min(y0 + 1, source.height - 1);
        const auto column = [&](int at) {
            return (source.at(at, y0) * (RemapTable::kOne - fy) + source.at(at, y1) * fy + 8) >> 4;
        };
        out[x] = static_cast<std::uint8_t>(
            (column(x0) * (RemapTable::kOne - fx) + column(x1) * fx + 128) >> 8);
    }
}

void remapReference(const RemapTable& table, const ImageView<const std::uint8_t>& source,
                    Image<std::uint8_t>& out) {
    out.resize(table.width(), table.height());
    for (int y = 0; y < table.height(); ++y)
        remapRowReference(table, source, y, 0, table.width(), out.row(y));
}

}  // namespace kova::camera
