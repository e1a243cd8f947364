#include <cmath>

#include "camera/simulation/scene_builder.h"

namespace kova::camera {

namespace {

/// Lamps overhead: soft shadows, much light from everywhere.
void lightIndoors(SceneBuilder& b) {
    b.indoors = true;
    b.scene.light = {static_cast<float>(b.random.uniform(-0.3, 0.3)), -0.9f,
                     static_cast<float>(b.random.uniform(-0.35, 0.1))};
    b.scene.ambient = 0.68f;
    b.scene.shadow = 0.6f;
}

void ceilingLamps(SceneBuilder& b, double x, double z0, double z1, double ceiling, double step) {
    const int glow = b.lamp(420);
    for (double z = z0; z < z1; z += step) {
        const int i = b.box(x, z, 300, 40, 1200, glow, ceiling - 45, 0, SurfaceLabel::kOverhead);
        b.scene.primitives[i].casts_shadow = false;
    }
}

int someFloor(SceneBuilder& b) {
    switch (b.random.integer(0, 2)) {
        case 0:
            return b.tiles();
        case 1:
            return b.planks();
        default:
            return b.concrete();
    }
}

}  // namespace

void buildFloor(SceneBuilder& b) {
    lightIndoors(b);
    b.patch(0, 15000, 26000, 40000, someFloor(b));
    b.walls(-12500, 12500, -4000, 33000, 6000, 6000, b.bricks());
    for (int i = 0; i < 6; ++i)
        b.windowAt(i % 2 ? 12480 : -12480, 2400, 4000 + 4500 * i, 1800, 1600, true, 330);
    b.scene.path.length_mm = 8000;
    b.scene.path.peak_speed_mm_s = 1000;
}

void buildRoom(SceneBuilder& b) {
    lightIndoors(b);
    const double half = b.random.uniform(2600, 3400), far = b.random.uniform(7500, 9500);
    b.patch(0, 3500, 9000, 16000, someFloor(b));
    b.walls(-half, half, -2500, far, 2700, 2700, b.painted());
    b.windowAt(b.random.uniform(-900, 900), 950, far - 20, 1300, 1200, false, 360);
    b.windowAt(half - 20, 950, b.random.uniform(3000, 5500), 1400, 1200, true, 320);
    ceilingLamps(b, 0, 1500, far, 2700, 2400);
    b.shelf(-half + 250, b.random.uniform(2200, 3200), -90);
    b.shelf(-half + 250, b.random.uniform(4600, 5600), -90);
    b.shelf(b.random.uniform(800, 1900), far - 260, 0);
    b.table(half - 800, b.random.uniform(3000, 4200), b.random.uniform(60, 120));
    b.table(b.random.uniform(-1200, -400), b.random.uniform(5200, 6400), b.random.uniform(-30, 30));
    const auto someone = b.freePlace(300, 1500, 4500, 6800, 600);
    b.person(someone.x, someone.z);
    for (int i = 0; i < 5; ++i) {
        const auto place = b.freePlace(700, half - 500, 2600, far - 1200, 620);
        b.chair(place.x, place.z, b.random.uniform(0, 360));
    }
    for (int i = 0; i < 3; ++i) {
        const auto place = b.freePlace(900, half - 500, 2600, far - 800, 700);
        b.plant(place.x, place.z);
    }
    for (int i = 0; i < 5; ++i) {
        const auto place = b.freePlace(450, half - 400, 1800, far - 800, 500);
        b.boxObject(place.x, place.z, b.random.uniform(150, 450), b.random.uniform(120, 500),
                    b.random.uniform(150, 450), b.random.uniform(0, 90));
    }
    // Blinds, panelling: a pattern that repeats.
    b.railing(-half + 30, b.random.uniform(6200, far - 900), 1500, 2000, 30, b.painted(), 90);
    // Pictures on the walls.
    for (int i = 0; i < 5; ++i) {
        const int picture = b.cloth();
        const double side = b.random.sign();
        b.box(side * (half - 12), b.random.uniform(1500, far - 500), 24, b.random.uniform(400, 800),
              b.random.uniform(500, 1100), picture, b.random.uniform(1100, 1500));
    }
    b.scene.path.length_mm = 1600;
    b.scene.path.peak_speed_mm_s = 350;
    b.scene.path.sway_mm = 80;
    b.scene.path.sway_wave_mm = 2500;
    b.scene.path.look_deg = 10;
}

void buildCorridor(SceneBuilder& b) {
    lightIndoors(b);
    const double half = b.random.uniform(900, 1300), far = 24000;
    b.patch(0, 10000, 4000, 32000, someFloor(b));
    b.walls(-half, half, -3000, far, 2600, 2600, b.painted());
    ceilingLamps(b, 0, 800, far, 2600, 3000);
    const int wood = b.planks(), board = b.painted();
    for (double z = 1500; z < far - 1500; z += b.random.uniform(2300, 3600)) {
        const double side = b.random.sign();
        b.box(side * (half - 15), z, 30, 2050, 950, wood);
        b.box(-side * (half - 10), z + 900, 20, b.random.uniform(300, 700),
              b.random.uniform(400, 900), b.cloth(), b.random.uniform(1200, 1500));
    }
    for (const double side : {-1.0, 1.0}) b.box(side * (half - 6), 10000, 12, 90, 28000, board);
    for (int i = 0; i < 5; ++i)
        b.anything(b.random.sign() * b.random.uniform(0.45, 0.75) * half, 3000 + 2400 * i, 900);
    const int walker = b.person(0.3 * half, 9000);
    b.move(walker, -0.5 * half, -3500, 9, b.random.uniform());
    b.windowAt(0, 700, far - 20, 1200, 1500, false, 340);
    b.scene.path.length_mm = 9000;
    b.scene.path.peak_speed_mm_s = 900;
    b.scene.path.sway_mm = 60;
}

void buildStairs(SceneBuilder& b) {
    lightIndoors(b);
    const double edge = b.random.uniform(3200, 4200);
    const int floor = someFloor(b), steps = b.concrete();
    b.patch(0, edge / 2 - 3000, 6000, edge + 6000, floor);
    constexpr double kRise = 170, kTread = 290;
    constexpr int kSteps = 12;
    for (int i = 0; i < kSteps; ++i)
        b.box(0, edge + (i + 0.5) * kTread, 6000, 3000, kTread, steps, -3000 - (i + 1) * kRise, 0,
              SurfaceLabel::kDrop);
    b.patch(0, edge + kSteps * kTread + 6000, 6000, 12000, b.concrete(), SurfaceLabel::kDrop,
            -kSteps * kRise);
    // The face below the edge of the platform.
    b.box(0, edge - 100, 6000, 400, 190, steps, -420, 0, SurfaceLabel::kDrop);
    b.walls(-3000, 3000, -6000, edge + 13000, 6000, 2900, b.bricks(), -3000);
    for (const double side : {-1.0, 1.0}) b.post(side * 1400, edge - 150, 60, 1000);
    ceilingLamps(b, 0, 1000, edge + 6000, 2900, 3000);
    b.scene.path.length_mm = edge - 1600;
    b.scene.path.peak_speed_mm_s = 500;
}

void buildTableEdge(SceneBuilder& b) {
    lightIndoors(b);
    const double edge = b.random.uniform(2300, 3200), height = b.random.uniform(700, 1100);
    b.patch(0, edge / 2 - 3000, 7000, edge + 6000, someFloor(b));
    b.box(0, edge - 100, 7000, 200, 190, b.concrete(), -220, 0, SurfaceLabel::kDrop);
    b.patch(0, 12000, 24000, 40000, b.concrete(), SurfaceLabel::kDrop, -height);
    b.ground_offset = -height;
    for (int i = 0; i < 6; ++i)
        b.anything(b.random.uniform(-3500, 3500), edge + 1800 + 1300 * i, 1900);
    b.walls(-9000, 9000, -6000, 15000, 6000, 0, b.bricks());
    b.ground_offset = 0;
    b.boxObject(-1100, edge - 500, 250, 200, 250, 20);
    b.scene.path.length_mm = edge - 1100;
    b.scene.path.peak_speed_mm_s = 400;
    b.scene.sky = 150;
}

void buildApproach(SceneBuilder& b) {
    lightIndoors(b);
    b.patch(0, 5000, 14000, 24000, someFloor(b));
    b.walls(-5000, 5000, -4000, 9000, 3200, 3200, b.bricks());
    constexpr double kTarget = 2000;
    if (b.scene.seed % 2 == 0) {
        b.box(0, kTarget + 100, 5000, 2600, 200, b.concrete());
    } else {
        b.boxObject(0, kTarget + 250, b.random.uniform(500, 900), b.random.uniform(500, 1100), 500);
        b.person(b.random.uniform(-1500, -900), 4200);
        b.anything(1500, 3600);
    }
    b.scene.path.length_mm = kTarget - 200;
    b.scene.path.peak_speed_mm_s = 500;
    b.scene.path.sway_mm = 0;
}

void buildWall(SceneBuilder& b) {
    lightIndoors(b);
    b.patch(0, 5000, 20000, 24000, b.concrete());
    b.box(0, 3100, 20000, 6000, 200, b.concrete(), -1000);
    b.scene.path.length_mm = 0;
    b.scene.path.sway_mm = 0;
    b.scene.path.vibration_deg = 0;
    b.scene.path.vibration_mm = 0;
}

void buildMirror(SceneBuilder& b) {
    lightIndoors(b);
    const int floor = b.tiles();
    b.material(floor).mirror = 0.35f;
    b.material(floor).mirrors_scene = true;
    b.patch(0, 5000, 14000, 24000, floor);
    b.walls(-3500, 3500, -3000, 11000, 3000, 3000, b.painted());
    const int pane = b.plain(60, 80, 4, 6);
    b.material(pane).mirror = 0.7f;
    b.material(pane).mirrors_scene = true;
    b.box(-3480, 5000, 30, 2100, 3000, pane, 200);
    b.box(800, 10980, 2400, 2200, 30, pane, 100);
    b.windowAt(3480, 900, 5000, 1600, 1400, true, 340);
    ceilingLamps(b, 0, 1500, 10500, 3000, 2500);
    for (int i = 0; i < 6; ++i) b.anything(b.random.uniform(-2500, 2500), 2600 + 1250 * i);
    b.scene.path.length_mm = 1500;
    b.scene.path.peak_speed_mm_s = 400;
}

void buildTextureless(SceneBuilder& b) {
    lightIndoors(b);
    b.patch(0, 5000, 14000, 24000, b.plain(110, 140, 4, 5));
    const int white = b.plain(150, 180, 0.6, 1.2);
    b.walls(-3000, 3000, -3000, 8000, 2800, 2800, white);
    for (int i = 0; i < 5; ++i)
        b.box(b.random.uniform(-2300, 2300), 2500 + 1100 * i, b.random.uniform(300, 900),
              b.random.uniform(300, 1600), 400, b.plain(120, 180, 0.6, 1.5), 0,
              b.random.uniform(0, 90));
    b.anything(b.random.uniform(-1500, 1500), 4500);
    b.scene.path.length_mm = 1200;
    b.scene.path.peak_speed_mm_s = 350;
}

void buildLowLight(SceneBuilder& b) {
    buildRoom(b);
    b.scene.light_level = 0.05f;
    for (Material& m : b.scene.materials)
        if (m.glows)
            m.base = 60;  // lamps out, dusk outside
}

}  // namespace kova::camera
