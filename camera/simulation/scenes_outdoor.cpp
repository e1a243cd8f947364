#include <cmath>

#include "camera/simulation/scene_builder.h"

namespace kova::camera {

namespace {

void lightOutdoors(SceneBuilder& b) {
    b.scene.light = {static_cast<float>(b.random.uniform(-0.6, 0.6)), -0.8f,
                     static_cast<float>(b.random.uniform(-0.6, 0.3))};
    b.scene.ambient = static_cast<float>(b.random.uniform(0.48, 0.65));
    b.scene.shadow = static_cast<float>(b.random.uniform(0.5, 0.9));
    b.scene.sky = static_cast<float>(b.random.uniform(205, 270));
}

int asphalt(SceneBuilder& b) {
    return b.plain(75, 115, 4, 11);
}

/// A house front along x or z, with windows.
void house(SceneBuilder& b, double side, double z, double x_front, double width) {
    const double height = b.random.uniform(5500, 9500);
    b.scene
        .primitives[b.box(side * (x_front + 2500), z, 5000, height, width,
                          b.random.chance(0.6) ? b.bricks() : b.painted())]
        .casts_shadow = false;
    const int glass = b.plain(40, 70, 8, 14), frame = b.plain(150, 185, 4, 8);
    b.material(glass).mirror = static_cast<float>(b.random.uniform(0.3, 0.6));
    const auto pane = [&](double along, double tall, double wide, double thick, int material,
                          double foot) {
        const int i = b.box(side * (x_front + 4), z + along, thick, tall, wide, material, foot);
        b.scene.primitives[i].casts_shadow = false;
    };
    for (double up = 900; up < height - 1800; up += 2700)
        for (double along = -width / 2 + 1200; along < width / 2 - 600; along += 2100) {
            pane(along, 1500, 1120, 30, frame, up - 60);
            pane(along, 1380, 1000, 40, glass, up);
        }
}

/// Hedges and railings before the houses, in pieces of four metres.
void frontGardens(SceneBuilder& b, double x, double z0, double z1) {
    const int green = b.foliage(), iron = b.plain(35, 70, 6, 10), picket = b.plain(170, 200, 5, 9);
    for (double z = z0; z < z1; z += 4000) {
        const double kind = b.random.uniform();
        if (kind < 0.45)
            for (int i = 0; i < 4; ++i) b.leaves(x, 550, z + 500 + 1000 * i, 300, 750, 800, green);
        else if (kind < 0.65)
            b.railing(x, z + 2000, 4000, 1100, 24, iron, 90);
        else if (kind < 0.85)
            b.railing(x, z + 2000, 4000, 950, 70, picket, 90);
    }
}

/// Houses far away close the view.
void backdrop(SceneBuilder& b, double z) {
    for (int i = 0; i < 7; ++i) {
        const double x = -24000 + 8000 * i;
        b.scene
            .primitives[b.box(x, z + b.random.uniform(0, 6000), b.random.uniform(6000, 7800),
                              b.random.uniform(3500, 9000), 4000, b.bricks())]
            .casts_shadow = false;
    }
}

}  // namespace

namespace {

/// A pavement with things on it and houses behind, `half` beside the middle of the road.
void pavedSide(SceneBuilder& b, double side, double half, int stone, int slabs) {
    b.box(side * (half + 75), 35000, 150, 130, 90000, stone);
    const double pavement = b.random.uniform(1800, 2600);
    b.box(side * (half + 150 + pavement / 2), 35000, pavement, 120, 90000, slabs, 0, 0,
          SurfaceLabel::kRaised);
    double z = -2000;
    while (z < 52000) {
        const double width = b.random.uniform(7000, 11000);
        house(b, side, z + width / 2, half + 150 + pavement, width);
        z += width + (b.random.chance(0.3) ? 2500 : 0);
    }
    b.ground_offset = 120;
    for (double at = b.random.uniform(2500, 6000); at < 40000; at += b.random.uniform(5000, 9000)) {
        const double x = side * (half + 450);
        if (b.random.chance(0.35))
            b.tree(x, at);
        else
            b.post(x, at, b.random.uniform(80, 160), b.random.uniform(2500, 4500));
        if (b.random.chance(0.35))
            b.bush(side * (half + 500), at + 1600, b.random.uniform(500, 900),
                   b.random.uniform(500, 1100));
        else if (b.random.chance(0.5))
            b.person(side * (half + b.random.uniform(700, pavement - 500)),
                     at + b.random.uniform(800, 2500), b.random.uniform(1550, 1900));
    }
    frontGardens(b, side * (half + pavement - 50), -1000, 40000);
    b.ground_offset = 0;
}

/// Rough grass that rises away from the road, with or without a kerb, and what stands on it.
void lawnSide(SceneBuilder& b, double side, double half, int stone) {
    const double width = b.random.uniform(2800, 6000), rise_deg = b.random.uniform(0, 6);
    const bool kerb = b.random.chance(0.7);
    const double edge = kerb ? 110 : 0, near = half + (kerb ? 150 : 0);
    if (kerb)
        b.box(side * (half + 75), 35000, 150, 130, 90000, stone);
    const double slope = std::tan(rise_deg * kRadPerDeg);
    b.lawn(side * (near + width / 2), 35000, width / std::cos(rise_deg * kRadPerDeg), 90000,
           b.random.uniform(8, 30), edge + slope * width / 2, -side * rise_deg);
    const auto at = [&](double away) {
        b.ground_offset = edge + slope * away;
        return side * (near + away);
    };
    if (b.random.chance(0.5)) {
        const double bar = b.random.chance(0.5) ? 24 : 60;
        const int fence = b.plain(35, 180, 5, 10);
        for (double z = 1000; z < 30000; z += 4000)
            if (b.random.chance(0.6))
                b.railing(at(400), z, 4000, b.random.uniform(600, 1100), bar, fence, 90);
    }
    const int tall = b.foliage();
    for (int i = 0; i < 90; ++i) {
        const double x = at(b.random.uniform(100, width)), size = b.random.uniform(200, 700);
        b.leaves(x, 20, 1500 + 26000 * std::pow(b.random.uniform(), 1.5), size,
                 b.random.uniform(50, 150), size, tall, SurfaceLabel::kVerge);
    }
    for (double z = b.random.uniform(2500, 6000); z < 40000; z += b.random.uniform(4000, 9000)) {
        const double kind = b.random.uniform(), away = b.random.uniform(500, 2000);
        if (kind < 0.35)
            b.tree(at(away), z, 3);
        else if (kind < 0.5)
            b.tree(at(away), z);
        else if (kind < 0.7)
            b.post(at(away), z, b.random.uniform(80, 160), b.random.uniform(900, 4500));
        const double inside = b.random.uniform(1600, width - 900);
        const double second = b.random.uniform();
        if (second < 0.5)
            b.bush(at(inside), z + 1600, b.random.uniform(400, 900), b.random.uniform(300, 1100));
        else if (second < 0.6)
            b.boxObject(at(inside), z + 1600, b.random.uniform(300, 700),
                        b.random.uniform(200, 900), 400, b.random.uniform(0, 90));
        else if (second < 0.7)
            b.person(at(inside), z + 1600, b.random.uniform(1100, 1900));
        else if (second < 0.9)
            b.tree(at(inside), z + 1600);
    }
    for (const double away : {width - 600, 0.5 * width + 300})
        frontGardens(b, at(away), -1000, 40000);
    at(width);
    for (double z = -2000; z < 52000; z += 11500)
        house(b, side, z + 5000, near + width, b.random.uniform(8500, 11000));
    b.ground_offset = 0;
}

}  // namespace

void buildStreet(SceneBuilder& b) {
    lightOutdoors(b);
    constexpr double kParking = 2600;  // beside the middle of the road
    bool paved[2];
    double half[2];
    for (const int k : {0, 1}) {
        paved[k] = b.random.chance(0.7);
        const bool narrow = b.random.chance(0.3);
        half[k] = paved[k] ? b.random.uniform(kParking, 3400)
                  : narrow ? b.random.uniform(700, 1300)
                           : b.random.uniform(1300, 3400);
    }
    b.patch(0.5 * (half[1] - half[0]), 35000, half[0] + half[1], 90000, asphalt(b));
    const int stone = b.concrete(), slabs = b.tiles();
    for (const int k : {0, 1}) {
        const double side = k ? 1 : -1;
        if (paved[k])
            pavedSide(b, side, half[k], stone, slabs);
        else
            lawnSide(b, side, half[k], stone);
        for (double at = b.random.uniform(7000, 12000); half[k] >= kParking && at < 42000;
             at += b.random.uniform(6000, 12000))
            b.car(side * (half[k] - 950), at, b.random.uniform(-3, 3));
    }
    const int white = b.plain(165, 190, 6, 10);
    for (int i = 0; i < 7; ++i)
        b.patch(0, 1000 + 6000 * i, 120, 3000, white, SurfaceLabel::kGround, 2);
    b.cone(b.random.uniform(-0.6 * half[0], 0.2 * half[1]), b.random.uniform(4500, 6500));
    b.boxObject(b.random.uniform(0.1, 0.5) * half[1], b.random.uniform(5500, 9000), 500, 450, 400,
                25);
    const double left = std::min(half[0] - 300, 1600.0), right = std::min(half[1] - 300, 1600.0);
    const int walker = b.person(-left, b.random.uniform(8000, 12000));
    b.move(walker, left + right, 600, 11, b.random.uniform());
    backdrop(b, 60000);
    b.scene.path.length_mm = 9000;
    b.scene.path.peak_speed_mm_s = 1200;
    b.scene.path.sway_mm = 120;
}

void buildRamp(SceneBuilder& b, double degrees) {
    lightOutdoors(b);
    const double start = b.random.uniform(4000, 5500), run = 14000;
    const int ground = asphalt(b);
    const double angle = degrees * kRadPerDeg;
    b.patch(0, start / 2 - 5000, 9000, start + 10000, ground);
    const double rise = run * std::sin(angle), level = run * std::cos(angle);
    b.patch(0, start + level / 2, 9000, run + 2, ground, SurfaceLabel::kGround, rise / 2, degrees);
    b.patch(0, start + level + 15000, 9000, 30000, ground, SurfaceLabel::kGround, rise);
    const int wall = b.bricks();
    for (const double side : {-1.0, 1.0})
        b.scene.primitives[b.box(side * 4600, 12000, 300, 8000, 50000, wall, -4500)].casts_shadow =
            false;
    for (int i = 0; i < 5; ++i) {
        const double z = start + 800 + 2100 * i;
        b.ground_offset = (z - start) * std::tan(angle);
        b.anything(b.random.sign() * b.random.uniform(700, 3500), z, 1900);
    }
    b.ground_offset = rise;
    backdrop(b, 42000);
    b.ground_offset = 0;
    b.scene.path.length_mm = 11000;
    b.scene.path.peak_speed_mm_s = 1000;
}

void buildCrossSlope(SceneBuilder& b) {
    lightOutdoors(b);
    const double roll = b.random.sign() * 5;
    b.patch(0, 25000, 16000, 70000, asphalt(b), SurfaceLabel::kGround, 0, 0, roll);
    for (int i = 0; i < 7; ++i) {
        const double x = b.random.sign() * b.random.uniform(700, 4500);
        b.ground_offset = -x * std::tan(roll * kRadPerDeg);
        b.anything(x, 3000 + 2000 * i, 1900);
    }
    b.ground_offset = -1500;
    backdrop(b, 45000);
    b.ground_offset = 0;
    b.scene.path.length_mm = 7000;
}

void buildKerb(SceneBuilder& b) {
    lightOutdoors(b);
    const double height = b.random.uniform(80, 150);
    b.patch(0, 30000, 40000, 90000, asphalt(b));
    const int stone = b.concrete(), slabs = b.tiles();
    const double edge = b.random.uniform(4500, 6500);
    double parked = 4500;
    if (b.scene.seed % 2 == 0) {
        b.box(0, edge + 75, 40000, height, 150, stone);
        b.box(0, edge + 5150, 40000, height - 5, 10000, slabs, 0, 0, SurfaceLabel::kRaised);
        b.ground_offset = height;
        b.person(b.random.uniform(-2500, 2500), edge + 2200);
        b.post(b.random.uniform(-3000, 3000), edge + 700, 90, 1100);
        b.bench(b.random.uniform(-3500, 3500), edge + 4000, 180);
    } else {
        const double side = b.random.sign(), x = b.random.uniform(900, 1600);
        parked = -3500 * side;
        b.box(side * (x + 75), 20000, 150, height, 60000, stone);
        b.box(side * (x + 3150), 20000, 6000, height - 5, 60000, slabs, 0, 0,
              SurfaceLabel::kRaised);
        b.ground_offset = height;
        for (int i = 0; i < 4; ++i)
            b.anything(side * (x + b.random.uniform(500, 2500)), 3500 + 2500 * i, 1900);
    }
    b.ground_offset = 0;
    b.car(parked, b.scene.seed % 2 ? 16000 : edge + 14000, 5);
    backdrop(b, 36000);
    b.scene.path.length_mm = edge - 2000;
    b.scene.path.peak_speed_mm_s = 700;
}

void buildObjects(SceneBuilder& b) {
    lightOutdoors(b);
    b.patch(0, 30000, 60000, 90000, b.random.chance(0.5) ? asphalt(b) : b.tiles());
    static constexpr double kHeights[4] = {100, 200, 500, 1500};
    // One in each of twelve sectors of distance, on alternating sides, so that few hide others.
    for (int i = 0; i < 14; ++i) {
        const double z = 1300 + 1000 * i + b.random.uniform(0, 700);
        const double reach = std::min(0.55 * z, 4500.0);
        const double x = (i % 2 ? 1 : -1) * b.random.uniform(0.1, 1.0) * reach;
        const double height = kHeights[b.random.integer(0, 3)];
        const double width = std::max(0.5 * height, 120.0) * b.random.uniform(0.8, 1.6);
        b.boxObject(x, z, std::min(width, 900.0), height, std::min(width, 500.0),
                    b.random.uniform(-30, 30));
    }
    backdrop(b, 40000);
    b.scene.path.length_mm = 500;
    b.scene.path.peak_speed_mm_s = 200;
    b.scene.path.sway_mm = 60;
}

void buildPosts(SceneBuilder& b) {
    lightOutdoors(b);
    b.patch(0, 30000, 60000, 90000, asphalt(b));
    for (int i = 0; i < 12; ++i) {
        const double z = 2000 + 950 * i, reach = std::min(0.5 * z, 4000.0);
        b.post(b.random.uniform(-reach, reach), z, b.random.uniform(20, 90),
               b.random.uniform(700, 2600));
    }
    // Wires between two pairs of posts.
    for (int i = 0; i < 2; ++i) {
        const double z = b.random.uniform(4000, 9000), up = b.random.uniform(500, 1100);
        const int wire = b.plain(30, 60, 5, 8);
        for (const double side : {-1.0, 1.0}) b.post(side * 2200, z, 70, up + 100);
        for (int k = 0; k < 22; ++k)
            b.box(-2100 + 200 * k, z, 200, 12, 12, wire, up, 0, SurfaceLabel::kObstacle);
    }
    backdrop(b, 38000);
    b.scene.path.length_mm = 3000;
    b.scene.path.peak_speed_mm_s = 600;
}

void buildOverhang(SceneBuilder& b) {
    lightOutdoors(b);
    b.patch(0, 30000, 60000, 90000, asphalt(b));
    for (int i = 0; i < 4; ++i) {
        const double z = 3500 + 3000 * i, half = b.random.uniform(1800, 2600);
        const double clearance = b.random.uniform(500, 2300);
        b.overhang(0, z, 2 * half, clearance);
        for (const double side : {-1.0, 1.0}) b.post(side * half, z, 140, clearance + 300);
    }
    backdrop(b, 38000);
    b.scene.path.length_mm = 2000;
    b.scene.path.peak_speed_mm_s = 500;
}

void buildVibration(SceneBuilder& b) {
    buildObjects(b);
    b.scene.path.vibration_deg = 0.35;
    b.scene.path.vibration_mm = 3;
    b.scene.path.length_mm = 3000;
    b.scene.path.peak_speed_mm_s = 800;
}

void buildDemo(SceneBuilder& b) {
    lightOutdoors(b);
    b.scene.light = {-0.45f, -0.8f, -0.35f};
    b.scene.ambient = 0.55f;
    b.scene.shadow = 0.75f;
    b.patch(0, 25000, 60000, 80000, b.tiles());
    b.material(0).pattern_mm = 600;
    b.material(0).contrast = 12;
    for (const double side : {-1.0, 1.0})
        for (int i = 0; i < 4; ++i)
            house(b, side, 3500 + 9500 * i, b.random.uniform(6200, 7200), 9000);
    backdrop(b, 42000);
    // Things at many distances on both sides of the way.
    for (int i = 0; i < 14; ++i) {
        const double z = 2600 + 1700 * i, side = i % 2 ? 1 : -1;
        b.anything(side * b.random.uniform(750, 2600), z, i % 3 ? 1900 : 900);
    }
    b.person(-1500, 5200);
    b.person(1900, 9300, 1640);
    b.person(-900, 15500, 1820);
    b.cone(700, 4200);
    b.cone(-750, 7600);
    b.boxObject(-2300, 8300, 900, 700, 700, 15);
    b.boxObject(-2250, 8300, 500, 1150, 450, 40);
    b.bench(3600, 7000, -90);
    b.bench(-3900, 12500, 90);
    for (int i = 0; i < 5; ++i) b.post(3000, 3000 + 3200 * i, 110, 1000);
    b.tree(4600, 10500);
    b.tree(-4800, 6500);
    b.tree(4700, 19000);
    b.car(-4300, 19500, 20);
    const int first = b.person(-2600, 11500), second = b.person(2400, 17500, 1700);
    b.move(first, 4800, -400, 10, 0.1);
    b.move(second, -4200, -3000, 12, 0.4);
    b.scene.path.length_mm = 12500;
    b.scene.path.peak_speed_mm_s = 1000;
    b.scene.path.sway_mm = 350;
    b.scene.path.sway_wave_mm = 7000;
    b.scene.path.look_deg = 4;
    b.scene.light_swing = 0.12;
}

}  // namespace kova::camera
