#include "camera/matching/eye_check.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "camera/base/disparity.h"

namespace kova::camera {

void checkEyes(std::uint16_t* disparity, const std::uint8_t* cost, int width, int max_difference,
               std::uint32_t* claims) {
    // A pixel without a partner claims the element behind the row: that is cheaper than a branch
    // the processor cannot foresee. Comparisons that it mostly can are better left to it: with
    // arithmetic in their place the claims wait for each other.
    const auto partner = [&](int x, int d) {
        const int p = x - ((d + kDisparityScale / 2) >> kDisparityFractionBits);
        return p >= 0 && isDisparity(static_cast<std::uint16_t>(d)) ? p : width;
    };
    std::memset(claims, 0xFF, (static_cast<std::size_t>(width) + 1) * sizeof *claims);
    for (int x = 0; x < width; ++x) {
        // The cost in the upper half decides; of equal ones the first.
        const std::uint32_t claim =
            static_cast<std::uint32_t>(cost[x]) << 16 | static_cast<std::uint32_t>(x);
        std::uint32_t& held = claims[partner(x, disparity[x])];
        held = std::min(held, claim);
    }
    for (int x = 0; x < width; ++x) {
        const int d = disparity[x], p = partner(x, d);
        // A holder is like itself, so its disparity is never changed before it is needed here.
        const int like = disparity[claims[p] & 0xFFFF];
        const bool keep = (p < width && std::abs(like - d) <= max_difference) ||
                          !isDisparity(static_cast<std::uint16_t>(d));
        disparity[x] = keep ? static_cast<std::uint16_t>(d) : kInvalidDisparity;
    }
}

}  // namespace kova::camera
