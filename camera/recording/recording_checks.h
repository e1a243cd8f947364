#pragma once

#include <string>

#include "camera/base/status.h"
#include "camera/recording/database.h"

namespace kova::camera {

/// kInvalidFile: "PATH is not a valid recording: WHAT".
Status invalidRecording(const std::string& path, const std::string& what);

/// Opens a file read-only. One that a killed recorder left, its journal beside it, is first opened
/// for writing once, so that what was not committed is rolled back.
///
/// @param repaired  set when that was done
/// @return kCannotOpenFile, kInvalidFile
Status openRecordingDatabase(const std::string& path, Database& database, bool& repaired);

/// Is it ours, of a version that we know, whole, and are its tables plain ones with the columns of
/// the format? A view or a computed column in their place could run for ever.
///
/// @param version  receives `user_version`
/// @return kInvalidFile
Status checkRecordingDatabase(const std::string& path, Database& database, int& version);

}  // namespace kova::camera
