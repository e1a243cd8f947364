#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <string>

#include "camera/base/log.h"
#include "camera/sources/v4l2_source.h"
#include "tests/camera/sources/fake_v4l2.h"

namespace kova::camera {
namespace {

using test::FakeV4l2;
using testing::HasSubstr;

const bino::ResolutionFpsMode& mode(bino::RESOLUTION_FPS_MODE value) {
    return *bino::find_resolution_fps_mode(value);
}
const auto kSd30 = bino::RESOLUTION_FPS_MODE_SD400_30FPS;

struct V4l2 : testing::Test {
    FakeV4l2 system;
    CameraConfig config;
    StereoCalibration calibration;
    V4l2Device device;

    void SetUp() override {
        system.modes = {{V4L2_PIX_FMT_GREY, 1280, 400, {60, 30}}};
        system.texts = {{"serial", "4711"}, {"bcdDevice", "0102"}};
    }
    void query() { ASSERT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kCamera); }
    Result<std::unique_ptr<V4l2Source>> open(bino::RESOLUTION_FPS_MODE wanted = kSd30) {
        EXPECT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kCamera);
        return V4l2Source::open(system, device, config, mode(wanted), calibration);
    }
    static FakeV4l2::Frame grey(std::uint32_t sequence, std::uint8_t value = 9) {
        FakeV4l2::Frame frame;
        frame.bytes.assign(1280 * 400, value);
        frame.sequence = sequence;
        frame.t_ns = 6000000000 + sequence * INT64_C(33000000);
        return frame;
    }
};

// --- What a device is ------------------------------------------------------------------------

TEST_F(V4l2, QueryReadsNameSerialVersionAndModes) {
    query();
    EXPECT_EQ(device.name, "Stereo Camera");
    EXPECT_EQ(device.serial, "4711");
    EXPECT_EQ(device.hardware_version, "1.02");
    ASSERT_EQ(device.modes.size(), 2u);
    EXPECT_NEAR(device.modes[0].max_fps, 60, 0.1);
    EXPECT_EQ(system.open_files, 0);
}

TEST_F(V4l2, NodesThatDoNotCaptureAreNoDevices) {
    system.caps = V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING;
    EXPECT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kOther);
    system.caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    system.failures[VIDIOC_QUERYCAP] = {ENOTTY};
    EXPECT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kOther);
    system.open_error = ENOENT;
    EXPECT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kOther);
    EXPECT_EQ(system.open_files, 0);
}

TEST_F(V4l2, ANodeThatTheUserMayNotOpenIsToldApart) {
    for (const int error : {EACCES, EPERM}) {
        system.open_error = error;
        EXPECT_EQ(queryDevice(system, "/dev/video0", device), NodeKind::kForbidden);
    }
}

TEST_F(V4l2, UnknownFormatsAreLeftOut) {
    system.modes.push_back({V4L2_PIX_FMT_H264, 2560, 800, {30}});
    query();
    for (const V4l2Mode& m : device.modes) EXPECT_NE(m.fourcc, std::uint32_t(V4L2_PIX_FMT_H264));
}

TEST_F(V4l2, SteppedSizesOfferEveryStereoModeWithinThem) {
    system.modes = {{V4L2_PIX_FMT_YUYV, 2560, 800, {60}, true}};
    query();
    EXPECT_FALSE(matchMode(device, config, mode(bino::RESOLUTION_FPS_MODE_HD800_60FPS)).empty());
    EXPECT_FALSE(matchMode(device, config, mode(bino::RESOLUTION_FPS_MODE_SD400_15FPS)).empty());
    EXPECT_TRUE(matchMode(device, config, mode(bino::RESOLUTION_FPS_MODE_HD800_120FPS)).empty());
}

TEST_F(V4l2, ADriverThatNamesNoRatesMayHaveAny) {
    system.modes = {{V4L2_PIX_FMT_GREY, 1280, 400, {}}};
    query();
    EXPECT_FALSE(matchMode(device, config, mode(bino::RESOLUTION_FPS_MODE_SD400_120FPS)).empty());
}

TEST_F(V4l2, LayoutIsGuessedFromTheShape) {
    query();
    auto matches = matchMode(device, config, mode(kSd30));
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].stream.layout, FrameLayout::kSideBySide);
    EXPECT_EQ(matches[0].stream.eyeWidth(), 640);
    EXPECT_EQ(matches[0].stream.nominal_fps, 30);

    system.modes = {{V4L2_PIX_FMT_GREY, 640, 800, {30}}};
    query();
    matches = matchMode(device, config, mode(kSd30));
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].stream.layout, FrameLayout::kTopBottom);
    EXPECT_EQ(matches[0].stream.eyeHeight(), 400);
}

TEST_F(V4l2, InterleavedEyesMustBeStated) {
    system.modes = {{V4L2_PIX_FMT_YUYV, 640, 400, {30}}, {V4L2_PIX_FMT_GREY, 640, 400, {30}}};
    query();
    EXPECT_TRUE(matchMode(device, config, mode(kSd30)).empty()) << "any webcam offers that";
    config.layout_stated = true;
    config.layout = FrameLayout::kInterleaved;
    const auto matches = matchMode(device, config, mode(kSd30));
    ASSERT_EQ(matches.size(), 1u) << "grey pictures hold one eye only";
    EXPECT_EQ(matches[0].stream.layout, FrameLayout::kInterleaved);
}

TEST_F(V4l2, StatedLayoutAndFlipsReachTheStream) {
    system.modes = {{V4L2_PIX_FMT_GREY, 1280, 400, {30}}, {V4L2_PIX_FMT_GREY, 640, 800, {30}}};
    config.layout_stated = true;
    config.layout = FrameLayout::kTopBottom;
    config.swapped = config.right_flipped = true;
    query();
    const auto matches = matchMode(device, config, mode(kSd30));
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].stream.layout, FrameLayout::kTopBottom);
    EXPECT_TRUE(matches[0].stream.swapped && matches[0].stream.right_flipped);
    EXPECT_FALSE(matches[0].stream.left_flipped);
}

TEST_F(V4l2, UncompressedComesBeforeJpeg) {
    system.modes = {{V4L2_PIX_FMT_MJPEG, 1280, 400, {30}},
                    {V4L2_PIX_FMT_GREY, 1280, 400, {30}},
                    {V4L2_PIX_FMT_YUYV, 1280, 400, {30}}};
    query();
    const auto matches = matchMode(device, config, mode(kSd30));
    ASSERT_EQ(matches.size(), 3u);
    EXPECT_EQ(fourccText(matches[0].mode.fourcc), "YUYV");
    EXPECT_EQ(fourccText(matches[1].mode.fourcc), "GREY");
    EXPECT_EQ(fourccText(matches[2].mode.fourcc), "MJPG");
}

TEST_F(V4l2, ModelFollowsRateAndInertialUnit) {
    bino::CAMERA_MODEL model;
    query();
    ASSERT_TRUE(modelOf(device, config, model));
    EXPECT_EQ(model, bino::CAMERA_MODEL_QUELVAR_R0);
    config.iio = {"imu"};
    ASSERT_TRUE(modelOf(device, config, model));
    EXPECT_EQ(model, bino::CAMERA_MODEL_QUELVAR_P0);
    system.modes[0].rates = {100};
    query();
    ASSERT_TRUE(modelOf(device, config, model));
    EXPECT_EQ(model, bino::CAMERA_MODEL_QUELVAR_P1);
    config.iio.clear();
    ASSERT_TRUE(modelOf(device, config, model));
    EXPECT_EQ(model, bino::CAMERA_MODEL_QUELVAR_R1);
    system.modes = {{V4L2_PIX_FMT_YUYV, 640, 480, {30}}};
    query();
    EXPECT_FALSE(modelOf(device, config, model)) << "a webcam is no stereo camera";
}

TEST(V4l2Serial, NumbersAreTakenOtherTextsChecksummed) {
    EXPECT_EQ(serialNumber(""), 0u);
    EXPECT_EQ(serialNumber("4711"), 4711u);
    EXPECT_EQ(serialNumber("123456789"), 0x075BCD15u);
    EXPECT_EQ(serialNumber("QV-12"), serialNumber("QV-12"));
    EXPECT_NE(serialNumber("QV-12"), serialNumber("QV-13"));
}

// --- Opening ---------------------------------------------------------------------------------

TEST_F(V4l2, OpenStartsTheModeAskedFor) {
    auto source = open();
    ASSERT_TRUE(source.ok()) << source.status().message();
    EXPECT_TRUE(system.streaming);
    EXPECT_NEAR(system.rate, 30, 1e-6);
    EXPECT_EQ(source.value()->camera().serial_number, 4711u);
    EXPECT_EQ(source.value()->camera().hardware_version, "1.02");
    source.value().reset();
    EXPECT_FALSE(system.streaming);
    EXPECT_EQ(system.open_files, 0);
    EXPECT_EQ(system.mapped, 0);
}

TEST_F(V4l2, AModeThatIsNotOfferedSaysSo) {
    auto source = open(bino::RESOLUTION_FPS_MODE_HD800_30FPS);
    EXPECT_EQ(source.status().code(), ErrorCode::kInvalidMode);
    EXPECT_THAT(source.status().message(), HasSubstr("HD800_30FPS"));
}

TEST_F(V4l2, ErrorsOfOpeningSayWhatToDo) {
    query();
    const std::pair<int, const char*> rows[] = {
        {EACCES, "group 'video'"}, {EBUSY, "another program"}, {ENODEV, "plugged in"}};
    for (const auto& [error, advice] : rows) {
        system.open_error = error;
        auto source = V4l2Source::open(system, device, config, mode(kSd30), calibration);
        EXPECT_EQ(source.status().code(), ErrorCode::kInvalidCamera);
        EXPECT_THAT(source.status().message(), HasSubstr(advice));
    }
}

TEST_F(V4l2, EveryFailingStepOfTheStartIsReportedAndUndone) {
    const unsigned long requests[] = {VIDIOC_S_FMT, VIDIOC_REQBUFS, VIDIOC_QUERYBUF, VIDIOC_QBUF,
                                      VIDIOC_STREAMON};
    for (const unsigned long request : requests) {
        system.failures = {{request, {EBUSY}}};
        auto source = open();
        EXPECT_EQ(source.status().code(), ErrorCode::kInvalidCamera) << request;
        EXPECT_THAT(source.status().message(), HasSubstr("another program")) << request;
        EXPECT_EQ(system.open_files, 0) << request;
        EXPECT_EQ(system.mapped, 0) << request;
    }
    system.failures.clear();
    system.map_fails = true;
    EXPECT_FALSE(open().ok());
    EXPECT_EQ(system.open_files, 0);
    system.map_fails = false;
    system.buffers_granted = 1;
    EXPECT_FALSE(open().ok());
    EXPECT_EQ(system.open_files, 0);
}

TEST_F(V4l2, AnAdjustedFormatIsRefused) {
    system.adjusts_format = true;
    auto source = open();
    EXPECT_EQ(source.status().code(), ErrorCode::kInvalidMode);
    EXPECT_THAT(source.status().message(), HasSubstr("640x400"));
}

TEST_F(V4l2, WithoutBandwidthItFallsBackToJpeg) {
    system.modes.push_back({V4L2_PIX_FMT_MJPEG, 1280, 400, {30}});
    system.stream_errors[V4L2_PIX_FMT_GREY] = ENOSPC;
    auto source = open();
    ASSERT_TRUE(source.ok()) << source.status().message();
    EXPECT_EQ(source.value()->stream().codec, FrameCodec::kJpeg);
    EXPECT_EQ(system.open_files, 1);
    source.value().reset();

    system.stream_errors[V4L2_PIX_FMT_MJPEG] = ENOSPC;
    source = open();
    EXPECT_EQ(source.status().code(), ErrorCode::kInvalidCamera);
    EXPECT_THAT(source.status().message(), HasSubstr("USB bus has no bandwidth"));
}

TEST_F(V4l2, ARateThatCannotBeSetIsNoReasonToFail) {
    system.failures[VIDIOC_S_PARM] = {ENOTTY};
    EXPECT_TRUE(open().ok());
}

// --- Frames ----------------------------------------------------------------------------------

TEST_F(V4l2, AFrameCarriesTheDriversTimeAndSequence) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.frames = {grey(3, 77)};
    RawFrame frame;
    ASSERT_TRUE(source.value()->grab(frame).ok());
    EXPECT_EQ(frame.t_ns, 6000000000 + 3 * 33000000);
    EXPECT_EQ(frame.sequence, 3);
    EXPECT_EQ(frame.data.size(), 1280u * 400u);
    EXPECT_EQ(frame.data[1000], 77);
    EXPECT_EQ(source.value()->droppedFrames(), 0);
}

TEST_F(V4l2, WithoutAMonotonicStampTheTimeOfArrivalCounts) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.frames = {grey(0)};
    system.frames[0].flags = V4L2_BUF_FLAG_TIMESTAMP_UNKNOWN;
    RawFrame frame;
    ASSERT_TRUE(source.value()->grab(frame).ok());
    EXPECT_EQ(frame.t_ns, system.clock_ns);
}

TEST_F(V4l2, TheNewestFrameWinsAndTheOthersAreDropped) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.frames = {grey(0, 1), grey(1, 2), grey(2, 3)};
    RawFrame frame;
    ASSERT_TRUE(source.value()->grab(frame).ok());
    EXPECT_EQ(frame.sequence, 2);
    EXPECT_EQ(frame.data[0], 3);
    EXPECT_EQ(source.value()->droppedFrames(), 2);
}

TEST_F(V4l2, GapsInTheSequenceAreDrops) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    RawFrame frame;
    system.frames = {grey(0)};
    ASSERT_TRUE(source.value()->grab(frame).ok());
    system.frames = {grey(5)};
    ASSERT_TRUE(source.value()->grab(frame).ok());
    EXPECT_EQ(source.value()->droppedFrames(), 4);
}

TEST_F(V4l2, DamagedFramesAreDroppedAndTheStreamGoesOn) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.frames = {grey(0), grey(1)};
    system.frames[0].bytes.resize(100);             // cut
    system.frames[1].flags |= V4L2_BUF_FLAG_ERROR;  // the driver's own word
    RawFrame frame;
    EXPECT_EQ(source.value()->grab(frame).code(), ErrorCode::kNoNewFrame);
    EXPECT_EQ(source.value()->droppedFrames(), 2);
    for (std::uint32_t i = 2; i < 12; ++i) {  // buffers went back to the driver
        system.frames = {grey(i)};
        ASSERT_TRUE(source.value()->grab(frame).ok()) << i;
    }
}

TEST_F(V4l2, ManyDamagedFramesAreAFewLinesOfTheLog) {
    std::vector<std::string> log;
    setLogSink([&](LogLevel, const std::string&, const std::string& text) { log.push_back(text); });
    auto source = open();
    ASSERT_TRUE(source.ok());
    log.clear();
    RawFrame frame;
    for (std::uint32_t i = 0; i < 101; ++i) {
        system.frames = {grey(i)};
        system.frames[0].flags |= V4L2_BUF_FLAG_ERROR;
        (void)source.value()->grab(frame);
    }
    setLogSink({});
    ASSERT_EQ(log.size(), 2u);
    EXPECT_THAT(log[0], HasSubstr("1 so far; try another cable"));
    EXPECT_THAT(log[1], HasSubstr("101 so far"));
}

TEST_F(V4l2, CutJpegsAreDroppedWholeOnesKeepTheirBytes) {
    system.modes = {{V4L2_PIX_FMT_MJPEG, 1280, 400, {30}}};
    auto source = open();
    ASSERT_TRUE(source.ok());
    RawFrame frame;
    FakeV4l2::Frame jpeg;
    jpeg.bytes = {0xFF, 0xD8, 1, 2, 3};
    system.frames = {jpeg};
    EXPECT_EQ(source.value()->grab(frame).code(), ErrorCode::kNoNewFrame);
    jpeg.sequence = 1;
    jpeg.bytes = {0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9, 0, 0, 0};  // padded by the driver
    system.frames = {jpeg};
    ASSERT_TRUE(source.value()->grab(frame).ok());
    EXPECT_EQ(frame.data, (std::vector<std::uint8_t>{0xFF, 0xD8, 1, 2, 3, 0xFF, 0xD9}));
    EXPECT_EQ(source.value()->droppedFrames(), 1);
}

TEST_F(V4l2, NothingDueIsNoErrorUntilASecondOfSilence) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    RawFrame frame;
    const std::int64_t begin = system.clock_ns;
    Status status;
    int grabs = 0;
    do {
        const std::int64_t before = system.clock_ns;
        status = source.value()->grab(frame);
        EXPECT_LE(system.clock_ns - before, 100000000);
        ++grabs;
    } while (status.code() == ErrorCode::kNoNewFrame && grabs < 100);
    EXPECT_EQ(status.code(), ErrorCode::kInvalidCamera);
    EXPECT_THAT(status.message(), HasSubstr("silent"));
    EXPECT_NEAR(double(system.clock_ns - begin), 1e9, 1e8);
    system.frames = {grey(0)};
    EXPECT_EQ(source.value()->grab(frame).code(), ErrorCode::kInvalidCamera) << "until closed";
}

TEST_F(V4l2, UnplugEndsTheStreamAndReopeningWorks) {
    for (const int how : {0, 1, 2}) {
        auto source = open();
        ASSERT_TRUE(source.ok());
        RawFrame frame;
        system.frames = {grey(0)};
        ASSERT_TRUE(source.value()->grab(frame).ok());
        system.frames = {grey(1)};
        if (how == 0)
            system.unplugged = true;
        else
            system.failures[how == 1 ? VIDIOC_DQBUF : VIDIOC_QBUF] = {ENODEV};
        const Status status = source.value()->grab(frame);
        EXPECT_EQ(status.code(), ErrorCode::kInvalidCamera) << how;
        EXPECT_THAT(status.message(), HasSubstr("plug it in")) << how;
        system.unplugged = false;
        system.failures.clear();
        EXPECT_EQ(source.value()->grab(frame).code(), ErrorCode::kInvalidCamera) << "until closed";
        source.value().reset();
        EXPECT_EQ(system.open_files, 0);
    }
    EXPECT_TRUE(open().ok());
}

TEST_F(V4l2, AnInputErrorOfTheDriverIsPassedOver) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.frames = {grey(0)};
    system.failures[VIDIOC_DQBUF] = {EIO, 1};
    RawFrame frame;
    EXPECT_EQ(source.value()->grab(frame).code(), ErrorCode::kNoNewFrame);
    EXPECT_TRUE(source.value()->grab(frame).ok());
}

// --- Exposure --------------------------------------------------------------------------------

struct V4l2Exposure : V4l2 {
    void SetUp() override {
        V4l2::SetUp();
        system.controls[V4L2_CID_EXPOSURE_AUTO] = {V4L2_EXPOSURE_APERTURE_PRIORITY, 0, 3};
        system.controls[V4L2_CID_EXPOSURE_ABSOLUTE] = {157, 3, 2047};
        system.controls[V4L2_CID_EXPOSURE_AUTO_PRIORITY] = {1, 0, 1};
    }
};

TEST_F(V4l2Exposure, LimitsAreTheControlsAndTheFrames) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    EXPECT_NEAR(source.value()->maxExposureMs(), 1000.0 / 30, 1e-9);
    EXPECT_NEAR(source.value()->exposureMs(), 15.7, 1e-9);
    EXPECT_EQ(system.controls[V4L2_CID_EXPOSURE_AUTO_PRIORITY].value, 0)
        << "the rate must not fall in the dark";
}

TEST_F(V4l2Exposure, AManualValueSwitchesTheAutomaticOffFirst) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.controls_set.clear();
    EXPECT_TRUE(source.value()->setExposureMs(5).ok());
    EXPECT_EQ(system.controls_set,
              (std::vector<std::uint32_t>{V4L2_CID_EXPOSURE_AUTO, V4L2_CID_EXPOSURE_ABSOLUTE}));
    EXPECT_NEAR(source.value()->exposureMs(), 5, 1e-9);
    EXPECT_TRUE(source.value()->setAutoExposure(true).ok());
    EXPECT_EQ(system.controls[V4L2_CID_EXPOSURE_AUTO].value, V4L2_EXPOSURE_APERTURE_PRIORITY);
}

TEST_F(V4l2Exposure, ValuesAreClamped) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    EXPECT_TRUE(source.value()->setExposureMs(1000).ok());
    EXPECT_NEAR(source.value()->exposureMs(), 33.3, 0.05);
    EXPECT_TRUE(source.value()->setExposureMs(0).ok());
    EXPECT_NEAR(source.value()->exposureMs(), 0.3, 1e-9);
}

TEST_F(V4l2Exposure, AFailingControlIsReported) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    system.failures[VIDIOC_S_CTRL] = {EIO};
    EXPECT_FALSE(source.value()->setExposureMs(5).ok());
    EXPECT_FALSE(source.value()->setAutoExposure(true).ok());
}

TEST_F(V4l2, ACameraWithoutExposureControlSaysSo) {
    auto source = open();
    ASSERT_TRUE(source.ok());
    EXPECT_EQ(source.value()->maxExposureMs(), 0);
    EXPECT_EQ(source.value()->exposureMs(), 0);
    EXPECT_THAT(source.value()->setExposureMs(5).message(), HasSubstr("no exposure control"));
}

}  // namespace
}  // namespace kova::camera
