#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

#include "bench/detection/real_bench.h"

namespace kova::bench {

namespace {

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename... Values>
std::string line(const char* format, Values... values) {
    char text[256];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string rateLine(const char* name, const RealReport& report, const char* aim,
                     Rate (*rate)(const RealRow&)) {
    std::string text = line("%-52s", name);
    for (const RealRow& row : report.rows) {
        const Rate r = rate(row);
        text += line("  %5.1f %% of %-6.0f", r.percent(), r.all);
    }
    return text + "  " + aim + "\n";
}

std::string numberLine(const char* name, const RealReport& report, const char* aim,
                       double (*number)(const RealRow&)) {
    std::string text = line("%-52s", name);
    for (const RealRow& row : report.rows) text += line("  %-17.4g", number(row));
    return text + "  " + aim + "\n";
}

std::string runText(const StixelRun& run) {
    return line(
        "  frame %2d, columns %4d to %4d, rows %3d to %3d, %5.2f m, %5.2f m high, "
        "confidence %.2f\n",
        run.frame, run.x_begin, run.x_end, run.y_top, run.y_bottom, run.distance_mm / 1000.0,
        run.high_mm / 1000.0, run.confidence);
}

std::string eachText(const RealRow& row) {
    std::string text;
    const auto list = [&](const char* title, const std::vector<StixelRun>& runs) {
        text += std::string(row.mode) + ", " + title + ":\n";
        for (const StixelRun& run : runs) text += runText(run);
    };
    const auto missed = [&](const char* title, const std::vector<RealObject>& objects) {
        text += std::string(row.mode) + ", " + title + ":\n";
        for (const RealObject& o : objects)
            text += line("  frame %2d, columns %4d to %4d, rows %3d to %3d, %.1f to %.1f m, %s\n",
                         o.frame, o.x0, o.x1, o.y0, o.y1, o.near_m, o.far_m, o.kind.c_str());
    };
    missed("missed in the street", row.street.missed);
    missed("missed in the room", row.room.missed);
    list("false alarms in the street", row.street.false_alarms);
    list("false alarms in the room", row.room.false_alarms);
    list("reported in the free corridor", row.corridor.reported);
    list("not found again in 80 % of the next frames", row.persistence.unsteady);
    return text;
}

nlohmann::json rateJson(const Rate& rate) {
    const auto interval = rate.interval();
    return {
        {"percent", rate.percent()}, {"of", rate.all}, {"interval_95", {interval[0], interval[1]}}};
}

nlohmann::json runsJson(const std::vector<StixelRun>& runs) {
    nlohmann::json out = nlohmann::json::array();
    for (const StixelRun& run : runs)
        out.push_back({{"frame", run.frame},
                       {"columns", {run.x_begin, run.x_end}},
                       {"rows", {run.y_top, run.y_bottom}},
                       {"distance_mm", run.distance_mm},
                       {"high_mm", run.high_mm},
                       {"confidence", run.confidence}});
    return out;
}

nlohmann::json objectsJson(const RealObjectScores& scores, bool each) {
    nlohmann::json out = {{"frames", scores.frames},
                          {"found", rateJson(scores.found)},
                          {"false_alarms", scores.false_alarms.size()}};
    if (!each)
        return out;
    for (const RealObject& o : scores.missed)
        out["missed"].push_back(
            {{"frame", o.frame}, {"box", {o.x0, o.y0, o.x1, o.y1}}, {"kind", o.kind}});
    out["false_alarm_list"] = runsJson(scores.false_alarms);
    return out;
}

}  // namespace

std::string realTable(const RealReport& report, bool each) {
    std::string text = line("%-52s", "");
    for (const RealRow& row : report.rows) text += line("  %-17s", row.mode);
    text += "  aim\n";
    text += rateLine("street: things within 15 m found", report, "",
                     [](const RealRow& r) { return r.street.found; });
    text += numberLine("street: false alarms per frame", report, "", [](const RealRow& r) {
        return static_cast<double>(r.street.false_alarms.size()) / r.street.frames;
    });
    text +=
        rateLine("room: things found", report, "", [](const RealRow& r) { return r.room.found; });
    text += numberLine("room: false alarms per frame", report, "", [](const RealRow& r) {
        return static_cast<double>(r.room.false_alarms.size()) / r.room.frames;
    });
    text += numberLine("corridor: obstacles reported in it", report, "0", [](const RealRow& r) {
        return static_cast<double>(r.corridor.reported.size());
    });
    text += rateLine("corridor: frames with a ground", report, "",
                     [](const RealRow& r) { return r.corridor.ground_found; });
    text += numberLine("corridor: lowest height of the camera [mm]", report, "",
                       [](const RealRow& r) { return double{r.corridor.lowest_height_mm}; });
    text += numberLine("corridor: highest height of the camera [mm]", report, "",
                       [](const RealRow& r) { return double{r.corridor.highest_height_mm}; });
    text += rateLine("obstacles found again in one of the next 5 frames", report, "80 %",
                     [](const RealRow& r) { return r.persistence.found_again; });
    text += rateLine("obstacles found again in 80 % of the next 5 frames", report, "",
                     [](const RealRow& r) { return r.persistence.steady; });
    text += rateLine("pairs: columns in the same state as from truth", report, "",
                     [](const RealRow& r) { return r.pairs.state; });
    text += rateLine("pairs: columns occupied by truth that are occupied", report, "",
                     [](const RealRow& r) { return r.pairs.occupied; });
    text += rateLine("pairs: other columns that are occupied", report, "",
                     [](const RealRow& r) { return r.pairs.invented; });
    text += rateLine("pairs: occupied in both, at the same distance", report, "",
                     [](const RealRow& r) { return r.pairs.distance; });
    text += rateLine("pairs: ... farther than by truth", report, "",
                     [](const RealRow& r) { return r.pairs.farther; });
    text += rateLine("pairs: within 15 m by truth, at the same distance", report, "",
                     [](const RealRow& r) { return r.pairs.near_distance; });
    text += rateLine("pairs: ... farther than by truth", report, "",
                     [](const RealRow& r) { return r.pairs.near_farther; });
    text += numberLine("pairs: median difference of distance [%]", report, "",
                       [](const RealRow& r) { return median(r.pairs.distance_percent); });
    text += rateLine("pairs: ground map labelled in both, alike", report, "",
                     [](const RealRow& r) { return r.pairs.map; });
    text += rateLine("pairs: labelled by truth and labelled", report, "",
                     [](const RealRow& r) { return r.pairs.map_both; });
    text += rateLine("pairs: ground found in both", report, "",
                     [](const RealRow& r) { return r.pairs.ground; });
    if (each)
        for (const RealRow& row : report.rows) text += "\n" + eachText(row);
    return text;
}

std::string realJson(const RealReport& report, bool each) {
    nlohmann::json out = nlohmann::json::array();
    for (const RealRow& row : report.rows) {
        nlohmann::json corridor = {{"reported", row.corridor.reported.size()},
                                   {"frames", row.corridor.frames},
                                   {"ground_found", rateJson(row.corridor.ground_found)},
                                   {"lowest_height_mm", row.corridor.lowest_height_mm},
                                   {"highest_height_mm", row.corridor.highest_height_mm}};
        nlohmann::json persistence = {{"found_again", rateJson(row.persistence.found_again)},
                                      {"steady", rateJson(row.persistence.steady)}};
        if (each) {
            corridor["reported_list"] = runsJson(row.corridor.reported);
            persistence["unsteady_list"] = runsJson(row.persistence.unsteady);
        }
        const PairAgreement& p = row.pairs;
        out.push_back({{"mode", row.mode},
                       {"street", objectsJson(row.street, each)},
                       {"room", objectsJson(row.room, each)},
                       {"corridor", corridor},
                       {"persistence", persistence},
                       {"pairs",
                        {{"same_state", rateJson(p.state)},
                         {"occupied", rateJson(p.occupied)},
                         {"invented", rateJson(p.invented)},
                         {"same_distance", rateJson(p.distance)},
                         {"farther", rateJson(p.farther)},
                         {"near_same_distance", rateJson(p.near_distance)},
                         {"near_farther", rateJson(p.near_farther)},
                         {"distance_median_percent", median(p.distance_percent)},
                         {"map_alike", rateJson(p.map)},
                         {"map_labelled", rateJson(p.map_both)},
                         {"ground", rateJson(p.ground)}}}});
    }
    return out.dump(2) + "\n";
}

}  // namespace kova::bench
