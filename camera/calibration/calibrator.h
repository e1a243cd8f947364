#pragma once

#include <array>
#include <string>
#include <vector>

#include "camera/base/image.h"
#include "camera/base/status.h"
#include "camera/calibration/board.h"
#include "camera/calibration/stereo_calibration.h"

namespace kova::camera {

/// How much freedom the lenses have.
enum class LensFreedom {
    /// The simplest of the others whose stereo error no freer ones reduce by a quarter: with few
    /// views a freer model always fits a little better, by giving the noise to the principal
    /// points.
    /// A fisheye where it fits wide views a tenth better.
    kAuto,
    kSame,     ///< one focal length for both eyes, no tangential distortion, k1 and k2
    kFree,     ///< every eye for itself, with as many coefficients as asked for
    kFisheye,  ///< every eye for itself, equidistant with four coefficients
};

struct CalibratorOptions {
    int min_views = 6;        ///< with the board in both eyes, after outliers are gone
    double max_rms_px = 1.0;  ///< a larger stereo error is refused
    double max_epipolar_px = 0.7;
    double max_focal_sigma = 0.02;  ///< relative uncertainty of fx that is refused
    LensFreedom freedom = LensFreedom::kAuto;
    /// Of the distortion of free lenses: 4, 5 or 8; 0: 5 where the fifth is clear, else 4.
    int coefficients = 0;
};

/// What a pair of pictures gave.
struct BoardSighting {
    bool left = false;  ///< the whole board was found (of a ChArUco board, enough of it)
    bool right = false;
    bool used = false;  ///< false also if it looks like one that was there already
    std::string words;
};

/// Nine areas of the picture, row by row from the top left.
struct Coverage {
    std::array<int, 9> left{};  ///< points of the board seen in each area
    std::array<int, 9> right{};

    /// Counts the points of a view.
    void add(const BoardPoints& in_left, const BoardPoints& in_right, int width, int height);
    /// Share of the areas, over both eyes, in which the board was seen.
    double share() const;
    /// "left: bottom right, bottom; right: top"; empty when nothing is missing.
    std::string missing() const;
};

struct ViewError {
    std::string name;
    double left_px = 0;  ///< root mean square of the reprojection error
    double right_px = 0;
    bool rejected = false;  ///< an outlier, not used
};

struct CalibrationReport {
    StereoCalibration calibration;
    double left_rms_px = 0;  ///< of each eye for itself
    double right_rms_px = 0;
    double stereo_rms_px = 0;
    LensFreedom lenses = LensFreedom::kAuto;  ///< which was taken
    /// Root mean square of the difference of the rows of the board's points after rectification.
    double epipolar_rms_px = 0;
    /// Relative standard deviation of fx, the larger of both eyes; 0 for a fisheye: not known.
    double focal_sigma = 0;
    std::vector<ViewError> views;
    Coverage coverage;
};

/// Expected error of a measured distance [mm]: z² / (fx * baseline) times the error of a disparity,
/// which is 0.25 px of matching and the calibration's own error between the rows together.
double expectedDepthErrorMm(const StereoCalibration& calibration, double epipolar_px,
                            double distance_mm);

/// Calibrates a stereo camera from pictures of a board (Zhang, PAMI 2000, as OpenCV has it): each
/// eye first, then both together; views whose error is far above the others' are left out.
class StereoCalibrator {
public:
    static constexpr int kFewestPoints = 8;  ///< of a view

    explicit StereoCalibrator(const Board& board, const CalibratorOptions& options = {})
        : board_(board), options_(options) {}

    /// Looks for the board in a pair. All pairs must have the same size.
    /// @param name  for reports
    BoardSighting add(const std::string& name, const ImageView<const std::uint8_t>& left,
                      const ImageView<const std::uint8_t>& right);
    /// The same with what findBoard() found in pictures of this size.
    BoardSighting add(const std::string& name, int width, int height, const BoardPoints& left,
                      const BoardPoints& right);

    int viewCount() const { return static_cast<int>(views_.size()); }
    Coverage coverage() const;

    /// @param report  filled as far as the calibration came, also when it is refused
    /// @return kInvalidArgument (too few views, a bad board), kCalibrationMisfit (a bad result),
    ///         each with the reason and what to do about it
    Status calibrate(CalibrationReport& report) const;

private:
    struct View {
        std::string name;
        BoardPoints left, right;  ///< the same points: those that both eyes saw
    };

    Board board_;
    CalibratorOptions options_;
    int width_ = 0;
    int height_ = 0;
    std::vector<View> views_;

    Status solve(const std::vector<std::size_t>& used, CalibrationReport& report) const;
};

}  // namespace kova::camera
