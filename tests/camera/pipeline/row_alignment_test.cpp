// The alignment of rows as the pipeline does it, on a simulated rig with the residual errors of a
// real one.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "camera/base/parallel.h"
#include "tests/camera/pipeline/simulated_drive.h"

namespace kova::camera {
namespace {

constexpr int kWidth = 384, kHeight = 240, kFrames = 5;

RigOptions rigOptions(bool distorted) {
    RigOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.lens_distortion = distorted;
    return options;
}

struct Drive : SimulatedDrive {
    explicit Drive(bool distorted = false)
        : SimulatedDrive("room", rigOptions(distorted), kFrames) {
        settings.detect = false;
    }

    /// How far rows are apart over the picture, root mean square [px]; only for a rig without
    /// distortion.
    double apart(const RowOffset& correction) const {
        double squares = 0;
        int count = 0;
        for (int y = 5; y < kHeight; y += 10)
            for (int x = 5; x < kWidth; x += 10) {
                const auto ray = directionOfPixel(rig.rendered.left, x, y);
                const auto& r = rig.rendered.right_from_left;
                const auto& t = rig.rendered.translation_mm;
                double p[3];
                for (int i = 0; i < 3; ++i)
                    p[i] = 2000 * (r[3 * i] * ray[0] + r[3 * i + 1] * ray[1] + r[3 * i + 2]) + t[i];
                const auto seen = pixelOfDirection(rig.rendered.right, p[0] / p[2], p[1] / p[2]);
                const double off = seen[1] - y - correction.at(seen[0], y);
                squares += off * off;
                ++count;
            }
        return std::sqrt(squares / count);
    }
};

bool same(const ImageView<const std::uint8_t>& a, const ImageView<const std::uint8_t>& b) {
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.row(y), b.row(y), static_cast<std::size_t>(a.width)) != 0)
            return false;
    return true;
}

TEST(RowAlignment, BringsTheRowsOfASimulatedRigTogether) {
    Drive drive;
    EXPECT_GT(drive.apart({}), 0.15);
    for (const WorkMode mode : {WorkMode::kFast, WorkMode::kMedium, WorkMode::kSlow}) {
        drive.settings.work_mode = mode;
        const auto pipeline = drive.open();
        drive.run(*pipeline);
        EXPECT_LT(drive.apart(pipeline->rowOffset()), 0.05) << static_cast<int>(mode);
    }
}

TEST(RowAlignment, OfAFlippedCameraFindsTheSame) {
    Drive drive;
    drive.settings.flip = true;
    const auto pipeline = drive.open();
    drive.run(*pipeline);
    EXPECT_LT(drive.apart(pipeline->rowOffset()), 0.05);
}

TEST(RowAlignment, ShowsInTheNextFrameAndNotWhenSwitchedOff) {
    for (const bool distorted : {false, true}) {
        Drive drive(distorted);
        const auto aligned = drive.open(), plain = drive.open();
        PipelineSettings off = drive.settings;
        off.align_rows = false;
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(aligned->process(drive.frames[0], drive.settings).ok());
            ASSERT_TRUE(plain->process(drive.frames[0], off).ok());
            EXPECT_EQ(same(aligned->right(), plain->right()), i == 0);
            EXPECT_EQ(aligned->rowOffset().largest() > 0, i == 1);
            EXPECT_TRUE(same(aligned->left(), plain->left()));
        }
        EXPECT_EQ(plain->rowOffset().largest(), 0);
        ASSERT_TRUE(aligned->process(drive.frames[0], off).ok());
        EXPECT_TRUE(same(aligned->right(), plain->right())) << "switched off, it is taken back";
    }
}

TEST(RowAlignment, StaysAfterASeek) {
    Drive drive;
    const auto pipeline = drive.open();
    drive.run(*pipeline);
    const RowOffset::Terms found = pipeline->rowOffset().terms;
    pipeline->reset();
    ASSERT_TRUE(pipeline->process(drive.frames[0], drive.settings).ok());
    EXPECT_LT(drive.apart(pipeline->rowOffset()), 0.05);
    EXPECT_NE(found[0], 0);
}

TEST(RowAlignment, GivesTheSameBytesInEveryRun) {
    Drive drive(true);
    std::unique_ptr<Pipeline> first;
    for (const int threads : {1, 2, 3}) {
        setThreadCount(threads);
        auto pipeline = drive.open();
        drive.run(*pipeline);
        if (first) {
            EXPECT_EQ(pipeline->rowOffset().terms, first->rowOffset().terms);
            EXPECT_TRUE(same(pipeline->right(), first->right()));
        } else {
            first = std::move(pipeline);
        }
    }
    setThreadCount(0);
    EXPECT_GT(first->rowOffset().largest(), 0);
}

}  // namespace
}  // namespace kova::camera
