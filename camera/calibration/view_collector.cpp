#include "camera/calibration/view_collector.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace kova::camera {

namespace {

/// Two views differ enough when the sum of all differences of their places is at least this.
constexpr double kNewPlace = 0.2;
/// One side of the board is nearer: by 8 %.
constexpr double kTilted = 0.08;
/// Width of the edges between the squares from which on a board is blurred [px].
constexpr double kBlurredPx = 6;

}  // namespace

ViewCollector::Place ViewCollector::placeOf(const BoardPoints& points, int width,
                                            int height) const {
    std::vector<cv::Point2d> board, pixels;
    std::array<double, 2> last = {0, 0};
    for (int id = 0; id < board_.pointCount(); ++id) {
        const std::array<double, 2> p = board_.point(id);
        last = {std::max(last[0], p[0]), std::max(last[1], p[1])};
    }
    Place place;
    for (std::size_t i = 0; i < points.ids.size(); ++i) {
        const std::array<double, 2> p = board_.point(points.ids[i]);
        board.emplace_back(p[0], p[1]);
        pixels.emplace_back(points.pixels[i][0], points.pixels[i][1]);
        place.x += points.pixels[i][0] / width / static_cast<double>(points.ids.size());
        place.y += points.pixels[i][1] / height / static_cast<double>(points.ids.size());
    }
    const cv::Mat found = cv::findHomography(board, pixels);
    if (found.empty())
        return place;
    // The homography's third row gives the distance of each point of the board, up to a factor.
    const cv::Matx33d h(found);
    struct Corner {
        cv::Point2d pixel;
        double distance;
    };
    std::array<Corner, 4> corners;
    std::vector<cv::Point2f> outline;
    for (std::size_t i = 0; i < 4; ++i) {
        const cv::Vec3d q = h * cv::Vec3d(i == 1 || i == 2 ? last[0] : 0, i >= 2 ? last[1] : 0, 1);
        corners[i] = {{q[0] / q[2], q[1] / q[2]}, std::abs(q[2])};
        outline.emplace_back(corners[i].pixel);
    }
    place.size = std::sqrt(cv::contourArea(outline) / width / height);
    const auto tilt = [&](auto before) {
        std::sort(corners.begin(), corners.end(), before);
        return std::log((corners[2].distance + corners[3].distance) /
                        (corners[0].distance + corners[1].distance));
    };
    place.tilt_x = tilt([](const Corner& a, const Corner& b) { return a.pixel.x < b.pixel.x; });
    place.tilt_y = tilt([](const Corner& a, const Corner& b) { return a.pixel.y < b.pixel.y; });
    return place;
}

bool ViewCollector::isNew(const Place& p) const {
    return std::all_of(places_.begin(), places_.end(), [&](const Place& q) {
        return std::abs(p.x - q.x) + std::abs(p.y - q.y) + std::abs(p.size - q.size) +
                   std::abs(p.tilt_x - q.tilt_x) + std::abs(p.tilt_y - q.tilt_y) >=
               kNewPlace;
    });
}

bool ViewCollector::coversMore(const BoardPoints& left, const BoardPoints& right, int width,
                               int height) const {
    const Coverage covered = calibrator_.coverage();
    Coverage more = covered;
    more.add(left, right, width, height);
    return more.share() > covered.share();
}

bool ViewCollector::standsStill(const BoardPoints& now, const EyeViews& before) const {
    const BoardPoints then = findBoard(board_, before.left);
    double sum = 0, turned = 0;
    int count = 0;
    for (std::size_t i = 0, k = 0; i < now.ids.size(); ++i) {
        while (k < then.ids.size() && then.ids[k] < now.ids[i]) ++k;
        if (k == then.ids.size() || then.ids[k] != now.ids[i])
            continue;
        const auto distance = [&](const std::array<float, 2>& p) {
            return std::hypot(now.pixels[i][0] - p[0], now.pixels[i][1] - p[1]);
        };
        sum += distance(then.pixels[k]);
        // Some boards may be counted from either end.
        turned += distance(then.pixels[then.pixels.size() - 1 - k]);
        ++count;
    }
    const double limit_px = 0.2 + 0.0005 * before.left.width;
    return count > 0 && std::min(sum, turned) / count < limit_px;
}

BoardSighting ViewCollector::offer(const std::string& name, const EyeViews& before,
                                   const EyeViews& now) {
    BoardSighting sighting;
    if (now.left.width != now.right.width || now.left.height != now.right.height) {
        sighting.words = "the eyes' pictures differ in size";
        return sighting;
    }
    const int width = now.left.width, height = now.left.height;
    const BoardPoints left = findBoard(board_, now.left);
    const BoardPoints right = findBoard(board_, now.right);
    const auto enough = [](const BoardPoints& p) {
        return static_cast<int>(p.ids.size()) >= StereoCalibrator::kFewestPoints;
    };
    if (!enough(left) || !enough(right))
        return calibrator_.add(name, width, height, left, right);  // says what is missing
    sighting.left = sighting.right = true;
    const Place place = placeOf(left, width, height);
    if (!isNew(place) && !coversMore(left, right, width, height)) {
        sighting.words = "seen like this already; move or tilt the board";
        return sighting;
    }
    if (std::max(blurOf(board_, now.left, left), blurOf(board_, now.right, right)) > kBlurredPx) {
        sighting.words = "blurred; more light, or farther away";
        return sighting;
    }
    if (!standsStill(left, before)) {
        sighting.words = "moving; hold the board still";
        return sighting;
    }
    sighting = calibrator_.add(name, width, height, left, right);
    if (sighting.used) {
        places_.push_back(place);
        tilts_[0] += place.tilt_x > kTilted;
        tilts_[1] += place.tilt_x < -kTilted;
        tilts_[2] += place.tilt_y > kTilted;
        tilts_[3] += place.tilt_y < -kTilted;
    }
    return sighting;
}

std::string ViewCollector::missing() const {
    std::string words = calibrator_.coverage().missing();
    const auto add = [&](const std::string& what) { words += (words.empty() ? "" : "; ") + what; };
    static const char* const kSides[] = {"left", "right", "upper", "lower"};
    std::string sides;
    for (std::size_t i = 0; i < tilts_.size(); ++i)
        if (tilts_[i] < kViewsPerTilt)
            sides += (sides.empty() ? "" : ", ") + std::string(kSides[i]);
    if (!sides.empty())
        add("tilted, nearer with its side: " + sides);
    if (const int more = kViews - static_cast<int>(places_.size()); more > 0)
        add(std::to_string(more) + (more == 1 ? " more view" : " more views"));
    return words;
}

}  // namespace kova::camera
