// Calibration from the simulator's board, judged by what the pictures were rendered with.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "camera/calibration/calibrator.h"
#include "camera/calibration/lens.h"
#include "camera/simulation/film.h"
#include "camera/simulation/renderer.h"
#include "camera/simulation/rig.h"

namespace kova::camera {
namespace {

/// Where a pixel's direction comes to lie with another lens: mean square and largest shift [px]
/// over the picture. A shift that is the same everywhere is left out: it is a turn of the camera,
/// which is not to be told from the boards' and leaves distances as they are.
struct Shift {
    double rms = 0, largest = 0;
};

Shift shiftOf(const CameraIntrinsics& truth, const CameraIntrinsics& found, int width, int height) {
    std::vector<std::array<double, 2>> offs;
    std::array<double, 2> mean = {0, 0};
    for (int y = 0; y < height; y += 9)
        for (int x = 0; x < width; x += 9) {
            const std::array<double, 2> d = directionOfPixel(truth, x, y);
            const ImagePoint p = projectRay(found, {d[0], d[1], 1});
            offs.push_back({p.x - x, p.y - y});
            mean[0] += offs.back()[0];
            mean[1] += offs.back()[1];
        }
    const auto count = static_cast<double>(offs.size());
    Shift shift;
    for (const std::array<double, 2>& o : offs) {
        const double off = std::hypot(o[0] - mean[0] / count, o[1] - mean[1] / count);
        shift.rms += off * off / count;
        shift.largest = std::max(shift.largest, off);
    }
    shift.rms = std::sqrt(shift.rms);
    return shift;
}

/// How far the lens moves the picture's corner [px].
double distortionAtTheCorner(const CameraIntrinsics& eye) {
    const std::array<double, 2> d = directionOfPixel(eye, 0, 0);
    CameraIntrinsics ideal = eye;
    ideal.distortion.clear();
    const ImagePoint p = projectRay(ideal, {d[0], d[1], 1});
    return std::hypot(p.x, p.y);
}

TEST(SimulatedBoard, LensesAndBaselineAreRecoveredWithinHalfAPercent) {
    RigOptions options;
    options.lens_distortion = true;
    Result<Scene> scene = makeScene("calibration_board", 1);
    ASSERT_TRUE(scene.ok());
    const double hold_s = scene.value().showing.hold_s;
    const auto poses = static_cast<int>(scene.value().showing.poses.size());
    Renderer renderer(std::move(scene.value()), makeRig(options));
    const SimulatedRig& rig = renderer.rig();
    Film film(rig);

    Board board;
    board.square_mm = 60;
    CalibratorOptions free;
    free.freedom = LensFreedom::kFree;
    StereoCalibrator calibrator(board, free);
    LightPair light;
    std::vector<std::uint8_t> pair;
    for (int i = 0; i < poses; ++i) {
        renderer.render(i * hold_s, kNominalExposureUs * 1e-6, light);
        film.expose(light, {}, i, pair);
        const ImageView<const std::uint8_t> left{pair.data(), rig.width, rig.height, 2 * rig.width};
        ImageView<const std::uint8_t> right = left;
        right.data += rig.width;
        calibrator.add(std::to_string(i), left, right);
    }
    EXPECT_GE(calibrator.viewCount(), 24);
    EXPECT_EQ("", calibrator.coverage().missing());
    CalibrationReport report;
    const Status status = calibrator.calibrate(report);
    ASSERT_TRUE(status.ok()) << status.message();

    const StereoCalibration& truth = rig.rendered;
    const StereoCalibration& found = report.calibration;
    EXPECT_EQ(4u, found.left.distortion.size()) << "no fifth coefficient where there is none";
    EXPECT_NEAR(truth.baselineMm(), found.baselineMm(), 0.005 * truth.baselineMm());
    EXPECT_LT(report.epipolar_rms_px, 0.15);
    for (const auto& [name, a, b] :
         {std::tuple("left", &truth.left, &found.left), {"right", &truth.right, &found.right}}) {
        SCOPED_TRACE(name);
        const double size = distortionAtTheCorner(*a);
        const Shift shift = shiftOf(*a, *b, rig.width, rig.height);
        std::printf(
            "%s: distortion %.1f px at the corner, off by %.3f px rms, %.3f px at most; "
            "k1 %.4f for %.4f, fx %.2f for %.2f\n",
            name, size, shift.rms, shift.largest, b->distortion[0], a->distortion[0], b->fx, a->fx);
        EXPECT_GT(size, 40);
        EXPECT_LT(shift.rms, 0.0015 * size);
        EXPECT_LT(shift.largest, 0.005 * size);
        EXPECT_NEAR(a->fx, b->fx, 0.005 * a->fx);
    }
    std::printf("baseline %.3f for %.3f mm\n", found.baselineMm(), truth.baselineMm());
}

}  // namespace
}  // namespace kova::camera
