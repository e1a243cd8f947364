#include "camera/detection/stixel_judge.h"

namespace kova::camera {

float StixelTrees::operator()(const StixelFeatures& features) const {
    int sum = bias;
    for (const StixelTree& tree : trees) sum += tree(features);
    return static_cast<float>(sum) * 1e-3f;
}

std::array<float, StixelTrees::kAtOnce> StixelTrees::operator()(const Features& features) const {
    std::array<std::int32_t, kAtOnce> sums;
    sums.fill(bias);
    for (const StixelTree& tree : trees) {
        std::array<std::int32_t, kAtOnce> answers{};
        for (int level = 0; level < StixelTree::kLevels; ++level) {
            const std::array<float, kAtOnce>& x = features[tree.feature[level]];
            const float limit = tree.limit[level];
            for (int i = 0; i < kAtOnce; ++i) answers[i] = 2 * answers[i] + (x[i] > limit ? 1 : 0);
        }
        for (int i = 0; i < kAtOnce; ++i) sums[i] += tree.value[answers[i]];
    }
    std::array<float, kAtOnce> odds;
    for (int i = 0; i < kAtOnce; ++i) odds[i] = static_cast<float>(sums[i]) * 1e-3f;
    return odds;
}

}  // namespace kova::camera
