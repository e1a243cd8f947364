#include "camera/detection/stixel_features.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kova::camera {
namespace {

constexpr int kWidth = 320, kHeight = 120, kColumnPx = 8;

/// A ramp that is met at an angle: its knee and its rise are not the same in every column.
GroundEstimate ramp() {
    GroundEstimate ground;
    ground.state = GroundState::kFound;
    GroundModel& model = ground.model;
    model.b = 0.25;
    model.height_mm = 600;
    model.flat = false;
    model.knot = {30, 20, 10, 6, 3, 1};
    model.knot_offset = {0, 0, 2, 2.5f, 2, 1};
    model.stretch_per_px = 0.004;
    model.stretch = 1 - model.stretch_per_px * 0.5 * kWidth;
    return ground;
}

class StixelFeaturesTest : public testing::Test {
protected:
    StixelFeaturesTest() {
        std::mt19937 random(11);
        Image<std::uint8_t> texture(2 * kWidth, kHeight);
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < 2 * kWidth; ++x)
                texture.at(x, y) = static_cast<std::uint8_t>(random() % 200 + 20);
            for (int x = 1; x < 2 * kWidth; ++x)  // without it half a pixel would change everything
                texture.at(x, y) =
                    static_cast<std::uint8_t>((3 * texture.at(x - 1, y) + texture.at(x, y)) / 4);
        }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                left_.at(x, y) = texture.at(x, y);
                right_.at(x, y) = 0;
            }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const int to = x - static_cast<int>(std::lround(truth(x, y)));
                if (to >= 0)
                    right_.at(to, y) = left_.at(x, y);
            }
        grid_.resize(kWidth, kHeight, kColumnPx, 4);
        context_.grid = &grid_;
        pictures_.set(left_.view(), right_.view(), false);
        context_.pictures = &pictures_;
        context_.geometry = {kWidth, kHeight, 300, 300, 160, 0, 160, 120};
        context_.ground = &ground_;
    }

    /// Ground, but for a thing at 12 px in the columns 25 to 29.
    double truth(int x, int y) const {
        const int column = x / kColumnPx;
        if (column >= 25 && column < 30)
            return 12;
        const double u = grid_.columns() > 0 ? grid_.centreX(column) : column * kColumnPx + 3.5;
        const GroundModel model = ground_.model.inColumn(u);
        return model.groundOf(static_cast<float>(model.planeAt(u, y)));
    }

    StixelFeatures at(int column, float disparity, int y_top = 25, int y_bottom = 65) const {
        StixelCandidate one;
        Stixel& s = one.stixel;
        s.column = column;
        s.x_begin = column * kColumnPx;
        s.x_end = s.x_begin + kColumnPx;
        s.y_top = y_top;
        s.y_bottom = y_bottom;
        s.high_mm = 200;
        s.disparity = disparity;
        return featuresOf(context_, one);
    }

    GroundEstimate ground_ = ramp();
    Image<std::uint8_t> left_{kWidth, kHeight}, right_{kWidth, kHeight};
    CellGrid grid_;
    ComparedPictures pictures_;
    StixelContext context_;
};

TEST_F(StixelFeaturesTest, AThingAgreesWhereItIsAndNotAsGround) {
    const StixelFeatures thing = at(27, 12);
    EXPECT_GT(thing[kCorrelation], 0.95f);
    EXPECT_LT(thing[kGroundCorrelation], 0.8f);
    EXPECT_GT(thing[kGroundLogRatio], 1);
    EXPECT_GT(thing[kPeakLogRatio], 1);
    EXPECT_EQ(thing[kGroundPart], 1);
}

TEST_F(StixelFeaturesTest, GroundAgreesAsTheGroundOfItsOwnColumn) {
    for (const int column : {6, 15, 36}) {
        const StixelFeatures ground = at(column, 12);
        EXPECT_GT(ground[kGroundCorrelation], 0.9f) << column;
        EXPECT_LT(ground[kGroundLogRatio], -0.5f) << column;
        EXPECT_LT(ground[kCorrelation], 0.8f) << column;
    }
}

// A thing ends where its rows end; a piece of rising ground goes on above and below.
TEST_F(StixelFeaturesTest, WhatIsSeenAboveAndBelow) {
    ground_.model.flat = true;
    const auto fill = [&](const auto& disparityAt) {
        for (int column = 0; column < grid_.columns(); ++column)
            for (int bin = 0; bin < grid_.bins(); ++bin) {
                const std::size_t cell = grid_.index(column, bin);
                grid_.kind[cell] = CellKind::kMeasured;
                grid_.weight[cell] = 1;
                grid_.disparity[cell] = disparityAt(column, grid_.centreY(bin));
            }
    };
    const auto groundAt = [&](int column, float y) {
        return static_cast<float>(ground_.model.planeAt(grid_.centreX(column), y));
    };
    fill([&](int column, float y) { return y > 24 && y < 66 ? 12.0f : groundAt(column, y); });
    const StixelFeatures thing = at(27, 12);
    EXPECT_NEAR(thing[kAboveStep], 12 - groundAt(27, 13.5f), 1e-3f);
    EXPECT_NEAR(thing[kAboveRise], 0, 0.1f);
    EXPECT_NEAR(thing[kBelowStep], groundAt(27, 77.5f) - 12, 1e-3f);
    EXPECT_NEAR(thing[kBelowRise], 0, 0.1f);
    EXPECT_GT(thing[kLineMisfit], 0.5f);

    // Half as steep in disparity as the ground, through 12 px in the middle.
    fill([&](int, float y) { return 12 + 0.125f * (y - 45); });
    const StixelFeatures slope = at(27, 12);
    EXPECT_NEAR(slope[kAboveStep], 0.125f * (45 - 13.5f), 1e-3f);
    EXPECT_NEAR(slope[kAboveRisePart], slope[kAboveRise] / 200, 1e-3f);
    EXPECT_NEAR(slope[kBelowRisePart], slope[kBelowRise] / 200, 1e-3f);
    EXPECT_NEAR(slope[kLineSlope], 0.5f, 1e-3f);
    EXPECT_NEAR(slope[kLineMisfit], 0, 1e-2f);
    EXPECT_GT(slope[kAboveRise], 200);
    EXPECT_GT(slope[kFarAboveRise], slope[kAboveRise]);
    EXPECT_LT(slope[kBelowRise], slope[kAboveRise]);

    ground_.state = GroundState::kLost;
    const StixelFeatures without = at(27, 12);
    EXPECT_EQ(without[kAboveStep], slope[kAboveStep]);
    EXPECT_TRUE(std::isnan(without[kAboveRise]));
    EXPECT_TRUE(std::isnan(without[kLineSlope]));
    grid_.kind.assign(grid_.kind.size(), CellKind::kEmpty);
    EXPECT_TRUE(std::isnan(at(27, 12)[kAboveStep]));
    EXPECT_TRUE(std::isnan(at(27, 12)[kLineMisfit]));
}

// Next to the thing of the columns 25 to 29 its disparity is carried on, and the picture tells.
TEST_F(StixelFeaturesTest, WhatIsSeenOnEitherSide) {
    for (int column = 0; column < grid_.columns(); ++column)
        for (int bin = 0; bin < grid_.bins(); ++bin) {
            const std::size_t cell = grid_.index(column, bin);
            grid_.kind[cell] = CellKind::kMeasured;
            grid_.disparity[cell] = static_cast<float>(
                truth(column * kColumnPx, static_cast<int>(std::lround(grid_.centreY(bin)))));
        }
    // Where the ground behind is farther than the thing.
    const auto high = [&](int column, float disparity) { return at(column, disparity, 4, 32); };
    const StixelFeatures right_end = high(29, 12), left_end = high(25, 12), beyond = high(30, 12);
    for (const StixelFeatures& thing : {right_end, left_end}) {
        EXPECT_NEAR(thing[kBesideStep], 0, 1e-3f);
        EXPECT_TRUE(std::isnan(thing[kBesideLogRatio]));
        EXPECT_GT(thing[kBehindStep], 1);
        EXPECT_GT(thing[kBehindLogRatio], 0.5f);
    }
    EXPECT_NEAR(beyond[kBesideStep], 0, 1e-3f);
    EXPECT_GT(beyond[kBehindStep], 1);
    EXPECT_LT(beyond[kBehindLogRatio], -0.5f);

    // In the middle of the thing both sides show the thing.
    EXPECT_TRUE(std::isnan(high(27, 12)[kBehindLogRatio]));
    // Farther than what is seen on both sides.
    EXPECT_NEAR(high(27, 10)[kBesideStep], -2, 1e-3f);
    // Rows without depth have no say, and a side without any is not the one behind.
    for (int column = 30; column < 33; ++column)
        for (int bin = 0; bin < grid_.bins(); ++bin)
            grid_.kind[grid_.index(column, bin)] = CellKind::kEmpty;
    EXPECT_NEAR(high(29, 12)[kBehindStep], 0, 1e-3f);
    EXPECT_TRUE(std::isnan(high(29, 12)[kBesideStep]));

    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            left_.at(x, y) = x / kColumnPx >= 25 && x / kColumnPx < 30 ? 150 : 50;
    const StixelFeatures bright = high(25, 12), dark = high(24, 12);
    EXPECT_NEAR(bright[kBehindContrast], std::log(101.0f), 1e-3f);
    EXPECT_NEAR(bright[kBesideContrast], 0, 1e-3f);
    EXPECT_NEAR(dark[kBehindContrast], 0, 1e-3f);
    EXPECT_NEAR(dark[kBesideContrast], std::log(101.0f), 1e-3f);

    // At the picture's border there is one side.
    EXPECT_TRUE(std::isnan(high(0, 12)[kBesideContrast]));
}

TEST_F(StixelFeaturesTest, WithoutARightPictureOrAGroundThatIsNotKnown) {
    pictures_.set(left_.view(), {}, false);
    EXPECT_TRUE(std::isnan(at(27, 12)[kCorrelation]));
    EXPECT_FALSE(std::isnan(at(27, 12)[kLogHigh]));
    pictures_.set(left_.view(), right_.view(), false);
    ground_.state = GroundState::kLost;
    const StixelFeatures thing = at(27, 12);
    EXPECT_GT(thing[kCorrelation], 0.95f);
    EXPECT_TRUE(std::isnan(thing[kGroundCorrelation]));
    EXPECT_TRUE(std::isnan(thing[kLogHigh]));
}

}  // namespace
}  // namespace kova::camera
