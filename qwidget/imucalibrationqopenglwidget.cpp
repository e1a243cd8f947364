#include "qwidget/imucalibrationqopenglwidget.h"

#include <GL/gl.h>

#include <cmath>

#include "opengl/openglutils.h"

namespace kova::qwidget {
namespace {

using Point3 = Size3_<float>;

// Chosen so that each sensor's cloud fills evenly: squared distances in (m/s²)² and µT², a rate in
// rad/s above which the acceleration is more than gravity.
constexpr double kMinAccelDistance2 = 0.025;
constexpr double kMinMagnetDistance2 = 12.0;
constexpr double kMaxRate = 1.4;

bool isZero(const Point3& p) {
    return p.x == 0 && p.y == 0 && p.z == 0;
}

float distance2(const Point3& a, const Point3& b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    const float dz = a.z - b.z;
    return dx * dx + dy * dy + dz * dz;
}

bool turnsSlowly(const Point3& rate) {
    return std::fabs(rate.x) < kMaxRate && std::fabs(rate.y) < kMaxRate &&
           std::fabs(rate.z) < kMaxRate;
}

Point3 corrected(const Point3& p, const std::array<float, 12>& c) {
    const Point3 d{p.x - c[0], p.y - c[1], p.z - c[2]};
    return {c[3] * d.x + c[4] * d.y + c[5] * d.z, c[6] * d.x + c[7] * d.y + c[8] * d.z,
            c[9] * d.x + c[10] * d.y + c[11] * d.z};
}

}  // namespace

IMUCalibrationQOpenGLWidget::IMUCalibrationQOpenGLWidget(QWidget* parent)
    : CameraControlQOpenGLWidget(parent) {
    setFocusPolicy(Qt::StrongFocus);
}

void IMUCalibrationQOpenGLWidget::set_imu_data(imu::IMUData data) {
    if (!isZero(data.accel) &&
        (accel_points.empty() || (distance2(data.accel, accel_points.back()) > kMinAccelDistance2 &&
                                  turnsSlowly(data.gyro))))
        accel_points.push_back(data.accel);
    if (!isZero(data.magnet) &&
        (magnet_points.empty() ||
         distance2(data.magnet, magnet_points.back()) > kMinMagnetDistance2))
        magnet_points.push_back(data.magnet);
}

void IMUCalibrationQOpenGLWidget::update_calculated_points(std::vector<Size3_<float>> accel,
                                                           std::vector<Size3_<float>> magnet) {
    accel_points_calibrated.clear();
    for (const Point3& p : accel) accel_points_calibrated.push_back(corrected(p, accel_correction));
    magnet_points_calibrated.clear();
    for (const Point3& p : magnet)
        magnet_points_calibrated.push_back(corrected(p, magnet_correction));
}

void IMUCalibrationQOpenGLWidget::clear_points() {
    accel_points.clear();
    accel_points_calibrated.clear();
    magnet_points.clear();
    magnet_points_calibrated.clear();
}

void IMUCalibrationQOpenGLWidget::draw_accel_point() {
    OpenGLUtils::drawPoints_3d(accel_points, 3, {1, 1, 0});
}
void IMUCalibrationQOpenGLWidget::draw_accel_point_calibrated() {
    OpenGLUtils::drawPoints_3d(accel_points_calibrated, 3, {1, 0, 1});
}
void IMUCalibrationQOpenGLWidget::draw_magnet_point() {
    OpenGLUtils::drawPoints_3d(magnet_points, 3, {1, 1, 1});
}
void IMUCalibrationQOpenGLWidget::draw_magnet_point_calibrated() {
    OpenGLUtils::drawPoints_3d(magnet_points_calibrated, 3, {1, 0, 0});
}

void IMUCalibrationQOpenGLWidget::initializeGL() {
    makeCurrent();
    glEnable(GL_DEPTH_TEST);
    initCameraControl({0, 0, 0}, {0, 0, -1}, {0, 0, 1000});
}

void IMUCalibrationQOpenGLWidget::resizeGL(int w, int h) {
    CameraControlQOpenGLWidget::resizeGL(w, h);
}

void IMUCalibrationQOpenGLWidget::paintGL() {
    OpenGLUtils::clear(0, 0, 0, 1);
    CameraControlQOpenGLWidget::paintGL();
    OpenGLUtils::drawAxes_3d(50, 1, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    if (show_accel)
        draw_accel_point();
    if (show_magnet)
        draw_magnet_point();
    if (show_accel_calibrated)
        draw_accel_point_calibrated();
    if (show_magnet_calibrated)
        draw_magnet_point_calibrated();
}

}  // namespace kova::qwidget
