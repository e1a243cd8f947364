#include "camera/matching/sgm_matcher.h"

#include <algorithm>

#include "camera/base/parallel.h"
#include "camera/matching/borrow.h"
#include "camera/matching/confidence.h"
#include "camera/matching/fill.h"
#include "camera/matching/half_size.h"
#include "camera/matching/narrow.h"
#include "camera/matching/sgm_pass.h"
#include "camera/matching/strips.h"
#include "camera/matching/too_near.h"
#include "camera/matching/upscale.h"

namespace kova::camera {

namespace {

constexpr int kSpecklePixels = 100, kSpeckleStep = 2 * kDisparityScale;
/// Half the size narrows medium's search: it keeps thin things then and is itself narrowed less.
constexpr int kNarrowingSpecklePixels = 12;
constexpr int kMargin = 4, kFastMargin = 3;
constexpr int kHalfSpecklePixels = 25, kQuarterSpecklePixels = 8, kEighthSpecklePixels = 4,
              kHalfSpeckleStep = kDisparityScale;
/// Sides and disparities that the working memory's types can hold.
constexpr int kMaxSide = 16384, kMaxDisparity = 4000, kMaxLevels = 320;

/// What the eyes have in common in noise alone differs more between them, the finer the picture:
/// so much more (mean of the best sums) at a size than at half of it is usual without noise.
constexpr int kHalfGrain = 10, kFullGrain = 6;
constexpr int kMostSoftening = 36;
/// How pictures are read in which half the size is noisy too: low light, walls without texture.
constexpr sgm::Denoising kHalfInNoise = {40, false, 3, 2}, kFullInNoise = {60, true, 4, 4};
/// What is found in them is right less often than its margins let expect: confidence falls by
/// 1 / kNoDoubt for every grey level that half the size would have to be softened.
constexpr int kNoDoubt = 80;

/// By how many grey levels a picture has to be softened [see sgm::Denoising].
///
/// @param grain  by how much the best sums exceed those at half the size, one size further down
int softening(int grain, int usual) {
    return std::clamp(2 * (grain - usual), 0, kMostSoftening);
}

/// Calls body(begin, end) for strips of rows.
template <typename Body>
void forRows(int height, const Body& body) {
    parallelFor(stripsFor(height),
                [&](int i) { body(stripBegin(i, height), stripBegin(i + 1, height)); });
}

class SgmMatcher : public Matcher {
public:
    SgmMatcher(const ConfidenceTable& full, const ConfidenceTable& half)
        : full_confidence_(full), half_confidence_(half) {}
    Status match(const ImageView<const std::uint8_t>& left,
                 const ImageView<const std::uint8_t>& right, const MatchParameters& parameters,
                 DisparityMap& map) override;

private:
    using Grey = ImageView<const std::uint8_t>;

    struct SmallPair {
        Image<std::uint8_t> left, right;
    };

    void makeSmall(const Grey& left, const Grey& right);
    void matchEighth(const MatchParameters& parameters);
    void matchQuarter(const MatchParameters& parameters);
    int meanBest(const sgm::SgmPass& pass, int factor) const;
    void matchHalf(const MatchParameters& parameters);
    void rateHalf();
    void matchFast(const Grey& left, const MatchParameters& parameters, DisparityMap& map);
    void matchFull(const Grey& left, const Grey& right, const MatchParameters& parameters,
                   DisparityMap& map);
    void borrow(DisparityMap& map);
    static void rate(const sgm::SgmPass& pass, const ConfidenceTable& table, int noise,
                     DisparityMap& map);
    void finishRows(const MatchParameters& parameters, DisparityMap& map, int begin, int end) const;

    const ConfidenceTable full_confidence_, half_confidence_;
    sgm::BandMemoryPool pool_;
    sgm::SgmPass full_{pool_}, half_{pool_}, quarter_{pool_}, eighth_{pool_};
    SmallPair half_eyes_, quarter_eyes_, eighth_eyes_;
    Image<std::uint16_t> quarter_map_, eighth_map_;
    DisparityMap half_map_;
    int half_noise_ = 0;             ///< by how much half the size would have to be softened
    Image<std::uint16_t> upscaled_;  ///< a row per strip
    TooNear too_near_;
    EdgeAwareFill fill_;
};

/// Makes the pictures of a half, a quarter and an eighth of the size, strip by strip.
void SgmMatcher::makeSmall(const Grey& left, const Grey& right) {
    int width = left.width, height = left.height;
    for (SmallPair* pair : {&half_eyes_, &quarter_eyes_, &eighth_eyes_}) {
        width = halfSize(width);
        height = halfSize(height);
        pair->left.resize(width, height);
        pair->right.resize(width, height);
    }
    constexpr int kRows = kStripRows / 8;  // of an eighth
    const auto halve = [](const Grey& picture, Image<std::uint8_t>& half, int strip, int rows) {
        const int height = half.height();
        halveRows(picture, half.view(), std::min(strip * rows, height),
                  std::min((strip + 1) * rows, height));
    };
    parallelFor((height + kRows - 1) / kRows, [&](int strip) {
        halve(left, half_eyes_.left, strip, 4 * kRows);
        halve(right, half_eyes_.right, strip, 4 * kRows);
        halve(half_eyes_.left.view(), quarter_eyes_.left, strip, 2 * kRows);
        halve(half_eyes_.right.view(), quarter_eyes_.right, strip, 2 * kRows);
        halve(quarter_eyes_.left.view(), eighth_eyes_.left, strip, kRows);
        halve(quarter_eyes_.right.view(), eighth_eyes_.right, strip, kRows);
    });
}

void SgmMatcher::matchEighth(const MatchParameters& parameters) {
    const int width = eighth_eyes_.left.width(), height = eighth_eyes_.left.height();
    const int least = parameters.min_disparity / 8;
    // Four times the range; the types of the search end at 320 levels.
    eighth_.begin(width, height, least, std::min(parameters.max_disparity / 2 - least, kMaxLevels));
    eighth_map_.resize(width, height);
    eighth_.run(eighth_eyes_.left.view(), eighth_eyes_.right.view(), kEighthSpecklePixels,
                kHalfSpeckleStep, eighth_map_.view());
    too_near_.find(eighth_map_.view(), 8, parameters.max_disparity);
}

void SgmMatcher::matchQuarter(const MatchParameters& parameters) {
    const int width = quarter_eyes_.left.width(), height = quarter_eyes_.left.height();
    const int least = parameters.min_disparity / 4;
    // One level more than a quarter of them, since the last one is never taken.
    quarter_.begin(width, height, least, parameters.max_disparity / 4 + 2 - least);
    quarter_map_.resize(width, height);
    quarter_.run(quarter_eyes_.left.view(), quarter_eyes_.right.view(), kQuarterSpecklePixels,
                 kHalfSpeckleStep, quarter_map_.view());
}

/// Mean of the best sums: how much the eyes differ at this size. What is too near does not count,
/// since only the search at an eighth of the size can find it.
///
/// @param factor  how much larger than an eighth the pictures are
int SgmMatcher::meanBest(const sgm::SgmPass& pass, int factor) const {
    const Image<std::uint8_t>& best = pass.winners().best;
    std::uint64_t sum = 0, count = 0;
    for (int y = 0; y < best.height(); ++y) {
        const std::uint8_t* row = best.row(y);
        std::uint32_t row_sum = 0, row_count = static_cast<std::uint32_t>(best.width());
        if (too_near_.anyMarked(y / factor)) {
            row_count = 0;
            for (int x = 0; x < best.width(); ++x) {
                const std::uint32_t counts = too_near_.marked(x / factor, y / factor) ? 0 : 1;
                row_sum += counts * row[x];
                row_count += counts;
            }
        } else {
            for (int x = 0; x < best.width(); ++x) row_sum += row[x];
        }
        sum += row_sum;
        count += row_count;
    }
    return static_cast<int>(sum / std::max<std::uint64_t>(count, 1));
}

void SgmMatcher::matchHalf(const MatchParameters& parameters) {
    const int width = half_eyes_.left.width(), height = half_eyes_.left.height();
    const int least = parameters.min_disparity / 2;
    // One level more than half of them, since the last one is never taken.
    half_.begin(width, height, least, (parameters.max_disparity + 1) / 2 + 1 - least);
    const bool fast = parameters.work_mode == WorkMode::kFast;
    sgm::narrowSearch(quarter_map_.view(), width, height, fast ? kFastMargin : kMargin,
                      half_.search());
    // Half a disparity more than the range is searched on both sides.
    half_.keepWithin(parameters.min_disparity * kDisparityScale / 2,
                     (parameters.max_disparity - 1) * kDisparityScale / 2);
    half_noise_ = softening(meanBest(quarter_, 2) - meanBest(eighth_, 1), kHalfGrain);
    if (half_noise_ > 0)
        half_.denoise(kHalfInNoise);
    half_map_.resize(width, height);
    const int speckles =
        parameters.work_mode == WorkMode::kMedium ? kNarrowingSpecklePixels : kHalfSpecklePixels;
    half_.run(half_eyes_.left.view(), half_eyes_.right.view(), speckles, kHalfSpeckleStep,
              half_map_.disparity.view());
}

void SgmMatcher::rate(const sgm::SgmPass& pass, const ConfidenceTable& table, int noise,
                      DisparityMap& map) {
    ConfidenceTable worth = table;
    for (std::uint8_t& value : worth)
        value = static_cast<std::uint8_t>(std::max(value * (kNoDoubt - noise) / kNoDoubt, 1));
    forRows(map.disparity.height(), [&](int begin, int end) {
        rateRows(map.disparity.view(), pass.winners(), worth, map.confidence.view(), begin, end);
    });
}

void SgmMatcher::rateHalf() {
    rate(half_, half_confidence_, half_noise_, half_map_);
}

void SgmMatcher::matchFast(const Grey& left, const MatchParameters& parameters, DisparityMap& map) {
    matchHalf(parameters);
    rateHalf();
    forRows(left.height, [&](int begin, int end) {
        upscaleDisparityRows(half_map_.disparity.view(), map.disparity.view(), begin, end);
        upscaleByteRows(half_map_.confidence.view(), map.confidence.view(), begin, end);
        finishRows(parameters, map, begin, end);
    });
}

void SgmMatcher::matchFull(const Grey& left, const Grey& right, const MatchParameters& parameters,
                           DisparityMap& map) {
    full_.begin(left.width, left.height, parameters.min_disparity,
                parameters.max_disparity - parameters.min_disparity);
    matchHalf(parameters);
    // Where half the size was softened its eyes no longer tell how noisy they are.
    if (half_noise_ > 0)
        full_.denoise(kFullInNoise);
    else
        full_.denoise({softening(meanBest(half_, 4) - meanBest(quarter_, 2), kFullGrain)});
    if (parameters.work_mode == WorkMode::kMedium)
        sgm::narrowSearch(half_map_.disparity.view(), left.width, left.height, kMargin,
                          full_.search());
    full_.run(left, right, kSpecklePixels, kSpeckleStep, map.disparity.view());
    rate(full_, full_confidence_, half_noise_ * 4 / 3, map);
    if (parameters.borrow)
        borrow(map);
    if (parameters.confidence_threshold > 0 || too_near_.anyMarked())
        forRows(left.height, [&](int begin, int end) { finishRows(parameters, map, begin, end); });
}

void SgmMatcher::borrow(DisparityMap& map) {
    rateHalf();
    const int height = map.disparity.height();
    forRows(half_map_.disparity.height(), [&](int begin, int end) {
        chooseBorrowed(map.disparity.view(), half_map_, begin, end);
    });
    upscaled_.resize(2 * half_map_.disparity.width(), stripsFor(height));
    forRows(height, [&](int begin, int end) {
        borrowRows(half_map_, map, upscaled_.row(stripOf(begin, height)), begin, end);
    });
}

/// Removes what is less sure than asked for and what is too near.
void SgmMatcher::finishRows(const MatchParameters& parameters, DisparityMap& map, int begin,
                            int end) const {
    const float least = parameters.confidence_threshold * kConfidenceScale;
    for (int y = begin; y < end && least > 0; ++y) {
        std::uint16_t* d = map.disparity.row(y);
        std::uint8_t* c = map.confidence.row(y);
        for (int x = 0; x < map.disparity.width(); ++x) {
            if (static_cast<float>(c[x]) < least && isDisparity(d[x])) {
                d[x] = kInvalidDisparity;
                c[x] = 0;
            }
        }
    }
    too_near_.mark(map, begin, end);
}

Status SgmMatcher::match(const Grey& left, const Grey& right, const MatchParameters& parameters,
                         DisparityMap& map) {
    if (left.width != right.width || left.height != right.height)
        return {ErrorCode::kInvalidArgument, "matching: the pictures differ in size"};
    if (left.width > kMaxSide || left.height > kMaxSide)
        return {ErrorCode::kInvalidArgument, "matching: pictures of at most 16384x16384 pixels"};
    if (Status status = parameters.check(); !status.ok())
        return status;
    if (parameters.max_disparity > kMaxDisparity)
        return {ErrorCode::kInvalidArgument, "matching: the largest disparity is at most 4000"};
    map.resize(left.width, left.height);
    if (left.empty())
        return {};
    pool_.reserve(std::min(
        std::max(parameters.max_disparity - parameters.min_disparity, parameters.max_disparity / 2),
        kMaxLevels));
    makeSmall(left, right);
    // They are too small to keep several threads busy one after the other.
    parallelFor(2, [&](int i) { i == 0 ? matchQuarter(parameters) : matchEighth(parameters); });
    if (parameters.work_mode == WorkMode::kFast)
        matchFast(left, parameters, map);
    else
        matchFull(left, right, parameters, map);
    map.noisy = half_noise_ > 0;
    if (parameters.fill)
        fill_.fill(left, map);
    return {};
}

}  // namespace

std::unique_ptr<Matcher> makeSgmMatcher() {
    return std::make_unique<SgmMatcher>(kFullConfidence, kHalfConfidence);
}

std::unique_ptr<Matcher> makeSgmMatcher(const ConfidenceTable& table) {
    return std::make_unique<SgmMatcher>(table, table);
}

}  // namespace kova::camera
