#pragma once

#include <vector>

#include "sdk/export.h"
#include "sdk/size.h"

namespace kova::data {

/// The 3-D model of the camera's body.
class KOVA_SDK_API ModelFile_STL {
public:
    /// Triangles of the body of a two-lens camera [mm], in the frame of the left camera: one unit
    /// normal, pointing outward, and three corners, counter-clockwise seen from outside, per
    /// triangle. The lists are replaced; null lists are skipped.
    static void get_quelvar_model_vector(std::vector<Size3_<float>>* normals,
                                         std::vector<Size3_<float>>* first_vertices,
                                         std::vector<Size3_<float>>* second_vertices,
                                         std::vector<Size3_<float>>* third_vertices);
};

}  // namespace kova::data
