#pragma once

// The state behind OpenGLImageInterop; for its implementation and tests.

#include <cstdint>

namespace kova {

struct OpenGLImageInteropVars {
    std::uint32_t texture = 0;
    int width = 0;                ///< [px]
    int height = 0;               ///< [px]
    int byte_size = 0;            ///< width * height * element_size * channels
    int element_size = 0;         ///< bytes per channel
    int channels = 0;             ///< 1, 3 or 4
    float vertical_extent = 1;    ///< the quad spans -extent..+extent of the viewport
    float horizontal_extent = 1;  ///< likewise
    bool initialised = false;
};

}  // namespace kova
