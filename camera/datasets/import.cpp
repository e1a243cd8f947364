#include "camera/datasets/import.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <limits>

#include "camera/base/log.h"
#include "camera/sources/stream_format.h"
#include "sdk/modes.h"

namespace kova::camera {

namespace {

/// A picture with 8 bits, in colour (red first) or grey; empty when it cannot be read.
cv::Mat readPicture(const std::filesystem::path& path, bool colour) {
    cv::Mat picture;
    try {
        picture = cv::imread(path.string(), colour ? cv::IMREAD_COLOR : cv::IMREAD_GRAYSCALE);
        if (colour && !picture.empty())
            cv::cvtColor(picture, picture, cv::COLOR_BGR2RGB);
    } catch (const std::exception& e) {
        logWarning("datasets", path.string() + ": " + e.what());
        return {};
    }
    return picture;
}

bool hasColour(const std::filesystem::path& path) {
    try {
        return cv::imread(path.string(), cv::IMREAD_UNCHANGED).channels() >= 3;
    } catch (const std::exception&) {
        return false;
    }
}

CameraInfo cameraOf(const StereoSequence& sequence) {
    CameraInfo camera;
    camera.has_imu = !sequence.imu.empty();
    camera.model = camera.has_imu ? bino::CAMERA_MODEL_QUELVAR_P0 : bino::CAMERA_MODEL_QUELVAR_R0;
    camera.name = "imported from " + sequence.name;
    return camera;
}

}  // namespace

Result<ImportReport> importSequence(const StereoSequence& sequence, const std::string& path,
                                    const RecordingOptions& options,
                                    const std::function<bool(int done, int all)>& progress) {
    const bool colour = hasColour(sequence.pairs.at(0).left);
    StreamInfo stream;
    stream.layout = FrameLayout::kSideBySide;
    stream.pixel_format = colour ? PixelFormat::kRgb : PixelFormat::kGrey;
    stream.width = 2 * sequence.width;
    stream.height = sequence.height;
    stream.nominal_fps = sequence.fps;

    RecordingOptions with_origin = options;
    with_origin.settings.emplace_back("import.layout", nameOf(sequence.layout));
    with_origin.settings.emplace_back("import.name", sequence.name);
    auto writer = RecordingWriter::create(path, stream, cameraOf(sequence), sequence.calibration,
                                          with_origin);
    if (!writer.ok())
        return writer.status();

    ImportReport report;
    RawFrame frame;
    cv::Mat both(sequence.height, stream.width, colour ? CV_8UC3 : CV_8UC1);
    const cv::Rect left_half(0, 0, sequence.width, sequence.height);
    const cv::Rect right_half(sequence.width, 0, sequence.width, sequence.height);
    const int all = static_cast<int>(sequence.pairs.size());
    auto imu = sequence.imu.begin();
    for (int i = 0; i < all; ++i) {
        const StereoSequence::Pair& pair = sequence.pairs[static_cast<std::size_t>(i)];
        const cv::Mat left = readPicture(pair.left, colour);
        const cv::Mat right = readPicture(pair.right, colour);
        if (left.size() != left_half.size() || right.size() != left_half.size()) {
            logWarning("datasets", pair.left.string() +
                                       ": left out, it or its partner cannot be read or has "
                                       "another size than the first pair (" +
                                       std::to_string(sequence.width) + "x" +
                                       std::to_string(sequence.height) + ")");
            ++report.skipped;
        } else {
            left.copyTo(both(left_half));
            right.copyTo(both(right_half));
            frame.t_ns = pair.t_ns;
            frame.sequence = i;
            frame.data.assign(both.datastart, both.dataend);
            frame.imu.clear();
            while (imu != sequence.imu.end() && imu->t_ns <= pair.t_ns) frame.imu.push_back(*imu++);
            if (Status s = writer.value()->write(frame); !s.ok())
                return s;
            ++report.written;
        }
        if (progress && !progress(i + 1, all))
            return Status(ErrorCode::kInvalidArgument, "stopped; " + path + " holds the first " +
                                                           std::to_string(report.written) +
                                                           " pairs");
    }
    if (Status s = writer.value()->finish(); !s.ok())
        return s;
    report.bytes = writer.value()->bytes();
    if (report.written == 0)
        return Status(ErrorCode::kInvalidFile, sequence.name + ": not one pair could be read");
    return report;
}

}  // namespace kova::camera
