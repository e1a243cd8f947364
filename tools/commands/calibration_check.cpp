#include "tools/commands/calibration_check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "camera/rectification/rectifier.h"
#include "tools/progress.h"

namespace kova::tools {

namespace {

using camera::EpipolarReport;
using camera::EpipolarVerdict;
using camera::Status;
using camera::StereoCalibration;

constexpr int kMostPairs = 20;
constexpr int kPairsForAGuess = 5;

/// Rows of the rectified pairs; pairs of another size are left out.
camera::Result<EpipolarReport> compare(const StereoCalibration& calibration, PicturePairs& pairs,
                                       int step, bool swapped) {
    Status status;
    const auto rectifier = camera::Rectifier::make(calibration, status);
    if (!rectifier)
        return status;
    camera::EpipolarCheck check(rectifier->geometry().disparityOffset());
    camera::StereoPair pair;
    camera::Image<std::uint8_t> left, right;
    Progress progress("Comparing");
    for (int i = 0; i < pairs.count(); i += step) {
        progress.update(i, pairs.count());
        if (!pairs.read(i, pair).ok() || pair.left.width() != calibration.width ||
            pair.left.height() != calibration.height || pair.right.width() != pair.left.width() ||
            pair.right.height() != pair.left.height())
            continue;
        if (swapped)
            std::swap(pair.left, pair.right);
        rectifier->rectify(pair.left.view(), pair.right.view(), left, right);
        check.add(left.view(), right.view());
    }
    return check.report();
}

StereoCalibration withNumbersOf(const StereoCalibration& c, double factor) {
    StereoCalibration scaled = camera::scaledCalibration(c, static_cast<int>(c.width * factor),
                                                         static_cast<int>(c.height * factor));
    scaled.width = c.width;
    scaled.height = c.height;
    return scaled;
}

/// A mistake that is often made, undone.
struct Guess {
    const char* words;
    StereoCalibration calibration;
    bool swapped = false;
};

std::vector<Guess> guesses(const StereoCalibration& c) {
    StereoCalibration turned = c, rectified = c;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            turned.right_from_left[i * 3 + k] = c.right_from_left[k * 3 + i];
    rectified.rectified = true;
    rectified.right = rectified.left;
    rectified.left.distortion.clear();
    rectified.right.distortion.clear();
    rectified.right_from_left = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    rectified.translation_mm = {-c.baselineMm(), 0, 0};
    std::vector<Guess> all = {
        {"the eyes are swapped: it fits with the left pictures as the right ones", c, true},
        {"R turns the wrong way: it fits with R transposed", turned},
        {"its numbers belong to pictures of twice this size", withNumbersOf(c, 0.5)},
        {"its numbers belong to pictures of half this size", withNumbersOf(c, 2)},
    };
    if (!c.rectified)
        all.push_back({"these pictures are rectified already", rectified});
    return all;
}

}  // namespace

camera::Result<EpipolarReport> judgeCalibration(const StereoCalibration& calibration,
                                                PicturePairs& pairs, int every) {
    camera::StereoPair pair;
    if (Status s = pairs.read(0, pair); !s.ok())
        return s;
    if (Status s = camera::checkPictureSize(calibration.width, calibration.height,
                                            pair.left.width(), pair.left.height());
        !s.ok())
        return s;
    const auto stepFor = [&](int most) {
        return std::max(every, (pairs.count() + most - 1) / most);
    };
    auto judged = compare(calibration, pairs, stepFor(kMostPairs), false);
    if (judged.ok() && judged.value().status().ok())
        return judged;
    EpipolarReport report;
    if (judged.ok()) {
        report = judged.value();
    } else {  // it cannot even be rectified
        report.verdict = EpipolarVerdict::kMisfit;
        report.words = judged.status().message();
    }
    for (const Guess& guess : guesses(calibration)) {
        const auto tried =
            compare(guess.calibration, pairs, stepFor(kPairsForAGuess), guess.swapped);
        if (tried.ok() && tried.value().verdict == EpipolarVerdict::kFits) {
            if (guess.swapped)
                report.verdict = EpipolarVerdict::kSwapped;
            report.words = std::string("the calibration does not fit: ") + guess.words;
            break;
        }
    }
    return report;
}

std::string describeCalibration(const StereoCalibration& c) {
    // Directions of the middle of the left and right edge, distortion left aside.
    const double wide =
        std::atan(c.left.cx / c.left.fx) + std::atan((c.width - c.left.cx) / c.left.fx);
    char text[160];
    std::snprintf(
        text, sizeof text,
        "%dx%d, baseline %.1f mm, view about %.0f degrees wide; at 1 m the eyes' pictures "
        "differ by %.1f px",
        c.width, c.height, c.baselineMm(), wide * 180 / 3.14159265358979,
        c.left.fx * c.baselineMm() / 1000);
    return text;
}

}  // namespace kova::tools
