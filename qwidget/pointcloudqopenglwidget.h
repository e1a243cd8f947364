#pragma once

#include <memory>

#include "qwidget/cameracontrolqopenglwidget.h"

namespace kova::qwidget {

struct PointCloudQOpenGLWidgetVars;

/// Shows an organised point cloud in the colours of the camera image, the camera's body and
/// frustum, the world's axes and a measurement: a line to a target point or a triangle with the
/// camera.
///
/// Lengths in mm, x right, y down, z forward from the camera. Frames are copied when handed in;
/// they may come from another thread, but only between initResource() and uninitResource(). No
/// setter repaints.
class PointCloudQOpenGLWidget : public CameraControlQOpenGLWidget {
    Q_OBJECT

public:
    explicit PointCloudQOpenGLWidget(QWidget* parent = nullptr);
    ~PointCloudQOpenGLWidget() override;

    /// (Re)builds buffers, point buffer and view camera; wants the widget to be on screen.
    /// @param channels of the image, 3 (RGB) or 4 (RGBA)
    void initResource(int width, int height, int channels);
    /// Releases them: the widget is black again.
    void uninitResource();

    void setDepthRange(float min, float max);  ///< of the frustum [mm]
    void setFocalLength(float fx, float fy);   ///< of the frustum [px]

    /// Shows a line from the camera to a point instead of a triangle.
    void setTargetPoint(kova::Size3_<float> p);
    /// Shows the triangle of the camera and two points instead of a line.
    void setTrianglePoint(kova::Size3_<float> a, kova::Size3_<float> b);
    /// Shows neither.
    void clearPoint();

    /// Copies an image of the declared size; null keeps the one before.
    void setImagePointer(unsigned char* p);
    /// The same for an image in device memory.
    void setImagePointerGPU(unsigned char* p);
    /// Copies a cloud, X, Y, Z as float per pixel; null keeps the one before.
    void setPointCloudPointer(float* p);
    unsigned char* getImagePointer();
    unsigned char* getImagePointerGPU();
    float* getPointCloudPointer();

    void setShowPointCloud(bool show);  ///< the measurement included
    void setShowCamera(bool show);
    void setShowAxes(bool show);
    void setShowFov(bool show);

    /// Turns the whole scene. @param q x, y, z, w of a unit quaternion
    void set_quaternion(float* q);
    /// Shifts the whole scene, after the turn.
    void set_imu_translation(kova::Size3_<float> t);

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

private:
    std::unique_ptr<PointCloudQOpenGLWidgetVars> vars_;
};

}  // namespace kova::qwidget
