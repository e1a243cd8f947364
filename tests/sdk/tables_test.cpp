#include <gtest/gtest.h>

#include "sdk/modes.h"
#include "sdk/result_code.h"

namespace kova {
namespace {

using bino::CAMERA_MODEL;
using bino::RESOLUTION_FPS_MODE;

TEST(ResultCode, EveryCodeHasItsText) {
    const char* const texts[24] = {
        "OK",
        "Invalid GPU",
        "Invalid camera",
        "Camera is not open",
        "Invalid resolution mode",
        "",
        "GPU memory is not enough",
        "Not a new frame",
        "End of .kova file",
        "Can not open file",
        "File write failed",
        ".kova file is invalid",
        "IMU data type is invalid",
        "IMU is invalid",
        "IMU sampling rate is invalid",
        "End of .imu file",
        ".imu file is invalid",
        ".pcd file is invalid",
        ".ply file is invalid",
        ".stl file is invalid",
        "Calibration check failed, try to use the camera in normal environment",
        "Need to do calibration again",
        "Point cloud is saving, cannot save another one at the same time",
        "Point cloud type is invalid",
    };
    for (int code = 0; code < 24; ++code)
        EXPECT_EQ(result_code2str(static_cast<RESULT_CODE>(code)), texts[code]) << code;
}

TEST(ResultCode, CodesOutsideTheTableAndFiveAreEmpty) {
    for (const int code : {5, 24, -1, 1000, -2147483647})
        EXPECT_EQ(result_code2str(static_cast<RESULT_CODE>(code)), "") << code;
}

struct ModeRow {
    int value;
    const char* name;
    int width;
    int height;
    float fps;
};
const ModeRow kModes[] = {
    {1, "HD800_120FPS", 1280, 800, 120}, {2, "HD800_100FPS", 1280, 800, 100},
    {3, "HD800_60FPS", 1280, 800, 60},   {4, "HD800_50FPS", 1280, 800, 50},
    {5, "HD800_30FPS", 1280, 800, 30},   {6, "HD800_15FPS", 1280, 800, 15},
    {9, "HD720_120FPS", 1280, 720, 120}, {10, "HD720_100FPS", 1280, 720, 100},
    {11, "HD720_60FPS", 1280, 720, 60},  {12, "HD720_50FPS", 1280, 720, 50},
    {13, "HD720_30FPS", 1280, 720, 30},  {14, "HD720_15FPS", 1280, 720, 15},
    {17, "SD400_120FPS", 640, 400, 120}, {18, "SD400_100FPS", 640, 400, 100},
    {19, "SD400_90FPS", 640, 400, 90},   {20, "SD400_60FPS", 640, 400, 60},
    {21, "SD400_30FPS", 640, 400, 30},   {22, "SD400_15FPS", 640, 400, 15},
};

TEST(ResolutionModes, EveryRowIsFoundByValueAndBySize) {
    ASSERT_EQ(bino::resolution_fps_modes().size(), std::size(kModes));
    for (const ModeRow& row : kModes) {
        const auto mode = static_cast<RESOLUTION_FPS_MODE>(row.value);
        EXPECT_EQ(bino::resolution_fps_mode2str(mode), row.name);
        const bino::ResolutionFpsMode* by_value = bino::find_resolution_fps_mode(mode);
        ASSERT_NE(by_value, nullptr);
        EXPECT_EQ(by_value->width, row.width);
        EXPECT_EQ(by_value->height, row.height);
        EXPECT_EQ(by_value->fps, row.fps);
        EXPECT_EQ(bino::find_resolution_fps_mode(row.width, row.height, row.fps), by_value);
    }
}

TEST(ResolutionModes, GapsAndOutsidersHaveNoName) {
    for (const int value : {0, 7, 8, 15, 16, 23, -1})
        EXPECT_EQ(bino::resolution_fps_mode2str(static_cast<RESOLUTION_FPS_MODE>(value)), "")
            << value;
}

TEST(ResolutionModes, RatesAreComparedExactly) {
    EXPECT_EQ(bino::find_resolution_fps_mode(1280, 720, 25.0f), nullptr);
    EXPECT_EQ(bino::find_resolution_fps_mode(1280, 720, 30.0001f), nullptr);
    EXPECT_EQ(bino::find_resolution_fps_mode(1280, 721, 30.0f), nullptr);
}

std::vector<int> modesOf(int model) {
    std::vector<int> values;
    for (const RESOLUTION_FPS_MODE mode :
         bino::camera_model_modes(static_cast<CAMERA_MODEL>(model)))
        values.push_back(mode);
    return values;
}

TEST(CameraModels, NamesModesAndDefaults) {
    const std::vector<int> slow = {3, 4, 5, 6, 11, 12, 13, 14, 20, 21, 22};
    const std::vector<int> fast = {1, 2, 3, 4, 5, 6, 9, 10, 11, 12, 13, 14, 17, 18, 19, 20, 21, 22};
    struct {
        int code;
        const char* name;
        const std::vector<int>& modes;
        int default_index;
    } rows[] = {{0, "Quelvar R0", slow, 1},
                {1, "Quelvar R1", fast, 3},
                {51, "Quelvar T1", fast, 3},
                {100, "Quelvar P0", slow, 1},
                {101, "Quelvar P1", fast, 3}};
    for (const auto& row : rows) {
        const auto model = static_cast<CAMERA_MODEL>(row.code);
        EXPECT_EQ(bino::camera_model2str(model), row.name);
        EXPECT_EQ(modesOf(row.code), row.modes) << row.name;
        EXPECT_EQ(bino::camera_model_default_mode_index(model), row.default_index) << row.name;
        EXPECT_EQ(modesOf(row.code).at(row.default_index), 4) << row.name;
    }
}

TEST(CameraModels, UnknownCodeHasNoNameAndNoModes) {
    for (const int code : {2, 50, 102, -1}) {
        EXPECT_EQ(bino::camera_model2str(static_cast<CAMERA_MODEL>(code)), "");
        EXPECT_TRUE(modesOf(code).empty());
    }
}

TEST(ViewTypes, NamesInOrder) {
    const char* const names[] = {"Image With Obstacle", "Image With Ground",  "Top View",
                                 "Ground Map",          "Image With Stixels", "Stixels"};
    for (int type = 0; type < 6; ++type)
        EXPECT_EQ(bino::obstacle_view_type2str(static_cast<bino::OBSTACLE_VIEW_TYPE>(type)),
                  names[type]);
    EXPECT_EQ(bino::obstacle_view_type2str(static_cast<bino::OBSTACLE_VIEW_TYPE>(6)), "");
    EXPECT_EQ(bino::obstacle_view_type2str(static_cast<bino::OBSTACLE_VIEW_TYPE>(-1)), "");
}

}  // namespace
}  // namespace kova
