#pragma once

#include <QOpenGLWidget>

#include <memory>

#include "sdk/size.h"

namespace kova::qwidget {

struct CameraControlQOpenGLWidgetVars;

/// The base of the 3-D views: owns a view camera that the mouse steers (left button turns, right
/// button pans, wheel zooms), keeps its projection in step with the widget's size and loads its
/// matrices. Without a camera it does nothing.
class CameraControlQOpenGLWidget : public QOpenGLWidget {
    Q_OBJECT

public:
    explicit CameraControlQOpenGLWidget(QWidget* parent = nullptr);
    ~CameraControlQOpenGLWidget() override;

    void setRotationGain(float gain);     ///< [rad per pixel]
    void setTranslationGain(float gain);  ///< [scene units per pixel at zoom 1]
    void setZoomGain(float gain);         ///< relative change per wheel event
    float getRotationGain();
    float getTranslationGain();
    float getZoomGain();

    /// (Re)creates the camera.
    ///
    /// @param position   its pivot
    /// @param direction  where it looks
    /// @param offset     of the eye from the pivot at zoom 1, in the camera's axes
    void initCameraControl(kova::Size3_<float> position, kova::Size3_<float> direction,
                           kova::Size3_<float> offset);
    void uninitCameraControl();

    /// Loads the camera's matrices again, in the middle of drawing.
    void updateCamera();

signals:
    /// A button went down in the widget.
    void mouse_pressed();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

private:
    std::unique_ptr<CameraControlQOpenGLWidgetVars> vars_;
};

}  // namespace kova::qwidget
