#include "qwidget/cameracontrolqopenglwidget.h"

#include <QMouseEvent>
#include <QWheelEvent>

#include "opengl/cameracontrolgl.h"

namespace kova::qwidget {
namespace {

// The turn along the axis that it is mostly about.
int wheelDelta(const QWheelEvent* event) {
    const QPoint turn = event->angleDelta();
    return qAbs(turn.x()) > qAbs(turn.y()) ? turn.x() : turn.y();
}

// Scaled by the aspect ratio in degrees, not through the tangent: the look of the views.
float verticalFov(int width, int height, float horizontal_fov) {
    return static_cast<float>(height) * horizontal_fov / static_cast<float>(width);
}

}  // namespace

struct CameraControlQOpenGLWidgetVars {
    double last_x = 0;  ///< of the last mouse position seen [px]
    double last_y = 0;
    std::unique_ptr<CameraControlGL> camera;
    float rotation_gain = 0.01f;
    float translation_gain = 1.25f;
    float zoom_gain = 0.15f;

    void fitProjection(int width, int height) {
        const float hfov = camera->getHorizontalFOV();
        camera->setProjection(hfov, verticalFov(width, height, hfov), camera->getZNear(),
                              camera->getZFar());
        camera->update();
    }
};

CameraControlQOpenGLWidget::CameraControlQOpenGLWidget(QWidget* parent)
    : QOpenGLWidget(parent), vars_(std::make_unique<CameraControlQOpenGLWidgetVars>()) {
    setFocusPolicy(Qt::StrongFocus);
}

CameraControlQOpenGLWidget::~CameraControlQOpenGLWidget() = default;

void CameraControlQOpenGLWidget::setRotationGain(float gain) {
    vars_->rotation_gain = gain;
}
void CameraControlQOpenGLWidget::setTranslationGain(float gain) {
    vars_->translation_gain = gain;
}
void CameraControlQOpenGLWidget::setZoomGain(float gain) {
    vars_->zoom_gain = gain;
}
float CameraControlQOpenGLWidget::getRotationGain() {
    return vars_->rotation_gain;
}
float CameraControlQOpenGLWidget::getTranslationGain() {
    return vars_->translation_gain;
}
float CameraControlQOpenGLWidget::getZoomGain() {
    return vars_->zoom_gain;
}

void CameraControlQOpenGLWidget::initCameraControl(Size3_<float> position, Size3_<float> direction,
                                                   Size3_<float> offset) {
    vars_->camera = std::make_unique<CameraControlGL>(position, direction);
    vars_->camera->setInitOffsetFromPositionMatrix(offset);
    vars_->fitProjection(width(), height());
}

void CameraControlQOpenGLWidget::uninitCameraControl() {
    vars_->camera.reset();
}

void CameraControlQOpenGLWidget::updateCamera() {
    if (vars_->camera)
        vars_->camera->show();
}

void CameraControlQOpenGLWidget::mousePressEvent(QMouseEvent* event) {
    vars_->last_x = event->pos().x();
    vars_->last_y = event->pos().y();
    emit mouse_pressed();
}

void CameraControlQOpenGLWidget::mouseMoveEvent(QMouseEvent* event) {
    if (!vars_->camera)
        return;
    const double x = event->pos().x();
    const double y = event->pos().y();
    const auto dx = static_cast<int>(x - vars_->last_x);
    const auto dy = static_cast<int>(y - vars_->last_y);
    if (event->buttons() & Qt::LeftButton)
        vars_->camera->setRotation(dx, dy, vars_->rotation_gain);
    else if (event->buttons() & Qt::RightButton)
        vars_->camera->setTranslation(dx, dy, vars_->translation_gain);
    vars_->last_x = x;
    vars_->last_y = y;
    vars_->camera->update();
    update();
}

void CameraControlQOpenGLWidget::wheelEvent(QWheelEvent* event) {
    if (!vars_->camera)
        return;
    const float scale = vars_->camera->getZoomScale();
    if (wheelDelta(event) < 0)
        vars_->camera->setZoomScale(scale * (1 + vars_->zoom_gain));
    else
        vars_->camera->setZoomScale(scale * (1 - vars_->zoom_gain));
    vars_->camera->update();
    update();
}

void CameraControlQOpenGLWidget::resizeGL(int w, int h) {
    if (vars_->camera)
        vars_->fitProjection(w, h);
}

void CameraControlQOpenGLWidget::paintGL() {
    updateCamera();
}

}  // namespace kova::qwidget
