#include "camera/recording/recording_reader.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include "camera/base/log.h"
#include "camera/recording/database.h"
#include "camera/recording/recording_checks.h"
#include "camera/sources/stream_format.h"

namespace kova::camera {

struct RecordingReader::Impl {
    struct FrameEntry {
        std::int64_t id = 0;
        std::int64_t t_ns = 0;
    };

    std::string path;
    bool repaired = false;
    std::int64_t file_bytes = 0;
    int version = 0;
    StreamInfo stream;
    CameraInfo camera;
    StereoCalibration calibration;
    std::vector<FrameEntry> entries;
    std::int64_t damaged = 0;

    Database database;
    Statement select_frame, select_imu;

    Status invalid(const std::string& what) const { return invalidRecording(path, what); }

    Status readStream() {
        Statement s;
        if (s.prepare(database.handle(),
                      "SELECT layout, codec, pixel_format, width, height, nominal_fps, swapped, "
                      "flipped FROM streams LIMIT 2") != SQLITE_OK)
            return invalid(database.error());
        if (s.step() != SQLITE_ROW)
            return invalid("it does not say what its pictures are (table streams is empty)");
        const auto layout = frameLayoutFromName(s.text(0));
        const auto codec = frameCodecFromName(s.text(1));
        const auto format = pixelFormatFromName(s.text(2));
        if (!layout || !codec || !format)
            return invalid("its pictures are of an unknown kind ('" + s.text(0) + "', '" +
                           s.text(1) + "', '" + s.text(2) + "')");
        const auto side = [](std::int64_t v) {
            return static_cast<int>(std::clamp<std::int64_t>(v, -1, kMaxPictureSide + 1));
        };
        const std::int64_t flipped = s.integer(7);
        stream = {*layout,
                  *codec,
                  *format,
                  side(s.integer(3)),
                  side(s.integer(4)),
                  s.real(5),
                  s.integer(6) != 0,
                  (flipped & 1) != 0,
                  (flipped & 2) != 0};
        if (Status status = checkStream(stream); !status.ok())
            return invalid(status.message());
        if (s.step() == SQLITE_ROW)
            return invalid("it holds more than one stream");
        return {};
    }

    void readCamera() {
        Statement s;
        if (s.prepare(database.handle(),
                      "SELECT model, name, serial_number, hardware_version, has_imu FROM camera "
                      "LIMIT 1") != SQLITE_OK ||
            s.step() != SQLITE_ROW) {
            logWarning("recording", path + ": it does not say which camera it is from");
            return;
        }
        camera.model = static_cast<std::int32_t>(s.integer(0));
        camera.name = s.text(1);
        camera.serial_number = static_cast<std::uint32_t>(s.integer(2));
        camera.hardware_version = s.text(3);
        camera.has_imu = s.integer(4) != 0;
    }

    Status readCalibration(bool may_be_missing) {
        Statement s;
        std::string yaml;
        if (s.prepare(database.handle(), "SELECT yaml FROM calibration LIMIT 1") == SQLITE_OK &&
            s.step() == SQLITE_ROW)
            yaml = s.text(0);
        if (yaml.empty())
            return may_be_missing ? Status() : invalid("it is without calibration");
        auto read = calibrationFromYaml(yaml);
        if (!read.ok())
            return invalid(read.status().message());
        if (read.value().width != stream.eyeWidth() || read.value().height != stream.eyeHeight())
            return invalid("its calibration is for " + std::to_string(read.value().width) + "x" +
                           std::to_string(read.value().height) + " px, its pictures have " +
                           std::to_string(stream.eyeWidth()) + "x" +
                           std::to_string(stream.eyeHeight()));
        calibration = std::move(read.value());
        return {};
    }

    Status listFrames(bool may_be_empty) {
        // The index on time holds all that is asked for: the pictures are not walked through.
        Statement s;
        if (s.prepare(database.handle(), "SELECT id, t_ns FROM frames ORDER BY t_ns") != SQLITE_OK)
            return invalid(database.error());
        int code = SQLITE_OK;
        while ((code = s.step()) == SQLITE_ROW) {
            if (s.type(1) != SQLITE_INTEGER)
                return invalid("frame " + std::to_string(s.integer(0)) + " has no time stamp");
            entries.push_back({s.integer(0), s.integer(1)});
            if (entries.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max()))
                return invalid("it has too many frames");
        }
        if (code != SQLITE_DONE)
            return invalid(database.error());
        if (entries.empty())
            return may_be_empty ? Status() : invalid("it has no frames");
        const auto by_id = [](const FrameEntry& a, const FrameEntry& b) { return a.id < b.id; };
        if (!std::is_sorted(entries.begin(), entries.end(), by_id)) {
            logWarning("recording", path + ": its frames are not in the order of their times");
            std::stable_sort(entries.begin(), entries.end(), by_id);
        }
        if (entries.front().id != 0 ||
            entries.back().id != static_cast<std::int64_t>(entries.size()) - 1)
            logWarning("recording", path + ": the numbers of its frames have gaps");
        return {};
    }

    Status open(const RecordingReaderOptions& options) {
        if (Status s = openRecordingDatabase(path, database, repaired); !s.ok())
            return s;
        if (Status s = checkRecordingDatabase(path, database, version); !s.ok())
            return s;
        struct stat info {};
        if (::stat(path.c_str(), &info) == 0)
            file_bytes = info.st_size;
        if (Status s = readStream(); !s.ok())
            return s;
        readCamera();
        if (Status s = readCalibration(options.without_calibration); !s.ok())
            return s;
        if (Status s = listFrames(options.without_frames); !s.ok())
            return s;
        sqlite3* const db = database.handle();
        if (select_frame.prepare(db,
                                 "SELECT t_ns, sequence, exposure_us, crc32, image FROM frames "
                                 "WHERE id = ?") != SQLITE_OK ||
            select_imu.prepare(db,
                               "SELECT t_ns, ax, ay, az, gx, gy, gz, mx, my, mz FROM imu "
                               "WHERE t_ns > ? AND t_ns <= ? ORDER BY t_ns LIMIT ?") != SQLITE_OK)
            return invalid(database.error());
        return {};
    }

    Status skip(int index, const std::string& what) {
        if (damaged++ == 0)
            logWarning("recording", path + ": frame " + std::to_string(index) + ": " + what +
                                        "; further ones are only counted");
        return {ErrorCode::kNoNewFrame,
                "frame " + std::to_string(index) + " of " + path + " is damaged: " + what};
    }

    Status readImage(int index, RawFrame& frame) {
        select_frame.reset();
        select_frame.bind(0, entries[static_cast<std::size_t>(index)].id);
        const int code = select_frame.step();
        if (code != SQLITE_ROW)
            return skip(index, code == SQLITE_DONE ? "it is not there" : database.error());
        if (select_frame.type(4) != SQLITE_BLOB || select_frame.bytes(4) <= 0 ||
            select_frame.bytes(4) > kMaxFrameBytes)
            return skip(index, "its picture has an impossible size");
        const std::uint8_t* image = select_frame.blob(4);
        const auto bytes = static_cast<std::size_t>(select_frame.bytes(4));
        if (!image)
            return skip(index, database.error());
        if (static_cast<std::int64_t>(::crc32_z(0, image, bytes)) != select_frame.integer(3))
            return skip(index, "wrong checksum");
        frame.t_ns = select_frame.integer(0);
        frame.sequence = select_frame.integer(1);
        const double exposure_us = select_frame.real(2);
        frame.exposure_us = std::isfinite(exposure_us) && exposure_us > 0 ? exposure_us : 0;
        frame.data.assign(image, image + bytes);
        return {};
    }
};

RecordingReader::RecordingReader() : impl_(std::make_unique<Impl>()) {}

RecordingReader::~RecordingReader() = default;

Result<std::unique_ptr<RecordingReader>> RecordingReader::open(
    const std::string& path, const RecordingReaderOptions& options) {
    std::unique_ptr<RecordingReader> reader(new RecordingReader);
    std::error_code error;
    reader->impl_->path = path;
    if (!path.empty()) {
        const std::string absolute = std::filesystem::absolute(path, error).string();
        if (!error)
            reader->impl_->path = absolute;
    }
    if (Status s = reader->impl_->open(options); !s.ok())
        return s;
    return reader;
}

const std::string& RecordingReader::path() const {
    return impl_->path;
}
int RecordingReader::formatVersion() const {
    return impl_->version;
}
std::int64_t RecordingReader::fileBytes() const {
    return impl_->file_bytes;
}
bool RecordingReader::wasRepaired() const {
    return impl_->repaired;
}
const StreamInfo& RecordingReader::stream() const {
    return impl_->stream;
}
const CameraInfo& RecordingReader::camera() const {
    return impl_->camera;
}
const StereoCalibration& RecordingReader::calibration() const {
    return impl_->calibration;
}

int RecordingReader::frameCount() const {
    return static_cast<int>(impl_->entries.size());
}

std::int64_t RecordingReader::timeNs(int index) const {
    return impl_->entries[static_cast<std::size_t>(index)].t_ns;
}

std::int64_t RecordingReader::damagedFrames() const {
    return impl_->damaged;
}

Status RecordingReader::read(int index, RawFrame& frame) {
    if (index < 0 || index >= frameCount())
        return {ErrorCode::kInvalidArgument, "there is no frame " + std::to_string(index) + " in " +
                                                 std::to_string(frameCount())};
    const Status status = impl_->readImage(index, frame);
    impl_->select_frame.reset();
    if (!status.ok())
        return status;
    frame.imu = imuBetween(index > 0 ? timeNs(index - 1) : std::numeric_limits<std::int64_t>::min(),
                           timeNs(index));
    return {};
}

std::vector<ImuSample> RecordingReader::imuBetween(std::int64_t from_ns, std::int64_t to_ns,
                                                   std::size_t limit) {
    Statement& s = impl_->select_imu;
    s.reset();
    s.bind(0, from_ns);
    s.bind(1, to_ns);
    s.bind(2, static_cast<std::int64_t>(limit));
    std::vector<ImuSample> samples;
    while (s.step() == SQLITE_ROW) {
        ImuSample sample;
        sample.t_ns = s.integer(0);
        bool finite = s.type(0) == SQLITE_INTEGER;
        for (int i = 0; i < 3; ++i) {
            sample.accel[i] = static_cast<float>(s.real(1 + i));
            sample.gyro[i] = static_cast<float>(s.real(4 + i));
            sample.magnet[i] = static_cast<float>(s.real(7 + i));
            finite = finite && std::isfinite(sample.accel[i]) && std::isfinite(sample.gyro[i]) &&
                     std::isfinite(sample.magnet[i]);
        }
        if (finite)
            samples.push_back(sample);
    }
    s.reset();
    return samples;
}

std::int64_t RecordingReader::imuSampleCount() {
    return impl_->database.number("SELECT count(*) FROM imu", 0);
}

std::vector<DropRecord> RecordingReader::drops() {
    std::vector<DropRecord> drops;
    Statement s;
    if (s.prepare(impl_->database.handle(),
                  "SELECT t_ns, count, cause FROM drops ORDER BY t_ns LIMIT 1000000") == SQLITE_OK)
        while (s.step() == SQLITE_ROW) drops.push_back({s.integer(0), s.integer(1), s.text(2)});
    return drops;
}

std::vector<ClockPair> RecordingReader::clock() {
    std::vector<ClockPair> clock;
    Statement s;
    if (s.prepare(impl_->database.handle(),
                  "SELECT utc_ns, t_ns FROM clock ORDER BY t_ns LIMIT 100000") == SQLITE_OK)
        while (s.step() == SQLITE_ROW) clock.push_back({s.integer(0), s.integer(1)});
    return clock;
}

std::vector<std::pair<std::string, std::string>> RecordingReader::settings() {
    std::vector<std::pair<std::string, std::string>> settings;
    Statement s;
    if (s.prepare(impl_->database.handle(),
                  "SELECT key, value FROM settings ORDER BY key LIMIT 10000") == SQLITE_OK)
        while (s.step() == SQLITE_ROW) settings.emplace_back(s.text(0), s.text(1));
    return settings;
}

}  // namespace kova::camera
