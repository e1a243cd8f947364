#include "app/mainwindow.h"

#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMessageBox>
#include <QResizeEvent>
#include <QScreen>
#include <QSignalBlocker>
#include <QThread>

#include <mutex>
#include <thread>

#include "app/application.h"
#include "app/texts.h"

#include "ui_mainwindow.h"

using kova::RESULT_CODE;
using kova::app::FrameMutex;
using kova::bino::CAMERA_MODEL;
using kova::bino::ImageRecord;
using kova::bino::OBSTACLE_VIEW_TYPE;
using kova::bino::RESOLUTION_FPS_MODE;
using kova::qwidget::QxtSpanSlider;

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent), ui(std::make_unique<Ui_MainWindow>()) {
    ui->setupUi(this);
    fit_to_screen();
    ui->checkBoxKeepRatio->hide();
    list_cameras();
    list_view_types();

    ui->labelFar->setText(tr("Far"));
    ui->labelNear->setText(tr("Near"));
    ui->indicatorDistance->set_color(true);
    ui->indicatorDistance->repaint();
    ui->btnStop->hide();
    ui->labelVersion->setText(tr("v ") + tr("1.6.0"));
    set_up_distance_slider();
    ui->groupBoxExposure->hide();
    ui->groupBoxKovaReplay->hide();
    make_connections();

    ui->oglWImage->setDrawCross(true);
    ui->oglWDepth->setDrawCross(true);
    ui->oglWImage->setKeepRatio(false);
    ui->oglWDepth->setKeepRatio(false);
}

MainWindow::~MainWindow() {
    end_worker();
    ui.reset();
}

void MainWindow::fit_to_screen() {
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    qDebug("primary screen: width %d, height %d", screen.width(), screen.height());
    if (const auto size = kova::app::windowSizeForScreen(screen.width(), screen.height())) {
        resize(*size);
        qDebug("screen resolution is not enough, resize...");
    }
}

void MainWindow::list_cameras() {
    camera_models = camera.getAvailableCameraNames();
    for (const CAMERA_MODEL model : camera_models)
        ui->comboBoxCamera->addItem(kova::app::translatedName(kova::bino::camera_model2str(model)));
    ui->comboBoxCamera->addItem(tr("select .kova file"));

    live_camera = !camera_models.empty();
    if (live_camera) {
        list_resolutions(0);
    } else {
        ui->btnStart->setEnabled(false);
        ui->comboBoxResolution->setEnabled(false);
    }
}

void MainWindow::list_view_types() {
    for (QComboBox* list : {ui->comboBoxImageType, ui->comboBoxDepthType})
        for (int type = 0; type < kova::bino::kObstacleViewTypeCount; ++type)
            list->addItem(kova::app::translatedName(
                kova::bino::obstacle_view_type2str(static_cast<OBSTACLE_VIEW_TYPE>(type))));
    ui->comboBoxImageType->setCurrentIndex(image_view_type);
    ui->comboBoxDepthType->setCurrentIndex(depth_view_type);
}

void MainWindow::set_up_distance_slider() {
    QxtSpanSlider* slider = ui->horizontalSliderDistanceRange;
    const int maximum = kova::app::truncated(max_distance);
    slider->setHandleMovementMode(QxtSpanSlider::NoCrossing);
    slider->setMaximum(maximum);
    slider->setLowerPosition(0);
    slider->setUpperPosition(maximum);
    slider->setLowerValue(0);
    slider->setUpperValue(maximum);
    slider->setSingleStep(50);
    slider->setEnabled(false);
}

void MainWindow::make_connections() {
    // Old style, so that the connections read as the table of names that they are.
    connect(ui->btnStart, SIGNAL(clicked()), this, SLOT(slot_start()));
    connect(ui->btnStop, SIGNAL(clicked()), this, SLOT(slot_stop()));
    connect(ui->comboBoxImageType, SIGNAL(activated(int)), this,
            SLOT(slot_image_type_changed(int)));
    connect(ui->comboBoxDepthType, SIGNAL(activated(int)), this,
            SLOT(slot_depth_type_changed(int)));
    connect(ui->comboBoxCamera, SIGNAL(activated(int)), this, SLOT(slot_camera_changed(int)));
    connect(ui->comboBoxResolution, SIGNAL(activated(int)), this,
            SLOT(slot_resolution_changed(int)));
    connect(ui->oglWImage, SIGNAL(mouse_released()), this, SLOT(slot_mouse_released_image()));
    connect(ui->oglWDepth, SIGNAL(mouse_released()), this, SLOT(slot_mouse_released_depth()));
    connect(ui->oglWImage, SIGNAL(mouse_pressed()), this, SLOT(slot_mouse_pressed_image()));
    connect(ui->oglWDepth, SIGNAL(mouse_pressed()), this, SLOT(slot_mouse_pressed_depth()));
    connect(ui->oglWImage, SIGNAL(mouse_moved()), this, SLOT(slot_mouse_moved_image()));
    connect(ui->oglWDepth, SIGNAL(mouse_moved()), this, SLOT(slot_mouse_moved_depth()));
    connect(ui->checkBoxFlip, SIGNAL(toggled(bool)), this, SLOT(slot_flip_changed(bool)));
    connect(ui->checkBoxKeepRatio, SIGNAL(toggled(bool)), this,
            SLOT(slot_keep_ratio_changed(bool)));
    connect(ui->horizontalSliderDistanceRange, SIGNAL(upperValueChanged(int)), this,
            SLOT(slot_max_distance_changed(int)));
    connect(ui->horizontalSliderDistanceRange, SIGNAL(lowerValueChanged(int)), this,
            SLOT(slot_min_distance_changed(int)));
    connect(ui->radioButtonStandard, SIGNAL(clicked()), this, SLOT(slot_depth_mode_selected()));
    connect(ui->radioButtonFill, SIGNAL(clicked()), this, SLOT(slot_depth_mode_selected()));
    connect(ui->btnKovaFilePlayPause, SIGNAL(clicked()), this, SLOT(slot_kova_file_play_pause()));
    connect(ui->horizontalSliderKovaFileReplay, SIGNAL(valueChanged(int)), this,
            SLOT(slot_kova_file_frame_index_changed(int)));
    connect(ui->checkBoxLoop, SIGNAL(toggled(bool)), this, SLOT(slot_loop_changed(bool)));
    connect(ui->radioButtonFast, SIGNAL(clicked()), this, SLOT(slot_work_mode_selected()));
    connect(ui->radioButtonMedium, SIGNAL(clicked()), this, SLOT(slot_work_mode_selected()));
    connect(ui->radioButtonSlow, SIGNAL(clicked()), this, SLOT(slot_work_mode_selected()));
    connect(ui->horizontalSliderConfidence, SIGNAL(valueChanged(int)), this,
            SLOT(slot_confidence_threshold_changed(int)));
    connect(ui->horizontalSliderExposure, SIGNAL(valueChanged(int)), this,
            SLOT(slot_exposure_changed(int)));
    connect(ui->checkBoxAutoExposure, SIGNAL(toggled(bool)), this,
            SLOT(slot_auto_exposure_changed(bool)));
    connect(ui->checkBoxObstacleDetectionUsingIMU, SIGNAL(toggled(bool)), this,
            SLOT(slot_obstacle_using_imu_changed(bool)));
    connect(ui->btnTutorials, SIGNAL(clicked()), this, SLOT(slot_show_tutorials()));
    connect(ui->spinBoxObsPara1, SIGNAL(valueChanged(int)), this,
            SLOT(slot_obstacle_parameter_changed1(int)));
    connect(ui->spinBoxObsPara2, SIGNAL(valueChanged(int)), this,
            SLOT(slot_obstacle_parameter_changed2(int)));
    connect(this, SIGNAL(signal_show()), this, SLOT(slot_show_result()));
    connect(ui->btnKovaFilePlayOneFrame, SIGNAL(clicked()), this, SLOT(slot_play_one_frame()));
}

void MainWindow::resizeEvent(QResizeEvent* e) {
    if (e->size().width() == -1 || e->size().height() == -1)
        return;
    check_ratio();
}

void MainWindow::check_ratio() {
    display_ratio_x = kova::app::displayRatio(ui->oglWDepth->width(), image_width);
    display_ratio_y = kova::app::displayRatio(ui->oglWDepth->height(), image_height);
}

void MainWindow::closeEvent(QCloseEvent* e) {
    end_worker();
    camera.close();
    clear_records();
    uninit_openglwidget_resource();
    e->accept();
}

void MainWindow::end_worker() {
    running = false;
    {
        // The worker needs neither the frame mutex nor the widgets' lock of this thread to end.
        const FrameMutex::GuiRelease frame(mutex);
        const kova::app::Application::Released widgets;
        while (!finished) QThread::msleep(100);
    }
    ++capture;
}

// ------------------------------------------------------------------------------------- capture

void MainWindow::slot_camera_changed(int index) {
    camera_index = index;
    ui->comboBoxResolution->clear();
    if (index < static_cast<int>(camera_models.size())) {
        list_resolutions(index);
        live_camera = true;
        ui->comboBoxResolution->setEnabled(true);
        ui->groupBoxKovaReplay->hide();
        qDebug("set camera index: %d", index);
        return;
    }
    ui->comboBoxResolution->setEnabled(false);
    live_camera = false;
    if (index == ui->comboBoxCamera->count() - 1)
        select_kova_file();
}

void MainWindow::list_resolutions(int index) {
    const CAMERA_MODEL model = camera_models.at(static_cast<std::size_t>(index));
    resolution_list = kova::bino::camera_model_modes(model);
    for (const RESOLUTION_FPS_MODE mode : resolution_list)
        ui->comboBoxResolution->addItem(
            kova::app::translatedName(kova::bino::resolution_fps_mode2str(mode)));
    const int entry = kova::bino::camera_model_default_mode_index(model);
    ui->comboBoxResolution->setCurrentIndex(entry);
    // A model without modes ends here, with an exception that nobody catches.
    resolution_mode = resolution_list.at(static_cast<std::size_t>(entry));
}

void MainWindow::select_kova_file() {
    file_path = QFileDialog::getOpenFileName(this, QStringLiteral("Select .kova File"), QString(),
                                             tr("Kova file (*.kova)"));
    if (file_path.isEmpty()) {
        qDebug("cancel select .kova file");
        return;
    }
    qDebug("select .kova file: %s", file_path.toUtf8().constData());
    ui->btnStart->setEnabled(true);
    QComboBox* list = ui->comboBoxCamera;
    if (static_cast<int>(camera_models.size()) < list->count() - 1)
        list->removeItem(list->count() - 2);
    list->removeItem(list->count() - 1);
    list->addItem(QFileInfo(file_path).fileName());
    list->addItem(tr("select .kova file"));
    list->setCurrentIndex(list->count() - 2);
}

void MainWindow::slot_resolution_changed(int index) {
    resolution_mode = resolution_list.at(static_cast<std::size_t>(index));
    qDebug("set resolution: %s", kova::bino::resolution_fps_mode2str(resolution_mode).c_str());
}

bool MainWindow::open_camera() {
    return camera_index < static_cast<int>(camera_models.size()) ? open_live_camera()
                                                                 : open_kova_file();
}

bool MainWindow::open_live_camera() {
    const RESULT_CODE result = camera.open(resolution_mode, camera_index, work_mode, true);
    if (result != kova::RESULT_OK) {
        show_error(kova::app::errorText(tr("Open depth camera failed: \r\n"), result));
        return false;
    }
    qDebug("Stereo camera open finished");
    const kova::bino::ImageSizeFPS size = camera.getImageSizeFPS();
    image_width = size.width;
    image_height = size.height;

    use_imu_if_supported();
    if (use_imu)
        camera.startRetrieveIMU(kova::imu::IMU_ACCEL_RANGE_16G, kova::imu::IMU_GYRO_RANGE_2000DPS);
    if (!start_obstacle_detection())
        return false;
    send_obstacle_parameters();
    max_exposure = camera.getMaxExposureTime();
    read_stereo_parameters();

    ui->groupBoxExposure->show();
    ui->horizontalSliderExposure->hide();
    ui->labelExposureMS->hide();
    show_exposure(kova::app::ExposureRounding::truncate);
    qDebug("fx, fy, cx, cy:  %f %f %f %f", static_cast<double>(stereo_parameters.fx),
           static_cast<double>(stereo_parameters.fy), static_cast<double>(stereo_parameters.cx),
           static_cast<double>(stereo_parameters.cy));
    return true;
}

bool MainWindow::open_kova_file() {
    if (file_path.isEmpty()) {
        show_error(tr("Select a .kova file first"));
        return false;
    }
    const RESULT_CODE result = camera.open(file_path.toLocal8Bit().constData(), work_mode);
    if (result != kova::RESULT_OK) {
        show_error(kova::app::errorText(tr(".kova file open failed: \r\n"), result));
        return false;
    }
    qDebug(".kova file open finished");
    const kova::bino::ImageSizeFPS size = camera.getImageSizeFPS();
    image_width = size.width;
    image_height = size.height;

    use_imu_if_supported();
    if (!start_obstacle_detection())
        return false;
    send_obstacle_parameters();

    const kova::bino::ResolutionFpsMode* mode =
        kova::bino::find_resolution_fps_mode(size.width, size.height, size.fps);
    ui->comboBoxResolution->clear();
    ui->comboBoxResolution->addItem(kova::app::translatedName(mode ? mode->name : ""));
    read_stereo_parameters();
    qDebug("fx, fy, cx, cy:  %f %f %f %f", static_cast<double>(stereo_parameters.fx),
           static_cast<double>(stereo_parameters.fy), static_cast<double>(stereo_parameters.cx),
           static_cast<double>(stereo_parameters.cy));

    playing = true;
    const int frames = camera.getKovaNumberOfFrames();
    qDebug(".kova file total frame number: %d", frames);
    ui->groupBoxKovaReplay->show();
    {
        // A range that shrinks moves the slider, which is not to seek.
        const QSignalBlocker blocker(ui->horizontalSliderKovaFileReplay);
        ui->horizontalSliderKovaFileReplay->setMaximum(frames - 1);
        ui->horizontalSliderKovaFileReplay->setValue(0);
    }
    ui->labelCurrentFrameIndex->setText(tr("0"));
    ui->btnKovaFilePlayOneFrame->setEnabled(false);
    ui->horizontalSliderKovaFileReplay->setEnabled(true);
    return true;
}

void MainWindow::use_imu_if_supported() {
    use_imu = camera.isIMUSupported();
    if (!use_imu)
        return;
    const QSignalBlocker blocker(ui->checkBoxObstacleDetectionUsingIMU);
    ui->checkBoxObstacleDetectionUsingIMU->setChecked(true);
    ui->checkBoxObstacleDetectionUsingIMU->setEnabled(true);
}

bool MainWindow::start_obstacle_detection() {
    const RESULT_CODE result = camera.startObstacleDetection(use_imu, detection_flag_2);
    if (result == kova::RESULT_OK)
        return true;
    show_error(kova::app::errorText(tr("Start obstacle detection failed: \r\n"), result));
    return false;
}

void MainWindow::send_obstacle_parameters() {
    slot_obstacle_parameter_changed1(ui->spinBoxObsPara1->value());
    slot_obstacle_parameter_changed2(ui->spinBoxObsPara2->value());
    camera.setObstacleDetectionStixelsParameters(stixels_parameters);
}

void MainWindow::read_stereo_parameters() {
    stereo_parameters = camera.getStereoParameters(true);
}

void MainWindow::show_error(const QString& text) {
    QMessageBox::information(nullptr, tr("Error"), text, QMessageBox::Ok);
}

void MainWindow::slot_start() {
    if (!open_camera()) {
        running = false;
        return;
    }
    clear_records();
    ++capture;
    running = true;
    finished = false;
    camera.setFlip(flip);
    ui->labelSN->setText(kova::app::serialNumberText(camera.getSerialNumber()));
    ui->labelHW->setText(kova::app::hardwareVersionText(camera.getHardwareVersion()));

    const float camera_minimum = camera.getDistanceMinValue();
    if (min_distance < camera_minimum)
        min_distance = camera_minimum;
    max_distance = camera.getDistanceMaxValue();
    show_distance_slider();
    reset_confidence();
    ui->oglWPointCloud->setDepthRange(min_distance, max_distance);
    ui->oglWPointCloud->setFocalLength(stereo_parameters.fx, stereo_parameters.fy);

    ui->btnStart->hide();
    ui->btnStop->show();
    ui->comboBoxCamera->setEnabled(false);
    ui->comboBoxResolution->setEnabled(false);
    show_distances();
    ui->horizontalSliderDistanceRange->setEnabled(true);
    // The exposure or replay group has just appeared; the views' geometry is to be the new one.
    ui->gridLayout->activate();
    check_ratio();
    init_openglwidget_resource();
    std::thread(&MainWindow::thread_grab_retrieve_show, this).detach();
}

void MainWindow::slot_stop() {
    end_worker();
    camera.close();
    clear_records();
    ui->labelSN->clear();
    ui->labelHW->clear();
    uninit_openglwidget_resource();
    ui->btnStart->show();
    ui->btnStop->hide();
    ui->comboBoxCamera->setEnabled(true);
    ui->groupBoxExposure->hide();
    ui->groupBoxKovaReplay->hide();
    {
        const QSignalBlocker blocker(ui->checkBoxObstacleDetectionUsingIMU);
        ui->checkBoxObstacleDetectionUsingIMU->setChecked(false);
        ui->checkBoxObstacleDetectionUsingIMU->setEnabled(false);
    }
    use_imu = false;
    ui->btnKovaFilePlayOneFrame->setEnabled(false);
    if (live_camera) {
        ui->comboBoxResolution->setEnabled(true);
        return;
    }
    ui->comboBoxResolution->clear();
    {
        const QSignalBlocker blocker(ui->horizontalSliderKovaFileReplay);
        ui->horizontalSliderKovaFileReplay->setValue(0);
    }
    ui->btnKovaFilePlayPause->setText(tr("Pause"));
    playing = false;
}

void MainWindow::show_distance_slider() {
    QxtSpanSlider* slider = ui->horizontalSliderDistanceRange;
    const QSignalBlocker blocker(slider);
    // The slider sorts and clamps its span at every call: in this order each value arrives as it
    // is.
    const int maximum = kova::app::truncated(max_distance);
    slider->setMaximum(maximum);
    slider->setUpperValue(maximum);
    slider->setUpperPosition(maximum);
    slider->setLowerValue(kova::app::truncated(min_distance));
}

void MainWindow::show_distances() {
    ui->labelMaxDistance->setText(kova::app::distanceRangeText(min_distance, max_distance));
}

void MainWindow::reset_confidence() {
    camera.setConfidenceThreshold(0.0f);
    {
        const QSignalBlocker blocker(ui->horizontalSliderConfidence);
        ui->horizontalSliderConfidence->setValue(100);
    }
    ui->labelConfidence->setText(tr("Confidence 100 %"));
}

void MainWindow::init_openglwidget_resource() {
    ui->oglWPointCloud->initResource(image_width, image_height, 4);
    init_view(ui->oglWImage, image_view_type);
    init_view(ui->oglWDepth, depth_view_type);
}

void MainWindow::init_view(View* view, OBSTACLE_VIEW_TYPE type) {
    switch (type) {
        case kova::bino::OBSTACLE_VIEW_TYPE_OBSTACLE:
        case kova::bino::OBSTACLE_VIEW_TYPE_GROUND:
        case kova::bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS:
        case kova::bino::OBSTACLE_VIEW_TYPE_STIXELS:
            view->initResource(image_width, image_height, false);
            return;
        case kova::bino::OBSTACLE_VIEW_TYPE_TOP_VIEW: {
            const QSize size =
                kova::app::topViewSize(camera.getObstacleDetectionTopViewParameters());
            view->initResource(size.width(), size.height(), false);
            return;
        }
        case kova::bino::OBSTACLE_VIEW_TYPE_GROUND_MAP:
            view->initResource(image_width, image_height, true);
            return;
    }
    qDebug("no such obstacle view type: %s", QByteArray::number(type).constData());
}

void MainWindow::uninit_openglwidget_resource() {
    ui->oglWPointCloud->uninitResource();
    ui->oglWImage->uninitResource();
    ui->oglWDepth->uninitResource();
}

void MainWindow::clear_records() {
    for (auto* record :
         {&image_record, &depth_record, &point_cloud_color_record, &point_cloud_record})
        record->store(ImageRecord());
}

// -------------------------------------------------------------------------------------- worker

void MainWindow::thread_grab_retrieve_show() {
    finished = false;
    while (running) {
        {
            const std::lock_guard frame(mutex);
            if (grab()) {
                retrieve();
                emit signal_show();
            }
        }
        QCoreApplication::processEvents();
        QThread::msleep(1);
    }
    finished = true;
}

bool MainWindow::grab() {
    time_before_grab = std::chrono::system_clock::now();
    if (live_camera)
        return camera.grab(grab_parameters.load()) == kova::RESULT_OK;
    return playing && grab_kova_file();
}

bool MainWindow::grab_kova_file() {
    if (camera.getCurrentKovaPosition() == camera.getKovaNumberOfFrames() - 1) {
        if (!loop) {
            playing = false;
            update_from_worker(&MainWindow::show_replay_paused);
            return false;
        }
        camera.setTargetKovaPosition(0);
        qDebug("end of the .kova file, back to start..");
    }
    if (camera.grab(grab_parameters.load()) != kova::RESULT_OK)
        return false;
    update_from_worker(&MainWindow::show_replay_position);
    return true;
}

void MainWindow::update_from_worker(void (MainWindow::*update)()) {
    kova::app::Application::updateWidgets(this, [this, update, made_for = capture.load()] {
        if (capture == made_for)
            (this->*update)();
    });
}

void MainWindow::show_replay_position() {
    const int position = camera.getCurrentKovaPosition();
    ui->labelCurrentFrameIndex->setText(QString::number(position));
    const QSignalBlocker blocker(ui->horizontalSliderKovaFileReplay);
    ui->horizontalSliderKovaFileReplay->setValue(position);
}

void MainWindow::show_replay_paused() {
    // Queued, it may arrive after a click that has set the replay going again.
    if (playing)
        return;
    ui->btnKovaFilePlayPause->setText(tr("Play"));
    ui->btnKovaFilePlayOneFrame->setEnabled(true);
}

void MainWindow::retrieve() {
    const ImageRecord image = camera.retrieveObstacleDetectionView(image_view_type);
    image_record.store(image);
    const ImageRecord depth = camera.retrieveObstacleDetectionView(depth_view_type);
    depth_record.store(depth);
    const ImageRecord cloud =
        camera.retrieveDepthForObstacleDetection(kova::bino::DEPTH_TYPE_POINT_CLOUD);
    point_cloud_record.store(cloud);
    const ImageRecord color =
        camera.retrieveObstacleDetectionView(kova::bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS);
    point_cloud_color_record.store(color);

    ui->oglWImage->setImagePointer(static_cast<unsigned char*>(image.data));
    ui->oglWDepth->setImagePointer(static_cast<unsigned char*>(depth.data));
    ui->oglWPointCloud->setPointCloudPointer(static_cast<float*>(cloud.data));
    ui->oglWPointCloud->setImagePointer(static_cast<unsigned char*>(color.data));
    if (live_camera || playing) {
        time_after_retrieve = std::chrono::system_clock::now();
        const std::chrono::nanoseconds taken = time_after_retrieve - time_before_grab;
        calculation_time = static_cast<double>(taken.count()) / 1e9;
    }
}

void MainWindow::slot_show_result() {
    update_points();
    ui->oglWImage->update();
    ui->oglWDepth->update();
    ui->oglWPointCloud->update();
    ui->labelFps->setText(kova::app::calculationTimeText(calculation_time));
}
