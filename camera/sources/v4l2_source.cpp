#include "camera/sources/v4l2_source.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "camera/base/log.h"

namespace kova::camera {

namespace {

constexpr std::uint32_t kBuffers = 4;
constexpr int kWaitMs = 100;
constexpr std::int64_t kSilenceNs = 1000000000;
// A bad cable damages many frames; the log is told of the first and then of every so many.
constexpr std::int64_t kDamagedPerLine = 100;
// V4L2_CID_EXPOSURE_ABSOLUTE counts in these.
constexpr double kExposureUnitMs = 0.1;

std::string reason(int error) {
    return std::strerror(error);
}

Status cannotOpen(const std::string& node, int error) {
    std::string what = node + ": cannot be opened: " + reason(error);
    if (error == EACCES || error == EPERM)
        what += std::string("; ") + kPermissionAdvice;
    else if (error == EBUSY)
        what += "; another program uses the camera, close it";
    else if (error == ENOENT || error == ENODEV || error == ENXIO)
        what += "; is the camera plugged in?";
    return {ErrorCode::kInvalidCamera, what};
}

Status cannotStream(const std::string& node, int error) {
    std::string what = node + ": the camera does not start: " + reason(error);
    if (error == ENOSPC)
        what +=
            "; the USB bus has no bandwidth left, use another port (USB 3) or a smaller or slower "
            "mode";
    else if (error == EBUSY)
        what += "; another program uses the camera, close it";
    return {ErrorCode::kInvalidCamera, what};
}

/// A JPEG is whole when it begins and ends with its markers; drivers pad the end with zeros.
bool isWholeJpeg(const std::uint8_t* data, std::size_t& size) {
    while (size > 2 && data[size - 1] == 0) --size;
    return size > 4 && data[0] == 0xFF && data[1] == 0xD8 && data[size - 2] == 0xFF &&
           data[size - 1] == 0xD9;
}

std::size_t rawBytes(const StreamInfo& stream) {
    const std::size_t pixels =
        static_cast<std::size_t>(stream.width) * static_cast<std::size_t>(stream.height);
    switch (stream.pixel_format) {
        case PixelFormat::kGrey:
            return pixels;
        case PixelFormat::kNv12:
            return pixels * 3 / 2;
        case PixelFormat::kRgb:
            return pixels * 3;
        case PixelFormat::kYuyv:
        case PixelFormat::kUyvy:
        case PixelFormat::kY16:
            return pixels * 2;
    }
    return 0;
}

std::int64_t nanoseconds(const timeval& t) {
    return t.tv_sec * INT64_C(1000000000) + t.tv_usec * INT64_C(1000);
}

}  // namespace

Result<std::unique_ptr<V4l2Source>> V4l2Source::open(V4l2System& system, const V4l2Device& device,
                                                     const CameraConfig& config,
                                                     const bino::ResolutionFpsMode& wanted,
                                                     const StereoCalibration& calibration,
                                                     const std::string& iio_folder) {
    const std::vector<StereoMatch> matches = matchMode(device, config, wanted);
    if (matches.empty())
        return Status(ErrorCode::kInvalidMode, device.node + " (" + device.name + "): offers no " +
                                                   wanted.name +
                                                   "; choose another mode, see 'kova list'");
    std::unique_ptr<V4l2Source> source(new V4l2Source(system, device.node));
    source->calibration_ = calibration;
    bino::CAMERA_MODEL model = bino::CAMERA_MODEL_QUELVAR_R0;
    modelOf(device, config, model);
    source->camera_.model = model;
    source->camera_.name = device.name;
    source->camera_.serial_number = serialNumber(device.serial);
    source->camera_.hardware_version = device.hardware_version;

    if (!config.iio.empty()) {
        auto imu = IioImu::open(config.iio, config.imu_to_camera, iio_folder);
        if (imu.ok())
            source->imu_ = std::move(imu.value());
        else  // the pictures are of use without it
            logWarning("v4l2", device.node + ": " + imu.status().message());
    }
    source->camera_.has_imu = source->imu_ != nullptr;

    Status status;
    for (const StereoMatch& match : matches) {
        status = source->start(match);
        if (status.ok()) {
            source->learnExposure();
            return source;
        }
        source->stop();
        logInfo("v4l2", status.message());
    }
    return status;
}

V4l2Source::~V4l2Source() {
    stop();
}

Status V4l2Source::start(const StereoMatch& match) {
    fd_ = system_.open(node_);
    if (fd_ < 0)
        return cannotOpen(node_, errno);
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = static_cast<std::uint32_t>(match.mode.width);
    format.fmt.pix.height = static_cast<std::uint32_t>(match.mode.height);
    format.fmt.pix.pixelformat = match.mode.fourcc;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    if (system_.ioctl(fd_, VIDIOC_S_FMT, &format) != 0)
        return cannotStream(node_, errno);
    // Drivers adjust what they cannot do instead of refusing it.
    if (format.fmt.pix.width != static_cast<std::uint32_t>(match.mode.width) ||
        format.fmt.pix.height != static_cast<std::uint32_t>(match.mode.height) ||
        format.fmt.pix.pixelformat != match.mode.fourcc)
        return {ErrorCode::kInvalidMode,
                node_ + ": delivers " + std::to_string(format.fmt.pix.width) + "x" +
                    std::to_string(format.fmt.pix.height) + " " +
                    fourccText(format.fmt.pix.pixelformat) + " instead of the mode asked for"};
    v4l2_streamparm rate = {};
    rate.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    rate.parm.capture.timeperframe.numerator = 1000;
    rate.parm.capture.timeperframe.denominator =
        static_cast<std::uint32_t>(std::lround(match.stream.nominal_fps * 1000));
    if (system_.ioctl(fd_, VIDIOC_S_PARM, &rate) != 0)
        logInfo("v4l2", node_ + ": the frame rate cannot be set: " + reason(errno));
    stream_ = match.stream;
    if (Status s = mapBuffers(); !s.ok())
        return s;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (system_.ioctl(fd_, VIDIOC_STREAMON, &type) != 0)
        return cannotStream(node_, errno);
    streaming_ = true;
    last_frame_ns_ = system_.now();
    return {};
}

Status V4l2Source::mapBuffers() {
    v4l2_requestbuffers request = {};
    request.count = kBuffers;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (system_.ioctl(fd_, VIDIOC_REQBUFS, &request) != 0)
        return cannotStream(node_, errno);
    if (request.count < 2)
        return cannotStream(node_, ENOMEM);
    for (std::uint32_t i = 0; i < request.count; ++i) {
        v4l2_buffer buffer = {};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        buffer.index = i;
        if (system_.ioctl(fd_, VIDIOC_QUERYBUF, &buffer) != 0)
            return cannotStream(node_, errno);
        void* address = system_.map(fd_, buffer.length, buffer.m.offset);
        if (!address)
            return cannotStream(node_, errno);
        buffers_.push_back({address, buffer.length});
        if (system_.ioctl(fd_, VIDIOC_QBUF, &buffer) != 0)
            return cannotStream(node_, errno);
    }
    return {};
}

void V4l2Source::stop() {
    if (fd_ < 0)
        return;
    if (streaming_) {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        system_.ioctl(fd_, VIDIOC_STREAMOFF, &type);
        streaming_ = false;
    }
    for (const Buffer& buffer : buffers_) system_.unmap(buffer.address, buffer.length);
    buffers_.clear();
    system_.close(fd_);
    fd_ = -1;
}

Status V4l2Source::lost(const std::string& why) {
    lost_ = {ErrorCode::kInvalidCamera, node_ + ": " + why};
    return lost_;
}

bool V4l2Source::take(const void* opaque, RawFrame& frame) {
    const auto& buffer = *static_cast<const v4l2_buffer*>(opaque);
    if ((buffer.flags & V4L2_BUF_FLAG_ERROR) || buffer.index >= buffers_.size())
        return false;
    const auto* data = static_cast<const std::uint8_t*>(buffers_[buffer.index].address);
    std::size_t size = std::min<std::size_t>(buffer.bytesused, buffers_[buffer.index].length);
    if (stream_.codec == FrameCodec::kJpeg ? !isWholeJpeg(data, size) : size < rawBytes(stream_))
        return false;
    if (stream_.codec == FrameCodec::kRaw)
        size = rawBytes(stream_);
    frame.data.assign(data, data + size);
    const bool monotonic =
        (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    frame.t_ns = monotonic ? nanoseconds(buffer.timestamp) : system_.now();
    frame.sequence = buffer.sequence;
    frame.imu.clear();
    return true;
}

Status V4l2Source::grab(RawFrame& frame) {
    if (!lost_.ok())
        return lost_;
    bool broken = false;
    const int ready = system_.wait(fd_, kWaitMs, broken);
    if (broken || ready < 0)
        return lost("the camera was unplugged; plug it in and open it again");
    bool got = false;
    // Everything that waits is taken, so that the newest frame is the one delivered.
    while (ready > 0) {
        v4l2_buffer buffer = {};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        if (system_.ioctl(fd_, VIDIOC_DQBUF, &buffer) != 0) {
            if (errno == EAGAIN)
                break;
            if (errno == EIO)  // the driver's word for a frame that came to grief
                break;
            return lost("the camera was unplugged (" + reason(errno) +
                        "); plug it in and open it again");
        }
        last_frame_ns_ = system_.now();
        const std::int64_t sequence = buffer.sequence;
        if (last_sequence_ >= 0 && sequence > last_sequence_ + 1)
            dropped_ += sequence - last_sequence_ - 1;
        last_sequence_ = sequence;
        if (take(&buffer, frame)) {
            dropped_ += got;  // the one before is passed over
            got = true;
        } else {
            ++dropped_;
            if (damaged_++ % kDamagedPerLine == 0)
                logWarning("v4l2", node_ + ": damaged frame dropped, " + std::to_string(damaged_) +
                                       " so far; try another cable or port");
        }
        if (system_.ioctl(fd_, VIDIOC_QBUF, &buffer) != 0)
            return lost("the camera was unplugged (" + reason(errno) +
                        "); plug it in and open it again");
    }
    if (got) {
        frame.exposure_us = exposureMs() * 1000;
        if (imu_)
            imu_->drain(frame.imu);
        return {};
    }
    if (system_.now() - last_frame_ns_ >= kSilenceNs)
        return lost(
            "the camera has been silent for a second; unplug it, plug it in and open it "
            "again, on another port if that does not help");
    return {ErrorCode::kNoNewFrame, node_ + ": no frame is due"};
}

Status V4l2Source::startImu() {
    if (!imu_)
        return {ErrorCode::kImuMissing,
                node_ + ": no inertial unit; name one in the camera's configuration"};
    imu_->start();
    return {};
}

bool V4l2Source::setControl(std::uint32_t id, std::int32_t value) {
    v4l2_control control = {id, value};
    return system_.ioctl(fd_, VIDIOC_S_CTRL, &control) == 0;
}

bool V4l2Source::getControl(std::uint32_t id, std::int32_t& value) const {
    v4l2_control control = {id, 0};
    if (system_.ioctl(fd_, VIDIOC_G_CTRL, &control) != 0)
        return false;
    value = control.value;
    return true;
}

void V4l2Source::learnExposure() {
    v4l2_queryctrl query = {};
    query.id = V4L2_CID_EXPOSURE_ABSOLUTE;
    if (system_.ioctl(fd_, VIDIOC_QUERYCTRL, &query) != 0 ||
        (query.flags & V4L2_CTRL_FLAG_DISABLED))
        return;
    min_exposure_ = query.minimum;
    max_exposure_ = query.maximum;
    // An exposure longer than a frame would slow the camera down.
    max_exposure_ms_ = std::min(max_exposure_ * kExposureUnitMs, 1000 / stream_.nominal_fps);
    // Else the camera halves its rate in the dark.
    setControl(V4L2_CID_EXPOSURE_AUTO_PRIORITY, 0);
    (void)setAutoExposure(true);
}

double V4l2Source::exposureMs() const {
    std::int32_t value = 0;
    if (max_exposure_ <= 0 || fd_ < 0 || !getControl(V4L2_CID_EXPOSURE_ABSOLUTE, value))
        return 0;
    return value * kExposureUnitMs;
}

double V4l2Source::maxExposureMs() const {
    return max_exposure_ms_;
}

Status V4l2Source::setExposureMs(double ms) {
    if (max_exposure_ <= 0)
        return {ErrorCode::kInvalidArgument, node_ + ": the camera has no exposure control"};
    // A manual value is lost while the automatic is on.
    if (Status s = setAutoExposure(false); !s.ok())
        return s;
    const double limited = std::clamp(ms, 0.0, max_exposure_ms_);
    const auto value = std::clamp(static_cast<std::int32_t>(std::lround(limited / kExposureUnitMs)),
                                  std::max(min_exposure_, 1), max_exposure_);
    if (!setControl(V4L2_CID_EXPOSURE_ABSOLUTE, value))
        return {ErrorCode::kInvalidArgument,
                node_ + ": the exposure cannot be set: " + reason(errno)};
    return {};
}

Status V4l2Source::setAutoExposure(bool automatic) {
    if (max_exposure_ <= 0)
        return {ErrorCode::kInvalidArgument, node_ + ": the camera has no exposure control"};
    // Most cameras know "aperture priority" as their automatic, some only the full one.
    const bool done = automatic
                          ? setControl(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY) ||
                                setControl(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_AUTO)
                          : setControl(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL) ||
                                setControl(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_SHUTTER_PRIORITY);
    if (!done)
        return {ErrorCode::kInvalidArgument,
                node_ + ": automatic exposure cannot be switched: " + reason(errno)};
    return {};
}

}  // namespace kova::camera
