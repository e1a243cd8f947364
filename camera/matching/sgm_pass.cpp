#include "camera/matching/sgm_pass.h"

#include <algorithm>
#include <functional>
#include <thread>

#include "camera/base/parallel.h"
#include "camera/matching/eye_check.h"
#include "camera/matching/median.h"

namespace kova::camera::sgm {

void BandMemoryPool::reserve(int levels) {
    const std::lock_guard<std::mutex> lock(mutex_);
    while (slots_.size() < static_cast<std::size_t>(threadCount()))
        slots_.push_back(std::make_unique<Slot>());
    for (auto& slot : slots_)
        if (!slot->taken)
            slot->memory.reserve(levels);
}

BandMemoryPool::Slot* BandMemoryPool::takeFree() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& slot : slots_)
        if (!slot->taken) {
            slot->taken = true;
            return slot.get();
        }
    return nullptr;
}

BandMemory& BandMemoryPool::acquire(int levels) {
    Slot* slot = takeFree();
    while (!slot) {
        std::this_thread::yield();
        slot = takeFree();
    }
    slot->memory.reserve(levels);
    return slot->memory;
}

void BandMemoryPool::release(BandMemory& memory) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& slot : slots_)
        if (&slot->memory == &memory)
            slot->taken = false;
}

void SgmPass::begin(int width, int height, int min_disparity, int levels) {
    left_.resize(width, height, 1);
    right_.resize(width, height, min_disparity + levels + 1);
    winners_.resize(width, height);
    denoising_ = {};
    keepWithin(0, kFirstReservedDisparity - 1);
    search_.min_disparity = min_disparity;
    search_.levels = levels;
    const LevelRange all{0, static_cast<std::uint16_t>(levels)};
    search_.ranges.assign(
        static_cast<std::size_t>(cellsFor(width)) * static_cast<std::size_t>(stripsFor(height)),
        all);
    claims_.resize(static_cast<std::size_t>(width + kClaimsBehind) *
                   static_cast<std::size_t>(stripsFor(height)));
}

void SgmPass::matchAndCheck(int band) {
    BandMemory& memory = pool_.acquire(search_.levels);
    matchBand(left_, right_, search_, band, memory, winners_);
    pool_.release(memory);
    const int width = left_.width();
    std::int32_t* claims =
        &claims_[static_cast<std::size_t>(band) * static_cast<std::size_t>(width + kClaimsBehind)];
    const bool limited = least_ > 0 || largest_ + 1 < kFirstReservedDisparity;
    const int height = left_.height();
    for (int y = stripBegin(band, height); y < stripBegin(band + 1, height); ++y) {
        std::uint16_t* disparity = winners_.disparity.row(y);
        checkEyes(disparity, winners_.best.row(y), width, kMaxEyeDifference, claims);
        for (int x = 0; x < width && limited; ++x) {
            const bool keep = (disparity[x] >= least_) & (disparity[x] <= largest_);
            disparity[x] = keep ? disparity[x] : kInvalidDisparity;
        }
    }
}

void SgmPass::run(const ImageView<const std::uint8_t>& left,
                  const ImageView<const std::uint8_t>& right, int speckle_pixels, int speckle_step,
                  const ImageView<std::uint16_t>& disparity) {
    const int height = left_.height(), strips = stripsFor(height);
    pool_.reserve(search_.levels);
    parallelFor(2 * strips, [&](int i) {
        i % 2 == 0 ? left_.compute(left, denoising_, i / 2)
                   : right_.compute(right, denoising_, i / 2);
    });
    parallelFor(strips, [&](int band) { matchAndCheck(band); });
    speckles_.begin(disparity.width, disparity.height);
    parallelFor(strips, [&](int strip) {
        medianRows(winners_.disparity.view(), disparity, stripBegin(strip, height),
                   stripBegin(strip + 1, height));
        speckles_.label(disparity, strip, speckle_step);
    });
    speckles_.joinStrips(disparity, speckle_step);
    parallelFor(strips, [&](int strip) { speckles_.remove(disparity, strip, speckle_pixels); });
}

}  // namespace kova::camera::sgm
