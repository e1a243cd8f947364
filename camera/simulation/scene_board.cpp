#include <algorithm>
#include <cmath>

#include "camera/simulation/scene_builder.h"

namespace kova::camera {

namespace {

constexpr double kSquare = 60;  // [mm]
constexpr int kColumns = 10, kRows = 7;
constexpr int kPoses = 30;
constexpr double kBaseline = 120;  // of the eyes to which the board is shown [mm]

/// What a lens makes of a direction x/z or y/z at this distance from the axis, squared.
double lensScale(double r2, bool barrel) {
    return barrel ? 1 - 0.17 * r2 + 0.04 * r2 * r2 : 1;
}

/// Every corner of the outermost squares lies in the pictures of both eyes.
bool bothEyesSee(const Pose& pose, bool barrel) {
    // A little less than half of a picture of 8:5, at the focal length of the simulated camera.
    constexpr double kHalfWidth = 0.83, kHalfHeight = 0.515;
    for (const int sx : {-1, 1})
        for (const int sy : {-1, 1}) {
            const Vec3 p = pose.rotation * Vec3{static_cast<float>(sx * kColumns * kSquare / 2),
                                                static_cast<float>(sy * kRows * kSquare / 2), 0} +
                           pose.position;
            for (const double eye : {0.0, kBaseline}) {
                const double x = (p.x - eye) / p.z, y = p.y / p.z;
                const double scale = lensScale(x * x + y * y, barrel);
                if (std::abs(x * scale) > kHalfWidth || std::abs(y * scale) > kHalfHeight)
                    return false;
            }
        }
    return true;
}

/// Moves the board from the middle towards an area of the picture, as far as both eyes see it.
Pose poseTowards(double column, double row, Pose pose, bool barrel) {
    const double z = pose.position.z;
    const auto at = [&](double share) {
        pose.position.x = static_cast<float>(kBaseline / 2 + share * column * z);
        pose.position.y = static_cast<float>(share * row * 0.6 * z);
        return pose;
    };
    double reached = 0;
    for (double share = 0; share < 1; share += 0.01)
        if (bothEyesSee(at(share), barrel))
            reached = share;
    return at(reached);
}

}  // namespace

void buildCalibrationBoard(SceneBuilder& b) {
    b.indoors = true;
    b.scene.light = {0.2f, -0.7f, -0.7f};  // a lamp above and behind the camera
    b.scene.ambient = 0.7f;
    b.scene.shadow = 0;
    b.patch(0, 4000, 14000, 24000, b.concrete());
    b.walls(-3500, 3500, -3000, 5200, 3000, 0, b.painted());
    // Its fields are boxes of no thickness on a white plate.
    const int white = b.plain(175, 180, 1, 2), black = b.plain(22, 26, 1, 2);
    Showing& showing = b.scene.showing;
    showing.first = static_cast<int>(b.scene.primitives.size());
    b.box(0, 0, (kColumns + 2) * kSquare, (kRows + 2) * kSquare, 10, white);
    b.scene.primitives.back().centre = {0, 0, 5};
    for (int row = 0; row < kRows; ++row)
        for (int column = row % 2; column < kColumns; column += 2) {
            b.box(0, 0, kSquare, kSquare, 0.2, black);
            b.scene.primitives.back().centre = {
                static_cast<float>((column - 0.5 * (kColumns - 1)) * kSquare),
                static_cast<float>((row - 0.5 * (kRows - 1)) * kSquare), -0.1f};
        }
    showing.count = static_cast<int>(b.scene.primitives.size()) - showing.first;
    for (int i = showing.first; i < showing.first + showing.count; ++i) {
        b.scene.primitives[i].thin = false;
        b.scene.primitives[i].casts_shadow = false;
    }

    // All areas of the picture in turn, tilted to all sides. The edges of pictures with lens
    // distortion lie farther out than those without: the poses serve one and the other in turn.
    constexpr int kAreas[9] = {4, 0, 8, 2, 6, 1, 7, 3, 5};
    for (int i = 0; i < kPoses; ++i) {
        const int area = kAreas[i % 9];
        const double side = i % 2 ? 1 : -1, other = i / 2 % 2 ? 1 : -1;
        const double yaw = side * b.random.uniform(5, 35), pitch = other * b.random.uniform(5, 35);
        Pose pose;
        pose.rotation = rotationY(yaw * kRadPerDeg) * rotationX(pitch * kRadPerDeg) *
                        rotationZ(b.random.uniform(-15, 15) * kRadPerDeg);
        pose.position.z =
            static_cast<float>(b.random.uniform(i % 4 ? 700 : 1000, i % 4 ? 1000 : 1300));
        showing.poses.push_back(poseTowards(area % 3 - 1, area / 3 - 1, pose, i % 3 != 0));
    }
    b.scene.path.camera_height_mm = 1000;
    b.scene.path.follow_ground = false;
    b.scene.path.tilt_deg = 0;
    b.scene.path.length_mm = 0;
    b.scene.path.sway_mm = 0;
    b.scene.path.vibration_deg = 0;
    b.scene.path.vibration_mm = 0;
}

}  // namespace kova::camera
