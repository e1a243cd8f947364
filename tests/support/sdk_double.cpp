#include "tests/support/sdk_double.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <sstream>

#include "sdk/stereo_camera.h"

namespace kova::test {

namespace {

void print(std::ostream& out, const char* value) {
    out << '"' << value << '"';
}
void print(std::ostream& out, bool value) {
    out << (value ? "true" : "false");
}
template <typename T>
void print(std::ostream& out, const T& value) {
    out << value;
}
void print(std::ostream& out, const bino::GrabParameters& p) {
    out << '{' << p.rectify << ' ' << p.depth_mode << ' ' << p.left_right_check << ' '
        << p.speckle_removal;
    for (const std::int32_t value : p.reserved) out << ' ' << value;
    out << '}';
}
void print(std::ostream& out, const bino::ObstacleDetectionParameters& p) {
    out << '{' << p.ground_min_region << ' ' << int{p.ground_min_support} << ' '
        << p.obstacle_min_height << ' ' << p.obstacle_foot_height << ' ' << p.clearance << ' '
        << p.max_ground_slope << ' ' << p.min_drop << '}';
}
void print(std::ostream& out, const bino::ObstacleDetectionStixelsParameters& p) {
    out << '{' << p.width << ' ' << p.min_length << ' ' << p.crop_top << ' ' << p.crop_bottom << ' '
        << p.max_layers << '}';
}

template <typename... Arguments>
std::string callText(const char* operation, const Arguments&... arguments) {
    std::ostringstream out;
    out << operation << '(';
    [[maybe_unused]] const char* separator = "";
    ((out << separator, print(out, arguments), separator = ", "), ...);
    out << ')';
    return out.str();
}

}  // namespace

CameraDouble& CameraDouble::instance() {
    static CameraDouble camera;
    return camera;
}

void CameraDouble::reset(const CameraScript& script) {
    const std::lock_guard lock(mutex_);
    script_ = script;
    calls_.clear();
    frame_calls_.clear();
    grabs_.clear();
    grabs_scripted_ = false;
    on_grab = nullptr;
    open_ = false;
    detecting_ = false;
    file_ = false;
    delivered_ = 0;
    position_ = -1;
    target_ = 0;
    distance_min_ = distance_max_ = exposure_ = 0;
    for (auto& view : views_) view.clear();
    cloud_.clear();
}

std::vector<std::string> CameraDouble::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<std::string> CameraDouble::frameCalls() const {
    const std::lock_guard lock(mutex_);
    return frame_calls_;
}

int CameraDouble::count(const std::string& operation) const {
    const std::lock_guard lock(mutex_);
    const auto is = [&](const std::string& call) {
        return call.compare(0, operation.size() + 1, operation + "(") == 0;
    };
    return static_cast<int>(std::count_if(calls_.begin(), calls_.end(), is) +
                            std::count_if(frame_calls_.begin(), frame_calls_.end(), is));
}

void CameraDouble::forgetCalls() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
    frame_calls_.clear();
}

void CameraDouble::scriptGrabs(std::deque<RESULT_CODE> results, RESULT_CODE later) {
    const std::lock_guard lock(mutex_);
    grabs_ = std::move(results);
    later_grabs_ = later;
    grabs_scripted_ = true;
}

/// What the operations of the camera's class do; each is called with the double locked.
struct CameraDoubleEntry {
    CameraDouble& d = CameraDouble::instance();
    std::lock_guard<std::mutex> lock{d.mutex_};

    template <typename... Arguments>
    CameraDoubleEntry& call(const char* operation, const Arguments&... arguments) {
        d.calls_.push_back(callText(operation, arguments...));
        return *this;
    }
    template <typename... Arguments>
    CameraDoubleEntry& frameCall(const char* operation, const Arguments&... arguments) {
        d.frame_calls_.push_back(callText(operation, arguments...));
        return *this;
    }

    const CameraScript& script() const { return d.script_; }

    RESULT_CODE open(bool file) {
        close();
        if (script().open_result != RESULT_OK)
            return script().open_result;
        d.open_ = true;
        d.file_ = file;
        d.delivered_ = 0;
        d.position_ = -1;
        d.target_ = 0;
        d.distance_min_ = script().distance_min;
        d.distance_max_ = script().distance_max;
        d.exposure_ = file ? 0 : script().exposure;
        const auto pixels = static_cast<std::size_t>(script().size.width) * script().size.height;
        // Each is large enough for the top view too, whose size is another.
        const auto& top = script().top_view;
        const auto top_pixels =
            static_cast<std::size_t>(2 * top.half_width * top.pixels_per_mm *
                                     ((top.far_distance - top.near_distance) * top.pixels_per_mm));
        for (auto& view : d.views_) view.assign(std::max(pixels, top_pixels) * 4, 0);
        d.cloud_.assign(pixels * 3, 0);
        return RESULT_OK;
    }

    void close() {
        d.open_ = false;
        d.detecting_ = false;
        for (auto& view : d.views_) view.clear();
        d.cloud_.clear();
        d.distance_min_ = d.distance_max_ = 0;
    }

    RESULT_CODE startDetection() {
        if (!d.open_)
            return RESULT_CAMERA_NOT_OPEN;
        d.detecting_ = script().detection_result == RESULT_OK;
        return script().detection_result;
    }

    RESULT_CODE stopDetection() {
        d.detecting_ = false;
        return ifOpen(RESULT_OK);
    }

    RESULT_CODE grab() {
        if (!d.open_)
            return RESULT_CAMERA_NOT_OPEN;
        RESULT_CODE result = d.file_ ? RESULT_OK : RESULT_NOT_NEW_FRAME;
        if (!d.grabs_.empty()) {
            result = d.grabs_.front();
            d.grabs_.pop_front();
        } else if (d.grabs_scripted_) {
            result = d.later_grabs_;
        }
        if (result == RESULT_OK && d.file_ && d.target_ >= script().frames)
            result = RESULT_END_OF_KOVA_FILE;
        if (result == RESULT_OK)
            deliver();
        return result;
    }

    void deliver() {
        ++d.delivered_;
        if (d.file_) {
            d.position_ = d.target_;
            d.target_ = d.position_ + 1;
        }
        const unsigned char value = CameraDouble::frameValue(d.delivered_);
        for (std::size_t type = 0; type < d.views_.size(); ++type) {
            auto& view = d.views_[type];
            std::fill(view.begin(), view.end(), value);
            if (script().paint)
                script().paint(static_cast<bino::OBSTACLE_VIEW_TYPE>(type), script().size.width,
                               script().size.height, view.data());
        }
        for (int y = 0; y < script().size.height; ++y)
            for (int x = 0; x < script().size.width; ++x) {
                const Size3_<float> point =
                    script().point
                        ? script().point(x, y)
                        : Size3_<float>{static_cast<float>(x), static_cast<float>(y), 1000.0f};
                float* at = &d.cloud_[3 * (static_cast<std::size_t>(y) * script().size.width + x)];
                at[0] = point.x;
                at[1] = point.y;
                at[2] = point.z;
            }
    }

    bino::ImageRecord view(bino::OBSTACLE_VIEW_TYPE type) {
        bino::ImageRecord record;
        const auto index = static_cast<std::size_t>(type);
        if (d.delivered_ > 0 && index < d.views_.size())
            record.data = d.views_[index].data();
        return record;
    }

    bino::ImageRecord cloud() {
        bino::ImageRecord record;
        if (d.delivered_ > 0)
            record.data = d.cloud_.data();
        return record;
    }

    int frames() const { return d.open_ && d.file_ ? script().frames : 0; }
    int position() const { return d.position_; }
    void seek(int index) { d.target_ = std::clamp(index, 0, std::max(script().frames - 1, 0)); }

    RESULT_CODE changeWorkMode() {
        d.distance_min_ = script().work_mode_distance_min;
        d.distance_max_ = script().work_mode_distance_max;
        return script().work_mode_result;
    }

    float& distanceMin() { return d.distance_min_; }
    float& distanceMax() { return d.distance_max_; }
    float clamped(float distance) const {
        return std::clamp(distance, script().distance_min, script().distance_max);
    }

    float exposure() const { return d.exposure_; }
    void setExposure(float time) {
        const float step = script().exposure_step;
        d.exposure_ = step > 0 ? std::round(time / step) * step : time;
    }
    RESULT_CODE ifOpen(RESULT_CODE result) const {
        return d.open_ ? result : RESULT_CAMERA_NOT_OPEN;
    }
};

}  // namespace kova::test

namespace kova::bino {

using Entry = test::CameraDoubleEntry;

struct StereoCamera::Impl {};

StereoCamera::StereoCamera() : impl_(std::make_unique<Impl>()) {
    Entry().call("StereoCamera");
}
StereoCamera::~StereoCamera() {
    Entry().call("~StereoCamera").close();
}

std::vector<CAMERA_MODEL> StereoCamera::getAvailableCameraNames() {
    return Entry().call("getAvailableCameraNames").script().models;
}

RESULT_CODE StereoCamera::open(RESOLUTION_FPS_MODE mode, int camera_index, WORK_MODE work_mode,
                               bool rectified) {
    return Entry().call("open", mode, camera_index, work_mode, rectified).open(false);
}

RESULT_CODE StereoCamera::open(const char* path, WORK_MODE work_mode) {
    return Entry().call("open", path, work_mode).open(true);
}

void StereoCamera::close() {
    Entry().call("close").close();
}

ImageSizeFPS StereoCamera::getImageSizeFPS() {
    return Entry().call("getImageSizeFPS").script().size;
}

bool StereoCamera::isIMUSupported() {
    return Entry().call("isIMUSupported").script().imu;
}

RESULT_CODE StereoCamera::startRetrieveIMU(imu::IMU_ACCEL_RANGE accel, imu::IMU_GYRO_RANGE gyro) {
    return Entry().call("startRetrieveIMU", accel, gyro).ifOpen(RESULT_OK);
}

RESULT_CODE StereoCamera::startObstacleDetection(bool use_imu, bool reserved) {
    return Entry().call("startObstacleDetection", use_imu, reserved).startDetection();
}

RESULT_CODE StereoCamera::stopObstacleDetection() {
    return Entry().call("stopObstacleDetection").stopDetection();
}

RESULT_CODE StereoCamera::setObstacleDetectionParameters(ObstacleDetectionParameters parameters) {
    return Entry().call("setObstacleDetectionParameters", parameters).ifOpen(RESULT_OK);
}

RESULT_CODE StereoCamera::setObstacleDetectionStixelsParameters(
    ObstacleDetectionStixelsParameters parameters) {
    return Entry().call("setObstacleDetectionStixelsParameters", parameters).ifOpen(RESULT_OK);
}

ObstacleDetectionTopViewParameters StereoCamera::getObstacleDetectionTopViewParameters() {
    return Entry().call("getObstacleDetectionTopViewParameters").script().top_view;
}

StereoParameters StereoCamera::getStereoParameters(bool rectified) {
    return Entry().call("getStereoParameters", rectified).script().stereo;
}

std::uint32_t StereoCamera::getSerialNumber() {
    return Entry().call("getSerialNumber").script().serial_number;
}

std::string StereoCamera::getHardwareVersion() {
    return Entry().call("getHardwareVersion").script().hardware_version;
}

RESULT_CODE StereoCamera::grab(GrabParameters parameters) {
    if (const auto& hook = test::CameraDouble::instance().on_grab)
        hook();
    return Entry().frameCall("grab", parameters).grab();
}

ImageRecord StereoCamera::retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE type) {
    return Entry().frameCall("retrieveObstacleDetectionView", type).view(type);
}

ImageRecord StereoCamera::retrieveDepthForObstacleDetection(DEPTH_TYPE type) {
    return Entry().frameCall("retrieveDepthForObstacleDetection", type).cloud();
}

int StereoCamera::getKovaNumberOfFrames() {
    return Entry().frameCall("getKovaNumberOfFrames").frames();
}

int StereoCamera::getCurrentKovaPosition() {
    return Entry().frameCall("getCurrentKovaPosition").position();
}

void StereoCamera::setTargetKovaPosition(int index) {
    Entry().frameCall("setTargetKovaPosition", index).seek(index);
}

RESULT_CODE StereoCamera::changeWorkMode(WORK_MODE work_mode) {
    return Entry().call("changeWorkMode", work_mode).changeWorkMode();
}

RESULT_CODE StereoCamera::setConfidenceThreshold(float threshold) {
    return Entry().call("setConfidenceThreshold", threshold).ifOpen(RESULT_OK);
}

float StereoCamera::getDistanceMinValue() {
    return Entry().call("getDistanceMinValue").distanceMin();
}

float StereoCamera::getDistanceMaxValue() {
    return Entry().call("getDistanceMaxValue").distanceMax();
}

RESULT_CODE StereoCamera::setDistanceMinValue(float distance_mm) {
    Entry entry;
    entry.call("setDistanceMinValue", distance_mm).distanceMin() = entry.clamped(distance_mm);
    return entry.ifOpen(RESULT_OK);
}

RESULT_CODE StereoCamera::setDistanceMaxValue(float distance_mm) {
    Entry entry;
    entry.call("setDistanceMaxValue", distance_mm).distanceMax() = entry.clamped(distance_mm);
    return entry.ifOpen(RESULT_OK);
}

float StereoCamera::getExposureTime() {
    return Entry().call("getExposureTime").exposure();
}

float StereoCamera::getMaxExposureTime() {
    return Entry().call("getMaxExposureTime").script().max_exposure;
}

RESULT_CODE StereoCamera::setExposureTime(float time_ms) {
    Entry entry;
    entry.call("setExposureTime", time_ms).setExposure(time_ms);
    return entry.ifOpen(RESULT_OK);
}

RESULT_CODE StereoCamera::useAutoExposure(bool automatic) {
    return Entry().call("useAutoExposure", automatic).ifOpen(RESULT_OK);
}

RESULT_CODE StereoCamera::setFlip(bool flip) {
    return Entry().call("setFlip", flip).ifOpen(RESULT_OK);
}

}  // namespace kova::bino
