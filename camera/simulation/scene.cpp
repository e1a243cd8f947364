#include "camera/simulation/scene.h"

#include <algorithm>
#include <cmath>

#include "camera/simulation/random.h"

namespace kova::camera {

namespace {

constexpr double kTwoPi = 6.28318530717958647692;

/// A few incommensurate tones from wheels and motor, amplitude about 1.
double rattle(double t_s, std::uint32_t seed) {
    static constexpr double kTones[3] = {7.3, 13.1, 21.7};
    double sum = 0;
    for (std::uint32_t k = 0; k < 3; ++k)
        sum += std::sin(kTwoPi * (kTones[k] * t_s + unitFloat(hash(seed, k)))) / (1.0 + k);
    return sum / 1.5;
}

/// Position (x, z) and heading [rad] of the robot at a time.
struct Place {
    double x = 0, z = 0, heading = 0;
};

Place placeAt(const CameraPath& path, double t_s) {
    Place place;
    double s = 0;
    if (path.length_mm > 0)
        s = 0.5 * path.length_mm *
            (1.0 - std::cos(2.0 * path.peak_speed_mm_s / path.length_mm * t_s));
    const double wave = kTwoPi / std::max(path.sway_wave_mm, 1.0);
    const double across = path.sway_mm * std::sin(wave * s);
    const double slope = path.sway_mm * wave * std::cos(wave * s);
    const double heading = path.heading_deg * kRadPerDeg;
    place.x = path.start_x_mm + s * std::sin(heading) + across * std::cos(heading);
    place.z = path.start_z_mm + s * std::cos(heading) - across * std::sin(heading);
    place.heading = heading + std::atan(slope);
    return place;
}

}  // namespace

double Scene::groundY(double x_mm, double z_mm) const {
    const auto x = static_cast<float>(x_mm), z = static_cast<float>(z_mm);
    double best = 0;
    bool found = false;
    for (const Primitive& p : primitives) {
        if (p.shape != Shape::kPatch || p.label != SurfaceLabel::kGround)
            continue;
        // The plane n (q - c) = 0 with n = local y, solved for y.
        const Vec3 n = p.rotation.column(1);
        const float y = p.centre.y - (n.x * (x - p.centre.x) + n.z * (z - p.centre.z)) / n.y;
        const Vec3 local = p.rotation.transposed(Vec3{x, y, z} - p.centre);
        if (std::abs(local.x) > p.half.x || std::abs(local.z) > p.half.z)
            continue;
        const double here = y - bumps.height(x, z);
        if (!found || here < best)
            best = here;
        found = true;
    }
    return best;
}

Pose Scene::cameraPose(double t_s) const {
    const Place place = placeAt(path, t_s);
    double y = 0, pitch = 0, roll = 0;
    if (path.follow_ground) {
        constexpr double kLong = 250, kWide = 180;  // half the wheelbase, half the track
        const double sn = std::sin(place.heading), cs = std::cos(place.heading);
        const double front = groundY(place.x + kLong * sn, place.z + kLong * cs);
        const double rear = groundY(place.x - kLong * sn, place.z - kLong * cs);
        const double right = groundY(place.x + kWide * cs, place.z - kWide * sn);
        const double left = groundY(place.x - kWide * cs, place.z + kWide * sn);
        y = 0.25 * (front + rear + left + right);
        pitch = std::atan((rear - front) / (2 * kLong));
        roll = std::atan((right - left) / (2 * kWide));
    }
    const double vibration = path.vibration_deg * kRadPerDeg;
    pitch += vibration * rattle(t_s, hash(seed, 901));
    roll += vibration * rattle(t_s, hash(seed, 902));
    y += path.vibration_mm * rattle(t_s, hash(seed, 903));
    const double look =
        path.look_deg * kRadPerDeg * std::sin(kTwoPi * t_s / std::max(path.look_period_s, 0.1));

    const Mat3 body = rotationY(place.heading + look) * rotationX(pitch) * rotationZ(roll);
    Pose pose;
    pose.rotation =
        body * rotationX(-path.tilt_deg * kRadPerDeg) * rotationZ(path.roll_deg * kRadPerDeg);
    const Vec3 up = body * Vec3{0, -static_cast<float>(path.camera_height_mm), 0};
    pose.position =
        Vec3{static_cast<float>(place.x), static_cast<float>(y), static_cast<float>(place.z)} + up;
    return pose;
}

double Scene::lightAt(double t_s) const {
    return light_level *
           (1.0 + light_swing * std::sin(kTwoPi * t_s / std::max(light_period_s, 0.1)));
}

std::vector<Primitive> Scene::primitivesAt(double t_s) const {
    std::vector<Primitive> moved = primitives;
    for (const Mover& mover : movers) {
        const double s = 0.5 - 0.5 * std::cos(kTwoPi * (t_s / mover.period_s + mover.phase));
        const Vec3 offset = mover.way * static_cast<float>(s);
        for (int i = mover.first; i < mover.first + mover.count; ++i)
            moved[i].centre = moved[i].centre + offset;
    }
    if (showing.poses.empty())
        return moved;
    // A frame that is due at the moment of the change shows the new pose, whatever the rounding.
    const auto turn = static_cast<std::size_t>(std::max(0.0, t_s / showing.hold_s + 1e-6));
    const Pose& held = showing.poses[turn % showing.poses.size()];
    const Pose camera = cameraPose(0);
    const Mat3 rotation = camera.rotation * held.rotation;
    const Vec3 position = camera.rotation * held.position + camera.position;
    for (int i = showing.first; i < showing.first + showing.count; ++i) {
        moved[i].centre = rotation * moved[i].centre + position;
        moved[i].rotation = rotation * moved[i].rotation;
    }
    return moved;
}

}  // namespace kova::camera
