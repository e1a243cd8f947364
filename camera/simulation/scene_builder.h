#pragma once

#include <string>

#include "camera/simulation/random.h"
#include "camera/simulation/scene.h"

namespace kova::camera {

/// Puts things into a scene. Positions are in the world, in mm; heights are positive upwards.
class SceneBuilder {
public:
    SceneBuilder(std::string name, std::uint32_t seed);

    Random random;
    Scene scene;

    // Materials; each call makes a new one that shows another part of the texture.
    int plain(double base_low, double base_high, double contrast_low, double contrast_high);
    int concrete() { return plain(85, 130, 9, 20); }
    int painted() { return plain(60, 165, 5, 14); }
    int cloth();
    int bricks();
    int tiles();
    int planks();
    int foliage() { return plain(55, 90, 18, 25); }
    int lamp(double level);
    Material& material(int index) { return scene.materials[index]; }

    /// A rectangle of ground around (x, z); pitch [deg] lifts its far end, roll [deg] its left one.
    int patch(double x, double z, double width, double depth, int material,
              SurfaceLabel label = SurfaceLabel::kGround, double height = 0, double pitch_deg = 0,
              double roll_deg = 0);
    /// A rectangle of rough grass, tufts `tufts` [mm] high (standard deviation).
    int lawn(double x, double z, double width, double depth, double tufts, double height,
             double roll_deg);
    /// A box that stands at (x, z), its foot `foot` above the ground plane.
    int box(double x, double z, double width, double height, double depth, int material,
            double foot = 0, double yaw_deg = 0, SurfaceLabel label = SurfaceLabel::kObstacle);
    int cylinder(double x, double z, double radius, double height, int material, double foot = 0,
                 SurfaceLabel label = SurfaceLabel::kObstacle);
    int ellipsoid(double x, double y_centre, double z, double rx, double ry, double rz,
                  int material, SurfaceLabel label = SurfaceLabel::kObstacle);

    /// Loose leaves within an ellipsoid.
    int leaves(double x, double y_centre, double z, double rx, double ry, double rz, int material,
               SurfaceLabel label = SurfaceLabel::kObstacle);
    /// Upright bars `bar` wide with three times that between them, and two rails.
    int railing(double x, double z, double width, double height, double bar, int material,
                double yaw_deg);

    // Things: primitives with an entry in the list of objects. @return the object's index
    int boxObject(double x, double z, double width, double height, double depth,
                  double yaw_deg = 0);
    int post(double x, double z, double diameter, double height);
    int person(double x, double z, double height = 1750);
    /// @param stakes  poles that hold a young one
    int tree(double x, double z, int stakes = 0);
    int plant(double x, double z);
    int bush(double x, double z, double width, double height);
    int car(double x, double z, double yaw_deg);
    int cone(double x, double z);
    int bench(double x, double z, double yaw_deg);
    int table(double x, double z, double yaw_deg);
    int chair(double x, double z, double yaw_deg);
    int shelf(double x, double z, double yaw_deg);
    /// A beam that hangs with its lower edge `clearance` above the ground, across the way.
    int overhang(double x, double z, double width, double clearance);
    /// Any of the smaller things, at most `max_height` high.
    int anything(double x, double z, double max_height = 2000);
    bool indoors = false;  ///< shelves only there

    /// Walls around x in [x0, x1], z in [z0, z1], with a ceiling if `ceiling` is above 0.
    void walls(double x0, double x1, double z0, double z1, double height, double ceiling,
               int material, double foot = 0);
    void windowAt(double x, double y_up, double z, double width, double height, bool facing_x,
                  double level);

    /// A place for a thing as wide as `width` in x +-[x_low, x_high], z in [z_low, z_high] that no
    /// other thing covers; after some tries any.
    struct Place {
        double x = 0, z = 0;
    };
    Place freePlace(double x_low, double x_high, double z_low, double z_high, double width);

    /// Lets an object move back and forth.
    void move(int object, double way_x, double way_z, double period_s, double phase);
    /// Its foot stands at this height instead of 0.
    double ground_offset = 0;

private:
    int add(const Primitive& primitive);
    int begin(const std::string& kind, double x, double z, double width, double height,
              double depth);
    int end();
    void settle(SceneObject& thing, int first, int count);
    int object_ = -1;
    double offset_before_ = 0;
    std::vector<std::pair<int, int>> ranges_;  ///< primitives of each object
};

// The scenes, one function each; see sceneList().
void buildFloor(SceneBuilder& b);
void buildRoom(SceneBuilder& b);
void buildCorridor(SceneBuilder& b);
void buildStreet(SceneBuilder& b);
void buildRamp(SceneBuilder& b, double degrees);
void buildCrossSlope(SceneBuilder& b);
void buildKerb(SceneBuilder& b);
void buildStairs(SceneBuilder& b);
void buildTableEdge(SceneBuilder& b);
void buildObjects(SceneBuilder& b);
void buildPosts(SceneBuilder& b);
void buildOverhang(SceneBuilder& b);
void buildApproach(SceneBuilder& b);
void buildMirror(SceneBuilder& b);
void buildTextureless(SceneBuilder& b);
void buildLowLight(SceneBuilder& b);
void buildVibration(SceneBuilder& b);
void buildDemo(SceneBuilder& b);
void buildCalibrationBoard(SceneBuilder& b);
void buildWall(SceneBuilder& b);

}  // namespace kova::camera
