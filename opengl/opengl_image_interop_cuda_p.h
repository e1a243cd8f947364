#pragma once

// The state behind OpenGLImageInteropCUDA; for its implementation and tests.

#include <cstdint>

struct cudaGraphicsResource;

namespace kova {

struct OpenGLImageInteropCUDAVars {
    std::uint32_t texture = 0;
    cudaGraphicsResource* resource = nullptr;  ///< the registered texture
    int width = 0;                             ///< [px]
    int height = 0;                            ///< [px]
    int byte_size = 0;                         ///< width * height * element_size * channels
    int element_size = 0;                      ///< bytes per channel
    int channels = 0;                          ///< 1 or 4
    bool initialised = false;
    float vertical_extent = 1;    ///< the quad spans -extent..+extent of the viewport
    float horizontal_extent = 1;  ///< likewise
    bool on_device = false;       ///< a device answered when the texture was made
};

}  // namespace kova
