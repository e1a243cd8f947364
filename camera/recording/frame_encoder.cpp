#include "camera/recording/frame_encoder.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <zstd.h>

#include <algorithm>
#include <string>

#include "camera/sources/stream_format.h"

namespace kova::camera {

namespace {

Status refused(const std::string& what) {
    return {ErrorCode::kInvalidArgument, "frame not recorded: " + what};
}

bool pngCanHold(PixelFormat format) {
    return format == PixelFormat::kGrey || format == PixelFormat::kY16 ||
           format == PixelFormat::kRgb;
}

}  // namespace

struct FrameEncoder::Impl {
    ~Impl() { ZSTD_freeCCtx(zstd); }

    StreamInfo stream;
    FrameCodec stored = FrameCodec::kRaw;
    int zstd_level = 1;
    ZSTD_CCtx* zstd = ZSTD_createCCtx();
    std::vector<std::uint8_t> buffer;

    Status toZstd(const std::vector<std::uint8_t>& data) {
        buffer.resize(ZSTD_compressBound(data.size()));
        const std::size_t n = ZSTD_compressCCtx(zstd, buffer.data(), buffer.size(), data.data(),
                                                data.size(), zstd_level);
        if (ZSTD_isError(n))
            return refused(ZSTD_getErrorName(n));
        buffer.resize(n);
        return {};
    }

    Status toPng(const std::vector<std::uint8_t>& data) {
        const int type = stream.pixel_format == PixelFormat::kRgb   ? CV_8UC3
                         : stream.pixel_format == PixelFormat::kY16 ? CV_16UC1
                                                                    : CV_8UC1;
        cv::Mat picture(stream.height, stream.width, type, const_cast<std::uint8_t*>(data.data()));
        try {
            cv::Mat bgr;
            if (type == CV_8UC3)
                cv::cvtColor(picture, bgr, cv::COLOR_RGB2BGR);
            if (!cv::imencode(".png", bgr.empty() ? picture : bgr, buffer,
                              {cv::IMWRITE_PNG_COMPRESSION, 1}))
                return refused("it cannot be stored as PNG");
        } catch (const std::exception& e) {
            return refused(e.what());
        }
        return {};
    }
};

FrameEncoder::FrameEncoder() : impl_(std::make_unique<Impl>()) {}

FrameEncoder::~FrameEncoder() = default;

Status FrameEncoder::configure(const StreamInfo& stream, RecordingCompression compression,
                               int zstd_level) {
    impl_->stream = stream;
    impl_->zstd_level = std::clamp(zstd_level, 1, 19);
    impl_->stored = stream.codec;
    if (stream.codec != FrameCodec::kRaw)
        return {};
    if (compression == RecordingCompression::kZstd)
        impl_->stored = FrameCodec::kZstd;
    if (compression == RecordingCompression::kPng) {
        if (!pngCanHold(stream.pixel_format))
            return {ErrorCode::kInvalidArgument, std::string("PNG cannot hold ") +
                                                     nameOf(stream.pixel_format) +
                                                     " pixels; record them with zstd"};
        impl_->stored = FrameCodec::kPng;
    }
    return {};
}

FrameCodec FrameEncoder::storedCodec() const {
    return impl_->stored;
}

Status FrameEncoder::encode(const std::vector<std::uint8_t>& data,
                            const std::vector<std::uint8_t>*& image) {
    Impl& d = *impl_;
    image = &data;
    if (data.empty() || data.size() > static_cast<std::size_t>(kMaxFrameBytes))
        return refused("it has " + std::to_string(data.size()) + " bytes");
    if (d.stream.codec != FrameCodec::kRaw)
        return {};
    const std::size_t expected =
        rawFrameBytes(d.stream.pixel_format, d.stream.width, d.stream.height);
    if (data.size() != expected)
        return refused("it has " + std::to_string(data.size()) + " bytes instead of " +
                       std::to_string(expected));
    if (d.stored == FrameCodec::kRaw)
        return {};
    image = &d.buffer;
    return d.stored == FrameCodec::kZstd ? d.toZstd(data) : d.toPng(data);
}

}  // namespace kova::camera
