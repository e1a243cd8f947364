#include "camera/matching/sgm_pass.h"

#include <algorithm>
#include <functional>
#include <thread>

#include "camera/base/parallel.h"
#include "camera/matching/eye_check.h"
#include "camera/matching/median.h"

namespace kova::camera::sgm {

void BandMemoryPool::reserve(int levels) {
    while (slots_.size() < static_cast<std::size_t>(threadCount()))
        slots_.push_back(std::make_unique<Slot>());
    for (auto& slot : slots_) slot->memory.reserve(levels);
}

BandMemory& BandMemoryPool::acquire(int levels) {
    for (;;) {
        for (auto& slot : slots_) {
            if (!slot->taken.exchange(true)) {
                slot->memory.reserve(levels);
                return slot->memory;
            }
        }
        std::this_thread::yield();
    }
}

void BandMemoryPool::release(BandMemory& memory) {
    for (auto& slot : slots_)
        if (&slot->memory == &memory)
            slot->taken = false;
}

void SgmPass::begin(int width, int height, int min_disparity, int levels) {
    left_.resize(width, height, 1);
    right_.resize(width, height, min_disparity + levels + 1);
    winners_.resize(width, height);
    soften_ = 0;
    search_.min_disparity = min_disparity;
    search_.levels = levels;
    const LevelRange all{0, static_cast<std::uint16_t>(levels)};
    search_.ranges.assign(
        static_cast<std::size_t>(cellsFor(width)) * static_cast<std::size_t>(cellsFor(height)),
        all);
    claims_.resize(static_cast<std::size_t>(width + 1) *
                   static_cast<std::size_t>(cellsFor(height)));
}

void SgmPass::preparePlanes(const ImageView<const std::uint8_t>& left,
                            const ImageView<const std::uint8_t>& right) {
    const int height = left_.height(), strips = cellsFor(height);
    const auto copy = [&](int i) {
        const int begin = i / 2 * kCell, end = std::min(begin + kCell, height);
        i % 2 == 0 ? left_.copyGrey(left, soften_, begin, end)
                   : right_.copyGrey(right, soften_, begin, end);
    };
    parallelFor(2 * strips, std::ref(copy));
    const auto census = [&](int i) {
        const int begin = i / 2 * kCell, end = std::min(begin + kCell, height);
        (i % 2 == 0 ? left_ : right_).computeCensus(begin, end);
    };
    parallelFor(2 * strips, std::ref(census));
}

void SgmPass::matchAndCheck(int band) {
    BandMemory& memory = pool_.acquire(search_.levels);
    matchBand(left_, right_, search_, band, memory, winners_);
    pool_.release(memory);
    const int width = left_.width();
    const int end = std::min((band + 1) * kCell, left_.height());
    std::uint32_t* claims =
        &claims_[static_cast<std::size_t>(band) * static_cast<std::size_t>(width + 1)];
    for (int y = band * kCell; y < end; ++y)
        checkEyes(winners_.disparity.row(y), winners_.best.row(y), width, kMaxEyeDifference,
                  claims);
}

void SgmPass::run(const ImageView<const std::uint8_t>& left,
                  const ImageView<const std::uint8_t>& right, int speckle_pixels, int speckle_step,
                  const ImageView<std::uint16_t>& disparity) {
    const int height = left_.height(), bands = cellsFor(height);
    preparePlanes(left, right);
    pool_.reserve(search_.levels);
    const auto match = [&](int band) { matchAndCheck(band); };
    parallelFor(bands, std::ref(match));
    const auto median = [&](int band) {
        medianRows(winners_.disparity.view(), disparity, band * kCell,
                   std::min((band + 1) * kCell, height));
    };
    parallelFor(bands, std::ref(median));
    speckles_.filter(disparity, speckle_pixels, speckle_step);
}

}  // namespace kova::camera::sgm
