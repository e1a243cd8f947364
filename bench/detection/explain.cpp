#include "bench/detection/explain.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace kova::bench {

namespace {

using camera::RectifiedGeometry;

__attribute__((format(printf, 1, 2))) std::string line(const char* format, ...) {
    char text[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

/// How an object's columns were seen, in parts of its columns.
struct ColumnsSeen {
    float confirmed = 0, unconfirmed = 0, elsewhere = 0, free = 0;
};

ColumnsSeen columnsOf(const VisibleObject& object, const camera::DetectionFrame& frame) {
    ColumnsSeen seen;
    for (const ObjectColumn& column : object.columns) {
        bool confirmed = false, unconfirmed = false, elsewhere = false;
        for (const camera::Stixel& s : frame.stixels) {
            if (column.x < s.x_begin || column.x >= s.x_end)
                continue;
            if (!matches({s.x_begin, s.x_end, s.disparity, s.too_near}, column.nearest,
                         column.farthest))
                elsewhere = true;
            else
                (s.confirmed ? confirmed : unconfirmed) = true;
        }
        seen.confirmed += confirmed;
        seen.unconfirmed += !confirmed && unconfirmed;
        seen.elsewhere += !confirmed && !unconfirmed && elsewhere;
        // The last column takes what is left of the width.
        const auto at = static_cast<std::size_t>(column.x / frame.column_px);
        seen.free += frame.columns[std::min(at, frame.columns.size() - 1)].state ==
                     camera::ColumnState::kFree;
    }
    const auto count = static_cast<float>(std::max<std::size_t>(1, object.columns.size()));
    return {seen.confirmed / count, seen.unconfirmed / count, seen.elsewhere / count,
            seen.free / count};
}

/// How the ground was seen.
std::string explainGround(const std::string& where, const camera::DetectionFrame& frame,
                          const Findings& findings, const SceneTruth& truth) {
    const PlaneErrors errors = planeErrors(findings, truth, frame.geometry);
    if (!errors.judged)
        return {};
    const camera::GroundEstimate& ground = frame.ground;
    std::string text = line(
        "%s ground: %spitch %+.2f of %.1f, roll %+.2f of %.1f, height %+.1f %% of %.0f mm, "
        "support %.2f area %.2f, ",
        where.c_str(), errors.farOff() ? "far off: " : "", errors.pitch_deg, ground.pitch_deg,
        errors.roll_deg, ground.roll_deg, errors.height_percent, ground.height_mm, ground.support,
        ground.area);
    text += ground.model.flat ? "flat" : "profile";
    for (int k = 0; k < camera::GroundModel::kKnots && !ground.model.flat; ++k)
        text += line(" %.1f%+.2f", ground.model.knot[k], ground.model.knot_offset[k]);
    return text + "\n";
}

/// Why textured ground and obstacles in range are not labelled, in parts of them.
std::string explainUnlabelled(const std::string& where, const camera::DetectionFrame& frame,
                              const camera::DisparityMap& map, const Findings& findings,
                              const SceneTruth& truth) {
    const RectifiedGeometry& g = frame.geometry;
    const auto far_limit = static_cast<float>(g.fx * g.baseline_mm / judgedRangeMm(g));
    enum { kUnmeasured, kWrong, kRight, kLabelled, kOutcomes };
    double sums[2][kOutcomes] = {};
    double all = 0;
    for (int y = 0; y < g.height; ++y)
        for (int x = 0; x < g.width; ++x) {
            const std::uint8_t label = truth.label.at(x, y);
            const bool ground = label == static_cast<std::uint8_t>(camera::SurfaceLabel::kGround);
            if ((!ground && label != static_cast<std::uint8_t>(camera::SurfaceLabel::kObstacle)) ||
                !truth.textured.at(x, y) || !truth.in_right.at(x, y) ||
                truth.disparity.at(x, y) < far_limit)
                continue;
            ++all;
            const std::uint16_t d = map.disparity.at(x, y);
            const float off = std::fabs(static_cast<float>(d) / camera::kDisparityScale -
                                        truth.disparity.at(x, y));
            const bool measured = camera::isDisparity(d) && map.confidence.at(x, y) != 0 &&
                                  map.confidence.at(x, y) != camera::kFilledConfidence;
            ++sums[ground][findings.ground_map.at(x, y) != 127 ? kLabelled
                           : !measured                         ? kUnmeasured
                           : off > 1                           ? kWrong
                                                               : kRight];
        }
    std::string text = where + " unlabelled:";
    for (int ground = 1; ground >= 0; --ground)
        text += line(" %s %.3f labelled, %.3f unmeasured, %.3f over 1 px off, %.3f right;",
                     ground ? "ground" : "obstacle", sums[ground][kLabelled] / all,
                     sums[ground][kUnmeasured] / all, sums[ground][kWrong] / all,
                     sums[ground][kRight] / all);
    return text + "\n";
}

}  // namespace

std::string explain(const std::string& where, const camera::DetectionFrame& frame,
                    const camera::DisparityMap& map, const Findings& findings,
                    const SceneTruth& truth, int max_disparity) {
    const RectifiedGeometry& g = frame.geometry;
    std::string text = explainGround(where, frame, findings, truth) +
                       explainUnlabelled(where, frame, map, findings, truth);
    for (const VisibleObject& object : truth.objects) {
        if (!isJudged(object, g, max_disparity) || isFound(object, findings))
            continue;
        // What the matcher says of the object's own pixels.
        float pixels = 0, measured = 0, right = 0, ground = 0;
        int y_top = g.height, y_bottom = 0;
        for (const ObjectColumn& column : object.columns)
            for (int y = 0; y < g.height; ++y) {
                if (truth.object.at(column.x, y) != object.object)
                    continue;
                y_top = std::min(y_top, y);
                y_bottom = std::max(y_bottom, y + 1);
                ++pixels;
                ground += findings.ground_map.at(column.x, y) == 255;
                const std::uint16_t d = map.disparity.at(column.x, y);
                if (!camera::isDisparity(d) ||
                    map.confidence.at(column.x, y) == camera::kFilledConfidence)
                    continue;
                ++measured;
                right += std::fabs(static_cast<float>(d) / camera::kDisparityScale -
                                   truth.disparity.at(column.x, y)) <= 1;
            }
        const ColumnsSeen seen = columnsOf(object, frame);
        text += line(
            "%s missed: object %d height %.0f mm at %.0f mm, C %.1f px, x %d..%d y %d..%d, depth "
            "%.2f right %.2f, called ground %.2f, columns confirmed %.2f unconfirmed %.2f other "
            "distance %.2f free %.2f, ground %s\n",
            where.c_str(), object.object, object.height_mm, object.distance_mm, object.contrast_px,
            object.columns.front().x, object.columns.back().x + 1, y_top, y_bottom,
            measured / pixels, right / std::max(1.0f, measured), ground / pixels, seen.confirmed,
            seen.unconfirmed, seen.elsewhere, seen.free, findings.has_ground ? "yes" : "no");
    }
    for (const FoundColumn& wrong : falseColumns(findings, truth, max_disparity, frame.column_px)) {
        const auto s = std::find_if(
            frame.stixels.begin(), frame.stixels.end(), [&](const camera::Stixel& stixel) {
                return stixel.confirmed && stixel.x_begin == wrong.x_begin &&
                       stixel.disparity == wrong.disparity;
            });
        if (s == frame.stixels.end())
            continue;
        // What is really there: how many of its pixels show what.
        int labels[8] = {};
        float true_sum = 0;
        for (int y = s->y_top; y < s->y_bottom; ++y)
            for (int x = s->x_begin; x < s->x_end; ++x) {
                ++labels[truth.label.at(x, y) & 7];
                true_sum += truth.disparity.at(x, y);
            }
        const float area =
            static_cast<float>(std::max(1, (s->y_bottom - s->y_top) * (s->x_end - s->x_begin)));
        text += line(
            "%s false: x %d..%d y %d..%d d %.2f +- %.2f true %.2f, %.0f mm, low %.0f high %.0f, "
            "confidence %.2f, is nothing/ground/obstacle/drop/raised/overhead "
            "%.1f/%.1f/%.1f/%.1f/%.1f/%.1f\n",
            where.c_str(), s->x_begin, s->x_end, s->y_top, s->y_bottom, s->disparity, s->sigma_px,
            true_sum / area, s->distance_mm, s->low_mm, s->high_mm, s->confidence, labels[0] / area,
            labels[1] / area, labels[2] / area, labels[3] / area, labels[4] / area,
            labels[5] / area);
    }
    return text;
}

}  // namespace kova::bench
