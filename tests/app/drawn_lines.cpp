#include "tests/app/drawn_lines.h"

#include <cstdio>
#include <string>

#include "tests/support/call_log.h"

namespace kova::test {

namespace {

// paintGL() is protected.
struct Painted : qwidget::PointCloudQOpenGLWidget {
    static void paint(qwidget::PointCloudQOpenGLWidget& view) { (view.*(&Painted::paintGL))(); }
};

std::vector<Line> drawnLines(qwidget::PointCloudQOpenGLWidget& view, int width) {
    CallLog::instance().clear();
    Painted::paint(view);
    std::vector<Line> lines;
    std::vector<Size3_<float>> ends;
    int current_width = 0;
    for (const std::string& call : CallLog::instance().take()) {
        int number = 0;
        Size3_<float> point;
        if (std::sscanf(call.c_str(), "glLineWidth(%d)", &number) == 1)
            current_width = number;
        else if (call == "glBegin(1)")
            ends.clear();
        else if (std::sscanf(call.c_str(), "glVertex3f(%f, %f, %f)", &point.x, &point.y,
                             &point.z) == 3)
            ends.push_back(point);
        else if (call == "glEnd()" && ends.size() == 2 && current_width == width)
            lines.push_back({ends[0], ends[1]});
    }
    return lines;
}

}  // namespace

std::vector<Line> measurementLines(qwidget::PointCloudQOpenGLWidget& view) {
    return drawnLines(view, 5);
}

std::vector<Line> frustumLines(qwidget::PointCloudQOpenGLWidget& view) {
    std::vector<Line> lines = drawnLines(view, 1);
    if (lines.size() > 12)
        lines.resize(12);  // the axes come after it
    return lines;
}

}  // namespace kova::test
