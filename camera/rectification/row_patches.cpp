#include "camera/rectification/row_patches.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"

namespace kova::camera {

namespace {

constexpr int kWidth = 16, kHeight = 12;  // of a patch [px]
constexpr int kSure = kConfidenceScale * 6 / 10;
constexpr int kGrey = 8;  // steps of a grey level: sums of products of a patch fit 32 bits
constexpr float kReachSideways = 2;
constexpr float kLargestDeviation = 0.25F;  // [px], of a sample
constexpr float kFloorDeviation = 0.1F;     // [px], what interpolation and blur cost at best
constexpr int kMostSteps = 4;
constexpr float kSteep = 0.35F;  // of a surface, in px of disparity per px
/// Pixels of a row that a patch may need of the right picture.
constexpr int kWidestRow = static_cast<int>((kWidth + 1) * (1 + kSteep)) + 4;

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
    constexpr float kBent = 1;
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
        const int begin = first >> 16;
        const int end = ((first + (kWidth + 1) * step) >> 16) + 2;
        if (begin < 0 || end > right.width)
            return false;
        // Between the rows first, once for each pixel of them.
        std::int16_t between[kWidestRow];
        KOVA_DCHECK(end - begin <= kWidestRow);
        const std::uint8_t* row = right.row(y0 + r) + begin;
        const std::uint8_t* below = right.row(y0 + r + 1) + begin;
        for (int i = 0; i < end - begin; ++i)
            between[i] = static_cast<std::int16_t>(row[i] * (64 - fy) + below[i] * fy);
        for (int c = 0; c < kWidth + 2; ++c) {
            const int at = first - (begin << 16) + c * step;
            const int fx = (at & (kOne - 1)) >> kShift;
            const std::int16_t* here = between + (at >> 16);
            patch.grey[r][c] =
                static_cast<std::int16_t>((here[0] * (64 - fx) + here[1] * fx + 256) >> 9);
        }
    }
    return true;
}

/// Greys and gradients (differences of the neighbours on both sides) of a patch without its border.
struct Slopes {
    static constexpr int kCount = kWidth * kHeight;
    std::int16_t grey[kCount], x[kCount], y[kCount];

    explicit Slopes(const Patch& patch) {
        for (int r = 0; r < kHeight; ++r)
            for (int c = 0; c < kWidth; ++c) {
                const int i = r * kWidth + c;
                grey[i] = patch.grey[r + 1][c + 1];
                x[i] = static_cast<std::int16_t>(patch.grey[r + 1][c + 2] - patch.grey[r + 1][c]);
                y[i] = static_cast<std::int16_t>(patch.grey[r + 2][c + 1] - patch.grey[r][c + 1]);
            }
    }
};

int sum(const std::int16_t* a) {
    int out = 0;
    for (int i = 0; i < Slopes::kCount; ++i) out += a[i];
    return out;
}

int sum(const std::int16_t* a, const std::int16_t* b) {
    int out = 0;
    for (int i = 0; i < Slopes::kCount; ++i) out += a[i] * b[i];
    return out;
}

/// One Gauss-Newton step.
struct Step {
    float u = 0, v = 0;      ///< [px]
    float variance_px2 = 0;  ///< of v
};

bool findStep(const Slopes& left, const Slopes& right, Step& step) {
    constexpr double kCount = Slopes::kCount;
    const auto* l = left.grey;
    const auto* lx = left.x;
    const auto* ly = left.y;
    const auto* r = right.grey;
    const auto* rx = right.x;
    const auto* ry = right.y;
    const int of_l = sum(l), of_lx = sum(lx), of_ly = sum(ly);
    const int of_r = sum(r), of_rx = sum(rx), of_ry = sum(ry);
    // Products of what is left when the means are taken off.
    const auto about = [](const std::int16_t* a, int of_a, const std::int16_t* b, int of_b) {
        return sum(a, b) - static_cast<double>(of_a) * of_b / kCount;
    };
    const double ll = about(l, of_l, l, of_l), rr = about(r, of_r, r, of_r);
    const double lr = about(l, of_l, r, of_r);
    constexpr double kFlat = kCount * kGrey * kGrey;  // a grey level of contrast
    if (ll < kFlat || rr < kFlat || lr < 0.7 * std::sqrt(ll * rr))
        return false;
    const double gain = std::sqrt(rr / ll);
    // Gradients are halves of the differences; those of the left picture have the gain in them.
    const double xx = 0.25 * gain * about(lx, of_lx, rx, of_rx);
    const double yy = 0.25 * gain * about(ly, of_ly, ry, of_ry);
    const double xy = 0.125 * gain * (about(lx, of_lx, ry, of_ry) + about(ly, of_ly, rx, of_rx));
    const double x =
        0.25 * (gain * gain * about(lx, of_lx, l, of_l) + gain * about(rx, of_rx, l, of_l) -
                gain * about(lx, of_lx, r, of_r) - about(rx, of_rx, r, of_r));
    const double y =
        0.25 * (gain * gain * about(ly, of_ly, l, of_l) + gain * about(ry, of_ry, l, of_l) -
                gain * about(ly, of_ly, r, of_r) - about(ry, of_ry, r, of_r));
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
    const Slopes slopes(here);
    float u = 0, v = 0;
    for (int i = 0; i < kMostSteps; ++i) {
        Step step;
        if (!cutOutMoved(right, x, y, slant, u, v, there) || !findStep(slopes, Slopes(there), step))
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
