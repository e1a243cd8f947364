#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "camera/base/log.h"
#include "camera/recording/recording_reader.h"
#include "camera/recording/recording_writer.h"
#include "camera/recording/replay_source.h"
#include "camera/sources/decode.h"
#include "tests/support/recordings.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

namespace fs = std::filesystem;

class BrokenFiles : public testing::Test {
protected:
    void SetUp() override {
        setLogSink(
            [this](LogLevel, const std::string&, const std::string& text) { log_ += text + "\n"; });
        path_ = folder_ / "a.kova";
        stream_ = test::smallStream(256, 64);
        auto writer = RecordingWriter::create(path_, stream_, test::smallCamera(),
                                              test::smallCalibration(128, 64));
        ASSERT_TRUE(writer.ok()) << writer.status().message();
        for (int i = 0; i < 6; ++i)
            ASSERT_TRUE(writer.value()->write(test::smallFrame(stream_, i)).ok());
        ASSERT_TRUE(writer.value()->finish().ok());
    }
    void TearDown() override { setLogSink({}); }

    /// Runs SQL on the file, as somebody with the sqlite3 shell would.
    void sql(const std::string& text) {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
        char* error = nullptr;
        sqlite3_exec(db, "PRAGMA synchronous = OFF; PRAGMA journal_mode = OFF", nullptr, nullptr,
                     nullptr);
        EXPECT_EQ(sqlite3_exec(db, text.c_str(), nullptr, nullptr, &error), SQLITE_OK)
            << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(db);
    }

    /// What opening says is kept beside the log.
    ErrorCode openCode(const std::string& path) {
        const auto reader = RecordingReader::open(path);
        log_ += reader.status().message() + "\n";
        return reader.status().code();
    }
    ErrorCode openCode() { return openCode(path_); }

    bool logged(const std::string& text) const { return log_.find(text) != std::string::npos; }

    /// Opens, reads and decodes everything; must neither crash nor hang, whatever comes out.
    void walk() {
        auto reader = RecordingReader::open(path_);
        if (!reader.ok())
            return;
        FrameDecoder decoder(reader.value()->stream());
        RawFrame frame;
        StereoPair pair;
        for (int i = 0; i < reader.value()->frameCount(); ++i)
            if (reader.value()->read(i, frame).ok())
                (void)decoder.decode(frame, pair);
        reader.value()->drops();
        reader.value()->settings();
        reader.value()->clock();
    }

    test::TemporaryFolder folder_;
    std::string path_;
    std::string log_;
    StreamInfo stream_;
};

TEST_F(BrokenFiles, WhatCannotBeOpened) {
    EXPECT_EQ(RecordingReader::open("").status().code(), ErrorCode::kCannotOpenFile);
    EXPECT_EQ(RecordingReader::open(folder_ / "missing.kova").status().code(),
              ErrorCode::kCannotOpenFile);
    EXPECT_EQ(openCode(folder_.path()), ErrorCode::kCannotOpenFile);
    EXPECT_TRUE(logged("it is a folder"));
    EXPECT_EQ(RecordingReader::open("/dev/null").status().code(), ErrorCode::kCannotOpenFile);
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(RecordingReader::open(pipe).status().code(), ErrorCode::kCannotOpenFile);
    if (::geteuid() != 0) {
        fs::permissions(path_, fs::perms::none);
        EXPECT_EQ(openCode(), ErrorCode::kCannotOpenFile);
    }
}

TEST_F(BrokenFiles, ForeignFiles) {
    std::ofstream(path_, std::ios::trunc);
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("it is empty"));
    std::ofstream(path_, std::ios::trunc) << "just text, long enough to be something else";
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("another kind of file"));
    fs::remove(path_);
    sql("CREATE TABLE frames (id INTEGER PRIMARY KEY)");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("another program"));
}

TEST_F(BrokenFiles, Versions) {
    sql("PRAGMA user_version = 1007");  // a later minor version
    EXPECT_EQ(openCode(), ErrorCode::kOk);
    sql("PRAGMA user_version = 2000");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("newer format 2"));
    sql("PRAGMA user_version = 0");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
}

TEST_F(BrokenFiles, ExtraTablesAndColumnsAreIgnored) {
    sql("CREATE TABLE notes (text); INSERT INTO notes VALUES ('hello');"
        "ALTER TABLE imu ADD COLUMN temperature REAL; ALTER TABLE camera ADD COLUMN lens TEXT");
    EXPECT_EQ(openCode(), ErrorCode::kOk);
}

TEST_F(BrokenFiles, AMissingEnd) {
    const auto whole = fs::file_size(path_);
    for (const auto size : {whole - 1, whole - 5000, whole / 2, std::uintmax_t{20000},
                            std::uintmax_t{16384}, std::uintmax_t{99}, std::uintmax_t{16}}) {
        log_.clear();
        fs::resize_file(path_, size);
        EXPECT_EQ(openCode(), ErrorCode::kInvalidFile) << size;
        EXPECT_TRUE(logged("its end is missing")) << size << ": " << log_;
    }
}

TEST_F(BrokenFiles, WithoutCalibrationOrFrames) {
    sql("CREATE TEMP TABLE x AS SELECT * FROM calibration; DELETE FROM calibration");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("without calibration"));
    sql("INSERT INTO calibration VALUES ('nonsense')");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
}

TEST_F(BrokenFiles, WithoutFrames) {
    sql("DELETE FROM frames");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("no frames"));
    RecordingReaderOptions options;
    options.without_frames = true;
    EXPECT_TRUE(RecordingReader::open(path_, options).ok());
}

TEST_F(BrokenFiles, CalibrationOfAnotherSize) {
    sql("UPDATE streams SET width = 512");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("its calibration is for 128x64"));
}

TEST_F(BrokenFiles, AFrameWithAWrongChecksumIsSkippedAndCounted) {
    sql("UPDATE frames SET crc32 = crc32 + 1 WHERE id IN (1, 5)");
    auto source = ReplaySource::open(path_);
    ASSERT_TRUE(source.ok());
    source.value()->setPaced(false);
    RawFrame frame;
    std::vector<ErrorCode> codes;
    for (int i = 0; i < 7; ++i) codes.push_back(source.value()->grab(frame).code());
    EXPECT_EQ(codes, (std::vector<ErrorCode>{ErrorCode::kOk, ErrorCode::kNoNewFrame, ErrorCode::kOk,
                                             ErrorCode::kOk, ErrorCode::kOk, ErrorCode::kNoNewFrame,
                                             ErrorCode::kEndOfFile}));
    EXPECT_EQ(source.value()->droppedFrames(), 2);
    EXPECT_EQ(source.value()->position(), 5);
    EXPECT_TRUE(logged("wrong checksum"));
}

TEST_F(BrokenFiles, GapsInTheNumbersAndMissingIndices) {
    sql("DROP INDEX frames_t_ns; DROP INDEX imu_t_ns; DELETE FROM frames WHERE id IN (0, 3)");
    auto reader = RecordingReader::open(path_);
    ASSERT_TRUE(reader.ok());
    ASSERT_EQ(reader.value()->frameCount(), 4);
    RawFrame frame;
    ASSERT_TRUE(reader.value()->read(3, frame).ok());
    EXPECT_EQ(frame.sequence, 105);
    EXPECT_TRUE(logged("have gaps"));
}

TEST_F(BrokenFiles, HostileStreams) {
    for (const char* change :
         {"width = -1", "width = 0", "height = 1000000000000", "width = 'wide'", "width = NULL",
          "layout = 'diagonal'", "codec = x'00ff'", "pixel_format = ''", "nominal_fps = 9e999",
          "nominal_fps = -1", "height = 63, layout = 'top_bottom'"}) {
        SCOPED_TRACE(change);
        const std::string copy = path_ + ".copy";
        fs::copy_file(path_, copy, fs::copy_options::overwrite_existing);
        sql("CREATE TABLE s AS SELECT * FROM streams; DROP TABLE streams;"
            "ALTER TABLE s RENAME TO streams; UPDATE streams SET " +
            std::string(change));
        EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
        fs::rename(copy, path_);
    }
    sql("INSERT INTO streams SELECT * FROM streams");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    sql("DELETE FROM streams");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
}

TEST_F(BrokenFiles, HostileFramesAreSkipped) {
    // The picture: giant, text, empty, a number; times at the ends of the range.
    sql("UPDATE frames SET image = zeroblob(135000000) WHERE id = 0;"
        "UPDATE frames SET image = 'text' WHERE id = 1; UPDATE frames SET image = x'' WHERE id = 2;"
        "UPDATE frames SET image = 7 WHERE id = 3; UPDATE frames SET exposure_us = 9e999;"
        "UPDATE frames SET t_ns = -9223372036854775807 WHERE id = 0;"
        "UPDATE frames SET t_ns = 9223372036854775807 WHERE id = 5;"
        "UPDATE imu SET ax = 9e999, gy = 'x', t_ns = 9223372036854775807 WHERE rowid = 2;");
    auto source = ReplaySource::open(path_);
    ASSERT_TRUE(source.ok()) << source.status().message();
    RawFrame frame;
    int good = 0;
    for (int i = 0; i < 100 && source.value()->position() < 5; ++i)
        good += source.value()->grab(frame).ok();
    EXPECT_EQ(good, 2);
    EXPECT_EQ(source.value()->droppedFrames(), 4);
    EXPECT_EQ(frame.exposure_us, 0);
}

TEST_F(BrokenFiles, TimesOfTheWrongKind) {
    sql("UPDATE frames SET t_ns = 'noon' WHERE id = 2");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("no time stamp"));
}

// A query over a view can run for ever, and so can a computed column.
TEST_F(BrokenFiles, ViewsAndComputedColumnsInPlaceOfTables) {
    sql("ALTER TABLE frames RENAME TO f;"
        "CREATE VIEW frames AS WITH RECURSIVE r(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM r) "
        "SELECT n AS id, n AS t_ns, 0 AS sequence, 0 AS exposure_us, 0 AS crc32, x'00' AS image "
        "FROM r");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("not a plain table"));
    sql("DROP VIEW frames; CREATE TABLE frames (id INTEGER PRIMARY KEY, t_ns INTEGER, sequence, "
        "exposure_us, crc32, image BLOB AS (zeroblob(900000000)));"
        "INSERT INTO frames VALUES (0, 1, 1, 1, 1)");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("no plain column image"));
    sql("DROP TABLE frames");
    EXPECT_EQ(openCode(), ErrorCode::kInvalidFile);
    EXPECT_TRUE(logged("table frames is missing"));
}

// Bytes changed anywhere: every outcome is allowed but a crash or a hang.
TEST_F(BrokenFiles, RandomDamage) {
    std::ifstream in(path_, std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(in)), {});
    std::uint32_t state = 12345;
    const auto next = [&] { return state = state * 1664525u + 1013904223u; };
    for (int round = 0; round < 150; ++round) {
        std::string damaged = whole;
        // Half of the rounds hit the first pages, where the structure is.
        const std::size_t reach = round % 2 == 0 ? damaged.size() : 3000;
        for (int k = 0; k < 1 + round % 20; ++k)
            damaged[(next() >> 4) % reach] = static_cast<char>(next() >> 24);
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << damaged;
        walk();
    }
}

}  // namespace
}  // namespace kova::camera
