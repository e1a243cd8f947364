#include "tools/commands/calibrate_live.h"

#include <cstdio>
#include <string>
#include <utility>

#include "camera/sources/decode.h"
#include "tools/interrupt.h"

namespace kova::tools {

namespace {

using camera::Status;

/// A line that is rewritten, as long as nothing else is printed.
class StatusLine {
public:
    explicit StatusLine(bool shown) : shown_(shown) {}
    ~StatusLine() { clear(); }

    void show(const std::string& text) {
        if (!shown_ || text == last_)
            return;
        std::fprintf(stderr, "\r\033[K%s", text.c_str());
        std::fflush(stderr);
        last_ = text;
    }
    void clear() {
        if (!last_.empty())
            std::fprintf(stderr, "\r\033[K");
        last_.clear();
    }

private:
    bool shown_;
    std::string last_;
};

camera::EyeViews viewsOf(const camera::StereoPair& pair) {
    return {pair.left.view(), pair.right.view()};
}

}  // namespace

Status collectLive(camera::Source& source, camera::ViewCollector& collector, double seconds,
                   bool status_line) {
    camera::FrameDecoder decoder(source.stream());
    camera::RawFrame frame;
    camera::StereoPair before, now;
    std::int64_t first_ns = -1;
    bool has_before = false;
    int views = 0;
    StatusLine line(status_line);
    std::fprintf(stderr,
                 "kova: show the board in all parts of the picture, tilted to all sides, and hold "
                 "it still; Ctrl-C ends it early\n");
    while (!Interrupt::requested() && !collector.enough()) {
        const Status grabbed = source.grab(frame);
        if (grabbed.code() == camera::ErrorCode::kNoNewFrame)
            continue;
        if (!grabbed.ok())
            return grabbed;
        if (first_ns < 0)
            first_ns = frame.t_ns;
        if (seconds > 0 && static_cast<double>(frame.t_ns - first_ns) > seconds * 1e9)
            break;
        if (!decoder.decode(frame, now).ok()) {
            has_before = false;
            continue;
        }
        if (!has_before) {
            std::swap(before, now);
            has_before = true;
            continue;
        }
        const std::string name = "view " + std::to_string(views + 1);
        const camera::BoardSighting sighting = collector.offer(name, viewsOf(before), viewsOf(now));
        // Looking took longer than a frame: what was `now` is too old to be the next one's before.
        has_before = false;
        if (!sighting.used) {
            line.show(sighting.words);
            continue;
        }
        ++views;
        line.clear();
        const std::string missing = collector.missing();
        std::fprintf(stderr, "kova: %s taken; %s\n", name.c_str(),
                     missing.empty() ? "enough" : ("missing: " + missing).c_str());
    }
    return {};
}

}  // namespace kova::tools
