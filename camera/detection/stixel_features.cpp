#include "camera/detection/stixel_features.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "camera/detection/photometric.h"

namespace kova::camera {

namespace {

constexpr float kNoise = 2;  ///< about the variance of the difference of two pixels [grey levels^2]
constexpr float kMinGroundDisparity = 0.3f;

float compressed(float x) {
    return std::copysign(std::log1p(std::fabs(x)), x);
}

int sixteenths(float d) {
    return static_cast<int>(std::lround(d * kDisparityScale));
}

void comparePictures(const StixelContext& context, const Stixel& stixel, StixelFeatures& features) {
    const ComparedPictures& pictures = *context.pictures;
    // Where there is more noise than usual the same must come of the same agreement.
    const float noise = pictures.noise();
    const auto worth = [&](float variance) { return variance / noise + kNoise; };
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
    features[kLogVariance] = std::log(worth(as_is.variance));
    features[kLogResidual] = std::log(worth(as_is.residual));
    features[kCorrelation] = as_is.correlation;
    features[kPeakLogRatio] = std::log(worth(as_is.elsewhere_residual) / worth(as_is.residual));
    PhotometricFit as_ground;
    photometricFit(pictures.left(), pictures.right(), stixel.x_begin, stixel.x_end, lying.data(),
                   below_horizon, false, as_ground);
    if (as_ground.pixels == 0 || as_is.compared_pixels == 0)
        return;
    features[kGroundCorrelation] = as_ground.correlation;
    features[kGroundLogRatio] =
        std::log(worth(as_ground.residual) / worth(as_is.compared_residual));
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
    features[kLogLength] = std::log(static_cast<float>(stixel.y_bottom - stixel.y_top));
    features[kRightMargin] =
        std::clamp(static_cast<float>(stixel.x_begin) - stixel.disparity, -20.0f, 20.0f);
    if (context.ground->state != GroundState::kLost) {
        features[kHangs] = candidate.hangs ? 1.0f : 0.0f;
        features[kLogLow] = std::log(std::max(10.0f, stixel.low_mm));
        features[kLogHigh] = std::log(std::max(20.0f, stixel.high_mm));
        features[kUpright] = std::clamp(compressed(candidate.upright), -4.0f, 5.0f);
    }
    if (context.pictures->right().data)
        comparePictures(context, stixel, features);
    return features;
}

}  // namespace kova::camera
