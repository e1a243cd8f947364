#pragma once

#include <cstdint>
#include <memory>

#include "qwidget/cameracontrolqopenglwidget.h"

namespace kova::qwidget {

struct IMUPositionQOpenGLWidgetVars;

/// Where the north arrow of the attitude view points.
enum NorthAxisDirection : std::int32_t {
    NORTH_AXIS_NONE = -1,  ///< an arrow without length at the origin
    NORTH_AXIS_X_POSITIVE = 0,
    NORTH_AXIS_X_NEGATIVE = 1,
    NORTH_AXIS_Y_POSITIVE = 2,
    NORTH_AXIS_Y_NEGATIVE = 3,
    NORTH_AXIS_Z_POSITIVE = 4,
    NORTH_AXIS_Z_NEGATIVE = 5,
};

/// Shows the camera's body turned by the attitude of its inertial unit, above a floor grid, with
/// the world's axes and an arrow to the north. Lengths in mm. No setter repaints.
class IMUPositionQOpenGLWidget : public CameraControlQOpenGLWidget {
    Q_OBJECT

public:
    explicit IMUPositionQOpenGLWidget(QWidget* parent = nullptr);
    ~IMUPositionQOpenGLWidget() override;

    /// Creates the view camera; nothing is drawn before. Wants the context to be current.
    /// @param width, height stored only
    void initResource(int width, int height);

    /// Turns the body. @param q x, y, z, w of a unit quaternion
    void set_quaternion(float* q);
    void set_focal_length(float fx, float fy);  ///< stored only [px]
    void set_show_module(bool show);
    void set_show_grid_plane(bool show);
    void set_show_axes(bool show);
    /// A value outside the enumeration changes nothing.
    void set_north_axis(NorthAxisDirection direction);
    /// Shifts the body, after the turn.
    void set_imu_translation(kova::Size3_<float> t);

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

private:
    std::unique_ptr<IMUPositionQOpenGLWidgetVars> vars_;
};

}  // namespace kova::qwidget
