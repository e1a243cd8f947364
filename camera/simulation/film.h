#pragma once

#include <cstdint>
#include <vector>

#include "camera/base/image.h"
#include "camera/simulation/renderer.h"
#include "camera/simulation/rig.h"

namespace kova::camera {

/// The exposure at which a material's grey level is what the picture shows.
constexpr double kNominalExposureUs = 5000;

/// How long and how strongly the sensor turns light into grey levels.
struct ExposureSetting {
    double exposure_us = kNominalExposureUs;
    double gain = 1;  ///< amplifies signal and noise alike
};

/// Turns light into 8-bit pictures: exposure, gain, shot and read noise, saturation. Independent
/// noise in each eye and frame, the same for the same seed and frame on any number of threads.
class Film {
public:
    explicit Film(const SimulatedRig& rig);

    /// Both eyes side by side, left eye left.
    /// @param frame  number that selects the noise
    /// @param out    shape (height, 2 * width), resized
    void expose(const LightPair& light, const ExposureSetting& setting, std::int64_t frame,
                std::vector<std::uint8_t>& out);

    void setNoiseScale(double scale) { rig_.noise.scale = scale; }

private:
    struct Response {
        std::int16_t mean = 0;       ///< 1/16 grey level
        std::int16_t deviation = 0;  ///< 1/16 grey level
    };
    void makeResponse(const EyeOptics& eye, const ExposureSetting& setting,
                      std::vector<Response>& table) const;

    SimulatedRig rig_;
    std::vector<std::int8_t> noise_;  ///< normal, 1/32
    std::vector<Response> response_[2];
};

/// Automatic exposure with the lag of real ones: each frame corrects part of the error that the
/// frame before showed, first by time, then by gain.
class AutoExposure {
public:
    /// @param max_exposure_us  longest time allowed
    explicit AutoExposure(double max_exposure_us) : max_exposure_us_(max_exposure_us) {}

    const ExposureSetting& setting() const { return setting_; }
    void setMaxExposure(double us) { max_exposure_us_ = us; }
    void set(const ExposureSetting& setting) { setting_ = setting; }
    /// Jumps to what is right for a picture of this mean, without lag.
    void settle(double light_mean);
    /// @param mean  of the picture that was taken with setting() [grey levels]
    void update(double mean);

    static constexpr double kTarget = 112;  ///< mean to reach [grey levels]
    static constexpr double kMaxGain = 16;
    static constexpr double kMinExposureUs = 50;

private:
    void setTotal(double total_us);
    double max_exposure_us_;
    ExposureSetting setting_;
};

/// Mean grey level of the left eye of a side by side picture, from a coarse grid.
double meanGrey(const std::vector<std::uint8_t>& side_by_side, int eye_width, int height);

/// Mean of the light on the left sensor, in grey levels at the nominal exposure.
double meanLight(const LightPair& light);

}  // namespace kova::camera
