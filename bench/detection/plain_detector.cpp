#include "bench/detection/plain_detector.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "bench/depth/baseline.h"
#include "camera/base/disparity.h"
#include "camera/simulation/random.h"

namespace kova::bench {

namespace {

constexpr int kGrid = 6;  // every so many pixels a point for the plane
constexpr int kTrials = 200;
constexpr float kInlier = 1.0f;    // [px]
constexpr double kHeightMm = 100;  // what rises above is an obstacle
constexpr float kNoise = 1.5f;     // and differs from the ground by this much [px]
constexpr int kSmallest = 60;      // pixels of a component at 640 wide
constexpr int kColumnAt1280 = 10;  // columns are as wide as stixels

struct Point {
    double u, v, d;
};

bool planeThrough(const Point& p, const Point& q, const Point& r, double (&plane)[3]) {
    const double x1 = q.u - p.u, y1 = q.v - p.v, d1 = q.d - p.d;
    const double x2 = r.u - p.u, y2 = r.v - p.v, d2 = r.d - p.d;
    const double det = x1 * y2 - x2 * y1;
    if (std::abs(det) < 1e-6)
        return false;
    plane[0] = (d1 * y2 - d2 * y1) / det;
    plane[1] = (x1 * d2 - x2 * d1) / det;
    plane[2] = p.d - plane[0] * p.u - plane[1] * p.v;
    // A floor: nearer further down, and without an extreme roll.
    return plane[1] > 0 && std::abs(plane[0]) < 0.5 * plane[1];
}

double errorOf(const double (&plane)[3], const Point& p) {
    return std::abs(plane[0] * p.u + plane[1] * p.v + plane[2] - p.d);
}

void refine(const std::vector<Point>& points, double (&plane)[3]) {
    cv::Matx33d normal = cv::Matx33d::zeros();
    cv::Vec3d right(0, 0, 0);
    for (const Point& p : points) {
        if (errorOf(plane, p) > kInlier)
            continue;
        const cv::Vec3d row(p.u, p.v, 1);
        normal += row * row.t();
        right += row * p.d;
    }
    cv::Vec3d solved;
    if (cv::solve(normal, right, solved, cv::DECOMP_CHOLESKY))
        for (int i = 0; i < 3; ++i) plane[i] = solved[i];
}

bool findPlane(const camera::Image<std::uint16_t>& map, const camera::RectifiedGeometry& g,
               camera::GroundModel& model) {
    std::vector<Point> points;
    for (int y = g.height * 2 / 5; y < g.height; y += kGrid)
        for (int x = 0; x < g.width; x += kGrid)
            if (const std::uint16_t d = map.at(x, y); camera::isDisparity(d))
                points.push_back({double(x), double(y), d / double(camera::kDisparityScale)});
    if (points.size() < 100)
        return false;
    camera::Random random(1);
    const int last = static_cast<int>(points.size()) - 1;
    double best[3] = {}, most = 0;
    for (int i = 0; i < kTrials; ++i) {
        double plane[3];
        if (!planeThrough(points[random.integer(0, last)], points[random.integer(0, last)],
                          points[random.integer(0, last)], plane))
            continue;
        double inliers = 0;
        for (const Point& p : points) inliers += errorOf(plane, p) < kInlier;
        if (inliers > most) {
            most = inliers;
            std::copy(plane, plane + 3, best);
        }
    }
    if (most < 0.2 * static_cast<double>(points.size()))
        return false;
    refine(points, best);
    return camera::GroundModel::fromCoefficients(best[0], best[1], best[2], g, model);
}

void collectColumns(const cv::Mat& components, const std::vector<bool>& keep,
                    const camera::Image<std::uint16_t>& map, int column_px, Findings& out) {
    std::vector<std::pair<int, float>> inside;  // component, disparity
    for (int x = 0; x < map.width(); x += column_px) {
        const int end = std::min(x + column_px, map.width());
        inside.clear();
        for (int y = 0; y < map.height(); ++y)
            for (int i = x; i < end; ++i)
                if (const int c = components.at<int>(y, i); keep[c])
                    inside.emplace_back(c, map.at(i, y) / float(camera::kDisparityScale));
        std::sort(inside.begin(), inside.end());
        for (std::size_t first = 0; first < inside.size();) {
            std::size_t last = first;
            while (last < inside.size() && inside[last].first == inside[first].first) ++last;
            // The nearer part of it: the median of the upper half.
            if (last - first >= static_cast<std::size_t>(column_px))
                out.obstacles.push_back({x, end, inside[first + (last - first) * 3 / 4].second});
            first = last;
        }
    }
}

}  // namespace

void detectPlainly(const camera::ImageView<const std::uint8_t>& left,
                   const camera::ImageView<const std::uint8_t>& right,
                   const camera::RectifiedGeometry& geometry, int levels, Findings& out) {
    camera::Image<std::uint16_t> map;
    matchBaseline(kBaselines[1], left, right, levels, true, map);
    out.obstacles.clear();
    out.ground_map.resize(geometry.width, geometry.height);
    out.states.assign(static_cast<std::size_t>(geometry.width), camera::ColumnState::kUnknown);
    out.has_ground = findPlane(map, geometry, out.ground);
    cv::Mat obstacle(geometry.height, geometry.width, CV_8U, cv::Scalar(0));
    for (int y = 0; y < geometry.height; ++y)
        for (int x = 0; x < geometry.width; ++x) {
            std::uint8_t& label = out.ground_map.at(x, y);
            label = 127;
            if (!out.has_ground || !camera::isDisparity(map.at(x, y)))
                continue;
            const float d = map.at(x, y) / float(camera::kDisparityScale);
            const auto plane = static_cast<float>(out.ground.planeAt(x, y));
            const double over = out.ground.height_mm * (1 - plane / std::max(d, 0.1f));
            if (over > kHeightMm && d - plane > kNoise)
                obstacle.at<std::uint8_t>(y, x) = 255;
            else if (std::abs(over) < kHeightMm || std::abs(d - plane) < kNoise)
                label = 255;
        }
    cv::Mat components, statistics, centres;
    const int count = cv::connectedComponentsWithStats(obstacle, components, statistics, centres);
    const int smallest = kSmallest * geometry.width / 640;
    std::vector<bool> keep(static_cast<std::size_t>(count), false);
    for (int i = 1; i < count; ++i) keep[i] = statistics.at<int>(i, cv::CC_STAT_AREA) >= smallest;
    for (int y = 0; y < geometry.height; ++y)
        for (int x = 0; x < geometry.width; ++x)
            if (keep[components.at<int>(y, x)])
                out.ground_map.at(x, y) = 0;
    collectColumns(components, keep, map, kColumnAt1280 * geometry.width / 1280, out);
}

}  // namespace kova::bench
