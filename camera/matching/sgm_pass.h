#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "camera/matching/sgm.h"
#include "camera/matching/speckles.h"

namespace kova::camera::sgm {

/// Working memory of all threads that match bands. Several passes may share one at the same time.
class BandMemoryPool {
public:
    /// Makes sure that every thread finds memory; what is not in use has room for `levels` then.
    void reserve(int levels);
    /// Waits for memory that is not in use and makes room for `levels`; release() gives it back.
    BandMemory& acquire(int levels);
    void release(BandMemory& memory);

private:
    struct Slot {
        BandMemory memory;
        bool taken = false;
    };
    Slot* takeFree();

    std::mutex mutex_;
    std::vector<std::unique_ptr<Slot>> slots_;
};

/// One search of a pair of pictures at one resolution, with everything that is kept for it.
class SgmPass {
public:
    explicit SgmPass(BandMemoryPool& pool) : pool_(pool) {}

    /// Sets size and search; every cell searches all levels until search().ranges say otherwise.
    void begin(int width, int height, int min_disparity, int levels);
    Search& search() { return search_; }
    /// Least and largest disparity that is kept [1/16 px]; begin() sets them so that all are.
    void keepWithin(int least, int largest) {
        least_ = least;
        largest_ = largest;
    }
    /// How the pictures are read; begin() sets it to what is right without noise.
    void denoise(const Denoising& denoising) { denoising_ = denoising; }

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
    void matchAndCheck(int band);

    BandMemoryPool& pool_;
    EyePlanes left_, right_;
    Search search_;
    Denoising denoising_;
    int least_ = 0, largest_ = kFirstReservedDisparity - 1;
    Winners winners_;
    SpeckleFilter speckles_;
    std::vector<std::int32_t> claims_;  ///< working memory of the left-right check, per band
};

}  // namespace kova::camera::sgm
