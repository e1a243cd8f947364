#include "camera/rectification/row_aligner.h"

#include <algorithm>
#include <cmath>

#include "camera/base/log.h"

namespace kova::camera {

namespace {

using Terms = RowOffset::Terms;
constexpr int kTerms = RowOffset::kTerms;

// The first frames are all looked at, then one of so many: what one frame costs is spread.
constexpr std::uint32_t kFirstFrames = 12, kEvery = 4;
// Of the very first ones more patches are looked at, since they are relied on at once.
constexpr std::uint32_t kDenseFrames = 3, kDenseRounds = 3;
constexpr int kFewestSamples = 20;
constexpr double kFewestAgree = 0.6;  // share of the samples
/// Before anything was seen [px].
constexpr Terms kPriorDeviation = {0.5, 0.5, 0.5, 0.15, 0.05};
/// Random walk from one frame looked at to the next [px]: with what a frame knows (some hundredths
/// of a pixel) it makes a memory of about 15 of these frames, 2 s at 30 frames per second.
constexpr double kWalk = 0.0015;
/// Errors of neighbouring patches, and of the same patch in the next frame, have much in common:
/// so many count as one.
constexpr double kAlike = 10;
/// Smaller offsets are left alone [px]: nothing is gained, and of a pair that comes rectified the
/// right eye would be resampled, which blurs.
constexpr double kWorthIt = 0.1;
constexpr double kMoved = 0.03;
/// The limit is believed when the estimate is known to this [px].
constexpr double kKnown = 0.2;

template <typename Matrix>
bool invert(Matrix m, Matrix& out) {
    for (int i = 0; i < kTerms; ++i)
        for (int k = 0; k < kTerms; ++k) out[i][k] = i == k ? 1 : 0;
    // Gauss-Jordan; the matrices are symmetric and positive, so that no row has to be exchanged.
    for (int p = 0; p < kTerms; ++p) {
        if (!(m[p][p] > 1e-12))
            return false;
        const double scale = 1 / m[p][p];
        for (int k = 0; k < kTerms; ++k) {
            m[p][k] *= scale;
            out[p][k] *= scale;
        }
        for (int i = 0; i < kTerms; ++i) {
            if (i == p)
                continue;
            const double factor = m[i][p];
            for (int k = 0; k < kTerms; ++k) {
                m[i][k] -= factor * m[p][k];
                out[i][k] -= factor * out[p][k];
            }
        }
    }
    return true;
}

template <typename Matrix>
Terms times(const Matrix& m, const Terms& v) {
    Terms out{};
    for (int i = 0; i < kTerms; ++i)
        for (int k = 0; k < kTerms; ++k) out[i] += m[i][k] * v[k];
    return out;
}

}  // namespace

RowAligner::RowAligner(const RectifiedGeometry& geometry) : none_(geometry) {
    samples_.reserve(kDenseRounds * RowPatches::kMostSamples);
    residuals_.reserve(kDenseRounds * RowPatches::kMostSamples);
    sorted_.reserve(kDenseRounds * RowPatches::kMostSamples);
    reset();
}

void RowAligner::reset() {
    estimate_ = applied_ = none_;
    covariance_ = {};
    for (int i = 0; i < kTerms; ++i) covariance_[i][i] = kPriorDeviation[i] * kPriorDeviation[i];
    frames_ = 0;
    taken_ = 0;
    stopped_ = false;
}

bool RowAligner::due() {
    const std::uint32_t frame = frames_++;
    return !stopped_ && (frame < kFirstFrames || frame % kEvery == 0);
}

bool RowAligner::update(const ImageView<const std::uint8_t>& left,
                        const ImageView<const std::uint8_t>& right, const DisparityMap& map,
                        bool turned) {
    if (!due())
        return false;
    samples_.clear();
    const std::uint32_t rounds = frames_ <= kDenseFrames ? kDenseRounds : 1;
    for (std::uint32_t round = 0; round < rounds; ++round)
        for (RowSample sample :
             patches_.measure(left, right, map, frames_ * kDenseRounds + round)) {
            if (turned) {
                // The left picture is the right eye's: what was found is its place in the other.
                sample.x = static_cast<float>(left.width - 1) - sample.left_x;
                sample.y = static_cast<float>(left.height - 1) - sample.y;
            }
            sample.offset_px += static_cast<float>(applied_.at(sample.x, sample.y));
            samples_.push_back(sample);
        }
    Evidence evidence;
    if (!fit(evidence))
        return false;
    ++taken_;
    addUp(evidence);
    return decide();
}

void RowAligner::residuals(const RowOffset& offset) {
    residuals_.clear();
    for (const RowSample& s : samples_)
        residuals_.push_back((s.offset_px - static_cast<float>(offset.at(s.x, s.y))) /
                             std::sqrt(s.variance_px2));
}

bool RowAligner::fit(Evidence& evidence) {
    if (static_cast<int>(samples_.size()) < kFewestSamples)
        return false;
    RowOffset offset = estimate_;
    double scale = 1;
    constexpr int kRounds = 8;
    for (int round = 0; round < kRounds; ++round) {
        residuals(offset);
        if (round < kRounds - 2) {
            sorted_.resize(residuals_.size());
            std::transform(residuals_.begin(), residuals_.end(), sorted_.begin(),
                           [](float r) { return std::abs(r); });
            const auto middle = sorted_.begin() + static_cast<std::ptrdiff_t>(sorted_.size() / 2);
            std::nth_element(sorted_.begin(), middle, sorted_.end());
            scale = std::max(1.0, 1.4826 * static_cast<double>(*middle));
        }
        // Wide at first, since the fit begins where the frame before left it.
        const double end = (round < 3 ? 9.0 : 4.685) * scale;
        Matrix normal{};
        Terms right{};
        int agree = 0;
        for (std::size_t i = 0; i < samples_.size(); ++i) {
            const RowSample& s = samples_[i];
            const double share = residuals_[i] / end;
            if (share * share >= 1)
                continue;
            ++agree;
            const double weight = (1 - share * share) * (1 - share * share) / s.variance_px2;
            const Terms at = offset.weightsAt(s.x, s.y);
            for (int a = 0; a < kTerms; ++a) {
                right[a] += weight * at[a] * s.offset_px;
                for (int b = 0; b < kTerms; ++b) normal[a][b] += weight * at[a] * at[b];
            }
        }
        if (agree < kFewestSamples || agree < kFewestAgree * static_cast<double>(samples_.size()))
            return false;
        const double alike = kAlike * scale * scale;
        for (int a = 0; a < kTerms; ++a) {
            evidence.weighted[a] = right[a] / alike;
            for (int b = 0; b < kTerms; ++b) evidence.information[a][b] = normal[a][b] / alike;
        }
        // A little of the prior keeps terms at rest that the samples do not show.
        for (int a = 0; a < kTerms; ++a) {
            normal[a][a] += 1 / (kPriorDeviation[a] * kPriorDeviation[a]);
            right[a] += estimate_.terms[a] / (kPriorDeviation[a] * kPriorDeviation[a]);
        }
        Matrix inverse;
        if (!invert(normal, inverse))
            return false;
        offset.terms = times(inverse, right);
    }
    return true;
}

void RowAligner::addUp(const Evidence& evidence) {
    for (int i = 0; i < kTerms; ++i) covariance_[i][i] += kWalk * kWalk;
    Matrix information;
    if (!invert(covariance_, information))
        return;
    Terms weighted = times(information, estimate_.terms);
    for (int a = 0; a < kTerms; ++a) {
        weighted[a] += evidence.weighted[a];
        for (int b = 0; b < kTerms; ++b) information[a][b] += evidence.information[a][b];
    }
    Matrix covariance;
    if (!invert(information, covariance))
        return;
    covariance_ = covariance;
    estimate_.terms = times(covariance_, weighted);
}

double RowAligner::deviation() const {
    double largest = 0;
    for (const double x : {none_.cx - none_.half_width, none_.cx + none_.half_width})
        for (const double y : {none_.cy - none_.half_height, none_.cy + none_.half_height}) {
            const Terms at = none_.weightsAt(x, y);
            const Terms spread = times(covariance_, at);
            double variance = 0;
            for (int i = 0; i < kTerms; ++i) variance += at[i] * spread[i];
            largest = std::max(largest, variance);
        }
    return std::sqrt(std::max(largest, 0.0));
}

bool RowAligner::decide() {
    const double largest = estimate_.largest();
    if (largest > kLimitPx) {
        if (deviation() > kKnown)
            return false;
        stopped_ = true;
        char text[160];
        std::snprintf(text, sizeof text,
                      "the rows of the two eyes are %.1f px apart, more than the %.0f px that are "
                      "corrected; calibrate again (kova calibrate)",
                      largest, kLimitPx);
        logWarning("rectification", text);
        return false;
    }
    if (estimate_.largestDifference(applied_) < kMoved)
        return false;
    if (applied_.largest() == 0 && largest < kWorthIt)
        return false;
    applied_ = estimate_;
    return true;
}

}  // namespace kova::camera
