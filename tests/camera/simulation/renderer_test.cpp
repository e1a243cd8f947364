#include "camera/simulation/renderer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "camera/base/parallel.h"
#include "camera/simulation/film.h"
#include "camera/simulation/intersect.h"
#include "camera/simulation/scene_builder.h"
#include "camera/simulation/sequence.h"

namespace kova::camera {
namespace {

RigOptions smallRig(bool exact) {
    RigOptions options;
    options.width = 320;
    options.height = 200;
    options.residual = !exact;
    options.optics = !exact;
    options.noise_scale = exact ? 0 : 1;
    return options;
}

Renderer makeRenderer(const std::string& name, std::uint32_t seed, const RigOptions& rig,
                      const SceneOptions& options = {}, bool motion_blur = true) {
    Result<Scene> scene = makeScene(name, seed, options);
    EXPECT_TRUE(scene.ok()) << scene.status().message();
    RenderOptions render;
    render.motion_blur = motion_blur;
    return Renderer(std::move(scene.value()), makeRig(rig), render);
}

std::vector<std::uint8_t> picture(const std::string& name, std::uint32_t seed) {
    Renderer renderer = makeRenderer(name, seed, smallRig(false));
    LightPair light;
    renderer.render(0.5, 0.005, light);
    std::vector<std::uint8_t> bytes;
    Film(renderer.rig()).expose(light, {}, 3, bytes);
    return bytes;
}

struct ThreadCount {
    explicit ThreadCount(int threads) { setThreadCount(threads); }
    ~ThreadCount() { setThreadCount(0); }
};

TEST(Renderer, SameBytesForSameSeedOnAnyNumberOfThreads) {
    std::vector<std::uint8_t> one, three;
    {
        const ThreadCount threads(1);
        one = picture("room", 5);
    }
    {
        const ThreadCount threads(3);
        three = picture("room", 5);
    }
    EXPECT_EQ(one, three);
    EXPECT_NE(one, picture("room", 6));
}

TEST(Renderer, GivesUpWhenItIsToldTo) {
    Renderer renderer = makeRenderer("room", 5, smallRig(true));
    std::atomic<bool> stop{true};
    LightPair given_up, whole;
    renderer.render(0.5, 0.005, given_up, &stop);
    EXPECT_EQ(given_up.left.at(160, 100), 0);
    stop = false;
    renderer.render(0.5, 0.005, whole, &stop);
    EXPECT_GT(whole.left.at(160, 100), 0) << "it is of use again";
}

TEST(Renderer, EverySceneShowsSomethingAndHasTruth) {
    for (const SceneDescription& scene : sceneList()) {
        Renderer renderer = makeRenderer(scene.name, 2, smallRig(false));
        LightPair light;
        renderer.render(1.0, 0.005, light);
        FrameTruth truth;
        renderer.truth(1.0, 0.005, truth);
        EXPECT_GT(meanLight(light), scene.name == "low_light" ? 2.0 : 40.0) << scene.name;
        int ground = 0, labels = 0;
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < 320; ++x) {
                ground += truth.label.at(x, y) == static_cast<int>(SurfaceLabel::kGround);
                labels |= 1 << truth.label.at(x, y);
                ASSERT_GT(truth.depth_mm.at(x, y), 0.0f) << scene.name;
            }
        EXPECT_GT(ground, 320 * 200 / 50) << scene.name;
        EXPECT_NE(labels, 1 << static_cast<int>(SurfaceLabel::kGround)) << scene.name;
        if (scene.name == "stairs" || scene.name == "table_edge") {
            EXPECT_TRUE(labels & 1 << static_cast<int>(SurfaceLabel::kDrop)) << scene.name;
        }
    }
}

TEST(Renderer, DepthOfWallAndFlatGroundIsAnalytic) {
    SceneOptions options;
    options.flat_ground = true;
    options.tilt_deg = 8;
    Renderer renderer = makeRenderer("wall", 1, smallRig(true), options);
    FrameTruth truth;
    renderer.truth(0, 0.005, truth);
    const CameraIntrinsics& eye = renderer.rig().given.left;
    const double s = std::sin(8 * kRadPerDeg), c = std::cos(8 * kRadPerDeg);
    int checked = 0;
    for (int y = 0; y < 200; y += 7)
        for (int x = 0; x < 320; x += 13) {
            // The ray (X, Y, 1) in the world: it sinks by c Y + s and advances by c - s Y.
            const double v = (y - eye.cy) / eye.fy;
            const double sink = c * v + s, advance = c - s * v;
            const double wall = 3000 / advance;
            const double ground = sink > 0 ? 600 / sink : 1e12;
            if (std::abs(wall - ground) < 5)
                continue;
            EXPECT_NEAR(truth.depth_mm.at(x, y), std::min(wall, ground), 0.05);
            EXPECT_EQ(
                truth.label.at(x, y),
                static_cast<int>(wall < ground ? SurfaceLabel::kObstacle : SurfaceLabel::kGround));
            ++checked;
        }
    EXPECT_GT(checked, 600);
}

double sampleRow(const Image<std::uint16_t>& image, double x, int y) {
    const int i = static_cast<int>(std::floor(x));
    const double f = x - i;
    return image.at(i, y) * (1 - f) + image.at(i + 1, y) * f;
}

/// Mean absolute difference of the left picture to the right one moved by the true disparity,
/// after an extra shift, in grey levels.
double reprojectionError(Renderer& renderer, double shift_px) {
    LightPair light;
    renderer.render(0.7, 0.005, light);
    FrameTruth truth;
    renderer.truth(0.7, 0.005, truth);
    const double fb = renderer.rig().given.left.fx * 120;
    double sum = 0;
    int count = 0;
    for (int y = 2; y < 198; ++y)
        for (int x = 60; x < 316; ++x) {
            const float z = truth.depth_mm.at(x, y);
            // Only where the surface is smooth around the pixel, and so visible to both eyes.
            if (!std::isfinite(z) || std::abs(z - truth.depth_mm.at(x - 3, y)) > 0.01f * z ||
                std::abs(z - truth.depth_mm.at(x + 3, y)) > 0.01f * z)
                continue;
            const double xr = x - fb / z + shift_px;
            if (xr < 1 || xr > 317)
                continue;
            sum += std::abs(light.left.at(x, y) - sampleRow(light.right, xr, y));
            ++count;
        }
    EXPECT_GT(count, 10000);
    return sum / count / kLightUnit;
}

TEST(Renderer, TrueDisparityLinksBothPictures) {
    Renderer renderer = makeRenderer("corridor", 3, smallRig(true), {}, false);
    const double right = reprojectionError(renderer, 0);
    EXPECT_LT(right, 1.6);
    EXPECT_GT(reprojectionError(renderer, 1.0), 1.5 * right);
    EXPECT_GT(reprojectionError(renderer, -1.0), 1.5 * right);
}

TEST(Renderer, ResidualErrorIsSmallAndDiffersBySeed) {
    RigOptions options = smallRig(false);
    const SimulatedRig first = makeRig(options);
    options.seed = 2;
    const SimulatedRig second = makeRig(options);
    EXPECT_NE(first.rendered.right.cy, second.rendered.right.cy);
    for (const SimulatedRig& rig : {first, second}) {
        EXPECT_TRUE(rig.given.check().ok());
        EXPECT_TRUE(rig.rendered.check().ok());
        // Points far away: their rows and columns in both eyes.
        double vertical = 0, horizontal = 0;
        int count = 0;
        for (int y = 0; y < 200; y += 20)
            for (int x = 0; x < 320; x += 20) {
                const auto d = directionOfPixel(rig.rendered.left, x, y);
                const auto& r = rig.rendered.right_from_left;
                const double w = r[6] * d[0] + r[7] * d[1] + r[8];
                const auto p =
                    pixelOfDirection(rig.rendered.right, (r[0] * d[0] + r[1] * d[1] + r[2]) / w,
                                     (r[3] * d[0] + r[4] * d[1] + r[5]) / w);
                vertical += (p[1] - y) * (p[1] - y);
                horizontal += p[0] - x;
                ++count;
            }
        EXPECT_NEAR(std::sqrt(vertical / count), 0.2, 0.03);
        EXPECT_GT(std::abs(horizontal / count), 0.08);
        EXPECT_LT(std::abs(horizontal / count), 0.33);
    }
}

TEST(Renderer, LensDistortionIsUndoneByItsInverse) {
    RigOptions options = smallRig(false);
    options.lens_distortion = true;
    const SimulatedRig rig = makeRig(options);
    EXPECT_FALSE(rig.given.rectified);
    EXPECT_TRUE(rig.given.check().ok());
    for (int y = 0; y < 200; y += 33)
        for (int x = 0; x < 320; x += 29) {
            const auto d = directionOfPixel(rig.rendered.left, x, y);
            const auto p = pixelOfDirection(rig.rendered.left, d[0], d[1]);
            EXPECT_NEAR(p[0], x, 1e-6);
            EXPECT_NEAR(p[1], y, 1e-6);
        }
}

TEST(Scene, ThingsStandOnTheGround) {
    for (const SceneDescription& about : sceneList())
        for (std::uint32_t seed = 1; seed <= 3; ++seed) {
            const Scene scene = makeScene(about.name, seed).value();
            for (const SceneObject& thing : scene.objects) {
                // Those on a pavement or below an edge stand on that.
                const double over = scene.groundY(thing.foot.x, thing.foot.z) - thing.foot.y;
                EXPECT_TRUE(std::abs(over) < 0.1 || std::abs(over) > 40)
                    << about.name << " " << seed << " " << thing.kind << " " << over;
            }
        }
}

TEST(Scene, BoxesLeanWithTheSlopeAndPostsDoNot) {
    int boxes = 0, posts = 0;
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        const Scene scene = makeScene("cross_slope", seed).value();
        const Vec3 up = scene.primitives[0].rotation.column(1);
        for (const Primitive& p : scene.primitives) {
            if (p.object < 0)
                continue;
            const std::string& kind = scene.objects[p.object].kind;
            if (kind == "box") {
                ++boxes;
                EXPECT_NEAR(1, dot(p.rotation.column(1), up), 5e-4);
            }
            if (kind == "post") {
                ++posts;
                EXPECT_NEAR(1, p.rotation.column(1).y, 1e-6);
            }
        }
    }
    EXPECT_GT(boxes, 3);
    EXPECT_GT(posts, 3);
}

TEST(Intersect, RaysPassBetweenTheBarsOfARailing) {
    SceneBuilder b("", 1);
    const Primitive& railing = b.scene.primitives[b.railing(0, 3000, 2000, 1000, 20, 0, 0)];
    const auto meets = [&](float x, float height) {
        RayHit hit;
        const Vec3 origin = {x, -height, 0};
        const bool met = intersect(railing, b.scene.bumps, origin, origin - railing.centre,
                                   {0, 0, 1}, 1e6f, hit);
        EXPECT_TRUE(!met || hit.t == 3000);
        return met;
    };
    for (const float bar : {-160.0f, 0.0f, 80.0f}) {
        EXPECT_TRUE(meets(bar + 10, 500));
        EXPECT_FALSE(meets(bar + 40, 500));
        EXPECT_TRUE(meets(bar + 40, 985));  // the rail at the top
    }
    EXPECT_FALSE(meets(1010, 500));
    EXPECT_FALSE(meets(10, 1010));
}

TEST(Intersect, ABushIsDenseInTheMiddleAndOpenAtItsRim) {
    SceneBuilder b("", 1);
    const Primitive& bush =
        b.scene.primitives[b.leaves(0, 1000, 5000, 800, 600, 800, 0, SurfaceLabel::kObstacle)];
    const auto share = [&](float from, float to) {
        int met = 0, all = 0;
        for (int i = 0; i < 4000; ++i) {
            const float angle = 0.1f * static_cast<float>(i);
            const float r = from + (to - from) * static_cast<float>(i) / 4000;
            const Vec3 origin = {800 * r * std::cos(angle), -1000 + 600 * r * std::sin(angle), 0};
            RayHit hit;
            ++all;
            if (!intersect(bush, b.scene.bumps, origin,
                           bush.rotation.transposed(origin - bush.centre), {0, 0, 1}, 1e6f, hit))
                continue;
            ++met;
            EXPECT_GE(hit.t, 4199);
            EXPECT_LE(hit.t, 5000);
            EXPECT_NEAR(1, length(surfaceAt(bush, origin + Vec3{0, 0, hit.t}, hit.face).normal),
                        1e-5);
        }
        return static_cast<double>(met) / all;
    };
    EXPECT_GT(share(0, 0.4f), 0.93);
    EXPECT_LT(share(0.92f, 1), 0.6);
    EXPECT_GT(share(0.92f, 1), 0.25);
    EXPECT_EQ(share(1.01f, 1.2f), 0);
}

TEST(Intersect, ALawnRisesAndHasTufts) {
    SceneBuilder b("", 1);
    constexpr double kRise = 0.0874887;  // 5 degrees, to the right
    const Primitive& lawn = b.scene.primitives[b.lawn(5000, 10000, 8000, 20000, 20, 500, -5)];
    EXPECT_EQ(lawn.label, SurfaceLabel::kVerge);
    const auto heightAt = [&](float x, float z) {
        const Vec3 origin = {x, -3000, z};
        RayHit hit;
        if (!intersect(lawn, b.scene.bumps, origin, lawn.rotation.transposed(origin - lawn.centre),
                       {0, 1, 0}, 1e6f, hit))
            return -1.0f;
        EXPECT_NEAR(1, length(surfaceAt(lawn, origin + Vec3{0, hit.t, 0}, hit.face).normal), 1e-5);
        return 3000 - hit.t;
    };
    double sum = 0, squares = 0;
    constexpr int kRays = 4000;
    for (int i = 0; i < kRays; ++i) {
        const float x = 2000 + static_cast<float>(b.random.uniform(0, 6000));
        const float z = 1000 + static_cast<float>(b.random.uniform(0, 18000));
        const double tuft = heightAt(x, z) - 500 - kRise * (x - 5000);
        EXPECT_LT(std::abs(tuft), 2.5 * 20 + 1);
        sum += tuft;
        squares += tuft * tuft;
    }
    EXPECT_NEAR(sum / kRays, 0, 3);
    EXPECT_NEAR(std::sqrt(squares / kRays), 20, 4);
    EXPECT_EQ(heightAt(900, 10000), -1);
    // Seen flat, what is met first hides what lies behind it.
    int hidden = 0;
    for (int i = 0; i < 200; ++i) {
        const Vec3 origin = {5000, -700, 100},
                   direction = {0.01f * static_cast<float>(i - 100), 0.02f, 1};
        RayHit hit;
        if (!intersect(lawn, b.scene.bumps, origin, lawn.rotation.transposed(origin - lawn.centre),
                       direction, 1e6f, hit))
            continue;
        const Vec3 at = origin + direction * hit.t;
        EXPECT_NEAR(-at.y, heightAt(at.x, at.z), 6) << i;
        for (float t = 0; t < hit.t - 100; t += 100) {
            const Vec3 before = origin + direction * t;
            EXPECT_GT(-before.y + 6, heightAt(before.x, before.z)) << i;
        }
        hidden += hit.t < 9000;
    }
    EXPECT_GT(hidden, 20);
}

TEST(SimulatedSequence, BeginsWhereItIsToldTo) {
    const auto firstFrame = [](double start_s, int skipped) {
        SimulatedSequenceOptions options;
        options.start_s = start_s;
        SimulatedSequence sequence(makeRenderer("approach", 2, smallRig(true)), options);
        RawFrame frame;
        FrameTruth truth;
        for (int i = 0; i <= skipped; ++i) EXPECT_TRUE(sequence.next(frame, &truth).ok());
        return std::pair(frame.t_ns, truth.pose.position.z);
    };
    EXPECT_EQ(firstFrame(0, 6).first, firstFrame(0.2, 0).first);
    EXPECT_NEAR(firstFrame(0, 6).second, firstFrame(0.2, 0).second, 0.5);
    EXPECT_GT(firstFrame(5.3, 0).second, 1600);
}

TEST(Scene, UnknownNameListsTheKnownOnes) {
    const Result<Scene> scene = makeScene("moon", 1);
    ASSERT_FALSE(scene.ok());
    EXPECT_EQ(scene.status().code(), ErrorCode::kInvalidArgument);
    EXPECT_NE(scene.status().message().find("corridor"), std::string::npos);
}

}  // namespace
}  // namespace kova::camera
