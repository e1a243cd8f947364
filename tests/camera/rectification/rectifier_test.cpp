#include "camera/rectification/rectifier.h"

#include <gtest/gtest.h>

#include <cmath>

#include "camera/calibration/lens.h"

namespace kova::camera {
namespace {

using Vector3 = std::array<double, 3>;

/// A wide-angle pair whose right eye is turned and displaced a little, as real ones are.
StereoCalibration realistic() {
    StereoCalibration c;
    c.width = 322;
    c.height = 200;
    c.left = {180, 181, 158, 103, LensModel::kRadialTangential, {-0.28, 0.07, 2e-4, 1e-5}};
    c.right = {182, 180, 163, 98, LensModel::kRadialTangential, {-0.27, 0.065, -1e-4, 3e-5}};
    const double a = 0.02, b = -0.015;  // about x, about y
    const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b);
    c.right_from_left = {cb, sb * sa, sb * ca, 0, ca, -sa, -sb, cb * sa, cb * ca};
    c.translation_mm = {-120, 1.5, -2};
    return c;
}

Vector3 inRight(const StereoCalibration& c, const Vector3& p) {
    Vector3 q;
    for (int i = 0; i < 3; ++i)
        q[i] = c.right_from_left[i * 3] * p[0] + c.right_from_left[i * 3 + 1] * p[1] +
               c.right_from_left[i * 3 + 2] * p[2] + c.translation_mm[i];
    return q;
}

/// A smooth spot at a position.
Image<std::uint8_t> spotAt(int width, int height, const ImagePoint& p) {
    Image<std::uint8_t> image(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double r2 = (x - p.x) * (x - p.x) + (y - p.y) * (y - p.y);
            image.at(x, y) = static_cast<std::uint8_t>(std::lround(240 * std::exp(-r2 / 8)));
        }
    return image;
}

ImagePoint centreOf(const Image<std::uint8_t>& image) {
    double sum = 0, sx = 0, sy = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            sum += image.at(x, y);
            sx += image.at(x, y) * x;
            sy += image.at(x, y) * y;
        }
    return {sx / sum, sy / sum};
}

void expectSpotsWhereGeometrySays(const StereoCalibration& c) {
    Status status;
    const auto rectifier = Rectifier::make(c, status);
    ASSERT_TRUE(rectifier) << status.message();
    const RectifiedGeometry& g = rectifier->geometry();
    EXPECT_EQ(0, g.width % 4);
    EXPECT_NEAR(g.baseline_mm, c.baselineMm(), 1e-9);
    for (const Vector3& p :
         {Vector3{0, 0, 1500}, {300, 150, 1500}, {-250, -200, 1200}, {100, -100, 4000}}) {
        const Image<std::uint8_t> left = spotAt(c.width, c.height, projectRay(c.left, p));
        const Image<std::uint8_t> right =
            spotAt(c.width, c.height, projectRay(c.right, inRight(c, p)));
        Image<std::uint8_t> left_out, right_out;
        rectifier->rectify(left.view(), right.view(), left_out, right_out);
        ASSERT_EQ(g.width, left_out.width());
        ASSERT_EQ(g.height, right_out.height());
        const ImagePoint l = centreOf(left_out);
        const ImagePoint r = centreOf(right_out);
        const auto& m = rectifier->rectifiedFromLeft();
        Vector3 q;
        for (int i = 0; i < 3; ++i)
            q[i] = m[i * 3] * p[0] + m[i * 3 + 1] * p[1] + m[i * 3 + 2] * p[2];
        EXPECT_NEAR(l.x, g.fx * q[0] / q[2] + g.cx, 0.1);
        EXPECT_NEAR(l.y, g.fy * q[1] / q[2] + g.cy, 0.1);
        EXPECT_NEAR(l.y, r.y, 0.1) << "rows are not aligned";
        EXPECT_NEAR(l.x - r.x + g.disparityOffset(), g.fx * g.baseline_mm / q[2], 0.1);
    }
}

TEST(Rectifier, SpotsLieWhereTheGeometrySays) {
    expectSpotsWhereGeometrySays(realistic());
}

TEST(Rectifier, SpotsLieWhereTheGeometrySaysForFisheyes) {
    StereoCalibration c = realistic();
    for (CameraIntrinsics* eye : {&c.left, &c.right}) {
        eye->lens = LensModel::kEquidistant;
        eye->distortion = {-0.01, 0.02, -0.005, 0.001};
    }
    expectSpotsWhereGeometrySays(c);
}

/// Every pixel comes from inside of the picture: a frame of one value around other content shows
/// wherever a position was moved to the edge.
TEST(Rectifier, OnlyValidPixelsAreShown) {
    for (const bool fisheye : {false, true}) {
        StereoCalibration c = realistic();
        if (fisheye)
            for (CameraIntrinsics* eye : {&c.left, &c.right}) {
                eye->lens = LensModel::kEquidistant;
                eye->distortion = {-0.01, 0.02, -0.005, 0.001};
            }
        Status status;
        const auto rectifier = Rectifier::make(c, status);
        ASSERT_TRUE(rectifier) << status.message();
        Image<std::uint8_t> framed(c.width, c.height), left, right;
        framed.fill(0);
        for (int x = 0; x < c.width; ++x) framed.at(x, 0) = framed.at(x, c.height - 1) = 255;
        for (int y = 0; y < c.height; ++y) framed.at(0, y) = framed.at(c.width - 1, y) = 255;
        rectifier->rectify(framed.view(), framed.view(), left, right);
        int touched = 0;
        for (int y = 0; y < left.height(); ++y)
            for (int x = 0; x < left.width(); ++x)
                touched += (left.at(x, y) == 255) + (right.at(x, y) == 255);
        // A frame seen exactly along an edge is allowed, an edge of copies is not.
        EXPECT_LE(touched, 8) << (fisheye ? "fisheye" : "radial-tangential");
    }
}

TEST(Rectifier, RectifiedPicturesAreOnlyCropped) {
    StereoCalibration c;
    c.width = 1226;
    c.height = 3;
    c.left = {707, 707, 602, 1, LensModel::kRadialTangential, {}};
    c.right = c.left;
    c.right.cx = 610;
    c.translation_mm = {-537, 0, 0};
    c.rectified = true;
    Status status;
    const auto rectifier = Rectifier::make(c, status);
    ASSERT_TRUE(rectifier) << status.message();
    EXPECT_EQ(1224, rectifier->geometry().width);
    EXPECT_EQ(8, rectifier->geometry().disparityOffset());
    Image<std::uint8_t> in(1226, 3), left, right;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 1226; ++x) in.at(x, y) = static_cast<std::uint8_t>(x * 7 + y);
    rectifier->rectify(in.view(), in.view(), left, right);
    ASSERT_EQ(1224, left.width());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 1224; ++x) {
            ASSERT_EQ(in.at(x, y), left.at(x, y));
            ASSERT_EQ(in.at(x, y), right.at(x, y));
        }
    Image<Rgba> colour(1226, 3), colour_out;
    colour.at(1223, 2) = {1, 2, 3, 4};
    rectifier->rectifyLeftColour(colour.view(), colour_out);
    EXPECT_EQ(1224, colour_out.width());
    EXPECT_EQ((Rgba{1, 2, 3, 4}), colour_out.at(1223, 2));
    Image<Rgba> right_out;
    rectifier->rectifyRightColour(colour.view(), right_out);
    EXPECT_EQ(1224, right_out.width());
    EXPECT_EQ((Rgba{1, 2, 3, 4}), right_out.at(1223, 2));
}

TEST(Rectifier, ColoursLieWhereTheBrightnessLies) {
    Status status;
    const StereoCalibration c = realistic();
    const auto rectifier = Rectifier::make(c, status);
    ASSERT_TRUE(rectifier) << status.message();
    const Image<std::uint8_t> left = spotAt(c.width, c.height, {100, 80});
    const Image<std::uint8_t> right = spotAt(c.width, c.height, {90, 75});
    const auto coloured = [](const Image<std::uint8_t>& grey) {
        Image<Rgba> image(grey.width(), grey.height());
        for (int y = 0; y < grey.height(); ++y)
            for (int x = 0; x < grey.width(); ++x) image.at(x, y) = {0, 0, grey.at(x, y), 255};
        return image;
    };
    Image<std::uint8_t> left_out, right_out;
    rectifier->rectify(left.view(), right.view(), left_out, right_out);
    Image<Rgba> left_colour, right_colour;
    rectifier->rectifyLeftColour(coloured(left).view(), left_colour);
    rectifier->rectifyRightColour(coloured(right).view(), right_colour);
    for (int y = 0; y < left_out.height(); ++y)
        for (int x = 0; x < left_out.width(); ++x) {
            ASSERT_EQ(left_colour.at(x, y).b, left_out.at(x, y));
            ASSERT_EQ(right_colour.at(x, y).b, right_out.at(x, y));
        }
}

TEST(Rectifier, ImpossibleCalibrationsAreRefusedInWords) {
    Status status;
    StereoCalibration c = realistic();
    c.translation_mm = {120, 0, 0};
    EXPECT_FALSE(Rectifier::make(c, status));
    EXPECT_NE(std::string::npos, status.message().find("swapped"));
    c = realistic();
    c.rectified = true;
    EXPECT_FALSE(Rectifier::make(c, status));
    EXPECT_EQ(ErrorCode::kInvalidFile, status.code());
    c = realistic();
    c.right.lens = LensModel::kEquidistant;
    EXPECT_FALSE(Rectifier::make(c, status));
    EXPECT_NE(std::string::npos, status.message().find("lens"));
}

/// Rows of the right picture move by what was asked for, whatever the lens does to them.
void expectRowsMoved(const StereoCalibration& c) {
    Status status;
    const auto rectifier = Rectifier::make(c, status);
    ASSERT_TRUE(rectifier) << status.message();
    RowOffset offset(rectifier->geometry());
    offset.terms = {0.6, -0.8, 0.4, 0.5, 0.2};
    Image<std::uint8_t> left, right, left_after, right_after, right_again;
    for (const ImagePoint& p : {ImagePoint{60, 50}, {160, 100}, {250, 60}, {240, 160}, {70, 150}}) {
        const Image<std::uint8_t> spot = spotAt(c.width, c.height, p);
        rectifier->alignRows(RowOffset(rectifier->geometry()));
        rectifier->rectify(spot.view(), spot.view(), left, right);
        rectifier->alignRows(offset);
        rectifier->rectify(spot.view(), spot.view(), left_after, right_after);
        const ImagePoint before = centreOf(right), after = centreOf(right_after);
        EXPECT_NEAR(after.y, before.y - offset.at(after.x, after.y), 0.06);
        EXPECT_NEAR(after.x, before.x - offset.sideways(after.y), 0.06);
        EXPECT_GT(std::hypot(after.x - before.x, after.y - before.y), 0.2)
            << "else nothing is shown";
        EXPECT_EQ(centreOf(left).y, centreOf(left_after).y) << "the left eye stays";

        Image<Rgba> colour(c.width, c.height), colour_out;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) colour.at(x, y) = {0, spot.at(x, y), 0, 255};
        rectifier->rectifyRightColour(colour.view(), colour_out);
        rectifier->alignRows(RowOffset(rectifier->geometry()));
        rectifier->rectify(spot.view(), spot.view(), left, right_again);
        int unlike = 0, changed = 0;
        for (int y = 0; y < right.height(); ++y)
            for (int x = 0; x < right.width(); ++x) {
                unlike += colour_out.at(x, y).g != right_after.at(x, y);
                changed += right_again.at(x, y) != right.at(x, y);
            }
        EXPECT_EQ(unlike, 0) << "colours move with the greys";
        EXPECT_EQ(changed, 0) << "an offset of nothing takes it back";
    }
}

TEST(Rectifier, RowsAreMovedThroughTheLens) {
    expectRowsMoved(realistic());
    StereoCalibration fisheye = realistic();
    for (CameraIntrinsics* eye : {&fisheye.left, &fisheye.right}) {
        eye->lens = LensModel::kEquidistant;
        eye->distortion = {-0.01, 0.02, -0.005, 0.001};
    }
    expectRowsMoved(fisheye);
}

TEST(Rectifier, RowsOfRectifiedPicturesAreMovedToo) {
    StereoCalibration c = realistic();
    c.left = c.right = {180, 180, 160, 100, LensModel::kRadialTangential, {}};
    c.right_from_left = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    c.translation_mm = {-120, 0, 0};
    c.rectified = true;
    expectRowsMoved(c);
}

}  // namespace
}  // namespace kova::camera
