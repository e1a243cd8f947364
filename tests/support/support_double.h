#pragma once

// Stand-ins for the four helper classes behind sdk/ (buffer vectors, copies, channel extraction,
// camera body): they do their work in host memory and write every call to the CallLog.
//
//   MatPointerVector_CPU::add_pointer(width, height, channels, bytes per channel)
//   MatPointerVector_CPU::allocate_all() ... and MatPointerVector_CUDA::allocate_all(0)
//   CudaFunctions::copy(bytes), CudaFunctions::download(bytes)
//   Utils::getChannel_xyzabgr_xyz_rgb(width, height)
//   ModelFile_STL::get_quelvar_model_vector()

#include <vector>

#include "sdk/size.h"
#include "tests/support/call_log.h"

namespace kova::test {

/// The camera body that the stand-in delivers: two triangles.
struct BodyModel {
    std::vector<Size3_<float>> normals{{0, 0, 1}, {0, 1, 0}};
    std::vector<Size3_<float>> first{{1, 2, 3}, {10, 20, 30}};
    std::vector<Size3_<float>> second{{4, 5, 6}, {40, 50, 60}};
    std::vector<Size3_<float>> third{{7, 8, 9}, {70, 80, 90}};
};

/// Buffers of the stand-ins that are allocated at the moment.
int liveBuffers();

}  // namespace kova::test
