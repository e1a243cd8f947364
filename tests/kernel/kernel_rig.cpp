// What the test in the virtual machine needs besides `kova`; see scripts/v4l2-test.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "camera/base/log.h"
#include "camera/calibration/formats.h"
#include "camera/pipeline/cameras.h"
#include "camera/recording/recording_reader.h"
#include "sdk/modes.h"

namespace kova {
namespace {

using camera::RawFrame;
using camera::RecordingReader;
using camera::Status;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    "kernel_rig feed NODE RECORDING         plays JPEG frames into a loopback device, over and\n"
    "                                       over, until it is killed\n"
    "kernel_rig same FED RECORDED           is every recorded frame the fed one, byte for byte?\n"
    "kernel_rig calibration RECORDING FILE  writes a recording's calibration\n"
    "kernel_rig control NODE NAME VALUE     sets a device's control\n"
    "kernel_rig drops RECORDING             prints how many frames the camera lost\n"
    "kernel_rig exposure RECORDING          prints the last frame's exposure in microseconds\n"
    "kernel_rig unplug MODE FILE TEXT       grabs ten frames, writes TEXT into FILE, and prints\n"
    "                                       how grab took it\n";

int fail(const std::string& what) {
    std::fprintf(stderr, "kernel_rig: %s\n", what.c_str());
    return 1;
}

int failWithErrno(const std::string& what) {
    return fail(what + ": " + std::strerror(errno));
}

std::unique_ptr<RecordingReader> openRecording(const std::string& path) {
    auto reader = RecordingReader::open(path);
    if (!reader.ok()) {
        fail(reader.status().message());
        return nullptr;
    }
    return std::move(reader.value());
}

int feed(const std::string& node, const std::string& path) {
    const auto reader = openRecording(path);
    if (!reader)
        return 1;
    const int fd = ::open(node.c_str(), O_RDWR);
    if (fd < 0)
        return failWithErrno(node);
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    format.fmt.pix.width = static_cast<std::uint32_t>(reader->stream().width);
    format.fmt.pix.height = static_cast<std::uint32_t>(reader->stream().height);
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    if (::ioctl(fd, VIDIOC_S_FMT, &format) != 0)
        return failWithErrno(node + ": format");
    const double fps = reader->stream().nominal_fps;
    v4l2_streamparm rate = {};
    rate.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    rate.parm.output.timeperframe = {1, static_cast<std::uint32_t>(fps)};
    if (::ioctl(fd, VIDIOC_S_PARM, &rate) != 0)
        return failWithErrno(node + ": rate");
    RawFrame frame;
    Clock::time_point due = Clock::now();
    for (int i = 0;; i = (i + 1) % reader->frameCount()) {
        if (Status s = reader->read(i, frame); !s.ok())
            return fail(s.message());
        if (::write(fd, frame.data.data(), frame.data.size()) !=
            static_cast<ssize_t>(frame.data.size()))
            return failWithErrno(node + ": frame");
        due = std::max(Clock::now(), due + std::chrono::microseconds(int(1e6 / fps)));
        std::this_thread::sleep_until(due);
    }
}

int same(const std::string& fed_path, const std::string& recorded_path) {
    const auto fed = openRecording(fed_path);
    const auto recorded = openRecording(recorded_path);
    if (!fed || !recorded)
        return 1;
    if (recorded->stream().codec != camera::FrameCodec::kJpeg)
        return fail("no JPEG was recorded");
    std::vector<std::vector<std::uint8_t>> pictures;
    RawFrame frame;
    for (int i = 0; i < fed->frameCount(); ++i) {
        if (Status s = fed->read(i, frame); !s.ok())
            return fail(s.message());
        pictures.push_back(frame.data);
    }
    // The device counts what it is fed; where the count began is not known.
    std::int64_t offset = -1;
    const auto count = static_cast<std::int64_t>(pictures.size());
    for (int i = 0; i < recorded->frameCount(); ++i) {
        if (Status s = recorded->read(i, frame); !s.ok())
            return fail(s.message());
        if (offset < 0) {
            const auto found = std::find(pictures.begin(), pictures.end(), frame.data);
            if (found == pictures.end())
                return fail("the first frame was never fed");
            offset = (found - pictures.begin()) - frame.sequence % count + count;
        }
        if (frame.data != pictures[static_cast<std::size_t>((frame.sequence + offset) % count)])
            return fail("frame " + std::to_string(i) + " is not the one that was fed");
    }
    std::printf("%d frames, byte for byte\n", recorded->frameCount());
    return 0;
}

int writeCalibrationOf(const std::string& path, const std::string& file) {
    const auto reader = openRecording(path);
    if (!reader)
        return 1;
    std::ofstream(file) << camera::toYaml(reader->calibration());
    return 0;
}

int setControl(const std::string& node, const std::string& name, int value) {
    const int fd = ::open(node.c_str(), O_RDWR);
    if (fd < 0)
        return failWithErrno(node);
    v4l2_queryctrl query = {};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    for (; ::ioctl(fd, VIDIOC_QUERYCTRL, &query) == 0; query.id |= V4L2_CTRL_FLAG_NEXT_CTRL) {
        if (name != reinterpret_cast<const char*>(query.name))
            continue;
        v4l2_control control = {query.id, value};
        return ::ioctl(fd, VIDIOC_S_CTRL, &control) == 0 ? 0 : failWithErrno(name);
    }
    return fail(node + " has no control '" + name + "'");
}

int printDrops(const std::string& path) {
    const auto reader = openRecording(path);
    if (!reader)
        return 1;
    std::int64_t lost = 0;
    for (const camera::DropRecord& drop : reader->drops()) lost += drop.count;
    std::printf("%lld\n", static_cast<long long>(lost));
    return 0;
}

int printExposure(const std::string& path) {
    const auto reader = openRecording(path);
    if (!reader)
        return 1;
    RawFrame frame;
    if (Status s = reader->read(reader->frameCount() - 1, frame); !s.ok())
        return fail(s.message());
    std::printf("%.0f\n", frame.exposure_us);
    return 0;
}

int unplug(const std::string& mode_name, const std::string& file, const std::string& text) {
    const auto& modes = bino::resolution_fps_modes();
    const auto mode = std::find_if(modes.begin(), modes.end(),
                                   [&](const auto& m) { return mode_name == m.name; });
    if (mode == modes.end())
        return fail("unknown mode " + mode_name);
    auto source = camera::openCamera(0, mode->mode);
    if (!source.ok())
        return fail(source.status().message());
    RawFrame frame;
    int frames = 0;
    double longest_ms = 0;
    bool pulled = false;
    Clock::time_point since = Clock::now();
    const auto ms = [](Clock::duration d) {
        return std::chrono::duration<double, std::milli>(d).count();
    };
    for (;;) {
        const Clock::time_point begin = Clock::now();
        const Status status = source.value()->grab(frame);
        longest_ms = std::max(longest_ms, ms(Clock::now() - begin));
        frames += status.ok();
        if (!status.ok() && status.code() != camera::ErrorCode::kNoNewFrame) {
            std::printf("frames %d longest_ms %.0f code %d after_ms %.0f %s\n", frames, longest_ms,
                        static_cast<int>(camera::toResultCode(status.code())),
                        ms(Clock::now() - since), status.message().c_str());
            return pulled ? 0 : 1;
        }
        if (frames >= 10 && !pulled) {
            // On a thread of its own: the kernel may wait there for whoever has the device open.
            since = Clock::now();
            std::thread([=] { std::ofstream(file) << text << std::flush; }).detach();
            pulled = true;
        }
        if (ms(Clock::now() - since) > 60000)
            return fail("grab did not notice within a minute");
    }
}

}  // namespace
}  // namespace kova

int main(int argc, char** argv) {
    kova::camera::setLogSink(
        [](kova::camera::LogLevel, const std::string& category, const std::string& text) {
            std::fprintf(stderr, "%s: %s\n", category.c_str(), text.c_str());
        });
    const std::vector<std::string> words(argv + 1, argv + argc);
    const auto is = [&](const char* verb, std::size_t arguments) {
        return words.size() == arguments + 1 && words[0] == verb;
    };
    if (is("feed", 2))
        return kova::feed(words[1], words[2]);
    if (is("same", 2))
        return kova::same(words[1], words[2]);
    if (is("calibration", 2))
        return kova::writeCalibrationOf(words[1], words[2]);
    if (is("control", 3))
        return kova::setControl(words[1], words[2], std::stoi(words[3]));
    if (is("drops", 1))
        return kova::printDrops(words[1]);
    if (is("exposure", 1))
        return kova::printExposure(words[1]);
    if (is("unplug", 3))
        return kova::unplug(words[1], words[2], words[3]);
    std::fputs(kova::kUsage, stderr);
    return 2;
}
