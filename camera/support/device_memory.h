#pragma once

#include <cstddef>

namespace kova::camera {

/// Device memory through CUDA where it was built in and a device answers; host memory behind the
/// same operations otherwise, so that what is built on it works alike.

/// True when CUDA was built in and a device answers. Asked once per process.
bool deviceAnswers();

/// Zeroed memory; null when there is not enough.
void* deviceAllocate(std::size_t bytes);
void deviceFree(void* memory);

/// Copies between any two of host and device memory.
void deviceCopy(void* destination, const void* source, std::size_t bytes);

}  // namespace kova::camera
