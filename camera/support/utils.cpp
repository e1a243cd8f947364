#include "sdk/utils.h"

#include <cstddef>
#include <cstring>

namespace kova {

namespace {

/// Splits points of four floats; `order` gives, for every output channel, the colour byte it takes.
template <std::size_t Channels>
void split(const float* source, float* xyz, unsigned char* colour, int width, int height,
           const int (&order)[Channels]) {
    const std::size_t points =
        width > 0 && height > 0 ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height)
                                : 0;
    for (std::size_t i = 0; i < points; ++i) {
        std::memcpy(xyz + 3 * i, source + 4 * i, 3 * sizeof(float));
        unsigned char bytes[4];
        std::memcpy(bytes, source + 4 * i + 3, sizeof bytes);
        for (std::size_t c = 0; c < Channels; ++c) colour[Channels * i + c] = bytes[order[c]];
    }
}

}  // namespace

void Utils::getChannel_xyzabgr_xyz_rgb(const float* source, float* xyz, unsigned char* rgb,
                                       int width, int height) {
    split(source, xyz, rgb, width, height, {3, 2, 1});
}

void Utils::getChannel_xyzbgra_xyz_rgba(const float* source, float* xyz, unsigned char* rgba,
                                        int width, int height) {
    split(source, xyz, rgba, width, height, {2, 1, 0, 3});
}

}  // namespace kova
