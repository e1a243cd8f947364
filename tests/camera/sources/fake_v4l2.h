#pragma once

#include <linux/videodev2.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "camera/sources/v4l2_system.h"

namespace kova::test {

/// Plays one Video4Linux device: modes, buffers, controls, a clock, and failures on request.
class FakeV4l2 : public camera::V4l2System {
public:
    struct Mode {
        std::uint32_t fourcc;
        int width, height;
        std::vector<int> rates;  ///< empty: the driver does not say
        bool stepwise = false;   ///< any size up to width x height, any rate up to rates[0]
    };
    struct Frame {
        std::vector<std::uint8_t> bytes;
        std::uint32_t sequence = 0;
        std::int64_t t_ns = 0;
        std::uint32_t flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    };
    struct Control {
        std::int32_t value, minimum, maximum;
    };

    std::vector<std::string> nodes = {"/dev/video0"};
    std::map<std::string, std::string> texts;
    std::string card = "Stereo Camera";
    std::uint32_t caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    std::vector<Mode> modes;
    std::map<std::uint32_t, Control> controls;
    std::deque<Frame> frames;
    /// The request fails with this errno as long as the count is above 0 (-1: for ever).
    struct Failure {
        int error;
        int count = -1;
    };
    std::map<unsigned long, Failure> failures;
    int open_error = 0;
    std::map<std::uint32_t, int> stream_errors;  ///< STREAMON in this format fails with errno
    bool unplugged = false;
    bool adjusts_format = false;
    std::uint32_t buffers_granted = 4;
    bool map_fails = false;
    std::int64_t clock_ns = 5000000000;

    // What was done.
    int open_files = 0;
    int mapped = 0;
    bool streaming = false;
    std::uint32_t fourcc = 0;
    double rate = 0;
    std::vector<std::uint32_t> controls_set;

    std::vector<std::string> videoNodes() override { return nodes; }
    std::string deviceText(const std::string&, const std::string& name) override {
        return texts[name];
    }
    int open(const std::string&) override {
        if (open_error)
            return fail(open_error);
        ++open_files;
        return 7;
    }
    void close(int) override {
        --open_files;
        queued_.clear();
    }
    void* map(int, std::size_t length, std::int64_t offset) override {
        if (map_fails) {
            errno = ENOMEM;
            return nullptr;
        }
        ++mapped;
        memory_[static_cast<std::size_t>(offset)].resize(length);
        return memory_[static_cast<std::size_t>(offset)].data();
    }
    void unmap(void*, std::size_t) override { --mapped; }
    int wait(int, int timeout_ms, bool& broken) override {
        broken = unplugged;
        if (unplugged)
            return 1;
        if (frames.empty() || queued_.empty()) {
            clock_ns += timeout_ms * INT64_C(1000000);
            return 0;
        }
        return 1;
    }
    std::int64_t now() override { return clock_ns; }
    int ioctl(int, unsigned long request, void* argument) override;

private:
    static int fail(int error) {
        errno = error;
        return -1;
    }
    int enumerate(unsigned long request, void* argument);
    int buffers(unsigned long request, void* argument);
    int control(unsigned long request, void* argument);

    std::size_t buffer_size_ = 0;
    std::map<std::size_t, std::vector<std::uint8_t>> memory_;
    std::deque<std::uint32_t> queued_;
};

}  // namespace kova::test
