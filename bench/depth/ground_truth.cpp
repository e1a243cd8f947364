#include "bench/depth/ground_truth.h"

#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

#include "bench/grey_picture.h"

namespace kova::bench {

namespace {

using camera::ErrorCode;
using camera::Image;
using camera::Status;

constexpr float kUnknown = -1;

Status missing(const std::string& path) {
    return {ErrorCode::kCannotOpenFile,
            "cannot read " + path + "; see the layout in docs/bench.md"};
}

Status readPicture(const std::string& path, Image<std::uint8_t>& image) {
    return readGrey(path, image) ? Status() : missing(path);
}

/// PFM as the data sets write it: little-endian, bottom row first, values in px whatever the scale
/// of the header says (image libraries multiply by it).
Status readPfm(const std::string& path, Image<float>& truth) {
    std::ifstream file(path, std::ios::binary);
    std::string kind;
    int width = 0, height = 0;
    double scale = 0;
    if (!(file >> kind >> width >> height >> scale) || kind != "Pf" || scale >= 0 || width < 1 ||
        height < 1 || width > 1 << 15 || height > 1 << 15)
        return missing(path);
    file.get();
    truth.resize(width, height);
    for (int y = height - 1; y >= 0; --y) {
        if (!file.read(reinterpret_cast<char*>(truth.row(y)),
                       static_cast<std::streamsize>(sizeof(float)) * width))
            return missing(path);
        for (int x = 0; x < width; ++x)
            if (!std::isfinite(truth.at(x, y)) || truth.at(x, y) <= 0)
                truth.at(x, y) = kUnknown;
    }
    return {};
}

/// Values of a picture times `scale`, or of a PFM; 0 and infinity mean unknown.
Status readTruth(const std::string& path, float scale, Image<float>& truth) {
    if (path.size() > 4 && path.compare(path.size() - 4, 4, ".pfm") == 0)
        return readPfm(path, truth);
    const cv::Mat stored = cv::imread(path, cv::IMREAD_UNCHANGED);
    if (stored.empty() || stored.channels() != 1)
        return missing(path);
    cv::Mat values;
    stored.convertTo(values, CV_32F, scale);
    truth.resize(values.cols, values.rows);
    for (int y = 0; y < values.rows; ++y) {
        for (int x = 0; x < values.cols; ++x) {
            const float v = values.at<float>(y, x);
            truth.at(x, y) = std::isfinite(v) && v > 0 ? v : kUnknown;
        }
    }
    return {};
}

/// Removes what `mask` does not call visible in both eyes.
Status applyMask(const std::string& path, Image<float>& truth) {
    Image<std::uint8_t> mask;
    if (Status status = readPicture(path, mask); !status.ok())
        return status;
    for (int y = 0; y < truth.height(); ++y)
        for (int x = 0; x < truth.width(); ++x)
            if (mask.at(x, y) != 255)
                truth.at(x, y) = kUnknown;
    return {};
}

/// Removes what the other eye does not see: there, its own truth is another surface.
void removeHidden(const Image<float>& other, Image<float>& truth) {
    for (int y = 0; y < truth.height(); ++y) {
        for (int x = 0; x < truth.width(); ++x) {
            const float d = truth.at(x, y);
            if (d < 0)
                continue;
            const int xr = static_cast<int>(std::lround(static_cast<float>(x) - d));
            if (xr < 0 || (other.at(xr, y) >= 0 && std::abs(other.at(xr, y) - d) > 1))
                truth.at(x, y) = kUnknown;
        }
    }
}

struct Files {
    std::string left, right, truth, other_truth, mask;
    float scale = 1;
};

Files filesOf(const std::string& root, const PairEntry& entry) {
    if (entry.group == "kitti") {
        const std::string base = root + "/kitti2015-gt/training/", file = entry.name + "_10.png";
        return {base + "image_2/" + file,
                base + "image_3/" + file,
                base + "disp_noc_0/" + file,
                "",
                "",
                1 / 256.F};
    }
    if (entry.group == "middv3") {
        const std::string base = root + "/middlebury-v3-trainingQ/" + entry.name + "/";
        return {base + "im0.png",       base + "im1.png",
                base + "disp0GT.pfm",   "",
                base + "mask0nocc.png", 1};
    }
    if (entry.group == "eth3d") {
        const std::string base = root + "/eth3d-two-view-gt/" + entry.name + "/";
        return {base + "im0.png", base + "im1.png", base + "disp0.pfm", "", "", 1};
    }
    const std::string base = root + "/middlebury-2001-2006/" + entry.name + "/";
    if (entry.name == "Tsukuba")
        return {base + "imL.png",    base + "imR.png", base + "truedisp.pgm", "",
                base + "nonocc.png", 1 / 16.F};
    if (entry.name == "Venus")
        return {base + "imL.png", base + "imR.png", base + "disp2.pgm", base + "disp6.pgm", "",
                1 / 8.F};
    if (entry.name == "sawtooth")
        return {base + "im2.ppm", base + "im6.ppm", base + "disp2.pgm", base + "disp6.pgm", "",
                1 / 8.F};
    if (entry.name == "Cones" || entry.name == "Teddy")
        return {base + "imL.png", base + "imR.png", base + "disp2.png", base + "disp6.png", "",
                1 / 4.F};
    return {base + "view1.png",
            base + "view5.png",
            base + "disp1.png",
            base + "disp5.png",
            "",
            1 / 3.F};
}

}  // namespace

camera::Result<std::vector<PairEntry>> readPairList(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        return Status{ErrorCode::kCannotOpenFile, "cannot read the list of pairs " + path};
    std::vector<PairEntry> entries;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        PairEntry entry;
        if (!(words >> entry.group))
            continue;
        if (!(words >> entry.name >> entry.levels) || entry.levels < 16 || entry.levels % 16 != 0)
            return Status{ErrorCode::kInvalidFile,
                          path + ": expected 'group pair levels', got '" + line + "'"};
        entries.push_back(entry);
    }
    return entries;
}

Status readTruePair(const std::string& folder, const PairEntry& entry, TruePair& pair) {
    const Files files = filesOf(folder, entry);
    pair.entry = entry;
    Status status = readPicture(files.left, pair.left);
    if (status.ok())
        status = readPicture(files.right, pair.right);
    if (status.ok())
        status = readTruth(files.truth, files.scale, pair.truth);
    if (status.ok() && !files.mask.empty())
        status = applyMask(files.mask, pair.truth);
    if (status.ok() && !files.other_truth.empty()) {
        Image<float> other;
        status = readTruth(files.other_truth, files.scale, other);
        if (status.ok())
            removeHidden(other, pair.truth);
    }
    if (status.ok() &&
        (pair.truth.width() != pair.left.width() || pair.truth.height() != pair.left.height() ||
         pair.right.width() != pair.left.width()))
        status = {ErrorCode::kInvalidFile, files.truth + " has another size than its picture"};
    return status;
}

}  // namespace kova::bench
