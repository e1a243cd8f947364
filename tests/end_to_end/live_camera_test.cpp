// The real window with a simulated camera: its controls act, and an unplugged camera can be stopped
// and opened again. With KOVA_TEST_PICTURES, a folder, it leaves pictures of the window there.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QComboBox>
#include <QDir>
#include <QSlider>
#include <QTest>

#include <cstdlib>
#include <memory>

#include "app/mainwindow.h"
#include "tests/support/window_driver.h"

namespace kova::test {
namespace {

struct LiveCamera : testing::Test {
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<WindowDriver> driver;

    void open(const char* cameras) {
        qputenv("KOVA_SIMULATED_CAMERAS", cameras);
        window = std::make_unique<MainWindow>();
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        driver = std::make_unique<WindowDriver>(*window);
        auto* modes = driver->find<QComboBox>("comboBoxResolution");
        const int mode = modes->findText("SD400_15FPS");
        ASSERT_GE(mode, 0);
        driver->choose("comboBoxResolution", mode);
        driver->click("btnStart");
        ASSERT_TRUE(newFrames(2));
    }
    void TearDown() override {
        if (window)
            window->close();
        qunsetenv("KOVA_SIMULATED_CAMERAS");
    }
    /// By its name: the middle of a wide check box does not switch it.
    void press(const char* button) { driver->find<QAbstractButton>(button)->click(); }
    QImage view() { return driver->view("oglWImage").convertToFormat(QImage::Format_Grayscale8); }
    /// Waits until the picture changed so often; noise alone changes it with every frame.
    bool newFrames(int count, int timeout_ms = 20000) {
        for (int i = 0; i < count; ++i) {
            const QImage before = view();
            if (!WindowDriver::waitFor([&] { return view() != before; }, timeout_ms))
                return false;
        }
        return true;
    }
    void picture(const char* name) {
        if (const char* folder = std::getenv("KOVA_TEST_PICTURES"))
            driver->picture().save(QDir(folder).filePath(QString(name) + ".png"));
    }
};

double brightness(const QImage& image) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) sum += image.constScanLine(y)[x];
    return sum / (double(image.width()) * image.height());
}

double difference(const QImage& a, const QImage& b) {
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            sum += std::abs(int(a.constScanLine(y)[x]) - int(b.constScanLine(y)[x]));
    return sum / (double(a.width()) * a.height());
}

TEST_F(LiveCamera, ExposureFlipImuAndWorkModesAct) {
    ASSERT_NO_FATAL_FAILURE(open("P1:scene=wall"));
    picture("live-automatic");
    const double automatic = brightness(view());
    auto* exposure = driver->find<QSlider>("horizontalSliderExposure");
    EXPECT_FALSE(exposure->isVisible());
    press("checkBoxAutoExposure");
    EXPECT_TRUE(exposure->isVisible());
    exposure->setValue(exposure->maximum() / 50);
    EXPECT_TRUE(driver->waitFor([&] { return brightness(view()) < 0.7 * automatic; }));
    picture("live-dark");
    const double dark = brightness(view());
    exposure->setValue(exposure->maximum());
    EXPECT_TRUE(driver->waitFor([&] { return brightness(view()) > 1.3 * dark; }));
    picture("live-bright");
    press("checkBoxAutoExposure");
    EXPECT_FALSE(exposure->isVisible());
    EXPECT_TRUE(driver->waitFor(
        [&] { return std::abs(brightness(view()) - automatic) < 0.15 * automatic; }));

    const QImage upright = view();
    const QImage turned = upright.mirrored(true, true);
    press("checkBoxFlip");
    EXPECT_TRUE(driver->waitFor([&] {
        const QImage now = view();
        return difference(now, turned) < difference(now, upright);
    }));
    picture("live-flipped");
    press("checkBoxFlip");
    EXPECT_TRUE(driver->waitFor([&] {
        const QImage now = view();
        return difference(now, upright) < difference(now, turned);
    }));

    for (const char* control :
         {"checkBoxObstacleDetectionUsingIMU", "checkBoxObstacleDetectionUsingIMU",
          "radioButtonMedium", "radioButtonSlow", "radioButtonFast"}) {
        ASSERT_TRUE(driver->find<QAbstractButton>(control)->isEnabled()) << control;
        press(control);
        EXPECT_TRUE(newFrames(2)) << control;
        if (control == std::string("radioButtonSlow"))
            picture("live-slow");
    }
    EXPECT_TRUE(driver->find<QAbstractButton>("checkBoxObstacleDetectionUsingIMU")->isChecked());
}

TEST_F(LiveCamera, AnUnpluggedCameraCanBeStoppedAndOpenedAgain) {
    ASSERT_NO_FATAL_FAILURE(open("P1:scene=wall:unplug_s=4"));
    // Gone when nothing has changed for longer than any frame takes.
    while (newFrames(1, 2000)) {
    }
    picture("unplugged");
    EXPECT_TRUE(driver->find<QWidget>("btnStop")->isVisible());
    driver->click("btnStop");
    EXPECT_TRUE(driver->find<QWidget>("btnStart")->isVisible());
    qputenv("KOVA_SIMULATED_CAMERAS", "P1:scene=wall");  // plugged in again
    driver->click("btnStart");
    EXPECT_TRUE(newFrames(3));
    picture("again");
}

}  // namespace
}  // namespace kova::test
