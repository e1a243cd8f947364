#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/image.h"
#include "camera/rectification/row_offset.h"

namespace kova::camera {

/// Where each pixel of a warped picture comes from, in fixed point.
///
/// Positions have kRemapFractionBits fractional bits. A position outside of the source picture is
/// moved to its edge when it is set. For a source of at least 2 x 2 px the four pixels around a
/// position lie inside: on the last column or row, the fraction is 1 instead of the next whole
/// number.
class RemapTable {
public:
    static constexpr int kFractionBits = 6;
    static constexpr int kOne = 1 << kFractionBits;

    RemapTable() = default;
    /// @param width, height                size of the warped picture
    /// @param source_width, source_height  at most 16384 each
    RemapTable(int width, int height, int source_width, int source_height);

    int width() const { return position_.width(); }
    int height() const { return position_.height(); }
    int sourceWidth() const { return source_width_; }
    int sourceHeight() const { return source_height_; }

    /// Pixel (x, y) of the warped picture comes from (source_x, source_y), whole numbers at the
    /// pixels' centres. Different rows may be set from different threads.
    void set(int x, int y, double source_x, double source_y);

    /// Before a row is set again.
    void forgetEnds(int y);
    /// The same in 1/kOne px.
    void setFixed(int x, int y, int source_x, int source_y);
    int fixedX(int x, int y) const {
        return static_cast<int>(position_.at(x, y) & 0xFFFFU) * kOne + (fraction_.at(x, y) & 0xFF);
    }
    int fixedY(int x, int y) const {
        return static_cast<int>(position_.at(x, y) >> 16U) * kOne + (fraction_.at(x, y) >> 8);
    }

    /// Whole parts of a row: x in the low, y in the high 16 bits.
    const std::uint32_t* positions(int y) const { return position_.row(y); }
    /// Fractions of a row in 1/kOne, 0 to kOne: that of x in the low, that of y in the high 8 bits.
    const std::uint16_t* fractions(int y) const { return fraction_.row(y); }
    /// No pixel of this row lies so close to the end of the source picture that reading four bytes
    /// at a position, or at the one below it, would leave the picture.
    bool readsFourBytes(int y) const { return reads_four_bytes_[y] != 0; }

private:
    Image<std::uint32_t> position_;
    Image<std::uint16_t> fraction_;
    std::vector<std::uint8_t> reads_four_bytes_;
    int source_width_ = 0;
    int source_height_ = 0;
};

/// The table of the right eye's picture with its rows aligned: what it shows at (x, y) is what
/// `base` shows at (x + offset.sideways(y), y + offset.at(x, y)).
///
/// @param out  set up like `base`, which it must not be; to 1/64 px
void moveRows(const RemapTable& base, const RowOffset& offset, RemapTable& out);

/// Warps a grey picture, bilinear:
///   column(x) = (source(x, y0) * (64 - fy) + source(x, y0 + 1) * fy + 8) / 16
///   result    = (column(x0) * (64 - fx) + column(x0 + 1) * fx + 128) / 256
///
/// @param source  of the table's source size; any stride
/// @param out     resized to the table's size
/// @note Bit-identical to remapReference() on every CPU and for every number of threads.
void remap(const RemapTable& table, const ImageView<const std::uint8_t>& source,
           Image<std::uint8_t>& out);

/// Two grey pictures at once, which keeps all threads busy to the end.
void remapPair(const RemapTable& left_table, const ImageView<const std::uint8_t>& left,
               Image<std::uint8_t>& left_out, const RemapTable& right_table,
               const ImageView<const std::uint8_t>& right, Image<std::uint8_t>& right_out);

/// The same for colour pictures, each channel as a grey picture; alpha is warped like the others.
void remap(const RemapTable& table, const ImageView<const Rgba>& source, Image<Rgba>& out);

}  // namespace kova::camera
