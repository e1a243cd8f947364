#pragma once

namespace kova {

/// Two components of T, in order. `Size2_<int>` serves as pixel position, where (-1, -1) means
/// "no point"; `Size2_<float>` as 2-D point.
template <typename T>
struct Size2_ {
    T x{};
    T y{};
};

/// Three components of T, in order: 3-D points and directions, RGB colours in 0..1
/// (`Size3_<float>`), vertex indices of a triangle (`Size3_<int>`).
template <typename T>
struct Size3_ {
    T x{};
    T y{};
    T z{};
};

/// Four components of T, in order: RGBA colours in 0..255 (`Size4_<unsigned char>`).
template <typename T>
struct Size4_ {
    T x{};
    T y{};
    T z{};
    T w{};
};

template <typename T>
constexpr bool operator==(const Size2_<T>& a, const Size2_<T>& b) {
    return a.x == b.x && a.y == b.y;
}
template <typename T>
constexpr bool operator!=(const Size2_<T>& a, const Size2_<T>& b) {
    return !(a == b);
}

}  // namespace kova
