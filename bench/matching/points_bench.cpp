// Point cloud of a disparity map: ours on every SIMD target, and cv::reprojectImageTo3D.

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <random>
#include <string>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/parallel.h"
#include "camera/matching/points.h"

#include "hwy/highway.h"

namespace {

using namespace kova::camera;  // NOLINT(google-build-using-namespace)

constexpr int kThreads = 2;

RectifiedGeometry geometryOf(int width, int height) {
    RectifiedGeometry g;
    g.width = width;
    g.height = height;
    g.fx = g.fy = 0.56 * width;
    g.cx = g.cx_right = width / 2.0;
    g.cy = height / 2.0;
    g.baseline_mm = 60;
    return g;
}

Image<std::uint16_t> disparitiesOf(int width, int height) {
    std::mt19937 random(1);
    Image<std::uint16_t> map(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            map.at(x, y) = random() % 5 == 0 ? kInvalidDisparity
                                             : static_cast<std::uint16_t>(random() % 2048 + 1);
    return map;
}

void pointsOurs(benchmark::State& state, int width, int height, std::int64_t target) {
    setThreadCount(kThreads);
    hwy::SetSupportedTargetsForTest(target);
    const auto map = disparitiesOf(width, height);
    const RectifiedGeometry g = geometryOf(width, height);
    std::vector<float> points(static_cast<std::size_t>(width) * height * 3);
    for (auto _ : state) {
        computePoints(map.view(), g, {}, points.data());
        benchmark::ClobberMemory();
    }
    hwy::SetSupportedTargetsForTest(0);
    state.SetItemsProcessed(state.iterations() * width * height);
}

void pointsOpenCv(benchmark::State& state, int width, int height) {
    cv::setNumThreads(kThreads);
    const auto map = disparitiesOf(width, height);
    const RectifiedGeometry g = geometryOf(width, height);
    cv::Mat disparity(height, width, CV_32F);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            disparity.at<float>(y, x) =
                isDisparity(map.at(x, y)) ? map.at(x, y) / float{kDisparityScale} : -1.0F;
    const cv::Matx44d q(1, 0, 0, -g.cx, 0, 1, 0, -g.cy, 0, 0, 0, g.fx, 0, 0, 1 / g.baseline_mm, 0);
    cv::Mat points;
    for (auto _ : state) {
        cv::reprojectImageTo3D(disparity, points, q, true);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * width * height);
}

}  // namespace

int main(int argc, char** argv) {
    for (const auto& [width, height] : {std::pair(1280, 800), {1280, 720}, {640, 400}}) {
        const std::string size = std::to_string(width) + "x" + std::to_string(height);
        const int w = width, h = height;
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets())
            benchmark::RegisterBenchmark(
                ("points/" + size + "/" + hwy::TargetName(target)).c_str(),
                [=](benchmark::State& state) { pointsOurs(state, w, h, target); })
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("points/" + size + "/cv::reprojectImageTo3D").c_str(),
                                     [=](benchmark::State& state) { pointsOpenCv(state, w, h); })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
