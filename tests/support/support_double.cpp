#include "tests/support/support_double.h"

#include <atomic>
#include <cstring>

#include "sdk/cuda_functions.h"
#include "sdk/mat_pointer_vector.h"
#include "sdk/model_file_stl.h"
#include "sdk/utils.h"

namespace kova {
namespace {

std::atomic<int> live_buffers{0};

template <typename... Arguments>
void record(const char* name, const Arguments&... arguments) {
    test::CallLog::instance().add(test::callText(name, arguments...));
}

struct Request {
    void** slot;
    std::size_t bytes;
    unsigned char* buffer = nullptr;
};

struct Requests {
    std::vector<Request> list;

    ~Requests() { release(false); }

    void add(void** slot, int width, int height, int channels, int bytes_per_channel) {
        list.push_back({slot, static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                  static_cast<std::size_t>(channels * bytes_per_channel)});
    }
    void allocate() {
        for (Request& request : list) {
            if (request.buffer)
                continue;
            request.buffer = new unsigned char[request.bytes]();
            ++live_buffers;
            *request.slot = request.buffer;
        }
    }
    void release(bool clear_slots) {
        for (Request& request : list) {
            if (!request.buffer)
                continue;
            delete[] request.buffer;
            --live_buffers;
            request.buffer = nullptr;
            if (clear_slots)
                *request.slot = nullptr;
        }
    }
};

}  // namespace

struct MatPointerVector_CPU::Impl : Requests {};

MatPointerVector_CPU::MatPointerVector_CPU() : impl_(std::make_unique<Impl>()) {}
MatPointerVector_CPU::~MatPointerVector_CPU() = default;
void MatPointerVector_CPU::add_pointer(void** slot, int width, int height, int channels,
                                       int bytes_per_channel) {
    record("MatPointerVector_CPU::add_pointer", width, height, channels, bytes_per_channel);
    impl_->add(slot, width, height, channels, bytes_per_channel);
}
void MatPointerVector_CPU::allocate_all() {
    record("MatPointerVector_CPU::allocate_all");
    impl_->allocate();
}
void MatPointerVector_CPU::deallocate_all() {
    record("MatPointerVector_CPU::deallocate_all");
    impl_->release(true);
}
void MatPointerVector_CPU::clear_vector() {
    record("MatPointerVector_CPU::clear_vector");
    impl_->release(true);
    impl_->list.clear();
}

struct MatPointerVector_CUDA::Impl : Requests {};

MatPointerVector_CUDA::MatPointerVector_CUDA() : impl_(std::make_unique<Impl>()) {}
MatPointerVector_CUDA::~MatPointerVector_CUDA() = default;
void MatPointerVector_CUDA::add_pointer(void** slot, int width, int height, int channels,
                                        int bytes_per_channel) {
    record("MatPointerVector_CUDA::add_pointer", width, height, channels, bytes_per_channel);
    impl_->add(slot, width, height, channels, bytes_per_channel);
}
void MatPointerVector_CUDA::allocate_all(bool reserved) {
    record("MatPointerVector_CUDA::allocate_all", reserved);
    impl_->allocate();
}
void MatPointerVector_CUDA::deallocate_all() {
    record("MatPointerVector_CUDA::deallocate_all");
    impl_->release(true);
}
void MatPointerVector_CUDA::clear_vector() {
    record("MatPointerVector_CUDA::clear_vector");
    impl_->release(true);
    impl_->list.clear();
}

void CudaFunctions::copy(const void* source, void* destination, unsigned long bytes) {
    record("CudaFunctions::copy", bytes);
    if (source && destination)
        std::memcpy(destination, source, bytes);
}
void CudaFunctions::download(const void* source, void* destination, unsigned long bytes) {
    record("CudaFunctions::download", bytes);
    if (source && destination)
        std::memcpy(destination, source, bytes);
}

void Utils::getChannel_xyzabgr_xyz_rgb(const float* source, float* xyz, unsigned char* rgb,
                                       int width, int height) {
    record("Utils::getChannel_xyzabgr_xyz_rgb", width, height);
    for (int i = 0; i < width * height; ++i) {
        std::memcpy(xyz + i * 3, source + i * 4, 3 * sizeof(float));
        unsigned char abgr[4];
        std::memcpy(abgr, source + i * 4 + 3, 4);
        for (int c = 0; c < 3; ++c) rgb[i * 3 + c] = abgr[3 - c];
    }
}
void Utils::getChannel_xyzbgra_xyz_rgba(const float* source, float* xyz, unsigned char* rgba,
                                        int width, int height) {
    record("Utils::getChannel_xyzbgra_xyz_rgba", width, height);
    for (int i = 0; i < width * height; ++i) {
        std::memcpy(xyz + i * 3, source + i * 4, 3 * sizeof(float));
        unsigned char bgra[4];
        std::memcpy(bgra, source + i * 4 + 3, 4);
        for (int c = 0; c < 3; ++c) rgba[i * 4 + c] = bgra[2 - c];
        rgba[i * 4 + 3] = bgra[3];
    }
}

namespace data {

void ModelFile_STL::get_quelvar_model_vector(std::vector<Size3_<float>>* normals,
                                             std::vector<Size3_<float>>* first_vertices,
                                             std::vector<Size3_<float>>* second_vertices,
                                             std::vector<Size3_<float>>* third_vertices) {
    record("ModelFile_STL::get_quelvar_model_vector");
    const test::BodyModel body;
    *normals = body.normals;
    *first_vertices = body.first;
    *second_vertices = body.second;
    *third_vertices = body.third;
}

}  // namespace data

namespace test {

int liveBuffers() {
    return live_buffers;
}

}  // namespace test
}  // namespace kova
