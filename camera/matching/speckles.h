#pragma once

#include <memory>
#include <vector>

#include "camera/base/disparity.h"
#include "camera/base/image.h"

namespace kova::camera {

/// Removes small islands: groups of pixels, connected through their four neighbours by steps of at
/// most `max_step`, that have at most `max_pixels` pixels.
///
/// Runs of a row are joined by union-find, strips of rows on several threads. The result does not
/// depend on the threads.
class SpeckleFilter {
public:
    /// @param max_step  [1/16 px]
    void filter(const ImageView<std::uint16_t>& disparity, int max_pixels, int max_step);

    /// The same in steps, for a map of the size given first: label() every strip of rows
    /// (strips.h), joinStrips(), remove() in every strip. Different strips may be handled at the
    /// same time.
    void begin(int width, int height);
    void label(const ImageView<std::uint16_t>& disparity, int strip, int max_step);
    void joinStrips(const ImageView<std::uint16_t>& disparity, int max_step);
    void remove(const ImageView<std::uint16_t>& disparity, int strip, int max_pixels) const;

private:
    struct Run {
        std::uint16_t begin, end;
        std::uint32_t parent;  ///< a run with a smaller number, or itself
        std::uint32_t pixels;  ///< of the group, at its first run
    };

    std::uint32_t findRuns(const std::uint16_t* row, int width, int max_step, std::uint32_t next);
    void joinRows(const ImageView<std::uint16_t>& disparity, int y, int max_step);
    void join(std::uint32_t a, std::uint32_t b);
    std::uint32_t rootOf(std::uint32_t run) const;

    /// Space for the worst case; memory is taken from the system only where it is touched.
    std::unique_ptr<Run[]> runs_;
    std::size_t capacity_ = 0;
    std::vector<std::uint32_t> first_run_, end_run_;  ///< of each row
};

}  // namespace kova::camera
