#include "camera/detection/stixel_features.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>

#include "camera/detection/photometric.h"

namespace kova::camera {

namespace {

constexpr float kNoise = 2;  ///< about the variance of the difference of two pixels [grey levels^2]
constexpr float kMinGroundDisparity = 0.3f;
constexpr float kUnknown = std::numeric_limits<float>::quiet_NaN();
constexpr int kLookBins = 3;  ///< rows of cells above and below a stixel that are looked at
constexpr int kMostSideRows = 12;
constexpr int kSideColumns = 3;    ///< that are looked at on either side
constexpr float kMinSideStep = 1;  ///< less beside a stixel is no other surface [px]

float compressed(float x) {
    return std::copysign(std::log1p(std::fabs(x)), x);
}

int sixteenths(float d) {
    return static_cast<int>(std::lround(d * kDisparityScale));
}

/// Where there is more noise than usual the same must come of the same agreement.
float logOf(const ComparedPictures& pictures, float variance) {
    return std::log(variance / pictures.noise() + kNoise);
}

void comparePictures(const StixelContext& context, const Stixel& stixel, StixelFeatures& features) {
    const ComparedPictures& pictures = *context.pictures;
    const bool has_ground = context.ground->state != GroundState::kLost;
    const double u = context.grid->centreX(stixel.column);
    const GroundModel ground = context.ground->model.inColumn(u);
    const float offset = static_cast<float>(context.geometry.disparityOffset());
    std::array<RowHypothesis, kMostPatchRows> upright;
    std::array<RowHypothesis, kMostPatchRows> lying;
    const int height = stixel.y_bottom - stixel.y_top;
    const int step = (height + kMostPatchRows - 1) / kMostPatchRows;
    int count = 0;
    int below_horizon = 0;
    for (int y = stixel.y_top; y < stixel.y_bottom; y += step) {
        RowHypothesis& row = upright[count++];
        row.y = y;
        row.d16 = sixteenths(stixel.disparity - offset);
        if (!has_ground)
            continue;
        const float s = static_cast<float>(ground.planeAt(u, y));
        if (s <= kMinGroundDisparity)
            continue;
        row.compared = true;
        lying[below_horizon++] = {y, sixteenths(ground.groundOf(s) - offset), true};
    }
    PhotometricFit as_is;
    photometricFit(pictures.left(), pictures.right(), stixel.x_begin, stixel.x_end, upright.data(),
                   count, true, as_is);
    features[kGroundPart] = static_cast<float>(below_horizon) / static_cast<float>(count);
    if (as_is.pixels == 0)
        return;
    features[kLogVariance] = logOf(pictures, as_is.variance);
    features[kLogResidual] = logOf(pictures, as_is.residual);
    features[kCorrelation] = as_is.correlation;
    features[kPeakLogRatio] =
        logOf(pictures, as_is.elsewhere_residual) - logOf(pictures, as_is.residual);
    PhotometricFit as_ground;
    photometricFit(pictures.left(), pictures.right(), stixel.x_begin, stixel.x_end, lying.data(),
                   below_horizon, false, as_ground);
    if (as_ground.pixels == 0 || as_is.compared_pixels == 0)
        return;
    features[kGroundCorrelation] = as_ground.correlation;
    features[kGroundLogRatio] =
        logOf(pictures, as_ground.residual) - logOf(pictures, as_is.compared_residual);
}

float median(float* values, int count) {
    std::nth_element(values, values + count / 2, values + count);
    return values[count / 2];
}

/// Median disparity of the measured cells of a column and of those beside it; 0 without any.
float seenIn(const CellGrid& grid, int column, int begin, int end) {
    std::array<float, 3 * kLookBins> seen;
    int count = 0;
    for (int c = std::max(0, column - 1); c < std::min(grid.columns(), column + 2); ++c)
        for (int bin = std::max(0, begin); bin < std::min(grid.bins(), end); ++bin)
            if (const std::size_t cell = grid.index(c, bin); grid.kind[cell] != CellKind::kEmpty)
                seen[count++] = grid.disparity[cell];
    return count > 0 ? median(seen.data(), count) : 0.0f;
}

/// What stands on its own ends above and below; what is a piece of rising ground goes on there.
void lookAround(const StixelContext& context, const Stixel& stixel, StixelFeatures& features) {
    const CellGrid& grid = *context.grid;
    const bool has_ground = context.ground->state != GroundState::kLost;
    const double u = grid.centreX(stixel.column);
    const GroundModel ground = context.ground->model.inColumn(u);
    const auto riseAt = [&](int bin, float d) {
        return ground.heightOver(static_cast<float>(ground.planeAt(u, grid.centreY(bin))), d);
    };
    const auto setRise = [&](float rise, StixelFeature absolute, StixelFeature part) {
        features[absolute] = rise;
        features[part] = rise / std::max(20.0f, stixel.high_mm);
    };
    // The cell at either end may show both sides of it.
    const int above = stixel.y_top / grid.binPx() - 1;
    const int below = (stixel.y_bottom - 1) / grid.binPx() + 2;
    if (const float d = seenIn(grid, stixel.column, above - kLookBins, above); d > 0) {
        features[kAboveStep] = stixel.disparity - d;
        if (has_ground)
            setRise(riseAt(above - kLookBins / 2 - 1, d), kAboveRise, kAboveRisePart);
    }
    const int far_above = above - 2 * kLookBins;
    if (const float d = seenIn(grid, stixel.column, far_above, far_above + kLookBins);
        d > 0 && has_ground)
        features[kFarAboveRise] = riseAt(far_above + kLookBins / 2, d);
    if (const float d = seenIn(grid, stixel.column, below, below + kLookBins); d > 0) {
        features[kBelowStep] = d - stixel.disparity;
        if (has_ground)
            setRise(riseAt(below + kLookBins / 2, d), kBelowRise, kBelowRisePart);
    }
    float sum = 0, sum_d = 0, sum_dd = 0, sum_v = 0, sum_vv = 0, sum_vd = 0;
    for (int bin = std::max(0, above - kLookBins); bin < std::min(grid.bins(), below + kLookBins);
         ++bin) {
        const std::size_t cell = grid.index(stixel.column, bin);
        if (grid.kind[cell] == CellKind::kEmpty)
            continue;
        const float w = grid.weight[cell];
        const float d = grid.disparity[cell] - stixel.disparity;
        const auto v = static_cast<float>((bin - above) * grid.binPx());
        sum += w;
        sum_d += w * d;
        sum_dd += w * d * d;
        sum_v += w * v;
        sum_vv += w * v * v;
        sum_vd += w * v * d;
    }
    const float spread = sum > 0 ? sum_vv - sum_v * sum_v / sum : 0.0f;
    if (!(spread > 0))
        return;
    const float slope = (sum_vd - sum_v * sum_d / sum) / spread;
    const float left = sum_dd - sum_d * sum_d / sum - slope * slope * spread;
    features[kLineMisfit] = std::sqrt(std::max(0.0f, left) / sum);
    if (has_ground)
        features[kLineSlope] = slope / static_cast<float>(ground.b);
}

/// What is seen on one side of a stixel; NaN is not known.
struct Side {
    float step = kUnknown, contrast = kUnknown, log_ratio = kUnknown;
};

float meanOf(const std::uint8_t* pixels, int begin, int end) {
    return static_cast<float>(std::accumulate(pixels + begin, pixels + end, 0)) /
           static_cast<float>(end - begin);
}

/// Median disparity of a row's measured cells in the columns on one side; 0 without any.
float seenAside(const CellGrid& grid, int column, int aside, int y) {
    std::array<float, kSideColumns> seen;
    int count = 0;
    const int bin = std::min(y / grid.binPx(), grid.bins() - 1);
    for (int k = 1; k <= kSideColumns; ++k) {
        const int c = column + k * aside;
        if (c < 0 || c >= grid.columns())
            break;
        if (const std::size_t cell = grid.index(c, bin); grid.kind[cell] != CellKind::kEmpty)
            seen[count++] = grid.disparity[cell];
    }
    return count > 0 ? median(seen.data(), count) : 0.0f;
}

/// @param aside  -1: on the left, 1: on the right
/// @param own    kLogResidual of the stixel
Side lookAside(const StixelContext& context, const Stixel& stixel, int aside, float own) {
    const CellGrid& grid = *context.grid;
    const ComparedPictures& pictures = *context.pictures;
    const auto offset = static_cast<float>(context.geometry.disparityOffset());
    const int next = stixel.column + aside;
    Side side;
    if (next < 0 || next >= grid.columns())
        return side;
    const int step = (stixel.y_bottom - stixel.y_top + kMostSideRows - 1) / kMostSideRows;
    std::array<RowHypothesis, kMostSideRows> rows;
    std::array<float, kMostSideRows> seen;
    int looked = 0, count = 0;
    float contrast = 0;
    for (int y = stixel.y_top + step / 2; y < stixel.y_bottom; y += step) {
        const std::uint8_t* pixels = pictures.left().row(y);
        contrast += std::fabs(meanOf(pixels, stixel.x_begin, stixel.x_end) -
                              meanOf(pixels, grid.columnBegin(next), grid.columnEnd(next)));
        ++looked;
        if (const float d = seenAside(grid, stixel.column, aside, y); d > 0) {
            seen[count] = d;
            rows[count++] = {y, sixteenths(d - offset), true};
        }
    }
    side.contrast = std::log1p(contrast / static_cast<float>(looked) / std::sqrt(pictures.noise()));
    if (count == 0)
        return side;
    side.step = stixel.disparity - median(seen.data(), count);
    if (std::isnan(own) || std::fabs(side.step) < kMinSideStep)
        return side;
    PhotometricFit fit;
    photometricFit(pictures.left(), pictures.right(), stixel.x_begin, stixel.x_end, rows.data(),
                   count, false, fit);
    if (fit.pixels > 0)
        side.log_ratio = logOf(pictures, fit.residual) - own;
    return side;
}

/// A matcher carries a thing's disparity on beyond its border: there the picture's step lies on the
/// thing's side, and the pixels fit what is behind it better.
void lookAside(const StixelContext& context, const Stixel& stixel, StixelFeatures& features) {
    Side behind = lookAside(context, stixel, -1, features[kLogResidual]);
    Side beside = lookAside(context, stixel, 1, features[kLogResidual]);
    if (std::isnan(behind.step) || beside.step > behind.step)
        std::swap(behind, beside);
    features[kBehindStep] = behind.step;
    features[kBehindContrast] = behind.contrast;
    features[kBehindLogRatio] = behind.log_ratio;
    features[kBesideStep] = beside.step;
    features[kBesideContrast] = beside.contrast;
    features[kBesideLogRatio] = beside.log_ratio;
}

}  // namespace

StixelFeatures featuresOf(const StixelContext& context, const StixelCandidate& candidate) {
    StixelFeatures features = unknownFeatures();
    const Stixel& stixel = candidate.stixel;
    features[kLogDisparity] = std::log(std::max(0.25f, stixel.disparity));
    features[kLogSigma] = std::log(std::max(0.01f, stixel.sigma_px));
    features[kMatchConfidence] = stixel.confidence;
    features[kEvidence] = compressed(candidate.evidence);
    features[kTexture] = std::min(3.0f, candidate.texture);
    features[kMeasuredPart] = candidate.measured;
    features[kEdge] = candidate.edge ? 1.0f : 0.0f;
    features[kLogLength] = std::log(static_cast<float>(stixel.y_bottom - stixel.y_top));
    features[kRightMargin] =
        std::clamp(static_cast<float>(stixel.x_begin) - stixel.disparity, -20.0f, 20.0f);
    if (context.ground->state != GroundState::kLost) {
        features[kHangs] = candidate.hangs ? 1.0f : 0.0f;
        features[kLogLow] = std::log(std::max(10.0f, stixel.low_mm));
        features[kLogHigh] = std::log(std::max(20.0f, stixel.high_mm));
        features[kUpright] = std::clamp(compressed(candidate.upright), -4.0f, 5.0f);
    }
    lookAround(context, stixel, features);
    if (context.pictures->right().data)
        comparePictures(context, stixel, features);
    lookAside(context, stixel, features);
    return features;
}

}  // namespace kova::camera
