#include "tests/support/cuda_double.h"

#include "tests/support/cuda/cuda_gl_interop.h"
#include "tests/support/cuda/cuda_runtime_api.h"

namespace {

kova::test::CudaScript script;

template <typename... Arguments>
void record(const char* name, const Arguments&... arguments) {
    kova::test::CallLog::instance().add(kova::test::callText(name, arguments...));
}

const void* addressOf(cudaGraphicsResource_t resource) {
    return resource;
}

}  // namespace

namespace kova::test {

void setCudaScript(const CudaScript& new_script) {
    script = new_script;
}

}  // namespace kova::test

extern "C" {

cudaError_t cudaGetDeviceCount(int* count) {
    record("cudaGetDeviceCount");
    if (script.devices == 0)
        return cudaErrorInsufficientDriver;
    *count = script.devices;
    return cudaSuccess;
}

cudaError_t cudaGraphicsGLRegisterImage(cudaGraphicsResource_t* resource, GLuint image,
                                        GLenum target, unsigned int flags) {
    record("cudaGraphicsGLRegisterImage", image, target, flags);
    if (script.register_fails)
        return cudaErrorUnknown;
    *resource = reinterpret_cast<cudaGraphicsResource_t>(0x1000);
    return cudaSuccess;
}

cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* resources,
                                     cudaStream_t stream) {
    record("cudaGraphicsMapResources", count, addressOf(resources[0]),
           static_cast<const void*>(stream));
    return cudaSuccess;
}

cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* resources,
                                       cudaStream_t stream) {
    record("cudaGraphicsUnmapResources", count, addressOf(resources[0]),
           static_cast<const void*>(stream));
    return cudaSuccess;
}

cudaError_t cudaGraphicsSubResourceGetMappedArray(cudaArray_t* array,
                                                  cudaGraphicsResource_t resource,
                                                  unsigned int index, unsigned int level) {
    record("cudaGraphicsSubResourceGetMappedArray", addressOf(resource), index, level);
    *array = reinterpret_cast<cudaArray_t>(0x2000);
    return cudaSuccess;
}

cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t resource) {
    record("cudaGraphicsUnregisterResource", addressOf(resource));
    return script.unregister_fails ? cudaErrorUnknown : cudaSuccess;
}

cudaError_t cudaMemcpyToArray(cudaArray_t destination, std::size_t x, std::size_t y,
                              const void* source, std::size_t bytes, cudaMemcpyKind kind) {
    record("cudaMemcpyToArray", static_cast<const void*>(destination), x, y, source, bytes, kind);
    return cudaSuccess;
}

}  // extern "C"
