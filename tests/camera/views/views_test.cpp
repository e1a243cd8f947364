#include "camera/views/views.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/camera/detection/synthetic_scene.h"

namespace kova::camera {
namespace {

using test::SyntheticScene;

constexpr Rgba kGreen{0, 210, 0, 255};
constexpr Rgba kYellow{255, 225, 0, 255};
constexpr Rgba kOrange{255, 140, 0, 255};
constexpr Rgba kRed{255, 0, 0, 255};

struct ZoneCase {
    const char* name;
    float ahead_mm, lateral_mm;
    Rgba colour;
};
class TopViewColour : public testing::TestWithParam<ZoneCase> {};

TEST_P(TopViewColour, FollowsZoneAndSideRange) {
    const ZoneCase& c = GetParam();
    EXPECT_TRUE(topViewColour(c.ahead_mm, c.lateral_mm) == c.colour);
    EXPECT_TRUE(topViewColour(c.ahead_mm, -c.lateral_mm) == c.colour);
}

INSTANTIATE_TEST_SUITE_P(Zones, TopViewColour,
                         testing::Values(ZoneCase{"InsideBelowNear", 999, 0, kRed},
                                         ZoneCase{"InsideAtNear", 1000, 0, kOrange},
                                         ZoneCase{"InsideNearToMid", 2000, 300, kOrange},
                                         ZoneCase{"InsideAtMid", 2500, 0, kOrange},
                                         ZoneCase{"InsideMidToFar", 2501, 600, kYellow},
                                         ZoneCase{"InsideAtFar", 5000, 0, kYellow},
                                         ZoneCase{"InsideBeyondFar", 5001, 0, kGreen},
                                         ZoneCase{"OutsideBelowNear", 999, 601, kOrange},
                                         ZoneCase{"OutsideNearToMid", 1000, 601, kYellow},
                                         ZoneCase{"OutsideAtMid", 2500, 2000, kYellow},
                                         ZoneCase{"OutsideBeyondMid", 2501, 601, kGreen},
                                         ZoneCase{"OutsideBeyondFar", 9000, 3000, kGreen}),
                         [](const auto& info) { return info.param.name; });

TEST(TopView, ParametersAndSizeAgree) {
    const auto p = topViewParameters();
    EXPECT_EQ(p.side_range, 600);
    EXPECT_EQ(p.half_width, 6400);
    EXPECT_EQ(p.near_distance, 0);
    EXPECT_EQ(p.far_distance, 12800);
    EXPECT_EQ(p.pixels_per_mm, 0.0625f);
    EXPECT_EQ(topViewWidth(), static_cast<int>(2 * p.half_width * p.pixels_per_mm));
    EXPECT_EQ(topViewHeight(),
              static_cast<int>((p.far_distance - p.near_distance) * p.pixels_per_mm));
    EXPECT_EQ(topViewWidth(), 800);
    EXPECT_EQ(topViewHeight(), 800);
}

class Views : public testing::Test {
protected:
    void SetUp() override {
        scene_.addGround();
        scene_.addWall(0, 500, 0, 900, 3000);
        scene_.finish();
        scene_.detectAlone(frame_);
        ASSERT_EQ(frame_.ground.state, GroundState::kFound);
        ASSERT_EQ(frame_.obstacles.size(), 1u);
        out_.resize(640, 400);
        input_.left = scene_.left.view();
    }
    void paint(bino::OBSTACLE_VIEW_TYPE type) { paintImageView(type, input_, frame_, out_.view()); }
    Rgba grey(int x, int y) const {
        const std::uint8_t g = scene_.left.at(x, y);
        return {g, g, g, 255};
    }
    template <typename Test>
    int count(int x0, int y0, int x1, int y1, const Test& test) const {
        int n = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x) n += test(out_.at(x, y));
        return n;
    }
    static bool isRed(Rgba p) { return p.r > 150 && p.g < 80 && p.b < 80; }

    // The box covers the columns 289 to 351 and the rows 108 to 217, its middle is (320, 165).
    SyntheticScene scene_;
    DetectionFrame frame_;
    Image<Rgba> out_;
    ViewInput input_;
};

TEST_F(Views, ObstaclesAreRedPointsAndTheHorizonAGreenLine) {
    paint(bino::OBSTACLE_VIEW_TYPE_OBSTACLE);
    EXPECT_GT(count(295, 115, 345, 210, isRed), 100);
    EXPECT_EQ(count(0, 230, 640, 400, isRed), 0);
    EXPECT_EQ(count(0, 0, 270, 400, isRed), 0);
    EXPECT_TRUE(out_.at(100, 350) == grey(100, 350));
    // The camera looks down by 8 degrees: its horizon lies above the middle.
    const int horizon = static_cast<int>(std::lround(200 - 380 * std::tan(8 * 0.0174533)));
    for (const int x : {5, 150, 500, 630}) {
        int green = 0;
        for (int y = horizon - 2; y <= horizon + 2; ++y) {
            const Rgba p = out_.at(x, y);
            green += p.g > 150 && p.r < 130 && p.b < 130;
        }
        EXPECT_GE(green, 1) << x;
    }
}

TEST_F(Views, NoHorizonWithoutGround) {
    frame_.ground.state = GroundState::kLost;
    paint(bino::OBSTACLE_VIEW_TYPE_OBSTACLE);
    EXPECT_EQ(count(0, 0, 640, 400, [](Rgba p) { return p.g > p.r + 60 && p.g > p.b + 60; }), 0);
}

TEST_F(Views, GroundIsBlueAndNothingElse) {
    paint(bino::OBSTACLE_VIEW_TYPE_GROUND);
    const auto blue = [](Rgba p) { return p.b > p.r + 40 && p.b > p.g + 40; };
    EXPECT_GT(count(100, 300, 500, 390, blue), 0.9 * 400 * 90);
    EXPECT_EQ(count(0, 0, 640, 130, blue), 0);
    EXPECT_TRUE(out_.at(320, 165) == grey(320, 165));
}

TEST_F(Views, StixelsAreDrawnOnThePictureOrOnBlack) {
    paint(bino::OBSTACLE_VIEW_TYPE_STIXELS);
    const auto black = [](Rgba p) { return p == Rgba{0, 0, 0, 255}; };
    EXPECT_EQ(count(0, 0, 260, 400, black), 260 * 400);
    EXPECT_EQ(count(300, 125, 340, 205, black), 0);
    EXPECT_EQ(count(0, 240, 640, 400, black), 640 * 160);
    const Rgba alone = out_.at(322, 165);
    paint(bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS);
    EXPECT_TRUE(out_.at(100, 350) == grey(100, 350));
    EXPECT_FALSE(out_.at(322, 165) == grey(322, 165));
    EXPECT_FALSE(out_.at(322, 165) == alone);
}

TEST_F(Views, ColourPicturesStayInColour) {
    Image<Rgba> colour(640, 400);
    colour.fill({10, 200, 90, 255});
    input_.left_colour = colour.view();
    paint(bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS);
    EXPECT_TRUE(out_.at(100, 350) == (Rgba{10, 200, 90, 255}));
}

TEST_F(Views, AFrameOfAnotherSizeLeavesThePlainPicture) {
    frame_.width = 320;
    paint(bino::OBSTACLE_VIEW_TYPE_OBSTACLE);
    EXPECT_TRUE(out_.at(320, 165) == grey(320, 165));
}

TEST_F(Views, GroundMapIsCopied) {
    Image<std::uint8_t> map(640, 400);
    paintGroundMap(frame_, map.view());
    EXPECT_EQ(map.at(320, 165), 0);
    EXPECT_EQ(map.at(320, 380), 255);
    EXPECT_EQ(map.at(320, 20), 127);
}

TEST_F(Views, TopViewShowsTheObstacleWhereItStandsInItsColour) {
    Image<Rgba> top(topViewWidth(), topViewHeight());
    paintTopView(frame_, top.view());
    const auto coloured = [](Rgba p) { return p.r != p.g || p.g != p.b; };
    int there = 0;
    int elsewhere = 0;
    for (int y = 0; y < 800; ++y)
        for (int x = 0; x < 800; ++x) {
            if (!coloured(top.at(x, y)))
                continue;
            // 3000 mm ahead is row 612, 500 mm wide is columns 384 to 416.
            const bool near = std::abs(y - 612) < 12 && std::abs(x - 400) < 24;
            there += near;
            elsewhere += !near;
            EXPECT_TRUE(top.at(x, y) == kYellow);
        }
    EXPECT_GT(there, 60);
    EXPECT_EQ(elsewhere, 0);
    // Seen ground is lighter than what was not seen.
    EXPECT_GT(top.at(420, 700).g, top.at(5, 700).g);
}

}  // namespace
}  // namespace kova::camera
