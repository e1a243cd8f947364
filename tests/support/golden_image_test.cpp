#include "tests/support/golden_image.h"

#include <filesystem>

#include "tests/support/test_data.h"

namespace kova::test {
namespace {

class GoldenImageTest : public testing::Test {
protected:
    GoldenImageTest() {
        std::filesystem::create_directory(folder / "golden");
        picture.fill(qRgb(100, 100, 100));
        picture.save(QString::fromStdString((folder / "golden/case.png").string()));
    }
    testing::AssertionResult matches(const QImage& actual, const std::string& name = "case") const {
        return matchesGoldenIn((folder / "golden").string(), (folder / "out").string(), actual,
                               name, GoldenRule());
    }
    bool left(const std::string& file) const {
        return std::filesystem::exists(folder / ("out/" + file));
    }
    // The picture with the first `count` pixels changed by `by` in one channel.
    QImage changed(int count, int by) const {
        QImage image = picture;
        for (int i = 0; i < count; ++i) image.setPixel(i % 100, i / 100, qRgb(100, 100 + by, 100));
        return image;
    }

    TemporaryFolder folder;
    QImage picture{100, 50, QImage::Format_RGB32};  // 5000 pixels: 0.1 % are 5
};

TEST_F(GoldenImageTest, EqualPicturesMatchAndLeaveNothing) {
    EXPECT_TRUE(matches(picture));
    EXPECT_FALSE(std::filesystem::exists(folder / "out"));
}

TEST_F(GoldenImageTest, DifferencesOfTwoMatchEverywhere) {
    EXPECT_TRUE(matches(changed(5000, 2)));
}

TEST_F(GoldenImageTest, OneInAThousandPixelsMayDifferByMore) {
    EXPECT_TRUE(matches(changed(5, 32)));
    EXPECT_FALSE(matches(changed(6, 3)));
}

TEST_F(GoldenImageTest, NoPixelMayDifferByMoreThan32) {
    EXPECT_FALSE(matches(changed(1, 33)));
}

TEST_F(GoldenImageTest, MissingGoldenImageFailsAndLeavesThePicture) {
    EXPECT_FALSE(matches(picture, "unknown"));
    EXPECT_TRUE(left("unknown.actual.png"));
    EXPECT_FALSE(left("unknown.golden.png"));
}

TEST_F(GoldenImageTest, MismatchLeavesPictureGoldenImageAndDifference) {
    const QImage actual = changed(10, 20);
    EXPECT_FALSE(matches(actual));
    const auto load = [&](const char* file) {
        return QImage(QString::fromStdString((folder / file).string()));
    };
    EXPECT_EQ(load("out/case.actual.png").pixel(0, 0), qRgb(100, 120, 100));
    EXPECT_EQ(load("out/case.golden.png").pixel(0, 0), qRgb(100, 100, 100));
    EXPECT_EQ(load("out/case.difference.png").pixel(0, 0), qRgb(0, 160, 0));
    EXPECT_EQ(load("out/case.difference.png").pixel(99, 49), qRgb(0, 0, 0));
    EXPECT_TRUE(matches(picture));
    EXPECT_FALSE(left("case.difference.png")) << "of the earlier run";
}

TEST_F(GoldenImageTest, PictureOfAnotherSizeFailsAndLeavesThePicture) {
    EXPECT_FALSE(matches(picture.copy(0, 0, 99, 50)));
    EXPECT_TRUE(left("case.actual.png"));
}

TEST_F(GoldenImageTest, NullPictureFails) {
    EXPECT_FALSE(matches(QImage()));
}

}  // namespace
}  // namespace kova::test
