#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "camera/base/log.h"
#include "camera/views/paint.h"
#include "camera/views/views.h"

namespace kova::camera {

namespace {

constexpr float kHalfWidthMm = 6400;
constexpr float kNearEdgeMm = 0;
constexpr float kFarEdgeMm = 12800;
constexpr float kPixelsPerMm = 0.0625f;
constexpr int kWidth = static_cast<int>(2 * kHalfWidthMm * kPixelsPerMm);
constexpr int kHeight = static_cast<int>((kFarEdgeMm - kNearEdgeMm) * kPixelsPerMm);

// Colours are for obstacles alone; everything else is grey.
constexpr Rgba kUnseen{28, 28, 28, 255};
constexpr Rgba kFree{62, 62, 62, 255};
constexpr Rgba kGrid{92, 92, 92, 255};
constexpr Rgba kCorridor{190, 190, 190, 255};
constexpr Rgba kCamera{255, 255, 255, 255};

constexpr int kGridEveryMm = 2000;

float xOf(float lateral_mm) {
    return (lateral_mm + kHalfWidthMm) * kPixelsPerMm;
}
float yOf(float ahead_mm) {
    return (kFarEdgeMm - ahead_mm) * kPixelsPerMm;
}

/// Ground seen without a gap is lighter.
void paintFree(const DetectionFrame& frame, const ImageView<Rgba>& out) {
    for (const ColumnRange& column : frame.columns) {
        float reach = column.free_mm;
        if (column.state == ColumnState::kOccupied)
            reach = std::min(reach, column.ahead_mm);
        if (!(reach > 0))
            continue;
        const float left =
            static_cast<float>((column.x_begin - frame.geometry.cx) / frame.geometry.fx);
        const float right =
            static_cast<float>((column.x_end - frame.geometry.cx) / frame.geometry.fx);
        const int y_begin = std::max(0, static_cast<int>(yOf(reach)));
        for (int y = y_begin; y < out.height; ++y) {
            const float ahead = kFarEdgeMm - (static_cast<float>(y) + 0.5f) / kPixelsPerMm;
            const int x_begin = std::max(0, static_cast<int>(std::lround(xOf(left * ahead))));
            const int x_end =
                std::min(out.width, static_cast<int>(std::lround(xOf(right * ahead))));
            if (x_begin < x_end)
                std::fill(out.row(y) + x_begin, out.row(y) + x_end, kFree);
        }
    }
}

void paintGrid(const ImageView<Rgba>& out) {
    const auto across = [&](float ahead, float half, Rgba colour) {
        const int y = static_cast<int>(yOf(ahead));
        fillRect(out, static_cast<int>(xOf(-half)), y, static_cast<int>(xOf(half)) + 1, y + 1,
                 colour);
    };
    for (int ahead = kGridEveryMm; ahead < static_cast<int>(kFarEdgeMm); ahead += kGridEveryMm)
        across(static_cast<float>(ahead), kHalfWidthMm, kGrid);
    for (int side = kGridEveryMm; side < static_cast<int>(kHalfWidthMm); side += kGridEveryMm)
        for (const int sign : {-1, 1}) {
            const int x = static_cast<int>(xOf(static_cast<float>(sign * side)));
            fillRect(out, x, 0, x + 1, out.height, kGrid);
        }
    for (const float zone : {kNearMm, kMidMm, kFarMm}) across(zone, kSideRangeMm, kCorridor);
    for (const float side : {-kSideRangeMm, kSideRangeMm}) {
        const int x = static_cast<int>(xOf(side));
        for (int y = 0; y < out.height; y += 12) fillRect(out, x, y, x + 1, y + 7, kCorridor);
    }
    try {
        cv::Mat picture(out.height, out.width, CV_8UC4, out.data,
                        static_cast<std::size_t>(out.stride) * sizeof(Rgba));
        const auto write = [&](float ahead, float lateral, const std::string& text) {
            const cv::Point at(static_cast<int>(xOf(lateral)), static_cast<int>(yOf(ahead)) - 4);
            cv::putText(picture, text, at, cv::FONT_HERSHEY_SIMPLEX, 0.45,
                        cv::Scalar(190, 190, 190, 255), 1, cv::LINE_AA);
        };
        for (int ahead = kGridEveryMm; ahead < static_cast<int>(kFarEdgeMm); ahead += kGridEveryMm)
            write(static_cast<float>(ahead), -kHalfWidthMm + 80,
                  std::to_string(ahead / 1000) + " m");
    } catch (const cv::Exception& error) {
        logWarning("views", std::string("cannot write the top view's scale: ") + error.what());
    }
    // The camera, looking up.
    const int x = static_cast<int>(xOf(0));
    for (int row = 0; row < 10; ++row)
        fillRect(out, x - row / 2 - 1, out.height - 10 + row, x + row / 2 + 2, out.height - 9 + row,
                 kCamera);
}

}  // namespace

Rgba topViewColour(float ahead_mm, float lateral_mm) {
    constexpr Rgba kGreen{0, 210, 0, 255};
    constexpr Rgba kYellow{255, 225, 0, 255};
    constexpr Rgba kOrange{255, 140, 0, 255};
    constexpr Rgba kRed{255, 0, 0, 255};
    const bool inside = insideSideRange(lateral_mm);
    switch (zoneOf(ahead_mm)) {
        case Zone::kBelowNear:
            return inside ? kRed : kOrange;
        case Zone::kNearToMid:
            return inside ? kOrange : kYellow;
        case Zone::kMidToFar:
            return inside ? kYellow : kGreen;
        default:
            return kGreen;
    }
}

bino::ObstacleDetectionTopViewParameters topViewParameters() {
    bino::ObstacleDetectionTopViewParameters parameters;
    parameters.side_range = kSideRangeMm;
    parameters.half_width = kHalfWidthMm;
    parameters.near_distance = kNearEdgeMm;
    parameters.far_distance = kFarEdgeMm;
    parameters.pixels_per_mm = kPixelsPerMm;
    return parameters;
}

int topViewWidth() {
    return kWidth;
}

int topViewHeight() {
    return kHeight;
}

void paintTopView(const DetectionFrame& frame, const ImageView<Rgba>& out) {
    fillRect(out, 0, 0, out.width, out.height, kUnseen);
    paintFree(frame, out);
    paintGrid(out);
    // Far ones first. A mark is as wide as its column there, and as deep as its distance is unsure.
    for (std::size_t i = frame.stixels.size(); i-- > 0;) {
        const Stixel& s = frame.stixels[i];
        if (!s.confirmed)
            continue;
        const float half_width =
            std::max(1.5f, 0.5f * kPixelsPerMm * static_cast<float>(s.x_end - s.x_begin) *
                               s.distance_mm / static_cast<float>(frame.geometry.fx));
        const float half_depth = std::clamp(kPixelsPerMm * s.sigma_mm, 1.5f, 6.0f);
        const float x = xOf(s.lateral_mm);
        const float y = yOf(s.ahead_mm);
        if (x < -10 || x > kWidth + 10 || y < -10 || y > kHeight + 10)
            continue;
        fillRect(out, static_cast<int>(std::lround(x - half_width)),
                 static_cast<int>(std::lround(y - half_depth)),
                 static_cast<int>(std::lround(x + half_width)),
                 static_cast<int>(std::lround(y + half_depth)),
                 topViewColour(s.ahead_mm, s.lateral_mm));
    }
}

}  // namespace kova::camera
