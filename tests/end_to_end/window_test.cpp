#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSlider>
#include <QTest>
#include <QTimer>

#include <cmath>
#include <cstring>
#include <memory>
#include <optional>

#include "app/mainwindow.h"
#include "camera/datasets/import.h"
#include "camera/datasets/stereo_sequence.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "sdk/stereo_camera.h"
#include "tests/support/simulated_recording.h"
#include "tests/support/test_data.h"
#include "tests/support/window_driver.h"

namespace kova::test {
namespace {

struct Window : testing::Test {
    TemporaryFolder folder;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<WindowDriver> driver;

    static void SetUpTestSuite() {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        qunsetenv("KOVA_SIMULATED_CAMERAS");
    }
    void SetUp() override {
        window = std::make_unique<MainWindow>();
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        driver = std::make_unique<WindowDriver>(*window);
    }
    void TearDown() override { window->close(); }

    QString path(const char* name) { return QString::fromStdString((folder / name).string()); }
    /// Chooses and opens a recording, and waits until its last frame is shown.
    void playToTheEnd(const QString& recording) {
        ASSERT_TRUE(driver->chooseRecording(recording));
        driver->click("btnStart");
        ASSERT_TRUE(driver->waitFor(
            [&] { return driver->find<QPushButton>("btnKovaFilePlayPause")->text() == "Play"; },
            60000));
        driver->pause(200);
    }
    bool matches(const char* label, const char* pattern) {
        return QRegularExpression(QRegularExpression::anchoredPattern(pattern))
            .match(driver->text(label))
            .hasMatch();
    }
    QImage imageView(int type) {
        driver->choose("comboBoxImageType", type);
        driver->pause(150);
        return driver->view("oglWImage").convertToFormat(QImage::Format_RGB32);
    }
    bool shown(const char* name) { return driver->find<QWidget>(name)->isVisible(); }
};

/// Share of pixels that are not black.
double lit(const QImage& image) {
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) count += qGray(image.pixel(x, y)) > 8;
    return double(count) / (image.width() * image.height());
}

/// Z [mm] of "Distance [x,y,z] at (x, y) = [X, Y, Z] mm"; none for another form.
struct Shown {
    int x, y;
    double z;
};
std::optional<Shown> shownDistance(const QString& text) {
    static const QRegularExpression form(
        R"(^Distance \[x,y,z\] at \((\d+), (\d+)\) = \[(.+), (.+), (.+)\] mm$)");
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    return Shown{match.captured(1).toInt(), match.captured(2).toInt(),
                 match.captured(5).toDouble()};
}

TEST_F(Window, ARecordingOpensPlaysShowsAndMeasures) {
    SimulatedRecordingOptions options;
    options.exact = true;
    options.frames = 8;
    std::vector<camera::FrameTruth> truth;
    recordSimulation(path("demo.kova").toStdString(), options, &truth);

    ASSERT_NO_FATAL_FAILURE(playToTheEnd(path("demo.kova")));
    EXPECT_EQ(driver->text("labelCurrentFrameIndex"), "7");
    EXPECT_EQ(driver->find<QComboBox>("comboBoxResolution")->currentText(), "SD400_30FPS");
    EXPECT_EQ(driver->text("labelSN"), "SN 4711");
    EXPECT_EQ(driver->text("labelHW"), "HW 1.0");
    EXPECT_TRUE(matches("labelFps", R"(Calculation time: \d+\.\d ms)"));
    EXPECT_TRUE(matches("labelMaxDistance", R"(Distance Range  \(\d+ \d+\))"));
    EXPECT_EQ(driver->text("labelConfidence"), "Confidence 100 %");
    EXPECT_EQ(driver->text("labelInfo"), "");

    // Six views, none empty, no two alike.
    std::vector<QImage> views;
    for (int type = 0; type < 6; ++type) {
        views.push_back(imageView(type));
        EXPECT_GT(lit(views.back()), 0.02) << "view " << type;
        for (int other = 0; other < type; ++other)
            EXPECT_NE(views[std::size_t(other)], views.back()) << other << " and " << type;
    }

    // The cloud holds valid points, all inside the distance range.
    const QStringList range =
        driver->text("labelMaxDistance").section('(', 1).chopped(1).split(' ');
    const float* cloud =
        driver->find<qwidget::PointCloudQOpenGLWidget>("oglWPointCloud")->getPointCloudPointer();
    int valid = 0;
    for (int i = 0; i < 640 * 400; ++i) {
        const float z = cloud[3 * i + 2];
        if (std::isnan(z))
            continue;
        ++valid;
        ASSERT_GE(z, range[0].toFloat() * 0.999f);
        ASSERT_LE(z, (range[1].toFloat() + 1) * 1.001f);
    }
    EXPECT_GT(valid, 640 * 400 / 4);

    // A click agrees with the true depth.
    const camera::FrameTruth& last = truth.back();
    const QSize view = driver->find<QWidget>("oglWDepth")->size();
    int clicks = 0;
    for (int y = 240; y < 400 && clicks < 6; y += 9)
        for (int x = 60; x < 580 && clicks < 6; x += 41) {
            const float depth = last.depth_mm.at(x, y);
            const float around = last.depth_mm.at(x + 6, y) - last.depth_mm.at(x - 6, y);
            if (depth < 1900 || depth > 2100 || std::abs(around) > 40 ||
                std::isnan(cloud[3 * (y * 640 + x) + 2]))
                continue;
            driver->clickAt("oglWDepth", QPoint(int((x + 1.5) * view.width() / 640 - 1),
                                                int((y + 1.5) * view.height() / 400 - 1)));
            driver->pause(60);
            const std::optional<Shown> shown_distance = shownDistance(driver->text("labelInfo"));
            ASSERT_TRUE(shown_distance) << driver->text("labelInfo").toStdString();
            EXPECT_NEAR(shown_distance->x, x, 2);
            EXPECT_NEAR(shown_distance->y, y, 2);
            const float true_z = last.depth_mm.at(shown_distance->x, shown_distance->y);
            EXPECT_NEAR(shown_distance->z, true_z, 0.02 * true_z) << x << ", " << y;
            ++clicks;
        }
    EXPECT_EQ(clicks, 6) << "the scene has surfaces at 2 m";

    driver->drag("oglWImage", QPoint(20, view.height() - 20), QPoint(120, view.height() - 30));
    driver->pause(100);
    EXPECT_TRUE(
        matches("labelInfo", R"(Distance between \(\d+, \d+\), \(\d+, \d+\) : (\d+\.\d\d|nan) mm)"))
        << driver->text("labelInfo").toStdString();

    driver->click("btnStop");
    EXPECT_TRUE(shown("btnStart"));
    EXPECT_FALSE(shown("btnStop"));
    EXPECT_FALSE(shown("groupBoxKovaReplay"));
    EXPECT_TRUE(driver->find<QWidget>("comboBoxCamera")->isEnabled());
    EXPECT_EQ(driver->text("labelSN"), "");
    EXPECT_EQ(driver->find<QComboBox>("comboBoxResolution")->count(), 0);

    // A second open of the same entry works.
    driver->click("btnStart");
    EXPECT_TRUE(driver->waitFor([&] { return driver->text("labelCurrentFrameIndex") == "7"; }));
    EXPECT_TRUE(shown("btnStop"));
}

TEST_F(Window, AGroundMapOfAnOddWidthIsNotSheared) {
    SimulatedRecordingOptions options;
    options.width = 1226;  // of the street sequences that people bring; no multiple of 4
    options.height = 370;
    options.frames = 1;
    options.scene = "street";
    recordSimulation(path("odd.kova").toStdString(), options);

    ASSERT_NO_FATAL_FAILURE(playToTheEnd(path("odd.kova")));
    EXPECT_EQ(driver->find<QComboBox>("comboBoxResolution")->currentText(), "");
    const QImage shown_map = imageView(3);

    // What the library itself says.
    bino::StereoCamera camera;
    ASSERT_EQ(camera.open((folder / "odd.kova").c_str(), bino::WORK_MODE_FAST), RESULT_OK);
    ASSERT_EQ(camera.getImageSizeFPS().width, 1224);
    ASSERT_EQ(camera.startObstacleDetection(false, false), RESULT_OK);
    bino::ObstacleDetectionParameters parameters;
    parameters.ground_min_region = 25;  // as the window's spin boxes say
    parameters.ground_min_support = 37;
    camera.setObstacleDetectionParameters(parameters);
    RESULT_CODE code;
    do code = camera.grab({});
    while (code == RESULT_NOT_NEW_FRAME);
    ASSERT_EQ(code, RESULT_OK);
    const auto* map = static_cast<const unsigned char*>(
        camera.retrieveObstacleDetectionView(bino::OBSTACLE_VIEW_TYPE_GROUND_MAP).data);
    const QImage expected =
        QImage(map, 1224, 370, 1224, QImage::Format_Grayscale8)
            .scaled(shown_map.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            .convertToFormat(QImage::Format_RGB32);
    int alike = 0;
    for (int y = 0; y < expected.height(); ++y)
        for (int x = 0; x < expected.width(); ++x)
            alike += std::abs(qGray(expected.pixel(x, y)) - qGray(shown_map.pixel(x, y))) < 64;
    EXPECT_GT(double(alike) / (expected.width() * expected.height()), 0.93);
}

TEST_F(Window, ABrokenRecordingGivesTheBoxAndLeavesTheWindowIdle) {
    SimulatedRecordingOptions options;
    options.width = 320;
    options.height = 200;
    options.frames = 3;
    recordSimulation(path("cut.kova").toStdString(), options);
    std::filesystem::resize_file(folder / "cut.kova",
                                 std::filesystem::file_size(folder / "cut.kova") / 2);
    ASSERT_TRUE(driver->chooseRecording(path("cut.kova")));
    QString text;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            text = box->text();
            box->accept();
        }
    });
    poll.start(20);
    driver->click("btnStart");
    EXPECT_EQ(text, ".kova file open failed: \r\n.kova file is invalid");
    EXPECT_TRUE(shown("btnStart"));
}

TEST_F(Window, TheRealStreetPlays) {
    const std::filesystem::path street = realData("kitti-odometry-seq1");
    KOVA_NEED_REAL_DATA(street);
    camera::SequenceOptions open;
    open.fps = 10;
    auto sequence = camera::openSequence(street, open);
    ASSERT_TRUE(sequence.ok()) << sequence.status().message();
    ASSERT_TRUE(camera::importSequence(sequence.value(), (folder / "street.kova").string()).ok());
    ASSERT_TRUE(driver->chooseRecording(path("street.kova")));
    driver->click("btnStart");
    auto* slider = driver->find<QSlider>("horizontalSliderKovaFileReplay");
    EXPECT_EQ(slider->maximum(), 50);
    ASSERT_TRUE(driver->waitFor([&] { return slider->value() >= 8; }, 60000));
    driver->click("btnKovaFilePlayPause");
    // The road ahead is ground: its blue covers the lower middle of the picture.
    const QImage ground = imageView(1);
    int blue = 0, looked_at = 0;
    for (int y = ground.height() * 8 / 10; y < ground.height(); ++y)
        for (int x = ground.width() * 45 / 100; x < ground.width() * 60 / 100; ++x) {
            const QRgb p = ground.pixel(x, y);
            blue += qBlue(p) > qRed(p) + 30;
            ++looked_at;
        }
    EXPECT_GT(double(blue) / looked_at, 0.9);
}

}  // namespace
}  // namespace kova::test
