#include "tests/camera/sources/fake_v4l2.h"

#include <algorithm>

namespace kova::test {

int FakeV4l2::ioctl(int, unsigned long request, void* argument) {
    const auto failure = failures.find(request);
    if (failure != failures.end() && failure->second.count != 0) {
        if (failure->second.count > 0)
            --failure->second.count;
        return fail(failure->second.error);
    }
    switch (request) {
        case VIDIOC_QUERYCAP: {
            auto& capability = *static_cast<v4l2_capability*>(argument);
            std::strncpy(reinterpret_cast<char*>(capability.card), card.c_str(),
                         sizeof capability.card - 1);
            capability.capabilities = V4L2_CAP_DEVICE_CAPS;
            capability.device_caps = caps;
            return 0;
        }
        case VIDIOC_ENUM_FMT:
        case VIDIOC_ENUM_FRAMESIZES:
        case VIDIOC_ENUM_FRAMEINTERVALS:
            return enumerate(request, argument);
        case VIDIOC_S_FMT: {
            auto& pix = static_cast<v4l2_format*>(argument)->fmt.pix;
            if (adjusts_format)
                pix.width /= 2;
            fourcc = pix.pixelformat;
            buffer_size_ = std::size_t(pix.width) * pix.height * 3;
            return 0;
        }
        case VIDIOC_S_PARM: {
            const auto& interval =
                static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe;
            rate = double(interval.denominator) / interval.numerator;
            return 0;
        }
        case VIDIOC_REQBUFS:
        case VIDIOC_QUERYBUF:
        case VIDIOC_QBUF:
        case VIDIOC_DQBUF:
            return buffers(request, argument);
        case VIDIOC_STREAMON:
            if (stream_errors.count(fourcc))
                return fail(stream_errors[fourcc]);
            streaming = true;
            return 0;
        case VIDIOC_STREAMOFF:
            streaming = false;
            return 0;
        case VIDIOC_QUERYCTRL:
        case VIDIOC_G_CTRL:
        case VIDIOC_S_CTRL:
            return control(request, argument);
    }
    return fail(ENOTTY);
}

int FakeV4l2::enumerate(unsigned long request, void* argument) {
    if (request == VIDIOC_ENUM_FMT) {
        auto& format = *static_cast<v4l2_fmtdesc*>(argument);
        std::vector<std::uint32_t> fourccs;
        for (const Mode& mode : modes)
            if (std::find(fourccs.begin(), fourccs.end(), mode.fourcc) == fourccs.end())
                fourccs.push_back(mode.fourcc);
        if (format.index >= fourccs.size())
            return fail(EINVAL);
        format.pixelformat = fourccs[format.index];
        return 0;
    }
    if (request == VIDIOC_ENUM_FRAMESIZES) {
        auto& size = *static_cast<v4l2_frmsizeenum*>(argument);
        std::uint32_t index = 0;
        for (const Mode& mode : modes) {
            if (mode.fourcc != size.pixel_format || index++ != size.index)
                continue;
            if (mode.stepwise) {
                size.type = V4L2_FRMSIZE_TYPE_STEPWISE;
                size.stepwise = {16, std::uint32_t(mode.width),  2,
                                 16, std::uint32_t(mode.height), 2};
            } else {
                size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
                size.discrete = {std::uint32_t(mode.width), std::uint32_t(mode.height)};
            }
            return 0;
        }
        return fail(EINVAL);
    }
    auto& interval = *static_cast<v4l2_frmivalenum*>(argument);
    for (const Mode& mode : modes) {
        const bool fits = mode.stepwise ? interval.width <= std::uint32_t(mode.width) &&
                                              interval.height <= std::uint32_t(mode.height)
                                        : interval.width == std::uint32_t(mode.width) &&
                                              interval.height == std::uint32_t(mode.height);
        if (mode.fourcc != interval.pixel_format || !fits)
            continue;
        if (mode.stepwise) {
            if (interval.index > 0)
                return fail(EINVAL);
            interval.type = V4L2_FRMIVAL_TYPE_CONTINUOUS;
            interval.stepwise.min = {1, std::uint32_t(mode.rates.at(0))};
            interval.stepwise.max = {1, 1};
            return 0;
        }
        if (interval.index >= mode.rates.size())
            return fail(EINVAL);
        interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
        // As drivers round it.
        interval.discrete = {std::uint32_t(10000000 / mode.rates[interval.index]), 10000000};
        return 0;
    }
    return fail(EINVAL);
}

int FakeV4l2::buffers(unsigned long request, void* argument) {
    if (request == VIDIOC_REQBUFS) {
        static_cast<v4l2_requestbuffers*>(argument)->count = buffers_granted;
        return 0;
    }
    auto& buffer = *static_cast<v4l2_buffer*>(argument);
    if (request == VIDIOC_QUERYBUF) {
        buffer.length = static_cast<std::uint32_t>(buffer_size_);
        buffer.m.offset = static_cast<std::uint32_t>(buffer.index * buffer_size_);
        return 0;
    }
    if (request == VIDIOC_QBUF) {
        queued_.push_back(buffer.index);
        return 0;
    }
    if (frames.empty() || queued_.empty())
        return fail(EAGAIN);
    const Frame frame = frames.front();
    frames.pop_front();
    buffer.index = queued_.front();
    queued_.pop_front();
    std::vector<std::uint8_t>& memory = memory_[buffer.index * buffer_size_];
    std::memcpy(memory.data(), frame.bytes.data(), std::min(memory.size(), frame.bytes.size()));
    buffer.bytesused = static_cast<std::uint32_t>(frame.bytes.size());
    buffer.sequence = frame.sequence;
    buffer.flags = frame.flags;
    buffer.timestamp.tv_sec = frame.t_ns / 1000000000;
    buffer.timestamp.tv_usec = frame.t_ns % 1000000000 / 1000;
    return 0;
}

int FakeV4l2::control(unsigned long request, void* argument) {
    if (request == VIDIOC_QUERYCTRL) {
        auto& query = *static_cast<v4l2_queryctrl*>(argument);
        const auto found = controls.find(query.id);
        if (found == controls.end())
            return fail(EINVAL);
        query.minimum = found->second.minimum;
        query.maximum = found->second.maximum;
        return 0;
    }
    auto& control = *static_cast<v4l2_control*>(argument);
    const auto found = controls.find(control.id);
    if (found == controls.end())
        return fail(EINVAL);
    if (request == VIDIOC_G_CTRL) {
        control.value = found->second.value;
        return 0;
    }
    if (control.value < found->second.minimum || control.value > found->second.maximum)
        return fail(ERANGE);
    // A manual exposure is lost while the automatic is on, as on real cameras.
    const auto automatic = controls.find(V4L2_CID_EXPOSURE_AUTO);
    if (control.id == V4L2_CID_EXPOSURE_ABSOLUTE && automatic != controls.end() &&
        automatic->second.value != V4L2_EXPOSURE_MANUAL)
        return fail(EACCES);
    found->second.value = control.value;
    controls_set.push_back(control.id);
    return 0;
}

}  // namespace kova::test
