// What the pipeline lets the detector know: stixels are judged by both pictures, with the trees
// that belong to how the depth was matched.

#include <gtest/gtest.h>

#include <cmath>

#include "camera/detection/stixel_support.h"
#include "tests/camera/pipeline/simulated_drive.h"

namespace kova::camera {
namespace {

struct Mode {
    WorkMode work_mode;
    const StixelJudge* judge;
};

class JudgedStixels : public testing::TestWithParam<Mode> {};

TEST_P(JudgedStixels, AreComparedInBothPicturesByTheTreesOfTheirMode) {
    RigOptions options;
    options.width = 640;
    options.height = 400;
    SimulatedDrive drive("room", options, 1);
    drive.settings.work_mode = GetParam().work_mode;
    const auto pipeline = drive.open();
    drive.run(*pipeline);
    int judged = 0;
    int compared = 0;
    for (const StixelCandidate& one : pipeline->detector().candidates()) {
        if (!isJudged(one))
            continue;
        ++judged;
        compared += !std::isnan(one.features[kCorrelation]);
        const StixelJudge& judge = *GetParam().judge;
        EXPECT_FLOAT_EQ(one.own_probability, 1 / (1 + std::exp(-judge.alone(one.features))));
        EXPECT_FLOAT_EQ(one.stixel.confidence, 1 / (1 + std::exp(-judge.together(one.features))));
    }
    EXPECT_GT(judged, 20);
    EXPECT_GT(compared, 0.9 * judged);
}

INSTANTIATE_TEST_SUITE_P(, JudgedStixels,
                         testing::Values(Mode{WorkMode::kFast, &kHalfStixelJudge},
                                         Mode{WorkMode::kMedium, &kFullStixelJudge},
                                         Mode{WorkMode::kSlow, &kFullStixelJudge}),
                         [](const auto& info) {
                             const WorkMode mode = info.param.work_mode;
                             return mode == WorkMode::kFast     ? "fast"
                                    : mode == WorkMode::kMedium ? "medium"
                                                                : "slow";
                         });

}  // namespace
}  // namespace kova::camera
