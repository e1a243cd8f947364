#include "camera/rectification/row_offset.h"

#include <algorithm>
#include <cmath>

namespace kova::camera {

double RowOffset::largestDifference(const RowOffset& other) const {
    double largest = 0;
    constexpr int kPoints = 5;
    for (int i = 0; i < kPoints; ++i)
        for (const double side : {0.0, 2.0}) {
            const double x = side * half_width, y = 2 * half_height * i / (kPoints - 1);
            largest = std::max(largest, std::abs(at(x, y) - other.at(x, y)));
        }
    return largest;
}

double RowOffset::largest() const {
    RowOffset none = *this;
    none.terms = {};
    return largestDifference(none);
}

}  // namespace kova::camera
