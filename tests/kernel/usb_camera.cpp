// A USB stereo camera as a program: the kernel's own uvcvideo driver sees it at the other end of
// the virtual bus of dummy_hcd. It delivers JPEG frames from a recording, over and over, has
// exposure controls, and writes what they were set to. When it ends, the camera is unplugged.
//
//   usb_camera FOLDER RECORDING CONTROLS   FOLDER: where gadgetfs is mounted; CONTROLS: file to
//   write
//
// Descriptors and requests: USB Device Class Definition for Video Devices 1.0, with bulk transfer.
#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usb/gadgetfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "camera/recording/recording_reader.h"

namespace kova {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kEndpoint = 0x81;
constexpr const char* kEndpointFile = "ep1in-bulk";
constexpr std::uint32_t kPayload = 16384;  // bytes of a transfer, its header included
constexpr int kTerminal = 1;               // the camera among the units of the device
constexpr std::uint8_t kSet = 0x01, kGetCurrent = 0x81, kGetMinimum = 0x82, kGetMaximum = 0x83,
                       kGetStep = 0x84, kGetLength = 0x85, kGetInfo = 0x86, kGetDefault = 0x87;

/// Little-endian numbers one after the other.
class Writer {
public:
    Writer& u8(std::initializer_list<int> values) {
        for (const int v : values) bytes.push_back(static_cast<std::uint8_t>(v));
        return *this;
    }
    Writer& u16(unsigned v) { return number(v, 2); }
    Writer& u32(unsigned v) { return number(v, 4); }
    Writer& add(const Bytes& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        return *this;
    }
    Bytes bytes;

private:
    Writer& number(unsigned v, int count) {
        for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        return *this;
    }
};

struct Picture {
    unsigned width, height;
    unsigned interval;  ///< [100 ns]
    unsigned bytes() const { return width * height; }
};

Bytes configuration(const Picture& p, unsigned packet) {
    const Bytes terminals =
        Writer()
            // Camera: automatic mode, its priority, exposure time.
            .u8({18, 0x24, 0x02, kTerminal, 0x01, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0x0E, 0, 0})
            .u8({9, 0x24, 0x03, 2, 0x01, 0x01, 0, kTerminal, 0})
            .bytes;
    const Bytes formats = Writer()
                              .u8({11, 0x24, 0x06, 1, 1, 1, 1, 0, 0, 0, 0})
                              .u8({30, 0x24, 0x07, 1, 0})
                              .u16(p.width)
                              .u16(p.height)
                              .u32(p.bytes() * 8)
                              .u32(p.bytes() * 8 * 30)
                              .u32(p.bytes())
                              .u32(p.interval)
                              .u8({1})
                              .u32(p.interval)
                              .u8({6, 0x24, 0x0D, 1, 1, 4})
                              .bytes;
    const Bytes body = Writer()
                           .u8({8, 0x0B, 0, 2, 0x0E, 3, 0, 0})
                           .u8({9, 4, 0, 0, 0, 0x0E, 1, 0, 0})
                           .u8({13, 0x24, 0x01, 0x00, 0x01})
                           .u16(static_cast<unsigned>(13 + terminals.size()))
                           .u32(48000000)
                           .u8({1, 1})
                           .add(terminals)
                           .u8({9, 4, 1, 0, 1, 0x0E, 2, 0, 0})
                           .u8({14, 0x24, 0x01, 1})
                           .u16(static_cast<unsigned>(14 + formats.size()))
                           .u8({kEndpoint, 0, 2, 0, 0, 0, 1, 0})
                           .add(formats)
                           .u8({7, 5, kEndpoint, 2})
                           .u16(packet)
                           .u8({0})
                           .bytes;
    return Writer()
        .u8({9, 2})
        .u16(static_cast<unsigned>(9 + body.size()))
        .u8({2, 1, 0, 0x80, 50})
        .add(body)
        .bytes;
}

Bytes endpoint(unsigned packet) {
    return Writer().u8({7, 5, kEndpoint, 2}).u16(packet).u8({0}).bytes;
}

Bytes text(const std::string& words) {
    Writer w;
    w.u8({static_cast<int>(2 + 2 * words.size()), 3});
    for (const char c : words) w.u16(static_cast<unsigned>(c));
    return w.bytes;
}

struct Control {
    int selector;
    const char* name;
    int size;
    unsigned value, minimum, maximum, step, usual;
};

class UsbCamera {
public:
    UsbCamera(const std::string& folder, camera::RecordingReader& reader,
              const std::string& controls)
        : folder_(folder), log_(std::fopen(controls.c_str(), "a")) {
        const camera::StreamInfo& s = reader.stream();
        picture_ = {static_cast<unsigned>(s.width), static_cast<unsigned>(s.height),
                    static_cast<unsigned>(1e7 / s.nominal_fps)};
        camera::RawFrame frame;
        for (int i = 0; i < reader.frameCount(); ++i)
            if (reader.read(i, frame).ok())
                frames_.push_back(frame.data);
    }

    int run() {
        const int ep0 = ::open((folder_ + "/dummy_udc").c_str(), O_RDWR);
        if (ep0 < 0)
            return fail("dummy_udc");
        const Bytes device = Writer()
                                 .u8({18, 1, 0x00, 0x02, 0xEF, 2, 1, 64})
                                 .u16(0x1209)
                                 .u16(0x0001)
                                 .u16(0x0102)
                                 .u8({1, 2, 3, 1})
                                 .bytes;
        const Bytes all = Writer()
                              .u32(0)
                              .add(configuration(picture_, 64))
                              .add(configuration(picture_, 512))
                              .add(device)
                              .bytes;
        if (::write(ep0, all.data(), all.size()) != static_cast<ssize_t>(all.size()))
            return fail("descriptors");
        for (;;) {
            usb_gadgetfs_event event = {};
            const ssize_t got = ::read(ep0, &event, sizeof event);
            if (got < 0 && errno == EINTR)
                continue;
            if (got < static_cast<ssize_t>(sizeof event))
                return fail("event");
            if (event.type == GADGETFS_SETUP)
                answer(ep0, event.u.setup);
        }
    }

private:
    static int fail(const char* what) {
        std::fprintf(stderr, "usb_camera: %s: %s\n", what, std::strerror(errno));
        return 1;
    }

    static void refuse(int ep0, bool in) {  // the other direction stalls the request
        std::uint8_t none = 0;
        (void)!(in ? ::read(ep0, &none, 0) : ::write(ep0, &none, 0));
    }

    void answer(int ep0, const usb_ctrlrequest& setup) {
        const bool in = setup.bRequestType & USB_DIR_IN;
        Bytes data;
        if ((setup.bRequestType & USB_TYPE_MASK) == USB_TYPE_CLASS) {
            if (!in) {
                data.resize(setup.wLength);
                if (::read(ep0, data.data(), data.size()) == static_cast<ssize_t>(data.size()))
                    take(setup, data);
                return;
            }
            data = value(setup);
        } else if (setup.bRequest == USB_REQ_GET_DESCRIPTOR && setup.wValue >> 8 == USB_DT_STRING) {
            static const char* const kTexts[] = {"Kova", "USB Stereo", "00004711"};
            const unsigned index = setup.wValue & 0xFF;
            data = index == 0  ? Writer().u8({4, 3, 0x09, 0x04}).bytes
                   : index < 4 ? text(kTexts[index - 1])
                               : Bytes();
        } else if (setup.bRequest == USB_REQ_SET_CONFIGURATION ||
                   setup.bRequest == USB_REQ_SET_INTERFACE) {
            if (setup.bRequest == USB_REQ_SET_CONFIGURATION && setup.wValue > 0)
                openEndpoint();
            std::uint8_t none = 0;
            (void)!::read(ep0, &none, 0);
            return;
        }
        if (data.empty())
            return refuse(ep0, in);
        (void)!::write(ep0, data.data(), std::min<std::size_t>(data.size(), setup.wLength));
    }

    void openEndpoint() {
        if (stream_ >= 0)
            return;
        stream_ = ::open((folder_ + "/" + kEndpointFile).c_str(), O_RDWR);
        const Bytes all = Writer().u32(1).add(endpoint(64)).add(endpoint(512)).bytes;
        if (stream_ < 0 ||
            ::write(stream_, all.data(), all.size()) != static_cast<ssize_t>(all.size()))
            fail(kEndpointFile);
    }

    Control* findControl(const usb_ctrlrequest& setup) {
        for (Control& control : controls_)
            if (setup.wIndex == kTerminal << 8 && setup.wValue >> 8 == control.selector)
                return &control;
        return nullptr;
    }

    /// What the host asks for; empty for what there is not.
    Bytes value(const usb_ctrlrequest& setup) {
        if (setup.wIndex == 1) {  // of the stream: what it agreed to, there is one way only
            if (setup.bRequest == kGetInfo)
                return {3};
            if (setup.bRequest == kGetLength)
                return {26, 0};
            return Writer()
                .u16(0)
                .u8({1, 1})
                .u32(picture_.interval)
                .add(Bytes(10, 0))
                .u32(picture_.bytes())
                .u32(kPayload)
                .bytes;
        }
        const Control* control = findControl(setup);
        if (!control)
            return {};
        const auto number = [&](unsigned v) {
            Bytes all = Writer().u32(v).bytes;
            all.resize(static_cast<std::size_t>(control->size));
            return all;
        };
        switch (setup.bRequest) {
            case kGetCurrent:
                return number(control->value);
            case kGetMinimum:
                return number(control->minimum);
            case kGetMaximum:
                return number(control->maximum);
            case kGetStep:
                return number(control->step);
            case kGetDefault:
                return number(control->usual);
            case kGetInfo:
                return {3};
            case kGetLength:
                return Writer().u16(static_cast<unsigned>(control->size)).bytes;
            default:
                return {};
        }
    }

    void take(const usb_ctrlrequest& setup, const Bytes& data) {
        if (setup.wIndex == 1) {
            if (setup.wValue >> 8 == 2)  // commit: the stream begins
                start();
            return;
        }
        if (Control* control = findControl(setup)) {
            control->value = 0;
            for (std::size_t i = 0; i < data.size(); ++i)
                control->value |= static_cast<unsigned>(data[i]) << (8 * i);
            std::fprintf(log_, "%s %u\n", control->name, control->value);
            std::fflush(log_);
        }
    }

    void start() {
        ++starts_;
        if (!thread_.joinable())
            thread_ = std::thread([this] { deliver(); });
    }

    void deliver() {
        auto due = std::chrono::steady_clock::now();
        Bytes payload;
        for (std::size_t n = 0;; n = (n + 1) % frames_.size()) {
            const Bytes& frame = frames_[n];
            const int start = starts_;
            toggle_ ^= 1;
            for (std::size_t sent = 0; sent < frame.size() && start == starts_;) {
                std::size_t part = std::min<std::size_t>(kPayload - 2, frame.size() - sent);
                // The end of a transfer is a packet that is not full.
                if (part + 2 < kPayload && (part + 2) % 512 == 0)
                    --part;
                const bool last = sent + part == frame.size();
                payload = {2, static_cast<std::uint8_t>(0x80 | toggle_ | (last ? 2 : 0))};
                payload.insert(payload.end(), frame.begin() + static_cast<std::ptrdiff_t>(sent),
                               frame.begin() + static_cast<std::ptrdiff_t>(sent + part));
                if (::write(stream_, payload.data(), payload.size()) < 0 && errno != EINTR) {
                    fail("frame");
                    return;
                }
                sent += part;
            }
            due = std::max(std::chrono::steady_clock::now(),
                           due + std::chrono::nanoseconds(100 * picture_.interval));
            std::this_thread::sleep_until(due);
        }
    }

    std::string folder_;
    std::FILE* log_;
    Picture picture_{};
    std::vector<Bytes> frames_;
    int stream_ = -1;
    int toggle_ = 0;
    std::atomic<int> starts_{0};
    std::thread thread_;
    // Mode: 1 manual, 8 automatic with a fixed aperture; the step names what there is. Exposure in
    // 0.1 ms.
    std::array<Control, 3> controls_ = {{{2, "mode", 1, 8, 0, 0, 9, 8},
                                         {3, "priority", 1, 1, 0, 1, 1, 0},
                                         {4, "exposure", 4, 150, 1, 2000, 1, 150}}};
};

}  // namespace
}  // namespace kova

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usb_camera FOLDER RECORDING CONTROLS\n", stderr);
        return 2;
    }
    auto reader = kova::camera::RecordingReader::open(argv[2]);
    if (!reader.ok()) {
        std::fprintf(stderr, "usb_camera: %s\n", reader.status().message().c_str());
        return 1;
    }
    return kova::UsbCamera(argv[1], *reader.value(), argv[3]).run();
}
