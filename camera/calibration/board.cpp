#include "camera/calibration/board.h"

#include <opencv2/aruco/charuco.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "camera/base/log.h"

namespace kova::camera {

namespace {

constexpr const char* kDictionaries[] = {
    "4X4_50",        "4X4_100",        "4X4_250",       "4X4_1000",      "5X5_50",
    "5X5_100",       "5X5_250",        "5X5_1000",      "6X6_50",        "6X6_100",
    "6X6_250",       "6X6_1000",       "7X7_50",        "7X7_100",       "7X7_250",
    "7X7_1000",      "ARUCO_ORIGINAL", "APRILTAG_16h5", "APRILTAG_25h9", "APRILTAG_36h10",
    "APRILTAG_36h11"};

int dictionaryIndex(const std::string& name) {
    const auto it = std::find(std::begin(kDictionaries), std::end(kDictionaries), name);
    return it == std::end(kDictionaries) ? -1 : static_cast<int>(it - std::begin(kDictionaries));
}

double markerSide(const Board& board) {
    return board.marker_mm > 0 ? board.marker_mm : 0.75 * board.square_mm;
}

/// Half the side of the window in which a corner is refined: it must not reach the next corner.
int refinementRadius(const std::vector<cv::Point2f>& corners, int columns) {
    double nearest = 1e9;
    for (std::size_t i = 1; i < corners.size(); ++i)
        if (i % static_cast<std::size_t>(columns) != 0)
            nearest = std::min(nearest, cv::norm(corners[i] - corners[i - 1]));
    return std::clamp(static_cast<int>(nearest * 0.4), 2, 11);
}

const cv::TermCriteria kRefinement(cv::TermCriteria::EPS | cv::TermCriteria::COUNT, 40, 0.001);

cv::Mat asMat(const ImageView<const std::uint8_t>& picture) {
    return {picture.height, picture.width, CV_8U, const_cast<std::uint8_t*>(picture.data),
            static_cast<std::size_t>(picture.stride)};
}

std::vector<cv::Point2f> findChessboard(const Board& board, const cv::Mat& image) {
    const cv::Size size(board.columns, board.rows);
    std::vector<cv::Point2f> corners;
    if (!cv::findChessboardCorners(
            image, size, corners,
            cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE | cv::CALIB_CB_FAST_CHECK))
        return {};
    const int radius = refinementRadius(corners, board.columns);
    cv::cornerSubPix(image, corners, {radius, radius}, {-1, -1}, kRefinement);
    return corners;
}

std::vector<cv::Point2f> findCircles(const Board& board, const cv::Mat& image) {
    cv::SimpleBlobDetector::Params blobs;
    blobs.minArea = 12;
    blobs.maxArea = static_cast<float>(image.total()) / 50;
    blobs.minDistBetweenBlobs = 3;
    std::vector<cv::Point2f> centres;
    if (!cv::findCirclesGrid(image, {board.columns, board.rows}, centres,
                             cv::CALIB_CB_ASYMMETRIC_GRID | cv::CALIB_CB_CLUSTERING,
                             cv::SimpleBlobDetector::create(blobs)))
        return {};
    return centres;
}

BoardPoints findCharuco(const Board& board, const cv::Mat& image) {
    const auto dictionary = cv::aruco::getPredefinedDictionary(dictionaryIndex(board.dictionary));
    const auto charuco = cv::aruco::CharucoBoard::create(
        board.columns, board.rows, static_cast<float>(board.square_mm),
        static_cast<float>(markerSide(board)), dictionary);
    std::vector<std::vector<cv::Point2f>> markers;
    std::vector<int> marker_ids;
    cv::aruco::detectMarkers(image, dictionary, markers, marker_ids);
    if (marker_ids.empty())
        return {};
    std::vector<cv::Point2f> corners;
    std::vector<int> ids;
    cv::aruco::interpolateCornersCharuco(markers, marker_ids, image, charuco, corners, ids);
    if (ids.empty())
        return {};
    // What comes back lies half a pixel too far right and down; refining again takes it to the
    // corner. The window must not reach a marker.
    const double side = std::sqrt(cv::contourArea(markers.front()));
    const int radius = std::clamp(static_cast<int>(side * 0.15), 2, 6);
    cv::cornerSubPix(image, corners, {radius, radius}, {-1, -1}, kRefinement);
    std::vector<std::size_t> order(ids.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return ids[a] < ids[b]; });
    BoardPoints found;
    for (const std::size_t i : order) {
        found.ids.push_back(ids[i]);
        found.pixels.push_back({corners[i].x, corners[i].y});
    }
    return found;
}

}  // namespace

Status Board::check() const {
    const auto bad = [](const std::string& what) {
        return Status(ErrorCode::kInvalidArgument, "board: " + what);
    };
    if (columns < 3 || rows < 3 || columns > 100 || rows > 100)
        return bad("3 to 100 columns and rows are needed");
    if (!(square_mm > 0) || !(square_mm < 10000))
        return bad("the size of a square in mm is missing or impossible");
    if (kind == BoardKind::kCharuco) {
        if (dictionaryIndex(dictionary) < 0)
            return bad("no such dictionary of markers: '" + dictionary + "'; use 4X4_50, say");
        if (!(markerSide(*this) < square_mm))
            return bad("a marker must be smaller than its square");
    }
    return {};
}

int Board::pointCount() const {
    return kind == BoardKind::kCharuco ? (columns - 1) * (rows - 1) : columns * rows;
}

std::array<double, 2> Board::point(int id) const {
    const int per_row = kind == BoardKind::kCharuco ? columns - 1 : columns;
    const int row = id / per_row;
    const int column = id % per_row;
    if (kind == BoardKind::kAsymmetricCircles)
        return {(2 * column + row % 2) * square_mm, row * square_mm};
    return {column * square_mm, row * square_mm};
}

BoardPoints findBoard(const Board& board, const ImageView<const std::uint8_t>& picture) {
    if (!board.check().ok() || picture.width < 16 || picture.height < 16)
        return {};
    const cv::Mat image = asMat(picture);
    BoardPoints found;
    try {
        if (board.kind == BoardKind::kCharuco)
            return findCharuco(board, image);
        const std::vector<cv::Point2f> points = board.kind == BoardKind::kChessboard
                                                    ? findChessboard(board, image)
                                                    : findCircles(board, image);
        for (std::size_t i = 0; i < points.size(); ++i) {
            found.ids.push_back(static_cast<int>(i));
            found.pixels.push_back({points[i].x, points[i].y});
        }
    } catch (const cv::Exception& e) {
        logWarning("calibration", "looking for the board failed: " + e.err);
        return {};
    }
    return found;
}

double blurOf(const Board& board, const ImageView<const std::uint8_t>& picture,
              const BoardPoints& points) {
    if (board.kind != BoardKind::kChessboard ||
        static_cast<int>(points.pixels.size()) != board.pointCount())
        return 0;
    std::vector<cv::Point2f> corners;
    for (const auto& p : points.pixels) corners.emplace_back(p[0], p[1]);
    double widest = 0;
    try {
        for (const bool vertical : {false, true})
            widest = std::max(
                widest, cv::estimateChessboardSharpness(asMat(picture), {board.columns, board.rows},
                                                        corners, 0.8F, vertical)[0]);
    } catch (const cv::Exception& e) {
        logWarning("calibration", "the sharpness cannot be measured: " + e.err);
    }
    return widest;
}

}  // namespace kova::camera
