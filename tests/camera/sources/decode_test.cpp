#include "camera/sources/decode.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <turbojpeg.h>
#include <zstd.h>

#include <cstring>

#include "camera/sources/stream_format.h"
#include "tests/support/recordings.h"

namespace kova::camera {
namespace {

using test::noise;
using test::smallStream;

constexpr int kWidth = 16;  // of the whole picture
constexpr int kHeight = 8;

/// Every pixel of the whole picture tells where it is.
std::uint8_t brightnessAt(int x, int y) {
    return static_cast<std::uint8_t>(x + 16 * y);
}

std::vector<std::uint8_t> greyPicture(int width = kWidth, int height = kHeight) {
    std::vector<std::uint8_t> data;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) data.push_back(brightnessAt(x, y));
    return data;
}

RawFrame frameOf(std::vector<std::uint8_t> data) {
    RawFrame frame;
    frame.data = std::move(data);
    return frame;
}

StereoPair decodeOk(const StreamInfo& stream, const std::vector<std::uint8_t>& data) {
    FrameDecoder decoder(stream);
    StereoPair pair;
    const Status status = decoder.decode(frameOf(data), pair);
    EXPECT_TRUE(status.ok()) << status.message();
    return pair;
}

/// A smooth JPEG of both eyes; colour: red left, blue right.
std::vector<std::uint8_t> jpegOf(int width, int height, int sampling) {
    std::vector<std::uint8_t> rgb;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool left = x < width / 2;
            rgb.push_back(left ? 200 : 20);
            rgb.push_back(static_cast<std::uint8_t>(2 * y));
            rgb.push_back(left ? 20 : 200);
        }
    tjhandle encoder = tjInitCompress();
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(tjCompress2(encoder, rgb.data(), width, 0, height, TJPF_RGB, &bytes, &size, sampling,
                          95, 0),
              0);
    std::vector<std::uint8_t> jpeg(bytes, bytes + size);
    tjFree(bytes);
    tjDestroy(encoder);
    return jpeg;
}

TEST(Decode, SideBySide) {
    const StereoPair pair = decodeOk(smallStream(kWidth, kHeight), greyPicture());
    ASSERT_EQ(pair.left.width(), 8);
    ASSERT_EQ(pair.left.height(), 8);
    EXPECT_EQ(pair.left.at(0, 0), brightnessAt(0, 0));
    EXPECT_EQ(pair.left.at(7, 3), brightnessAt(7, 3));
    EXPECT_EQ(pair.right.at(0, 3), brightnessAt(8, 3));
    EXPECT_EQ(pair.right.at(7, 7), brightnessAt(15, 7));
    EXPECT_TRUE(pair.left_colour.empty());
}

TEST(Decode, TopBottom) {
    const StereoPair pair = decodeOk(
        smallStream(kWidth, kHeight, PixelFormat::kGrey, FrameLayout::kTopBottom), greyPicture());
    ASSERT_EQ(pair.right.width(), 16);
    ASSERT_EQ(pair.right.height(), 4);
    EXPECT_EQ(pair.left.at(15, 3), brightnessAt(15, 3));
    EXPECT_EQ(pair.right.at(2, 1), brightnessAt(2, 5));
}

TEST(Decode, InterleavedEyesInYAndUvBytes) {
    std::vector<std::uint8_t> yuyv, uyvy;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const auto left = static_cast<std::uint8_t>(i);
        const auto right = static_cast<std::uint8_t>(255 - i);
        yuyv.insert(yuyv.end(), {left, right});
        uyvy.insert(uyvy.end(), {right, left});
    }
    for (const bool first_is_y : {true, false}) {
        const StereoPair pair = decodeOk(
            smallStream(kWidth, kHeight, first_is_y ? PixelFormat::kYuyv : PixelFormat::kUyvy,
                        FrameLayout::kInterleaved),
            first_is_y ? yuyv : uyvy);
        ASSERT_EQ(pair.left.width(), kWidth);
        ASSERT_EQ(pair.right.height(), kHeight);
        EXPECT_EQ(pair.left.at(5, 2), 37);
        EXPECT_EQ(pair.right.at(5, 2), 255 - 37);
        EXPECT_TRUE(pair.left_colour.empty());
    }
}

TEST(Decode, SwappedEyes) {
    StreamInfo stream = smallStream(kWidth, kHeight);
    stream.swapped = true;
    const StereoPair pair = decodeOk(stream, greyPicture());
    EXPECT_EQ(pair.left.at(0, 0), brightnessAt(8, 0));
    EXPECT_EQ(pair.right.at(0, 0), brightnessAt(0, 0));
}

TEST(Decode, EachEyeMayBeUpsideDown) {
    StreamInfo stream = smallStream(kWidth, kHeight);
    stream.right_flipped = true;
    StereoPair pair = decodeOk(stream, greyPicture());
    EXPECT_EQ(pair.left.at(1, 2), brightnessAt(1, 2));
    EXPECT_EQ(pair.right.at(0, 0), brightnessAt(15, 7));
    EXPECT_EQ(pair.right.at(7, 6), brightnessAt(8, 1));

    // The flags belong to the true eyes, wherever they lie in the picture.
    stream.swapped = true;
    stream.right_flipped = false;
    stream.left_flipped = true;
    pair = decodeOk(stream, greyPicture());
    EXPECT_EQ(pair.left.at(0, 0), brightnessAt(15, 7));
    EXPECT_EQ(pair.right.at(0, 0), brightnessAt(0, 0));
}

TEST(Decode, Y16TakesTheHighByte) {
    std::vector<std::uint8_t> data;
    for (int i = 0; i < kWidth * kHeight; ++i)
        data.insert(data.end(), {static_cast<std::uint8_t>(7 * i), static_cast<std::uint8_t>(i)});
    const StereoPair pair = decodeOk(smallStream(kWidth, kHeight, PixelFormat::kY16), data);
    EXPECT_EQ(pair.left.at(3, 2), 35);
    EXPECT_EQ(pair.right.at(3, 2), 43);
}

TEST(Decode, ColourIsKeptForTheLeftEye) {
    // Red left, blue right, in three packings; limited range BT.601.
    struct Yuv {
        std::uint8_t y, u, v;
    };
    const Yuv red{82, 90, 240};
    const Yuv blue{41, 240, 110};
    std::vector<std::uint8_t> rgb, yuyv, uyvy, nv12, uv;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool left = x < kWidth / 2;
            const Yuv& c = left ? red : blue;
            rgb.insert(rgb.end(), {std::uint8_t(left ? 255 : 0), 0, std::uint8_t(left ? 0 : 255)});
            yuyv.insert(yuyv.end(), {c.y, x % 2 == 0 ? c.u : c.v});
            uyvy.insert(uyvy.end(), {x % 2 == 0 ? c.u : c.v, c.y});
            nv12.push_back(c.y);
            if (y % 2 == 0)
                uv.push_back(x % 2 == 0 ? c.u : c.v);
        }
    nv12.insert(nv12.end(), uv.begin(), uv.end());
    const std::pair<PixelFormat, std::vector<std::uint8_t>> cases[] = {{PixelFormat::kRgb, rgb},
                                                                       {PixelFormat::kYuyv, yuyv},
                                                                       {PixelFormat::kUyvy, uyvy},
                                                                       {PixelFormat::kNv12, nv12}};
    for (const auto& [format, data] : cases)
        for (const bool swapped : {false, true}) {
            SCOPED_TRACE(std::string(nameOf(format)) + (swapped ? " swapped" : ""));
            StreamInfo stream = smallStream(kWidth, kHeight, format);
            stream.swapped = swapped;
            const StereoPair pair = decodeOk(stream, data);
            ASSERT_EQ(pair.left_colour.width(), 8);
            const Rgba c = pair.left_colour.at(4, 4);
            EXPECT_NEAR(swapped ? c.b : c.r, 255, 6);
            EXPECT_NEAR(swapped ? c.r : c.b, 0, 6);
            EXPECT_NEAR(c.g, 0, 6);
            EXPECT_EQ(c.a, 255);
            if (format != PixelFormat::kRgb) {
                EXPECT_EQ(pair.left.at(4, 4), swapped ? blue.y : red.y);
                EXPECT_EQ(pair.right.at(4, 4), swapped ? red.y : blue.y);
            }
        }
}

TEST(Decode, ColourOfAnUpsideDownEyeIsTurnedToo) {
    std::vector<std::uint8_t> rgb(kWidth * kHeight * 3, 0);
    rgb[0] = 250;  // top left corner
    StreamInfo stream = smallStream(kWidth, kHeight, PixelFormat::kRgb);
    stream.left_flipped = true;
    const StereoPair pair = decodeOk(stream, rgb);
    EXPECT_EQ(pair.left_colour.at(7, 7).r, 250);
    EXPECT_EQ(pair.left_colour.at(0, 0).r, 0);
    EXPECT_GT(pair.left.at(7, 7), 0);
}

TEST(Decode, TheRightEyeHasItsColoursWhenAskedFor) {
    // Red left, blue right; the right eye hangs upside down.
    std::vector<std::uint8_t> rgb(kWidth * kHeight * 3, 0);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) rgb[3 * (y * kWidth + x) + (x < kWidth / 2 ? 0 : 2)] = 250;
    rgb[3 * (kWidth / 2) + 1] = 120;  // green, at the top left of the right eye
    StreamInfo stream = smallStream(kWidth, kHeight, PixelFormat::kRgb);
    stream.right_flipped = true;
    FrameDecoder decoder(stream);
    RawFrame frame;
    frame.data = rgb;
    StereoPair pair;
    decoder.setColourEye(Eye::kRight);
    ASSERT_TRUE(decoder.decode(frame, pair).ok());
    EXPECT_TRUE(pair.left_colour.empty());
    ASSERT_EQ(pair.right_colour.width(), kWidth / 2);
    EXPECT_EQ(pair.right_colour.at(0, 0), (Rgba{0, 0, 250, 255}));
    EXPECT_EQ(pair.right_colour.at(kWidth / 2 - 1, kHeight - 1), (Rgba{0, 120, 250, 255}));
    decoder.setColourEye(Eye::kLeft);
    ASSERT_TRUE(decoder.decode(frame, pair).ok());
    EXPECT_TRUE(pair.right_colour.empty());
    EXPECT_EQ(pair.left_colour.at(0, 0), (Rgba{250, 0, 0, 255}));
}

TEST(Decode, Jpeg) {
    StreamInfo stream = smallStream(64, 32);
    stream.codec = FrameCodec::kJpeg;
    for (const int sampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_GRAY}) {
        SCOPED_TRACE(sampling);
        for (const bool swapped : {false, true}) {
            stream.swapped = swapped;
            const StereoPair pair = decodeOk(stream, jpegOf(64, 32, sampling));
            ASSERT_EQ(pair.left.width(), 32);
            // 0.299 R + 0.587 G + 0.114 B
            const double left = 0.299 * 200 + 0.587 * 40 + 0.114 * 20;
            const double right = 0.299 * 20 + 0.587 * 40 + 0.114 * 200;
            EXPECT_NEAR(pair.left.at(16, 20), swapped ? right : left, 4);
            EXPECT_NEAR(pair.right.at(16, 20), swapped ? left : right, 4);
            ASSERT_EQ(pair.left_colour.empty(), sampling == TJSAMP_GRAY);
            if (sampling != TJSAMP_GRAY) {
                EXPECT_NEAR(pair.left_colour.at(16, 20).r, swapped ? 20 : 200, 8);
                EXPECT_NEAR(pair.left_colour.at(16, 20).b, swapped ? 200 : 20, 8);
            }
        }
    }
}

// The right half begins in the middle of a block of colour samples.
TEST(Decode, JpegWhoseEyesDoNotBeginAtABlock) {
    StreamInfo stream = smallStream(66, 34);
    stream.codec = FrameCodec::kJpeg;
    stream.swapped = true;
    const StereoPair pair = decodeOk(stream, jpegOf(66, 34, TJSAMP_420));
    ASSERT_EQ(pair.left_colour.width(), 33);
    EXPECT_NEAR(pair.left_colour.at(20, 10).b, 200, 8);
    EXPECT_NEAR(pair.left_colour.at(32, 33).b, 200, 8);

    stream.swapped = false;
    FrameDecoder decoder(stream);
    decoder.setColourEye(Eye::kRight);
    RawFrame frame;
    frame.data = jpegOf(66, 34, TJSAMP_420);
    StereoPair right;
    ASSERT_TRUE(decoder.decode(frame, right).ok());
    ASSERT_EQ(right.right_colour.width(), 33);
    EXPECT_NEAR(right.right_colour.at(20, 10).b, 200, 8);
}

TEST(Decode, JpegWithPaddingOfTheCamera) {
    StreamInfo stream = smallStream(64, 32);
    stream.codec = FrameCodec::kJpeg;
    std::vector<std::uint8_t> jpeg = jpegOf(64, 32, TJSAMP_422);
    jpeg.resize(jpeg.size() + 100, 0);
    decodeOk(stream, jpeg);
}

TEST(Decode, DamagedJpegIsSkippedInWords) {
    StreamInfo stream = smallStream(64, 32);
    stream.codec = FrameCodec::kJpeg;
    const std::vector<std::uint8_t> whole = jpegOf(64, 32, TJSAMP_422);
    FrameDecoder decoder(stream);
    StereoPair pair;
    const auto skipped = [&](std::vector<std::uint8_t> data) {
        const Status status = decoder.decode(frameOf(std::move(data)), pair);
        EXPECT_FALSE(status.message().empty());
        return status.code() == ErrorCode::kNoNewFrame;
    };
    EXPECT_TRUE(skipped({}));
    EXPECT_TRUE(skipped({0xFF, 0xD8}));
    EXPECT_TRUE(skipped(noise(1000, 3)));
    auto no_start = whole;
    no_start.erase(no_start.begin(), no_start.begin() + 2);
    EXPECT_TRUE(skipped(no_start));
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_TRUE(skipped({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)}))
            << length;
    // Cut in the middle, but the end marker is there.
    auto cut = whole;
    cut.erase(cut.end() - static_cast<std::ptrdiff_t>(cut.size() / 4), cut.end() - 2);
    EXPECT_TRUE(skipped(cut));
    EXPECT_TRUE(skipped(jpegOf(128, 32, TJSAMP_422)));
    EXPECT_TRUE(decoder.decode(frameOf(whole), pair).ok());
}

TEST(Decode, PngGreyColourAndDeep) {
    StreamInfo stream = smallStream(kWidth, kHeight);
    stream.codec = FrameCodec::kPng;
    std::vector<std::uint8_t> pixels = greyPicture();
    const cv::Mat grey(kHeight, kWidth, CV_8UC1, pixels.data());
    std::vector<std::uint8_t> png;
    cv::imencode(".png", grey, png);
    cv::Mat deep;
    grey.convertTo(deep, CV_16UC1, 256, 77);
    std::vector<std::uint8_t> deep_png;
    cv::imencode(".png", deep, deep_png);
    cv::Mat bgr(kHeight, kWidth, CV_8UC3, cv::Scalar(10, 20, 200));
    std::vector<std::uint8_t> colour_png;
    cv::imencode(".png", bgr, colour_png);

    StereoPair pair = decodeOk(stream, deep_png);
    EXPECT_TRUE(pair.left_colour.empty());
    pair = decodeOk(stream, colour_png);
    EXPECT_EQ(pair.left_colour.at(3, 3).r, 200);
    EXPECT_EQ(pair.left_colour.at(3, 3).b, 10);

    FrameDecoder decoder(stream);
    for (std::size_t length = 0; length + 13 < png.size(); length += 19) {
        const Status status = decoder.decode(
            frameOf({png.begin(), png.begin() + static_cast<std::ptrdiff_t>(length)}), pair);
        EXPECT_EQ(status.code(), ErrorCode::kNoNewFrame) << length;
    }
    stream.width = 32;
    EXPECT_EQ(FrameDecoder(stream).decode(frameOf(png), pair).code(), ErrorCode::kNoNewFrame);
}

TEST(Decode, WrongSizesAreSkippedInWords) {
    StereoPair pair;
    for (const PixelFormat format : {PixelFormat::kGrey, PixelFormat::kYuyv, PixelFormat::kUyvy,
                                     PixelFormat::kNv12, PixelFormat::kY16, PixelFormat::kRgb}) {
        StreamInfo stream = smallStream(kWidth, kHeight, format);
        const std::size_t bytes = rawFrameBytes(format, kWidth, kHeight);
        FrameDecoder decoder(stream);
        EXPECT_TRUE(decoder.decode(frameOf(noise(bytes, 1)), pair).ok());
        EXPECT_EQ(decoder.decode(frameOf(noise(bytes - 1, 1)), pair).code(),
                  ErrorCode::kNoNewFrame);
        EXPECT_EQ(decoder.decode(frameOf(noise(bytes + 1, 1)), pair).code(),
                  ErrorCode::kNoNewFrame);
        EXPECT_EQ(decoder.decode(frameOf({}), pair).code(), ErrorCode::kNoNewFrame);
    }
}

TEST(Decode, DamagedZstdIsSkipped) {
    StreamInfo stream = smallStream(kWidth, kHeight);
    stream.codec = FrameCodec::kZstd;
    const std::vector<std::uint8_t> raw = greyPicture();
    std::vector<std::uint8_t> packed(ZSTD_compressBound(raw.size()));
    packed.resize(ZSTD_compress(packed.data(), packed.size(), raw.data(), raw.size(), 1));
    EXPECT_EQ(decodeOk(stream, packed).right.at(0, 3), brightnessAt(8, 3));
    FrameDecoder decoder(stream);
    StereoPair pair;
    for (std::size_t length = 0; length < packed.size(); ++length)
        EXPECT_EQ(decoder
                      .decode(frameOf({packed.begin(),
                                       packed.begin() + static_cast<std::ptrdiff_t>(length)}),
                              pair)
                      .code(),
                  ErrorCode::kNoNewFrame);
    stream.height = 16;
    EXPECT_EQ(FrameDecoder(stream).decode(frameOf(packed), pair).code(), ErrorCode::kNoNewFrame);
}

TEST(Decode, ImpossibleStreamsAreRefused) {
    const auto refused = [](StreamInfo stream) {
        StereoPair pair;
        return !checkStream(stream).ok() &&
               FrameDecoder(stream).decode(RawFrame(), pair).code() == ErrorCode::kNoNewFrame;
    };
    EXPECT_TRUE(refused(smallStream(0, 8)));
    EXPECT_TRUE(refused(smallStream(-16, 8)));
    EXPECT_TRUE(refused(smallStream(20000, 8)));
    EXPECT_TRUE(refused(smallStream(15, 8)));
    EXPECT_TRUE(refused(smallStream(16, 7, PixelFormat::kGrey, FrameLayout::kTopBottom)));
    EXPECT_TRUE(refused(smallStream(16, 8, PixelFormat::kGrey, FrameLayout::kInterleaved)));
    EXPECT_TRUE(refused(smallStream(18, 8, PixelFormat::kYuyv)));
    EXPECT_TRUE(refused(smallStream(16, 10, PixelFormat::kNv12, FrameLayout::kTopBottom)));
    StreamInfo jpeg = smallStream(16, 8, PixelFormat::kGrey, FrameLayout::kInterleaved);
    jpeg.codec = FrameCodec::kJpeg;
    EXPECT_TRUE(refused(jpeg));
}

TEST(StreamFormat, NamesAreReadBack) {
    for (const auto v :
         {FrameLayout::kSideBySide, FrameLayout::kTopBottom, FrameLayout::kInterleaved})
        EXPECT_EQ(frameLayoutFromName(nameOf(v)), v);
    for (const auto v : {FrameCodec::kRaw, FrameCodec::kJpeg, FrameCodec::kPng, FrameCodec::kZstd})
        EXPECT_EQ(frameCodecFromName(nameOf(v)), v);
    for (const auto v : {PixelFormat::kGrey, PixelFormat::kYuyv, PixelFormat::kUyvy,
                         PixelFormat::kNv12, PixelFormat::kY16, PixelFormat::kRgb})
        EXPECT_EQ(pixelFormatFromName(nameOf(v)), v);
    EXPECT_FALSE(frameCodecFromName("gif"));
}

}  // namespace
}  // namespace kova::camera
