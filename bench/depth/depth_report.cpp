#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>

#include "bench/depth/depth_bench.h"

namespace kova::bench {

namespace {

template <typename... Arguments>
std::string line(const char* format, Arguments... arguments) {
    char text[256];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

std::string rowText(const std::string& group, const std::string& pair, const DepthRow& r) {
    std::string text =
        line("| %-8s | %-11s | %-13s | %5.1f | %5.2f | %5.2f | %5.2f | %5.3f | %5.2f | %5.2f |",
             group.c_str(), pair.c_str(), r.method.c_str(), r.raw.density, r.raw.bad1, r.raw.bad2,
             r.raw.d1, r.raw.rms, r.filled.bad2, r.filled.d1);
    text += r.bad2_at_equal_density >= 0 ? line(" %5.2f |", r.bad2_at_equal_density) : "     - |";
    text += r.raw.thin_pixels > 0 ? line(" %5.1f | %5.1f |\n", r.raw.thin_bad2, r.raw.thin_density)
                                  : "     - |     - |\n";
    return text;
}

const char* const kHeader =
    "| group    | pair        | method        |  dens | bad-1 | bad-2 |    D1 | sigma | f-bad2 |  "
    "f-D1 | eq-b2 | th-b2 | th-de |\n"
    "|----------|-------------|---------------|-------|-------|-------|-------|-------|-------|---"
    "----|-------|-------|-------|\n";

/// Means over the pairs of a group, in the order of the first appearance.
std::vector<DepthRow> groupMeans(const std::vector<DepthRow>& rows,
                                 std::map<std::string, int>& counts) {
    std::vector<DepthRow> means;
    std::map<std::pair<std::string, std::string>, std::vector<const DepthRow*>> members;
    std::vector<std::pair<std::string, std::string>> order;
    for (const DepthRow& row : rows) {
        auto& list = members[{row.group, row.method}];
        if (list.empty())
            order.push_back({row.group, row.method});
        list.push_back(&row);
    }
    for (const auto& key : order) {
        DepthRow mean{key.first, "mean", key.second, {}, {}, 0};
        const auto& list = members[key];
        const double n = static_cast<double>(list.size());
        counts[key.first] = static_cast<int>(list.size());
        double thin = 0;
        for (const DepthRow* row : list) {
            mean.raw.density += row->raw.density / n;
            mean.raw.bad1 += row->raw.bad1 / n;
            mean.raw.bad2 += row->raw.bad2 / n;
            mean.raw.d1 += row->raw.d1 / n;
            mean.raw.rms += row->raw.rms / n;
            mean.filled.bad2 += row->filled.bad2 / n;
            mean.filled.d1 += row->filled.d1 / n;
            // Thin foreground is rare: its pixels are pooled.
            thin += row->raw.thin_pixels;
            const double found = row->raw.thin_pixels * row->raw.thin_density / 100;
            mean.raw.thin_density += found;
            mean.raw.thin_bad2 += found * row->raw.thin_bad2;
            if (row->bad2_at_equal_density < 0 || mean.bad2_at_equal_density < 0)
                mean.bad2_at_equal_density = -1;
            else
                mean.bad2_at_equal_density += row->bad2_at_equal_density / n;
        }
        mean.raw.thin_pixels = thin;
        mean.raw.thin_bad2 =
            mean.raw.thin_density > 0 ? mean.raw.thin_bad2 / mean.raw.thin_density : 0;
        mean.raw.thin_density = thin > 0 ? 100 * mean.raw.thin_density / thin : 0;
        means.push_back(mean);
    }
    return means;
}

std::string confidenceText(const ConfidenceReport& c) {
    std::string text = "\nConfidence, " + c.mode + ": said / found right to within 1 px (share)\n ";
    for (const auto& t : c.tenths)
        if (t.share > 0.0005)
            text += line(" %.2f/%.2f (%.1f%%)", t.predicted, t.right, 100 * t.share);
    text += line(
        "\n  0.5 keeps %.1f %% of the right pixels; 0.9 keeps %.1f %%, error %.2f %% instead "
        "of %.2f %%\n",
        100 * c.kept_at_05, 100 * c.kept_at_09, 100 * c.error_at_09, 100 * c.error_before);
    text += line("  sparsification area %.4f, ideal %.4f", c.area, c.area_of_ideal);
    if (c.area_of_cost >= 0)
        text += line(", plain cost %.4f", c.area_of_cost);
    return text + "\n";
}

nlohmann::json errorsJson(const DepthErrors& e) {
    return {{"pixels", e.pixels},
            {"density_percent", e.density},
            {"bad1_percent", e.bad1},
            {"bad2_percent", e.bad2},
            {"d1_percent", e.d1},
            {"sigma_px", e.rms},
            {"thin_pixels", e.thin_pixels},
            {"thin_bad2_percent", e.thin_bad2},
            {"thin_density_percent", e.thin_density}};
}

}  // namespace

std::string depthTable(const DepthReport& report, bool every_pair) {
    std::string text =
        "dens: share of pixels with a disparity; bad-1, bad-2, D1: of these, wrong by more than 1 "
        "px,\n"
        "2 px, 3 px and 5 %; sigma of the errors up to 3 px; f-: all pixels, completed row by row\n"
        "alike; eq-b2: bad-2 at the density of the sparser of this and 3WAY; th-: thin "
        "foreground.\n\n";
    text += kHeader;
    if (every_pair)
        for (const DepthRow& row : report.rows) text += rowText(row.group, row.pair, row);
    std::map<std::string, int> counts;
    for (const DepthRow& mean : groupMeans(report.rows, counts))
        text += rowText(mean.group, "mean of " + std::to_string(counts[mean.group]), mean);
    for (const ConfidenceReport& c : report.confidence) text += confidenceText(c);
    return text;
}

std::string depthJson(const DepthReport& report) {
    nlohmann::json json;
    for (const DepthRow& row : report.rows)
        json["pairs"].push_back({{"group", row.group},
                                 {"pair", row.pair},
                                 {"method", row.method},
                                 {"raw", errorsJson(row.raw)},
                                 {"filled", errorsJson(row.filled)},
                                 {"bad2_at_equal_density_percent", row.bad2_at_equal_density}});
    for (const ConfidenceReport& c : report.confidence) {
        nlohmann::json tenths;
        for (const auto& t : c.tenths)
            tenths.push_back({{"share", t.share}, {"said", t.predicted}, {"right", t.right}});
        json["confidence"].push_back({{"mode", c.mode},
                                      {"tenths", tenths},
                                      {"right_kept_at_0.5", c.kept_at_05},
                                      {"right_kept_at_0.9", c.kept_at_09},
                                      {"error", c.error_before},
                                      {"error_at_0.9", c.error_at_09},
                                      {"area", c.area},
                                      {"area_of_ideal", c.area_of_ideal},
                                      {"area_of_cost", c.area_of_cost}});
    }
    return json.dump(2) + "\n";
}

}  // namespace kova::bench
