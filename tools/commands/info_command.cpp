#include "tools/commands/info_command.h"

#include <nlohmann/json.hpp>

#include <cinttypes>
#include <cstdio>
#include <ctime>

#include "camera/recording/recording_reader.h"
#include "camera/sources/stream_format.h"
#include "sdk/modes.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

using nlohmann::json;

std::string text(const char* format, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string utcText(std::int64_t utc_ns) {
    const auto seconds = static_cast<std::time_t>(utc_ns / 1000000000);
    std::tm parts{};
    char buffer[32];
    if (!::gmtime_r(&seconds, &parts) ||
        std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S UTC", &parts) == 0)
        return "unknown";
    return buffer;
}

struct Summary {
    double duration_s = 0;
    double measured_fps = 0;
    std::int64_t dropped = 0;
    std::int64_t imu_samples = 0;
};

Summary summarise(camera::RecordingReader& reader) {
    Summary s;
    const int n = reader.frameCount();
    if (n > 1)
        s.duration_s =
            (static_cast<double>(reader.timeNs(n - 1)) - static_cast<double>(reader.timeNs(0))) *
            1e-9;
    if (s.duration_s > 0)
        s.measured_fps = (n - 1) / s.duration_s;
    for (const camera::DropRecord& drop : reader.drops()) s.dropped += drop.count;
    s.imu_samples = reader.imuSampleCount();
    return s;
}

json eyeJson(const camera::CameraIntrinsics& eye) {
    return {{"fx", eye.fx},
            {"fy", eye.fy},
            {"cx", eye.cx},
            {"cy", eye.cy},
            {"distortion", eye.distortion}};
}

void printJson(camera::RecordingReader& reader) {
    const camera::StreamInfo& stream = reader.stream();
    const camera::CameraInfo& cam = reader.camera();
    const camera::StereoCalibration& c = reader.calibration();
    const Summary s = summarise(reader);
    json out;
    out["file"] = {
        {"path", reader.path()}, {"bytes", reader.fileBytes()}, {"repaired", reader.wasRepaired()}};
    out["format"] = {{"major", reader.formatVersion() / 1000},
                     {"minor", reader.formatVersion() % 1000}};
    out["camera"] = {
        {"model", cam.model},
        {"model_name", bino::camera_model2str(static_cast<bino::CAMERA_MODEL>(cam.model))},
        {"name", cam.name},
        {"serial_number", cam.serial_number},
        {"hardware_version", cam.hardware_version},
        {"has_imu", cam.has_imu}};
    out["stream"] = {{"layout", nameOf(stream.layout)},
                     {"codec", nameOf(stream.codec)},
                     {"pixel_format", nameOf(stream.pixel_format)},
                     {"width", stream.width},
                     {"height", stream.height},
                     {"eye_width", stream.eyeWidth()},
                     {"eye_height", stream.eyeHeight()},
                     {"nominal_fps", stream.nominal_fps},
                     {"swapped", stream.swapped},
                     {"left_flipped", stream.left_flipped},
                     {"right_flipped", stream.right_flipped}};
    out["frames"] = {{"count", reader.frameCount()},
                     {"duration_s", s.duration_s},
                     {"measured_fps", s.measured_fps},
                     {"dropped", s.dropped}};
    if (reader.frameCount() > 0)
        out["frames"]["first_t_ns"] = reader.timeNs(0);
    out["imu"] = {{"samples", s.imu_samples}};
    if (c.width > 0)
        out["calibration"] = {{"width", c.width},         {"height", c.height},
                              {"rectified", c.rectified}, {"baseline_mm", c.baselineMm()},
                              {"left", eyeJson(c.left)},  {"right", eyeJson(c.right)}};
    out["settings"] = json::object();
    for (const auto& [key, value] : reader.settings()) out["settings"][key] = value;
    std::printf("%s\n", out.dump(2, ' ', false, json::error_handler_t::replace).c_str());
}

void row(const char* label, const std::string& value) {
    std::printf("%-12s %s\n", label, value.c_str());
}

void printTable(camera::RecordingReader& reader) {
    const camera::StreamInfo& stream = reader.stream();
    const camera::CameraInfo& cam = reader.camera();
    const camera::StereoCalibration& c = reader.calibration();
    const Summary s = summarise(reader);
    row("File", reader.path() + ", " + sizeText(reader.fileBytes()) +
                    (reader.wasRepaired() ? ", repaired just now" : ""));
    row("Format", std::to_string(reader.formatVersion() / 1000) + "." +
                      std::to_string(reader.formatVersion() % 1000));
    const std::string model = bino::camera_model2str(static_cast<bino::CAMERA_MODEL>(cam.model));
    row("Camera", (cam.name.empty() ? "unnamed" : cam.name) + " (" +
                      (model.empty() ? "model " + std::to_string(cam.model) : model) +
                      ", serial number " + std::to_string(cam.serial_number) +
                      (cam.hardware_version.empty() ? "" : ", hardware " + cam.hardware_version) +
                      ")");
    std::string turned;
    if (stream.swapped)
        turned += ", eyes swapped";
    if (stream.left_flipped)
        turned += ", left eye upside down";
    if (stream.right_flipped)
        turned += ", right eye upside down";
    row("Stream", std::to_string(stream.eyeWidth()) + "x" + std::to_string(stream.eyeHeight()) +
                      " px per eye, " + nameOf(stream.layout) + ", " + nameOf(stream.pixel_format) +
                      ", " + nameOf(stream.codec) + turned);
    row("Frames", std::to_string(reader.frameCount()));
    row("Duration", text("%.3f s", s.duration_s));
    row("Rate", text("%.6g frames/s nominal", stream.nominal_fps) +
                    (s.measured_fps > 0 ? text(", %.2f measured", s.measured_fps) : ""));
    row("Drops", s.dropped > 0 ? std::to_string(s.dropped) + " frames" : "none");
    row("IMU", s.imu_samples > 0 ? std::to_string(s.imu_samples) + " samples" : "none");
    if (c.width > 0) {
        row("Calibration", std::string(c.rectified ? "rectified" : "not rectified") +
                               text(", baseline %.2f mm", c.baselineMm()));
        const auto eye = [](const camera::CameraIntrinsics& e) {
            return text("fx %.2f", e.fx) + text(", fy %.2f", e.fy) + text(", cx %.2f", e.cx) +
                   text(", cy %.2f", e.cy) +
                   (e.distortion.empty() ? "" : text(", k1 %.4f", e.distortion[0]));
        };
        row("  left", eye(c.left));
        row("  right", eye(c.right));
    } else {
        row("Calibration", "none");
    }
    for (const camera::ClockPair& pair : reader.clock()) {
        row("Recorded", utcText(pair.utc_ns));
        break;
    }
    for (const auto& [key, value] : reader.settings()) row("Setting", key + " = " + value);
}

class InfoCommand : public Command {
public:
    std::string name() const override { return "info"; }
    std::string description() const override { return "Say what is in a recording"; }

    void declare(CLI::App& app) override {
        app.add_option("file", file_, "Recording")->required();
        app.add_flag("--json", json_, "For machines");
    }

    int run() override {
        camera::RecordingReaderOptions options;
        options.without_calibration = true;
        const auto reader = camera::RecordingReader::open(file_, options);
        if (!reader.ok())
            return fail(reader.status());
        if (json_)
            printJson(*reader.value());
        else
            printTable(*reader.value());
        return kDone;
    }

private:
    std::string file_;
    bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeInfoCommand() {
    return std::make_unique<InfoCommand>();
}

}  // namespace kova::tools
