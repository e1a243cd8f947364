#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sdk/export.h"
#include "sdk/imu_data.h"
#include "sdk/modes.h"
#include "sdk/records.h"
#include "sdk/result_code.h"

namespace kova::bino {

/// A stereo camera, live, simulated or recorded, with depth and obstacle detection.
///
/// Units: millimetres, milliseconds, pixels; points in the frame of the rectified left camera,
/// x right, y down, z forward.
///
/// Threads: every operation may be called from any thread. grab() and the retrieve operations are
/// serialised; setters take effect at the next grab and never block for a frame time.
///
/// Buffers: a retrieved picture keeps its address until close() and its content until the next
/// grab() but one (two buffers alternate).
///
/// Operations on a camera that is not open return RESULT_CAMERA_NOT_OPEN, 0, or a null address.
class KOVA_SDK_API StereoCamera {
public:
    StereoCamera();
    ~StereoCamera();
    StereoCamera(const StereoCamera&) = delete;
    StereoCamera& operator=(const StereoCamera&) = delete;
    StereoCamera(StereoCamera&&) = delete;
    StereoCamera& operator=(StereoCamera&&) = delete;

    /// Models of the attached cameras; the index into this list is the camera index of open().
    /// Real cameras first, then simulated ones (environment variable KOVA_SIMULATED_CAMERAS).
    std::vector<CAMERA_MODEL> getAvailableCameraNames();

    /// Opens a live camera; a source that is open already is closed first.
    ///
    /// @param mode          resolution and rate
    /// @param camera_index  index into getAvailableCameraNames()
    /// @param work_mode     quality against time
    /// @param rectified     true; false is reserved and treated as true
    /// @return RESULT_INVALID_CAMERA (no such camera, busy, gone), RESULT_INVALID_RESOLUTION_MODE
    ///         (the camera lacks it), RESULT_CALIBRATION_NEEDED (no calibration on file),
    ///         RESULT_CALIBRATION_CHECK_FAILED (the calibration does not fit the pictures)
    RESULT_CODE open(RESOLUTION_FPS_MODE mode, int camera_index, WORK_MODE work_mode,
                     bool rectified);

    /// Opens a recorded `.kova` file; a source that is open already is closed first.
    ///
    /// @param path       in the local 8-bit encoding
    /// @param work_mode  quality against time
    /// @return RESULT_CAN_NOT_OPEN_FILE (missing, no permission, a folder),
    /// RESULT_INVALID_KOVA_FILE
    ///         (not a recording, newer format, damaged, without calibration or frames)
    RESULT_CODE open(const char* path, WORK_MODE work_mode);

    /// Closes the source and frees every buffer. Harmless when nothing is open.
    void close();

    /// Size of all pictures (but the top view) and nominal rate; constant while open.
    ImageSizeFPS getImageSizeFPS();

    /// True when the source delivers samples of an inertial unit.
    bool isIMUSupported();

    /// Starts the samples of a live camera's inertial unit.
    /// @return RESULT_INVALID_IMU (there is none), RESULT_INVALID_IMU_DATA_TYPE (unknown range)
    RESULT_CODE startRetrieveIMU(imu::IMU_ACCEL_RANGE accel_range, imu::IMU_GYRO_RANGE gyro_range);

    /// Starts the detection. After a failure the library accepts another open().
    ///
    /// @param use_imu  let gravity and angular rate steer the ground plane
    /// @param reserved false
    /// @return RESULT_INVALID_IMU when use_imu is set for a source without inertial unit
    RESULT_CODE startObstacleDetection(bool use_imu, bool reserved);

    /// Stops the detection; the views keep their last content.
    RESULT_CODE stopObstacleDetection();

    /// Filters of the detection; kept over stop and start while the source is open.
    RESULT_CODE setObstacleDetectionParameters(ObstacleDetectionParameters parameters);

    /// Shape of the stixels; kept likewise.
    RESULT_CODE setObstacleDetectionStixelsParameters(
        ObstacleDetectionStixelsParameters parameters);

    /// Geometry of the top view; constant while open.
    ObstacleDetectionTopViewParameters getObstacleDetectionTopViewParameters();

    /// Geometry of the rectified (true) or original (false) pair.
    StereoParameters getStereoParameters(bool rectified);

    /// Serial number of the camera, 0 when it has none.
    std::uint32_t getSerialNumber();

    /// Hardware version, for instance "1.0"; empty when unknown.
    std::string getHardwareVersion();

    /// Takes the next frame and computes its depth and detection. Waits at most 100 ms.
    ///
    /// A live camera delivers its newest frame. A recording keeps its pace when processing is fast
    /// enough and shows every frame when it is not.
    ///
    /// @return RESULT_OK (a new frame), RESULT_NOT_NEW_FRAME (nothing due yet, or a damaged frame
    ///         skipped), RESULT_INVALID_CAMERA (unplugged or silent for a second; until close),
    ///         RESULT_END_OF_KOVA_FILE, RESULT_CAMERA_NOT_OPEN
    RESULT_CODE grab(GrabParameters parameters);

    /// A view of the detection of the frame grabbed last; null before the first grab, for an
    /// unknown type and when nothing is open. Painted on request and kept until the next grab.
    ImageRecord retrieveObstacleDetectionView(OBSTACLE_VIEW_TYPE type);

    /// The point cloud of the frame grabbed last: width x height x 3 floats [mm], NaN where there
    /// is no depth. Null as above.
    ImageRecord retrieveDepthForObstacleDetection(DEPTH_TYPE type);

    /// Frames of the recording; 0 for a live camera.
    int getKovaNumberOfFrames();

    /// Index of the frame grabbed last; -1 before the first grab.
    int getCurrentKovaPosition();

    /// The next grab delivers this frame; clamped to the recording.
    void setTargetKovaPosition(int index);

    /// Changes quality against time; takes effect at the next grab.
    RESULT_CODE changeWorkMode(WORK_MODE work_mode);

    /// Removes depth whose probability of being right is below the threshold, 0 to 0.99.
    RESULT_CODE setConfidenceThreshold(float threshold);

    /// Limits of the search [mm]. Setters clamp; the getters say what holds.
    float getDistanceMinValue();
    float getDistanceMaxValue();
    RESULT_CODE setDistanceMinValue(float distance_mm);
    RESULT_CODE setDistanceMaxValue(float distance_mm);

    /// Exposure [ms]; 0 for a recording.
    float getExposureTime();
    float getMaxExposureTime();
    RESULT_CODE setExposureTime(float time_ms);
    RESULT_CODE useAutoExposure(bool automatic);

    /// Delivers pictures and points turned by 180 degrees, for a camera mounted upside down.
    RESULT_CODE setFlip(bool flip);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::bino
