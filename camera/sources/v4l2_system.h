#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kova::camera {

/// The system calls behind capture from Video4Linux, so that tests can play a device. As in the
/// system: -1 and errno on failure.
class V4l2System {
public:
    virtual ~V4l2System() = default;

    /// Paths of the video nodes, in the order of their numbers ("/dev/video2" before
    /// "/dev/video10").
    virtual std::vector<std::string> videoNodes() = 0;
    /// A text below /sys that describes a node's device, without white space around it: "serial",
    /// "bcdDevice", "product"; empty when there is none.
    virtual std::string deviceText(const std::string& node, const std::string& name) = 0;

    virtual int open(const std::string& node) = 0;
    virtual void close(int fd) = 0;
    virtual int ioctl(int fd, unsigned long request, void* argument) = 0;
    virtual void* map(int fd, std::size_t length, std::int64_t offset) = 0;  ///< null on failure
    virtual void unmap(void* address, std::size_t length) = 0;
    /// Waits for a frame. @return 1 ready, 0 nothing in time, -1 failure; `broken` is set when the
    /// device reports an error or is gone
    virtual int wait(int fd, int timeout_ms, bool& broken) = 0;
    /// CLOCK_MONOTONIC [ns].
    virtual std::int64_t now() = 0;
};

/// The calls of the running system.
V4l2System& realV4l2System();

}  // namespace kova::camera
