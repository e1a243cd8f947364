#include "camera/detection/photometric.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kova::camera {

namespace {

constexpr int kShifts[] = {-10, -5, 0, 5, 10};  // [1/16 px]
constexpr int kFarShifts[] = {24, 32, 44, 58, 74, 100, 128};
constexpr int kMostRowsElsewhere = 12;
constexpr int kMinPixels = 8;
constexpr float kLeastVariance = 1e-3f;

/// Sums over pixels p of the left and q of the right picture, in 1/16 grey levels.
struct Sums {
    std::int64_t n = 0, p = 0, q = 0, pp = 0, qq = 0, pq = 0;

    void add(const Sums& other) {
        n += other.n, p += other.p, q += other.q;
        pp += other.pp, qq += other.qq, pq += other.pq;
    }
    /// Covariance [grey levels^2].
    double covariance(std::int64_t xy, std::int64_t x, std::int64_t y) const {
        return (static_cast<double>(n) * static_cast<double>(xy) -
                static_cast<double>(x) * static_cast<double>(y)) /
               (256.0 * static_cast<double>(n) * static_cast<double>(n));
    }
    double left() const { return covariance(pp, p, p); }
    double right() const { return covariance(qq, q, q); }
    double both() const { return covariance(pq, p, q); }
    double residual() const { return left() + right() - 2 * both(); }
};

/// Pixels of both pictures that belong together, side by side, until there are enough to be added
/// up at once: rows of a patch are shorter than a vector.
class PixelPairs {
public:
    /// Adds a row's pixels that lie inside both pictures.
    void add(const std::uint8_t* left, const std::uint8_t* right, int width, int x_begin, int x_end,
             int d16, Sums& sums) {
        // x - d = x + whole + part / 16
        const int whole = -((d16 + 15) >> 4);
        const int part = -d16 - 16 * whole;
        int first = std::max(x_begin, -whole);
        const int last = std::min(x_end, width - 1 - whole);
        while (first < last) {
            const int count = std::min(last - first, kMost - count_);
            const std::uint8_t* l = left + first;
            const std::uint8_t* r = right + first + whole;
            for (int i = 0; i < count; ++i) {
                p_[count_ + i] = static_cast<std::int16_t>(16 * l[i]);
                q_[count_ + i] = static_cast<std::int16_t>(r[i] * (16 - part) + r[i + 1] * part);
            }
            count_ += count;
            first += count;
            if (count_ == kMost)
                flush(sums);
        }
    }

    void flush(Sums& sums) {
        // Products of 16 bits that are added in 32: what every CPU has an instruction for.
        std::int32_t p = 0, q = 0, pp = 0, qq = 0, pq = 0;
        for (int i = 0; i < count_; ++i) {
            p += p_[i], q += q_[i];
            pp += p_[i] * p_[i], qq += q_[i] * q_[i], pq += p_[i] * q_[i];
        }
        sums.add({count_, p, q, pp, qq, pq});
        count_ = 0;
    }

private:
    static constexpr int kMost = 128;  ///< 128 * (16 * 255)^2 is below 2^31
    std::int16_t p_[kMost], q_[kMost];
    int count_ = 0;
};

}  // namespace

void photometricFit(const ImageView<const std::uint8_t>& left,
                    const ImageView<const std::uint8_t>& right, int x_begin, int x_end,
                    const RowHypothesis* rows, int count, bool elsewhere, PhotometricFit& fit) {
    fit = PhotometricFit();
    PixelPairs pairs, compared_pairs;
    for (const int shift : kShifts) {
        Sums all, compared;
        for (int i = 0; i < count; ++i) {
            const bool both = rows[i].compared;
            (both ? compared_pairs : pairs)
                .add(left.row(rows[i].y), right.row(rows[i].y), left.width, x_begin, x_end,
                     rows[i].d16 + shift, both ? compared : all);
        }
        pairs.flush(all);
        compared_pairs.flush(compared);
        all.add(compared);
        if (all.n < kMinPixels)
            continue;
        const auto residual = static_cast<float>(all.residual());
        if (fit.pixels > 0 && residual >= fit.residual)
            continue;
        fit.pixels = static_cast<int>(all.n);
        fit.residual = residual;
        fit.variance = static_cast<float>(all.left());
        fit.correlation = static_cast<float>(
            all.both() / std::sqrt(std::max(0.0, all.left() * all.right()) + kLeastVariance));
        fit.compared_pixels = static_cast<int>(compared.n);
        fit.compared_residual =
            compared.n >= kMinPixels ? static_cast<float>(compared.residual()) : 0;
    }
    if (!elsewhere || fit.pixels == 0)
        return;
    const int step = (count + kMostRowsElsewhere - 1) / kMostRowsElsewhere;
    fit.elsewhere_residual = -1;
    for (const int far : kFarShifts) {
        for (const int shift : {-far, far}) {
            Sums sums;
            for (int i = 0; i < count; i += step)
                pairs.add(left.row(rows[i].y), right.row(rows[i].y), left.width, x_begin, x_end,
                          rows[i].d16 + shift, sums);
            pairs.flush(sums);
            if (sums.n < kMinPixels)
                continue;
            const auto residual = static_cast<float>(sums.residual());
            if (fit.elsewhere_residual < 0 || residual < fit.elsewhere_residual)
                fit.elsewhere_residual = residual;
        }
    }
    fit.elsewhere_residual = std::max(0.0f, fit.elsewhere_residual);
}

}  // namespace kova::camera
