#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "camera/rectification/row_offset.h"
#include "camera/rectification/row_patches.h"

namespace kova::camera {

/// Follows how the rows of the two eyes lie to each other, from what the frames themselves show:
/// continuous self-calibration, as Dang, Hoffmann and Stiller (IEEE TIP 2009) do it for all
/// parameters, here for those that rows show well. Each frame's patches give the offsets by a
/// robust fit (Tukey's biweight, reweighted least squares), which an information filter with a
/// random walk adds up.
///
/// Deterministic: the order of the frames decides, nothing else.
class RowAligner {
public:
    /// Never corrects more than this, anywhere in the picture [px].
    static constexpr double kLimitPx = 3;

    explicit RowAligner(const RectifiedGeometry& geometry);

    /// Forgets everything, the corrections too.
    void reset();

    /// Takes in a frame whose right picture was made with applied().
    /// @param turned  the pair was turned by 180 degrees, which makes the right eye the left one
    /// @return true when applied() has changed: the next frames are to be made with it
    bool update(const ImageView<const std::uint8_t>& left,
                const ImageView<const std::uint8_t>& right, const DisparityMap& map, bool turned);

    /// What the right eye's rows are to be corrected by; changes only when that moves some of them
    /// by more than a few hundredths of a pixel.
    const RowOffset& applied() const { return applied_; }
    /// The newest estimate.
    const RowOffset& estimate() const { return estimate_; }
    /// Standard deviation of the estimate, at the pixel where it is largest [px].
    double deviation() const;
    /// Frames that were looked at and told something.
    int frames() const { return taken_; }
    /// The rows are so far off that nothing is followed any more, until reset().
    bool stopped() const { return stopped_; }

private:
    static constexpr int kTerms = RowOffset::kTerms;
    using Matrix = std::array<std::array<double, kTerms>, kTerms>;
    /// What a frame says: information and information times offset.
    struct Evidence {
        Matrix information{};
        RowOffset::Terms weighted{};
    };

    bool due();
    bool fit(Evidence& evidence);
    void residuals(const RowOffset& offset);
    void addUp(const Evidence& evidence);
    bool decide();

    RowPatches patches_;
    std::vector<RowSample> samples_;  // whole offsets, of the original right eye
    std::vector<float> residuals_;    // in standard deviations
    std::vector<float> sorted_;
    RowOffset none_, estimate_, applied_;
    Matrix covariance_{};
    std::uint32_t frames_ = 0;
    int taken_ = 0;
    bool stopped_ = false;
};

}  // namespace kova::camera
