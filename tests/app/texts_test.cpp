#include "app/texts.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <limits>

namespace kova::app {
namespace {

std::string plain(const QString& text) {
    return text.toStdString();
}

TEST(Texts, CalculationTimeHasOneDecimal) {
    EXPECT_EQ(plain(calculationTimeText(0.0234)), "Calculation time: 23.4 ms");
    EXPECT_EQ(plain(calculationTimeText(0)), "Calculation time: 0.0 ms");
    EXPECT_EQ(plain(calculationTimeText(1.23456)), "Calculation time: 1234.6 ms");
}

TEST(Texts, Confidence) {
    EXPECT_EQ(plain(confidenceText(75)), "Confidence 75 %");
    EXPECT_EQ(plain(confidenceText(100)), "Confidence 100 %");
}

TEST(Texts, DistanceRangeIsTruncated) {
    EXPECT_EQ(plain(distanceRangeText(300, 8000)), "Distance Range  (300 8000)");
    EXPECT_EQ(plain(distanceRangeText(299.9f, 8000.9f)), "Distance Range  (299 8000)");
    EXPECT_EQ(plain(distanceRangeText(0, std::numeric_limits<float>::infinity())),
              "Distance Range  (0 2147483647)");
}

TEST(Texts, ExposureHasTwoDecimals) {
    EXPECT_EQ(plain(exposureText(12.5f)), "12.50 ms");
    EXPECT_EQ(plain(exposureText(0)), "0.00 ms");
}

TEST(Texts, SerialNumberIsUnsigned) {
    EXPECT_EQ(plain(serialNumberText(4294967295u)), "SN 4294967295");
}

TEST(Texts, HardwareVersion) {
    EXPECT_EQ(plain(hardwareVersionText("1.0")), "HW 1.0");
    EXPECT_EQ(plain(hardwareVersionText("")), "HW ");
}

TEST(Texts, PointInWholeMillimetres) {
    EXPECT_EQ(plain(pointText({3, 4}, {12.4f, -5.6f, 800.4f})),
              "Distance [x,y,z] at (3, 4) = [12, -6, 800] mm");
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(plain(pointText({0, 0}, {nan, nan, nan})),
              "Distance [x,y,z] at (0, 0) = [nan, nan, nan] mm");
}

TEST(Texts, DistanceWithTwoDecimals) {
    EXPECT_EQ(plain(distanceText({3, 4}, {5, 6}, 123.456f)),
              "Distance between (3, 4), (5, 6) : 123.46 mm");
}

TEST(Texts, ErrorIsTheLeadInAndTheTextOfTheResult) {
    EXPECT_EQ(plain(errorText("Lead-in: \r\n", RESULT_CAN_NOT_OPEN_FILE)),
              "Lead-in: \r\nCan not open file");
    EXPECT_EQ(plain(errorText("Lead-in: \r\n", RESULT_UNUSED_5)), "Lead-in: \r\n");
    EXPECT_EQ(plain(errorText("Lead-in: \r\n", static_cast<RESULT_CODE>(24))), "Lead-in: \r\n");
}

TEST(Texts, NamesOfTheTablesAreShownAsTheyAre) {
    EXPECT_EQ(plain(translatedName("HD800_50FPS")), "HD800_50FPS");
    EXPECT_TRUE(translatedName("").isEmpty());
}

TEST(Texts, TutorialsWordForWord) {
    EXPECT_EQ(
        plain(tutorialsText()),
        "When IMU is not being used, the camera should be almost parallel to the ground (without "
        "roll angle).\r\nWhen IMU is being used, roll angle can be fixed.\r\nThere must be ground "
        "in the image, or obstacle detection can not be done.\r\n"
        "\r\n"
        "Image With Obstacle: Draw nearest obstacle objects in each column and horizontal point on "
        "image.\r\nRed points: Obstacle objects. Green line: Horizontal point.\r\n"
        "\r\n"
        "Image With Ground: Draw ground with blue color on image.\r\n"
        "\r\n"
        "Top View: Show obstacle objects from the top.\r\nIn side-range, >far: green, mid~far: "
        "yellow, near~mid: orange, <near: red.\r\nOut of side-range, >mid: green, near~mid: "
        "yellow, <near: orange\r\n"
        "\r\n"
        "Ground Map: Show ground map.\r\n0: obstacle objects, 127: not sure, 255: ground\r\n"
        "\r\n"
        "Image With Stixels: Draw stixels on the image.\r\n"
        "\r\n"
        "Stixels: Draw stixels only.\r\n");
}

}  // namespace
}  // namespace kova::app
