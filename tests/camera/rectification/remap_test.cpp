#include "camera/rectification/remap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "camera/base/parallel.h"
#include "camera/rectification/remap_reference.h"

#include "hwy/tests/hwy_gtest.h"

namespace kova::camera {
namespace {

constexpr std::uint8_t kGuard = 0xA5;

/// A picture in memory of exactly its size, so that reading beyond it is found by the sanitizers.
struct Exact {
    std::vector<std::uint8_t> bytes;
    ImageView<const std::uint8_t> view;

    Exact(int width, int height, int stride, std::mt19937& random)
        : bytes(static_cast<std::size_t>(stride) * (height - 1) + width) {
        for (auto& b : bytes) b = static_cast<std::uint8_t>(random());
        view = {bytes.data(), width, height, stride};
    }
};

/// Positions inside, at the edges and far outside of the source.
RemapTable randomTable(int width, int height, int source_width, int source_height,
                       std::mt19937& random) {
    RemapTable table(width, height, source_width, source_height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto anywhere = [&](int size) {
                return static_cast<double>(random() % (size * 1000 + 4000)) / 1000.0 - 2.0;
            };
            table.set(x, y, anywhere(source_width), anywhere(source_height));
        }
    return table;
}

void expectSame(const Image<std::uint8_t>& a, const Image<std::uint8_t>& b) {
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    for (int y = 0; y < a.height(); ++y)
        ASSERT_EQ(0, std::memcmp(a.row(y), b.row(y), static_cast<std::size_t>(a.width())))
            << "row " << y;
}

class RemapTest : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(RemapTest);

TEST_P(RemapTest, EqualsTheReferenceForAllSmallSizes) {
    std::mt19937 random(1);
    for (int width = 1; width <= 70; width += width < 20 ? 1 : 7)
        for (const int height : {1, 2, 3, 17}) {
            const int source_width = 1 + static_cast<int>(random() % 40);
            const int source_height = 1 + static_cast<int>(random() % 20);
            const Exact source(source_width, source_height,
                               source_width + static_cast<int>(random() % 5), random);
            const RemapTable table =
                randomTable(width, height, source_width, source_height, random);
            Image<std::uint8_t> expected, actual;
            remapReference(table, source.view, expected);
            actual.resize(width, height);
            for (int y = 0; y < height; ++y)
                std::memset(actual.row(y), kGuard, static_cast<std::size_t>(actual.stride()));
            remap(table, source.view, actual);
            expectSame(expected, actual);
            for (int y = 0; y < height; ++y)
                for (int x = width; x < actual.stride(); ++x)
                    ASSERT_EQ(kGuard, actual.row(y)[x]) << "written beyond the row";
        }
}

TEST_P(RemapTest, PairEqualsTheReferenceForAnyNumberOfThreads) {
    std::mt19937 random(2);
    const Exact left(97, 61, 101, random), right(97, 61, 97, random);
    const RemapTable left_table = randomTable(83, 57, 97, 61, random);
    const RemapTable right_table = randomTable(40, 29, 97, 61, random);
    Image<std::uint8_t> expected_left, expected_right;
    remapReference(left_table, left.view, expected_left);
    remapReference(right_table, right.view, expected_right);
    for (const int threads : {1, 3}) {
        setThreadCount(threads);
        Image<std::uint8_t> actual_left, actual_right;
        remapPair(left_table, left.view, actual_left, right_table, right.view, actual_right);
        expectSame(expected_left, actual_left);
        expectSame(expected_right, actual_right);
    }
    setThreadCount(0);
}

TEST(RemapTable, PositionsOutsideGoToTheEdge) {
    RemapTable table(3, 1, 5, 4);
    table.set(0, 0, -7.0, 0.5);
    table.set(1, 0, 4.0, 9.0);
    table.set(2, 0, std::numeric_limits<double>::quiet_NaN(), 1.25);
    EXPECT_EQ(0U, table.positions(0)[0]);
    EXPECT_EQ(RemapTable::kOne / 2 << 8, table.fractions(0)[0]);
    EXPECT_EQ(3U | 2U << 16U, table.positions(0)[1]);
    EXPECT_EQ(RemapTable::kOne | RemapTable::kOne << 8, table.fractions(0)[1]);
    EXPECT_EQ(0U | 1U << 16U, table.positions(0)[2]);
}

TEST(Remap, WholePositionsCopyAndHalvesAverage) {
    Image<std::uint8_t> source(4, 2);
    const std::uint8_t values[2][4] = {{10, 20, 255, 0}, {30, 60, 255, 255}};
    for (int y = 0; y < 2; ++y) std::memcpy(source.row(y), values[y], 4);
    RemapTable table(4, 1, 4, 2);
    table.set(0, 0, 1, 0);
    table.set(1, 0, 0.5, 0);
    table.set(2, 0, 0.5, 0.5);
    table.set(3, 0, 2, 1);
    Image<std::uint8_t> out;
    remap(table, source.view(), out);
    EXPECT_EQ(20, out.at(0, 0));
    EXPECT_EQ(15, out.at(1, 0));
    EXPECT_EQ(30, out.at(2, 0));
    EXPECT_EQ(255, out.at(3, 0));
}

TEST(Remap, ColourChannelsEqualGreyPictures) {
    std::mt19937 random(3);
    const int width = 31, height = 23;
    Image<Rgba> colour(width, height);
    Image<std::uint8_t> channels[4];
    for (auto& c : channels) c.resize(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            for (auto& c : channels) c.at(x, y) = static_cast<std::uint8_t>(random());
            colour.at(x, y) = {channels[0].at(x, y), channels[1].at(x, y), channels[2].at(x, y),
                               channels[3].at(x, y)};
        }
    const RemapTable table = randomTable(37, 19, width, height, random);
    Image<Rgba> out;
    remap(table, colour.view(), out);
    Image<std::uint8_t> expected[4];
    for (int c = 0; c < 4; ++c) remapReference(table, channels[c].view(), expected[c]);
    for (int y = 0; y < out.height(); ++y)
        for (int x = 0; x < out.width(); ++x)
            ASSERT_EQ((Rgba{expected[0].at(x, y), expected[1].at(x, y), expected[2].at(x, y),
                            expected[3].at(x, y)}),
                      out.at(x, y));
}

}  // namespace
}  // namespace kova::camera
