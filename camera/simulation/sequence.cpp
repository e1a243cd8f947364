#include "camera/simulation/sequence.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>

#include "camera/simulation/imu.h"
#include "sdk/modes.h"

namespace kova::camera {

CameraInfo simulatedCameraInfo(std::int32_t model, std::uint32_t seed) {
    CameraInfo info;
    info.model = model;
    info.name = "simulated " + bino::camera_model2str(static_cast<bino::CAMERA_MODEL>(model));
    info.serial_number = 9'000'000 + seed % 1'000'000;
    info.hardware_version = "1.0";
    info.has_imu = model == bino::CAMERA_MODEL_QUELVAR_P0 || model == bino::CAMERA_MODEL_QUELVAR_P1;
    return info;
}

Status encodeJpeg(const std::vector<std::uint8_t>& grey, int width, int height, int quality,
                  std::vector<std::uint8_t>& out) {
    struct Compressor {
        tjhandle handle = tjInitCompress();
        ~Compressor() {
            if (handle)
                tjDestroy(handle);
        }
    };
    static thread_local Compressor compressor;
    const int colour_width = (width + 1) / 2;
    const std::vector<std::uint8_t> neutral(static_cast<std::size_t>(colour_width) * height, 128);
    const unsigned char* planes[3] = {grey.data(), neutral.data(), neutral.data()};
    const int strides[3] = {width, colour_width, colour_width};
    unsigned long size = tjBufSize(width, height, TJSAMP_422);
    out.resize(size);
    unsigned char* buffer = out.data();
    if (!compressor.handle ||
        tjCompressFromYUVPlanes(compressor.handle, planes, width, strides, height, TJSAMP_422,
                                &buffer, &size, quality, TJFLAG_NOREALLOC) != 0)
        return {ErrorCode::kInvalidArgument, "the JPEG encoder failed on a picture of " +
                                                 std::to_string(width) + "x" +
                                                 std::to_string(height)};
    out.resize(size);
    return {};
}

SimulatedSequence::SimulatedSequence(Renderer renderer, const SimulatedSequenceOptions& options)
    : renderer_(std::move(renderer)),
      options_(options),
      film_(renderer_.rig()),
      // Robots drive: longer exposures would smear, the gain takes over.
      exposure_(std::min(1e6 / renderer_.rig().fps, 8000.0)) {
    const SimulatedRig& rig = renderer_.rig();
    stream_.codec = options.jpeg ? FrameCodec::kJpeg : FrameCodec::kRaw;
    stream_.pixel_format = options.jpeg ? PixelFormat::kYuyv : PixelFormat::kGrey;
    stream_.width = 2 * rig.width;
    stream_.height = rig.height;
    stream_.nominal_fps = rig.fps;
    camera_ = simulatedCameraInfo(options.model, rig.seed);
    camera_.has_imu = camera_.has_imu && options.has_imu;
    imu_until_ns_ = static_cast<std::int64_t>(std::llround(options.start_s * 1e9));
}

Status SimulatedSequence::next(RawFrame& frame, FrameTruth* truth) {
    const SimulatedRig& rig = renderer_.rig();
    const double t_s = options_.start_s + static_cast<double>(index_) / rig.fps;
    frame.t_ns = static_cast<std::int64_t>(std::llround(t_s * 1e9));
    frame.sequence = index_;

    const double exposure_s = exposure_.setting().exposure_us * 1e-6;
    renderer_.render(t_s, exposure_s, light_);
    if (!settled_ && options_.auto_exposure)
        exposure_.settle(meanLight(light_));
    settled_ = true;
    frame.exposure_us = exposure_.setting().exposure_us;
    film_.expose(light_, exposure_.setting(), index_, frame.data);
    if (truth)
        renderer_.truth(t_s, exposure_s, *truth);
    if (options_.auto_exposure)
        exposure_.update(meanGrey(frame.data, rig.width, rig.height));

    frame.imu.clear();
    if (camera_.has_imu) {
        frame.imu = simulateImu(renderer_.scene(), imu_until_ns_, frame.t_ns + 1);
        imu_until_ns_ = frame.t_ns + 1;
    }
    ++index_;
    if (!options_.jpeg)
        return {};
    std::vector<std::uint8_t> jpeg;
    if (Status s =
            encodeJpeg(frame.data, stream_.width, stream_.height, options_.jpeg_quality, jpeg);
        !s.ok())
        return s;
    frame.data = std::move(jpeg);
    return {};
}

}  // namespace kova::camera
