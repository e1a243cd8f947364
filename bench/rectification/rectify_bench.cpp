// Rectification of both eyes: ours on every SIMD target, and cv::remap with its fixed-point maps;
// and what the alignment of their rows costs.

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <memory>
#include <random>
#include <string>

#include "camera/base/parallel.h"
#include "camera/rectification/rectifier.h"
#include "camera/rectification/row_aligner.h"
#include "tests/camera/rectification/sloping_rows.h"

#include "hwy/highway.h"

namespace {

using namespace kova::camera;  // NOLINT(google-build-using-namespace)

constexpr int kThreads = 2;

StereoCalibration calibrationOf(int width, int height) {
    StereoCalibration c;
    c.width = width;
    c.height = height;
    const double f = 0.56 * width;
    c.left = {
        f, f, width * 0.49, height * 0.51, LensModel::kRadialTangential, {-0.28, 0.07, 2e-4, 1e-5}};
    c.right = {f * 1.01,
               f,
               width * 0.5,
               height * 0.49,
               LensModel::kRadialTangential,
               {-0.27, 0.065, -1e-4, 3e-5}};
    const double a = 0.01;
    c.right_from_left = {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)};
    c.translation_mm = {-60, 0.3, -0.2};
    return c;
}

struct Pictures {
    Image<std::uint8_t> left, right, left_out, right_out;
    Pictures(int width, int height) : left(width, height), right(width, height) {
        std::mt19937 random(1);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                left.at(x, y) = static_cast<std::uint8_t>(random());
                right.at(x, y) = static_cast<std::uint8_t>(random());
            }
    }
};

void rectifyOurs(benchmark::State& state, int width, int height, std::int64_t target) {
    setThreadCount(kThreads);
    hwy::SetSupportedTargetsForTest(target);
    Status status;
    const auto rectifier = Rectifier::make(calibrationOf(width, height), status);
    Pictures p(width, height);
    for (auto _ : state) {
        rectifier->rectify(p.left.view(), p.right.view(), p.left_out, p.right_out);
        benchmark::ClobberMemory();
    }
    hwy::SetSupportedTargetsForTest(0);
    state.SetItemsProcessed(state.iterations() * width * height * 2);
}

void rectifyOpenCv(benchmark::State& state, int width, int height) {
    cv::setNumThreads(kThreads);
    const StereoCalibration c = calibrationOf(width, height);
    const cv::Matx33d k(c.left.fx, 0, c.left.cx, 0, c.left.fy, c.left.cy, 0, 0, 1);
    const cv::Size size(width, height);
    cv::Mat map1, map2;
    cv::initUndistortRectifyMap(k, c.left.distortion, cv::Mat(), k, size, CV_16SC2, map1, map2);
    Pictures p(width, height);
    const cv::Mat left(height, width, CV_8U, p.left.data(), p.left.stride());
    const cv::Mat right(height, width, CV_8U, p.right.data(), p.right.stride());
    cv::Mat left_out, right_out;
    for (auto _ : state) {
        cv::remap(left, left_out, map1, map2, cv::INTER_LINEAR);
        cv::remap(right, right_out, map1, map2, cv::INTER_LINEAR);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * width * height * 2);
}

kova::test::SlopingRows texturedRows(int width, int height) {
    kova::test::SlopingRows rows;
    rows.width = width;
    rows.height = height;
    rows.noise = 2;
    // The texture covers a part of the picture only and is repeated.
    rows.texture = [texture = kova::test::SmoothTexture(7)](double x, double y) {
        return texture.at(std::fmod(x, 400), std::fmod(y, 240));
    };
    rows.paint([](double x, double y) { return 0.1 + 2e-4 * x - 1e-4 * y; });
    return rows;
}

/// A frame in which patches are measured; one in four is, after the first ones.
void measureRows(benchmark::State& state, int width, int height) {
    setThreadCount(kThreads);
    const kova::test::SlopingRows rows = texturedRows(width, height);
    RowPatches patches;
    std::uint32_t round = 0;
    std::size_t samples = 0;
    for (auto _ : state)
        samples = patches.measure(rows.left.view(), rows.right.view(), rows.map, round++).size();
    state.counters["samples"] = static_cast<double>(samples);
}

/// The same with the fit and the filter, of the first frame with its three times as many patches.
void alignFirstFrame(benchmark::State& state, int width, int height) {
    setThreadCount(kThreads);
    const kova::test::SlopingRows rows = texturedRows(width, height);
    RowAligner aligner(rows.geometry());
    for (auto _ : state) {
        aligner.reset();
        benchmark::DoNotOptimize(
            aligner.update(rows.left.view(), rows.right.view(), rows.map, false));
    }
}

/// The right eye's look-up made anew.
void moveTable(benchmark::State& state, int width, int height) {
    setThreadCount(kThreads);
    Status status;
    const auto rectifier = Rectifier::make(calibrationOf(width, height), status);
    RowOffset offset(rectifier->geometry());
    for (auto _ : state) {
        offset.terms[0] = offset.terms[0] == 0.1 ? 0.2 : 0.1;
        rectifier->alignRows(offset);
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const auto& [width, height] : {std::pair(1280, 800), {1280, 720}, {640, 400}}) {
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const int w = width, h = height;
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets())
            benchmark::RegisterBenchmark(
                ("rectifyPair/" + size + "/" + hwy::TargetName(target)).c_str(),
                [=](benchmark::State& state) { rectifyOurs(state, w, h, target); })
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("rectifyPair/" + size + "/cv::remap").c_str(),
                                     [=](benchmark::State& state) { rectifyOpenCv(state, w, h); })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
        for (const auto& [name, run] : {std::pair("measureRows/", measureRows),
                                        {"alignFirstFrame/", alignFirstFrame},
                                        {"moveTable/", moveTable}})
            benchmark::RegisterBenchmark(
                (name + size).c_str(),
                [=, body = run](benchmark::State& state) { body(state, w, h); })
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
