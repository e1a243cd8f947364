#include "examples/imu_window.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>

#include "examples/imu_attitude.h"

namespace kova::examples {
namespace {

constexpr float kGravity = 9.80665f;  // m/s²
constexpr int kTickMs = 16;
constexpr int kSliderSteps = 1000;

double secondsBetween(const imu::IMUData& from, const imu::IMUData& to) {
    return static_cast<double>(to.t_ns - from.t_ns) * 1e-9;
}

QString fitText(const char* what, const SphereFit& fit, const char* unit) {
    if (!fit.valid)
        return QStringLiteral("%1: turn the camera to more sides").arg(what);
    return QStringLiteral("%1: offset (%2, %3, %4), radius %5 %6")
        .arg(what)
        .arg(double{fit.centre.x}, 0, 'f', 2)
        .arg(double{fit.centre.y}, 0, 'f', 2)
        .arg(double{fit.centre.z}, 0, 'f', 2)
        .arg(double{fit.radius}, 0, 'f', 2)
        .arg(unit);
}

}  // namespace

void AttitudeView::initializeGL() {
    IMUPositionQOpenGLWidget::initializeGL();
    initResource(0, 0);
    // From behind and a little above: x to the right, y down, z away from the viewer.
    initCameraControl({0, 0, 0}, {0, 0.35f, 1}, {0, 0, 600});
}

CalibrationView::CalibrationView(bool with_magnet, QWidget* parent)
    : IMUCalibrationQOpenGLWidget(parent), with_magnet_(with_magnet) {}

void CalibrationView::initializeGL() {
    IMUCalibrationQOpenGLWidget::initializeGL();
    // Gravity is a sphere of 10, the field of the earth one of 25 to 65.
    initCameraControl({0, 0, 0}, {0, 0.35f, 1}, {0, 0, with_magnet_ ? 200.0f : 40.0f});
}

QString CalibrationView::showCorrected(bool corrected) {
    show_accel = show_magnet = !corrected;
    show_accel_calibrated = show_magnet_calibrated = corrected;
    if (!corrected)
        return {};
    const SphereFit accel = fitSphere(accel_points);
    accel_correction = correctionOf(accel, kGravity);
    QString text = fitText("Acceleration", accel, "m/s²");
    const SphereFit magnet = fitSphere(magnet_points);
    magnet_correction = correctionOf(magnet, 0);
    if (with_magnet_)
        text += QStringLiteral("; ") + fitText("magnetic field", magnet, "µT");
    update_calculated_points(accel_points, magnet_points);
    return text;
}

ImuWindow::ImuWindow(std::vector<imu::IMUData> samples, double speed, QWidget* parent)
    : QWidget(parent), samples_(std::move(samples)), speed_(speed) {
    AttitudeFilter filter;
    for (const imu::IMUData& sample : samples_) {
        filter.add(sample);
        attitudes_.push_back(filter.attitude());
    }
    const bool with_magnet =
        std::any_of(samples_.begin(), samples_.end(), [](const imu::IMUData& sample) {
            return sample.magnet.x != 0 || sample.magnet.y != 0 || sample.magnet.z != 0;
        });

    attitude_view_ = new AttitudeView(this);
    attitude_view_->set_north_axis(qwidget::NORTH_AXIS_Z_POSITIVE);
    calibration_view_ = new CalibrationView(with_magnet, this);
    play_button_ = new QPushButton(QStringLiteral("Pause"), this);
    slider_ = new QSlider(Qt::Horizontal, this);
    slider_->setRange(0, kSliderSteps);
    corrected_box_ = new QCheckBox(QStringLiteral("Fit and correct"), this);
    state_ = new QLabel(this);
    fit_ = new QLabel(this);

    auto* views = new QHBoxLayout;
    views->addWidget(attitude_view_, 1);
    views->addWidget(calibration_view_, 1);
    auto* controls = new QHBoxLayout;
    controls->addWidget(play_button_);
    controls->addWidget(slider_, 1);
    controls->addWidget(corrected_box_);
    auto* texts = new QHBoxLayout;
    texts->addWidget(state_, 1);
    texts->addWidget(fit_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(views, 1);
    layout->addLayout(controls);
    layout->addLayout(texts);
    resize(1200, 640);

    connect(&timer_, &QTimer::timeout, this, &ImuWindow::tick);
    connect(play_button_, &QPushButton::clicked, this, [this] { play(!timer_.isActive()); });
    connect(slider_, &QSlider::valueChanged, this,
            [this](int value) { showTime(duration() * value / kSliderSteps); });
    connect(corrected_box_, &QCheckBox::toggled, this, [this](bool on) {
        fit_->setText(calibration_view_->showCorrected(on));
        calibration_view_->update();
    });
    showTime(0);
    play(true);
}

double ImuWindow::duration() const {
    return secondsBetween(samples_.front(), samples_.back());
}

void ImuWindow::play(bool on) {
    play_button_->setText(on ? QStringLiteral("Pause") : QStringLiteral("Play"));
    if (on) {
        clock_.restart();
        timer_.start(kTickMs);
    } else {
        timer_.stop();
    }
}

void ImuWindow::tick() {
    double time = time_s_ + static_cast<double>(clock_.restart()) * 1e-3 * speed_;
    if (time > duration())
        time = 0;
    showTime(time);
}

void ImuWindow::showTime(double seconds) {
    time_s_ = std::clamp(seconds, 0.0, duration());
    const auto after = std::upper_bound(samples_.begin(), samples_.end(), time_s_,
                                        [this](double time, const imu::IMUData& sample) {
                                            return time < secondsBetween(samples_.front(), sample);
                                        });
    const auto count = std::max<std::size_t>(1, static_cast<std::size_t>(after - samples_.begin()));
    if (count < shown_) {
        calibration_view_->clear_points();
        shown_ = 0;
    }
    for (; shown_ < count; ++shown_) calibration_view_->set_imu_data(samples_[shown_]);
    if (corrected_box_->isChecked())
        fit_->setText(calibration_view_->showCorrected(true));

    const QQuaternion& q = attitudes_[count - 1];
    float xyzw[4] = {q.x(), q.y(), q.z(), q.scalar()};
    attitude_view_->set_quaternion(xyzw);
    const TiltAngles angles = tiltOf(q);
    state_->setText(QStringLiteral("%1 s of %2 s   roll %3°   pitch %4°   yaw %5°")
                        .arg(time_s_, 0, 'f', 2)
                        .arg(duration(), 0, 'f', 2)
                        .arg(angles.roll_deg, 0, 'f', 1)
                        .arg(angles.pitch_deg, 0, 'f', 1)
                        .arg(angles.yaw_deg, 0, 'f', 1));
    const QSignalBlocker blocked(slider_);
    slider_->setValue(duration() > 0 ? static_cast<int>(time_s_ / duration() * kSliderSteps) : 0);
    attitude_view_->update();
    calibration_view_->update();
}

}  // namespace kova::examples
