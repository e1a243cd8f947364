#include "bench/detection/drive_cache.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <type_traits>

namespace kova::bench {

namespace {

template <typename T>
void put(std::ostream& out, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename T>
T get(std::istream& in) {
    static_assert(std::is_trivially_copyable_v<T>);
    T value{};
    in.read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
}

template <typename T>
void putList(std::ostream& out, const std::vector<T>& list) {
    put(out, static_cast<std::uint64_t>(list.size()));
    out.write(reinterpret_cast<const char*>(list.data()),
              static_cast<std::streamsize>(list.size() * sizeof(T)));
}

/// Longer than any list of a drive.
constexpr std::uint64_t kMostItems = std::uint64_t{1} << 28;

template <typename T>
void getList(std::istream& in, std::vector<T>& list) {
    const auto size = get<std::uint64_t>(in);
    if (!in || size > kMostItems) {
        in.setstate(std::ios::failbit);
        return;
    }
    list.resize(size);
    in.read(reinterpret_cast<char*>(list.data()), static_cast<std::streamsize>(size * sizeof(T)));
}

template <typename T>
void putImage(std::ostream& out, const camera::Image<T>& image) {
    put(out, image.width());
    put(out, image.height());
    for (int y = 0; y < image.height(); ++y)
        out.write(reinterpret_cast<const char*>(image.row(y)),
                  static_cast<std::streamsize>(image.width() * sizeof(T)));
}

template <typename T>
void getImage(std::istream& in, camera::Image<T>& image) {
    const int width = get<int>(in), height = get<int>(in);
    if (!in || width < 0 || height < 0 || width > 8192 || height > 8192) {
        in.setstate(std::ios::failbit);
        return;
    }
    image.resize(width, height);
    for (int y = 0; y < height; ++y)
        in.read(reinterpret_cast<char*>(image.row(y)),
                static_cast<std::streamsize>(width * sizeof(T)));
}

}  // namespace

std::filesystem::path DriveCache::fileOf(const std::string& about) const {
    return folder_ / (std::to_string(std::hash<std::string>()(about)) + ".drive");
}

bool DriveCache::load(const std::string& about, std::vector<DriveFrame>& frames) const {
    if (folder_.empty())
        return false;
    std::ifstream in(fileOf(about), std::ios::binary);
    std::vector<char> text;
    getList(in, text);
    if (!in || !std::equal(text.begin(), text.end(), about.begin(), about.end()))
        return false;
    const auto count = get<std::uint32_t>(in);
    frames.clear();
    for (std::uint32_t i = 0; i < count && in; ++i) {
        DriveFrame& frame = frames.emplace_back();
        frame.raw.t_ns = get<std::int64_t>(in);
        frame.raw.sequence = get<std::int64_t>(in);
        frame.raw.exposure_us = get<double>(in);
        getList(in, frame.raw.data);
        getList(in, frame.raw.imu);
        getImage(in, frame.truth.depth_mm);
        getImage(in, frame.truth.label);
        getImage(in, frame.truth.object);
        frame.truth.pose = get<camera::Pose>(in);
    }
    return static_cast<bool>(in);
}

void DriveCache::store(const std::string& about, const std::vector<DriveFrame>& frames) const {
    if (folder_.empty())
        return;
    std::error_code ignored;
    std::filesystem::create_directories(folder_, ignored);
    // Renamed when whole, so that a run beside this one never reads half a file.
    std::filesystem::path part = fileOf(about);
    part += ".part" + std::to_string(reinterpret_cast<std::uintptr_t>(&frames));
    std::ofstream out(part, std::ios::binary);
    putList(out, std::vector<char>(about.begin(), about.end()));
    put(out, static_cast<std::uint32_t>(frames.size()));
    for (const DriveFrame& frame : frames) {
        put(out, frame.raw.t_ns);
        put(out, frame.raw.sequence);
        put(out, frame.raw.exposure_us);
        putList(out, frame.raw.data);
        putList(out, frame.raw.imu);
        putImage(out, frame.truth.depth_mm);
        putImage(out, frame.truth.label);
        putImage(out, frame.truth.object);
        put(out, frame.truth.pose);
    }
    out.close();
    if (out)
        std::filesystem::rename(part, fileOf(about), ignored);
    else
        std::filesystem::remove(part, ignored);
}

}  // namespace kova::bench
