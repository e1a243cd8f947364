#include "camera/simulation/truth_files.h"

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace kova::camera {

namespace {

Status failed(const std::filesystem::path& path) {
    return {ErrorCode::kWriteFailed,
            path.string() + " cannot be written; is the disk full or the folder protected?"};
}

/// Portable float map: little endian, rows from the bottom up. Nothing seen is 0.
Status writePfm(const std::filesystem::path& path, const Image<float>& image) {
    std::ofstream file(path, std::ios::binary);
    file << "Pf\n" << image.width() << ' ' << image.height() << "\n-1.0\n";
    std::vector<float> row(static_cast<std::size_t>(image.width()));
    for (int y = image.height() - 1; y >= 0; --y) {
        for (int x = 0; x < image.width(); ++x)
            row[x] = std::isfinite(image.at(x, y)) ? image.at(x, y) : 0.0f;
        file.write(reinterpret_cast<const char*>(row.data()),
                   static_cast<std::streamsize>(row.size() * sizeof(float)));
    }
    return file.flush() ? Status() : failed(path);
}

Status writePng(const std::filesystem::path& path, const cv::Mat& picture) {
    try {
        if (cv::imwrite(path.string(), picture))
            return {};
    } catch (const cv::Exception&) {
    }
    return failed(path);
}

Status writeJson(const std::filesystem::path& path, const nlohmann::json& json) {
    std::ofstream file(path);
    file << json.dump(1) << '\n';
    return file.flush() ? Status() : failed(path);
}

nlohmann::json toJson(const Vec3& v) {
    return {v.x, v.y, v.z};
}

}  // namespace

std::filesystem::path TruthFolder::nameFor(const std::filesystem::path& recording) {
    std::filesystem::path folder = recording;
    folder.replace_extension(".truth");
    return folder;
}

Result<TruthFolder> TruthFolder::create(const std::filesystem::path& folder, bool overwrite) {
    std::error_code error;
    if (std::filesystem::exists(folder, error)) {
        if (!overwrite)
            return Status(ErrorCode::kWriteFailed,
                          folder.string() + " exists; remove it or use --force");
        // Only what we wrote goes, so that a wrong name costs nobody their files.
        for (const char* part : {"depth", "labels", "obstacle", "ground"})
            std::filesystem::remove_all(folder / part, error);
    }
    for (const char* part : {"depth", "labels", "obstacle", "ground"})
        if (!std::filesystem::create_directories(folder / part, error) && error)
            return Status(ErrorCode::kWriteFailed,
                          folder.string() + " cannot be made: " + error.message());
    TruthFolder truth;
    truth.folder_ = folder;
    return truth;
}

Status TruthFolder::write(int frame, std::int64_t t_ns, const FrameTruth& truth) {
    char name[16];
    std::snprintf(name, sizeof name, "%06d", frame);
    const int w = truth.label.width(), h = truth.label.height();
    cv::Mat labels(h, w, CV_8U), obstacle(h, w, CV_8U), ground(h, w, CV_8U);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const std::uint8_t label = truth.label.at(x, y);
            labels.at<std::uint8_t>(y, x) = label;
            obstacle.at<std::uint8_t>(y, x) =
                label == static_cast<int>(SurfaceLabel::kObstacle) ? 255 : 0;
            ground.at<std::uint8_t>(y, x) =
                label == static_cast<int>(SurfaceLabel::kGround) ? 255 : 0;
        }
    const std::string png = std::string(name) + ".png";
    if (Status s = writePfm(folder_ / "depth" / (std::string(name) + ".pfm"), truth.depth_mm);
        !s.ok())
        return s;
    if (Status s = writePng(folder_ / "labels" / png, labels); !s.ok())
        return s;
    if (Status s = writePng(folder_ / "obstacle" / png, obstacle); !s.ok())
        return s;
    if (Status s = writePng(folder_ / "ground" / png, ground); !s.ok())
        return s;
    poses_.push_back({t_ns, truth.pose});
    return {};
}

Status TruthFolder::finish(const Scene& scene, const SimulatedRig& rig) {
    nlohmann::json poses = nlohmann::json::array();
    for (std::size_t i = 0; i < poses_.size(); ++i)
        poses.push_back({{"frame", i},
                         {"t_ns", poses_[i].t_ns},
                         {"rotation", poses_[i].pose.rotation.m},
                         {"position_mm", toJson(poses_[i].pose.position)}});
    if (Status s = writeJson(folder_ / "poses.json", poses); !s.ok())
        return s;

    nlohmann::json objects = nlohmann::json::array();
    for (const SceneObject& o : scene.objects)
        objects.push_back({{"kind", o.kind},
                           {"foot_mm", toJson(o.foot)},
                           {"size_mm", toJson(o.size)},
                           {"overhead", o.overhead}});
    const nlohmann::json json = {
        {"scene", scene.name},
        {"seed", scene.seed},
        {"camera_height_mm", scene.path.camera_height_mm},
        {"tilt_deg", scene.path.tilt_deg},
        {"roll_deg", scene.path.roll_deg},
        {"calibration", toYaml(rig.given)},
        {"true_calibration", toYaml(rig.rendered)},
        {"labels", {"background", "ground", "obstacle", "drop", "raised", "overhead"}},
        {"objects", objects}};
    return writeJson(folder_ / "scene.json", json);
}

}  // namespace kova::camera
