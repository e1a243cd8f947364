#pragma once

// The few declarations of the CUDA runtime that the image interop uses, written for the tests: with
// this folder first among the include folders its device path compiles without a toolkit.

#include <cstddef>

#define CUDART_VERSION 0

enum cudaError { cudaSuccess = 0, cudaErrorUnknown = 999, cudaErrorInsufficientDriver = 35 };
using cudaError_t = cudaError;

enum cudaMemcpyKind { cudaMemcpyHostToDevice = 1, cudaMemcpyDeviceToDevice = 3 };
enum cudaGraphicsRegisterFlags {
    cudaGraphicsRegisterFlagsNone = 0,
    cudaGraphicsRegisterFlagsWriteDiscard = 2
};

struct cudaArray;
using cudaArray_t = cudaArray*;
struct cudaGraphicsResource;
using cudaGraphicsResource_t = cudaGraphicsResource*;
struct CUstream_st;
using cudaStream_t = CUstream_st*;

extern "C" {
cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* resources,
                                     cudaStream_t stream);
cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* resources,
                                       cudaStream_t stream);
cudaError_t cudaGraphicsSubResourceGetMappedArray(cudaArray_t* array,
                                                  cudaGraphicsResource_t resource,
                                                  unsigned int index, unsigned int level);
cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t resource);
[[deprecated]] cudaError_t cudaMemcpyToArray(cudaArray_t destination, std::size_t x, std::size_t y,
                                             const void* source, std::size_t bytes,
                                             cudaMemcpyKind kind);
}
