#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "sdk/modes.h"
#include "sdk/records.h"
#include "sdk/result_code.h"
#include "sdk/size.h"

/// A scripted camera behind sdk/stereo_camera.h, linked instead of the real library.
namespace kova::test {

/// What the camera is and how it answers. Set before the window is made or while no capture runs.
struct CameraScript {
    std::vector<bino::CAMERA_MODEL> models;

    RESULT_CODE open_result = RESULT_OK;
    RESULT_CODE detection_result = RESULT_OK;
    RESULT_CODE work_mode_result = RESULT_OK;

    bino::ImageSizeFPS size{640, 400, 30};
    bool imu = false;
    std::uint32_t serial_number = 4711;
    std::string hardware_version = "2.5";
    bino::StereoParameters stereo;
    bino::ObstacleDetectionTopViewParameters top_view{1000, 2000, 100, 5100, 0.05f};

    float distance_min = 300;  ///< at open, and the limits to which the setters clamp
    float distance_max = 8000;
    float work_mode_distance_min = 300;  ///< after a change of the work mode
    float work_mode_distance_max = 8000;

    float exposure = 5;  ///< [ms]
    float max_exposure = 20;
    float exposure_step = 0;  ///< exposures are multiples of it; 0: any

    int frames = 10;  ///< of the recording

    /// Paints a view, RGBA or one channel; without it a frame is one value all over.
    std::function<void(bino::OBSTACLE_VIEW_TYPE type, int width, int height, unsigned char* out)>
        paint;

    /// Depth of the pixel at (x, y) of the cloud; the default says where the pixel is.
    std::function<Size3_<float>(int x, int y)> point;
};

/// The camera behind every StereoCamera object, and the journal of the calls made on it.
class CameraDouble {
public:
    static CameraDouble& instance();

    /// Forgets everything and takes the script.
    void reset(const CameraScript& script = {});
    CameraScript& script() { return script_; }

    /// Calls in order, for instance "open(4, 0, 0, true)". Those of a frame (grab, retrieve and the
    /// position of a recording) stand in a journal of their own.
    std::vector<std::string> calls() const;
    std::vector<std::string> frameCalls() const;
    /// Number of calls of one operation, by its name, in both journals.
    int count(const std::string& operation) const;
    void forgetCalls();

    /// Results of the coming grabs in order; afterwards `later` for ever. A live camera delivers
    /// nothing new unless told so, a recording plays on.
    void scriptGrabs(std::deque<RESULT_CODE> results, RESULT_CODE later = RESULT_NOT_NEW_FRAME);

    /// Called within each grab, without a lock.
    std::function<void()> on_grab;

    /// Serves the n-th new frame (from 1) as one value in all pictures.
    static unsigned char frameValue(int frame) { return static_cast<unsigned char>(frame * 10); }
    /// New frames delivered since open.
    int framesDelivered() const { return delivered_; }

    bool isOpen() const { return open_; }
    bool detecting() const { return detecting_; }

private:
    friend struct CameraDoubleEntry;

    CameraScript script_;
    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
    std::vector<std::string> frame_calls_;
    std::deque<RESULT_CODE> grabs_;
    RESULT_CODE later_grabs_ = RESULT_NOT_NEW_FRAME;
    bool grabs_scripted_ = false;

    std::atomic<bool> open_{false};
    std::atomic<bool> detecting_{false};
    bool file_ = false;
    std::atomic<int> delivered_{0};
    int position_ = -1;
    int target_ = 0;
    float distance_min_ = 0;
    float distance_max_ = 0;
    float exposure_ = 0;
    std::array<std::vector<unsigned char>, bino::kObstacleViewTypeCount> views_;
    std::vector<float> cloud_;
};

}  // namespace kova::test
