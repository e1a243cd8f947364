#include "tools/commands/calibration_report.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <utility>

namespace kova::tools {

namespace {

constexpr double kDistancesM[] = {1, 2, 5, 10};

const char* nameOf(camera::LensFreedom lenses) {
    switch (lenses) {
        case camera::LensFreedom::kSame:
            return "same";
        case camera::LensFreedom::kFisheye:
            return "fisheye";
        default:
            return "free";
    }
}

nlohmann::json eyeJson(const camera::CameraIntrinsics& e) {
    return {{"fx_px", e.fx},
            {"fy_px", e.fy},
            {"cx_px", e.cx},
            {"cy_px", e.cy},
            {"distortion", e.distortion}};
}

}  // namespace

void printCalibration(const camera::CalibrationReport& r) {
    const camera::StereoCalibration& c = r.calibration;
    std::printf("Picture       %dx%d\n", c.width, c.height);
    for (const auto& [name, eye] : {std::pair("Left ", &c.left), {"Right", &c.right}}) {
        std::printf("%s         fx %.2f fy %.2f cx %.2f cy %.2f px, distortion", name, eye->fx,
                    eye->fy, eye->cx, eye->cy);
        for (const double k : eye->distortion) std::printf(" %.5f", k);
        std::printf("\n");
    }
    std::printf("Baseline      %.2f mm\n", c.baselineMm());
    std::printf("Lenses        %s\n", r.lenses == camera::LensFreedom::kSame
                                          ? "same focal length, no tangential terms"
                                          : nameOf(r.lenses));
    std::printf("Error         stereo %.3f, left alone %.3f, right alone %.3f px rms\n",
                r.stereo_rms_px, r.left_rms_px, r.right_rms_px);
    std::printf("Epipolar      %.3f px rms\n", r.epipolar_rms_px);
    if (r.focal_sigma > 0)
        std::printf("Focal length  uncertain by %.2f %%\n", r.focal_sigma * 100);
    std::printf("Coverage      %.0f %% of the picture areas\n", r.coverage.share() * 100);
    for (const double m : kDistancesM)
        std::printf("At %4.0f m     depth error %.0f mm expected\n", m,
                    camera::expectedDepthErrorMm(c, r.epipolar_rms_px, m * 1000));
    for (const camera::ViewError& v : r.views)
        std::printf("View          %s: left %.2f, right %.2f px%s\n", v.name.c_str(), v.left_px,
                    v.right_px, v.rejected ? ", rejected as an outlier" : "");
}

nlohmann::json calibrationJson(const camera::CalibrationReport& r, const camera::Status& status) {
    const camera::StereoCalibration& c = r.calibration;
    nlohmann::json j{{"accepted", status.ok()},
                     {"reason", status.message()},
                     {"missing_areas", r.coverage.missing()},
                     {"coverage", r.coverage.share()}};
    if (c.width > 0) {
        j["width"] = c.width;
        j["height"] = c.height;
        j["left"] = eyeJson(c.left);
        j["right"] = eyeJson(c.right);
        j["baseline_mm"] = c.baselineMm();
        j["lenses"] = nameOf(r.lenses);
        j["stereo_rms_px"] = r.stereo_rms_px;
        j["epipolar_rms_px"] = r.epipolar_rms_px;
        if (r.focal_sigma > 0)
            j["focal_sigma"] = r.focal_sigma;
        for (const double m : kDistancesM)
            j["depth_error_mm"].push_back(
                {{"distance_m", m},
                 {"error_mm", camera::expectedDepthErrorMm(c, r.epipolar_rms_px, m * 1000)}});
    }
    for (const camera::ViewError& v : r.views)
        j["views"].push_back({{"name", v.name},
                              {"left_px", v.left_px},
                              {"right_px", v.right_px},
                              {"rejected", v.rejected}});
    return j;
}

}  // namespace kova::tools
