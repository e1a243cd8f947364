#include "camera/matching/sgm_reference.h"

#include <algorithm>
#include <cstdlib>

namespace kova::camera::sgm {

namespace {

using Grey = ImageView<const std::uint8_t>;
constexpr int kNone = 255;

int clampedAt(const Grey& image, int x, int y) {
    return image.at(std::clamp(x, 0, image.width - 1), std::clamp(y, 0, image.height - 1));
}

std::uint32_t censusAt(const Grey& image, int x, int y, int columns_apart, int rows_apart) {
    std::uint32_t bits = 0;
    for (int j = -2; j <= 2; ++j)
        for (int i = -2; i <= 2; ++i)
            if (i != 0 || j != 0)
                bits = bits * 2 + (clampedAt(image, x + i * columns_apart, y + j * rows_apart) <
                                   image.at(x, y));
    return bits;
}

/// A volume of bytes, one per pixel and level.
struct Volume {
    Volume(int w, int h, int n) : width(w), levels(n), bytes(std::size_t(w) * h * n) {}
    std::uint8_t* at(int x, int y) { return &bytes[(std::size_t(y) * width + x) * levels]; }
    int width, levels;
    std::vector<std::uint8_t> bytes;
};

struct Reference {
    Reference(const Grey& l, const Grey& r, const Search& s)
        : left(l),
          right(r),
          search(s),
          cost(l.width, l.height, s.levels),
          sum(l.width, l.height, s.levels) {}

    const Grey &left, &right;
    const Search& search;
    Volume cost, sum;

    const LevelRange& rangeAt(int x, int y) const {
        return search
            .ranges[std::size_t(stripOf(y, left.height)) * cellsFor(left.width) + x / kCell];
    }

    void computeCosts(int columns_apart, int rows_apart) {
        const int width = left.width, height = left.height;
        Image<std::uint32_t> bits_left(width, height), bits_right(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                bits_left.at(x, y) = censusAt(left, x, y, columns_apart, rows_apart);
                bits_right.at(x, y) = censusAt(right, x, y, columns_apart, rows_apart);
            }
        }
        const auto distance = [&](int x, int y, int d) {
            y = std::clamp(y, 0, height - 1);
            return __builtin_popcount(bits_left.at(std::clamp(x, 0, width - 1), y) ^
                                      bits_right.at(std::clamp(x - d, 0, width - 1), y));
        };
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                for (int k = 0; k < search.levels; ++k) {
                    int box = 0;
                    for (int j = -1; j <= 1; ++j)
                        for (int i = -1; i <= 1; ++i)
                            box += distance(x + i, y + j, search.min_disparity + k);
                    cost.at(x, y)[k] = static_cast<std::uint8_t>(box / 8);
                }
            }
        }
    }

    /// What a path carries from pixel to pixel.
    struct Path {
        explicit Path(int levels) : value(levels + 2, 0) {}
        std::vector<int> value;  ///< at level + 1
        LevelRange range;
        int least = 0;
        bool started = false;
        int x = 0, y = 0;
    };

    /// Moves a path on to (x, y), where `range` is searched; adds to the sums if wanted.
    void advance(Path& path, int x, int y, const LevelRange& range, bool add) {
        const int from = path.started ? left.at(path.x, path.y) : left.at(x, y);
        const int large = std::abs(left.at(x, y) - from) >= kEdge ? kLargeStepAtEdge : kLargeStep;
        const auto before = [&](int k) {
            if (!path.started)
                return k >= range.begin && k < range.end ? 0 : kNone;
            return k >= range.begin && k < range.end && k >= path.range.begin && k < path.range.end
                       ? path.value[k + 1]
                       : kNone;
        };
        std::vector<int> next(path.value.size(), kNone);
        int least = kNone;
        for (int k = range.begin; k < range.end; ++k) {
            const int neighbour = std::min({before(k - 1), before(k + 1), kNone - kSmallStep});
            const int reach =
                std::min({before(k), neighbour + kSmallStep, std::min(path.least + large, kNone)});
            next[k + 1] = cost.at(x, y)[k] + reach - path.least;
            least = std::min(least, next[k + 1]);
            if (add)
                sum.at(x, y)[k] =
                    static_cast<std::uint8_t>(std::min(sum.at(x, y)[k] + next[k + 1], 255));
        }
        path.value = next;
        path.range = range;
        path.least = least;
        path.started = true;
        path.x = x;
        path.y = y;
    }

    void runHorizontalPaths(int y) {
        Path from_left(search.levels);
        for (int x = 0; x < left.width; ++x) advance(from_left, x, y, rangeAt(x, y), true);
        for (int x0 = 0; x0 < left.width; x0 += kCell) {
            Path from_right(search.levels);
            for (int x = std::min(x0 + kCell + kHaloColumns, left.width) - 1; x >= x0; --x)
                advance(from_right, x, y, rangeAt(x, y), x < x0 + kCell);
        }
    }

    void runVerticalPaths(int x, int band) {
        const int y0 = stripBegin(band, left.height), end = stripBegin(band + 1, left.height);
        const LevelRange& range = rangeAt(x, y0);
        Path from_above(search.levels), from_below(search.levels);
        for (int y = std::max(y0 - kHaloRows, 0); y < end; ++y)
            advance(from_above, x, y, range, y >= y0);
        for (int y = std::min(end + kHaloRows, left.height) - 1; y >= y0; --y)
            advance(from_below, x, y, range, y < end);
    }

    void chooseWinner(int x, int y, Winners& winners) {
        const LevelRange& range = rangeAt(x, y);
        const std::uint8_t* s = sum.at(x, y);
        const int level = static_cast<int>(std::min_element(s + range.begin, s + range.end) - s);
        int second = 255;
        for (int k = range.begin; k < range.end; ++k)
            if (std::abs(k - level) > 1)
                second = std::min<int>(second, s[k]);
        const int before = level > range.begin ? s[level - 1] : 255;
        const int after = level + 1 < range.end ? s[level + 1] : 255;
        winners.disparity.at(x, y) =
            judgeWinner(x, level, range, search.min_disparity, before, s[level], after, second);
        winners.best.at(x, y) = s[level];
        winners.second.at(x, y) = static_cast<std::uint8_t>(second);
    }
};

}  // namespace

void matchReference(const Grey& left, const Grey& right, const Search& search, int columns_apart,
                    int rows_apart, Winners& winners) {
    Reference reference(left, right, search);
    reference.computeCosts(columns_apart, rows_apart);
    for (int y = 0; y < left.height; ++y) reference.runHorizontalPaths(y);
    for (int band = 0; band < stripsFor(left.height); ++band)
        for (int x = 0; x < left.width; ++x) reference.runVerticalPaths(x, band);
    winners.resize(left.width, left.height);
    for (int y = 0; y < left.height; ++y)
        for (int x = 0; x < left.width; ++x) reference.chooseWinner(x, y, winners);
}

}  // namespace kova::camera::sgm
