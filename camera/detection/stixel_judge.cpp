#include "camera/detection/stixel_judge.h"

#include <cmath>

namespace kova::camera {

float JudgeCurve::operator()(float x) const {
    if (!(x > at.front()))
        return value.front();
    for (int i = 1; i < kKnots; ++i)
        if (x < at[i])
            return value[i - 1] + (value[i] - value[i - 1]) * (x - at[i - 1]) / (at[i] - at[i - 1]);
    return value.back();
}

float StixelJudge::ownOdds(const StixelFeatures& features) const {
    float sum = bias;
    for (int f = 0; f < kStixelFeatures; ++f)
        if (!std::isnan(features[f]))
            sum += own[f](features[f]);
    return sum;
}

float StixelJudge::odds(const StixelFeatures& features, float near_sum) const {
    return own_weight * ownOdds(features) + near(near_sum);
}

}  // namespace kova::camera
