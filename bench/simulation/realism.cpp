// Is stereo on rendered pictures as hard as on real ones? Runs one matcher on both and prints what
// it leaves open, how often it is wrong, and how much the mean of a block of 5x12 px scatters.

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "camera/simulation/sequence.h"

namespace {

using kova::camera::FrameTruth;
using kova::camera::RawFrame;

struct Pair {
    cv::Mat left, right;
    cv::Mat truth;  ///< float [px], not positive or infinite: unknown
};

struct Figures {
    double pixels = 0, filled = 0, bad = 0;
    double bad_levelled = 0;  ///< after the smooth error of each pair is taken off
    std::vector<double> blocks;
    void print(const char* name) const {
        double mean = 0, square = 0;
        for (const double b : blocks) mean += b / static_cast<double>(blocks.size());
        for (const double b : blocks) square += (b - mean) * (b - mean);
        std::printf(
            "%-24s density %5.1f %%  bad-1.0 %5.2f %%, levelled %5.2f %%  5x12 block mean "
            "%.3f px (%zu)\n",
            name, 100 * filled / pixels, 100 * bad / filled, 100 * bad_levelled / filled,
            std::sqrt(square / std::max<double>(1, static_cast<double>(blocks.size()))),
            blocks.size());
    }
};

/// Counts errors over 1 px from a plane through the errors of one pair: what is wrong in the
/// matching, without a small turn or shift between the truth and the pictures.
/// @param errors  x, y, error [px]
double badWithoutPlane(const std::vector<std::array<double, 3>>& errors) {
    cv::Vec3d plane(0, 0, 0);
    for (int i = 0; i < 6; ++i) {
        cv::Matx33d normal = cv::Matx33d::zeros();
        cv::Vec3d right(0, 0, 0);
        for (const auto& [x, y, error] : errors) {
            const cv::Vec3d row(x, y, 1);
            if (std::abs(error - row.dot(plane)) > 1)
                continue;
            normal += row * row.t();
            right += row * error;
        }
        if (!cv::solve(normal, right, plane, cv::DECOMP_CHOLESKY))
            return static_cast<double>(errors.size());
    }
    return static_cast<double>(std::count_if(errors.begin(), errors.end(), [&](const auto& e) {
        return std::abs(e[2] - cv::Vec3d(e[0], e[1], 1).dot(plane)) > 1;
    }));
}

/// Adds one pair. Blocks count where at least half of their pixels have truth and a disparity
/// within 1 px of it, and the true surface has no step.
void add(const Pair& pair, Figures& f) {
    const int range = 128;
    auto matcher = cv::StereoSGBM::create(0, range, 3, 8 * 9, 32 * 9, 1, 63, 10, 100, 2,
                                          cv::StereoSGBM::MODE_SGBM_3WAY);
    cv::Mat disparity;
    matcher->compute(pair.left, pair.right, disparity);
    const auto truthAt = [&](int x, int y) -> float {
        const float d = pair.truth.at<float>(y, x);
        return std::isfinite(d) && d > 0 && d < range - 2 && x - d >= 1 ? d : 0;
    };
    std::vector<std::array<double, 3>> errors;
    for (int y = 0; y < pair.truth.rows; ++y)
        for (int x = range; x < pair.truth.cols; ++x) {
            const float d = truthAt(x, y);
            if (d <= 0)
                continue;
            ++f.pixels;
            const int found = disparity.at<short>(y, x);
            if (found < 0)
                continue;
            ++f.filled;
            f.bad += std::abs(found / 16.0f - d) > 1.0f;
            errors.push_back({double(x), double(y), found / 16.0 - d});
        }
    f.bad_levelled += badWithoutPlane(errors);
    for (int y = 0; y + 12 <= pair.truth.rows; y += 12)
        for (int x = range; x + 5 <= pair.truth.cols; x += 5) {
            double sum = 0;
            int count = 0;
            float low = 1e9f, high = 0;
            for (int j = 0; j < 12; ++j)
                for (int i = 0; i < 5; ++i) {
                    const float d = truthAt(x + i, y + j);
                    const int found = disparity.at<short>(y + j, x + i);
                    if (d <= 0)
                        continue;
                    low = std::min(low, d);
                    high = std::max(high, d);
                    if (found < 0 || std::abs(found / 16.0f - d) > 1.0f)
                        continue;
                    sum += found / 16.0f - d;
                    ++count;
                }
            // A quarter of the pixels is enough: laser truth is sparse.
            if (count >= 12 && high - low < 2.0f)
                f.blocks.push_back(sum / count);
        }
}

cv::Mat readPfm(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string kind;
    int width = 0, height = 0;
    double scale = 0;
    file >> kind >> width >> height >> scale;
    file.get();
    cv::Mat m(height, width, CV_32F);
    for (int y = height - 1; y >= 0; --y)
        file.read(reinterpret_cast<char*>(m.ptr(y)), static_cast<std::streamsize>(width) * 4);
    return m;
}

void measureReal(const std::filesystem::path& root) {
    Figures kitti, middlebury, eth3d;
    for (int i = 1; i <= 8; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "%06d_10.png", i);
        const std::filesystem::path base = root / "kitti2015-gt/training";
        Pair p;
        p.left = cv::imread((base / "image_2" / name).string(), cv::IMREAD_GRAYSCALE);
        p.right = cv::imread((base / "image_3" / name).string(), cv::IMREAD_GRAYSCALE);
        const cv::Mat raw = cv::imread((base / "disp_noc_0" / name).string(), cv::IMREAD_UNCHANGED);
        if (p.left.empty() || raw.empty())
            continue;
        raw.convertTo(p.truth, CV_32F, 1.0 / 256);
        add(p, kitti);
    }
    for (const char* scene : {"Adirondack", "Motorcycle", "Piano", "Recycle", "Teddy"}) {
        const std::filesystem::path base = root / "middlebury-v3-trainingQ" / scene;
        Pair p;
        p.left = cv::imread((base / "im0.png").string(), cv::IMREAD_GRAYSCALE);
        p.right = cv::imread((base / "im1.png").string(), cv::IMREAD_GRAYSCALE);
        if (p.left.empty())
            continue;
        p.truth = readPfm((base / "disp0GT.pfm").string());
        const cv::Mat mask = cv::imread((base / "mask0nocc.png").string(), cv::IMREAD_GRAYSCALE);
        if (!mask.empty())
            p.truth.setTo(0, mask != 255);
        add(p, middlebury);
    }
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(root / "eth3d-two-view-gt"))
        if (entry.path().filename() == "disp0.pfm" || entry.path().filename() == "disp0GT.pfm") {
            Pair p;
            const std::filesystem::path base = entry.path().parent_path();
            p.left = cv::imread((base / "im0.png").string(), cv::IMREAD_GRAYSCALE);
            p.right = cv::imread((base / "im1.png").string(), cv::IMREAD_GRAYSCALE);
            p.truth = readPfm(entry.path().string());
            if (!p.left.empty())
                add(p, eth3d);
        }
    if (kitti.pixels > 0)
        kitti.print("KITTI 2015");
    if (middlebury.pixels > 0)
        middlebury.print("Middlebury v3 Q");
    if (eth3d.pixels > 0)
        eth3d.print("ETH3D");
}

/// The camera that a scene is seen with.
struct Eyes {
    const char* name;
    int width, height;
    double baseline_mm = 120, focal_px_at_1280 = 760;
    kova::camera::SceneOptions scene;
};

void measureSimulated(const char* scene, const Eyes& eyes, int seeds) {
    const int width = eyes.width, height = eyes.height;
    Figures figures;
    for (int seed = 1; seed <= seeds; ++seed) {
        kova::camera::RigOptions rig;
        rig.width = width;
        rig.height = height;
        rig.baseline_mm = eyes.baseline_mm;
        rig.focal_length_at_1280 = eyes.focal_px_at_1280;
        rig.seed = static_cast<std::uint32_t>(seed);
        auto made = kova::camera::makeScene(scene, rig.seed, eyes.scene);
        kova::camera::SimulatedSequence sequence(
            kova::camera::Renderer(std::move(made.value()), kova::camera::makeRig(rig)), {});
        RawFrame frame;
        FrameTruth truth;
        for (int i = 0; i < 2; ++i) (void)sequence.next(frame, &truth);
        const cv::Mat both(height, 2 * width, CV_8U, frame.data.data());
        Pair p{both.colRange(0, width), both.colRange(width, 2 * width),
               cv::Mat(height, width, CV_32F)};
        const double fb = sequence.calibration().left.fx * sequence.calibration().baselineMm();
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const float z = truth.depth_mm.at(x, y);
                // Only what both eyes see, as in the real sets.
                const double d = fb / z;
                bool seen = std::isfinite(z);
                for (int k = 1; seen && k < 60 && x + k < width; ++k)
                    seen = fb / truth.depth_mm.at(x + k, y) < d + k + 0.5;
                p.truth.at<float>(y, x) = seen ? static_cast<float>(d) : 0;
            }
        add(p, figures);
    }
    char name[64];
    std::snprintf(name, sizeof name, "%s %s", scene, eyes.name);
    figures.print(name);
}

}  // namespace

int main(int argc, char** argv) {
    const int seeds = argc > 1 ? std::atoi(argv[1]) : 6;
    if (const char* root = std::getenv("KOVA_TEST_DATA"))
        measureReal(root);
    for (const char* scene : {"street", "room"}) {
        measureSimulated(scene, {"640x400", 640, 400, 120, 760, {}}, seeds);
        measureSimulated(scene, {"1280x720", 1280, 720, 120, 760, {}}, (seeds + 1) / 2);
    }
    // How far a step in depth is seen depends on the camera: the same with those of the real sets.
    Eyes car = {"as KITTI", 1242, 375, 540, 721.5 * 1280 / 1242, {}};
    car.scene.camera_height_mm = 1650;
    car.scene.tilt_deg = 1;
    measureSimulated("street", car, (seeds + 1) / 2);
    measureSimulated("room", {"as Middlebury", 720, 486, 178, 750.0 * 1280 / 720, {}}, seeds);
    return 0;
}
