#include "camera/recording/recording_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>

#include "camera/base/log.h"
#include "camera/recording/database.h"
#include "camera/recording/frame_encoder.h"
#include "camera/sources/stream_format.h"

namespace kova::camera {

namespace {

using SteadyClock = std::chrono::steady_clock;

// The picture is the last column, so that the others are read without walking through it. Extra
// tables and columns may follow in later minor versions.
constexpr const char* kSchema = R"(
CREATE TABLE streams (
    layout TEXT NOT NULL, codec TEXT NOT NULL, pixel_format TEXT NOT NULL,
    width INTEGER NOT NULL, height INTEGER NOT NULL, nominal_fps REAL NOT NULL,
    swapped INTEGER NOT NULL, flipped INTEGER NOT NULL);
CREATE TABLE frames (
    id INTEGER PRIMARY KEY, t_ns INTEGER NOT NULL, sequence INTEGER NOT NULL,
    exposure_us REAL NOT NULL, crc32 INTEGER NOT NULL, image BLOB NOT NULL);
CREATE UNIQUE INDEX frames_t_ns ON frames (t_ns);
CREATE TABLE imu (
    t_ns INTEGER NOT NULL, ax REAL, ay REAL, az REAL, gx REAL, gy REAL, gz REAL,
    mx REAL, my REAL, mz REAL);
CREATE INDEX imu_t_ns ON imu (t_ns);
CREATE TABLE drops (t_ns INTEGER NOT NULL, count INTEGER NOT NULL, cause TEXT NOT NULL);
CREATE TABLE camera (
    model INTEGER NOT NULL, name TEXT NOT NULL, serial_number INTEGER NOT NULL,
    hardware_version TEXT NOT NULL, has_imu INTEGER NOT NULL);
CREATE TABLE calibration (yaml TEXT NOT NULL);
CREATE TABLE clock (utc_ns INTEGER NOT NULL, t_ns INTEGER NOT NULL);
CREATE TABLE settings (key TEXT PRIMARY KEY, value TEXT NOT NULL);
)";

Status failed(const std::string& path, const std::string& what) {
    return {ErrorCode::kWriteFailed, "cannot write " + path + ": " + what};
}

/// Makes the file empty and new, so that an existing one is never touched unasked.
Status makeFile(const std::string& path, bool overwrite) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return failed(path, "it is a folder; give the name of a file");
        if (!overwrite)
            return failed(path, "it exists already; choose another name or allow overwriting");
        if (!S_ISREG(info.st_mode))
            return failed(path, "it is not an ordinary file");
        if (::unlink(path.c_str()) != 0)
            return failed(path,
                          std::string("the old file cannot be removed: ") + std::strerror(errno));
    }
    // A journal left beside a recording that was deleted would be taken for this one's.
    for (const char* suffix : {"-journal", "-wal", "-shm"}) ::unlink((path + suffix).c_str());
    const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (file < 0)
        return failed(path, std::string(std::strerror(errno)) +
                                (errno == ENOENT ? "; does its folder exist?" : ""));
    ::close(file);
    return {};
}

}  // namespace

const char* nameOf(DropCause cause) {
    switch (cause) {
        case DropCause::kCamera:
            return "camera";
        case DropCause::kRecorder:
            return "recorder";
        case DropCause::kDamaged:
            return "damaged";
    }
    return "unknown";
}

struct RecordingWriter::Impl {
    std::string path;
    StreamInfo stream;
    FrameEncoder encoder;
    std::chrono::milliseconds commit_interval{0};

    Database database;
    Statement insert_frame, insert_imu, insert_drops;
    bool in_transaction = false;
    bool finished = false;
    SteadyClock::time_point transaction_began;
    Status failure;

    std::int64_t frames = 0;
    std::int64_t committed_frames = 0;
    std::int64_t bytes = 0;
    std::int64_t last_t_ns = std::numeric_limits<std::int64_t>::min();

    /// Gives up the open transaction; the recording ends with the commit before.
    Status fail() {
        const int code = database.errorCode();
        const bool full = code == SQLITE_FULL || code == SQLITE_IOERR;
        const std::string reason = database.error();
        insert_frame.reset();
        insert_imu.reset();
        insert_drops.reset();
        if (in_transaction)
            database.run("ROLLBACK");
        in_transaction = false;
        failure =
            failed(path, reason +
                             (full ? "; free some space on the disk or record to "
                                     "another one. The "
                                   : "; the ") +
                             std::to_string(committed_frames) + " frames written before are safe");
        logError("recording", failure.message());
        return failure;
    }

    Status begin() {
        if (!failure.ok())
            return failure;
        if (finished)
            return failed(path, "the recording was finished already");
        if (in_transaction)
            return {};
        if (database.run("BEGIN IMMEDIATE") != SQLITE_OK)
            return fail();
        in_transaction = true;
        transaction_began = SteadyClock::now();
        return {};
    }

    Status commit() {
        if (!failure.ok())
            return failure;
        if (!in_transaction)
            return {};
        if (database.run("COMMIT") != SQLITE_OK)
            return fail();
        in_transaction = false;
        committed_frames = frames;
        return {};
    }

    Status commitWhenDue() {
        if (SteadyClock::now() - transaction_began < commit_interval)
            return {};
        return commit();
    }

    bool step(Statement& statement) {
        const bool done = statement.step() == SQLITE_DONE;
        if (done)
            statement.reset();
        return done;
    }

    bool insertImu(const std::vector<ImuSample>& samples) {
        for (const ImuSample& sample : samples) {
            insert_imu.bind(0, sample.t_ns);
            for (int i = 0; i < 3; ++i) {
                insert_imu.bind(1 + i, double{sample.accel[i]});
                insert_imu.bind(4 + i, double{sample.gyro[i]});
                insert_imu.bind(7 + i, double{sample.magnet[i]});
            }
            if (!step(insert_imu))
                return false;
        }
        return true;
    }

    bool describe(const CameraInfo& camera, const StereoCalibration& calibration,
                  const RecordingOptions& options) {
        sqlite3* const db = database.handle();
        Statement s;
        bool ok = s.prepare(db, "INSERT INTO streams VALUES (?, ?, ?, ?, ?, ?, ?, ?)") == SQLITE_OK;
        if (!ok)
            return false;
        s.bind(0, std::string(nameOf(stream.layout)));
        s.bind(1, std::string(nameOf(encoder.storedCodec())));
        s.bind(2, std::string(nameOf(stream.pixel_format)));
        s.bind(3, stream.width);
        s.bind(4, stream.height);
        s.bind(5, stream.nominal_fps);
        s.bind(6, int{stream.swapped});
        s.bind(7, (stream.left_flipped ? 1 : 0) | (stream.right_flipped ? 2 : 0));
        if (!step(s) || s.prepare(db, "INSERT INTO camera VALUES (?, ?, ?, ?, ?)") != SQLITE_OK)
            return false;
        s.bind(0, camera.model);
        s.bind(1, camera.name);
        s.bind(2, static_cast<std::int64_t>(camera.serial_number));
        s.bind(3, camera.hardware_version);
        s.bind(4, int{camera.has_imu});
        if (!step(s))
            return false;
        if (calibration.width > 0) {
            if (s.prepare(db, "INSERT INTO calibration VALUES (?)") != SQLITE_OK)
                return false;
            s.bind(0, toYaml(calibration));
            if (!step(s))
                return false;
        }
        if (options.clock_utc_ns != 0) {
            if (s.prepare(db, "INSERT INTO clock VALUES (?, ?)") != SQLITE_OK)
                return false;
            s.bind(0, options.clock_utc_ns);
            s.bind(1, options.clock_t_ns);
            if (!step(s))
                return false;
        }
        if (s.prepare(db, "INSERT OR REPLACE INTO settings VALUES (?, ?)") != SQLITE_OK)
            return false;
        for (const auto& [key, value] : options.settings) {
            s.bind(0, key);
            s.bind(1, value);
            if (!step(s))
                return false;
        }
        return true;
    }

    Status open(const CameraInfo& camera, const StereoCalibration& calibration,
                const RecordingOptions& options) {
        const std::string pragmas =
            "PRAGMA page_size=16384; PRAGMA locking_mode=EXCLUSIVE;"
            "PRAGMA journal_mode=TRUNCATE; PRAGMA synchronous=FULL; PRAGMA trusted_schema=OFF;"
            "PRAGMA application_id=" +
            std::to_string(kRecordingApplicationId) +
            "; PRAGMA user_version=" + std::to_string(kRecordingVersion) + ";";
        if (database.open(path, SQLITE_OPEN_READWRITE) != SQLITE_OK)
            return fail();
        if (database.run(pragmas.c_str()) != SQLITE_OK)
            return fail();
        if (Status s = begin(); !s.ok())
            return s;
        sqlite3* const db = database.handle();
        if (database.run(kSchema) != SQLITE_OK || !describe(camera, calibration, options) ||
            insert_frame.prepare(db, "INSERT INTO frames VALUES (?, ?, ?, ?, ?, ?)") != SQLITE_OK ||
            insert_imu.prepare(db, "INSERT INTO imu VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)") !=
                SQLITE_OK ||
            insert_drops.prepare(db, "INSERT INTO drops VALUES (?, ?, ?)") != SQLITE_OK)
            return fail();
        return commit();
    }
};

RecordingWriter::RecordingWriter() : impl_(std::make_unique<Impl>()) {}

RecordingWriter::~RecordingWriter() {
    (void)finish();
}

Result<std::unique_ptr<RecordingWriter>> RecordingWriter::create(
    const std::string& path, const StreamInfo& stream, const CameraInfo& camera,
    const StereoCalibration& calibration, const RecordingOptions& options) {
    if (Status s = checkStream(stream); !s.ok())
        return s;
    std::unique_ptr<RecordingWriter> writer(new RecordingWriter);
    Impl& d = *writer->impl_;
    std::error_code error;
    d.path = std::filesystem::absolute(path, error).string();
    if (error || path.empty())
        return failed(path, "it is not a path");
    d.stream = stream;
    d.commit_interval = options.commit_interval;
    if (Status s = d.encoder.configure(stream, options.compression, options.zstd_level); !s.ok())
        return s;
    if (Status s = makeFile(d.path, options.overwrite); !s.ok())
        return s;
    if (Status s = d.open(camera, calibration, options); !s.ok()) {
        (void)writer->finish();
        ::unlink(d.path.c_str());  // made just now, nothing is in it
        ::unlink((d.path + "-journal").c_str());
        return s;
    }
    return writer;
}

Status RecordingWriter::write(const RawFrame& frame) {
    Impl& d = *impl_;
    if (!d.failure.ok())
        return d.failure;
    if (frame.t_ns <= d.last_t_ns)
        return {ErrorCode::kInvalidArgument,
                "frame " + std::to_string(frame.sequence) +
                    " is not later than the frame before; it was not recorded"};
    const std::vector<std::uint8_t>* image = nullptr;
    if (Status s = d.encoder.encode(frame.data, image); !s.ok())
        return s;
    if (Status s = d.begin(); !s.ok())
        return s;
    d.insert_frame.bind(0, d.frames);
    d.insert_frame.bind(1, frame.t_ns);
    d.insert_frame.bind(2, frame.sequence);
    d.insert_frame.bind(3, frame.exposure_us);
    d.insert_frame.bind(4, static_cast<std::int64_t>(::crc32_z(0, image->data(), image->size())));
    d.insert_frame.bindBlob(5, image->data(), image->size());
    if (!d.step(d.insert_frame) || !d.insertImu(frame.imu))
        return d.fail();
    d.last_t_ns = frame.t_ns;
    d.bytes += static_cast<std::int64_t>(image->size());
    ++d.frames;
    return d.commitWhenDue();
}

Status RecordingWriter::writeImu(const std::vector<ImuSample>& samples) {
    if (Status s = impl_->begin(); !s.ok())
        return s;
    if (!impl_->insertImu(samples))
        return impl_->fail();
    return impl_->commitWhenDue();
}

Status RecordingWriter::addDrops(std::int64_t t_ns, std::int64_t count, DropCause cause) {
    if (count <= 0)
        return {};
    Impl& d = *impl_;
    if (Status s = d.begin(); !s.ok())
        return s;
    d.insert_drops.bind(0, t_ns);
    d.insert_drops.bind(1, count);
    d.insert_drops.bind(2, std::string(nameOf(cause)));
    if (!d.step(d.insert_drops))
        return d.fail();
    return d.commitWhenDue();
}

Status RecordingWriter::flush() {
    return impl_->commit();
}

Status RecordingWriter::finish() {
    Impl& d = *impl_;
    if (d.finished)
        return d.failure;
    const Status status = d.commit();
    d.finished = true;
    d.insert_frame.finalise();
    d.insert_imu.finalise();
    d.insert_drops.finalise();
    if (d.database.handle() && status.ok()) {
        // A journal of length zero is no longer needed beside a file that was closed in order.
        d.database.run("PRAGMA journal_mode=DELETE");
    }
    d.database.close();
    return status;
}

std::int64_t RecordingWriter::frames() const {
    return impl_->frames;
}
std::int64_t RecordingWriter::committedFrames() const {
    return impl_->committed_frames;
}
std::int64_t RecordingWriter::bytes() const {
    return impl_->bytes;
}

}  // namespace kova::camera
