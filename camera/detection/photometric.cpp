#include "camera/detection/photometric.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kova::camera {

namespace {

constexpr int kShifts[] = {-10, -5, 0, 5, 10};  // [1/16 px]
constexpr int kFarShifts[] = {24, 32, 44, 58, 74, 100, 128};
constexpr int kMostRowsElsewhere = 24;
constexpr int kMinPixels = 8;
constexpr float kLeastVariance = 1e-3f;

/// Sums over pixels p of the left and q of the right picture, in 1/16 grey levels.
struct Sums {
    std::int64_t n = 0, p = 0, q = 0, pp = 0, qq = 0, pq = 0;

    void add(const Sums& other) {
        n += other.n, p += other.p, q += other.q;
        pp += other.pp, qq += other.qq, pq += other.pq;
    }
    /// n^2 times the covariance [grey levels^2].
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

Sums sumRow(const std::uint8_t* left, const std::uint8_t* right, int width, int x_begin, int x_end,
            int d16) {
    // x - d = x + whole + part / 16
    const int whole = -((d16 + 15) >> 4);
    const int part = -d16 - 16 * whole;
    const int first = std::max(x_begin, -whole);
    const int last = std::min(x_end, width - 1 - whole);
    std::uint32_t p = 0, q = 0, pp = 0, qq = 0, pq = 0;  // up to 258 pixels
    for (int x = first; x < last; ++x) {
        const std::uint32_t a = 16u * left[x];
        const std::uint32_t b = static_cast<std::uint32_t>(right[x + whole] * (16 - part) +
                                                           right[x + whole + 1] * part);
        p += a, q += b;
        pp += a * a, qq += b * b, pq += a * b;
    }
    Sums sums;
    sums.n = std::max(0, last - first);
    sums.p = p, sums.q = q, sums.pp = pp, sums.qq = qq, sums.pq = pq;
    return sums;
}

}  // namespace

void photometricFit(const ImageView<const std::uint8_t>& left,
                    const ImageView<const std::uint8_t>& right, int x_begin, int x_end,
                    const RowHypothesis* rows, int count, bool elsewhere, PhotometricFit& fit) {
    fit = PhotometricFit();
    for (const int shift : kShifts) {
        Sums all, compared;
        for (int i = 0; i < count; ++i) {
            const Sums sums = sumRow(left.row(rows[i].y), right.row(rows[i].y), left.width, x_begin,
                                     x_end, rows[i].d16 + shift);
            all.add(sums);
            if (rows[i].compared)
                compared.add(sums);
        }
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
                sums.add(sumRow(left.row(rows[i].y), right.row(rows[i].y), left.width, x_begin,
                                x_end, rows[i].d16 + shift));
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
