#include "examples/imu_recording.h"

#include <sqlite3.h>

#include <filesystem>
#include <memory>

namespace kova::examples {
namespace {

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct FinishStatement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

Size3_<float> vectorAt(sqlite3_stmt* statement, int column) {
    return {static_cast<float>(sqlite3_column_double(statement, column)),
            static_cast<float>(sqlite3_column_double(statement, column + 1)),
            static_cast<float>(sqlite3_column_double(statement, column + 2))};
}

}  // namespace

ImuRecording readImuRecording(const std::string& path) {
    ImuRecording recording;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        recording.error = path + ": there is no such file; give the path of a .kova recording";
        return recording;
    }

    sqlite3* opened = nullptr;
    const int open_result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    const std::unique_ptr<sqlite3, CloseDatabase> database(opened);
    if (open_result != SQLITE_OK) {
        recording.error = path + ": cannot be opened (" + sqlite3_errmsg(opened) +
                          "); check that you may read it";
        return recording;
    }

    sqlite3_stmt* prepared = nullptr;
    const int prepare_result = sqlite3_prepare_v2(
        opened, "SELECT t_ns, ax, ay, az, gx, gy, gz, mx, my, mz FROM imu ORDER BY t_ns", -1,
        &prepared, nullptr);
    const std::unique_ptr<sqlite3_stmt, FinishStatement> statement(prepared);
    if (prepare_result != SQLITE_OK) {
        recording.error = path + ": is no .kova recording (" + sqlite3_errmsg(opened) + ")";
        return recording;
    }

    int step = sqlite3_step(prepared);
    for (; step == SQLITE_ROW; step = sqlite3_step(prepared)) {
        imu::IMUData sample;
        sample.t_ns = sqlite3_column_int64(prepared, 0);
        sample.accel = vectorAt(prepared, 1);
        sample.gyro = vectorAt(prepared, 4);
        sample.magnet = vectorAt(prepared, 7);
        recording.samples.push_back(sample);
    }
    if (step != SQLITE_DONE) {
        recording.error = path + ": is damaged (" + sqlite3_errmsg(opened) + ")";
        recording.samples.clear();
    } else if (recording.samples.empty()) {
        recording.error = path +
                          ": holds no inertial samples; record it from a camera that has an "
                          "inertial unit, with the unit switched on";
    }
    return recording;
}

}  // namespace kova::examples
