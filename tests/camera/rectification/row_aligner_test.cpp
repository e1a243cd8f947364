#include "camera/rectification/row_aligner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "camera/base/log.h"
#include "camera/base/parallel.h"
#include "tests/camera/rectification/sloping_rows.h"

namespace kova::camera {
namespace {

using test::SlopingRows;
using test::SmoothTexture;

SlopingRows texturedRows() {
    SlopingRows rows;
    static const SmoothTexture texture(7);
    rows.texture = [](double x, double y) { return texture.at(x, y); };
    return rows;
}

RowOffset offsetOf(const SlopingRows& rows, const RowOffset::Terms& terms) {
    RowOffset offset(rows.geometry());
    offset.terms = terms;
    return offset;
}

float medianOffset(const std::vector<RowSample>& samples) {
    std::vector<float> offsets;
    for (const RowSample& s : samples) offsets.push_back(s.offset_px);
    std::sort(offsets.begin(), offsets.end());
    return offsets.empty() ? 0 : offsets[offsets.size() / 2];
}

/// Frames of a rig whose rows are `truth` apart, each made with the correction so far.
/// @return how often the correction changed
int follow(SlopingRows& rows, const RowOffset& truth, RowAligner& aligner, int frames,
           unsigned seed = 1) {
    int changes = 0;
    for (int i = 0; i < frames; ++i) {
        const RowOffset applied = aligner.applied();
        rows.paint([&](double x, double y) { return truth.at(x, y) - applied.at(x, y); },
                   seed + static_cast<unsigned>(i));
        changes += aligner.update(rows.left.view(), rows.right.view(), rows.map, false);
    }
    return changes;
}

TEST(RowPatches, FindTheOffsetOfNoisyPicturesThatDifferInGain) {
    SlopingRows rows = texturedRows();
    rows.noise = 2.5;
    rows.gain = 1.06;
    RowPatches patches;
    for (const double offset : {-1.3, -0.2, 0.0, 0.4, 1.6}) {
        rows.paint([&](double, double) { return offset; });
        const auto& samples = patches.measure(rows.left.view(), rows.right.view(), rows.map, 1);
        EXPECT_GT(samples.size(), 200u);
        EXPECT_NEAR(medianOffset(samples), offset, 0.02);
        for (const RowSample& s : samples)
            EXPECT_NEAR(s.x, s.left_x - rows.disparity(s.y), 0.5) << "place in the right picture";
    }
}

TEST(RowPatches, AWrongDisparityDoesNotLookLikeAnOffset) {
    SlopingRows rows = texturedRows();
    rows.paint([](double, double) { return 0.3; });
    for (int y = 0; y < rows.height; ++y)
        for (int x = 0; x < rows.width; ++x) rows.map.disparity.at(x, y) += 12;  // 3/4 px
    RowPatches patches;
    EXPECT_NEAR(medianOffset(patches.measure(rows.left.view(), rows.right.view(), rows.map, 1)),
                0.3, 0.02);
}

TEST(RowPatches, TextureOfOneDirectionSaysNothing) {
    SlopingRows rows = texturedRows();
    rows.slope = 0;
    rows.noise = 1;
    rows.texture = [](double x, double y) { return 120 + 40 * std::cos(0.4 * (x + 0.7 * y)); };
    rows.paint([](double, double) { return 0.5; });
    RowPatches patches;
    // Of some hundred patches the noise may make a few look like more.
    EXPECT_LE(patches.measure(rows.left.view(), rows.right.view(), rows.map, 1).size(), 5u);
}

TEST(RowPatches, UnsureAndFilledDisparitiesDoNotCount) {
    SlopingRows rows = texturedRows();
    rows.paint([](double, double) { return 0.0; });
    RowPatches patches;
    for (const std::uint8_t confidence : {std::uint8_t{0}, std::uint8_t{100}, kFilledConfidence}) {
        rows.map.confidence.fill(confidence);
        EXPECT_TRUE(patches.measure(rows.left.view(), rows.right.view(), rows.map, 1).empty());
    }
    rows.map.confidence.fill(190);
    rows.map.disparity.fill(kInvalidDisparity);
    EXPECT_TRUE(patches.measure(rows.left.view(), rows.right.view(), rows.map, 1).empty());
}

TEST(RowPatches, PicturesOfAnySizeAreTaken) {
    RowPatches patches;
    constexpr int kSizes[][2] = {{1, 1}, {20, 16}, {21, 17}, {64, 20}, {30, 270}};
    for (const auto& size : kSizes) {
        SlopingRows rows = texturedRows();
        rows.width = size[0], rows.height = size[1];
        rows.near = 2, rows.slope = 0;
        rows.paint([](double, double) { return 0.0; });
        EXPECT_LE(patches.measure(rows.left.view(), rows.right.view(), rows.map, 1).size(), 360u);
    }
}

TEST(RowAligner, FindsOffsetTurnAndScale) {
    SlopingRows rows = texturedRows();
    rows.noise = 2;
    for (const RowOffset::Terms& terms :
         {RowOffset::Terms{0.3, -0.2, 0.15, 0, 0}, {0, 0.5, 0, 0, 0}, {-0.1, 0, -0.4, 0, 0}}) {
        const RowOffset truth = offsetOf(rows, terms);
        RowAligner aligner(rows.geometry());
        follow(rows, truth, aligner, 1);
        EXPECT_LT(aligner.applied().largestDifference(truth), 0.1) << "after one frame";
        follow(rows, truth, aligner, 9, 2);
        EXPECT_LT(aligner.applied().largestDifference(truth), 0.06);
        EXPECT_LT(aligner.deviation(), 0.05);
    }
}

TEST(RowAligner, FollowsARigThatDrifts) {
    SlopingRows rows = texturedRows();
    rows.noise = 2;
    RowAligner aligner(rows.geometry());
    follow(rows, offsetOf(rows, {0.2, 0, 0, 0, 0}), aligner, 12);
    const RowOffset later = offsetOf(rows, {-0.1, 0.3, 0, 0, 0});
    follow(rows, later, aligner, 120, 100);  // 30 of them are looked at
    EXPECT_LT(aligner.applied().largestDifference(later), 0.12);
}

TEST(RowAligner, OutliersDoNotMoveIt) {
    SlopingRows rows = texturedRows();
    rows.noise = 2;
    const RowOffset truth = offsetOf(rows, {0.3, 0.2, 0, 0, 0});
    RowAligner aligner(rows.geometry());
    for (unsigned i = 0; i < 8; ++i) {
        const RowOffset applied = aligner.applied();
        // A sixth of the picture lies elsewhere, as behind a pane.
        rows.paint(
            [&](double x, double y) {
                return truth.at(x, y) - applied.at(x, y) + (x > 270 && y > 120 ? 1.2 : 0.0);
            },
            i);
        aligner.update(rows.left.view(), rows.right.view(), rows.map, false);
    }
    EXPECT_LT(aligner.applied().largestDifference(truth), 0.08);
}

TEST(RowAligner, WithoutTextureNothingChanges) {
    SlopingRows rows = texturedRows();
    rows.noise = 2;
    RowAligner aligner(rows.geometry());
    const RowOffset truth = offsetOf(rows, {0.4, 0, 0, 0, 0});
    follow(rows, truth, aligner, 4);
    const RowOffset::Terms found = aligner.estimate().terms;
    const auto texture = rows.texture;
    rows.texture = [](double, double) { return 120.0; };
    EXPECT_EQ(follow(rows, truth, aligner, 8), 0);
    // A few patches are too few.
    rows.texture = [&](double x, double y) {
        return x > 150 && x < 190 && y > 100 && y < 140 ? texture(x, y) : 120.0;
    };
    EXPECT_EQ(follow(rows, truth, aligner, 8), 0);
    EXPECT_EQ(aligner.estimate().terms, found);
    EXPECT_EQ(aligner.frames(), 4);
}

TEST(RowAligner, DoesNotFlicker) {
    SlopingRows rows = texturedRows();
    rows.noise = 3;
    RowAligner aligner(rows.geometry());
    const RowOffset truth = offsetOf(rows, {0.2, 0.1, 0.1, 0, 0});
    follow(rows, truth, aligner, 30);
    EXPECT_LE(follow(rows, truth, aligner, 60, 1000), 2);
}

TEST(RowAligner, RowsThatAreAlignedAreLeftAlone) {
    SlopingRows rows = texturedRows();
    rows.noise = 1;
    RowAligner aligner(rows.geometry());
    EXPECT_EQ(follow(rows, offsetOf(rows, {0.04, -0.01, 0.02, 0, 0}), aligner, 20), 0);
    EXPECT_EQ(aligner.applied().largest(), 0);
}

TEST(RowAligner, ATurnedCameraGivesTheSame) {
    SlopingRows rows = texturedRows();
    rows.slope = 0;
    const RowOffset truth = offsetOf(rows, {0.3, 0.2, -0.1, 0, 0});
    rows.paint([&](double x, double y) { return truth.at(x, y); });
    // Turned by 180 degrees, the right eye's picture is the left one.
    const auto turned = [](const Image<std::uint8_t>& image) {
        Image<std::uint8_t> out(image.width(), image.height());
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                out.at(image.width() - 1 - x, image.height() - 1 - y) = image.at(x, y);
        return out;
    };
    const Image<std::uint8_t> left = turned(rows.right), right = turned(rows.left);
    RowAligner aligner(rows.geometry());
    for (int i = 0; i < 4; ++i) {
        RowAligner once(rows.geometry());
        ASSERT_TRUE(once.update(left.view(), right.view(), rows.map, true));
        EXPECT_LT(once.applied().largestDifference(truth), 0.1);
    }
}

TEST(RowAligner, BeyondTheLimitItStopsAndSaysSoOnce) {
    std::vector<std::string> log;
    setLogSink([&](LogLevel level, const std::string&, const std::string& text) {
        if (level >= LogLevel::kWarning)
            log.push_back(text);
    });
    SlopingRows rows = texturedRows();
    const RowOffset truth = offsetOf(rows, {2.4, 1.2, 0, 0, 0});
    RowAligner aligner(rows.geometry());
    follow(rows, truth, aligner, 10);
    setLogSink({});
    EXPECT_TRUE(aligner.stopped());
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0], testing::HasSubstr("kova calibrate"));
    EXPECT_LE(aligner.applied().largest(), RowAligner::kLimitPx);
    EXPECT_EQ(follow(rows, offsetOf(rows, {}), aligner, 4), 0) << "until it is reset";
    aligner.reset();
    EXPECT_FALSE(aligner.stopped());
    EXPECT_EQ(aligner.applied().largest(), 0);
    EXPECT_GT(follow(rows, offsetOf(rows, {0.5, 0, 0, 0, 0}), aligner, 2), 0);
}

TEST(RowAligner, GivesTheSameBitsWithAnyNumberOfThreads) {
    SlopingRows rows = texturedRows();
    rows.noise = 3;
    const RowOffset truth = offsetOf(rows, {0.3, -0.2, 0.15, 0.1, 0});
    RowOffset::Terms first{};
    for (const int threads : {1, 2, 5}) {
        setThreadCount(threads);
        RowAligner aligner(rows.geometry());
        follow(rows, truth, aligner, 5);
        if (threads == 1)
            first = aligner.estimate().terms;
        EXPECT_EQ(aligner.estimate().terms, first) << threads << " threads";
    }
    setThreadCount(0);
    EXPECT_NE(first[0], 0);
}

}  // namespace
}  // namespace kova::camera
