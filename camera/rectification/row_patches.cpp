#include "camera/rectification/row_patches.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

constexpr int kWidth = 16, kHeight = 12;  // of a patch [px]
constexpr int kSure = kConfidenceScale * 8 / 10;
constexpr int kGrey = 8;  // steps of a grey level: sums of products of a patch fit 32 bits
constexpr float kReachSideways = 2;
constexpr float kLargestDeviation = 0.25F;  // [px], of a sample
constexpr float kFloorDeviation = 0.05F;    // [px], what interpolation costs at best
constexpr int kMostSteps = 4;

/// A patch with a border of one pixel, in 1/kGrey grey levels.
struct Patch {
    std::int16_t grey[kHeight + 2][kWidth + 2];
};

/// A surface near a pixel: disparity and how it grows [px].
struct Slant {
    float disparity, right, down;
};

std::uint32_t mixed(std::uint32_t v) {
    v ^= v >> 16U;
    v *= 0x7feb352dU;
    v ^= v >> 15U;
    v *= 0x846ca68bU;
    return v ^ v >> 16U;
}

/// The surface at a pixel where a patch shows one surface only.
bool findSlant(const DisparityMap& map, int x, int y, Slant& slant) {
    constexpr int kAcross = kWidth / 2 - 1, kUp = kHeight / 2 - 1;
    const auto sure = [&](int at_x, int at_y, float& px) {
        const std::uint16_t d = map.disparity.at(at_x, at_y);
        const std::uint8_t confidence = map.confidence.at(at_x, at_y);
        px = static_cast<float>(d) / kDisparityScale;
        return isDisparity(d) && confidence >= kSure && confidence <= kConfidenceScale;
    };
    float left, right, top, bottom;
    if (!sure(x, y, slant.disparity) || !sure(x - kAcross, y, left) ||
        !sure(x + kAcross, y, right) || !sure(x, y - kUp, top) || !sure(x, y + kUp, bottom))
        return false;
    slant.right = (right - left) / (2 * kAcross);
    slant.down = (bottom - top) / (2 * kUp);
    constexpr float kBent = 1, kSteep = 0.35F;
    return std::abs(left + right - 2 * slant.disparity) < kBent &&
           std::abs(top + bottom - 2 * slant.disparity) < kBent && std::abs(slant.right) < kSteep &&
           std::abs(slant.down) < kSteep;
}

void cutOut(const ImageView<const std::uint8_t>& left, int x, int y, Patch& patch) {
    for (int r = 0; r < kHeight + 2; ++r) {
        const std::uint8_t* row = &left.at(x - kWidth / 2 - 1, y - kHeight / 2 - 1 + r);
        for (int c = 0; c < kWidth + 2; ++c)
            patch.grey[r][c] = static_cast<std::int16_t>(row[c] * kGrey);
    }
}

/// What the right picture shows of the patch around (x, y), moved by (u, v); bilinear.
bool cutOutMoved(const ImageView<const std::uint8_t>& right, int x, int y, const Slant& slant,
                 float u, float v, Patch& patch) {
    constexpr int kOne = 1 << 16, kShift = 10;  // positions in 1/65536, fractions in 1/64
    const auto fixed = [](float value) {
        return static_cast<int>(std::floor(value * kOne + 0.5F));
    };
    const int step = kOne - fixed(slant.right);
    const int top = ((y - kHeight / 2 - 1) << 16) + fixed(v);
    const int y0 = top >> 16;
    const int fy = (top & (kOne - 1)) >> kShift;
    if (y0 < 0 || y0 + kHeight + 2 >= right.height)
        return false;
    for (int r = 0; r < kHeight + 2; ++r) {
        const float disparity =
            slant.disparity - (kWidth / 2 + 1) * slant.right + (r - kHeight / 2 - 1) * slant.down;
        const int first = ((x - kWidth / 2 - 1) << 16) + fixed(u - disparity);
        const int last = first + (kWidth + 1) * step;
        if (std::min(first, last) < 0 || std::max(first, last) >> 16 >= right.width - 1)
            return false;
        const std::uint8_t* row = right.row(y0 + r);
        const std::uint8_t* below = right.row(y0 + r + 1);
        for (int c = 0; c < kWidth + 2; ++c) {
            const int at = first + c * step;
            const int x0 = at >> 16;
            const int fx = (at & (kOne - 1)) >> kShift;
            const int above = row[x0] * (64 - fx) + row[x0 + 1] * fx;
            const int under = below[x0] * (64 - fx) + below[x0 + 1] * fx;
            patch.grey[r][c] =
                static_cast<std::int16_t>((above * (64 - fy) + under * fy + 256) >> 9);
        }
    }
    return true;
}

/// Sums over a patch: of both greys, their gradients (differences of the neighbours on both sides)
/// and products of these.
struct Sums {
    int l = 0, r = 0, ll = 0, rr = 0, lr = 0;
    int lx = 0, ly = 0, rx = 0, ry = 0;
    int lx_l = 0, lx_r = 0, ly_l = 0, ly_r = 0, rx_l = 0, rx_r = 0, ry_l = 0, ry_r = 0;
    int lx_rx = 0, lx_ry = 0, ly_rx = 0, ly_ry = 0;
};

Sums sumsOf(const Patch& left, const Patch& right) {
    Sums s;
    for (int y = 1; y <= kHeight; ++y)
        for (int x = 1; x <= kWidth; ++x) {
            const int l = left.grey[y][x], r = right.grey[y][x];
            const int lx = left.grey[y][x + 1] - left.grey[y][x - 1];
            const int ly = left.grey[y + 1][x] - left.grey[y - 1][x];
            const int rx = right.grey[y][x + 1] - right.grey[y][x - 1];
            const int ry = right.grey[y + 1][x] - right.grey[y - 1][x];
            s.l += l, s.r += r, s.ll += l * l, s.rr += r * r, s.lr += l * r;
            s.lx += lx, s.ly += ly, s.rx += rx, s.ry += ry;
            s.lx_l += lx * l, s.lx_r += lx * r, s.ly_l += ly * l, s.ly_r += ly * r;
            s.rx_l += rx * l, s.rx_r += rx * r, s.ry_l += ry * l, s.ry_r += ry * r;
            s.lx_rx += lx * rx, s.lx_ry += lx * ry, s.ly_rx += ly * rx, s.ly_ry += ly * ry;
        }
    return s;
}

/// One Gauss-Newton step.
struct Step {
    float u = 0, v = 0;      ///< [px]
    float variance_px2 = 0;  ///< of v
};

bool findStep(const Sums& s, Step& step) {
    constexpr double kCount = kWidth * kHeight;
    const auto about = [](int product, int a, int b) {
        return product - static_cast<double>(a) * b / kCount;
    };
    const double ll = about(s.ll, s.l, s.l), rr = about(s.rr, s.r, s.r), lr = about(s.lr, s.l, s.r);
    constexpr double kFlat = kCount * kGrey * kGrey;  // a grey level of contrast
    if (ll < kFlat || rr < kFlat || lr < 0.7 * std::sqrt(ll * rr))
        return false;
    const double gain = std::sqrt(rr / ll);
    // Gradients are halves of the differences; those of the left picture have the gain in them.
    const double xx = 0.25 * gain * about(s.lx_rx, s.lx, s.rx);
    const double yy = 0.25 * gain * about(s.ly_ry, s.ly, s.ry);
    const double xy = 0.125 * gain * (about(s.lx_ry, s.lx, s.ry) + about(s.ly_rx, s.ly, s.rx));
    const double x =
        0.25 * (gain * gain * about(s.lx_l, s.lx, s.l) + gain * about(s.rx_l, s.rx, s.l) -
                gain * about(s.lx_r, s.lx, s.r) - about(s.rx_r, s.rx, s.r));
    const double y =
        0.25 * (gain * gain * about(s.ly_l, s.ly, s.l) + gain * about(s.ry_l, s.ry, s.l) -
                gain * about(s.ly_r, s.ly, s.r) - about(s.ry_r, s.ry, s.r));
    if (xx <= 0 || yy <= 0)
        return false;
    // What is known of v when u is free.
    const double information = yy - xy * xy / xx;
    if (information <= 0.05 * yy)
        return false;
    const double v = (y - xy / xx * x) / information;
    const double u = (x - xy * v) / xx;
    const double difference = gain * gain * ll + rr - 2 * gain * lr;
    const double left_over = std::max(difference - (x * u + y * v), 0.0) / (kCount - 4);
    step.u = static_cast<float>(u);
    step.v = static_cast<float>(v);
    step.variance_px2 = static_cast<float>(left_over / information);
    return true;
}

RowSample measurePatch(const ImageView<const std::uint8_t>& left,
                       const ImageView<const std::uint8_t>& right, const DisparityMap& map, int x,
                       int y) {
    Slant slant{};
    if (!findSlant(map, x, y, slant))
        return {};
    Patch here, there;
    cutOut(left, x, y, here);
    float u = 0, v = 0;
    for (int i = 0; i < kMostSteps; ++i) {
        Step step;
        if (!cutOutMoved(right, x, y, slant, u, v, there) || !findStep(sumsOf(here, there), step))
            return {};
        u += step.u;
        v += step.v;
        if (std::abs(u) > kReachSideways || std::abs(v) > RowPatches::kReachPx ||
            step.variance_px2 > kLargestDeviation * kLargestDeviation)
            return {};
        constexpr float kNear = 0.1F;
        if (std::abs(step.u) > kNear || std::abs(step.v) > kNear)
            continue;
        RowSample sample;
        sample.left_x = static_cast<float>(x);
        sample.x = static_cast<float>(x) - slant.disparity + u;
        sample.y = static_cast<float>(y);
        sample.offset_px = v;
        sample.variance_px2 = step.variance_px2 + kFloorDeviation * kFloorDeviation;
        return sample;
    }
    return {};
}

}  // namespace

const std::vector<RowSample>& RowPatches::measure(const ImageView<const std::uint8_t>& left,
                                                  const ImageView<const std::uint8_t>& right,
                                                  const DisparityMap& map, std::uint32_t round) {
    KOVA_DCHECK(left.width == right.width && left.height == right.height);
    KOVA_DCHECK(map.disparity.width() == left.width && map.disparity.height() == left.height);
    // Room for the patch, its border, and the pixel that interpolation reads beyond.
    constexpr int kMarginX = kWidth / 2 + 2, kMarginY = kHeight / 2 + 2;
    const int free_x = left.width - 2 * kMarginX, free_y = left.height - 2 * kMarginY;
    samples_.clear();
    if (free_x < 1 || free_y < 1)
        return samples_;
    const int columns = std::clamp(left.width / kWidth, 1, kMostColumns);
    const int rows = std::clamp(left.height / kHeight, 1, kMostRows);
    cells_.resize(static_cast<std::size_t>(columns) * rows);
    samples_.reserve(cells_.size());
    parallelFor(rows, [&](int row) {
        for (int column = 0; column < columns; ++column) {
            const int cell = row * columns + column;
            const std::uint32_t chance = mixed(round * 0x9e3779b9U + static_cast<unsigned>(cell));
            // Anywhere in its cell.
            const auto place = [](int i, int count, int free, std::uint32_t random) {
                const int begin = free * i / count,
                          end = std::max(begin + 1, free * (i + 1) / count);
                return begin + static_cast<int>(random % static_cast<unsigned>(end - begin));
            };
            cells_[static_cast<std::size_t>(cell)] = measurePatch(
                left, right, map, kMarginX + place(column, columns, free_x, chance & 0xFFFFU),
                kMarginY + place(row, rows, free_y, chance >> 16U));
        }
    });
    for (const RowSample& cell : cells_)
        if (cell.variance_px2 > 0)
            samples_.push_back(cell);
    return samples_;
}

}  // namespace kova::camera
