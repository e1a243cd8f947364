#include "camera/matching/eye_check.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "camera/base/disparity.h"

namespace kova::camera {

void checkEyes(std::uint16_t* disparity, const std::uint8_t* cost, int width, int max_difference,
               std::uint32_t* claims) {
    const auto partner = [&](int x) {
        return x - ((disparity[x] + kDisparityScale / 2) >> kDisparityFractionBits);
    };
    std::memset(claims, 0xFF, static_cast<std::size_t>(width) * sizeof *claims);
    for (int x = 0; x < width; ++x) {
        if (!isDisparity(disparity[x]) || partner(x) < 0)
            continue;
        // The cost in the upper half decides; of equal ones the first stays.
        const std::uint32_t claim = static_cast<std::uint32_t>(cost[x]) << 16 | disparity[x];
        std::uint32_t& held = claims[partner(x)];
        if (claim >> 16 < held >> 16)
            held = claim;
    }
    for (int x = 0; x < width; ++x) {
        if (!isDisparity(disparity[x]))
            continue;
        if (partner(x) < 0 ||
            std::abs(static_cast<int>(claims[partner(x)] & 0xFFFF) - disparity[x]) > max_difference)
            disparity[x] = kInvalidDisparity;
    }
}

}  // namespace kova::camera
