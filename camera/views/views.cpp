#include "camera/views/views.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "camera/base/parallel.h"
#include "camera/detection/map_kernel.h"
#include "camera/views/paint.h"

namespace kova::camera {

namespace {

constexpr Rgba kRed{255, 0, 0, 255};
constexpr Rgba kGreen{0, 255, 0, 255};
constexpr Rgba kBlue{0, 0, 255, 255};
constexpr Rgba kBlack{0, 0, 0, 255};
constexpr int kGroundAlpha = 120;
constexpr int kStixelAlpha = 135;
constexpr int kRowsPerTask = 64;

/// Sizes of marks grow with the picture.
float markScale(const ImageView<Rgba>& out) {
    return std::clamp(static_cast<float>(out.width) / 1280, 0.5f, 3.0f);
}

/// The horizon is where the plane's disparity is 0.
void paintHorizon(const DetectionFrame& frame, const ImageView<Rgba>& out) {
    if (frame.ground.state == GroundState::kLost)
        return;
    const GroundModel& ground = frame.ground.model;
    const auto rowAt = [&](double x) {
        return static_cast<float>(-(ground.a * x + ground.c) / ground.b);
    };
    // Pixel centres lie at whole numbers, the line's coordinates at pixel edges.
    drawFlatLine(out, rowAt(0) + 0.5f, rowAt(out.width - 1) + 0.5f, 2 * markScale(out), kGreen);
}

/// Rows of points on what was measured of the nearest obstacle of each column.
void paintObstacles(const DetectionFrame& frame, const ImageView<Rgba>& out) {
    const float radius = 1.8f * markScale(out);
    const int step = std::max(5, frame.column_px / 2);
    for (const ColumnRange& column : frame.columns) {
        if (column.stixel < 0)
            continue;
        const Stixel& stixel = frame.stixels[static_cast<std::size_t>(column.stixel)];
        for (int y = stixel.y_bottom - 1; y >= stixel.y_top; y -= step) {
            for (int x = stixel.x_begin + step / 2; x < stixel.x_end; x += step) {
                if (frame.ground_map.at(x, y) == kMapObstacle)
                    drawDisc(out, static_cast<float>(x), static_cast<float>(y), radius, kRed);
            }
        }
    }
}

void paintGround(const DetectionFrame& frame, const ImageView<Rgba>& out) {
    parallelFor((out.height + kRowsPerTask - 1) / kRowsPerTask, [&](int task) {
        for (int y = task * kRowsPerTask; y < std::min(out.height, (task + 1) * kRowsPerTask);
             ++y) {
            const std::uint8_t* map = frame.ground_map.row(y);
            Rgba* row = out.row(y);
            for (int x = 0; x < out.width; ++x)
                if (map[x] == kMapGround)
                    row[x] = blend(row[x], kBlue, kGroundAlpha);
        }
    });
}

/// Far ones first, so that near ones lie on top. A darker edge parts neighbours.
void paintStixels(const DetectionFrame& frame, const ImageView<Rgba>& out, int alpha) {
    const int line = std::max(1, static_cast<int>(markScale(out)));
    parallelFor((out.height + kRowsPerTask - 1) / kRowsPerTask, [&](int task) {
        const int top = task * kRowsPerTask;
        const int end = std::min(out.height, top + kRowsPerTask);
        const ImageView<Rgba> band = out.part(0, top, out.width, end - top);
        for (std::size_t i = frame.stixels.size(); i-- > 0;) {
            const Stixel& s = frame.stixels[i];
            if (!s.confirmed || s.y_top >= end || s.y_bottom <= top)
                continue;
            const Rgba colour = distanceColour(s.distance_mm);
            const Rgba edge = blend(colour, kBlack, 110);
            const int y_top = s.y_top - top;
            const int y_bottom = s.y_bottom - top;
            fillRect(band, s.x_begin, y_top, s.x_end, y_bottom, colour, alpha);
            fillRect(band, s.x_begin, y_top, s.x_begin + line, y_bottom, edge, alpha + 60);
            fillRect(band, s.x_begin, y_top, s.x_end, y_top + line, edge, alpha + 60);
            fillRect(band, s.x_begin, y_bottom - line, s.x_end, y_bottom, edge, alpha + 60);
        }
    });
}

}  // namespace

void paintImageView(bino::OBSTACLE_VIEW_TYPE type, const ViewInput& input,
                    const DetectionFrame& frame, const ImageView<Rgba>& out) {
    if (type == bino::OBSTACLE_VIEW_TYPE_STIXELS) {
        fillRect(out, 0, 0, out.width, out.height, kBlack);
    } else {
        copyPicture(input.left, input.left_colour, out);
    }
    // Nothing was detected yet, or in pictures of another size.
    if (frame.width != out.width || frame.height != out.height)
        return;
    switch (type) {
        case bino::OBSTACLE_VIEW_TYPE_OBSTACLE:
            paintHorizon(frame, out);
            paintObstacles(frame, out);
            break;
        case bino::OBSTACLE_VIEW_TYPE_GROUND:
            paintGround(frame, out);
            break;
        case bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS:
            paintStixels(frame, out, kStixelAlpha);
            break;
        case bino::OBSTACLE_VIEW_TYPE_STIXELS:
            paintStixels(frame, out, 256);
            break;
        default:
            break;
    }
}

void paintGroundMap(const DetectionFrame& frame, const ImageView<std::uint8_t>& out) {
    for (int y = 0; y < std::min(out.height, frame.height); ++y)
        std::memcpy(out.row(y), frame.ground_map.row(y),
                    static_cast<std::size_t>(std::min(out.width, frame.width)));
}

}  // namespace kova::camera
