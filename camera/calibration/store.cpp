#include "camera/calibration/store.h"

#include <cstdlib>
#include <fstream>

#include "camera/base/log.h"
#include "camera/calibration/epipolar.h"
#include "camera/calibration/formats.h"

namespace kova::camera {

namespace fs = std::filesystem;

std::vector<fs::path> calibrationFolders() {
    std::vector<fs::path> folders;
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    // A relative path in the variable is to be ignored, as the base directory rules have it.
    if (config && *config == '/')
        folders.push_back(fs::path(config) / "kova");
    else if (home && *home)
        folders.push_back(fs::path(home) / ".config" / "kova");
    folders.emplace_back("/etc/kova");
    return folders;
}

fs::path calibrationFile(const fs::path& folder, std::uint32_t serial) {
    return folder / (std::to_string(serial) + ".yaml");
}

Result<StereoCalibration> findCalibration(std::uint32_t serial, int width, int height) {
    std::string searched;
    for (const fs::path& folder : calibrationFolders()) {
        const fs::path path = calibrationFile(folder, serial);
        searched += (searched.empty() ? "" : ", ") + path.string();
        std::error_code error;
        if (!fs::exists(path, error))
            continue;
        Result<StereoCalibration> read = readCalibration(path);
        if (!read.ok() || width <= 0 || height <= 0)
            return read;
        const StereoCalibration& c = read.value();
        const bool multiple =
            c.width * height == c.height * width && (c.width % width == 0 || width % c.width == 0);
        if (multiple) {
            if (c.width != width)
                logInfo("calibration", path.string() + ": scaled to " + std::to_string(width) +
                                           "x" + std::to_string(height));
            return scaledCalibration(c, width, height);
        }
        const Status s = checkPictureSize(c.width, c.height, width, height);
        return Status(s.code(), path.string() + ": " + s.message());
    }
    return Status(ErrorCode::kNotCalibrated, "camera " + std::to_string(serial) +
                                                 " is not calibrated: no " + searched +
                                                 "; make one with 'kova calibrate'");
}

Status writeTextFile(const fs::path& path, const std::string& text) {
    fs::path beside = path;
    beside += ".part";
    std::ofstream out(beside, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    std::error_code error;
    if (out)
        fs::rename(beside, path, error);
    if (!out || error) {
        std::error_code ignored;
        fs::remove(beside, ignored);
        return {ErrorCode::kWriteFailed,
                path.string() + ": cannot be written; is the folder there and yours to write?"};
    }
    return {};
}

Status storeCalibration(std::uint32_t serial, const StereoCalibration& calibration,
                        fs::path* path) {
    if (Status s = calibration.check(); !s.ok())
        return s;
    const fs::path file = calibrationFile(calibrationFolders().front(), serial);
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    if (error)
        return {ErrorCode::kWriteFailed,
                file.parent_path().string() + ": cannot be made: " + error.message()};
    if (path)
        *path = file;
    return writeTextFile(file, toYaml(calibration));
}

}  // namespace kova::camera
