#include "camera/simulation/scene_builder.h"

#include <algorithm>
#include <cmath>

namespace kova::camera {

namespace {

Vec3 vec(double x, double y, double z) {
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

}  // namespace

SceneBuilder::SceneBuilder(std::string name, std::uint32_t seed) : random(hash(seed, 1234567)) {
    scene.name = std::move(name);
    scene.seed = seed;
}

int SceneBuilder::plain(double base_low, double base_high, double contrast_low,
                        double contrast_high) {
    Material m;
    m.base = static_cast<float>(random.uniform(base_low, base_high));
    m.contrast = static_cast<float>(random.uniform(contrast_low, contrast_high));
    const double angle = random.uniform(0, 6.2831853);
    m.cosine = static_cast<float>(std::cos(angle));
    m.sine = static_cast<float>(std::sin(angle));
    m.offset_u = static_cast<float>(random.uniform(0, 4096));
    m.offset_v = static_cast<float>(random.uniform(0, 4096));
    scene.materials.push_back(m);
    return static_cast<int>(scene.materials.size()) - 1;
}

int SceneBuilder::cloth() {
    const int index = plain(45, 150, 7, 18);
    Material& m = scene.materials[index];
    if (random.chance(0.4)) {
        m.pattern = random.chance(0.5) ? Pattern::kStripes : Pattern::kChecks;
        m.pattern_mm = static_cast<float>(random.uniform(25, 70));
        m.pattern_depth = static_cast<float>(random.uniform(12, 40));
    }
    return index;
}

int SceneBuilder::bricks() {
    const int index = plain(85, 130, 9, 15);
    Material& m = scene.materials[index];
    m.pattern = Pattern::kBricks;
    m.pattern_mm = 75;
    m.joint_mm = 11;
    m.pattern_depth = static_cast<float>(random.uniform(-35, 25));
    m.pattern_variety = 9;
    return index;
}

int SceneBuilder::tiles() {
    const int index = plain(95, 145, 6, 13);
    Material& m = scene.materials[index];
    m.pattern = Pattern::kTiles;
    m.pattern_mm = static_cast<float>(random.uniform(280, 620));
    m.joint_mm = static_cast<float>(random.uniform(4, 10));
    m.pattern_depth = static_cast<float>(random.uniform(20, 45));
    m.pattern_variety = static_cast<float>(random.uniform(2, 7));
    return index;
}

int SceneBuilder::planks() {
    const int index = plain(85, 135, 9, 17);
    Material& m = scene.materials[index];
    m.pattern = Pattern::kPlanks;
    m.pattern_mm = static_cast<float>(random.uniform(90, 180));
    m.joint_mm = 4;
    m.pattern_depth = 35;
    m.pattern_variety = 9;
    return index;
}

int SceneBuilder::lamp(double level) {
    const int index = plain(level, level, 4, 4);
    scene.materials[index].glows = true;
    return index;
}

int SceneBuilder::add(const Primitive& primitive) {
    scene.primitives.push_back(primitive);
    scene.primitives.back().object = object_;
    return static_cast<int>(scene.primitives.size()) - 1;
}

int SceneBuilder::begin(const std::string& kind, double x, double z, double width, double height,
                        double depth) {
    object_ = static_cast<int>(scene.objects.size());
    // Things stand on the ground as it is there, bumps included.
    offset_before_ = ground_offset;
    const double ground = -scene.groundY(x, z);
    constexpr double kSameLevel = 40;
    if (std::abs(ground - ground_offset) < kSameLevel)
        ground_offset = ground;
    scene.objects.push_back({kind, vec(x, -ground_offset, z), vec(width, height, depth), false});
    ranges_.emplace_back(static_cast<int>(scene.primitives.size()), 0);
    return object_;
}

int SceneBuilder::end() {
    const int object = object_;
    ranges_[object].second = static_cast<int>(scene.primitives.size()) - ranges_[object].first;
    settle(scene.objects[object], ranges_[object].first, ranges_[object].second);
    ground_offset = offset_before_;
    object_ = -1;
    return object;
}

/// Leans what is not planted upright with a slope under it.
void SceneBuilder::settle(SceneObject& thing, int first, int count) {
    constexpr double kReach = 250, kLevel = 0.03;
    if (thing.kind == "person" || thing.kind == "post" || thing.kind == "tree")
        return;
    if (std::abs(scene.groundY(thing.foot.x, thing.foot.z) - thing.foot.y) > 1)
        return;  // on something else
    const auto slope = [&](double dx, double dz) {
        return (scene.groundY(thing.foot.x - dx, thing.foot.z - dz) -
                scene.groundY(thing.foot.x + dx, thing.foot.z + dz)) /
               (2 * kReach);
    };
    const double ahead = slope(0, kReach), right = slope(kReach, 0);
    if (std::abs(ahead) < kLevel && std::abs(right) < kLevel)
        return;
    const Mat3 lean = rotationX(std::atan(ahead)) * rotationZ(-std::atan(right));
    for (int i = first; i < first + count; ++i) {
        Primitive& p = scene.primitives[i];
        p.centre = thing.foot + lean * (p.centre - thing.foot);
        p.rotation = lean * p.rotation;
    }
}

SceneBuilder::Place SceneBuilder::freePlace(double x_low, double x_high, double z_low,
                                            double z_high, double width) {
    Place place;
    for (int i = 0; i < 20; ++i) {
        place = {random.sign() * random.uniform(x_low, x_high), random.uniform(z_low, z_high)};
        const bool covered =
            std::any_of(scene.objects.begin(), scene.objects.end(), [&](const SceneObject& other) {
                const double reach = 0.5 * (width + std::max(other.size.x, other.size.z));
                return std::hypot(other.foot.x - place.x, other.foot.z - place.z) < reach;
            });
        if (!covered)
            break;
    }
    return place;
}

int SceneBuilder::patch(double x, double z, double width, double depth, int material,
                        SurfaceLabel label, double height, double pitch_deg, double roll_deg) {
    Primitive p;
    p.shape = Shape::kPatch;
    p.centre = vec(x, -height, z);
    p.rotation = rotationX(pitch_deg * kRadPerDeg) * rotationZ(roll_deg * kRadPerDeg);
    p.half = vec(width / 2, 0, depth / 2);
    p.material = material;
    p.label = label;
    p.casts_shadow = false;
    return add(p);
}

int SceneBuilder::lawn(double x, double z, double width, double depth, double tufts, double height,
                       double roll_deg) {
    const int index =
        patch(x, z, width, depth, foliage(), SurfaceLabel::kVerge, height, 0, roll_deg);
    scene.primitives[index].shape = Shape::kLawn;
    scene.primitives[index].half.y = static_cast<float>(tufts);
    return index;
}

int SceneBuilder::box(double x, double z, double width, double height, double depth, int material,
                      double foot, double yaw_deg, SurfaceLabel label) {
    Primitive p;
    p.shape = Shape::kBox;
    p.centre = vec(x, -(ground_offset + foot + height / 2), z);
    p.rotation = rotationY(yaw_deg * kRadPerDeg);
    p.half = vec(width / 2, height / 2, depth / 2);
    p.material = material;
    p.label = label;
    // A rod, not a board: boards always show a face that rays meet.
    p.thin = std::max(std::min(width, depth), std::min(std::max(width, depth), height)) < 120;
    return add(p);
}

int SceneBuilder::cylinder(double x, double z, double radius, double height, int material,
                           double foot, SurfaceLabel label) {
    Primitive p;
    p.shape = Shape::kCylinder;
    p.centre = vec(x, -(ground_offset + foot + height / 2), z);
    p.rotation = rotationY(random.uniform(0, 6.28));
    p.half = vec(radius, height / 2, radius);
    p.material = material;
    p.label = label;
    p.thin = radius < 60;
    return add(p);
}

int SceneBuilder::ellipsoid(double x, double y_centre, double z, double rx, double ry, double rz,
                            int material, SurfaceLabel label) {
    Primitive p;
    p.shape = Shape::kEllipsoid;
    p.centre = vec(x, -(ground_offset + y_centre), z);
    p.rotation = rotationY(random.uniform(0, 6.28));
    p.half = vec(rx, ry, rz);
    p.material = material;
    p.label = label;
    return add(p);
}

int SceneBuilder::leaves(double x, double y_centre, double z, double rx, double ry, double rz,
                         int material, SurfaceLabel label) {
    const int index = ellipsoid(x, y_centre, z, rx, ry, rz, material, label);
    scene.primitives[index].shape = Shape::kLeaves;
    return index;
}

int SceneBuilder::railing(double x, double z, double width, double height, double bar, int material,
                          double yaw_deg) {
    Primitive p;
    p.shape = Shape::kRailing;
    p.centre = vec(x, -(ground_offset + height / 2), z);
    p.rotation = rotationY(yaw_deg * kRadPerDeg);
    p.half = vec(width / 2, height / 2, bar / 2);
    p.material = material;
    p.thin = true;
    return add(p);
}

int SceneBuilder::boxObject(double x, double z, double width, double height, double depth,
                            double yaw_deg) {
    begin("box", x, z, width, height, depth);
    const int material = plain(60, 160, 8, 22);
    Material& m = scene.materials[material];
    if (random.chance(0.4)) {
        // A label or strapping, as parcels have.
        m.pattern = random.chance(0.5) ? Pattern::kTiles : Pattern::kStripes;
        m.pattern_mm = static_cast<float>(random.uniform(0.25, 0.6) * std::max(height, 80.0));
        m.pattern_depth = static_cast<float>(random.uniform(10, 35));
    }
    box(x, z, width, height, depth, material, 0, yaw_deg);
    return end();
}

int SceneBuilder::post(double x, double z, double diameter, double height) {
    begin("post", x, z, diameter, height, diameter);
    const int material = plain(50, 170, 8, 18);
    Material& m = scene.materials[material];
    if (random.chance(0.5)) {
        m.pattern = Pattern::kStripes;
        m.pattern_mm = static_cast<float>(random.uniform(80, 250));
        m.pattern_depth = static_cast<float>(random.uniform(30, 80));
    }
    cylinder(x, z, diameter / 2, height, material);
    return end();
}

int SceneBuilder::person(double x, double z, double height) {
    const double h = height;
    begin("person", x, z, 0.27 * h, h, 0.2 * h);
    const int trousers = plain(35, 90, 7, 15), shirt = cloth(), skin = plain(130, 165, 6, 9);
    const int shoes = plain(25, 60, 5, 9);
    const double turn = random.uniform(0, 6.28), c = std::cos(turn), s = std::sin(turn);
    for (const double side : {-1.0, 1.0}) {
        const double lx = x + side * 0.055 * h * c, lz = z - side * 0.055 * h * s;
        cylinder(lx, lz, 0.045 * h, 0.47 * h, trousers, 0.03 * h);
        ellipsoid(lx + 0.02 * h * s, 0.022 * h, lz + 0.02 * h * c, 0.04 * h, 0.03 * h, 0.065 * h,
                  shoes);
        scene.primitives.back().rotation = rotationY(turn);
        const double ax = x + side * 0.125 * h * c, az = z - side * 0.125 * h * s;
        cylinder(ax, az, 0.028 * h, 0.32 * h, shirt, 0.48 * h);
        ellipsoid(ax, 0.46 * h, az, 0.025 * h, 0.04 * h, 0.025 * h, skin);
    }
    ellipsoid(x, 0.66 * h, z, 0.115 * h, 0.2 * h, 0.075 * h, shirt);
    scene.primitives.back().rotation = rotationY(turn);
    ellipsoid(x, 0.5 * h, z, 0.095 * h, 0.07 * h, 0.075 * h, trousers);
    scene.primitives.back().rotation = rotationY(turn);
    cylinder(x, z, 0.03 * h, 0.08 * h, skin, 0.82 * h);
    ellipsoid(x, 0.925 * h, z, 0.05 * h, 0.072 * h, 0.058 * h, skin);
    ellipsoid(x, 0.945 * h, z, 0.053 * h, 0.06 * h, 0.06 * h, plain(30, 80, 8, 14));
    return end();
}

int SceneBuilder::tree(double x, double z, int stakes) {
    const double height = random.uniform(4500, 6500);
    begin("tree", x, z, 400, height, 400);
    cylinder(x, z, random.uniform(100, 170), height - 900, plain(50, 85, 14, 24));
    const int poles = stakes > 0 ? plain(60, 110, 8, 16) : 0;
    for (int i = 0; i < stakes; ++i) {
        const double angle = 6.2831853 * i / stakes + 0.4;
        cylinder(x + 550 * std::cos(angle), z + 550 * std::sin(angle), 40, 1900, poles);
    }
    const int green = foliage();
    for (int i = 0; i < 6; ++i) {
        const double r = random.uniform(700, 1100);
        leaves(x + random.uniform(-700, 700), random.uniform(2900, height - 900),
               z + random.uniform(-700, 700), r, 0.8 * r, r, green, SurfaceLabel::kOverhead);
    }
    return end();
}

int SceneBuilder::bush(double x, double z, double width, double height) {
    begin("bush", x, z, width, height, width);
    const int green = foliage();
    leaves(x, 0.35 * height, z, 0.5 * width, 0.65 * height, 0.5 * width, green);
    return end();
}

int SceneBuilder::plant(double x, double z) {
    const double height = random.uniform(900, 1400);
    begin("plant", x, z, 0.55 * height, height, 0.55 * height);
    cylinder(x, z, 150, 300, plain(60, 150, 5, 12));
    const int green = foliage();
    leaves(x, 0.3 * height + 0.35 * height, z, 0.28 * height, 0.35 * height, 0.28 * height, green);
    return end();
}

int SceneBuilder::car(double x, double z, double yaw_deg) {
    begin("car", x, z, 1780, 1450, 4300);
    const int paint = plain(50, 180, 4, 9), glass = plain(45, 65, 5, 8),
              tyre = plain(25, 40, 6, 10);
    scene.materials[paint].mirror = 0.35f;
    scene.materials[glass].mirror = 0.5f;
    const double c = std::cos(yaw_deg * kRadPerDeg), s = std::sin(yaw_deg * kRadPerDeg);
    box(x, z, 1780, 560, 4300, paint, 240, yaw_deg);
    box(x - 150 * s, z - 150 * c, 1600, 420, 2500, glass, 800, yaw_deg);
    box(x - 150 * s, z - 150 * c, 1640, 130, 2000, paint, 1220, yaw_deg);
    for (const double along : {-1.0, 1.0})
        for (const double side : {-1.0, 1.0}) {
            Primitive p;
            p.shape = Shape::kCylinder;
            const double lx = side * 810, lz = along * 1300;
            p.centre = vec(x + lx * c + lz * s, -(ground_offset + 310), z - lx * s + lz * c);
            p.rotation = rotationY(yaw_deg * kRadPerDeg) * rotationZ(90 * kRadPerDeg);
            p.half = vec(310, 105, 310);
            p.material = tyre;
            add(p);
        }
    const int light = plain(190, 230, 6, 8);
    for (const double side : {-1.0, 1.0})
        box(x + side * 650 * c - 2160 * s, z - side * 650 * s - 2160 * c, 300, 120, 40, light, 560,
            yaw_deg);
    return end();
}

int SceneBuilder::cone(double x, double z) {
    begin("cone", x, z, 300, 500, 300);
    const int orange = plain(125, 150, 6, 10), white = plain(190, 205, 4, 7);
    box(x, z, 300, 30, 300, orange, 0, random.uniform(0, 90));
    for (int i = 0; i < 6; ++i)
        cylinder(x, z, 110 - 15 * i, 80, i == 2 || i == 4 ? white : orange, 30 + 78 * i);
    return end();
}

int SceneBuilder::bench(double x, double z, double yaw_deg) {
    begin("bench", x, z, 1500, 820, 450);
    const int wood = planks(), iron = plain(40, 70, 6, 10);
    const double c = std::cos(yaw_deg * kRadPerDeg), s = std::sin(yaw_deg * kRadPerDeg);
    for (const double side : {-1.0, 1.0})
        box(x + side * 600 * c, z - side * 600 * s, 60, 430, 400, iron, 0, yaw_deg);
    box(x, z, 1500, 50, 420, wood, 430, yaw_deg);
    box(x + 200 * s, z + 200 * c, 1500, 260, 40, wood, 560, yaw_deg);
    return end();
}

int SceneBuilder::table(double x, double z, double yaw_deg) {
    begin("table", x, z, 1200, 740, 700);
    const int wood = planks(), legs = plain(50, 90, 6, 12);
    const double c = std::cos(yaw_deg * kRadPerDeg), s = std::sin(yaw_deg * kRadPerDeg);
    for (const double i : {-1.0, 1.0})
        for (const double k : {-1.0, 1.0})
            cylinder(x + i * 550 * c + k * 300 * s, z - i * 550 * s + k * 300 * c, 28, 700, legs);
    box(x, z, 1200, 40, 700, wood, 700, yaw_deg);
    box(x + random.uniform(-300, 300), z, 260, random.uniform(100, 280), 200, plain(90, 180, 8, 20),
        740, random.uniform(0, 90));
    return end();
}

int SceneBuilder::chair(double x, double z, double yaw_deg) {
    begin("chair", x, z, 440, 860, 440);
    const int seat = cloth(), legs = plain(45, 100, 5, 10);
    const double c = std::cos(yaw_deg * kRadPerDeg), s = std::sin(yaw_deg * kRadPerDeg);
    for (const double i : {-1.0, 1.0})
        for (const double k : {-1.0, 1.0})
            cylinder(x + i * 190 * c + k * 190 * s, z - i * 190 * s + k * 190 * c, 16, 440, legs);
    box(x, z, 440, 50, 440, seat, 430, yaw_deg);
    box(x + 200 * s, z + 200 * c, 420, 380, 40, seat, 480, yaw_deg);
    return end();
}

int SceneBuilder::shelf(double x, double z, double yaw_deg) {
    begin("shelf", x, z, 1000, 1900, 380);
    const int wood = plain(70, 120, 8, 14);
    const double c = std::cos(yaw_deg * kRadPerDeg), s = std::sin(yaw_deg * kRadPerDeg);
    box(x + 180 * s, z + 180 * c, 1000, 1900, 20, wood, 0, yaw_deg);
    for (const double side : {-1.0, 1.0})
        box(x + side * 490 * c, z - side * 490 * s, 20, 1900, 380, wood, 0, yaw_deg);
    for (int level = 0; level < 5; ++level) {
        const double foot = 60 + 440 * level;
        box(x, z, 980, 22, 360, wood, foot, yaw_deg);
        if (level == 4)
            break;
        double along = -440;
        while (along < 380) {
            const double width = random.uniform(60, 220);
            box(x + (along + width / 2) * c, z - (along + width / 2) * s, width,
                random.uniform(180, 380), random.uniform(180, 300), plain(50, 175, 8, 20),
                foot + 22, yaw_deg);
            along += width + random.uniform(10, 90);
        }
    }
    return end();
}

int SceneBuilder::overhang(double x, double z, double width, double clearance) {
    begin("overhang", x, z, width, 250, 250);
    scene.objects.back().overhead = true;
    box(x, z, width, 250, 250, plain(70, 150, 9, 18), clearance, 0, SurfaceLabel::kOverhead);
    return end();
}

int SceneBuilder::anything(double x, double z, double max_height) {
    switch (random.integer(0, max_height >= 1700 ? 7 : 4)) {
        case 0:
            return cone(x, z);
        case 1:
            return post(x, z, random.uniform(60, 140),
                        random.uniform(0.5, 1.0) * std::min(max_height, 1100.0));
        case 5:
            return person(x, z, random.uniform(1550, 1900));
        case 6:
            if (!indoors)
                return person(x, z, random.uniform(1100, 1500));
            return shelf(x, z, random.uniform(-40, 40));
        case 7:
            return post(x, z, random.uniform(60, 120), max_height);
        default:
            return boxObject(x, z, random.uniform(150, 700),
                             random.uniform(150, std::min(max_height, 1000.0)),
                             random.uniform(150, 600), random.uniform(0, 90));
    }
}

void SceneBuilder::walls(double x0, double x1, double z0, double z1, double height, double ceiling,
                         int material, double foot) {
    constexpr double kThick = 200;
    const double wide = x1 - x0, deep = z1 - z0, xm = 0.5 * (x0 + x1), zm = 0.5 * (z0 + z1);
    const auto wall = [&](double x, double z, double w, double d) {
        scene.primitives[box(x, z, w, height, d, material, foot)].casts_shadow = false;
    };
    wall(x0 - kThick / 2, zm, kThick, deep + 2 * kThick);
    wall(x1 + kThick / 2, zm, kThick, deep + 2 * kThick);
    wall(xm, z1 + kThick / 2, wide, kThick);
    wall(xm, z0 - kThick / 2, wide, kThick);
    if (ceiling <= 0)
        return;
    const int top = box(xm, zm, wide + 600, 200, deep + 600, plain(150, 175, 4, 8), ceiling, 0,
                        SurfaceLabel::kOverhead);
    scene.primitives[top].casts_shadow = false;
}

void SceneBuilder::windowAt(double x, double y_up, double z, double width, double height,
                            bool facing_x, double level) {
    const int glass = lamp(level), frame = plain(150, 190, 4, 8);
    const auto pane = [&](double w, double h, double thick, int material, double foot) {
        const int i = facing_x ? box(x, z, thick, h, w, material, foot)
                               : box(x, z, w, h, thick, material, foot);
        scene.primitives[i].casts_shadow = false;
    };
    pane(width + 120, height + 120, 30, frame, y_up - 60);
    pane(width, height, 50, glass, y_up);
    pane(60, height, 70, frame, y_up);
}

void SceneBuilder::move(int object, double way_x, double way_z, double period_s, double phase) {
    Mover mover;
    mover.first = ranges_[object].first;
    mover.count = ranges_[object].second;
    mover.object = object;
    mover.way = vec(way_x, 0, way_z);
    mover.period_s = period_s;
    mover.phase = phase;
    scene.movers.push_back(mover);
}

}  // namespace kova::camera
