#pragma once

#include <filesystem>

#include "camera/base/image.h"

namespace kova::bench {

/// Reads a picture file as grey.
/// @return false when it cannot be read
bool readGrey(const std::filesystem::path& path, camera::Image<std::uint8_t>& image);

}  // namespace kova::bench
