#pragma once

#include <memory>

#include "sdk/export.h"

namespace kova {

/// A list of requests for host buffers, allocated and freed together.
class KOVA_SDK_API MatPointerVector_CPU {
public:
    MatPointerVector_CPU();
    /// Frees the buffers; the slots are not touched, they may be gone already.
    ~MatPointerVector_CPU();
    MatPointerVector_CPU(const MatPointerVector_CPU&) = delete;
    MatPointerVector_CPU& operator=(const MatPointerVector_CPU&) = delete;
    MatPointerVector_CPU(MatPointerVector_CPU&&) = delete;
    MatPointerVector_CPU& operator=(MatPointerVector_CPU&&) = delete;

    /// Records a request.
    ///
    /// @param slot               receives the address at allocate_all(), null at deallocate_all()
    /// @param width              [px]
    /// @param height             [px]
    /// @param channels           per pixel
    /// @param bytes_per_channel  [bytes]
    void add_pointer(void** slot, int width, int height, int channels, int bytes_per_channel);

    /// Allocates a zeroed buffer for every request that has none.
    void allocate_all();

    /// Frees every buffer and sets the slots to null. Harmless on a list never allocated.
    void deallocate_all();

    /// Forgets the requests; buffers not freed yet are freed.
    void clear_vector();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// The same for device memory; host memory stands in where no device answers.
class KOVA_SDK_API MatPointerVector_CUDA {
public:
    MatPointerVector_CUDA();
    ~MatPointerVector_CUDA();
    MatPointerVector_CUDA(const MatPointerVector_CUDA&) = delete;
    MatPointerVector_CUDA& operator=(const MatPointerVector_CUDA&) = delete;
    MatPointerVector_CUDA(MatPointerVector_CUDA&&) = delete;
    MatPointerVector_CUDA& operator=(MatPointerVector_CUDA&&) = delete;

    void add_pointer(void** slot, int width, int height, int channels, int bytes_per_channel);

    /// @param reserved false
    void allocate_all(bool reserved);
    void deallocate_all();
    void clear_vector();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova
