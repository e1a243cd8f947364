// The kernels of the matcher on every SIMD target, one thread: census and one band of a full
// search, at 1280 pixels and 128 disparities.

#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "camera/matching/sgm.h"

#include "hwy/targets.h"

namespace {

using namespace kova::camera;       // NOLINT(google-build-using-namespace)
using namespace kova::camera::sgm;  // NOLINT(google-build-using-namespace)

constexpr int kWidth = 1280, kRows = 4 * kCell, kLevels = 128;

struct Planes {
    Image<std::uint8_t> picture{kWidth, kRows};
    EyePlanes left, right;

    Planes() {
        std::mt19937 random(1);
        for (int y = 0; y < kRows; ++y)
            for (int x = 0; x < kWidth; ++x) picture.at(x, y) = static_cast<std::uint8_t>(random());
        left.resize(kWidth, kRows, 1);
        right.resize(kWidth, kRows, kLevels + 1);
        for (int i = 0; i < stripsFor(kRows); ++i) {
            left.compute(picture.view(), {}, i);
            right.compute(picture.view(), {}, i);
        }
    }
};

void census(benchmark::State& state, std::int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    Planes planes;
    for (auto _ : state) {
        for (int i = 0; i < stripsFor(kRows); ++i)
            planes.left.compute(planes.picture.view(), {}, i);
        benchmark::ClobberMemory();
    }
    hwy::SetSupportedTargetsForTest(0);
    state.SetItemsProcessed(state.iterations() * kWidth * kRows);
}

void band(benchmark::State& state, std::int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    const Planes planes;
    Search search{0, kLevels, {}};
    search.ranges.assign(std::size_t(cellsFor(kWidth)) * stripsFor(kRows), {0, kLevels});
    BandMemory memory;
    memory.reserve(kLevels);
    Winners winners;
    winners.resize(kWidth, kRows);
    for (auto _ : state) {
        matchBand(planes.left, planes.right, search, 1, memory, winners);
        benchmark::ClobberMemory();
    }
    hwy::SetSupportedTargetsForTest(0);
    state.SetItemsProcessed(state.iterations() * kWidth * kCell * kLevels);
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        const std::string name = hwy::TargetName(target);
        benchmark::RegisterBenchmark(("census/1280x256/" + name).c_str(), census, target);
        benchmark::RegisterBenchmark(("matchBand/1280x64/d128/" + name).c_str(), band, target);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
