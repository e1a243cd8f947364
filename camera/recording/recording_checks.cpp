#include "camera/recording/recording_checks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "camera/base/log.h"
#include "camera/recording/format.h"

namespace kova::camera {

namespace {

Status cannotOpen(const std::string& path, const std::string& what) {
    return {ErrorCode::kCannotOpenFile, "cannot open " + path + ": " + what};
}

/// First bytes of a file, as many as there are.
std::vector<std::uint8_t> headOf(const std::string& path, std::size_t bytes) {
    std::vector<std::uint8_t> head(bytes);
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {};
    const ssize_t n = ::read(file, head.data(), head.size());
    ::close(file);
    head.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return head;
}

/// A journal that was not emptied by a commit. Its first bytes tell; the journal of a recorder that
/// still runs looks the same, but there the locks do not let us in.
bool hasHotJournal(const std::string& path) {
    static constexpr std::uint8_t kMagic[8] = {0xd9, 0xd5, 0x05, 0xf9, 0x20, 0xa1, 0x63, 0xd7};
    const std::vector<std::uint8_t> head = headOf(path + "-journal", sizeof kMagic);
    return head.size() == sizeof kMagic && std::memcmp(head.data(), kMagic, sizeof kMagic) == 0;
}

/// What is wrong with a file that SQLite refuses.
std::string diagnose(const std::string& path, const std::string& reason) {
    const std::vector<std::uint8_t> head = headOf(path, 100);
    if (head.empty())
        return "it is empty";
    if (head.size() < 16 || std::memcmp(head.data(), "SQLite format 3", 16) != 0)
        return "it is another kind of file (it does not begin as an SQLite database)";
    if (head.size() < 100)
        return "its end is missing (" + std::to_string(head.size()) + " bytes)";
    const std::uint64_t page = head[16] == 0 && head[17] == 1 ? 65536 : head[16] << 8 | head[17];
    const std::uint64_t pages = std::uint64_t{head[28]} << 24 | std::uint64_t{head[29]} << 16 |
                                std::uint64_t{head[30]} << 8 | head[31];
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && static_cast<std::uint64_t>(info.st_size) < page * pages)
        return "its end is missing (" + std::to_string(info.st_size) + " of " +
               std::to_string(page * pages) + " bytes)";
    return "it is damaged (" + reason + ")";
}

Status checkPath(const std::string& path) {
    struct stat info {};
    if (path.empty() || ::stat(path.c_str(), &info) != 0)
        return cannotOpen(path, path.empty() ? "no file was named" : std::strerror(errno));
    if (S_ISDIR(info.st_mode))
        return cannotOpen(path, "it is a folder; choose a .kova file");
    if (!S_ISREG(info.st_mode))
        return cannotOpen(path, "it is not an ordinary file");
    if (::access(path.c_str(), R_OK) != 0)
        return cannotOpen(path, std::strerror(errno));
    if (info.st_size == 0 && !hasHotJournal(path))
        return invalidRecording(path, "it is empty");
    return {};
}

/// Puts an error of SQLite at opening into our terms.
Status refusedAtOpen(const std::string& path, Database& database) {
    switch (database.errorCode() & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return cannotOpen(path, "it is being recorded right now; stop the recording first");
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_READONLY:
        case SQLITE_IOERR:
            return cannotOpen(path, database.error());
        default:
            return invalidRecording(path, diagnose(path, database.error()));
    }
}

Status rollBack(const std::string& path) {
    const std::vector<std::uint8_t> head = headOf(path, 16);
    if (!head.empty() && (head.size() < 16 || std::memcmp(head.data(), "SQLite format 3", 16) != 0))
        return invalidRecording(path, diagnose(path, ""));
    if (::access(path.c_str(), W_OK) != 0)
        return cannotOpen(path,
                          "its recorder was killed and it must be repaired first, but it cannot be "
                          "written; copy it and its -journal to a folder where it can");
    Database database;
    if (database.open(path, SQLITE_OPEN_READWRITE) != SQLITE_OK ||
        database.run("PRAGMA schema_version") != SQLITE_OK)
        return refusedAtOpen(path, database);
    logWarning("recording",
               path +
                   ": its recorder did not close it; it was repaired, everything up to the last "
                   "commit is there");
    return {};
}

/// A table and the columns that are read from it, separated by spaces.
struct TableColumns {
    const char* table;
    const char* columns;
};
constexpr std::array<TableColumns, 4> kNeeded = {{
    {"streams", "layout codec pixel_format width height nominal_fps swapped flipped"},
    {"frames", "id t_ns sequence exposure_us crc32 image"},
    {"imu", "t_ns ax ay az gx gy gz mx my mz"},
    {"calibration", "yaml"},
}};
constexpr std::array<TableColumns, 4> kOptional = {{
    {"camera", "model name serial_number hardware_version has_imu"},
    {"drops", "t_ns count cause"},
    {"clock", "utc_ns t_ns"},
    {"settings", "key value"},
}};

Status checkTable(const std::string& path, Database& database, const TableColumns& needed,
                  bool optional) {
    const std::string name = needed.table;
    Statement s;
    if (s.prepare(database.handle(),
                  "SELECT type, rootpage FROM sqlite_master WHERE lower(name) = ?") != SQLITE_OK)
        return invalidRecording(path, diagnose(path, database.error()));
    s.bind(0, name);
    const int code = s.step();
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        return invalidRecording(path, diagnose(path, database.error()));
    if (code == SQLITE_DONE)
        return optional ? Status() : invalidRecording(path, "table " + name + " is missing");
    if (s.text(0) != "table" || s.integer(1) <= 0)
        return invalidRecording(path, name + " is not a plain table");

    std::string plain_columns = " ";
    Statement columns;
    if (columns.prepare(database.handle(), "SELECT name, hidden FROM pragma_table_xinfo(?)") !=
        SQLITE_OK)
        return invalidRecording(path, database.error());
    columns.bind(0, name);
    while (columns.step() == SQLITE_ROW)
        if (columns.integer(1) == 0)
            plain_columns += columns.text(0) + " ";
    std::string wanted = needed.columns;
    for (std::size_t at = 0; at < wanted.size();) {
        const std::size_t end = std::min(wanted.find(' ', at), wanted.size());
        const std::string column = wanted.substr(at, end - at);
        if (plain_columns.find(" " + column + " ") == std::string::npos)
            return invalidRecording(path, "table " + name + " has no plain column " + column);
        at = end + 1;
    }
    return {};
}

}  // namespace

Status invalidRecording(const std::string& path, const std::string& what) {
    return {ErrorCode::kInvalidFile, path + " is not a valid recording: " + what};
}

Status openRecordingDatabase(const std::string& path, Database& database, bool& repaired) {
    repaired = false;
    if (Status s = checkPath(path); !s.ok())
        return s;
    if (hasHotJournal(path)) {
        if (Status s = rollBack(path); !s.ok())
            return s;
        repaired = true;
    }
    if (database.open(path, SQLITE_OPEN_READONLY) != SQLITE_OK)
        return refusedAtOpen(path, database);
    sqlite3* const db = database.handle();
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, kMaxFrameBytes + 1024);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    // Reading through a memory map would crash where the file shrinks meanwhile.
    if (database.run("PRAGMA mmap_size=0; PRAGMA cell_size_check=ON; PRAGMA query_only=ON;"
                     "SELECT count(*) FROM sqlite_master;") != SQLITE_OK)
        return refusedAtOpen(path, database);
    return {};
}

Status checkRecordingDatabase(const std::string& path, Database& database, int& version) {
    if (database.number("PRAGMA application_id", 0) != kRecordingApplicationId)
        return invalidRecording(path, "it is a database of another program");
    version = static_cast<int>(database.number("PRAGMA user_version", 0));
    if (version >= 1000 * (kRecordingMajorVersion + 1))
        return invalidRecording(path, "it has the newer format " + std::to_string(version / 1000) +
                                          "; a newer version of this program can read it");
    if (version < 1000)
        return invalidRecording(
            path, "its format version " + std::to_string(version) + " does not exist");
    const std::int64_t wanted =
        database.number("PRAGMA page_count", 0) * database.number("PRAGMA page_size", 0);
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || info.st_size < wanted)
        return invalidRecording(path, "its end is missing (" + std::to_string(info.st_size) +
                                          " of " + std::to_string(wanted) + " bytes)");
    for (const TableColumns& needed : kNeeded)
        if (Status s = checkTable(path, database, needed, false); !s.ok())
            return s;
    for (const TableColumns& needed : kOptional)
        if (Status s = checkTable(path, database, needed, true); !s.ok())
            return s;
    return {};
}

}  // namespace kova::camera
