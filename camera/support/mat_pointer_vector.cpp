#include "sdk/mat_pointer_vector.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

#include "camera/support/device_memory.h"

namespace kova {

namespace {

struct Request {
    void** slot = nullptr;
    std::size_t bytes = 0;
    void* memory = nullptr;
};

void* allocateHost(std::size_t bytes) {
    return std::calloc(bytes > 0 ? bytes : 1, 1);
}

/// The list that both classes are; they differ in where the memory comes from.
class Buffers {
public:
    using Allocate = void* (*)(std::size_t);
    using Free = void (*)(void*);
    Buffers(Allocate allocate, Free free) : allocate_(allocate), free_(free) {}
    ~Buffers() { forget(); }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    void add(void** slot, int width, int height, int channels, int bytes_per_channel) {
        std::size_t bytes = 1;
        for (const int factor : {width, height, channels, bytes_per_channel})
            bytes *= factor > 0 ? static_cast<std::size_t>(factor) : 0;
        requests_.push_back({slot, bytes, nullptr});
    }

    void allocateAll() {
        for (Request& request : requests_) {
            if (!request.memory)
                request.memory = allocate_(request.bytes);
            if (request.slot)
                *request.slot = request.memory;
        }
    }

    void deallocateAll() {
        for (Request& request : requests_) {
            if (!request.memory)
                continue;
            free_(request.memory);
            request.memory = nullptr;
            if (request.slot)
                *request.slot = nullptr;
        }
    }

    // The slots may be gone already.
    void forget() {
        for (Request& request : requests_)
            if (request.memory)
                free_(request.memory);
        requests_.clear();
    }

private:
    Allocate allocate_;
    Free free_;
    std::vector<Request> requests_;
};

}  // namespace

struct MatPointerVector_CPU::Impl {
    Buffers buffers{allocateHost, std::free};
};

MatPointerVector_CPU::MatPointerVector_CPU() : impl_(std::make_unique<Impl>()) {}
MatPointerVector_CPU::~MatPointerVector_CPU() = default;
void MatPointerVector_CPU::add_pointer(void** slot, int width, int height, int channels,
                                       int bytes_per_channel) {
    impl_->buffers.add(slot, width, height, channels, bytes_per_channel);
}
void MatPointerVector_CPU::allocate_all() {
    impl_->buffers.allocateAll();
}
void MatPointerVector_CPU::deallocate_all() {
    impl_->buffers.deallocateAll();
}
void MatPointerVector_CPU::clear_vector() {
    impl_->buffers.forget();
}

struct MatPointerVector_CUDA::Impl {
    Buffers buffers{camera::deviceAllocate, camera::deviceFree};
};

MatPointerVector_CUDA::MatPointerVector_CUDA() : impl_(std::make_unique<Impl>()) {}
MatPointerVector_CUDA::~MatPointerVector_CUDA() = default;
void MatPointerVector_CUDA::add_pointer(void** slot, int width, int height, int channels,
                                        int bytes_per_channel) {
    impl_->buffers.add(slot, width, height, channels, bytes_per_channel);
}
void MatPointerVector_CUDA::allocate_all(bool /*reserved*/) {
    impl_->buffers.allocateAll();
}
void MatPointerVector_CUDA::deallocate_all() {
    impl_->buffers.deallocateAll();
}
void MatPointerVector_CUDA::clear_vector() {
    impl_->buffers.forget();
}

}  // namespace kova
