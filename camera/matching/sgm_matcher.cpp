#include "camera/matching/sgm_matcher.h"

#include <algorithm>
#include <functional>

#include "camera/base/parallel.h"
#include "camera/matching/confidence.h"
#include "camera/matching/fill.h"
#include "camera/matching/half_size.h"
#include "camera/matching/narrow.h"
#include "camera/matching/sgm_pass.h"
#include "camera/matching/too_near.h"
#include "camera/matching/upscale.h"

namespace kova::camera {

namespace {

constexpr int kStripRows = sgm::kCell;
constexpr int kSpecklePixels = 100, kSpeckleStep = 2 * kDisparityScale;
constexpr int kHalfSpecklePixels = 25, kQuarterSpecklePixels = 8, kEighthSpecklePixels = 4,
              kHalfSpeckleStep = kDisparityScale;
/// Sides and disparities that the working memory's types can hold.
constexpr int kMaxSide = 16384, kMaxDisparity = 4000, kMaxLevels = 320;

/// Calls body(begin, end) for strips of rows.
template <typename Body>
void forRows(int height, const Body& body) {
    const auto strip = [&](int i) { body(i * kStripRows, std::min((i + 1) * kStripRows, height)); };
    parallelFor((height + kStripRows - 1) / kStripRows, std::ref(strip));
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

    void matchQuarter(const Grey& left, const Grey& right, const MatchParameters& parameters);
    void findTooNear(const MatchParameters& parameters);
    void matchHalf(const MatchParameters& parameters);
    void matchFast(const Grey& left, const MatchParameters& parameters, DisparityMap& map);
    void matchFull(const Grey& left, const Grey& right, const MatchParameters& parameters,
                   DisparityMap& map);
    static void rate(const sgm::SgmPass& pass, const ConfidenceTable& table, DisparityMap& map);
    static void removeUnsure(float threshold, DisparityMap& map);

    const ConfidenceTable full_confidence_, half_confidence_;
    sgm::BandMemoryPool pool_;
    sgm::SgmPass full_{pool_}, half_{pool_}, quarter_{pool_}, eighth_{pool_};
    Image<std::uint8_t> half_left_, half_right_, quarter_left_, quarter_right_, eighth_left_,
        eighth_right_;
    Image<std::uint16_t> quarter_map_, eighth_map_;
    DisparityMap half_map_;
    TooNear too_near_;
    EdgeAwareFill fill_;
};

void SgmMatcher::matchQuarter(const Grey& left, const Grey& right,
                              const MatchParameters& parameters) {
    const int half_width = halfSize(left.width), half_height = halfSize(left.height);
    half_left_.resize(half_width, half_height);
    half_right_.resize(half_width, half_height);
    forRows(half_height, [&](int begin, int end) {
        halveRows(left, half_left_.view(), begin, end);
        halveRows(right, half_right_.view(), begin, end);
    });
    const int width = halfSize(half_width), height = halfSize(half_height);
    quarter_left_.resize(width, height);
    quarter_right_.resize(width, height);
    forRows(height, [&](int begin, int end) {
        halveRows(half_left_.view(), quarter_left_.view(), begin, end);
        halveRows(half_right_.view(), quarter_right_.view(), begin, end);
    });
    const int least = parameters.min_disparity / 4;
    // One level more than a quarter of them, since the last one is never taken.
    quarter_.begin(width, height, least, parameters.max_disparity / 4 + 2 - least);
    quarter_map_.resize(width, height);
    quarter_.run(quarter_left_.view(), quarter_right_.view(), kQuarterSpecklePixels,
                 kHalfSpeckleStep, quarter_map_.view());
}

void SgmMatcher::findTooNear(const MatchParameters& parameters) {
    const int width = halfSize(quarter_left_.width()), height = halfSize(quarter_left_.height());
    eighth_left_.resize(width, height);
    eighth_right_.resize(width, height);
    forRows(height, [&](int begin, int end) {
        halveRows(quarter_left_.view(), eighth_left_.view(), begin, end);
        halveRows(quarter_right_.view(), eighth_right_.view(), begin, end);
    });
    const int least = parameters.min_disparity / 8;
    // Four times the range; the types of the search end at 320 levels.
    eighth_.begin(width, height, least, std::min(parameters.max_disparity / 2 - least, kMaxLevels));
    eighth_map_.resize(width, height);
    eighth_.run(eighth_left_.view(), eighth_right_.view(), kEighthSpecklePixels, kHalfSpeckleStep,
                eighth_map_.view());
    too_near_.find(eighth_map_.view(), 8, parameters.max_disparity);
}

void SgmMatcher::matchHalf(const MatchParameters& parameters) {
    const int width = half_left_.width(), height = half_left_.height();
    const int least = parameters.min_disparity / 2;
    // One level more than half of them, since the last one is never taken.
    half_.begin(width, height, least, (parameters.max_disparity + 1) / 2 + 1 - least);
    sgm::narrowSearch(quarter_map_.view(), width, height, half_.search());
    half_map_.resize(width, height);
    half_.run(half_left_.view(), half_right_.view(), kHalfSpecklePixels, kHalfSpeckleStep,
              half_map_.disparity.view());
}

void SgmMatcher::rate(const sgm::SgmPass& pass, const ConfidenceTable& table, DisparityMap& map) {
    forRows(map.disparity.height(), [&](int begin, int end) {
        rateRows(map.disparity.view(), pass.winners(), table, map.confidence.view(), begin, end);
    });
}

void SgmMatcher::matchFast(const Grey& left, const MatchParameters& parameters, DisparityMap& map) {
    matchHalf(parameters);
    // Half a disparity more than the range was searched on both sides.
    const int lowest = parameters.min_disparity * kDisparityScale;
    const int highest = (parameters.max_disparity - 1) * kDisparityScale;
    forRows(half_map_.disparity.height(), [&](int begin, int end) {
        const int width = half_map_.disparity.width();
        for (int y = begin; y < end; ++y) {
            std::uint16_t* d = half_map_.disparity.row(y);
            for (int x = 0; x < width; ++x) {
                const bool inside = (2 * d[x] >= lowest) & (2 * d[x] <= highest);
                d[x] = inside ? d[x] : kInvalidDisparity;
            }
        }
    });
    rate(half_, half_confidence_, half_map_);
    forRows(left.height, [&](int begin, int end) {
        upscaleDisparityRows(half_map_.disparity.view(), map.disparity.view(), begin, end);
        upscaleByteRows(half_map_.confidence.view(), map.confidence.view(), begin, end);
    });
}

void SgmMatcher::matchFull(const Grey& left, const Grey& right, const MatchParameters& parameters,
                           DisparityMap& map) {
    full_.begin(left.width, left.height, parameters.min_disparity,
                parameters.max_disparity - parameters.min_disparity);
    if (parameters.work_mode == WorkMode::kMedium) {
        matchHalf(parameters);
        sgm::narrowSearch(half_map_.disparity.view(), left.width, left.height, full_.search());
    }
    full_.run(left, right, kSpecklePixels, kSpeckleStep, map.disparity.view());
    rate(full_, full_confidence_, map);
}

void SgmMatcher::removeUnsure(float threshold, DisparityMap& map) {
    if (threshold <= 0)
        return;
    const float least = threshold * kConfidenceScale;
    forRows(map.disparity.height(), [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            std::uint16_t* d = map.disparity.row(y);
            std::uint8_t* c = map.confidence.row(y);
            for (int x = 0; x < map.disparity.width(); ++x) {
                if (static_cast<float>(c[x]) < least && isDisparity(d[x])) {
                    d[x] = kInvalidDisparity;
                    c[x] = 0;
                }
            }
        }
    });
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
    matchQuarter(left, right, parameters);
    if (parameters.work_mode == WorkMode::kFast)
        matchFast(left, parameters, map);
    else
        matchFull(left, right, parameters, map);
    removeUnsure(parameters.confidence_threshold, map);
    findTooNear(parameters);
    forRows(left.height, [&](int begin, int end) { too_near_.mark(map, begin, end); });
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
