#pragma once

// The state behind OpenGLPointCloudInterop; for its implementation and tests.

#include <cstdint>

#include "sdk/mat_pointer_vector.h"

namespace kova {

struct OpenGLPointCloudInteropVars {
    std::uint32_t vbo = 0;  ///< colours at byte 0, coordinates at byte colour_bytes
    unsigned char* colour_host = nullptr;
    float* xyz_host = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t colour_bytes = 0;
    std::int32_t xyz_bytes = 0;
    std::int32_t coord_size = 0;       ///< 4: 32-bit float, 1: unsigned byte
    std::int32_t colour_channels = 0;  ///< 3 or 4
    bool initialised = false;
    MatPointerVector_CPU host_buffers;  ///< owns the two staging buffers

    /// Uploads the staging buffers and draws them; the size of the points is not touched.
    void draw_pointclouds(float pointSize);
};

}  // namespace kova
