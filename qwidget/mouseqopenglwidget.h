#pragma once

#include <QOpenGLWidget>

#include <memory>

#include "sdk/size.h"

namespace kova::qwidget {

struct MouseQOpenGLWidgetVars;

/// An OpenGL widget that records where the left button was pressed, is dragged and was released,
/// and tells so. It draws nothing.
///
/// Points are in widget pixels, rounded to whole ones; (-1, -1) is "no point". They stay until the
/// next press or until a listener overwrites them.
class MouseQOpenGLWidget : public QOpenGLWidget {
    Q_OBJECT

public:
    explicit MouseQOpenGLWidget(QWidget* parent = nullptr);
    ~MouseQOpenGLWidget() override;

    /// Overwrite the recorded points, without a signal or a repaint.
    void setReleased(kova::Size2_<int> point);
    void setPressed(kova::Size2_<int> point);
    /// During a drag the latest position, after it the position of the release.
    kova::Size2_<int> getReleased();
    kova::Size2_<int> getPressed();

signals:
    /// Any button went down; every one but the left has cleared both points.
    void mouse_pressed();
    /// Any button came up; every one but the left has cleared the released point.
    void mouse_released();
    /// The mouse moved with the left button down.
    void mouse_moved();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

private:
    std::unique_ptr<MouseQOpenGLWidgetVars> vars_;
};

}  // namespace kova::qwidget
