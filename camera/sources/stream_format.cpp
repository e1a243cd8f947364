#include "camera/sources/stream_format.h"

#include <array>
#include <cmath>

namespace kova::camera {

namespace {

template <typename T>
struct Named {
    T value;
    const char* name;
};

constexpr std::array<Named<FrameLayout>, 3> kLayouts = {{
    {FrameLayout::kSideBySide, "side_by_side"},
    {FrameLayout::kTopBottom, "top_bottom"},
    {FrameLayout::kInterleaved, "interleaved"},
}};

constexpr std::array<Named<FrameCodec>, 4> kCodecs = {{
    {FrameCodec::kRaw, "raw"},
    {FrameCodec::kJpeg, "jpeg"},
    {FrameCodec::kPng, "png"},
    {FrameCodec::kZstd, "zstd"},
}};

constexpr std::array<Named<PixelFormat>, 6> kPixelFormats = {{
    {PixelFormat::kGrey, "grey"},
    {PixelFormat::kYuyv, "yuyv"},
    {PixelFormat::kUyvy, "uyvy"},
    {PixelFormat::kNv12, "nv12"},
    {PixelFormat::kY16, "y16"},
    {PixelFormat::kRgb, "rgb"},
}};

template <typename T, std::size_t N>
const char* nameIn(const std::array<Named<T>, N>& table, T value) {
    for (const Named<T>& entry : table)
        if (entry.value == value)
            return entry.name;
    return "unknown";
}

template <typename T, std::size_t N>
std::optional<T> valueIn(const std::array<Named<T>, N>& table, const std::string& name) {
    for (const Named<T>& entry : table)
        if (name == entry.name)
            return entry.value;
    return std::nullopt;
}

Status impossible(const std::string& what) {
    return {ErrorCode::kInvalidArgument, "impossible stream: " + what};
}

}  // namespace

std::size_t rawFrameBytes(PixelFormat format, int width, int height) {
    if (width <= 0 || height <= 0 || width > kMaxPictureSide || height > kMaxPictureSide)
        return 0;
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    switch (format) {
        case PixelFormat::kGrey:
            return pixels;
        case PixelFormat::kYuyv:
        case PixelFormat::kUyvy:
        case PixelFormat::kY16:
            return pixels * 2;
        case PixelFormat::kNv12:
            return pixels + pixels / 2;
        case PixelFormat::kRgb:
            return pixels * 3;
    }
    return 0;
}

Status checkStream(const StreamInfo& stream) {
    const std::string size = std::to_string(stream.width) + "x" + std::to_string(stream.height);
    if (stream.width <= 0 || stream.height <= 0 || stream.width > kMaxPictureSide ||
        stream.height > kMaxPictureSide)
        return impossible("a picture of " + size + " px");
    if (stream.layout == FrameLayout::kSideBySide && stream.width % 2 != 0)
        return impossible("side by side with an odd width (" + size + ")");
    if (stream.layout == FrameLayout::kTopBottom && stream.height % 2 != 0)
        return impossible("top-bottom with an odd height (" + size + ")");
    if (!std::isfinite(stream.nominal_fps) || stream.nominal_fps < 0 || stream.nominal_fps > 1e5)
        return impossible("a rate of " + std::to_string(stream.nominal_fps) + " frames/s");

    // The files of the other codecs say themselves what their pixels are.
    if (stream.codec == FrameCodec::kJpeg || stream.codec == FrameCodec::kPng) {
        if (stream.layout == FrameLayout::kInterleaved)
            return impossible("interleaved eyes in JPEG or PNG; they need yuyv or uyvy pixels");
        return {};
    }
    const bool packed =
        stream.pixel_format == PixelFormat::kYuyv || stream.pixel_format == PixelFormat::kUyvy;
    const bool subsampled = packed || stream.pixel_format == PixelFormat::kNv12;
    if (stream.layout == FrameLayout::kInterleaved && !packed)
        return impossible("interleaved eyes in " + std::string(nameOf(stream.pixel_format)) +
                          " pixels; they need yuyv or uyvy");
    if (subsampled && stream.eyeWidth() % 2 != 0)
        return impossible(std::string(nameOf(stream.pixel_format)) +
                          " pixels with an odd width of an eye (" + size + ")");
    if (stream.pixel_format == PixelFormat::kNv12 && stream.eyeHeight() % 2 != 0)
        return impossible("nv12 pixels with an odd height of an eye (" + size + ")");
    return {};
}

const char* nameOf(FrameLayout layout) {
    return nameIn(kLayouts, layout);
}
const char* nameOf(FrameCodec codec) {
    return nameIn(kCodecs, codec);
}
const char* nameOf(PixelFormat format) {
    return nameIn(kPixelFormats, format);
}

std::optional<FrameLayout> frameLayoutFromName(const std::string& name) {
    return valueIn(kLayouts, name);
}
std::optional<FrameCodec> frameCodecFromName(const std::string& name) {
    return valueIn(kCodecs, name);
}
std::optional<PixelFormat> pixelFormatFromName(const std::string& name) {
    return valueIn(kPixelFormats, name);
}

}  // namespace kova::camera
