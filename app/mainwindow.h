#pragma once

#include <QMainWindow>
#include <QString>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "app/frame_mutex.h"
#include "app/geometry.h"
#include "app/shared_value.h"
#include "sdk/stereo_camera.h"

class QCheckBox;
class Ui_MainWindow;

namespace kova::qwidget {
class CPUMouseQOpenGLWidget;
}

/// The one window of the viewer: a live camera or a recording, two views of the obstacle detection
/// and the point cloud, and the controls of all of them.
///
/// Threads: everything runs in the GUI thread but grab(), retrieve() and
/// thread_grab_retrieve_show(), which make up the worker. A worker is started by slot_start() and
/// detached; `running` tells it to end and `finished` tells that it has. It holds `mutex` for each
/// frame; the slots that retrieve or rebuild the views hold it too. What the two threads share
/// outside the mutex is atomic or a SharedValue.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);

    /// Waits for a worker that no close event has ended.
    ~MainWindow() override;

    /// Takes the size of the views over the size of the images as scale of the mouse positions.
    void check_ratio();

signals:
    /// A new frame, or the same frame in another form, is in the views' buffers.
    void signal_show();

public slots:
    void slot_start();
    void slot_stop();
    void slot_image_type_changed(int index);
    void slot_depth_type_changed(int index);
    void slot_camera_changed(int index);
    void slot_resolution_changed(int index);
    void slot_mouse_pressed_image();
    void slot_mouse_pressed_depth();
    void slot_mouse_released_image();
    void slot_mouse_released_depth();
    void slot_mouse_moved_image();
    void slot_mouse_moved_depth();
    void slot_flip_changed(bool on);
    void slot_keep_ratio_changed(bool on);
    void slot_max_distance_changed(int value);
    void slot_min_distance_changed(int value);
    void slot_depth_mode_selected();
    void slot_kova_file_play_pause();
    void slot_kova_file_frame_index_changed(int index);
    void slot_loop_changed(bool on);
    void slot_work_mode_selected();
    void slot_confidence_threshold_changed(int value);
    void slot_exposure_changed(int value);
    void slot_auto_exposure_changed(bool on);
    void slot_show_result();
    void slot_obstacle_using_imu_changed(bool on);
    void slot_show_tutorials();
    void slot_obstacle_parameter_changed1(int value);
    void slot_obstacle_parameter_changed2(int value);
    void slot_play_one_frame();

protected:
    void resizeEvent(QResizeEvent* e) override;
    void closeEvent(QCloseEvent* e) override;

private:
    friend struct MainWindowAccess;  // the tests' view of the state

    using View = kova::qwidget::CPUMouseQOpenGLWidget;

    // Construction.
    void fit_to_screen();
    void list_cameras();
    void list_view_types();
    void set_up_distance_slider();
    void make_connections();

    // Capture.
    void list_resolutions(int index);
    void select_kova_file();
    bool open_camera();
    bool open_live_camera();
    bool open_kova_file();
    void use_imu_if_supported();
    bool start_obstacle_detection();
    void send_obstacle_parameters();
    void read_stereo_parameters();
    void init_openglwidget_resource();
    void init_view(View* view, kova::bino::OBSTACLE_VIEW_TYPE type);
    void uninit_openglwidget_resource();
    void clear_records();
    void end_worker();
    void show_distance_slider();
    void show_distances();
    void reset_confidence();
    void show_error(const QString& text);

    // The worker.
    void thread_grab_retrieve_show();
    bool grab();
    bool grab_kova_file();
    void retrieve();
    void update_from_worker(void (MainWindow::*update)());
    void show_replay_position();
    void show_replay_paused();

    // Controls, replay and measurement.
    void change_view_type(kova::bino::OBSTACLE_VIEW_TYPE& type, int index);
    void show_grabbed_frame();
    void show_exposure(kova::app::ExposureRounding rounding);
    void take_mouse_point(View* source, View* other, bool pressed, const char* name);
    void update_points();

    // In the order in which they are to die from the last to the first.
    std::unique_ptr<Ui_MainWindow> ui;
    kova::bino::StereoCamera camera;

    int camera_index = 0;
    std::vector<kova::bino::CAMERA_MODEL> camera_models;
    std::vector<kova::bino::RESOLUTION_FPS_MODE> resolution_list;
    kova::bino::WORK_MODE work_mode = kova::bino::WORK_MODE_FAST;
    kova::bino::RESOLUTION_FPS_MODE resolution_mode{};
    kova::app::SharedValue<kova::bino::GrabParameters> grab_parameters;
    kova::bino::OBSTACLE_VIEW_TYPE image_view_type = kova::bino::OBSTACLE_VIEW_TYPE_GROUND;
    kova::bino::OBSTACLE_VIEW_TYPE depth_view_type = kova::bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS;
    kova::bino::StereoParameters stereo_parameters;
    int image_width = 0;
    int image_height = 0;

    std::atomic<bool> running{false};
    std::atomic<bool> finished{true};
    std::atomic<bool> flip{false};
    bool keep_ratio = true;
    float display_ratio_x = 1.0f;
    float display_ratio_y = 1.0f;

    kova::app::SharedValue<kova::bino::ImageRecord> image_record;
    kova::app::SharedValue<kova::bino::ImageRecord> depth_record;
    kova::app::SharedValue<kova::bino::ImageRecord> point_cloud_color_record;
    kova::app::SharedValue<kova::bino::ImageRecord> point_cloud_record;

    float min_distance = 0;
    float max_distance = 0;
    std::chrono::system_clock::time_point time_after_retrieve{};
    std::chrono::system_clock::time_point time_before_grab{};
    std::atomic<double> calculation_time{0};  // [s]

    std::atomic<bool> live_camera{true};
    std::atomic<bool> playing{false};
    QString file_path;
    std::atomic<bool> loop{false};
    float max_exposure = 1;  // [ms]
    bool auto_exposure = true;
    bool use_imu = false;
    bool detection_flag_2 = false;
    kova::bino::ObstacleDetectionParameters obstacle_parameters;
    kova::bino::ObstacleDetectionStixelsParameters stixels_parameters;

    kova::Size2_<int> pressed_point = kova::app::kNoPoint;
    kova::Size2_<int> released_point = kova::app::kNoPoint;
    kova::Size3_<float> released_point_xyz;
    kova::Size3_<float> pressed_point_xyz;

    kova::app::FrameMutex mutex;

    // Counts starts and ends of captures: what the worker queued for one must not change what the
    // window shows afterwards.
    std::atomic<unsigned> capture{0};
};
