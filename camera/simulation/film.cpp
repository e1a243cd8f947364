#include "camera/simulation/film.h"

#include <algorithm>
#include <cmath>

#include "camera/base/parallel.h"
#include "camera/simulation/random.h"

namespace kova::camera {

namespace {

constexpr int kNoiseLength = 1 << 20;
constexpr int kResponseShift = 3;
constexpr int kResponseSize = 65536 >> kResponseShift;

}  // namespace

Film::Film(const SimulatedRig& rig) : rig_(rig) {
    // A long strip of noise, read from a random place for each row, costs a fraction of drawing it
    // anew and repeats too rarely to matter.
    noise_.resize(kNoiseLength + 16384);
    const std::uint32_t seed = hash(rig.seed, 31337);
    for (std::size_t i = 0; i < noise_.size(); ++i) {
        // The sum of eight bytes: tails to 4.9 deviations.
        const auto n = static_cast<std::uint32_t>(i);
        const float value =
            (normalFloat(hash(seed, n, 1)) + normalFloat(hash(seed, n, 2))) * 0.70710678f;
        noise_[i] =
            static_cast<std::int8_t>(std::clamp<long>(std::lrint(value * 32.0f), -127, 127));
    }
}

void Film::makeResponse(const EyeOptics& eye, const ExposureSetting& setting,
                        std::vector<Response>& table) const {
    table.resize(kResponseSize);
    const double exposure = setting.exposure_us / kNominalExposureUs;
    const SensorNoise& noise = rig_.noise;
    const double read = noise.read_deviation * setting.gain;
    for (int i = 0; i < kResponseSize; ++i) {
        const double light = (i + 0.5) * (1 << kResponseShift) / kLightUnit;
        const double grey = light * exposure * setting.gain * eye.gain;
        const double variance = grey * noise.shot_variance * setting.gain + read * read;
        const double mean = std::clamp(grey + eye.offset, -100.0, 1000.0);
        table[i].mean = static_cast<std::int16_t>(std::lrint(mean * 16.0));
        table[i].deviation = static_cast<std::int16_t>(
            std::lrint(std::min(std::sqrt(variance) * noise.scale, 100.0) * 16.0));
    }
}

void Film::expose(const LightPair& light, const ExposureSetting& setting, std::int64_t frame,
                  std::vector<std::uint8_t>& out) {
    const int width = rig_.width, height = rig_.height;
    out.resize(static_cast<std::size_t>(2 * width) * height);
    for (int eye = 0; eye < 2; ++eye) makeResponse(rig_.optics[eye], setting, response_[eye]);

    constexpr int kBand = 32;
    parallelFor((height + kBand - 1) / kBand, [&](int band) {
        for (int y = band * kBand; y < std::min(band * kBand + kBand, height); ++y)
            for (int eye = 0; eye < 2; ++eye) {
                const std::uint16_t* in = (eye ? light.right : light.left).row(y);
                const Response* response = response_[eye].data();
                const std::int8_t* noise =
                    &noise_[hash(rig_.seed, static_cast<std::uint32_t>(frame),
                                 static_cast<std::uint32_t>(2 * y + eye)) &
                            (kNoiseLength - 1)];
                std::uint8_t* row = &out[static_cast<std::size_t>(y) * 2 * width + eye * width];
                for (int x = 0; x < width; ++x) {
                    const Response r = response[in[x] >> kResponseShift];
                    const int value = (r.mean * 32 + r.deviation * noise[x] + 256) >> 9;
                    row[x] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
                }
            }
    });
}

void AutoExposure::setTotal(double total_us) {
    total_us = std::clamp(total_us, kMinExposureUs, max_exposure_us_ * kMaxGain);
    setting_.exposure_us = std::min(total_us, max_exposure_us_);
    setting_.gain = std::max(total_us / max_exposure_us_, 1.0);
}

void AutoExposure::settle(double light_mean) {
    setTotal(kNominalExposureUs * kTarget / std::max(light_mean, 0.1));
}

void AutoExposure::update(double mean) {
    // A saturated picture says only that it is too bright: correct more boldly.
    const double ratio = std::clamp(kTarget / std::max(mean, 1.0), 0.3, 4.0);
    constexpr double kShare = 0.15;
    setTotal(setting_.exposure_us * setting_.gain * std::pow(ratio, kShare));
}

double meanGrey(const std::vector<std::uint8_t>& side_by_side, int eye_width, int height) {
    std::int64_t sum = 0, count = 0;
    for (int y = 2; y < height; y += 8)
        for (int x = 2; x < eye_width; x += 8) {
            sum += side_by_side[static_cast<std::size_t>(y) * 2 * eye_width + x];
            ++count;
        }
    return count ? static_cast<double>(sum) / static_cast<double>(count) : 0;
}

double meanLight(const LightPair& light) {
    std::int64_t sum = 0, count = 0;
    for (int y = 2; y < light.left.height(); y += 8)
        for (int x = 2; x < light.left.width(); x += 8) {
            // What is brighter than white counts as white, as it will in the picture.
            sum += std::min<int>(light.left.at(x, y), 255 * kLightUnit);
            ++count;
        }
    return count ? static_cast<double>(sum) / static_cast<double>(count * kLightUnit) : 0;
}

}  // namespace kova::camera
