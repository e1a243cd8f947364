#pragma once

namespace kova::camera {

/// How the rows of a picture are divided among tasks: strips of at most kStripRows rows. An even
/// number of them are about as high as each other, so that two threads have the same to do; of an
/// odd number the last one is lower.
constexpr int kStripRows = 64;

constexpr int stripsFor(int height) {
    return (height + kStripRows - 1) / kStripRows;
}

/// First row of a strip; that of the one behind the last is the height.
constexpr int stripBegin(int strip, int height) {
    const int strips = stripsFor(height);
    if (strips % 2 == 0)
        return strip * height / strips;
    return strip < strips ? strip * kStripRows : height;
}

/// The strip that a row belongs to.
constexpr int stripOf(int y, int height) {
    const int strips = stripsFor(height);
    return strips % 2 == 0 ? ((y + 1) * strips - 1) / height : y / kStripRows;
}

}  // namespace kova::camera
