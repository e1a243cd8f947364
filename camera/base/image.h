#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "camera/base/check.h"

namespace kova::camera {

/// A picture somewhere in memory, not owned: `height` rows of `width` elements, the beginnings of
/// two rows `stride` elements apart. T is const for pictures that are only read.
template <typename T>
struct ImageView {
    T* data = nullptr;
    int width = 0;
    int height = 0;
    std::ptrdiff_t stride = 0;

    T* row(int y) const { return data + y * stride; }
    T& at(int x, int y) const { return data[y * stride + x]; }
    bool empty() const { return width <= 0 || height <= 0; }

    operator ImageView<const T>() const {  // NOLINT(google-explicit-constructor)
        return {data, width, height, stride};
    }
    /// The part of `w` x `h` elements whose top left corner is (x, y).
    ImageView part(int x, int y, int w, int h) const {
        KOVA_DCHECK(x >= 0 && y >= 0 && x + w <= width && y + h <= height);
        return {data + y * stride + x, w, h, stride};
    }
};

struct Rgba {
    std::uint8_t r = 0, g = 0, b = 0, a = 255;
};
static_assert(sizeof(Rgba) == 4);
constexpr bool operator==(const Rgba& p, const Rgba& q) {
    return p.r == q.r && p.g == q.g && p.b == q.b && p.a == q.a;
}

/// A picture that owns its memory: rows aligned to 64 bytes with at least 64 bytes readable beyond
/// the last row, zeroed when allocated. Moved, never copied by accident.
template <typename T>
class Image {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    Image() = default;
    Image(int width, int height) { resize(width, height); }
    Image(Image&&) noexcept = default;
    Image& operator=(Image&&) noexcept = default;

    /// Changes the size. Allocates only when more memory is needed than there is; the content is
    /// then zero, otherwise undefined.
    void resize(int width, int height) {
        KOVA_DCHECK(width >= 0 && height >= 0);
        const std::ptrdiff_t per_line = kAlignment / static_cast<std::ptrdiff_t>(sizeof(T));
        const std::ptrdiff_t stride =
            per_line > 0 ? (width + per_line - 1) / per_line * per_line : width;
        const std::size_t bytes =
            static_cast<std::size_t>(stride) * static_cast<std::size_t>(height) * sizeof(T) +
            kAlignment;
        if (bytes > capacity_) {
            memory_.reset(
                static_cast<std::byte*>(::operator new (bytes, std::align_val_t{kAlignment})));
            capacity_ = bytes;
            std::memset(memory_.get(), 0, bytes);
        }
        view_ = {reinterpret_cast<T*>(memory_.get()), width, height, stride};
    }

    /// A copy, made on purpose.
    Image clone() const {
        Image copy(width(), height());
        for (int y = 0; y < height(); ++y)
            std::memcpy(copy.row(y), row(y), static_cast<std::size_t>(width()) * sizeof(T));
        return copy;
    }

    void fill(T value) {
        for (int y = 0; y < height(); ++y)
            for (int x = 0; x < width(); ++x) at(x, y) = value;
    }

    int width() const { return view_.width; }
    int height() const { return view_.height; }
    std::ptrdiff_t stride() const { return view_.stride; }
    bool empty() const { return view_.empty(); }
    T* data() { return view_.data; }
    const T* data() const { return view_.data; }
    T* row(int y) { return view_.row(y); }
    const T* row(int y) const { return view_.row(y); }
    T& at(int x, int y) { return view_.at(x, y); }
    const T& at(int x, int y) const { return view_.at(x, y); }
    ImageView<T> view() { return view_; }
    ImageView<const T> view() const { return view_; }

private:
    static constexpr std::size_t kAlignment = 64;
    struct Free {
        void operator()(std::byte* p) const { ::operator delete (p, std::align_val_t{kAlignment}); }
    };
    std::unique_ptr<std::byte, Free> memory_;
    std::size_t capacity_ = 0;
    ImageView<T> view_;
};

}  // namespace kova::camera
