#include "camera/matching/sgm.h"

#include <gtest/gtest.h>
#include <hwy/tests/hwy_gtest.h>

#include <map>
#include <random>
#include <string>

#include "camera/matching/sgm_reference.h"
#include "tests/camera/matching/textured_pair.h"

namespace kova::camera::sgm {
namespace {

struct Case {
    int width, height, min_disparity, levels;
};
// Single pixels, less than a cell, cells and a little more, more levels than a byte can count.
constexpr Case kCases[] = {{1, 1, 0, 16},    {3, 70, 0, 16},   {64, 64, 0, 16},
                           {65, 63, 2, 20},  {130, 90, 0, 48}, {150, 131, 3, 65},
                           {70, 81, 0, 320}, {150, 40, 5, 257}};

void matchInBands(const test::TexturedPair& pair, const Search& search, const Denoising& denoising,
                  Winners& winners) {
    const int width = pair.left.width(), height = pair.left.height();
    EyePlanes left, right;
    left.resize(width, height, 1);
    right.resize(width, height, search.min_disparity + search.levels + 1);
    for (int strip = stripsFor(height) - 1; strip >= 0; --strip) {
        left.compute(pair.left.view(), denoising, strip);
        right.compute(pair.right.view(), denoising, strip);
    }
    BandMemory memory;
    memory.reserve(search.levels);
    winners.resize(width, height);
    for (int band = stripsFor(height) - 1; band >= 0; --band)
        matchBand(left, right, search, band, memory, winners);
}

/// The reference's winners; computed once, for all targets.
const Winners& expectedFor(const std::string& name, const test::TexturedPair& pair,
                           const Search& search, const Denoising& denoising) {
    static std::map<std::string, Winners> known;
    const auto [at, fresh] = known.try_emplace(name);
    if (fresh)
        matchReference(pair.left.view(), pair.right.view(), search, denoising.columns_apart,
                       denoising.rows_apart, at->second);
    return at->second;
}

std::string nameOf(const char* kind, const Case& c) {
    return std::string(kind) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) +
           "/" + std::to_string(c.levels);
}

void expectEqual(const Winners& expected, const Winners& found) {
    for (int y = 0; y < expected.disparity.height(); ++y) {
        for (int x = 0; x < expected.disparity.width(); ++x) {
            ASSERT_EQ(expected.disparity.at(x, y), found.disparity.at(x, y)) << x << ", " << y;
            ASSERT_EQ(expected.best.at(x, y), found.best.at(x, y)) << x << ", " << y;
            ASSERT_EQ(expected.second.at(x, y), found.second.at(x, y)) << x << ", " << y;
        }
    }
}

class SgmTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(SgmTest);

TEST_P(SgmTest, EqualsTheReferenceInFullSearch) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(nameOf("full", c));
        const test::TexturedPair pair(c.width, c.height, 11, 5);
        Search search{c.min_disparity, c.levels, {}};
        search.ranges.assign(std::size_t(cellsFor(c.width)) * stripsFor(c.height),
                             {0, static_cast<std::uint16_t>(c.levels)});
        Winners found;
        matchInBands(pair, search, {}, found);
        expectEqual(expectedFor(nameOf("full", c), pair, search, {}), found);
    }
}

TEST_P(SgmTest, EqualsTheReferenceWhereTheCensusComparesPixelsFartherApart) {
    for (const Case& c : {kCases[0], kCases[1], kCases[3], kCases[4]}) {
        const test::TexturedPair pair(c.width, c.height, 11, 5);
        Search search{c.min_disparity, c.levels, {}};
        search.ranges.assign(std::size_t(cellsFor(c.width)) * stripsFor(c.height),
                             {0, static_cast<std::uint16_t>(c.levels)});
        for (const int columns : {1, 3, kMostApart})
            for (const int rows : {2, kMostApart}) {
                const std::string name = nameOf("census", c) + " apart " + std::to_string(columns) +
                                         ", " + std::to_string(rows);
                SCOPED_TRACE(name);
                const Denoising denoising{0, false, columns, rows};
                Winners found;
                matchInBands(pair, search, denoising, found);
                expectEqual(expectedFor(name, pair, search, denoising), found);
            }
    }
}

TEST_P(SgmTest, EqualsTheReferenceWhereEveryCellHasItsOwnRange) {
    std::mt19937 random(3);
    for (const Case& c : kCases) {
        SCOPED_TRACE(nameOf("narrow", c));
        const test::TexturedPair pair(c.width, c.height, 11, 5);
        Search search{c.min_disparity, c.levels, {}};
        for (int i = 0; i < cellsFor(c.width) * stripsFor(c.height); ++i) {
            const auto begin = static_cast<std::uint16_t>(random() % (c.levels - 1));
            const auto size = static_cast<std::uint16_t>(1 + random() % (c.levels - begin));
            search.ranges.push_back({begin, static_cast<std::uint16_t>(begin + size)});
        }
        Winners found;
        matchInBands(pair, search, {}, found);
        expectEqual(expectedFor(nameOf("narrow", c), pair, search, {}), found);
    }
}

TEST(SgmDefinition, RefinesBetweenLevelsTowardsTheCheaperNeighbour) {
    EXPECT_EQ(160, refineWinner(10, 30, 20, 30));
    EXPECT_EQ(160, refineWinner(10, 20, 20, 20));
    EXPECT_EQ(167, refineWinner(10, 110, 20, 20));  // 16 * 90 / (2 * 90 + 16) px / 16
    EXPECT_EQ(153, refineWinner(10, 20, 20, 110));
    EXPECT_EQ(164, refineWinner(10, 30, 20, 20));  // less where all are close
    // What both neighbours are dearer by counts half: 16 * 24 / (2 * 84 - 60 + 16) px / 16.
    EXPECT_EQ(157, refineWinner(10, 80, 20, 104));
}

TEST(SgmDefinition, JudgesEndsOfTheRangeAndUniqueness) {
    const LevelRange range{0, 32};
    EXPECT_EQ(160, judgeWinner(50, 10, range, 0, 30, 20, 30, 40));
    EXPECT_EQ(kInvalidDisparity, judgeWinner(9, 10, range, 0, 30, 20, 30, 40)) << "no partner";
    EXPECT_EQ(kInvalidDisparity, judgeWinner(50, 31, range, 0, 30, 20, 255, 40)) << "upper end";
    EXPECT_EQ(kInvalidDisparity, judgeWinner(50, 0, range, 4, 255, 20, 30, 40)) << "lower end";
    EXPECT_EQ(1, judgeWinner(50, 0, range, 0, 255, 20, 30, 40)) << "far away";
    EXPECT_EQ(kInvalidDisparity, judgeWinner(50, 10, range, 0, 30, 20, 30, 20)) << "ambiguous";
}

}  // namespace
}  // namespace kova::camera::sgm
