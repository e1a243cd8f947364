#include "bench/detection/real_pairs.h"

#include <algorithm>
#include <cmath>

#include "camera/detection/detector.h"
#include "camera/pipeline/distance_range.h"

namespace kova::bench {

namespace {

using camera::ColumnRange;
using camera::ColumnState;
using camera::DetectionFrame;

constexpr float kNearMm = 15000;

void detect(const TruePair& pair, const camera::DisparityMap& map,
            const camera::RectifiedGeometry& geometry, bool half_size, DetectionFrame& frame) {
    camera::DetectionInput input;
    input.left = pair.left.view();
    input.right = pair.right.view();
    input.map = &map;
    input.half_size = half_size;
    input.geometry = geometry;
    const camera::DistanceRange range(geometry);
    input.min_disparity = camera::searchRange(geometry, range.minMm(), range.maxMm()).min;
    input.max_disparity = pair.entry.levels;
    camera::DetectionSettings settings;
    settings.temporal = false;
    camera::Detector().detect(input, settings, frame);
}

bool isOccupied(const ColumnRange& column) {
    return column.state == ColumnState::kOccupied || column.state == ColumnState::kTooNear;
}

void count(bool hit, Rate& rate) {
    rate.all += 1;
    rate.hits += hit;
}

void compareColumns(const DetectionFrame& computed, const DetectionFrame& truth,
                    PairAgreement& out) {
    const double scale = truth.geometry.fx * truth.geometry.baseline_mm;
    for (std::size_t i = 0; i < truth.columns.size(); ++i) {
        const ColumnRange& is = truth.columns[i];
        const ColumnRange& said = computed.columns[i];
        count(is.state == said.state, out.state);
        count(isOccupied(said), isOccupied(is) ? out.occupied : out.invented);
        if (!isOccupied(is) || !isOccupied(said))
            continue;
        const double a = scale / is.distance_mm, b = scale / said.distance_mm;
        const double tolerance = std::max(1.0, 0.05 * a);
        const bool same = std::abs(a - b) <= tolerance, farther = b < a - tolerance;
        count(same, out.distance);
        count(farther, out.farther);
        if (is.distance_mm <= kNearMm) {
            count(same, out.near_distance);
            count(farther, out.near_farther);
        }
        out.distance_percent.push_back(100 * std::abs(said.distance_mm / is.distance_mm - 1));
    }
}

void compareMaps(const DetectionFrame& computed, const DetectionFrame& truth, PairAgreement& out) {
    for (int y = 0; y < truth.height; ++y)
        for (int x = 0; x < truth.width; ++x) {
            const std::uint8_t is = truth.ground_map.at(x, y), said = computed.ground_map.at(x, y);
            if (is == 127)
                continue;
            count(said != 127, out.map_both);
            if (said != 127)
                count(is == said, out.map);
        }
}

void addRate(const Rate& from, Rate& to) {
    to.hits += from.hits;
    to.all += from.all;
}

}  // namespace

void PairAgreement::add(const PairAgreement& other) {
    pairs += other.pairs;
    for (const auto rate :
         {&PairAgreement::state, &PairAgreement::occupied, &PairAgreement::invented,
          &PairAgreement::distance, &PairAgreement::near_distance, &PairAgreement::farther,
          &PairAgreement::near_farther, &PairAgreement::map, &PairAgreement::map_both,
          &PairAgreement::ground})
        addRate(other.*rate, this->*rate);
    distance_percent.insert(distance_percent.end(), other.distance_percent.begin(),
                            other.distance_percent.end());
}

camera::Result<PairAgreement> comparePair(const TruePair& pair,
                                          const camera::RectifiedGeometry& geometry,
                                          camera::WorkMode mode) {
    camera::MatchParameters parameters;
    parameters.work_mode = mode;
    parameters.max_disparity = pair.entry.levels;
    camera::DisparityMap computed;
    if (camera::Status s =
            camera::makeMatcher()->match(pair.left.view(), pair.right.view(), parameters, computed);
        !s.ok())
        return s;
    camera::DisparityMap truth;
    truth.resize(computed.disparity.width(), computed.disparity.height());
    for (int y = 0; y < truth.disparity.height(); ++y)
        for (int x = 0; x < truth.disparity.width(); ++x) {
            const float d = pair.truth.at(x, y);
            const bool known = d >= 0;
            truth.disparity.at(x, y) =
                known ? static_cast<std::uint16_t>(std::lround(d * camera::kDisparityScale))
                      : camera::kInvalidDisparity;
            truth.confidence.at(x, y) = known ? camera::kConfidenceScale : 0;
            if (known)
                continue;
            computed.disparity.at(x, y) = camera::kInvalidDisparity;
            computed.confidence.at(x, y) = 0;
        }
    DetectionFrame from_computed, from_truth;
    detect(pair, computed, geometry, mode == camera::WorkMode::kFast, from_computed);
    detect(pair, truth, geometry, false, from_truth);
    PairAgreement out;
    out.pairs = 1;
    count(from_computed.ground.state == camera::GroundState::kFound &&
              from_truth.ground.state == camera::GroundState::kFound,
          out.ground);
    compareColumns(from_computed, from_truth, out);
    compareMaps(from_computed, from_truth, out);
    return out;
}

}  // namespace kova::bench
