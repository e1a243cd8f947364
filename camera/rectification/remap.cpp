#include "camera/rectification/remap.h"

#include <algorithm>
#include <limits>

#include "camera/base/parallel.h"
#include "camera/rectification/remap_reference.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/rectification/remap.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR

/// A vector of one lane cannot be split into halves; the reference does all the work.
int remapRowImpl(const std::uint32_t*, const std::uint16_t*, const std::uint8_t*, int, int,
                 std::uint8_t*) {
    return 0;
}

#else

/// The first two bytes of each lane, as two 16-bit numbers.
template <class D, class V>
HWY_INLINE hn::Vec<hn::Repartition<std::uint16_t, D>> firstTwoBytes(D d32, V v) {
    const auto first = hn::And(v, hn::Set(d32, 0xFFU));
    const auto second = hn::And(hn::ShiftLeft<8>(v), hn::Set(d32, 0xFF0000U));
    return hn::BitCast(hn::Repartition<std::uint16_t, D>(), hn::Or(first, second));
}

/// As many whole vectors of a row as there are; returns where they end.
int remapRowImpl(const std::uint32_t* HWY_RESTRICT positions,
                 const std::uint16_t* HWY_RESTRICT fractions,
                 const std::uint8_t* HWY_RESTRICT source, int stride, int width,
                 std::uint8_t* HWY_RESTRICT out) {
    const hn::ScalableTag<std::uint32_t> d32;
    const hn::Repartition<std::uint16_t, decltype(d32)> d16;
    const hn::RebindToSigned<decltype(d32)> di32;
    const hn::Rebind<std::uint16_t, decltype(d32)> d16_half;
    const hn::Rebind<std::uint8_t, decltype(d32)> d8_quarter;
    const int lanes = static_cast<int>(hn::Lanes(d32));
    const auto low_half = hn::Set(d32, 0xFFFFU);
    const auto low_byte = hn::Set(d32, 0xFFU);
    const auto row_bytes = hn::Set(d32, static_cast<std::uint32_t>(stride));
    const auto* base = reinterpret_cast<const std::uint32_t*>(source);

    int x = 0;
    for (; x + lanes <= width; x += lanes) {
        const auto position = hn::LoadU(d32, positions + x);
        const auto offset =
            hn::Add(hn::Mul(hn::ShiftRight<16>(position), row_bytes), hn::And(position, low_half));
        const auto above =
            firstTwoBytes(d32, hn::GatherOffset(d32, base, hn::BitCast(di32, offset)));
        const auto below = firstTwoBytes(
            d32, hn::GatherOffset(d32, base, hn::BitCast(di32, hn::Add(offset, row_bytes))));

        const auto fraction = hn::PromoteTo(d32, hn::LoadU(d16_half, fractions + x));
        const auto fx = hn::BitCast(d16, hn::And(fraction, low_byte));
        const auto fy_once = hn::ShiftRight<8>(fraction);
        const auto fy = hn::BitCast(d16, hn::Or(fy_once, hn::ShiftLeft<16>(fy_once)));

        // a * (64 - f) + b * f = 64 a + (b - a) f: the difference may wrap around, the sum fits.
        const auto columns = hn::ShiftRight<4>(hn::Add(
            hn::Add(hn::ShiftLeft<6>(above), hn::Mul(hn::Sub(below, above), fy)), hn::Set(d16, 8)));
        const auto second = hn::BitCast(d16, hn::ShiftRight<16>(hn::BitCast(d32, columns)));
        const auto result = hn::ShiftRight<8>(
            hn::Add(hn::Add(hn::ShiftLeft<6>(columns), hn::Mul(hn::Sub(second, columns), fx)),
                    hn::Set(d16, 128)));
        const auto grey = hn::And(hn::BitCast(d32, result), low_byte);
        hn::StoreU(hn::DemoteTo(d8_quarter, hn::BitCast(di32, grey)), d8_quarter, out + x);
    }
    return x;
}

#endif

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

namespace {

HWY_EXPORT(remapRowImpl);

/// Rows of one task; small enough that two threads end at nearly the same time.
constexpr int kBandRows = 16;

int bandCount(const RemapTable& table) {
    return (table.height() + kBandRows - 1) / kBandRows;
}

void remapBand(const RemapTable& table, const ImageView<const std::uint8_t>& source, int band,
               Image<std::uint8_t>& out) {
    const int width = table.width();
    const int end = std::min(table.height(), (band + 1) * kBandRows);
    // Offsets are 32-bit; no real picture is that large, but a view could have any stride.
    const bool offsets_fit = source.stride >= 0 && source.stride * (table.sourceHeight() + 1) <
                                                       std::numeric_limits<std::int32_t>::max();
    const auto kernel = HWY_DYNAMIC_DISPATCH(remapRowImpl);
    for (int y = band * kBandRows; y < end; ++y) {
        int x = 0;
        if (offsets_fit && table.readsFourBytes(y))
            x = kernel(table.positions(y), table.fractions(y), source.data,
                       static_cast<int>(source.stride), width, out.row(y));
        remapRowReference(table, source, y, x, width, out.row(y));
    }
}

/// The four channels of a pixel in 16 bits each.
std::uint64_t spread(const Rgba& p) {
    return static_cast<std::uint64_t>(p.r) | static_cast<std::uint64_t>(p.g) << 16U |
           static_cast<std::uint64_t>(p.b) << 32U | static_cast<std::uint64_t>(p.a) << 48U;
}

void remapColourRow(const RemapTable& table, const ImageView<const Rgba>& source, int y,
                    Rgba* out) {
    constexpr std::uint64_t kEach = 0x0001000100010001U;
    const std::uint32_t* positions = table.positions(y);
    const std::uint16_t* fractions = table.fractions(y);
    for (int x = 0; x < table.width(); ++x) {
        const int x0 = static_cast<int>(positions[x] & 0xFFFFU);
        const int y0 = static_cast<int>(positions[x] >> 16U);
        const int x1 = std::min(x0 + 1, source.width - 1);
        const int y1 = std::min(y0 + 1, source.height - 1);
        const std::uint64_t fx = fractions[x] & 0xFFU;
        const std::uint64_t fy = static_cast<std::uint64_t>(fractions[x]) >> 8U;
        // No channel overflows its 16 bits: 255 * 64 * 4 + 128 < 65536.
        const auto column = [&](int at) {
            const std::uint64_t sum = spread(source.at(at, y0)) * (RemapTable::kOne - fy) +
                                      spread(source.at(at, y1)) * fy + 8 * kEach;
            return (sum >> 4U) & (kEach * 0xFFFU);
        };
        const std::uint64_t sum =
            column(x0) * (RemapTable::kOne - fx) + column(x1) * fx + 128 * kEach;
        out[x] = {static_cast<std::uint8_t>(sum >> 8U), static_cast<std::uint8_t>(sum >> 24U),
                  static_cast<std::uint8_t>(sum >> 40U), static_cast<std::uint8_t>(sum >> 56U)};
    }
}

}  // namespace

void remap(const RemapTable& table, const ImageView<const std::uint8_t>& source,
           Image<std::uint8_t>& out) {
    KOVA_DCHECK(source.width == table.sourceWidth() && source.height == table.sourceHeight());
    out.resize(table.width(), table.height());
    parallelFor(bandCount(table), [&](int band) { remapBand(table, source, band, out); });
}

void remapPair(const RemapTable& left_table, const ImageView<const std::uint8_t>& left,
               Image<std::uint8_t>& left_out, const RemapTable& right_table,
               const ImageView<const std::uint8_t>& right, Image<std::uint8_t>& right_out) {
    KOVA_DCHECK(left.width == left_table.sourceWidth() && left.height == left_table.sourceHeight());
    KOVA_DCHECK(right.width == right_table.sourceWidth() &&
                right.height == right_table.sourceHeight());
    left_out.resize(left_table.width(), left_table.height());
    right_out.resize(right_table.width(), right_table.height());
    const int left_bands = bandCount(left_table);
    parallelFor(left_bands + bandCount(right_table), [&](int band) {
        if (band < left_bands)
            remapBand(left_table, left, band, left_out);
        else
            remapBand(right_table, right, band - left_bands, right_out);
    });
}

void remap(const RemapTable& table, const ImageView<const Rgba>& source, Image<Rgba>& out) {
    KOVA_DCHECK(source.width == table.sourceWidth() && source.height == table.sourceHeight());
    out.resize(table.width(), table.height());
    parallelFor(bandCount(table), [&](int band) {
        const int end = std::min(table.height(), (band + 1) * kBandRows);
        for (int y = band * kBandRows; y < end; ++y) remapColourRow(table, source, y, out.row(y));
    });
}

}  // namespace kova::camera
#endif  // HWY_ONCE
