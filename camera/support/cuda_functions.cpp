#include "sdk/cuda_functions.h"

#include "camera/support/device_memory.h"

namespace kova {

void CudaFunctions::copy(const void* source, void* destination, unsigned long bytes) {
    camera::deviceCopy(destination, source, bytes);
}

void CudaFunctions::download(const void* source, void* destination, unsigned long bytes) {
    camera::deviceCopy(destination, source, bytes);
}

}  // namespace kova
