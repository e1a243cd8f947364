#include "camera/detection/photometric.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "camera/base/check.h"
#include "camera/detection/photometric_kernel.h"

namespace kova::camera {

namespace {

constexpr int kShifts[] = {-10, -5, 0, 5, 10};  // [1/16 px]
constexpr int kFarShifts[] = {24, 32, 44, 58, 74, 100, 128};
constexpr int kMostShift = 128;
constexpr int kMostRowsElsewhere = 12;
constexpr int kMinPixels = 8;
constexpr float kLeastVariance = 1e-3f;

/// What sums tell [grey levels^2].
struct Moments {
    double left, right, both;

    explicit Moments(const PatchSums& sums)
        : left(covariance(sums.n, sums.pp, sums.p, sums.p)),
          right(covariance(sums.n, sums.qq, sums.q, sums.q)),
          both(covariance(sums.n, sums.pq, sums.p, sums.q)) {}
    double residual() const { return left + right - 2 * both; }

private:
    static double covariance(std::int64_t n, std::int64_t xy, std::int64_t x, std::int64_t y) {
        return (static_cast<double>(n) * static_cast<double>(xy) -
                static_cast<double>(x) * static_cast<double>(y)) /
               (256.0 * static_cast<double>(n) * static_cast<double>(n));
    }
};

/// The two pictures, where a patch is.
struct Patch {
    const ImageView<const std::uint8_t>& left;
    const ImageView<const std::uint8_t>& right;
    int x_begin, x_end;

    /// A row's pixels that lie inside both pictures.
    PatchRow row(int y, int d16) const {
        // x - d = x + whole + part / 16
        const int whole = -((d16 + 15) >> 4);
        PatchRow row;
        row.part = -d16 - 16 * whole;
        const int first = std::max(x_begin, -whole);
        row.pixels = std::max(0, std::min(x_end, left.width - 1 - whole) - first);
        row.left = left.row(y) + first;
        row.right = right.row(y) + first + whole;
        return row;
    }
};

}  // namespace

void photometricFit(const ImageView<const std::uint8_t>& left,
                    const ImageView<const std::uint8_t>& right, int x_begin, int x_end,
                    const RowHypothesis* rows, int count, bool elsewhere, PhotometricFit& fit) {
    KOVA_DCHECK(count <= kMostPatchRows);
    fit = PhotometricFit();
    const Patch patch{left, right, x_begin, x_end};
    // Whole vectors would be read from beyond the rows.
    const auto sumsOf =
        x_end + kPatchOverread + kMostShift / 16 < left.width ? patchSums : patchSumsReference;
    PatchRow alone[kMostPatchRows], compared[kMostPatchRows];
    for (const int shift : kShifts) {
        int n_alone = 0, n_compared = 0;
        for (int i = 0; i < count; ++i)
            (rows[i].compared ? compared[n_compared++] : alone[n_alone++]) =
                patch.row(rows[i].y, rows[i].d16 + shift);
        const PatchSums second = sumsOf(compared, n_compared);
        PatchSums all = sumsOf(alone, n_alone);
        all.add(second);
        if (all.n < kMinPixels)
            continue;
        const Moments moments(all);
        const auto residual = static_cast<float>(moments.residual());
        if (fit.pixels > 0 && residual >= fit.residual)
            continue;
        fit.pixels = static_cast<int>(all.n);
        fit.residual = residual;
        fit.variance = static_cast<float>(moments.left);
        fit.correlation = static_cast<float>(
            moments.both / std::sqrt(std::max(0.0, moments.left * moments.right) + kLeastVariance));
        fit.compared_pixels = static_cast<int>(second.n);
        fit.compared_residual =
            second.n >= kMinPixels ? static_cast<float>(Moments(second).residual()) : 0;
    }
    if (!elsewhere || fit.pixels == 0)
        return;
    const int step = (count + kMostRowsElsewhere - 1) / kMostRowsElsewhere;
    fit.elsewhere_residual = -1;
    for (const int far : kFarShifts) {
        for (const int shift : {-far, far}) {
            int n = 0;
            for (int i = 0; i < count; i += step)
                alone[n++] = patch.row(rows[i].y, rows[i].d16 + shift);
            const PatchSums sums = sumsOf(alone, n);
            if (sums.n < kMinPixels)
                continue;
            const auto residual = static_cast<float>(Moments(sums).residual());
            if (fit.elsewhere_residual < 0 || residual < fit.elsewhere_residual)
                fit.elsewhere_residual = residual;
        }
    }
    fit.elsewhere_residual = std::max(0.0f, fit.elsewhere_residual);
}

}  // namespace kova::camera
