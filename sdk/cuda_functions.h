#pragma once

#include "sdk/export.h"

namespace kova {

/// Copies between host and device memory. Where the library was built without CUDA, or no device
/// answers, device memory is host memory and the copies are plain ones.
class KOVA_SDK_API CudaFunctions {
public:
    /// Copies `bytes` bytes within device memory. Null addresses are ignored.
    static void copy(const void* source, void* destination, unsigned long bytes);

    /// Copies `bytes` bytes from device to host memory. Null addresses are ignored.
    static void download(const void* source, void* destination, unsigned long bytes);
};

}  // namespace kova
