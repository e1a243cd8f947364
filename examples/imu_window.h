#pragma once

#include <QElapsedTimer>
#include <QQuaternion>
#include <QTimer>
#include <QWidget>

#include <vector>

#include "qwidget/imucalibrationqopenglwidget.h"
#include "qwidget/imupositionqopenglwidget.h"
#include "sdk/imu_data.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QSlider;

namespace kova::examples {

/// The attitude view, seen from behind the camera with the floor below.
class AttitudeView : public qwidget::IMUPositionQOpenGLWidget {
    Q_OBJECT

public:
    using IMUPositionQOpenGLWidget::IMUPositionQOpenGLWidget;

protected:
    void initializeGL() override;
};

/// The calibration view, near enough for the size of the samples, with a sphere fitted to them.
class CalibrationView : public qwidget::IMUCalibrationQOpenGLWidget {
    Q_OBJECT

public:
    /// @param with_magnet the samples have a magnetic field
    CalibrationView(bool with_magnet, QWidget* parent);

    /// Fits both corrections to the points collected so far and shows the corrected points instead
    /// of the raw ones, or goes back. @return what was fitted, for people
    QString showCorrected(bool corrected);

protected:
    void initializeGL() override;

private:
    bool with_magnet_;
};

/// Replays inertial samples: the attitude beside the collected points.
class ImuWindow : public QWidget {
    Q_OBJECT

public:
    /// @param samples  in the order of their times; at least one
    /// @param speed    1: as recorded
    ImuWindow(std::vector<imu::IMUData> samples, double speed, QWidget* parent = nullptr);

    /// Jumps to a time after the first sample.
    void showTime(double seconds);

private:
    void tick();
    void play(bool on);
    double duration() const;

    std::vector<imu::IMUData> samples_;
    std::vector<QQuaternion> attitudes_;  ///< after each sample
    double speed_;
    std::size_t shown_ = 0;  ///< samples offered to the calibration view
    double time_s_ = 0;
    QElapsedTimer clock_;
    QTimer timer_;
    AttitudeView* attitude_view_;
    CalibrationView* calibration_view_;
    QPushButton* play_button_;
    QSlider* slider_;
    QCheckBox* corrected_box_;
    QLabel* state_;
    QLabel* fit_;
};

}  // namespace kova::examples
