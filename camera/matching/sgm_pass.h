#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "camera/matching/sgm.h"
#include "camera/matching/speckles.h"

namespace kova::camera::sgm {

/// Working memory of all threads that match bands.
class BandMemoryPool {
public:
    /// Makes sure that every thread finds memory for `levels`.
    void reserve(int levels);
    BandMemory& acquire(int levels);
    void release(BandMemory& memory);

private:
    struct Slot {
        BandMemory memory;
        std::atomic<bool> taken{false};
    };
    std::vector<std::unique_ptr<Slot>> slots_;
};

/// One search of a pair of pictures at one resolution, with everything that is kept for it.
class SgmPass {
public:
    explicit SgmPass(BandMemoryPool& pool) : pool_(pool) {}

    /// Sets size and search; every cell searches all levels until search().ranges say otherwise.
    void begin(int width, int height, int min_disparity, int levels);
    Search& search() { return search_; }
    /// By how much pixels may be softened before they are compared, see EyePlanes::copyGrey();
    /// begin() sets it to 0.
    void soften(int limit) { soften_ = limit; }
    int softened() const { return soften_; }

    /// Matches, and removes what fails the left-right check and small islands; the median of 3x3 is
    /// taken in between.
    ///
    /// @param left, right  of the size given to begin()
    /// @param disparity    of the same size
    void run(const ImageView<const std::uint8_t>& left, const ImageView<const std::uint8_t>& right,
             int speckle_pixels, int speckle_step, const ImageView<std::uint16_t>& disparity);

    /// The winners of the last run, after the left-right check.
    const Winners& winners() const { return winners_; }
    const EyePlanes& left() const { return left_; }

private:
    void preparePlanes(const ImageView<const std::uint8_t>& left,
                       const ImageView<const std::uint8_t>& right);
    void matchAndCheck(int band);

    BandMemoryPool& pool_;
    EyePlanes left_, right_;
    Search search_;
    int soften_ = 0;
    Winners winners_;
    SpeckleFilter speckles_;
    std::vector<std::uint32_t> claims_;  ///< one row and an element per band
};

}  // namespace kova::camera::sgm
