#include <QCoreApplication>
#include <QMessageBox>
#include <QRadioButton>
#include <QSignalBlocker>

#include "app/mainwindow.h"
#include "app/texts.h"

#include "ui_mainwindow.h"

using kova::RESULT_CODE;
using kova::Size2_;
using kova::Size3_;
using kova::app::ExposureRounding;
using kova::app::FrameMutex;
using kova::app::kNoPoint;
using kova::bino::GrabParameters;
using kova::bino::OBSTACLE_VIEW_TYPE;
using kova::bino::WORK_MODE;

namespace {

// The name of the radio button whose click has led here.
QString nameOf(const QObject* sender) {
    const auto* button = qobject_cast<const QRadioButton*>(sender);
    return button ? button->objectName() : QString();
}

}  // namespace

// ------------------------------------------------------------------------ views and detection

void MainWindow::slot_image_type_changed(int index) {
    change_view_type(image_view_type, index);
}

void MainWindow::slot_depth_type_changed(int index) {
    change_view_type(depth_view_type, index);
}

void MainWindow::change_view_type(OBSTACLE_VIEW_TYPE& type, int index) {
    const FrameMutex::GuiLock frame(mutex);
    type = static_cast<OBSTACLE_VIEW_TYPE>(index);
    if (!running)
        return;
    uninit_openglwidget_resource();
    init_openglwidget_resource();
    if (playing)
        return;  // the worker's next frame is shown in the new form anyway
    retrieve();
    emit signal_show();
}

void MainWindow::slot_depth_mode_selected() {
    const QString name = nameOf(sender());
    GrabParameters parameters = grab_parameters.load();
    if (name == tr("radioButtonStandard"))
        parameters.depth_mode = 0;
    else if (name == tr("radioButtonFill"))
        parameters.depth_mode = 1;
    grab_parameters.store(parameters);
    qDebug("set depth mode: %d", parameters.depth_mode);
}

void MainWindow::slot_work_mode_selected() {
    FrameMutex::GuiLock frame(mutex);
    const QString name = nameOf(sender());
    if (name == tr("radioButtonFast"))
        work_mode = kova::bino::WORK_MODE_FAST;
    else if (name == tr("radioButtonMedium"))
        work_mode = kova::bino::WORK_MODE_MEDIUM;
    else if (name == tr("radioButtonSlow"))
        work_mode = kova::bino::WORK_MODE_SLOW;
    if (!running) {
        frame.unlock();
        QCoreApplication::processEvents();
        return;
    }
    ui->oglWImage->setImagePointer(nullptr);
    ui->oglWDepth->setImagePointer(nullptr);
    ui->oglWPointCloud->setPointCloudPointer(nullptr);
    ui->oglWPointCloud->setImagePointer(nullptr);
    const RESULT_CODE result = camera.changeWorkMode(work_mode);
    if (result == kova::RESULT_OK)
        send_obstacle_parameters();
    else
        show_error(kova::app::errorText(tr("Change work mode failed: \r\n"), result));

    max_distance = camera.getDistanceMaxValue();
    min_distance = camera.getDistanceMinValue();
    show_distance_slider();
    reset_confidence();
    ui->oglWPointCloud->setDepthRange(min_distance, max_distance);
    show_distances();
    frame.unlock();
    QCoreApplication::processEvents();
}

void MainWindow::slot_confidence_threshold_changed(int value) {
    camera.setConfidenceThreshold(kova::app::confidenceThreshold(value));
    ui->labelConfidence->setText(kova::app::confidenceText(value));
}

void MainWindow::slot_max_distance_changed(int value) {
    max_distance = static_cast<float>(value);
    camera.setDistanceMaxValue(max_distance);
    max_distance = camera.getDistanceMaxValue();
    ui->oglWPointCloud->setDepthRange(min_distance, max_distance);
    show_distances();
    QCoreApplication::processEvents();
}

void MainWindow::slot_min_distance_changed(int value) {
    min_distance = static_cast<float>(value);
    camera.setDistanceMinValue(min_distance);
    min_distance = camera.getDistanceMinValue();
    ui->oglWPointCloud->setDepthRange(min_distance, max_distance);
    show_distances();
    QCoreApplication::processEvents();
}

void MainWindow::slot_obstacle_parameter_changed1(int value) {
    kova::app::setObstacleHeight(obstacle_parameters, value);
    camera.setObstacleDetectionParameters(obstacle_parameters);
}

void MainWindow::slot_obstacle_parameter_changed2(int value) {
    kova::app::setGroundArea(obstacle_parameters, value);
    camera.setObstacleDetectionParameters(obstacle_parameters);
}

void MainWindow::slot_obstacle_using_imu_changed(bool on) {
    FrameMutex::GuiLock frame(mutex);
    use_imu = on;
    camera.stopObstacleDetection();
    if (!camera.isIMUSupported())
        use_imu = false;
    else if (use_imu && live_camera)
        camera.startRetrieveIMU(kova::imu::IMU_ACCEL_RANGE_16G, kova::imu::IMU_GYRO_RANGE_2000DPS);
    if (start_obstacle_detection())
        send_obstacle_parameters();
    frame.unlock();
    qDebug("set obstacle using imu: %d", on);
}

// ------------------------------------------------------------------------------------- camera

void MainWindow::slot_exposure_changed(int value) {
    auto_exposure = false;
    camera.useAutoExposure(false);
    {
        const QSignalBlocker blocker(ui->checkBoxAutoExposure);
        ui->checkBoxAutoExposure->setChecked(false);
    }
    camera.setExposureTime(
        kova::app::exposureTime(value, ui->horizontalSliderExposure->maximum(), max_exposure));
    show_exposure(ExposureRounding::nearest);
    ui->labelExposureMS->show();
}

void MainWindow::slot_auto_exposure_changed(bool on) {
    auto_exposure = on;
    camera.useAutoExposure(on);
    qDebug("auto exposure: %d", on);
    if (on) {
        ui->labelExposureMS->hide();
        ui->horizontalSliderExposure->hide();
        return;
    }
    ui->labelExposureMS->show();
    ui->horizontalSliderExposure->show();
    // Truncated, where a drag rounds.
    show_exposure(ExposureRounding::truncate);
}

void MainWindow::show_exposure(ExposureRounding rounding) {
    const float exposure = camera.getExposureTime();
    ui->labelExposureMS->setText(kova::app::exposureText(exposure));
    const QSignalBlocker blocker(ui->horizontalSliderExposure);
    ui->horizontalSliderExposure->setValue(kova::app::exposurePosition(
        exposure, ui->horizontalSliderExposure->maximum(), max_exposure, rounding));
}

void MainWindow::slot_flip_changed(bool on) {
    flip = on;
    camera.setFlip(flip);
    qDebug("set flip: %d", on);
}

void MainWindow::slot_keep_ratio_changed(bool on) {
    keep_ratio = on;
    qDebug("set keep ratio: %d", on);
}

// ------------------------------------------------------------------------------------- replay

void MainWindow::slot_kova_file_play_pause() {
    playing = !playing;
    ui->btnKovaFilePlayPause->setText(playing ? tr("Pause") : tr("Play"));
    ui->btnKovaFilePlayOneFrame->setEnabled(!playing);
    QCoreApplication::processEvents();
}

void MainWindow::slot_play_one_frame() {
    if (camera.getCurrentKovaPosition() != camera.getKovaNumberOfFrames() - 1)
        show_grabbed_frame();
    QCoreApplication::processEvents();
}

void MainWindow::slot_kova_file_frame_index_changed(int index) {
    qDebug("set .kova file frame index: %d", index);
    playing = false;
    ui->btnKovaFilePlayPause->setText(tr("Play"));
    ui->btnKovaFilePlayOneFrame->setEnabled(true);
    camera.setTargetKovaPosition(index);
    show_grabbed_frame();
}

void MainWindow::show_grabbed_frame() {
    if (camera.grab(grab_parameters.load()) != kova::RESULT_OK)
        return;
    retrieve();
    emit signal_show();
    show_replay_position();
    ui->labelCurrentFrameIndex->setText(QString::number(camera.getCurrentKovaPosition()));
}

void MainWindow::slot_loop_changed(bool on) {
    loop = on;
    qDebug("set loop: %d", on);
}

// -------------------------------------------------------------------------------- measurement

void MainWindow::slot_mouse_pressed_image() {
    take_mouse_point(ui->oglWImage, ui->oglWDepth, true, "pressed image");
}

void MainWindow::slot_mouse_pressed_depth() {
    take_mouse_point(ui->oglWDepth, ui->oglWImage, true, "pressed depth");
}

void MainWindow::slot_mouse_released_image() {
    take_mouse_point(ui->oglWImage, ui->oglWDepth, false, "released image");
}

void MainWindow::slot_mouse_released_depth() {
    take_mouse_point(ui->oglWDepth, ui->oglWImage, false, "released depth");
}

void MainWindow::slot_mouse_moved_image() {
    take_mouse_point(ui->oglWImage, ui->oglWDepth, false, "moved image");
}

void MainWindow::slot_mouse_moved_depth() {
    take_mouse_point(ui->oglWDepth, ui->oglWImage, false, "moved depth");
}

void MainWindow::take_mouse_point(View* source, View* other, bool pressed, const char* name) {
    const Size2_<int> reported = pressed ? source->getPressed() : source->getReleased();
    const Size2_<int> pixel = kova::app::imagePixel(reported, display_ratio_x, display_ratio_y);
    // Both views mark the same image pixel.
    if (pressed) {
        source->setPressed(pixel);
        other->setPressed(source->getPressed());
        pressed_point = pixel;
    } else {
        source->setReleased(pixel);
        other->setReleased(source->getReleased());
        released_point = pixel;
    }
    qDebug("%s x: %d, y: %d", name, pixel.x, pixel.y);
    if (!playing)
        emit signal_show();
}

void MainWindow::update_points() {
    if (!running)
        return;
    if (released_point == kNoPoint) {
        ui->labelInfo->setText(QString());
        ui->oglWPointCloud->clearPoint();
        return;
    }
    const auto* cloud = static_cast<const float*>(point_cloud_record.load().data);
    const auto point_at = [&](Size2_<int> pixel) {
        return kova::app::cloudPoint(cloud, image_width, image_height, pixel);
    };
    // A point may lie outside the picture, or stem from an earlier, larger one.
    const auto released = point_at(released_point);
    if (!released)
        return;
    released_point_xyz = *released;
    if (pressed_point == released_point) {
        ui->labelInfo->setText(kova::app::pointText(released_point, released_point_xyz));
        ui->oglWPointCloud->setTargetPoint(released_point_xyz);
        return;
    }
    if (pressed_point.x == -1 && pressed_point.y == -1)
        return;
    const auto pressed = point_at(pressed_point);
    if (!pressed)
        return;
    pressed_point_xyz = *pressed;
    ui->labelInfo->setText(
        kova::app::distanceText(pressed_point, released_point,
                                kova::app::distanceBetween(pressed_point_xyz, released_point_xyz)));
    ui->oglWPointCloud->setTrianglePoint(pressed_point_xyz, released_point_xyz);
}

// --------------------------------------------------------------------------------------- help

void MainWindow::slot_show_tutorials() {
    QMessageBox box;
    box.setText(kova::app::tutorialsText());
    box.setWindowTitle(tr("Tutorials"));
    box.setStandardButtons(QMessageBox::Ok);
    box.setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    box.setStyleSheet(QStringLiteral("QLabel{min-width: 800px;}"));
    box.exec();
}
