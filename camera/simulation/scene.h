#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/simulation/texture.h"
#include "camera/simulation/vector.h"

namespace kova::camera {

/// What a pixel shows, for the truth.
enum class SurfaceLabel : std::uint8_t {
    kBackground = 0,  ///< sky, nothing
    kGround = 1,      ///< where the robot may drive, ramps within the usual slope included
    kObstacle = 2,    ///< stands on the ground
    kDrop = 3,        ///< lies lower than the ground: below an edge, in a hole, stairs going down
    kRaised = 4,      ///< level, but higher than the ground: a pavement behind a kerb, a step
    kOverhead = 5,    ///< hangs over the ground: ceilings, overhangs
    kVerge = 6,       ///< lawn beside the way: rises and falls, but nothing stands there
};

enum class Pattern : std::uint8_t { kNone, kTiles, kBricks, kPlanks, kStripes, kChecks };

/// How a surface looks. Grey levels are those of an unsaturated picture at the nominal exposure,
/// in full light.
struct Material {
    float base = 110;     ///< mean [grey levels]
    float contrast = 12;  ///< deviation of the 1/f texture [grey levels]
    float cosine = 1, sine = 0;
    float offset_u = 0, offset_v = 0;  ///< which part of the texture [mm]
    Pattern pattern = Pattern::kNone;
    float pattern_mm = 300;      ///< size of one tile, brick, stripe
    float joint_mm = 8;          ///< width of the joints
    float pattern_depth = 0;     ///< how much darker joints or dark fields are [grey levels]
    float pattern_variety = 0;   ///< difference between tiles [grey levels]
    float mirror = 0;            ///< share of the light that is reflected
    bool mirrors_scene = false;  ///< reflects what stands around, not only the sky
    bool glows = false;          ///< a lamp or a window: light does not matter
};

enum class Shape : std::uint8_t {
    kPatch,      ///< rectangle in local x and z, up is -y, with the unevenness of the ground
    kBox,        ///< half sizes in local x, y, z
    kCylinder,   ///< along local y: radius half.x, half height half.y
    kEllipsoid,  ///< half axes
    kLeaves,     ///< half axes of an ellipsoid of loose leaves, seen through at its rim
    kRailing,    ///< bars along local y in the rectangle half.x, half.y; half.z: half a bar's width
    kLawn,       ///< like a patch, with tufts instead; half.y: deviation of its heights
};

struct Primitive {
    Shape shape = Shape::kBox;
    Vec3 centre;    ///< [mm]
    Mat3 rotation;  ///< world from local
    Vec3 half;      ///< [mm]
    int material = 0;
    SurfaceLabel label = SurfaceLabel::kObstacle;
    int object = -1;  ///< index into Scene::objects
    bool casts_shadow = true;
    bool thin = false;  ///< may be narrower than a pixel
};

/// A thing that stands in the scene, for the truth.
struct SceneObject {
    std::string kind;
    Vec3 foot;  ///< centre of its foot, where it stands at time 0 [mm]
    Vec3 size;  ///< width, height, depth [mm]
    bool overhead = false;
};

/// Primitives that move together, back and forth on a line.
struct Mover {
    int first = 0, count = 0;  ///< primitives
    int object = -1;
    Vec3 way;             ///< from one end to the other [mm]
    double period_s = 8;  ///< there and back
    double phase = 0;     ///< [periods]
};

/// Primitives that are shown to the camera in one pose after another, as a hand holds a board.
struct Showing {
    int first = 0, count = 0;  ///< primitives, given in the frame of the thing that is shown
    std::vector<Pose> poses;   ///< in the left camera's frame at time 0; from the last to the first
    double hold_s = 0.2;       ///< time in each pose
};

/// The way of the robot: forward and back along a sine in the plane, starting at rest.
struct CameraPath {
    double start_x_mm = 0, start_z_mm = 0;
    double length_mm = 10000;
    double peak_speed_mm_s = 800;
    double sway_mm = 150;        ///< amplitude of the sine
    double sway_wave_mm = 6000;  ///< its wavelength
    double heading_deg = 0;      ///< of the whole way, to the right
    double look_deg = 0;         ///< amplitude of the camera's slow looking around
    double look_period_s = 7;
    double camera_height_mm = 600;
    double tilt_deg = 8;          ///< downwards
    double roll_deg = 0;          ///< clockwise as the picture sees the world turn the other way
    double vibration_deg = 0.03;  ///< amplitude of pitch and roll from wheels and motor
    double vibration_mm = 0.1;
    bool follow_ground = true;  ///< height, pitch and roll of the ground under the wheels
};

struct Scene {
    std::string name;
    std::uint32_t seed = 0;
    std::vector<Material> materials;
    std::vector<Primitive> primitives;
    std::vector<SceneObject> objects;
    std::vector<Mover> movers;
    Showing showing;  ///< none without poses
    CameraPath path;
    BumpMap bumps;
    Vec3 light = {0.3f, -0.85f, -0.4f};  ///< towards the sun or the lamps, of length 1
    float ambient = 0.55f;               ///< light in the shadow, of 1
    float shadow = 1;                    ///< depth of the shadows
    float sky = 215;                     ///< [grey levels]
    float sky_contrast = 8;
    float light_level = 1;   ///< of the whole scene; below 1 dark
    double light_swing = 0;  ///< slow change of the light, share of 1
    double light_period_s = 6;

    /// Height of the ground at a place, world y [mm] (up is negative).
    double groundY(double x_mm, double z_mm) const;
    /// Where the left camera is at a time.
    Pose cameraPose(double t_s) const;
    /// Light at a time, share of the nominal.
    double lightAt(double t_s) const;
    /// Primitives as they stand at a time.
    std::vector<Primitive> primitivesAt(double t_s) const;
};

struct SceneOptions {
    /// NaN leaves the scene's own value.
    double camera_height_mm = std::numeric_limits<double>::quiet_NaN();
    double tilt_deg = std::numeric_limits<double>::quiet_NaN();
    double roll_deg = std::numeric_limits<double>::quiet_NaN();
    double texture_scale = 1;  ///< factor on the contrast of all textures and patterns
    bool flat_ground = false;  ///< without unevenness, for exact tests
};

struct SceneDescription {
    std::string name;
    std::string description;
};

/// All scenes that makeScene() knows.
const std::vector<SceneDescription>& sceneList();

/// Builds a scene. The same name, seed and options give the same scene.
/// @return kInvalidArgument for an unknown name, with the known ones
Result<Scene> makeScene(const std::string& name, std::uint32_t seed,
                        const SceneOptions& options = {});

}  // namespace kova::camera
