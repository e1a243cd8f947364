// What follows the search, at 1280x800 on two threads: speckles, median and fill, ours and
// OpenCV's. Compare with --benchmark_enable_random_interleaving=true --benchmark_repetitions=21.

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <random>

#include "camera/base/parallel.h"
#include "camera/matching/fill.h"
#include "camera/matching/median.h"
#include "camera/matching/sgm_pass.h"
#include "camera/matching/speckles.h"

namespace {

using namespace kova::camera;  // NOLINT(google-build-using-namespace)

constexpr int kWidth = 1280, kHeight = 800, kLevels = 128, kThreads = 2;
constexpr int kSpecklePixels = 100, kSpeckleStep = 2 * kDisparityScale;

/// What the search makes of a floor and boxes, seen with noise, and of parts that only one eye
/// sees: patches, holes and islands as in real maps.
struct Input {
    Image<std::uint8_t> left{kWidth, kHeight};
    DisparityMap raw;       ///< before speckles are removed
    DisparityMap measured;  ///< after

    Input() {
        Image<std::uint8_t> right(kWidth, kHeight);
        std::mt19937 random(1);
        Image<std::uint8_t> texture(kWidth + kLevels, kHeight);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < texture.width(); ++x) {
                const int fresh = static_cast<int>(random() % 200) + 20;
                const int beside = x > 0 ? texture.at(x - 1, y) : fresh;
                const int above = y > 0 ? texture.at(x, y - 1) : fresh;
                texture.at(x, y) = static_cast<std::uint8_t>((2 * fresh + beside + above) / 4);
            }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                // A tenth of the blocks differs between the eyes.
                const bool apart = (x / 40 * 7 + y / 40 * 3) % 10 == 0;
                int d = y > 300 ? (y - 300) / 5 + 4 : 4;
                if (y > 200 && y < 600 && x % 320 > 250)
                    d = 90;
                right.at(x, y) = texture.at(x, y);
                left.at(x, y) = apart ? static_cast<std::uint8_t>(random() % 256)
                                      : texture.at(std::max(x - d, 0), y);
            }
        sgm::BandMemoryPool pool;
        sgm::SgmPass pass(pool);
        for (DisparityMap* map : {&raw, &measured}) {
            map->resize(kWidth, kHeight);
            map->confidence.fill(100);
            pass.begin(kWidth, kHeight, 0, kLevels);
            pass.run(left.view(), right.view(), map == &raw ? 0 : kSpecklePixels, kSpeckleStep,
                     map->disparity.view());
        }
    }
};

const Input& input() {
    static const Input made;
    return made;
}

void copy(const Image<std::uint16_t>& from, Image<std::uint16_t>& to) {
    to.resize(from.width(), from.height());
    for (int y = 0; y < from.height(); ++y)
        std::memcpy(to.row(y), from.row(y), static_cast<std::size_t>(from.width()) * 2);
}

cv::Mat wrap(Image<std::uint16_t>& image, int type) {
    return {image.height(), image.width(), type, image.data(),
            static_cast<std::size_t>(image.stride()) * 2};
}

void specklesOurs(benchmark::State& state) {
    setThreadCount(kThreads);
    SpeckleFilter filter;
    Image<std::uint16_t> map;
    for (auto _ : state) {
        state.PauseTiming();
        copy(input().raw.disparity, map);
        state.ResumeTiming();
        filter.filter(map.view(), kSpecklePixels, kSpeckleStep);
    }
}

void specklesOpenCv(benchmark::State& state) {
    cv::setNumThreads(kThreads);
    Image<std::uint16_t> map;
    cv::Mat buffer;
    for (auto _ : state) {
        state.PauseTiming();
        copy(input().raw.disparity, map);
        cv::Mat wrapped = wrap(map, CV_16S);
        state.ResumeTiming();
        cv::filterSpeckles(wrapped, -1, kSpecklePixels, kSpeckleStep, buffer);
    }
}

void medianOurs(benchmark::State& state) {
    setThreadCount(kThreads);
    Image<std::uint16_t> out(kWidth, kHeight);
    const auto in = input().raw.disparity.view();
    for (auto _ : state) {
        constexpr int kRows = 64;
        parallelFor((kHeight + kRows - 1) / kRows, [&](int i) {
            medianRows(in, out.view(), i * kRows, std::min((i + 1) * kRows, kHeight));
        });
        benchmark::ClobberMemory();
    }
}

void medianOpenCv(benchmark::State& state) {
    cv::setNumThreads(kThreads);
    Image<std::uint16_t> in;
    copy(input().raw.disparity, in);
    const cv::Mat wrapped = wrap(in, CV_16U);
    cv::Mat out;
    for (auto _ : state) {
        cv::medianBlur(wrapped, out, 3);
        benchmark::ClobberMemory();
    }
}

void fillOurs(benchmark::State& state) {
    setThreadCount(kThreads);
    EdgeAwareFill fill;
    DisparityMap map;
    map.resize(kWidth, kHeight);
    for (auto _ : state) {
        state.PauseTiming();
        copy(input().measured.disparity, map.disparity);
        state.ResumeTiming();
        fill.fill(input().left.view(), map);
    }
}

}  // namespace

int main(int argc, char** argv) {
    constexpr struct {
        const char* name;
        void (*run)(benchmark::State&);
    } kAll[] = {{"speckles/ours", specklesOurs},
                {"speckles/cv::filterSpeckles", specklesOpenCv},
                {"median3x3/ours", medianOurs},
                {"median3x3/cv::medianBlur", medianOpenCv},
                {"fill/ours", fillOurs}};
    for (const auto& entry : kAll)
        benchmark::RegisterBenchmark(entry.name, entry.run)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
