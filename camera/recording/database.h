#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace kova::camera {

/// A compiled SQL statement; finalised by its destructor. Columns and parameters count from 0.
class Statement {
public:
    Statement() = default;
    ~Statement() { finalise(); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    int prepare(sqlite3* database, const char* sql) {
        finalise();
        return sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr);
    }
    void finalise() {
        sqlite3_finalize(statement_);
        statement_ = nullptr;
    }
    bool prepared() const { return statement_ != nullptr; }
    /// SQLITE_ROW, SQLITE_DONE or an error.
    int step() { return sqlite3_step(statement_); }
    void reset() { sqlite3_reset(statement_); }

    void bind(int i, std::int64_t value) { sqlite3_bind_int64(statement_, i + 1, value); }
    void bind(int i, int value) { sqlite3_bind_int(statement_, i + 1, value); }
    void bind(int i, double value) { sqlite3_bind_double(statement_, i + 1, value); }
    void bind(int i, const std::string& value) {
        sqlite3_bind_text64(statement_, i + 1, value.data(), value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8);
    }
    /// Not copied: must live until the statement was stepped.
    void bindBlob(int i, const void* data, std::size_t bytes) {
        sqlite3_bind_blob64(statement_, i + 1, data, bytes, SQLITE_STATIC);
    }

    int type(int i) const { return sqlite3_column_type(statement_, i); }
    std::int64_t integer(int i) const { return sqlite3_column_int64(statement_, i); }
    double real(int i) const { return sqlite3_column_double(statement_, i); }
    std::string text(int i) const {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, i));
        return bytes ? std::string(bytes,
                                   static_cast<std::size_t>(sqlite3_column_bytes(statement_, i)))
                     : std::string();
    }
    const std::uint8_t* blob(int i) const {
        return static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, i));
    }
    int bytes(int i) const { return sqlite3_column_bytes(statement_, i); }

private:
    sqlite3_stmt* statement_ = nullptr;
};

/// A connection to a database file; closed by its destructor, after its statements.
class Database {
public:
    Database() = default;
    ~Database() { close(); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    int open(const std::string& path, int flags) {
        close();
        return sqlite3_open_v2(path.c_str(), &database_, flags, nullptr);
    }
    void close() {
        sqlite3_close(database_);
        database_ = nullptr;
    }
    int run(const char* sql) { return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr); }
    /// First column of the first row of a query, `otherwise` when there is none.
    std::int64_t number(const char* sql, std::int64_t otherwise) {
        Statement statement;
        if (statement.prepare(database_, sql) != SQLITE_OK || statement.step() != SQLITE_ROW)
            return otherwise;
        return statement.integer(0);
    }
    std::string error() const { return database_ ? sqlite3_errmsg(database_) : "out of memory"; }
    int errorCode() const { return database_ ? sqlite3_errcode(database_) : SQLITE_NOMEM; }
    sqlite3* handle() { return database_; }

private:
    sqlite3* database_ = nullptr;
};

}  // namespace kova::camera
