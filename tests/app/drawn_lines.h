#pragma once

#include <ostream>
#include <vector>

#include "qwidget/pointcloudqopenglwidget.h"
#include "sdk/size.h"

namespace kova::test {

/// A line as a view draws it.
struct Line {
    Size3_<float> from;
    Size3_<float> to;
    bool operator==(const Line& other) const {
        return from.x == other.from.x && from.y == other.from.y && from.z == other.from.z &&
               to.x == other.to.x && to.y == other.to.y && to.z == other.to.z;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Line& line) {
    return out << '(' << line.from.x << ' ' << line.from.y << ' ' << line.from.z << ") - ("
               << line.to.x << ' ' << line.to.y << ' ' << line.to.z << ')';
}

/// The lines of the measurement that the view draws now, with OpenGL's recording stand-in: the
/// target's line and the three sides of the triangle, which all end at the camera where there is
/// nothing to mark.
std::vector<Line> measurementLines(qwidget::PointCloudQOpenGLWidget& view);

/// The vertices of the frustum that the view draws now.
std::vector<Line> frustumLines(qwidget::PointCloudQOpenGLWidget& view);

}  // namespace kova::test
