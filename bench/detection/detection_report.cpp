#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

#include "bench/detection/detection_bench.h"

namespace kova::bench {

namespace {

double quantile(std::vector<double> values, double share) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

std::string rateText(const Rate& rate, const char* format = " %5.1f") {
    char text[32] = "     -";
    if (rate.all > 0)
        std::snprintf(text, sizeof text, format, rate.percent());
    return text;
}

std::string rowText(const DetectionRow& row) {
    const Scores& s = row.scores;
    char text[256];
    std::snprintf(text, sizeof text, "%-12s %-7s %5d %6.0f", row.group.c_str(),
                  row.detector.c_str(), s.frames, s.all.all);
    std::string line = text + rateText(s.all);
    const auto low = s.low.intervalByDrive();
    std::snprintf(text, sizeof text, "[%5.1f-%5.1f]", low[0], low[1]);
    line += rateText(s.low) + (s.low.all > 0 ? text : "             ");
    line += rateText(s.high) + rateText(s.near) + rateText(s.overhead);
    std::snprintf(text, sizeof text, " %7.3f", s.frames ? s.false_positives / double(s.frames) : 0);
    line += text;
    line += rateText(s.map_right) + rateText(s.map_labelled) + rateText(s.obstacle_as_ground);
    std::snprintf(text, sizeof text, "  %5.2f %5.2f  %5.2f %5.2f  %4.1f %4.1f",
                  quantile(s.pitch_deg, 0.5), quantile(s.pitch_deg, 0.95),
                  quantile(s.roll_deg, 0.5), quantile(s.roll_deg, 0.95),
                  quantile(s.height_percent, 0.5), quantile(s.height_percent, 0.95));
    line += s.pitch_deg.empty() ? std::string(37, ' ') : std::string(text);
    return line + rateText(s.plane_far_off) + rateText(s.no_ground) + rateText(s.free_at_too_near) +
           "\n";
}

std::string curveText(const DetectionReport& report) {
    std::string text = "\nFound by C [px], all groups ['found of']:\n            ";
    char part[48];
    for (std::size_t i = 0; i <= kContrastClasses.size(); ++i) {
        if (i == kContrastClasses.size())
            std::snprintf(part, sizeof part, "    above       ");
        else
            std::snprintf(part, sizeof part, "    < %-4.1f      ", kContrastClasses[i]);
        text += part;
    }
    text += "\n";
    for (const DetectionRow& row : report.rows) {
        if (row.group != "all")
            continue;
        std::snprintf(part, sizeof part, "  %-8s", row.detector.c_str());
        text += part;
        for (const Rate& rate : row.scores.curve) {
            std::snprintf(part, sizeof part, "  %5.1f of %-5.0f", rate.percent(), rate.all);
            text += part;
        }
        text += "\n";
    }
    return text;
}

/// What is said of columns that show something nearer than the search.
std::string tooNearText(const DetectionReport& report) {
    static constexpr char kTitle[] =
        "\nColumns with something too near, said to be [%]:\n"
        "                      columns  free unknown occupied too near  frames with free\n";
    std::string text;
    for (const DetectionRow& row : report.rows) {
        const Scores& s = row.scores;
        if (s.free_at_too_near.all <= 0 || row.group == "all" || row.detector == "plain")
            continue;
        char part[160];
        std::snprintf(part, sizeof part, "%-12s %-8s %8.0f %5.1f %7.1f %8.1f %8.1f  %.0f of %.0f\n",
                      row.group.c_str(), row.detector.c_str(), s.free_at_too_near.all,
                      s.free_at_too_near.percent(), s.too_near_unknown.percent(),
                      s.too_near_occupied.percent(), s.too_near_named.percent(), s.free_frames.hits,
                      s.free_frames.all);
        text += part;
    }
    return text.empty() ? text : kTitle + text;
}

/// Where the plain detector finds nearly as much as medium, a group is too easy, unless it pays
/// with false alarms.
std::string plainText(const DetectionReport& report) {
    std::string text;
    for (std::size_t i = 0; i + 2 < report.rows.size(); ++i) {
        const DetectionRow &medium = report.rows[i + 1], &plain = report.rows[i + 2];
        if (medium.detector != "medium" || plain.detector != "plain" ||
            medium.scores.low.all <= 0 || medium.scores.frames <= 0)
            continue;
        if (plain.scores.low.percent() < medium.scores.low.percent() - 2)
            continue;
        char part[160];
        std::snprintf(part, sizeof part,
                      "  %-12s plain %5.1f %% and %.2f false alarms a frame, medium %5.1f %% and "
                      "%.2f\n",
                      plain.group.c_str(), plain.scores.low.percent(),
                      plain.scores.false_positives / double(plain.scores.frames),
                      medium.scores.low.percent(),
                      medium.scores.false_positives / double(medium.scores.frames));
        text += part;
    }
    return text.empty()
               ? text
               : "\nThe plain detector finds at most 2 points less than medium in:\n" + text;
}

nlohmann::json rateJson(const Rate& rate) {
    return {{"hits", rate.hits},
            {"of", rate.all},
            {"percent", rate.percent()},
            {"interval_percent", rate.interval()},
            {"interval_by_drive_percent", rate.intervalByDrive()}};
}

nlohmann::json errorsJson(const std::vector<double>& errors) {
    return {{"median", quantile(errors, 0.5)},
            {"p95", quantile(errors, 0.95)},
            {"max", quantile(errors, 1)}};
}

}  // namespace

std::string detectionTable(const DetectionReport& report) {
    const DetectionBenchOptions& o = report.options;
    char text[512];
    std::snprintf(text, sizeof text,
                  "%dx%d, %d drives per group from seed %u, noise x%.1f, texture x%.1f\n", o.width,
                  o.height, o.seeds, o.seed_base, o.noise, o.texture);
    std::string out = text;
    std::snprintf(
        text, sizeof text,
        "all: objects within 12 m found [%%]; >=20, >=50: of 20 and 50 cm and more with C >= %.1f "
        "px\n(95 %% interval, by drive); near: of 20 cm and more within %d m; "
        "over: overhead;\n",
        judgedContrast(o.width), o.width >= 1000 ? 6 : 3);
    out += text;
    out +=
        "FP: false runs per frame; right: labelled pixels that are; label: textured truth that is\n"
        "labelled; o>g: obstacle called ground [%]; pitch, roll [degrees], height [%]: median and "
        "95th\npercentile of the error; off: over 0.5 degrees; none: no ground though there is; "
        "free: said of\ncolumns with something too near\n\n";
    out +=
        "group        detect. frame   objs   all  >=20                >=50  near  over      FP "
        "right label   o>g  pitch         roll         height       off  none  free\n";
    for (const DetectionRow& row : report.rows) out += rowText(row);
    return out + curveText(report) + tooNearText(report) + plainText(report);
}

std::string detectionReportJson(const DetectionReport& report) {
    const DetectionBenchOptions& o = report.options;
    nlohmann::json json = {{"width", o.width},
                           {"height", o.height},
                           {"drives_per_group", o.seeds},
                           {"frames_per_drive", o.frames},
                           {"seed_base", o.seed_base},
                           {"noise", o.noise},
                           {"texture", o.texture},
                           {"contrast_classes_px", kContrastClasses}};
    for (const DetectionRow& row : report.rows) {
        const Scores& s = row.scores;
        nlohmann::json curve;
        for (const Rate& rate : s.curve) curve.push_back(rateJson(rate));
        json["rows"].push_back({{"group", row.group},
                                {"detector", row.detector},
                                {"frames", s.frames},
                                {"objects", rateJson(s.all)},
                                {"objects_20cm", rateJson(s.low)},
                                {"objects_50cm", rateJson(s.high)},
                                {"objects_near", rateJson(s.near)},
                                {"objects_overhead", rateJson(s.overhead)},
                                {"by_contrast", curve},
                                {"false_positives", s.false_positives},
                                {"map_right", rateJson(s.map_right)},
                                {"map_labelled", rateJson(s.map_labelled)},
                                {"obstacle_as_ground", rateJson(s.obstacle_as_ground)},
                                {"pitch_deg", errorsJson(s.pitch_deg)},
                                {"roll_deg", errorsJson(s.roll_deg)},
                                {"height_percent", errorsJson(s.height_percent)},
                                {"plane_over_half_degree", rateJson(s.plane_far_off)},
                                {"no_ground", rateJson(s.no_ground)},
                                {"free_at_too_near", rateJson(s.free_at_too_near)},
                                {"frames_free_at_too_near", rateJson(s.free_frames)},
                                {"too_near_called_unknown", rateJson(s.too_near_unknown)},
                                {"too_near_called_occupied", rateJson(s.too_near_occupied)},
                                {"too_near_called_too_near", rateJson(s.too_near_named)}});
    }
    return json.dump(2) + "\n";
}

}  // namespace kova::bench
