#pragma once

#include <array>
#include <vector>

#include "qwidget/cameracontrolqopenglwidget.h"
#include "sdk/imu_data.h"

namespace kova::qwidget {

/// Collects accelerometer and magnetometer samples while the user turns the camera, and shows them
/// as clouds around the origin, raw and corrected, so that the sphere they form can be judged.
///
/// GUI thread only. The lists, corrections and flags are open to the tool that derives from it.
class IMUCalibrationQOpenGLWidget : public CameraControlQOpenGLWidget {
    Q_OBJECT

public:
    explicit IMUCalibrationQOpenGLWidget(QWidget* parent = nullptr);

    /// Offers one sample; it is taken where it is far enough from the one taken before and, for the
    /// acceleration, the camera turns slowly. A vector of zeros is no sample.
    void set_imu_data(kova::imu::IMUData data);

    /// Rebuilds both corrected lists from raw ones: matrix * (point - offset).
    void update_calculated_points(std::vector<kova::Size3_<float>> accel,
                                  std::vector<kova::Size3_<float>> magnet);

    /// Empties all four lists.
    void clear_points();

    // Each draws one list in the current context: yellow, magenta, white, red.
    void draw_accel_point();
    void draw_accel_point_calibrated();
    void draw_magnet_point();
    void draw_magnet_point_calibrated();

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

    /// Offset (3), then a 3x3 matrix by rows; nothing and identity at first.
    using Correction = std::array<float, 12>;

    std::vector<kova::Size3_<float>> accel_points;
    std::vector<kova::Size3_<float>> accel_points_calibrated;
    std::vector<kova::Size3_<float>> magnet_points;
    std::vector<kova::Size3_<float>> magnet_points_calibrated;
    Correction accel_correction{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    Correction magnet_correction{0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
    bool show_accel = true;
    bool show_magnet = true;
    bool show_accel_calibrated = false;
    bool show_magnet_calibrated = false;
};

}  // namespace kova::qwidget
