// gantrel_pictures RECORDING FOLDER: opens a recording in the real window and saves the window and
// the six views as PNG. Exit code 1 when the window does not do what a user would expect.

#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QSlider>
#include <QTest>

#include <cstdio>

#include "app/application.h"
#include "app/mainwindow.h"
#include "tests/support/window_driver.h"

namespace {

int fail(const char* what) {
    std::fprintf(stderr, "gantrel_pictures: %s\n", what);
    return 1;
}

bool save(const QImage& image, const QDir& folder, const QString& name) {
    return !image.isNull() && image.save(folder.filePath(name + QStringLiteral(".png")));
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    kova::app::Application application(argc, argv);
    if (argc != 3)
        return fail("usage: gantrel_pictures RECORDING FOLDER");
    const QString recording = QString::fromLocal8Bit(argv[1]);
    const QDir folder(QString::fromLocal8Bit(argv[2]));
    if (!folder.mkpath(QStringLiteral(".")))
        return fail("the folder cannot be made");

    MainWindow window;
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return fail("the window does not show");
    kova::test::WindowDriver driver(window);
    if (!save(driver.picture(), folder, QStringLiteral("window-idle")))
        return fail("the picture cannot be written");
    if (!driver.chooseRecording(recording))
        return fail("the recording cannot be chosen");
    driver.click("btnStart");
    auto* position = driver.find<QSlider>("horizontalSliderKovaFileReplay");
    // Some way into the recording, so that detection has settled.
    const int wanted = position->maximum() / 4;
    if (!driver.waitFor([&] { return position->value() >= wanted; }, 120000))
        return fail("the recording does not play");
    driver.click("btnKovaFilePlayPause");
    driver.pause(500);
    driver.clickAt("oglWImage", driver.find<QWidget>("oglWImage")->rect().center());
    // The 3-D view opens in front of the camera; half a turn about its axis brings it behind.
    const QPoint middle = driver.find<QWidget>("oglWPointCloud")->rect().center();
    driver.drag("oglWPointCloud", middle - QPoint(0, 157), middle + QPoint(0, 157));
    driver.pause(300);
    if (!save(driver.picture(), folder, QStringLiteral("window-capturing")))
        return fail("the picture cannot be written");
    save(driver.view("oglWPointCloud"), folder, QStringLiteral("point-cloud"));

    auto* views = driver.find<QComboBox>("comboBoxImageType");
    for (int type = 0; type < views->count(); ++type) {
        driver.choose("comboBoxImageType", type);
        driver.pause(300);
        const QString name =
            QStringLiteral("view-%1-%2")
                .arg(type)
                .arg(views->itemText(type).toLower().replace(QLatin1Char(' '), QLatin1Char('-')));
        if (!save(driver.view("oglWImage"), folder, name))
            return fail("the picture of a view cannot be written");
    }
    driver.click("btnStop");
    window.close();
    return 0;
}
