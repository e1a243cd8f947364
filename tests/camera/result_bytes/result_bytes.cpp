// Prints a hash of what each stage makes of a fixed pair of pictures; scripts/aarch64-test compares
// those of two kinds of CPU.

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "camera/detection/detector.h"
#include "camera/matching/matcher.h"
#include "camera/matching/points.h"
#include "camera/rectification/rectifier.h"

namespace {

using namespace kova::camera;  // NOLINT(google-build-using-namespace)

constexpr int kWidth = 640, kHeight = 400, kLevels = 64;
constexpr int kHorizon = 150;

/// FNV-1a, 64 bits.
class Hash {
public:
    void add(const void* data, std::size_t bytes) {
        const auto* p = static_cast<const std::uint8_t*>(data);
        for (std::size_t i = 0; i < bytes; ++i) value_ = (value_ ^ p[i]) * 0x100000001B3U;
    }
    template <typename T>
    void add(const Image<T>& image) {
        for (int y = 0; y < image.height(); ++y)
            add(image.row(y), static_cast<std::size_t>(image.width()) * sizeof(T));
    }
    template <typename T>
    void add(const T& number) {
        static_assert(std::is_arithmetic_v<T>);
        add(&number, sizeof(number));
    }
    void print(const std::string& what) const {
        std::printf("%-24s %016llx\n", what.c_str(), static_cast<unsigned long long>(value_));
    }

private:
    std::uint64_t value_ = 0xCBF29CE484222325U;
};

/// A floor that falls away from the camera, and a box on it, seen by two eyes [px].
int disparityOf(int x, int y) {
    if (x >= 300 && x < 380 && y >= 140 && y < 290)
        return 28;
    return y > kHorizon ? (y - kHorizon) / 5 + 2 : 2;
}

void makePictures(Image<std::uint8_t>& left, Image<std::uint8_t>& right) {
    std::mt19937 random(3);
    Image<std::uint8_t> texture(kWidth + kLevels, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < texture.width(); ++x) {
            const int fresh = static_cast<int>(random() % 200) + 20;
            const int beside = x > 0 ? texture.at(x - 1, y) : fresh;
            const int above = y > 0 ? texture.at(x, y - 1) : fresh;
            texture.at(x, y) = static_cast<std::uint8_t>((2 * fresh + beside + above) / 4);
        }
    left.resize(kWidth, kHeight);
    right.resize(kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            right.at(x, y) = texture.at(x, y);
            left.at(x, y) = texture.at(std::max(x - disparityOf(x, y), 0), y);
        }
}

StereoCalibration distortedEyes() {
    StereoCalibration c;
    c.width = kWidth;
    c.height = kHeight;
    c.left = {380, 381, 316, 203, LensModel::kRadialTangential, {-0.21, 0.05, 2e-4, 1e-5}};
    c.right = {383, 382, 321, 198, LensModel::kRadialTangential, {-0.2, 0.045, -1e-4, 3e-5}};
    c.right_from_left = {1, 0, 0, 0, 0.99995, -0.0099998, 0, 0.0099998, 0.99995};
    c.translation_mm = {-120, 0.3, -0.2};
    return c;
}

bool rectify(const Image<std::uint8_t>& left, const Image<std::uint8_t>& right) {
    for (const LensModel lens : {LensModel::kRadialTangential, LensModel::kEquidistant}) {
        StereoCalibration c = distortedEyes();
        c.left.lens = c.right.lens = lens;
        Status status;
        const auto rectifier = Rectifier::make(c, status);
        if (!rectifier) {
            std::fprintf(stderr, "%s\n", status.message().c_str());
            return false;
        }
        const RectifiedGeometry& g = rectifier->geometry();
        Image<std::uint8_t> left_out, right_out;
        rectifier->rectify(left.view(), right.view(), left_out, right_out);
        const bool fisheye = lens == LensModel::kEquidistant;
        Hash geometry, pictures;
        for (const double v : {g.fx, g.fy, g.cx, g.cy, g.cx_right, g.baseline_mm}) geometry.add(v);
        geometry.print(fisheye ? "geometry, fisheye" : "geometry");
        pictures.add(left_out);
        pictures.add(right_out);
        pictures.print(fisheye ? "rectified, fisheye" : "rectified");
    }
    return true;
}

void detect(const Image<std::uint8_t>& left, const DisparityMap& map, const RectifiedGeometry& g) {
    DetectionInput input;
    input.left = left.view();
    input.map = &map;
    input.geometry = g;
    input.max_disparity = kLevels;
    Detector detector;
    DetectionFrame frame;
    Hash hash;
    for (int i = 0; i < 4; ++i) {
        input.t_ns = i * 33'000'000;
        detector.detect(input, {}, frame);
        hash.add(frame.ground_map);
        hash.add(static_cast<int>(frame.ground.state));
        for (const Stixel& s : frame.stixels)
            for (const int v : {s.x_begin, s.x_end, s.y_top, s.y_bottom, s.obstacle_id})
                hash.add(v);
        for (const ColumnRange& c : frame.columns) hash.add(static_cast<int>(c.state));
    }
    hash.print("detection");
    std::printf("# ground %d, %zu stixels, %zu obstacles\n", static_cast<int>(frame.ground.state),
                frame.stixels.size(), frame.obstacles.size());
}

}  // namespace

int main() {
    Image<std::uint8_t> left, right;
    makePictures(left, right);
    if (!rectify(left, right))
        return 1;

    RectifiedGeometry geometry;
    geometry.width = kWidth;
    geometry.height = kHeight;
    geometry.fx = geometry.fy = 380;
    geometry.cx = geometry.cx_right = 319.5;
    geometry.cy = kHorizon - 10;
    geometry.baseline_mm = 120;
    const auto matcher = makeMatcher();
    DisparityMap map;
    for (const bool fill : {true, false}) {
        for (const WorkMode mode : {WorkMode::kFast, WorkMode::kMedium, WorkMode::kSlow}) {
            MatchParameters parameters;
            parameters.work_mode = mode;
            parameters.max_disparity = kLevels;
            parameters.fill = fill;
            if (!matcher->match(left.view(), right.view(), parameters, map).ok())
                return 1;
            Hash hash;
            hash.add(map.disparity);
            hash.add(map.confidence);
            hash.print("disparity, mode " + std::to_string(static_cast<int>(mode)) +
                       (fill ? ", filled" : ""));
        }
    }
    std::vector<float> points(std::size_t{3} * kWidth * kHeight);
    computePoints(map.disparity.view(), geometry, {}, points.data());
    Hash hash;
    hash.add(points.data(), points.size() * sizeof(float));
    hash.print("points");
    detect(left, map, geometry);
    return 0;
}
