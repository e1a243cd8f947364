#include "bench/speed/speed_bench.h"

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>

#include "bench/depth/baseline.h"
#include "camera/base/parallel.h"
#include "camera/matching/matcher.h"

#include "hwy/targets.h"

namespace kova::bench {

namespace {

using camera::Image;
using camera::WorkMode;

std::string cpuName() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("model name", 0) == 0)
            return line.substr(line.find(':') + 2);
    return "unknown";
}

double residentMb() {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stod(line.substr(6)) / 1024;
    return 0;
}

Image<std::uint8_t> scaled(const Image<std::uint8_t>& image, int width, int height) {
    const cv::Mat in(image.height(), image.width(), CV_8U, const_cast<std::uint8_t*>(image.data()),
                     static_cast<std::size_t>(image.stride()));
    Image<std::uint8_t> result(width, height);
    cv::Mat out(height, width, CV_8U, result.data(), static_cast<std::size_t>(result.stride()));
    cv::resize(in, out, out.size(), 0, 0, cv::INTER_CUBIC);
    return result;
}

struct Contender {
    std::string method, target;
    std::function<void()> run;
    std::vector<double> times_ms;
};

double milliseconds(const std::function<void()>& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return time.count();
}

double medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// The best target under which code was generated is dispatched to when 0 is asked for.
std::vector<std::int64_t> targetsFor(bool all) {
    const std::vector<std::int64_t> supported = hwy::SupportedAndGeneratedTargets();
    std::vector<std::int64_t> targets;
    for (const std::int64_t target : supported)
        if (target != HWY_SCALAR && (all || target == supported.front() || target == HWY_AVX2))
            targets.push_back(target);
    return targets;
}

}  // namespace

SpeedReport benchSpeed(const TruePair& pair, int threads, int runs, bool all_targets) {
    constexpr struct { int width, height, levels; } kSizes[] = {{1280, 800, 128}, {640, 400, 64}};
    constexpr struct {
        WorkMode mode;
        const char* name;
    } kModes[] = {
        {WorkMode::kFast, "fast"}, {WorkMode::kMedium, "medium"}, {WorkMode::kSlow, "slow"}};
    SpeedReport report;
    report.cpu = cpuName();
    report.threads = threads;
    report.runs = runs;
    camera::setThreadCount(threads);
    cv::setNumThreads(threads);
    for (const auto& size : kSizes) {
        const Image<std::uint8_t> left = scaled(pair.left, size.width, size.height);
        const Image<std::uint8_t> right = scaled(pair.right, size.width, size.height);
        camera::DisparityMap map;
        Image<std::uint16_t> baseline_map;
        const auto matcher = camera::makeMatcher();
        const auto match = [&](WorkMode mode) {
            camera::MatchParameters parameters;
            parameters.work_mode = mode;
            parameters.max_disparity = size.levels;
            parameters.borrow = true;
            (void)matcher->match(left.view(), right.view(), parameters, map);
        };
        const double before = residentMb();
        for (const auto& mode : kModes) match(mode.mode);
        if (report.rows.empty())
            report.memory_mb = residentMb() - before;

        std::vector<Contender> contenders;
        contenders.push_back({"3WAY, block 3",
                              "OpenCV",
                              [&] {
                                  matchBaseline(kBaselines[0], left.view(), right.view(),
                                                size.levels, false, baseline_map);
                              },
                              {}});
        for (const std::int64_t target : targetsFor(all_targets))
            for (const auto& mode : kModes)
                contenders.push_back({mode.name,
                                      hwy::TargetName(target),
                                      [&match, target, m = mode.mode] {
                                          hwy::SetSupportedTargetsForTest(target);
                                          match(m);
                                      },
                                      {}});
        for (Contender& c : contenders) c.run();
        for (int run = 0; run < runs; ++run)
            for (Contender& c : contenders) c.times_ms.push_back(milliseconds(c.run));
        hwy::SetSupportedTargetsForTest(0);
        const auto least = [](const Contender& c) {
            return *std::min_element(c.times_ms.begin(), c.times_ms.end());
        };
        for (const Contender& c : contenders) {
            SpeedRow row{size.width, size.height,          size.levels, c.method, c.target,
                         least(c),   medianOf(c.times_ms), 0,           0};
            row.ratio_of_least = least(contenders.front()) / row.least_ms;
            row.ratio_of_medians = medianOf(contenders.front().times_ms) / row.median_ms;
            report.rows.push_back(row);
        }
    }
    camera::setThreadCount(0);
    return report;
}

std::string speedTable(const SpeedReport& report) {
    char text[256];
    std::snprintf(
        text, sizeof text,
        "%s, %d threads, %d interleaved runs; all modes take %.1f MB at 1280x800/128.\n\n",
        report.cpu.c_str(), report.threads, report.runs, report.memory_mb);
    std::string table = text;
    table +=
        "| size         | method        | target  | least ms | median ms | times 3WAY (least) | "
        "(median) |\n"
        "|--------------|---------------|---------|----------|-----------|--------------------|-"
        "---------|\n";
    for (const SpeedRow& r : report.rows) {
        std::snprintf(text, sizeof text,
                      "| %4dx%3d/%-3d | %-13s | %-7s | %8.1f | %9.1f | %18.1f | %8.1f |\n", r.width,
                      r.height, r.levels, r.method.c_str(), r.target.c_str(), r.least_ms,
                      r.median_ms, r.ratio_of_least, r.ratio_of_medians);
        table += text;
    }
    return table;
}

std::string speedJson(const SpeedReport& report) {
    nlohmann::json json{{"cpu", report.cpu},
                        {"threads", report.threads},
                        {"runs", report.runs},
                        {"memory_mb", report.memory_mb}};
    for (const SpeedRow& r : report.rows)
        json["rows"].push_back({{"width", r.width},
                                {"height", r.height},
                                {"levels", r.levels},
                                {"method", r.method},
                                {"target", r.target},
                                {"least_ms", r.least_ms},
                                {"median_ms", r.median_ms},
                                {"ratio_of_least", r.ratio_of_least},
                                {"ratio_of_medians", r.ratio_of_medians}});
    return json.dump(2) + "\n";
}

}  // namespace kova::bench
