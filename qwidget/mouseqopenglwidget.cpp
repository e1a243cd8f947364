#include "qwidget/mouseqopenglwidget.h"

#include <QMouseEvent>

namespace kova::qwidget {
namespace {

constexpr Size2_<int> kNoPoint{-1, -1};

Size2_<int> positionOf(const QMouseEvent* event) {
    return {event->pos().x(), event->pos().y()};
}

}  // namespace

struct MouseQOpenGLWidgetVars {
    bool left_button_down = false;  ///< from a press of the left button to its next release
    Size2_<int> released = kNoPoint;
    Size2_<int> pressed = kNoPoint;
};

MouseQOpenGLWidget::MouseQOpenGLWidget(QWidget* parent)
    : QOpenGLWidget(parent), vars_(std::make_unique<MouseQOpenGLWidgetVars>()) {}

MouseQOpenGLWidget::~MouseQOpenGLWidget() = default;

void MouseQOpenGLWidget::setReleased(Size2_<int> point) {
    vars_->released = point;
}
void MouseQOpenGLWidget::setPressed(Size2_<int> point) {
    vars_->pressed = point;
}
Size2_<int> MouseQOpenGLWidget::getReleased() {
    return vars_->released;
}
Size2_<int> MouseQOpenGLWidget::getPressed() {
    return vars_->pressed;
}

void MouseQOpenGLWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        vars_->left_button_down = true;
        vars_->pressed = positionOf(event);
    } else {
        vars_->left_button_down = false;
        vars_->pressed = kNoPoint;
    }
    vars_->released = kNoPoint;
    emit mouse_pressed();
}

void MouseQOpenGLWidget::mouseMoveEvent(QMouseEvent* event) {
    if (!vars_->left_button_down)
        return;
    vars_->released = positionOf(event);
    emit mouse_moved();
}

void MouseQOpenGLWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        vars_->left_button_down = false;
        vars_->released = positionOf(event);
    } else {
        // A drag with the left button goes on.
        vars_->released = kNoPoint;
    }
    emit mouse_released();
}

}  // namespace kova::qwidget
