#include "app/texts.h"

#include <QCoreApplication>

#include "app/geometry.h"

namespace kova::app {

namespace {

QString translated(const char* text) {
    return QCoreApplication::translate("MainWindow", text);
}

// The names of the camera library's tables, for the translation's source file: translatedName()
// is given them at run time.
[[maybe_unused]] constexpr const char* kNames[] = {
    QT_TRANSLATE_NOOP("MainWindow", "Image With Obstacle"),
    QT_TRANSLATE_NOOP("MainWindow", "Image With Ground"),
    QT_TRANSLATE_NOOP("MainWindow", "Top View"),
    QT_TRANSLATE_NOOP("MainWindow", "Ground Map"),
    QT_TRANSLATE_NOOP("MainWindow", "Image With Stixels"),
    QT_TRANSLATE_NOOP("MainWindow", "Stixels"),
    QT_TRANSLATE_NOOP("MainWindow", "Quelvar R0"),
    QT_TRANSLATE_NOOP("MainWindow", "Quelvar R1"),
    QT_TRANSLATE_NOOP("MainWindow", "Quelvar T1"),
    QT_TRANSLATE_NOOP("MainWindow", "Quelvar P0"),
    QT_TRANSLATE_NOOP("MainWindow", "Quelvar P1"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_120FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_100FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_60FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_50FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_30FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD800_15FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_120FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_100FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_60FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_50FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_30FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "HD720_15FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_120FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_100FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_90FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_60FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_30FPS"),
    QT_TRANSLATE_NOOP("MainWindow", "SD400_15FPS"),
};

}  // namespace

QString translatedName(const std::string& name) {
    return name.empty() ? QString() : translated(name.c_str());
}

QString calculationTimeText(double seconds) {
    return QCoreApplication::translate("MainWindow", "Calculation time: ") +
           QString::number(seconds * 1000.0, 'f', 1) +
           QCoreApplication::translate("MainWindow", " ms");
}

QString confidenceText(int position) {
    return QCoreApplication::translate("MainWindow", "Confidence ") + QString::number(position) +
           QCoreApplication::translate("MainWindow", " %");
}

QString distanceRangeText(float minimum_mm, float maximum_mm) {
    return QCoreApplication::translate("MainWindow", "Distance Range  (") +
           QString::number(truncated(minimum_mm)) + QStringLiteral(" ") +
           QString::number(truncated(maximum_mm)) + QCoreApplication::translate("MainWindow", ")");
}

QString exposureText(float exposure_ms) {
    return QString::number(static_cast<double>(exposure_ms), 'f', 2) +
           QCoreApplication::translate("MainWindow", " ms");
}

QString serialNumberText(unsigned int serial_number) {
    return QCoreApplication::translate("MainWindow", "SN ") + QString::number(serial_number);
}

QString hardwareVersionText(const std::string& version) {
    return QCoreApplication::translate("MainWindow", "HW ") +
           QString::fromLocal8Bit(version.c_str());
}

QString pointText(Size2_<int> pixel, Size3_<float> point_mm) {
    return QCoreApplication::translate("MainWindow", "Distance [x,y,z] at (") +
           QString::number(pixel.x) + QCoreApplication::translate("MainWindow", ", ") +
           QString::number(pixel.y) + QCoreApplication::translate("MainWindow", ") = [") +
           QString::number(static_cast<double>(point_mm.x), 'f', 0) +
           QCoreApplication::translate("MainWindow", ", ") +
           QString::number(static_cast<double>(point_mm.y), 'f', 0) +
           QCoreApplication::translate("MainWindow", ", ") +
           QString::number(static_cast<double>(point_mm.z), 'f', 0) +
           QCoreApplication::translate("MainWindow", "] mm");
}

QString distanceText(Size2_<int> pressed, Size2_<int> released, float distance_mm) {
    return QCoreApplication::translate("MainWindow", "Distance between (") +
           QString::number(pressed.x) + QCoreApplication::translate("MainWindow", ", ") +
           QString::number(pressed.y) + QCoreApplication::translate("MainWindow", "), (") +
           QString::number(released.x) + QCoreApplication::translate("MainWindow", ", ") +
           QString::number(released.y) + QCoreApplication::translate("MainWindow", ") : ") +
           QString::number(static_cast<double>(distance_mm), 'f', 2) +
           QCoreApplication::translate("MainWindow", " mm");
}

QString tutorialsText() {
    const QString gap = QCoreApplication::translate("MainWindow", "\r\n");
    return QCoreApplication::translate(
               "MainWindow",
               "When IMU is not being used, the camera should be almost parallel to the ground "
               "(without roll angle).\r\n"
               "When IMU is being used, roll angle can be fixed.\r\n"
               "There must be ground in the image, or obstacle detection can not be done.\r\n") +
           gap +
           QCoreApplication::translate(
               "MainWindow",
               "Image With Obstacle: Draw nearest obstacle objects in each column and horizontal "
               "point on image.\r\n"
               "Red points: Obstacle objects. Green line: Horizontal point.\r\n") +
           gap +
           QCoreApplication::translate(
               "MainWindow", "Image With Ground: Draw ground with blue color on image.\r\n") +
           gap +
           QCoreApplication::translate(
               "MainWindow",
               "Top View: Show obstacle objects from the top.\r\n"
               "In side-range, >far: green, mid~far: yellow, near~mid: orange, <near: red.\r\n"
               "Out of side-range, >mid: green, near~mid: yellow, <near: orange\r\n") +
           gap +
           QCoreApplication::translate("MainWindow",
                                       "Ground Map: Show ground map.\r\n"
                                       "0: obstacle objects, 127: not sure, 255: ground\r\n") +
           gap +
           QCoreApplication::translate("MainWindow",
                                       "Image With Stixels: Draw stixels on the image.\r\n") +
           gap + QCoreApplication::translate("MainWindow", "Stixels: Draw stixels only.\r\n");
}

QString errorText(const QString& lead_in, RESULT_CODE result) {
    return lead_in + QString::fromStdString(result_code2str(result));
}

}  // namespace kova::app
