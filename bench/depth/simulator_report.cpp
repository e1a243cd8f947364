#include <nlohmann/json.hpp>

#include <cstdio>

#include "bench/depth/simulator_bench.h"

namespace kova::bench {

namespace {

double percent(double part, double whole) {
    return whole > 0 ? 100 * part / whole : 0;
}

RangeErrors together(const SimulatorRow& row) {
    RangeErrors sum;
    for (const RangeErrors& r : row.ranges) {
        sum.pixels += r.pixels;
        sum.measured += r.measured;
        sum.wrong += r.wrong;
        sum.filled_wrong += r.filled_wrong;
    }
    return sum;
}

template <typename... Arguments>
void append(std::string& text, const char* format, Arguments... arguments) {
    char line[256];
    std::snprintf(line, sizeof(line), format, arguments...);
    text += line;
}

}  // namespace

std::string simulatorTable(const SimulatorReport& report) {
    std::string text;
    append(text, "Simulated pairs of %dx%d, %d disparities, seeds %u to %u\n", report.options.width,
           report.options.height, report.options.levels, report.options.seed_base,
           report.options.seed_base + static_cast<unsigned>(report.options.seeds) - 1);
    text +=
        "Depth error over 5 %, per cent of the measured pixels that both eyes see (filled: of "
        "all of them)\n";
    append(text, "%-12s %-14s %8s %8s %8s | %8s %8s %8s\n", "scene", "method", "1-2 m", "2-4 m",
           "4-6 m", "1-6 m", "density", "filled");
    for (const SimulatorRow& row : report.rows) {
        const RangeErrors all = together(row);
        append(text, "%-12s %-14s", row.scene.c_str(), row.method.c_str());
        for (const RangeErrors& r : row.ranges)
            append(text, " %8.2f", percent(r.wrong, r.measured));
        append(text, " | %8.2f %8.2f %8.2f\n", percent(all.wrong, all.measured),
               percent(all.measured, all.pixels), percent(all.filled_wrong, all.pixels));
    }
    text += "Nearer than the search can see, per cent of those pixels\n";
    append(text, "%-12s %-14s %9s %9s %9s %9s | %s\n", "scene", "method", "pixels", "too near",
           "wrong", "sure", "too near by mistake, of the others");
    for (const SimulatorRow& row : report.rows) {
        const NearErrors& n = row.near;
        if (n.pixels == 0)
            continue;
        append(text, "%-12s %-14s %9.0f %9.2f %9.2f %9.2f | %9.3f\n", row.scene.c_str(),
               row.method.c_str(), n.pixels, percent(n.marked, n.pixels),
               percent(n.wrong, n.pixels), percent(n.confident_wrong, n.pixels),
               percent(n.falsely_marked, n.in_reach));
    }
    text += "(sure: wrong by more than 1 px with a confidence of 0.5 or more; 3WAY has none)\n";
    return text;
}

std::string simulatorJson(const SimulatorReport& report) {
    nlohmann::ordered_json rows = nlohmann::json::array();
    for (const SimulatorRow& row : report.rows) {
        nlohmann::ordered_json ranges = nlohmann::json::array();
        for (int i = 0; i < kDistanceRanges; ++i) {
            const RangeErrors& r = row.ranges[static_cast<std::size_t>(i)];
            ranges.push_back({{"from_mm", kRangeEnds[i]},
                              {"to_mm", kRangeEnds[i + 1]},
                              {"pixels", r.pixels},
                              {"density_percent", percent(r.measured, r.pixels)},
                              {"wrong_percent", percent(r.wrong, r.measured)},
                              {"filled_wrong_percent", percent(r.filled_wrong, r.pixels)}});
        }
        const NearErrors& n = row.near;
        rows.push_back({{"scene", row.scene},
                        {"method", row.method},
                        {"ranges", ranges},
                        {"too_near",
                         {{"pixels", n.pixels},
                          {"marked_percent", percent(n.marked, n.pixels)},
                          {"wrong_percent", percent(n.wrong, n.pixels)},
                          {"confident_wrong_percent", percent(n.confident_wrong, n.pixels)},
                          {"falsely_marked_percent", percent(n.falsely_marked, n.in_reach)}}}});
    }
    const nlohmann::ordered_json out = {
        {"width", report.options.width},   {"height", report.options.height},
        {"levels", report.options.levels}, {"seed_base", report.options.seed_base},
        {"seeds", report.options.seeds},   {"rows", rows}};
    return out.dump(2) + "\n";
}

}  // namespace kova::bench
