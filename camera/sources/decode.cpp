#include "camera/sources/decode.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <zstd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

#include "camera/sources/jpeg_planes.h"
#include "camera/sources/stream_format.h"

namespace kova::camera {

namespace {

Status damaged(const std::string& what) {
    return {ErrorCode::kNoNewFrame, "damaged frame skipped: " + what};
}

/// Brightness somewhere in a picture: one byte per pixel, `step` bytes apart.
struct Brightness {
    const std::uint8_t* data = nullptr;
    std::ptrdiff_t stride = 0;
    std::ptrdiff_t step = 1;
};

struct Region {
    int x = 0, y = 0, width = 0, height = 0;
};

void copyEye(const Brightness& source, const Region& r, bool turned, Image<std::uint8_t>& out) {
    out.resize(r.width, r.height);
    for (int y = 0; y < r.height; ++y) {
        const std::uint8_t* in = source.data + (r.y + y) * source.stride + r.x * source.step;
        std::uint8_t* to = out.row(turned ? r.height - 1 - y : y);
        if (source.step == 1)
            std::memcpy(to, in, static_cast<std::size_t>(r.width));
        else
            for (int x = 0; x < r.width; ++x) to[x] = in[x * source.step];
        if (turned)
            std::reverse(to, to + r.width);
    }
}

cv::Mat matOf(Image<Rgba>& image) {
    return cv::Mat(image.height(), image.width(), CV_8UC4, image.data(),
                   static_cast<std::size_t>(image.stride()) * sizeof(Rgba));
}

cv::Mat matOf(int rows, int columns, int type, const void* data) {
    return cv::Mat(rows, columns, type, const_cast<void*>(data));
}

/// Size that a PNG file claims to have, before anything is allocated for it.
bool pngHasSize(const std::vector<std::uint8_t>& data, int width, int height) {
    static constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (data.size() < 33 || std::memcmp(data.data(), kSignature, 8) != 0)
        return false;
    const auto big_endian = [&](std::size_t at) {
        return static_cast<std::uint32_t>(data[at]) << 24 |
               static_cast<std::uint32_t>(data[at + 1]) << 16 |
               static_cast<std::uint32_t>(data[at + 2]) << 8 | data[at + 3];
    };
    return big_endian(16) == static_cast<std::uint32_t>(width) &&
           big_endian(20) == static_cast<std::uint32_t>(height);
}

}  // namespace

struct FrameDecoder::Impl {
    explicit Impl(const StreamInfo& info) : stream(info), stream_status(checkStream(info)) {}
    ~Impl() { ZSTD_freeDCtx(zstd); }

    StreamInfo stream;
    Status stream_status;
    std::atomic<Eye> colour_eye{Eye::kLeft};
    JpegPlanes jpeg;
    ZSTD_DCtx* zstd = ZSTD_createDCtx();
    std::vector<std::uint8_t> unpacked;
    cv::Mat picture;  ///< decoded PNG
    cv::Mat grey;     ///< of a colour picture
    Brightness brightness;
    Brightness right_brightness;  ///< another than `brightness` for interleaved eyes

    Region eye(bool second) const {
        Region r{0, 0, stream.eyeWidth(), stream.eyeHeight()};
        if (second && stream.layout == FrameLayout::kSideBySide)
            r.x = r.width;
        if (second && stream.layout == FrameLayout::kTopBottom)
            r.y = r.height;
        return r;
    }

    Status openRaw(const std::vector<std::uint8_t>& data) {
        const int w = stream.width;
        const int h = stream.height;
        const std::size_t expected = rawFrameBytes(stream.pixel_format, w, h);
        if (data.size() != expected)
            return damaged("it has " + std::to_string(data.size()) + " bytes instead of " +
                           std::to_string(expected));
        switch (stream.pixel_format) {
            case PixelFormat::kGrey:
            case PixelFormat::kNv12:
                brightness = {data.data(), w, 1};
                break;
            case PixelFormat::kYuyv:
                brightness = {data.data(), 2 * w, 2};
                break;
            case PixelFormat::kUyvy:
            case PixelFormat::kY16:  // little endian: the high byte
                brightness = {data.data() + 1, 2 * w, 2};
                break;
            case PixelFormat::kRgb:
                cv::cvtColor(matOf(h, w, CV_8UC3, data.data()), grey, cv::COLOR_RGB2GRAY);
                brightness = {grey.data, static_cast<std::ptrdiff_t>(grey.step), 1};
                break;
        }
        right_brightness = brightness;
        if (stream.layout == FrameLayout::kInterleaved)
            right_brightness.data =
                data.data() + (stream.pixel_format == PixelFormat::kYuyv ? 1 : 0);
        return {};
    }

    Status openZstd(const std::vector<std::uint8_t>& data) {
        const std::size_t expected =
            rawFrameBytes(stream.pixel_format, stream.width, stream.height);
        if (ZSTD_getFrameContentSize(data.data(), data.size()) != expected)
            return damaged("its compressed size does not fit the stream");
        unpacked.resize(expected);
        const std::size_t n =
            ZSTD_decompressDCtx(zstd, unpacked.data(), expected, data.data(), data.size());
        if (ZSTD_isError(n))
            return damaged(ZSTD_getErrorName(n));
        return openRaw(unpacked);
    }

    Status openJpeg(const std::vector<std::uint8_t>& data) {
        if (Status s = jpeg.decode(data.data(), data.size(), stream.width, stream.height); !s.ok())
            return s;
        brightness = right_brightness = {jpeg.brightness(), jpeg.brightnessStride(), 1};
        return {};
    }

    Status openPng(const std::vector<std::uint8_t>& data) {
        if (!pngHasSize(data, stream.width, stream.height))
            return damaged("it is no PNG of " + std::to_string(stream.width) + "x" +
                           std::to_string(stream.height) + " px");
        picture = cv::imdecode(data, cv::IMREAD_UNCHANGED);
        if (picture.cols != stream.width || picture.rows != stream.height)
            return damaged("the PNG cannot be decoded");
        if (picture.depth() == CV_16U && picture.channels() > 1)
            picture.convertTo(picture, CV_8U, 1.0 / 257);
        const auto stride = static_cast<std::ptrdiff_t>(picture.step);
        if (picture.type() == CV_8UC1) {
            brightness = {picture.data, stride, 1};
        } else if (picture.type() == CV_16UC1) {  // high byte, as for y16
            static const std::uint16_t kOne = 1;
            const bool little_endian = *reinterpret_cast<const std::uint8_t*>(&kOne) == 1;
            brightness = {picture.data + (little_endian ? 1 : 0), stride, 2};
        } else if (picture.depth() == CV_8U) {
            cv::cvtColor(picture, grey,
                         picture.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
            brightness = {grey.data, static_cast<std::ptrdiff_t>(grey.step), 1};
        } else {
            return damaged("the PNG's pixels are of an unknown kind");
        }
        right_brightness = brightness;
        return {};
    }

    Status open(const std::vector<std::uint8_t>& data) {
        switch (stream.codec) {
            case FrameCodec::kRaw:
                return openRaw(data);
            case FrameCodec::kZstd:
                return openZstd(data);
            case FrameCodec::kJpeg:
                return openJpeg(data);
            case FrameCodec::kPng:
                return openPng(data);
        }
        return damaged("its codec is unknown");
    }

    Status rawColour(const std::uint8_t* data, const Region& r, Image<Rgba>& out) {
        const int w = stream.width;
        const int h = stream.height;
        const cv::Rect part(r.x, r.y, r.width, r.height);
        out.resize(r.width, r.height);
        cv::Mat to = matOf(out);
        switch (stream.pixel_format) {
            case PixelFormat::kYuyv:
                cv::cvtColor(matOf(h, w, CV_8UC2, data)(part), to, cv::COLOR_YUV2RGBA_YUYV);
                break;
            case PixelFormat::kUyvy:
                cv::cvtColor(matOf(h, w, CV_8UC2, data)(part), to, cv::COLOR_YUV2RGBA_UYVY);
                break;
            case PixelFormat::kNv12: {
                const cv::Mat y = matOf(h, w, CV_8UC1, data);
                const cv::Mat uv = matOf(h / 2, w / 2, CV_8UC2,
                                         data + static_cast<std::size_t>(w) * std::size_t(h));
                const cv::Rect half(r.x / 2, r.y / 2, r.width / 2, r.height / 2);
                cv::cvtColorTwoPlane(y(part), uv(half), to, cv::COLOR_YUV2RGBA_NV12);
                break;
            }
            case PixelFormat::kRgb:
                cv::cvtColor(matOf(h, w, CV_8UC3, data)(part), to, cv::COLOR_RGB2RGBA);
                break;
            case PixelFormat::kGrey:
            case PixelFormat::kY16:
                out.resize(0, 0);
                break;
        }
        return {};
    }

    Status colour(const RawFrame& frame, const Region& r, Image<Rgba>& out) {
        out.resize(0, 0);
        if (stream.layout == FrameLayout::kInterleaved)
            return {};
        switch (stream.codec) {
            case FrameCodec::kRaw:
                return rawColour(frame.data.data(), r, out);
            case FrameCodec::kZstd:
                return rawColour(unpacked.data(), r, out);
            case FrameCodec::kJpeg:
                return jpeg.hasColour() ? jpeg.colour(r.x, r.y, r.width, r.height, out) : Status();
            case FrameCodec::kPng:
                if (picture.channels() > 1) {
                    out.resize(r.width, r.height);
                    cv::Mat to = matOf(out);
                    cv::cvtColor(
                        picture(cv::Rect(r.x, r.y, r.width, r.height)), to,
                        picture.channels() == 4 ? cv::COLOR_BGRA2RGBA : cv::COLOR_BGR2RGBA);
                }
                return {};
        }
        return {};
    }
};

FrameDecoder::FrameDecoder(const StreamInfo& stream) : impl_(std::make_unique<Impl>(stream)) {}

FrameDecoder::~FrameDecoder() = default;

void FrameDecoder::setColourEye(Eye eye) {
    impl_->colour_eye = eye;
}

Status FrameDecoder::decode(const RawFrame& frame, StereoPair& pair) {
    Impl& d = *impl_;
    if (!d.stream_status.ok())
        return damaged(d.stream_status.message());
    try {
        if (Status s = d.open(frame.data); !s.ok())
            return s;
        const bool left_second = d.stream.swapped;
        const Brightness* eyes[2] = {&d.brightness, &d.right_brightness};
        copyEye(*eyes[left_second], d.eye(left_second), d.stream.left_flipped, pair.left);
        copyEye(*eyes[!left_second], d.eye(!left_second), d.stream.right_flipped, pair.right);
        const bool of_right = d.colour_eye == Eye::kRight;
        Image<Rgba>& colour = of_right ? pair.right_colour : pair.left_colour;
        (of_right ? pair.left_colour : pair.right_colour).resize(0, 0);
        if (Status s = d.colour(frame, d.eye(left_second != of_right), colour); !s.ok())
            return s;
        if ((of_right ? d.stream.right_flipped : d.stream.left_flipped) && !colour.empty()) {
            cv::Mat turned = matOf(colour);
            cv::flip(turned, turned, -1);
        }
    } catch (const std::exception& e) {  // OpenCV and the allocator throw
        return damaged(e.what());
    }
    return {};
}

}  // namespace kova::camera
