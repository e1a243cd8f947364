#include "camera/datasets/stereo_sequence.h"

#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cmath>

#include "camera/base/log.h"
#include "camera/calibration/formats.h"
#include "camera/datasets/sequence_files.h"

namespace kova::camera {

namespace {

namespace fs = std::filesystem;
using Pair = StereoSequence::Pair;

struct LayoutName {
    DatasetLayout layout;
    const char* name;
};
constexpr std::array<LayoutName, 6> kNames = {{
    {DatasetLayout::kKittiOdometry, "kitti-odometry"},
    {DatasetLayout::kKittiStereo, "kitti-stereo"},
    {DatasetLayout::kUnlabelled, "unlabelled"},
    {DatasetLayout::kMiddlebury, "middlebury"},
    {DatasetLayout::kEuroc, "euroc"},
    {DatasetLayout::kFolders, "folders"},
}};

constexpr std::int64_t kEurocTolerance_ns = 3'000'000;

Status needed(const fs::path& folder, const std::string& what) {
    return {ErrorCode::kInvalidArgument, folder.string() + ": " + what};
}

bool hasFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}
bool hasFile(const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

/// Left and right folder of a KITTI set; empty when there are none.
struct EyeFolders {
    fs::path left, right;
    bool colour = false;
    bool found() const { return !left.empty(); }
};

EyeFolders kittiFolders(const fs::path& folder, bool colour_first) {
    const EyeFolders grey{folder / "image_0", folder / "image_1", false};
    const EyeFolders colour{folder / "image_2", folder / "image_3", true};
    for (const EyeFolders& eyes : {colour_first ? colour : grey, colour_first ? grey : colour})
        if (hasFolder(eyes.left) && hasFolder(eyes.right))
            return eyes;
    return {};
}

fs::path eurocRoot(const fs::path& folder) {
    return hasFolder(folder / "mav0") ? folder / "mav0" : folder;
}

/// KITTI's stereo benchmark keeps its pairs below "training".
fs::path kittiStereoRoot(const fs::path& folder) {
    return !kittiFolders(folder, true).found() && hasFolder(folder / "training")
               ? folder / "training"
               : folder;
}

bool hasTenths(const fs::path& folder) {
    const EyeFolders eyes = kittiFolders(folder, true);
    if (!eyes.found())
        return false;
    const auto pictures = picturesIn(eyes.left);
    return std::any_of(pictures.begin(), pictures.end(), [](const fs::path& p) {
        const std::string stem = p.stem().string();
        return stem.size() > 3 && stem.compare(stem.size() - 3, 3, "_10") == 0;
    });
}

std::optional<DatasetLayout> findLayout(const fs::path& folder) {
    const fs::path euroc = eurocRoot(folder);
    if (hasFolder(euroc / "cam0" / "data") && hasFolder(euroc / "cam1" / "data"))
        return DatasetLayout::kEuroc;
    if (!picturesIn(folder, "im0.").empty() && !picturesIn(folder, "im1.").empty())
        return DatasetLayout::kMiddlebury;
    if (hasFolder(folder / "image_l") && hasFolder(folder / "image_r"))
        return DatasetLayout::kUnlabelled;
    if (hasTenths(kittiStereoRoot(folder)))
        return DatasetLayout::kKittiStereo;
    if (kittiFolders(folder, false).found())
        return DatasetLayout::kKittiOdometry;
    if ((hasFolder(folder / "left") && hasFolder(folder / "right")) ||
        (!picturesIn(folder, "left").empty() && !picturesIn(folder, "right").empty()))
        return DatasetLayout::kFolders;
    return std::nullopt;
}

/// What a layout finds before pictures and calibration are read.
struct Found {
    std::vector<Pair> pairs;
    int unpaired = 0;
    bool has_times = false;
    std::vector<fs::path> calibration;  ///< the set's own; empty: none
    bool kitti_colour = false;
};

Result<Found> findKittiOdometry(const fs::path& folder, const SequenceOptions& options) {
    Found found;
    const EyeFolders eyes = kittiFolders(folder, options.colour);
    found.kitti_colour = eyes.colour;
    found.pairs = pairByName(picturesIn(eyes.left), "", picturesIn(eyes.right), "", found.unpaired);
    if (hasFile(folder / "calib.txt"))
        found.calibration = {folder / "calib.txt"};
    if (!hasFile(folder / "times.txt"))
        return found;
    const auto times = readTimesInSeconds(folder / "times.txt");
    if (!times.ok())
        return times.status();
    // One line per picture, numbered from 0; a part of a set keeps the numbers of the whole.
    for (std::size_t i = 0; i < found.pairs.size(); ++i) {
        const std::string stem = found.pairs[i].left.stem().string();
        const bool digits = stem.find_first_not_of("0123456789") == std::string::npos;
        std::size_t line = digits && stem.size() < 10 ? std::stoul(stem) : i;
        if (times.value().size() == found.pairs.size())
            line = i;
        if (line >= times.value().size())
            return Status(ErrorCode::kInvalidFile,
                          (folder / "times.txt").string() + ": has no time for picture " + stem);
        found.pairs[i].t_ns = times.value()[line];
    }
    found.has_times = true;
    return found;
}

Result<Found> findKittiStereo(const fs::path& given) {
    Found found;
    const fs::path folder = kittiStereoRoot(given);
    const EyeFolders eyes = kittiFolders(folder, true);
    found.kitti_colour = eyes.colour;
    found.pairs = pairByName(picturesIn(eyes.left), "", picturesIn(eyes.right), "", found.unpaired);
    // The _11 pictures are the next moment of the same scene, for optical flow.
    found.pairs.erase(std::remove_if(found.pairs.begin(), found.pairs.end(),
                                     [](const Pair& p) {
                                         const std::string stem = p.left.stem().string();
                                         return stem.size() < 3 ||
                                                stem.compare(stem.size() - 3, 3, "_10") != 0;
                                     }),
                      found.pairs.end());
    for (const fs::path& file : {folder / "calib_cam_to_cam.txt", folder / "calib.txt"})
        if (hasFile(file))
            found.calibration = {file};
    for (const char* name : {"calib_cam_to_cam", "calib"})
        if (found.calibration.empty() && !found.pairs.empty()) {
            const std::string stem = found.pairs[0].left.stem().string();
            const fs::path file = folder / name / (stem.substr(0, stem.size() - 3) + ".txt");
            if (hasFile(file))
                found.calibration = {file};
        }
    return found;
}

Result<Found> findEuroc(const fs::path& given) {
    Found found;
    const fs::path folder = eurocRoot(given);
    found.pairs =
        pairByTime(picturesIn(folder / "cam0" / "data"), picturesIn(folder / "cam1" / "data"),
                   kEurocTolerance_ns, found.unpaired);
    found.has_times = true;
    found.calibration = {folder / "cam0" / "sensor.yaml", folder / "cam1" / "sensor.yaml"};
    return found;
}

Result<Found> findFolders(const fs::path& folder) {
    Found found;
    if (hasFolder(folder / "left") && hasFolder(folder / "right")) {
        // Names may be equal, or tell the eye once more.
        for (const auto& [l, r] :
             {std::pair<std::string, std::string>{"", ""}, {"left", "right"}, {"l", "r"}}) {
            found.pairs = pairByName(picturesIn(folder / "left", l), l,
                                     picturesIn(folder / "right", r), r, found.unpaired);
            if (!found.pairs.empty())
                break;
        }
    } else {
        found.pairs = pairByName(picturesIn(folder, "left"), "left", picturesIn(folder, "right"),
                                 "right", found.unpaired);
    }
    for (const char* name : {"calibration.yml", "calibration.yaml", "calib.yml", "calib.txt"})
        if (found.calibration.empty() && hasFile(folder / name))
            found.calibration = {folder / name};
    if (found.calibration.empty() && hasFile(folder / "intrinsics.yml") &&
        hasFile(folder / "extrinsics.yml"))
        found.calibration = {folder / "intrinsics.yml", folder / "extrinsics.yml"};
    return found;
}

Result<Found> find(const fs::path& folder, DatasetLayout layout, const SequenceOptions& options) {
    Found found;
    switch (layout) {
        case DatasetLayout::kKittiOdometry:
            return findKittiOdometry(folder, options);
        case DatasetLayout::kKittiStereo:
            return findKittiStereo(folder);
        case DatasetLayout::kEuroc:
            return findEuroc(folder);
        case DatasetLayout::kFolders:
            return findFolders(folder);
        case DatasetLayout::kUnlabelled:
            found.pairs = pairByName(picturesIn(folder / "image_l"), "",
                                     picturesIn(folder / "image_r"), "", found.unpaired);
            break;
        case DatasetLayout::kMiddlebury:
            found.pairs = pairByName(picturesIn(folder, "im0."), "im0", picturesIn(folder, "im1."),
                                     "im1", found.unpaired);
            break;
    }
    if (hasFile(folder / "calib.txt"))
        found.calibration = {folder / "calib.txt"};
    return found;
}

Status setTimes(const fs::path& folder, const SequenceOptions& options, StereoSequence& s) {
    if (s.has_times) {
        std::stable_sort(s.pairs.begin(), s.pairs.end(),
                         [](const Pair& a, const Pair& b) { return a.t_ns < b.t_ns; });
        std::vector<std::int64_t> gaps;
        for (std::size_t i = 1; i < s.pairs.size(); ++i) {
            gaps.push_back(s.pairs[i].t_ns - s.pairs[i - 1].t_ns);
            if (gaps.back() <= 0)
                return {ErrorCode::kInvalidFile,
                        s.pairs[i].left.string() + ": has the same time as the picture before"};
        }
        s.fps = options.fps;
        if (!gaps.empty()) {
            std::nth_element(gaps.begin(),
                             gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2),
                             gaps.end());
            s.fps = std::round(1e11 / static_cast<double>(gaps[gaps.size() / 2])) / 100;
        }
        if (options.fps > 0 && std::abs(options.fps - s.fps) > 0.01 * s.fps)
            logWarning("datasets", folder.string() +
                                       ": has time stamps of its own; the given rate is not used");
        return {};
    }
    s.fps = options.fps;
    if (s.fps <= 0 && s.pairs.size() == 1)
        s.fps = 1;  // a single pair has no rate
    if (s.fps <= 0)
        return needed(folder, "the pictures have no time stamps; give their rate with --fps");
    for (std::size_t i = 0; i < s.pairs.size(); ++i)
        s.pairs[i].t_ns =
            static_cast<std::int64_t>(std::llround(static_cast<double>(i) * 1e9 / s.fps));
    return {};
}

Status setSize(StereoSequence& s) {
    cv::Mat first;
    try {
        first = cv::imread(s.pairs[0].left.string(), cv::IMREAD_UNCHANGED);
    } catch (const std::exception&) {
    }
    if (first.empty())
        return {ErrorCode::kInvalidFile,
                s.pairs[0].left.string() + ": cannot be read as a picture"};
    s.width = first.cols;
    s.height = first.rows;
    return {};
}

Status setCalibration(const fs::path& folder, const SequenceOptions& options, const Found& found,
                      StereoSequence& s) {
    if (options.intrinsics) {
        const auto& [fx, fy, cx, cy, baseline_mm] = *options.intrinsics;
        s.calibration.width = s.width;
        s.calibration.height = s.height;
        s.calibration.left = {fx, fy, cx, cy, LensModel::kRadialTangential, {}};
        s.calibration.right = s.calibration.left;
        s.calibration.translation_mm = {-baseline_mm, 0, 0};
        s.calibration.rectified = true;
        return s.calibration.check();
    }
    const auto& paths = options.calibration.empty() ? found.calibration : options.calibration;
    if (paths.empty())
        return needed(folder,
                      "there is no calibration; give a file with --calibration, or --intrinsics "
                      "for rectified pictures");
    ReadCalibrationOptions reading;
    reading.width = s.width;
    reading.height = s.height;
    reading.kitti_colour = found.kitti_colour;
    auto calibration = readCalibration(paths, reading);
    if (!calibration.ok())
        return calibration.status();
    s.calibration = std::move(calibration.value());
    return {};
}

/// Turns the samples from the sensor's axes into the left camera's. The lever arm between them is
/// left out: it would need the derivative of the angular rate.
Status setEurocImu(const fs::path& given, StereoSequence& s) {
    const fs::path folder = eurocRoot(given);
    const fs::path csv = folder / "imu0" / "data.csv";
    if (!hasFile(csv))
        return {};
    auto samples = readEurocImu(csv, s.pairs.front().t_ns, s.pairs.back().t_ns);
    if (!samples.ok())
        return samples.status();
    const auto body_from_camera = readEurocRotation(folder / "cam0" / "sensor.yaml");
    if (!body_from_camera.ok())
        return body_from_camera.status();
    std::array<double, 9> body_from_imu = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (hasFile(folder / "imu0" / "sensor.yaml")) {
        const auto read = readEurocRotation(folder / "imu0" / "sensor.yaml");
        if (!read.ok())
            return read.status();
        body_from_imu = read.value();
    }
    std::array<double, 9> camera_from_imu{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k)
                camera_from_imu[i * 3 + j] +=
                    body_from_camera.value()[k * 3 + i] * body_from_imu[k * 3 + j];
    const auto turn = [&](std::array<float, 3>& v) {
        const std::array<float, 3> in = v;
        for (int i = 0; i < 3; ++i)
            v[i] = static_cast<float>(camera_from_imu[i * 3] * in[0] +
                                      camera_from_imu[i * 3 + 1] * in[1] +
                                      camera_from_imu[i * 3 + 2] * in[2]);
    };
    s.imu = std::move(samples.value());
    for (ImuSample& sample : s.imu) {
        turn(sample.accel);
        turn(sample.gyro);
    }
    return {};
}

}  // namespace

const char* nameOf(DatasetLayout layout) {
    for (const LayoutName& entry : kNames)
        if (entry.layout == layout)
            return entry.name;
    return "unknown";
}

std::optional<DatasetLayout> datasetLayoutFromName(const std::string& name) {
    for (const LayoutName& entry : kNames)
        if (name == entry.name)
            return entry.layout;
    return std::nullopt;
}

std::vector<std::string> datasetLayoutNames() {
    std::vector<std::string> names;
    for (const LayoutName& entry : kNames) names.emplace_back(entry.name);
    return names;
}

Result<StereoSequence> openSequence(const fs::path& folder, const SequenceOptions& options) {
    if (!hasFolder(folder))
        return Status(
            ErrorCode::kCannotOpenFile,
            folder.string() + ": " + (fs::exists(folder) ? "is not a folder" : "no such folder"));
    const std::optional<DatasetLayout> layout =
        options.layout ? options.layout : findLayout(folder);
    if (!layout)
        return Status(ErrorCode::kInvalidFile,
                      folder.string() +
                          ": no known layout of stereo pictures; look at the folder, or name the "
                          "layout with --layout");
    const auto found = find(folder, *layout, options);
    if (!found.ok())
        return found.status();

    StereoSequence s;
    s.layout = *layout;
    s.name = fs::weakly_canonical(folder).filename().string();
    s.pairs = found.value().pairs;
    s.unpaired = found.value().unpaired;
    s.has_times = found.value().has_times;
    if (s.pairs.empty())
        return Status(ErrorCode::kInvalidFile, folder.string() + ": no pairs of pictures in the " +
                                                   nameOf(*layout) + " layout");
    if (Status status = setTimes(folder, options, s); !status.ok())
        return status;
    if (Status status = setSize(s); !status.ok())
        return status;
    if (Status status = setCalibration(folder, options, found.value(), s); !status.ok())
        return status;
    if (s.layout == DatasetLayout::kEuroc)
        if (Status status = setEurocImu(folder, s); !status.ok())
            return status;
    return s;
}

}  // namespace kova::camera
