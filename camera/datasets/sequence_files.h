#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/datasets/stereo_sequence.h"
#include "camera/sources/frame.h"

namespace kova::camera {

/// Pictures of a folder whose names begin with `prefix`, sorted by name.
std::vector<std::filesystem::path> picturesIn(const std::filesystem::path& folder,
                                              const std::string& prefix = "");

/// Pairs of equal names once the prefixes are taken off.
///
/// @param unpaired  receives the number of pictures without a partner
std::vector<StereoSequence::Pair> pairByName(const std::vector<std::filesystem::path>& left,
                                             const std::string& left_prefix,
                                             const std::vector<std::filesystem::path>& right,
                                             const std::string& right_prefix, int& unpaired);

/// Pairs of pictures whose names are time stamps [ns], nearest to each other and at most
/// `tolerance_ns` apart; the pair has the left one's time.
std::vector<StereoSequence::Pair> pairByTime(const std::vector<std::filesystem::path>& left,
                                             const std::vector<std::filesystem::path>& right,
                                             std::int64_t tolerance_ns, int& unpaired);

/// Numbers of a text file, one time stamp [s] per line, as ns.
Result<std::vector<std::int64_t>> readTimesInSeconds(const std::filesystem::path& path);

/// Rows of an EuRoC imu0/data.csv with from_ns <= t_ns <= to_ns, in the sensor's own frame.
Result<std::vector<ImuSample>> readEurocImu(const std::filesystem::path& path, std::int64_t from_ns,
                                            std::int64_t to_ns);

/// The rotation of T_BS of an EuRoC sensor.yaml, by rows: takes the sensor's axes to the body's.
Result<std::array<double, 9>> readEurocRotation(const std::filesystem::path& path);

}  // namespace kova::camera
