#include "sdk/stereo_camera.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <utility>

#include "camera/base/log.h"
#include "camera/pipeline/cameras.h"
#include "camera/pipeline/frame_feeder.h"
#include "camera/pipeline/picture_store.h"
#include "camera/pipeline/pipeline.h"
#include "camera/recording/replay_source.h"
#include "sdk/modes.h"

namespace kova::bino {

namespace {

using camera::ErrorCode;
using camera::Status;

/// Logs why something failed and gives its code.
RESULT_CODE report(const Status& status) {
    if (!status.ok())
        camera::logError("camera", status.message());
    return camera::toResultCode(status.code());
}

bool isWorkMode(WORK_MODE mode) {
    return mode >= WORK_MODE_FAST && mode <= WORK_MODE_SLOW;
}

/// Of a camera that is turned by 180 degrees the right eye is the left one.
camera::Eye colourEye(bool flip) {
    return flip ? camera::Eye::kRight : camera::Eye::kLeft;
}

/// Everything that lives from open to close.
struct OpenSource {
    camera::FrameFeeder feeder;
    std::unique_ptr<camera::Pipeline> pipeline;
    camera::PictureStore pictures;
    camera::DecodedFrame frame;
    // Copied, so that no getter has to ask a source that is busy.
    camera::CameraInfo info;
    camera::StereoCalibration calibration;
    float fps;
    bool recording;
    int frames;

    OpenSource(std::unique_ptr<camera::Source> source, std::unique_ptr<camera::Pipeline> p,
               bool flip)
        : feeder(std::move(source), colourEye(flip)),
          pipeline(std::move(p)),
          pictures(pipeline->geometry().width, pipeline->geometry().height, camera::topViewWidth(),
                   camera::topViewHeight()),
          info(feeder.source().camera()),
          calibration(feeder.source().calibration()),
          fps(static_cast<float>(feeder.source().stream().nominal_fps)),
          recording(feeder.source().isRecording()),
          frames(feeder.source().frameCount()) {}
};

}  // namespace

struct StereoCamera::Impl {
    // Serialises grab, retrieve, open and close.
    std::mutex frame_mutex;
    // Guards `source` against close while a setter uses it, and what the setters write; held for
    // moments only, so that setters never wait for a frame.
    std::mutex settings_mutex;
    std::unique_ptr<OpenSource> source;
    camera::PipelineSettings settings;
    bool detecting = false;
    bool restart_tracking = false;  // before the next frame
    std::atomic<int> position{-1};

    RESULT_CODE adopt(camera::Result<std::unique_ptr<camera::Source>> opened, WORK_MODE work_mode);
    void closeSource();

    /// Runs `change` on the settings.
    template <typename Change>
    RESULT_CODE set(Change change) {
        const std::lock_guard<std::mutex> lock(settings_mutex);
        if (!source)
            return RESULT_CAMERA_NOT_OPEN;
        return change();
    }
    /// Reads something of an open source; `otherwise` when nothing is open.
    template <typename T, typename Read>
    T get(T otherwise, Read read) {
        const std::lock_guard<std::mutex> lock(settings_mutex);
        return source ? read() : otherwise;
    }
};

void StereoCamera::Impl::closeSource() {
    std::unique_ptr<OpenSource> closing;
    {
        const std::lock_guard<std::mutex> lock(settings_mutex);
        closing = std::move(source);
        detecting = false;
        position = -1;
    }
    // Its thread is joined here, without the lock that setters take.
    closing.reset();
}

RESULT_CODE StereoCamera::Impl::adopt(camera::Result<std::unique_ptr<camera::Source>> opened,
                                      WORK_MODE work_mode) {
    if (!opened.ok())
        return report(opened.status());
    Status status;
    std::unique_ptr<camera::Pipeline> pipeline =
        camera::Pipeline::make(opened.value()->calibration(), status);
    if (!pipeline)
        return report(status);
    auto adopted =
        std::make_unique<OpenSource>(std::move(opened.value()), std::move(pipeline), settings.flip);
    const std::lock_guard<std::mutex> lock(settings_mutex);
    // What the user set on an earlier source stays, but for what depends on the source.
    settings.work_mode = static_cast<camera::WorkMode>(work_mode);
    settings.distance = camera::DistanceRange(adopted->pipeline->geometry());
    settings.detection = {};
    settings.detection.use_imu = false;
    detecting = false;
    position = -1;
    source = std::move(adopted);
    return RESULT_OK;
}

StereoCamera::StereoCamera() : impl_(std::make_unique<Impl>()) {}
StereoCamera::~StereoCamera() {
    close();
}

std::vector<CAMERA_MODEL> StereoCamera::getAvailableCameraNames() {
    std::vector<CAMERA_MODEL> models;
    for (const camera::CameraInfo& info : camera::listCameras())
        models.push_back(static_cast<CAMERA_MODEL>(info.model));
    return models;
}

RESULT_CODE StereoCamera::open(RESOLUTION_FPS_MODE mode, int camera_index, WORK_MODE work_mode,
                               bool /*rectified*/) {
    const std::lock_guard<std::mutex> lock(impl_->frame_mutex);
    impl_->closeSource();
    if (!isWorkMode(work_mode))
        work_mode = WORK_MODE_FAST;
    return impl_->adopt(camera::openCamera(camera_index, mode), work_mode);
}

RESULT_CODE StereoCamera::open(const char* path, WORK_MODE work_mode) {
    const std::lock_guard<std::mutex> lock(impl_->frame_mutex);
    impl_->closeSource();
    if (!isWorkMode(work_mode))
        work_mode = WORK_MODE_FAST;
    if (!path || !*path)
        return report({ErrorCode::kCannotOpenFile, "no recording was named"});
    auto replay = camera::ReplaySource::open(path);
    if (!replay.ok())
        return report(replay.status());
    return impl_->adopt(std::unique_ptr<camera::Source>(std::move(replay.value())), work_mode);
}

void StereoCamera::close() {
    const std::lock_guard<std::mutex> lock(impl_->frame_mutex);
    impl_->closeSource();
}

ImageSizeFPS StereoCamera::getImageSizeFPS() {
    return impl_->get(ImageSizeFPS{}, [&] {
        const camera::RectifiedGeometry& g = impl_->source->pipeline->geometry();
        return ImageSizeFPS{g.width, g.height, impl_->source->fps};
    });
}

bool StereoCamera::isIMUSupported() {
    return impl_->get(false, [&] { return impl_->source->info.has_imu; });
}

RESULT_CODE StereoCamera::startRetrieveIMU(imu::IMU_ACCEL_RANGE accel_range,
                                           imu::IMU_GYRO_RANGE gyro_range) {
    return impl_->set([&] {
        if (accel_range < imu::IMU_ACCEL_RANGE_2G || accel_range > imu::IMU_ACCEL_RANGE_16G ||
            gyro_range < imu::IMU_GYRO_RANGE_250DPS || gyro_range > imu::IMU_GYRO_RANGE_2000DPS)
            return RESULT_INVALID_IMU_DATA_TYPE;
        return report(impl_->source->feeder.source().startImu());
    });
}

RESULT_CODE StereoCamera::startObstacleDetection(bool use_imu, bool /*reserved*/) {
    return impl_->set([&] {
        if (use_imu && !impl_->source->info.has_imu)
            return report({ErrorCode::kImuMissing,
                           "detection with the inertial unit: the source has none; start without"});
        impl_->settings.detection.use_imu = use_imu;
        impl_->detecting = true;
        impl_->restart_tracking = true;
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::stopObstacleDetection() {
    return impl_->set([&] {
        impl_->detecting = false;
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::setObstacleDetectionParameters(ObstacleDetectionParameters parameters) {
    return impl_->set([&] {
        impl_->settings.detection.obstacles = parameters;
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::setObstacleDetectionStixelsParameters(
    ObstacleDetectionStixelsParameters parameters) {
    return impl_->set([&] {
        impl_->settings.detection.stixels = parameters;
        return RESULT_OK;
    });
}

ObstacleDetectionTopViewParameters StereoCamera::getObstacleDetectionTopViewParameters() {
    return camera::topViewParameters();
}

StereoParameters StereoCamera::getStereoParameters(bool rectified) {
    return impl_->get(StereoParameters{}, [&] {
        StereoParameters p;
        if (rectified) {
            const camera::RectifiedGeometry& g =
                impl_->source->pipeline->geometry(impl_->settings.flip);
            p.fx = p.right_fx = static_cast<float>(g.fx);
            p.fy = p.right_fy = static_cast<float>(g.fy);
            p.cx = static_cast<float>(g.cx);
            p.right_cx = static_cast<float>(g.cx_right);
            p.cy = p.right_cy = static_cast<float>(g.cy);
            p.baseline = static_cast<float>(g.baseline_mm);
            p.translation[0] = -p.baseline;
            return p;
        }
        const camera::StereoCalibration& c = impl_->source->calibration;
        p.fx = static_cast<float>(c.left.fx);
        p.fy = static_cast<float>(c.left.fy);
        p.cx = static_cast<float>(c.left.cx);
        p.cy = static_cast<float>(c.left.cy);
        p.right_fx = static_cast<float>(c.right.fx);
        p.right_fy = static_cast<float>(c.right.fy);
        p.right_cx = static_cast<float>(c.right.cx);
        p.right_cy = static_cast<float>(c.right.cy);
        for (std::size_t i = 0; i < 5; ++i) {
            if (i < c.left.distortion.size())
                p.distortion_left[i] = static_cast<float>(c.left.distortion[i]);
            if (i < c.right.distortion.size())
                p.distortion_right[i] = static_cast<float>(c.right.distortion[i]);
        }
        const std::array<double, 3> rotation = c.rotationVector();
        for (std::size_t i = 0; i < 3; ++i) {
            p.rotation[i] = static_cast<float>(rotation[i]);
            p.translation[i] = static_cast<float>(c.translation_mm[i]);
        }
        p.baseline = static_cast<float>(c.baselineMm());
        return p;
    });
}

std::uint32_t StereoCamera::getSerialNumber() {
    return impl_->get(std::uint32_t{0}, [&] { return impl_->source->info.serial_number; });
}

std::string StereoCamera::getHardwareVersion() {
    return impl_->get(std::string(), [&] { return impl_->source->info.hardware_version; });
}

RESULT_CODE StereoCamera::grab(GrabParameters parameters) {
    const std::lock_guard<std::mutex> frame_lock(impl_->frame_mutex);
    OpenSource* source = impl_->source.get();  // only changed under the frame lock
    if (!source)
        return RESULT_CAMERA_NOT_OPEN;
    const Status taken = source->feeder.take(source->frame);
    impl_->position = source->feeder.position();
    if (!taken.ok())
        return camera::toResultCode(taken.code());

    camera::PipelineSettings settings;
    bool restart = false;
    {
        const std::lock_guard<std::mutex> lock(impl_->settings_mutex);
        settings = impl_->settings;
        settings.fill = parameters.depth_mode == 1;
        settings.detect = impl_->detecting;
        restart = std::exchange(impl_->restart_tracking, false);
    }
    if (restart)
        source->pipeline->reset();
    if (Status s = source->pipeline->process(source->frame, settings); !s.ok())
        return report(s);
    source->pictures.nextFrame();
    return RESULT_OK;
}

ImageRecord StereoCamera::retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE type) {
    const std::lock_guard<std::mutex> frame_lock(impl_->frame_mutex);
    OpenSource* source = impl_->source.get();
    if (!source || type < 0 || type >= kObstacleViewTypeCount)
        return {};
    camera::PictureStore& pictures = source->pictures;
    // While the detection is stopped the last picture stays.
    if (!pictures.isCurrent(type) && source->pipeline->lastDetected()) {
        std::uint8_t* buffer = pictures.begin(type);
        const camera::DetectionFrame& frame = source->pipeline->detection();
        if (type == OBSTACLE_VIEW_TYPE_TOP_VIEW) {
            camera::paintTopView(frame, pictures.picture(type, buffer));
        } else if (type == OBSTACLE_VIEW_TYPE_GROUND_MAP) {
            const camera::ImageView<camera::Rgba> size = pictures.picture(type, buffer);
            camera::paintGroundMap(frame, {buffer, size.width, size.height, size.width});
        } else {
            camera::paintImageView(type, source->pipeline->viewInput(), frame,
                                   pictures.picture(type, buffer));
        }
    }
    ImageRecord record;
    record.data = pictures.newest(type);
    return record;
}

ImageRecord StereoCamera::retrieveDepthForObstacleDetection(DEPTH_TYPE type) {
    const std::lock_guard<std::mutex> frame_lock(impl_->frame_mutex);
    OpenSource* source = impl_->source.get();
    if (!source || type != DEPTH_TYPE_POINT_CLOUD || !source->pipeline->hasFrame())
        return {};
    constexpr int kCloud = camera::PictureStore::kCloud;
    if (!source->pictures.isCurrent(kCloud))
        source->pipeline->points(reinterpret_cast<float*>(source->pictures.begin(kCloud)));
    ImageRecord record;
    record.data = source->pictures.newest(kCloud);
    return record;
}

int StereoCamera::getKovaNumberOfFrames() {
    return impl_->get(0, [&] { return impl_->source->frames; });
}

int StereoCamera::getCurrentKovaPosition() {
    return impl_->position;
}

void StereoCamera::setTargetKovaPosition(int index) {
    impl_->set([&] {
        if (impl_->source->recording) {
            impl_->source->feeder.seek(
                std::clamp(index, 0, std::max(impl_->source->frames - 1, 0)));
            impl_->restart_tracking = true;
        }
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::changeWorkMode(WORK_MODE work_mode) {
    return impl_->set([&] {
        if (!isWorkMode(work_mode))
            return report({ErrorCode::kInvalidMode, "unknown work mode " +
                                                        std::to_string(work_mode) +
                                                        "; use 0 (fast), 1 (medium) or 2 (slow)"});
        impl_->settings.work_mode = static_cast<camera::WorkMode>(work_mode);
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::setConfidenceThreshold(float threshold) {
    return impl_->set([&] {
        if (!std::isnan(threshold))
            impl_->settings.confidence_threshold = std::clamp(threshold, 0.0f, 0.99f);
        return RESULT_OK;
    });
}

float StereoCamera::getDistanceMinValue() {
    return impl_->get(0.0f, [&] { return impl_->settings.distance.minMm(); });
}

float StereoCamera::getDistanceMaxValue() {
    return impl_->get(0.0f, [&] { return impl_->settings.distance.maxMm(); });
}

RESULT_CODE StereoCamera::setDistanceMinValue(float distance_mm) {
    return impl_->set([&] {
        impl_->settings.distance.setMinMm(distance_mm);
        return RESULT_OK;
    });
}

RESULT_CODE StereoCamera::setDistanceMaxValue(float distance_mm) {
    return impl_->set([&] {
        impl_->settings.distance.setMaxMm(distance_mm);
        return RESULT_OK;
    });
}

float StereoCamera::getExposureTime() {
    return impl_->get(
        0.0f, [&] { return static_cast<float>(impl_->source->feeder.source().exposureMs()); });
}

float StereoCamera::getMaxExposureTime() {
    return impl_->get(
        0.0f, [&] { return static_cast<float>(impl_->source->feeder.source().maxExposureMs()); });
}

RESULT_CODE StereoCamera::setExposureTime(float time_ms) {
    return impl_->set([&] {
        if (!(time_ms >= 0))
            return report({ErrorCode::kInvalidArgument, "an exposure time is not below zero"});
        return report(impl_->source->feeder.source().setExposureMs(time_ms));
    });
}

RESULT_CODE StereoCamera::useAutoExposure(bool automatic) {
    return impl_->set(
        [&] { return report(impl_->source->feeder.source().setAutoExposure(automatic)); });
}

RESULT_CODE StereoCamera::setFlip(bool flip) {
    return impl_->set([&] {
        impl_->settings.flip = flip;
        impl_->source->feeder.setColourEye(colourEye(flip));
        return RESULT_OK;
    });
}

}  // namespace kova::bino
