#include "camera/calibration/store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "camera/calibration/formats.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using testing::HasSubstr;

StereoCalibration calibration() {
    StereoCalibration c;
    c.width = 1280;
    c.height = 800;
    c.left = {700, 701, 640, 400, LensModel::kRadialTangential, {-0.2, 0.03, 1e-3, 2e-3}};
    c.right = {702, 703, 641, 399, LensModel::kRadialTangential, {-0.21, 0.04, -1e-3, 1e-3}};
    c.right_from_left = {0.8, -0.6, 0, 0.6, 0.8, 0, 0, 0, 1};
    c.translation_mm = {-60, 1, 2};
    return c;
}

class Store : public testing::Test {
protected:
    void SetUp() override { ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1); }
    void TearDown() override { ::unsetenv("XDG_CONFIG_HOME"); }
    test::TemporaryFolder folder_;
};

TEST_F(Store, FindsWhatItStored) {
    std::filesystem::path path;
    ASSERT_TRUE(storeCalibration(4711, calibration(), &path).ok());
    EXPECT_EQ(folder_ / "kova" / "4711.yaml", path);
    const auto found = findCalibration(4711, 1280, 800);
    ASSERT_TRUE(found.ok()) << found.status().message();
    EXPECT_EQ(calibration().translation_mm, found.value().translation_mm);
    EXPECT_FALSE(std::filesystem::exists(path.string() + ".part"));
}

TEST_F(Store, ScalesTheSameViewAndRefusesAnother) {
    ASSERT_TRUE(storeCalibration(1, calibration()).ok());
    const auto half = findCalibration(1, 640, 400);
    ASSERT_TRUE(half.ok()) << half.status().message();
    EXPECT_EQ(350, half.value().left.fx);
    EXPECT_EQ(319.75, half.value().left.cx);
    EXPECT_EQ(640, half.value().width);
    const auto other = findCalibration(1, 1280, 720);
    EXPECT_EQ(ErrorCode::kCalibrationMisfit, other.status().code());
    EXPECT_THAT(other.status().message(), HasSubstr("1280x720"));
}

TEST_F(Store, SaysWhereItSearched) {
    const auto none = findCalibration(99);
    EXPECT_EQ(ErrorCode::kNotCalibrated, none.status().code());
    EXPECT_THAT(none.status().message(), HasSubstr("99.yaml"));
    EXPECT_THAT(none.status().message(), HasSubstr("/etc/kova"));
    std::filesystem::create_directories(folder_ / "kova");
    std::ofstream(folder_ / "kova/99.yaml") << "nonsense";
    EXPECT_EQ(ErrorCode::kInvalidFile, findCalibration(99).status().code());
}

TEST_F(Store, WithoutTheVariableTheHomeFolderCounts) {
    ::unsetenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    ASSERT_TRUE(home);
    const auto folders = calibrationFolders();
    ASSERT_EQ(2U, folders.size());
    EXPECT_EQ(std::filesystem::path(home) / ".config/kova", folders[0]);
    EXPECT_EQ("/etc/kova", folders[1]);
}

TEST_F(Store, ABadCalibrationIsNotStored) {
    StereoCalibration bad = calibration();
    bad.translation_mm = {0, 0, 0};
    EXPECT_FALSE(storeCalibration(1, bad).ok());
    EXPECT_FALSE(std::filesystem::exists(folder_ / "kova"));
}

// --- Writing in other forms and reading back ------------------------------------------------

void expectSame(const StereoCalibration& a, const StereoCalibration& b, double tolerance) {
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    for (const auto& [p, q] : {std::pair(&a.left, &b.left), {&a.right, &b.right}}) {
        EXPECT_NEAR(p->fx, q->fx, tolerance);
        EXPECT_NEAR(p->fy, q->fy, tolerance);
        EXPECT_NEAR(p->cx, q->cx, tolerance);
        EXPECT_NEAR(p->cy, q->cy, tolerance);
        EXPECT_EQ(p->lens, q->lens);
        for (std::size_t i = 0; i < std::max(p->distortion.size(), q->distortion.size()); ++i)
            EXPECT_NEAR(i < p->distortion.size() ? p->distortion[i] : 0,
                        i < q->distortion.size() ? q->distortion[i] : 0, tolerance);
    }
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a.right_from_left[i], b.right_from_left[i], tolerance);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a.translation_mm[i], b.translation_mm[i], tolerance);
}

TEST(FormatWriters, RawPairsRoundTrip) {
    test::TemporaryFolder folder;
    for (const LensModel lens : {LensModel::kRadialTangential, LensModel::kEquidistant})
        for (const CalibrationFormat format :
             {CalibrationFormat::kKova, CalibrationFormat::kOpenCv, CalibrationFormat::kRos,
              CalibrationFormat::kEuroc, CalibrationFormat::kKalibr}) {
            StereoCalibration c = calibration();
            // A turn that rectification can undo.
            const double s = std::sin(0.03), k = std::cos(0.03);
            c.right_from_left = {1, 0, 0, 0, k, -s, 0, s, k};
            c.left.lens = c.right.lens = lens;
            const auto path = folder / ("raw" + std::to_string(static_cast<int>(format)) +
                                        std::to_string(static_cast<int>(lens)));
            const Status written = writeCalibration(c, format, path);
            if (format == CalibrationFormat::kOpenCv && lens == LensModel::kEquidistant) {
                EXPECT_THAT(written.message(), HasSubstr("lens model"));
                continue;
            }
            ASSERT_TRUE(written.ok()) << written.message();
            const auto read = readCalibration(path);
            ASSERT_TRUE(read.ok()) << formatName(format) << ": " << read.status().message();
            expectSame(c, read.value(), 1e-6);
            EXPECT_FALSE(read.value().rectified);
        }
}

TEST(FormatWriters, RectifiedPairsRoundTrip) {
    test::TemporaryFolder folder;
    StereoCalibration c;
    c.width = 1226;
    c.height = 370;
    c.left = {707.0912, 707.0912, 601.8873, 183.1104, LensModel::kRadialTangential, {}};
    c.right = c.left;
    c.right.cx += 7.25;
    c.translation_mm = {-537.1506, 0, 0};
    c.rectified = true;
    for (const CalibrationFormat format :
         {CalibrationFormat::kKova, CalibrationFormat::kRos, CalibrationFormat::kKitti,
          CalibrationFormat::kMiddlebury}) {
        const auto path = folder / ("r" + std::to_string(static_cast<int>(format)));
        ASSERT_TRUE(writeCalibration(c, format, path).ok()) << formatName(format);
        const auto read = readCalibration(path);
        ASSERT_TRUE(read.ok()) << formatName(format) << ": " << read.status().message();
        expectSame(c, read.value(), 1e-9);
        EXPECT_TRUE(read.value().rectified) << formatName(format);
    }
}

TEST(FormatWriters, WhatAFormCannotHoldIsRefused) {
    test::TemporaryFolder folder;
    const StereoCalibration c = calibration();
    for (const CalibrationFormat format :
         {CalibrationFormat::kKitti, CalibrationFormat::kMiddlebury}) {
        const Status s = writeCalibration(c, format, folder / "x.txt");
        EXPECT_EQ(ErrorCode::kInvalidArgument, s.code());
        EXPECT_THAT(s.message(), HasSubstr("rectified"));
    }
    StereoCalibration five = c;
    five.left.distortion.push_back(0.01);
    EXPECT_THAT(writeCalibration(five, CalibrationFormat::kKalibr, folder / "k.yaml").message(),
                HasSubstr("four distortion coefficients"));
    EXPECT_EQ(ErrorCode::kWriteFailed,
              writeCalibration(c, CalibrationFormat::kKova, folder / "no/such/folder.yml").code());
}

}  // namespace
}  // namespace kova::camera
