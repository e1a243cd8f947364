#include "camera/views/paint.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "camera/base/parallel.h"

namespace kova::camera {

void fillRect(const ImageView<Rgba>& out, int x_begin, int y_begin, int x_end, int y_end,
              Rgba colour, int alpha) {
    x_begin = std::max(x_begin, 0);
    y_begin = std::max(y_begin, 0);
    x_end = std::min(x_end, out.width);
    y_end = std::min(y_end, out.height);
    for (int y = y_begin; y < y_end; ++y) {
        Rgba* row = out.row(y);
        for (int x = x_begin; x < x_end; ++x)
            row[x] = alpha >= 256 ? colour : blend(row[x], colour, alpha);
    }
}

void drawDisc(const ImageView<Rgba>& out, float x, float y, float radius, Rgba colour) {
    const int x_begin = std::max(0, static_cast<int>(x - radius - 1));
    const int y_begin = std::max(0, static_cast<int>(y - radius - 1));
    const int x_end = std::min(out.width, static_cast<int>(x + radius + 2));
    const int y_end = std::min(out.height, static_cast<int>(y + radius + 2));
    for (int py = y_begin; py < y_end; ++py) {
        for (int px = x_begin; px < x_end; ++px) {
            const float dx = static_cast<float>(px) - x;
            const float dy = static_cast<float>(py) - y;
            const float cover = radius + 0.5f - std::sqrt(dx * dx + dy * dy);
            if (cover > 0)
                out.at(px, py) =
                    blend(out.at(px, py), colour, static_cast<int>(256 * std::min(1.0f, cover)));
        }
    }
}

void drawFlatLine(const ImageView<Rgba>& out, float y_left, float y_right, float thickness,
                  Rgba colour) {
    if (out.width < 2)
        return;
    for (int x = 0; x < out.width; ++x) {
        const float y =
            y_left + (y_right - y_left) * static_cast<float>(x) / static_cast<float>(out.width - 1);
        const float begin = y - 0.5f * thickness;
        const float end = y + 0.5f * thickness;
        if (end < 0 || begin > static_cast<float>(out.height))
            continue;
        for (int py = std::max(0, static_cast<int>(std::floor(begin)));
             py <= std::min(out.height - 1, static_cast<int>(std::floor(end))); ++py) {
            const float cover =
                std::min(end, static_cast<float>(py + 1)) - std::max(begin, static_cast<float>(py));
            if (cover > 0)
                out.at(x, py) =
                    blend(out.at(x, py), colour, static_cast<int>(256 * std::min(1.0f, cover)));
        }
    }
}

Rgba distanceColour(float distance_mm) {
    constexpr float kNearest = 1000;
    constexpr float kFarthest = 40000;
    constexpr Rgba kStops[] = {{235, 30, 30}, {255, 150, 20}, {245, 225, 40},
                               {60, 200, 70}, {40, 190, 215}, {50, 90, 235}};
    constexpr int kLast = static_cast<int>(sizeof(kStops) / sizeof(kStops[0])) - 1;
    const float ratio = std::log(std::clamp(distance_mm, kNearest, kFarthest) / kNearest) /
                        std::log(kFarthest / kNearest);
    const float position = ratio * kLast;
    const int stop = std::min(static_cast<int>(position), kLast - 1);
    return blend(kStops[stop], kStops[stop + 1],
                 static_cast<int>(256 * (position - static_cast<float>(stop))));
}

void copyPicture(const ImageView<const std::uint8_t>& grey, const ImageView<const Rgba>& colour,
                 const ImageView<Rgba>& out) {
    constexpr int kRowsPerTask = 64;
    parallelFor((out.height + kRowsPerTask - 1) / kRowsPerTask, [&](int task) {
        for (int y = task * kRowsPerTask; y < std::min(out.height, (task + 1) * kRowsPerTask);
             ++y) {
            Rgba* to = out.row(y);
            if (!colour.empty()) {
                std::memcpy(to, colour.row(y), static_cast<std::size_t>(out.width) * sizeof(Rgba));
                continue;
            }
            const std::uint8_t* from = grey.row(y);
            for (int x = 0; x < out.width; ++x) to[x] = {from[x], from[x], from[x], 255};
        }
    });
}

}  // namespace kova::camera
