#pragma once

#include <array>
#include <string>
#include <vector>

#include "camera/base/image.h"
#include "camera/base/status.h"

namespace kova::camera {

enum class BoardKind {
    kChessboard,         ///< counted by its inner corners
    kCharuco,            ///< counted by its squares; may be seen in part
    kAsymmetricCircles,  ///< counted by the circles of a row, and the rows
};

/// A calibration target.
struct Board {
    BoardKind kind = BoardKind::kChessboard;
    int columns = 9;
    int rows = 6;
    double square_mm = 25;  ///< side of a square; of circles, half the distance in a row
    double marker_mm = 0;   ///< side of a ChArUco marker; 0: three quarters of the square
    std::string dictionary = "4X4_50";  ///< of the markers, by OpenCV's name without "DICT_"

    Status check() const;
    int pointCount() const;
    /// Where point `id` lies on the board [mm]; z is 0.
    std::array<double, 2> point(int id) const;
};

/// Points of a board that were found in a picture, in ascending order of their numbers.
struct BoardPoints {
    std::vector<int> ids;
    std::vector<std::array<float, 2>> pixels;
    bool empty() const { return ids.empty(); }
};

/// Finds a board, to a fraction of a pixel. A chessboard or circles are found whole or not at all.
/// Boards that look the same when turned by 180 degrees (both numbers of inner corners odd or both
/// even) may be numbered from either end.
BoardPoints findBoard(const Board& board, const ImageView<const std::uint8_t>& picture);

/// Width of the edges between the squares [px], where they rise from 10 to 90 %: about 3 in a sharp
/// picture. 0 for what cannot be measured: boards other than a chessboard.
double blurOf(const Board& board, const ImageView<const std::uint8_t>& picture,
              const BoardPoints& points);

}  // namespace kova::camera
