#pragma once

#include <cmath>
#include <cstdint>
#include <random>

namespace kova::camera {

/// Random numbers that are the same with every compiler and library: the raw output of mt19937
/// (fixed by the standard) under distributions of our own.
class Random {
public:
    explicit Random(std::uint32_t seed) : engine_(seed) {}

    /// [0, 1)
    double uniform() { return engine_() * (1.0 / 4294967296.0); }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    /// {low, ..., high}
    int integer(int low, int high) {
        return low + static_cast<int>(uniform() * static_cast<double>(high - low + 1));
    }
    bool chance(double probability) { return uniform() < probability; }
    double sign() { return chance(0.5) ? 1.0 : -1.0; }
    /// Mean 0, deviation 1: the sum of twelve uniform numbers, without the library's logarithm.
    double normal() {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i) sum += uniform();
        return sum;
    }

private:
    std::mt19937 engine_;
};

/// A well mixed 32-bit number of up to three others (the finaliser of MurmurHash3, Appleby).
inline std::uint32_t hash(std::uint32_t a, std::uint32_t b = 0, std::uint32_t c = 0) {
    std::uint32_t h = a * 0x9E3779B1u ^ (b * 0x85EBCA77u + 0x165667B1u) ^ (c * 0xC2B2AE3Du);
    h ^= h >> 16;
    h *= 0x85EBCA6Bu;
    h ^= h >> 13;
    h *= 0xC2B2AE35u;
    return h ^ h >> 16;
}

/// [0, 1) from a hash.
inline float unitFloat(std::uint32_t h) {
    return static_cast<float>(h >> 8) * (1.0f / 16777216.0f);
}

/// About normal, from a hash: the sum of its four bytes, deviation 1.
inline float normalFloat(std::uint32_t h) {
    const auto sum =
        static_cast<float>((h & 255) + (h >> 8 & 255) + (h >> 16 & 255) + (h >> 24)) - 510.0f;
    return sum * (1.0f / 147.8f);
}

}  // namespace kova::camera
