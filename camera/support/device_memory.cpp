#include "camera/support/device_memory.h"

#include <cstdlib>
#include <cstring>

#if defined(KOVA_HAVE_CUDA)
#include <cuda_runtime.h>
#endif

namespace kova::camera {

bool deviceAnswers() {
#if defined(KOVA_HAVE_CUDA)
    static const bool answers = [] {
        int devices = 0;
        return cudaGetDeviceCount(&devices) == cudaSuccess && devices > 0;
    }();
    return answers;
#else
    return false;
#endif
}

void* deviceAllocate(std::size_t bytes) {
#if defined(KOVA_HAVE_CUDA)
    if (deviceAnswers()) {
        void* memory = nullptr;
        if (cudaMalloc(&memory, bytes) != cudaSuccess)
            return nullptr;
        cudaMemset(memory, 0, bytes);
        return memory;
    }
#endif
    return std::calloc(bytes > 0 ? bytes : 1, 1);
}

void deviceFree(void* memory) {
#if defined(KOVA_HAVE_CUDA)
    if (deviceAnswers()) {
        cudaFree(memory);
        return;
    }
#endif
    std::free(memory);
}

void deviceCopy(void* destination, const void* source, std::size_t bytes) {
    if (!destination || !source || bytes == 0)
        return;
#if defined(KOVA_HAVE_CUDA)
    if (deviceAnswers()) {
        cudaMemcpy(destination, source, bytes, cudaMemcpyDefault);
        return;
    }
#endif
    std::memcpy(destination, source, bytes);
}

}  // namespace kova::camera
