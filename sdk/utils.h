#pragma once

#include "sdk/export.h"

namespace kova {

/// Splits interleaved point clouds. A point is four 32-bit floats: X, Y, Z and a float whose four
/// bytes are the colour, in the order of the function's name from the lowest address up.
class KOVA_SDK_API Utils {
public:
    /// @param source  width * height points, colour bytes a, b, g, r
    /// @param xyz     receives width * height * 3 floats
    /// @param rgb     receives width * height * 3 bytes: r, g, b
    static void getChannel_xyzabgr_xyz_rgb(const float* source, float* xyz, unsigned char* rgb,
                                           int width, int height);

    /// @param source  width * height points, colour bytes b, g, r, a
    /// @param xyz     receives width * height * 3 floats
    /// @param rgba    receives width * height * 4 bytes: r, g, b, a
    static void getChannel_xyzbgra_xyz_rgba(const float* source, float* xyz, unsigned char* rgba,
                                            int width, int height);
};

}  // namespace kova
