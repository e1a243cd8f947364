#include "camera/sources/v4l2_modes.h"

#include <linux/videodev2.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace kova::camera {

namespace {

struct Format {
    std::uint32_t fourcc;
    FrameCodec codec;
    PixelFormat pixels;
};

// In the order of preference.
constexpr std::array<Format, 8> kFormats = {{
    {V4L2_PIX_FMT_NV12, FrameCodec::kRaw, PixelFormat::kNv12},
    {V4L2_PIX_FMT_YUYV, FrameCodec::kRaw, PixelFormat::kYuyv},
    {V4L2_PIX_FMT_UYVY, FrameCodec::kRaw, PixelFormat::kUyvy},
    {V4L2_PIX_FMT_GREY, FrameCodec::kRaw, PixelFormat::kGrey},
    {V4L2_PIX_FMT_Y16, FrameCodec::kRaw, PixelFormat::kY16},
    {V4L2_PIX_FMT_RGB24, FrameCodec::kRaw, PixelFormat::kRgb},
    {V4L2_PIX_FMT_MJPEG, FrameCodec::kJpeg, PixelFormat::kGrey},
    {V4L2_PIX_FMT_JPEG, FrameCodec::kJpeg, PixelFormat::kGrey},
}};

int preference(std::uint32_t fourcc) {
    const auto found = std::find_if(kFormats.begin(), kFormats.end(),
                                    [&](const Format& f) { return f.fourcc == fourcc; });
    return static_cast<int>(found - kFormats.begin());
}

// Drivers round intervals: 30 frames per second are listed as 333333/10000000 s.
bool offersRate(const V4l2Mode& mode, double fps) {
    return fps >= mode.min_fps * 0.99 && fps <= mode.max_fps * 1.01;
}

double rate(const v4l2_fract& interval) {
    return interval.numerator > 0 ? double(interval.denominator) / interval.numerator : 0;
}

void addRates(V4l2System& system, int fd, V4l2Mode mode, std::vector<V4l2Mode>& modes) {
    v4l2_frmivalenum interval = {};
    interval.pixel_format = mode.fourcc;
    interval.width = static_cast<std::uint32_t>(mode.width);
    interval.height = static_cast<std::uint32_t>(mode.height);
    bool any = false;
    for (; interval.index < 256 && system.ioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0;
         ++interval.index) {
        any = true;
        if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
            mode.min_fps = rate(interval.stepwise.max);
            mode.max_fps = rate(interval.stepwise.min);
            modes.push_back(mode);
            return;
        }
        mode.min_fps = mode.max_fps = rate(interval.discrete);
        modes.push_back(mode);
    }
    if (!any) {  // a driver that does not say: take any rate, what it delivers is measured
        mode.min_fps = 0;
        mode.max_fps = 1000;
        modes.push_back(mode);
    }
}

bool fits(const v4l2_frmsize_stepwise& s, int width, int height) {
    const auto in = [](std::uint32_t v, std::uint32_t lowest, std::uint32_t highest,
                       std::uint32_t step) {
        return v >= lowest && v <= highest && (step <= 1 || (v - lowest) % step == 0);
    };
    return in(static_cast<std::uint32_t>(width), s.min_width, s.max_width, s.step_width) &&
           in(static_cast<std::uint32_t>(height), s.min_height, s.max_height, s.step_height);
}

/// Pictures that hold both eyes of the known modes, for devices that offer any size.
std::vector<std::pair<int, int>> stereoSizes() {
    std::vector<std::pair<int, int>> sizes;
    for (const bino::ResolutionFpsMode& mode : bino::resolution_fps_modes())
        for (const auto& size :
             {std::pair(2 * mode.width, mode.height), std::pair(mode.width, 2 * mode.height),
              std::pair(mode.width, mode.height)})
            if (std::find(sizes.begin(), sizes.end(), size) == sizes.end())
                sizes.push_back(size);
    return sizes;
}

void addSizes(V4l2System& system, int fd, std::uint32_t fourcc, std::vector<V4l2Mode>& modes) {
    v4l2_frmsizeenum size = {};
    size.pixel_format = fourcc;
    for (; size.index < 256 && system.ioctl(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
        V4l2Mode mode;
        mode.fourcc = fourcc;
        if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
            mode.width = static_cast<int>(size.discrete.width);
            mode.height = static_cast<int>(size.discrete.height);
            addRates(system, fd, mode, modes);
            continue;
        }
        for (const auto& [width, height] : stereoSizes()) {
            if (!fits(size.stepwise, width, height))
                continue;
            mode.width = width;
            mode.height = height;
            addRates(system, fd, mode, modes);
        }
        return;
    }
}

std::string textOf(const unsigned char* text, std::size_t size) {
    const char* begin = reinterpret_cast<const char*>(text);
    return {begin, strnlen(begin, size)};
}

}  // namespace

bool describeFormat(std::uint32_t fourcc, FrameCodec& codec, PixelFormat& pixels) {
    const int index = preference(fourcc);
    if (index == static_cast<int>(kFormats.size()))
        return false;
    codec = kFormats[static_cast<std::size_t>(index)].codec;
    pixels = kFormats[static_cast<std::size_t>(index)].pixels;
    return true;
}

std::string fourccText(std::uint32_t fourcc) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(fourcc >> (8 * i) & 0x7F);
        text += c >= ' ' ? c : '?';
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

NodeKind queryDevice(V4l2System& system, const std::string& node, V4l2Device& device) {
    const int fd = system.open(node);
    if (fd < 0)
        return errno == EACCES || errno == EPERM ? NodeKind::kForbidden : NodeKind::kOther;
    v4l2_capability capability = {};
    bool capture = system.ioctl(fd, VIDIOC_QUERYCAP, &capability) == 0;
    if (capture) {
        // One driver may serve several nodes; device_caps speaks of this one.
        const std::uint32_t caps = capability.capabilities & V4L2_CAP_DEVICE_CAPS
                                       ? capability.device_caps
                                       : capability.capabilities;
        capture = (caps & V4L2_CAP_VIDEO_CAPTURE) && (caps & V4L2_CAP_STREAMING);
    }
    if (capture) {
        device = {};
        device.node = node;
        device.name = textOf(capability.card, sizeof capability.card);
        device.serial = system.deviceText(node, "serial");
        const std::string release = system.deviceText(node, "bcdDevice");
        // "0102" is version 1.02.
        if (release.size() == 4)
            device.hardware_version =
                std::to_string(std::atoi(release.substr(0, 2).c_str())) + "." + release.substr(2);
        v4l2_fmtdesc format = {};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        for (; format.index < 64 && system.ioctl(fd, VIDIOC_ENUM_FMT, &format) == 0;
             ++format.index) {
            FrameCodec codec;
            PixelFormat pixels;
            if (describeFormat(format.pixelformat, codec, pixels))
                addSizes(system, fd, format.pixelformat, device.modes);
        }
    }
    system.close(fd);
    return capture ? NodeKind::kCamera : NodeKind::kOther;
}

std::vector<StereoMatch> matchMode(const V4l2Device& device, const CameraConfig& config,
                                   const bino::ResolutionFpsMode& wanted) {
    struct Shape {
        FrameLayout layout;
        int width;
        int height;
    };
    const Shape shapes[] = {
        {FrameLayout::kSideBySide, 2 * wanted.width, wanted.height},
        {FrameLayout::kTopBottom, wanted.width, 2 * wanted.height},
        {FrameLayout::kInterleaved, wanted.width, wanted.height},
    };
    std::vector<StereoMatch> matches;
    for (const Shape& shape : shapes) {
        if (config.layout_stated ? shape.layout != config.layout
                                 : shape.layout == FrameLayout::kInterleaved)
            continue;
        for (const V4l2Mode& mode : device.modes) {
            if (mode.width != shape.width || mode.height != shape.height ||
                !offersRate(mode, wanted.fps))
                continue;
            StereoMatch match;
            match.mode = mode;
            match.stream.layout = shape.layout;
            describeFormat(mode.fourcc, match.stream.codec, match.stream.pixel_format);
            if (shape.layout == FrameLayout::kInterleaved &&
                match.stream.pixel_format != PixelFormat::kYuyv &&
                match.stream.pixel_format != PixelFormat::kUyvy)
                continue;
            match.stream.width = mode.width;
            match.stream.height = mode.height;
            match.stream.nominal_fps = wanted.fps;
            match.stream.swapped = config.swapped;
            match.stream.left_flipped = config.left_flipped;
            match.stream.right_flipped = config.right_flipped;
            matches.push_back(match);
        }
    }
    std::stable_sort(matches.begin(), matches.end(), [](const auto& a, const auto& b) {
        return preference(a.mode.fourcc) < preference(b.mode.fourcc);
    });
    return matches;
}

bool modelOf(const V4l2Device& device, const CameraConfig& config, bino::CAMERA_MODEL& model) {
    double fastest = 0;
    for (const bino::ResolutionFpsMode& mode : bino::resolution_fps_modes())
        if (!matchMode(device, config, mode).empty())
            fastest = std::max(fastest, static_cast<double>(mode.fps));
    if (fastest <= 0)
        return false;
    const bool imu = !config.iio.empty();
    if (fastest >= 100)
        model = imu ? bino::CAMERA_MODEL_QUELVAR_P1 : bino::CAMERA_MODEL_QUELVAR_R1;
    else
        model = imu ? bino::CAMERA_MODEL_QUELVAR_P0 : bino::CAMERA_MODEL_QUELVAR_R0;
    return true;
}

std::uint32_t serialNumber(const std::string& serial) {
    if (serial.empty())
        return 0;
    if (serial.size() <= 9 && serial.find_first_not_of("0123456789") == std::string::npos)
        return static_cast<std::uint32_t>(std::stoul(serial));
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<const Bytef*>(serial.data()), static_cast<uInt>(serial.size())));
}

}  // namespace kova::camera
