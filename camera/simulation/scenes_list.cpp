#include <algorithm>
#include <cmath>
#include <functional>

#include "camera/simulation/scene_builder.h"

namespace kova::camera {

namespace {

struct Entry {
    SceneDescription about;
    std::function<void(SceneBuilder&)> build;
};

const std::vector<Entry>& entries() {
    static const std::vector<Entry> all = {
        {{"demo", "a yard with people, posts, boxes and cones at many distances"}, buildDemo},
        {{"floor", "open floor of a hall, nothing near"}, buildFloor},
        {{"room", "cluttered room: tables, chairs, shelves, a person"}, buildRoom},
        {{"corridor", "narrow corridor with doors, boxes and a person"}, buildCorridor},
        {{"street", "street with kerbs, lawns, parked cars, posts, trees, people"}, buildStreet},
        {{"ramp_up", "flat floor, then a ramp of 6 degrees upwards"},
         [](SceneBuilder& b) { buildRamp(b, 6); }},
        {{"ramp_down", "flat floor, then a ramp of 6 degrees downwards"},
         [](SceneBuilder& b) { buildRamp(b, -6); }},
        {{"cross_slope", "ground that falls 5 degrees to one side"}, buildCrossSlope},
        {{"kerb", "road with a kerb of 80 to 150 mm ahead or beside"}, buildKerb},
        {{"stairs", "platform before stairs that go down"}, buildStairs},
        {{"table_edge", "table or loading platform whose edge is a drop"}, buildTableEdge},
        {{"objects", "objects 10, 20, 50 and 150 cm high at 1 to 15 m"}, buildObjects},
        {{"posts", "thin posts and wires"}, buildPosts},
        {{"overhang", "beams that hang over the way"}, buildOverhang},
        {{"approach", "drives at an object or a wall from 2 m to 0.2 m"}, buildApproach},
        {{"wall", "a plain wall across the way and flat ground"}, buildWall},
        {{"mirror", "polished floor and panes that reflect"}, buildMirror},
        {{"textureless", "walls and boxes almost without texture"}, buildTextureless},
        {{"low_light", "room with a twentieth of the light"}, buildLowLight},
        {{"vibration", "rough drive: the camera shakes"}, buildVibration},
        {{"calibration_board",
          "a chessboard, 9x6 inner corners of 60 mm, shown in 30 poses of 0.2 s"},
         buildCalibrationBoard},
    };
    return all;
}

}  // namespace

const std::vector<SceneDescription>& sceneList() {
    static const std::vector<SceneDescription> list = [] {
        std::vector<SceneDescription> names;
        for (const Entry& entry : entries()) names.push_back(entry.about);
        return names;
    }();
    return list;
}

Result<Scene> makeScene(const std::string& name, std::uint32_t seed, const SceneOptions& options) {
    const auto entry = std::find_if(entries().begin(), entries().end(),
                                    [&](const Entry& e) { return e.about.name == name; });
    if (entry == entries().end()) {
        std::string known;
        for (const Entry& e : entries()) known += (known.empty() ? "" : ", ") + e.about.name;
        return Status(ErrorCode::kInvalidArgument,
                      "unknown scene '" + name + "'; known are " + known);
    }
    SceneBuilder builder(name, seed);
    if (!options.flat_ground)
        builder.scene.bumps = BumpMap(hash(seed, 99), builder.random.uniform(5, 10));
    entry->build(builder);

    Scene scene = std::move(builder.scene);
    scene.light = normalized(scene.light);
    if (!std::isnan(options.camera_height_mm))
        scene.path.camera_height_mm = options.camera_height_mm;
    if (!std::isnan(options.tilt_deg))
        scene.path.tilt_deg = options.tilt_deg;
    if (!std::isnan(options.roll_deg))
        scene.path.roll_deg = options.roll_deg;
    for (Material& m : scene.materials) {
        const auto scale = static_cast<float>(options.texture_scale);
        m.contrast *= scale;
        m.pattern_depth *= scale;
        m.pattern_variety *= scale;
    }
    return scene;
}

}  // namespace kova::camera
