#include "bench/detection/real_sequence.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "bench/grey_picture.h"
#include "camera/datasets/stereo_sequence.h"
#include "camera/pipeline/pipeline.h"

namespace kova::bench {

namespace {

namespace fs = std::filesystem;
using camera::ErrorCode;
using camera::Result;
using camera::Status;

RealFrame judgedPart(const camera::DetectionFrame& frame) {
    RealFrame out;
    out.geometry = frame.geometry;
    out.column_px = frame.column_px;
    out.ground = frame.ground;
    std::copy_if(frame.stixels.begin(), frame.stixels.end(), std::back_inserter(out.stixels),
                 [](const camera::Stixel& s) { return s.confirmed; });
    out.obstacles = frame.obstacles;
    return out;
}

Status badLine(const fs::path& path, int line) {
    return {ErrorCode::kInvalidFile,
            path.string() + ", line " + std::to_string(line) +
                ": expected sequence,frame,x0,y0,x1,y1,near_m,far_m,must|may,kind"};
}

bool parseObject(std::string line, std::string& sequence, RealObject& object) {
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream in(line);
    std::string judge, rest;
    if (!(in >> sequence >> object.frame >> object.x0 >> object.y0 >> object.x1 >> object.y1 >>
          object.near_m >> object.far_m >> judge >> object.kind) ||
        in >> rest)
        return false;
    object.must = judge == "must";
    return (object.must || judge == "may") && object.x0 < object.x1 && object.y0 < object.y1 &&
           object.near_m > 0 && object.near_m <= object.far_m;
}

}  // namespace

Result<std::vector<RealFrame>> detectSequence(const fs::path& data, const RealSequence& which,
                                              camera::WorkMode mode, bool align_rows) {
    camera::SequenceOptions options;
    options.fps = which.fps;
    const auto sequence = camera::openSequence(data / which.folder, options);
    if (!sequence.ok())
        return sequence.status();
    Status status;
    const auto pipeline = camera::Pipeline::make(sequence.value().calibration, status);
    if (!pipeline)
        return status;
    camera::PipelineSettings settings;
    settings.work_mode = mode;
    settings.align_rows = align_rows;
    settings.distance = camera::DistanceRange(pipeline->geometry());
    std::vector<RealFrame> frames;
    camera::DecodedFrame frame;
    for (const auto& pair : sequence.value().pairs) {
        if (!readGrey(pair.left, frame.pair.left) || !readGrey(pair.right, frame.pair.right))
            return Status(ErrorCode::kInvalidFile, "cannot read " + pair.left.string());
        frame.t_ns = pair.t_ns;
        frame.position = static_cast<int>(frames.size());
        if (Status s = pipeline->process(frame, settings); !s.ok())
            return s;
        frames.push_back(judgedPart(pipeline->detection()));
    }
    return frames;
}

Result<std::vector<RealObject>> readRealObjects(const fs::path& path, const std::string& sequence) {
    std::ifstream file(path);
    if (!file)
        return Status(ErrorCode::kCannotOpenFile, "cannot read " + path.string());
    std::vector<RealObject> objects;
    std::string line;
    bool header = true;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#')
            continue;
        if (header) {
            header = false;
            continue;
        }
        RealObject object;
        std::string name;
        if (!parseObject(line, name, object))
            return badLine(path, number);
        if (name == sequence)
            objects.push_back(object);
    }
    return objects;
}

CameraPose::Point CameraPose::worldOf(const Point& p) const {
    Point out{};
    for (int i = 0; i < 3; ++i)
        out[i] = m[4 * i] * p[0] + m[4 * i + 1] * p[1] + m[4 * i + 2] * p[2] + m[4 * i + 3];
    return out;
}

CameraPose::Point CameraPose::cameraOf(const Point& p) const {
    Point out{};
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) out[i] += m[4 * k + i] * (p[k] - m[4 * k + 3]);
    return out;
}

Result<std::vector<CameraPose>> readPoses(const fs::path& path) {
    std::ifstream file(path);
    if (!file)
        return Status(ErrorCode::kCannotOpenFile, "cannot read " + path.string());
    std::vector<CameraPose> poses;
    CameraPose pose;
    while (file >> pose.m[0]) {
        for (int i = 1; i < 12; ++i)
            if (!(file >> pose.m[i]))
                return Status(ErrorCode::kInvalidFile, path.string() + ": pose " +
                                                           std::to_string(poses.size()) +
                                                           " does not have twelve numbers");
        poses.push_back(pose);
    }
    return poses;
}

}  // namespace kova::bench
