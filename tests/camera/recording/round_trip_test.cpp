#include <gtest/gtest.h>

#include <fstream>

#include "camera/recording/recording_reader.h"
#include "camera/recording/recording_writer.h"
#include "camera/sources/decode.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using test::noise;
using test::smallCalibration;
using test::smallCamera;
using test::smallFrame;
using test::smallStream;

std::unique_ptr<RecordingWriter> create(const std::string& path, const StreamInfo& stream,
                                        const RecordingOptions& options = {}) {
    auto writer =
        RecordingWriter::create(path, stream, smallCamera(),
                                smallCalibration(stream.eyeWidth(), stream.eyeHeight()), options);
    EXPECT_TRUE(writer.ok()) << writer.status().message();
    return std::move(writer.value());
}

std::unique_ptr<RecordingReader> open(const std::string& path,
                                      const RecordingReaderOptions& options = {}) {
    auto reader = RecordingReader::open(path, options);
    EXPECT_TRUE(reader.ok()) << reader.status().message();
    return std::move(reader.value());
}

TEST(RoundTrip, EverythingThatWasWrittenIsRead) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    StreamInfo stream = smallStream();
    stream.nominal_fps = 29.97;
    stream.swapped = true;
    stream.right_flipped = true;
    RecordingOptions options;
    options.settings = {{"exposure", "automatic"}, {"made by", "a test"}};
    options.clock_utc_ns = 1700000000000000000;
    options.clock_t_ns = 5;
    const auto writer = create(path, stream, options);
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(writer->write(smallFrame(stream, i)).ok());
    ASSERT_TRUE(writer->addDrops(1100000000, 3, DropCause::kRecorder).ok());
    ASSERT_TRUE(writer->finish().ok());
    EXPECT_EQ(writer->committedFrames(), 5);
    EXPECT_FALSE(std::filesystem::exists(path + "-journal"));

    const auto reader = open(path);
    EXPECT_FALSE(reader->wasRepaired());
    EXPECT_EQ(reader->formatVersion(), 1000);
    EXPECT_EQ(reader->stream().codec, FrameCodec::kZstd);
    EXPECT_EQ(reader->stream().width, 64);
    EXPECT_EQ(reader->stream().height, 24);
    EXPECT_EQ(reader->stream().nominal_fps, 29.97);
    EXPECT_TRUE(reader->stream().swapped);
    EXPECT_FALSE(reader->stream().left_flipped);
    EXPECT_TRUE(reader->stream().right_flipped);
    EXPECT_EQ(reader->camera().model, 101);
    EXPECT_EQ(reader->camera().name, "Test camera");
    EXPECT_EQ(reader->camera().serial_number, 4000000001u);
    EXPECT_EQ(reader->camera().hardware_version, "1.2");
    EXPECT_TRUE(reader->camera().has_imu);
    EXPECT_EQ(reader->calibration().width, 32);
    EXPECT_EQ(reader->calibration().translation_mm[0], -60);
    ASSERT_EQ(reader->drops().size(), 1u);
    EXPECT_EQ(reader->drops()[0].count, 3);
    EXPECT_EQ(reader->drops()[0].cause, "recorder");
    ASSERT_EQ(reader->clock().size(), 1u);
    EXPECT_EQ(reader->clock()[0].utc_ns, 1700000000000000000);
    ASSERT_EQ(reader->settings().size(), 2u);
    EXPECT_EQ(reader->settings()[0].second, "automatic");
    ASSERT_EQ(reader->frameCount(), 5);
    EXPECT_EQ(reader->imuSampleCount(), 15);

    RawFrame frame;
    for (const int i : {4, 0, 2, 1, 3}) {
        const RawFrame expected = smallFrame(stream, i);
        ASSERT_TRUE(reader->read(i, frame).ok());
        EXPECT_EQ(frame.t_ns, expected.t_ns);
        EXPECT_EQ(frame.sequence, expected.sequence);
        EXPECT_EQ(frame.exposure_us, expected.exposure_us);
        ASSERT_EQ(frame.imu.size(), 3u) << i;
        EXPECT_EQ(frame.imu[0].t_ns, expected.imu[0].t_ns);
        EXPECT_EQ(frame.imu[2].accel, expected.imu[2].accel);
        EXPECT_EQ(frame.imu[1].gyro, expected.imu[1].gyro);
        EXPECT_EQ(frame.imu[0].magnet, expected.imu[0].magnet);
    }
    EXPECT_EQ(reader->read(5, frame).code(), ErrorCode::kInvalidArgument);
    EXPECT_EQ(reader->read(-1, frame).code(), ErrorCode::kInvalidArgument);
}

struct Stored {
    PixelFormat format;
    FrameLayout layout;
    RecordingCompression compression;
};

class StoredPixels : public testing::TestWithParam<Stored> {};

// What is decoded from the recording is what is decoded from the camera's own frames.
TEST_P(StoredPixels, DecodeToTheSamePictures) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = smallStream(64, 24, GetParam().format, GetParam().layout);
    RecordingOptions options;
    options.compression = GetParam().compression;
    const auto writer = create(path, stream, options);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(writer->write(smallFrame(stream, i)).ok());
    ASSERT_TRUE(writer->finish().ok());

    const auto reader = open(path);
    FrameDecoder direct(stream), recorded(reader->stream());
    RawFrame frame;
    StereoPair a, b;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(direct.decode(smallFrame(stream, i), a).ok());
        ASSERT_TRUE(reader->read(i, frame).ok());
        const Status status = recorded.decode(frame, b);
        ASSERT_TRUE(status.ok()) << status.message();
        ASSERT_EQ(b.left.width(), stream.eyeWidth());
        ASSERT_EQ(b.right.height(), stream.eyeHeight());
        ASSERT_EQ(b.left_colour.width(), a.left_colour.width());
        for (int y = 0; y < a.left.height(); ++y)
            for (int x = 0; x < a.left.width(); ++x) {
                ASSERT_EQ(a.left.at(x, y), b.left.at(x, y)) << x << ' ' << y;
                ASSERT_EQ(a.right.at(x, y), b.right.at(x, y)) << x << ' ' << y;
                const bool colour = !a.left_colour.empty();
                ASSERT_TRUE(!colour || a.left_colour.at(x, y) == b.left_colour.at(x, y));
            }
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, StoredPixels,
    testing::Values(
        Stored{PixelFormat::kGrey, FrameLayout::kSideBySide, RecordingCompression::kZstd},
        Stored{PixelFormat::kGrey, FrameLayout::kTopBottom, RecordingCompression::kPng},
        Stored{PixelFormat::kGrey, FrameLayout::kTopBottom, RecordingCompression::kNone},
        Stored{PixelFormat::kY16, FrameLayout::kSideBySide, RecordingCompression::kPng},
        Stored{PixelFormat::kY16, FrameLayout::kSideBySide, RecordingCompression::kZstd},
        Stored{PixelFormat::kRgb, FrameLayout::kTopBottom, RecordingCompression::kPng},
        Stored{PixelFormat::kRgb, FrameLayout::kSideBySide, RecordingCompression::kZstd},
        Stored{PixelFormat::kYuyv, FrameLayout::kInterleaved, RecordingCompression::kZstd},
        Stored{PixelFormat::kYuyv, FrameLayout::kSideBySide, RecordingCompression::kZstd},
        Stored{PixelFormat::kUyvy, FrameLayout::kInterleaved, RecordingCompression::kNone},
        Stored{PixelFormat::kNv12, FrameLayout::kTopBottom, RecordingCompression::kZstd}));

TEST(RoundTrip, BytesOfACodecThatTheCameraChoseAreKept) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    StreamInfo stream = smallStream();
    stream.codec = FrameCodec::kJpeg;
    const auto writer = create(path, stream);
    RawFrame frame = smallFrame(stream, 0);
    frame.data = noise(777, 5);
    ASSERT_TRUE(writer->write(frame).ok());
    ASSERT_TRUE(writer->finish().ok());
    const auto reader = open(path);
    EXPECT_EQ(reader->stream().codec, FrameCodec::kJpeg);
    RawFrame read;
    ASSERT_TRUE(reader->read(0, read).ok());
    EXPECT_EQ(read.data, frame.data);
}

TEST(RoundTrip, AFrameThatDoesNotFitIsRefusedAndTheRecordingGoesOn) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = smallStream();
    const auto writer = create(path, stream);
    ASSERT_TRUE(writer->write(smallFrame(stream, 0)).ok());
    EXPECT_EQ(writer->write(smallFrame(stream, 0)).code(), ErrorCode::kInvalidArgument);
    RawFrame shorter = smallFrame(stream, 1);
    shorter.data.pop_back();
    EXPECT_EQ(writer->write(shorter).code(), ErrorCode::kInvalidArgument);
    ASSERT_TRUE(writer->write(smallFrame(stream, 2)).ok());
    ASSERT_TRUE(writer->finish().ok());
    EXPECT_EQ(writer->write(smallFrame(stream, 3)).code(), ErrorCode::kWriteFailed);
    EXPECT_EQ(open(path)->frameCount(), 2);
}

TEST(RoundTrip, AnExistingFileIsKeptUnlessOverwritingIsAllowed) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    std::ofstream(path) << "precious";
    const StreamInfo stream = smallStream();
    const auto refused = RecordingWriter::create(path, stream, {}, smallCalibration(32, 24));
    EXPECT_EQ(refused.status().code(), ErrorCode::kWriteFailed);
    std::string content;
    std::ifstream(path) >> content;
    EXPECT_EQ(content, "precious");
    RecordingOptions options;
    options.overwrite = true;
    const auto writer = create(path, stream, options);
    ASSERT_TRUE(writer->write(smallFrame(stream, 0)).ok());
    ASSERT_TRUE(writer->finish().ok());
    EXPECT_EQ(open(path)->frameCount(), 1);
}

TEST(RoundTrip, WhatCannotBeMadeSaysWhy) {
    const test::TemporaryFolder folder;
    StreamInfo stream = smallStream();
    const StereoCalibration calibration = smallCalibration(32, 24);
    const auto no_folder =
        RecordingWriter::create(folder / "missing/a.kova", stream, {}, calibration);
    EXPECT_EQ(no_folder.status().code(), ErrorCode::kWriteFailed);
    EXPECT_NE(no_folder.status().message().find("folder exist"), std::string::npos);
    RecordingOptions png;
    png.compression = RecordingCompression::kPng;
    stream.pixel_format = PixelFormat::kYuyv;
    EXPECT_EQ(
        RecordingWriter::create(folder / "b.kova", stream, {}, calibration, png).status().code(),
        ErrorCode::kInvalidArgument);
    stream.width = 65;
    EXPECT_EQ(RecordingWriter::create(folder / "c.kova", stream, {}, calibration).status().code(),
              ErrorCode::kInvalidArgument);
    EXPECT_FALSE(std::filesystem::exists(folder / "b.kova"));
    EXPECT_FALSE(std::filesystem::exists(folder / "c.kova"));
}

TEST(RoundTrip, ARecordingForCalibratingHasNoCalibration) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "a.kova";
    const StreamInfo stream = smallStream();
    auto writer = RecordingWriter::create(path, stream, smallCamera(), {});
    ASSERT_TRUE(writer.ok());
    ASSERT_TRUE(writer.value()->write(smallFrame(stream, 0)).ok());
    ASSERT_TRUE(writer.value()->finish().ok());
    EXPECT_EQ(RecordingReader::open(path).status().code(), ErrorCode::kInvalidFile);
    RecordingReaderOptions options;
    options.without_calibration = true;
    EXPECT_EQ(open(path, options)->calibration().width, 0);
}

}  // namespace
}  // namespace kova::camera
