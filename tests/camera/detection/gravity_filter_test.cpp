#include "camera/detection/gravity_filter.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kova::camera {
namespace {

constexpr double kDegree = 0.017453292519943295;

ImuSample still(std::int64_t t_ns, double pitch) {
    ImuSample sample;
    sample.t_ns = t_ns;
    // A camera that looks down by `pitch` has gravity towards +z.
    sample.accel = {0, static_cast<float>(-9.81 * std::cos(pitch)),
                    static_cast<float>(-9.81 * std::sin(pitch))};
    return sample;
}

double pitchOf(const GravityFilter& filter) {
    return std::asin(filter.down()[2]);
}

TEST(GravityFilter, RestGivesTheDirectionOfGravity) {
    GravityFilter filter;
    std::vector<ImuSample> samples;
    for (int i = 0; i < 100; ++i) samples.push_back(still(i * 5'000'000, 10 * kDegree));
    filter.update(samples);
    EXPECT_TRUE(filter.ready());
    EXPECT_NEAR(pitchOf(filter), 10 * kDegree, 0.05 * kDegree);
}

TEST(GravityFilter, GyroscopeTurnsTheEstimate) {
    GravityFilter filter;
    std::vector<ImuSample> samples;
    for (int i = 0; i < 200; ++i) samples.push_back(still(i * 5'000'000, 0));
    filter.update(samples);
    // Looking down means turning about -x: 20 degrees/s for half a second.
    samples.clear();
    for (int i = 0; i < 100; ++i) {
        const double pitch = 0.1 * (i + 1) * kDegree;
        samples.push_back(still((200 + i) * 5'000'000LL, pitch));
        samples.back().gyro[0] = static_cast<float>(-20 * kDegree);
    }
    filter.update(samples);
    EXPECT_NEAR(pitchOf(filter), 10 * kDegree, 0.3 * kDegree);
    // A direction straight ahead now lies 10 degrees higher in the picture, at negative y.
    EXPECT_NEAR(filter.rotation()[5], -std::sin(10 * kDegree), 0.01);
}

TEST(GravityFilter, AShortPushHardlyMovesIt) {
    GravityFilter filter;
    std::vector<ImuSample> samples;
    for (int i = 0; i < 400; ++i) {
        samples.push_back(still(i * 5'000'000, 0));
        if (i >= 300 && i < 340)  // 0.2 s of 3 m/s² forward
            samples.back().accel[2] += 3;
    }
    filter.update(samples);
    EXPECT_NEAR(pitchOf(filter), 0, 1.5 * kDegree);
}

// Wheels on rough ground shake a camera with more than gravity, from the first sample on.
TEST(GravityFilter, ShakingStrongerThanGravityIsNoDirection) {
    for (const double start : {0.0, 1.5, 3.0, 4.5}) {
        GravityFilter filter;
        std::vector<ImuSample> samples;
        for (int i = 0; i < 200; ++i) {
            const double t = 0.005 * i;
            samples.push_back(still(i * 5'000'000, 8 * kDegree));
            samples.back().accel[0] +=
                static_cast<float>(9 * std::sin(2 * 3.14159 * 13 * t + start));
            samples.back().accel[1] +=
                static_cast<float>(15 * std::sin(2 * 3.14159 * 17 * t + start));
        }
        filter.update(samples);
        EXPECT_TRUE(filter.ready());
        EXPECT_NEAR(pitchOf(filter), 8 * kDegree, 2 * kDegree) << start;
        EXPECT_NEAR(filter.down()[0], 0, 4 * kDegree) << start;
    }
}

TEST(GravityFilter, BiasOfTheGyroscopeIsLearnt) {
    GravityFilter filter;
    std::vector<ImuSample> samples;
    for (int i = 0; i < 12000; ++i) {
        samples.push_back(still(i * 5'000'000LL, 0));
        samples.back().gyro[0] = 0.02f;
    }
    filter.update(samples);
    EXPECT_NEAR(pitchOf(filter), 0, 0.5 * kDegree);
}

}  // namespace
}  // namespace kova::camera
