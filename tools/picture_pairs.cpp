#include "tools/picture_pairs.h"

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cstring>
#include <filesystem>
#include <utility>

#include "camera/datasets/sequence_files.h"
#include "camera/recording/recording_reader.h"

namespace kova::tools {

namespace {

namespace fs = std::filesystem;
using Pairs = std::vector<camera::StereoSequence::Pair>;

class RecordedPairs : public PicturePairs {
public:
    explicit RecordedPairs(std::unique_ptr<camera::RecordingReader> reader)
        : reader_(std::move(reader)), decoder_(reader_->stream()) {}
    int count() const override { return reader_->frameCount(); }
    std::string name(int i) const override { return "frame " + std::to_string(i); }
    camera::Status read(int i, camera::StereoPair& pair) override {
        if (camera::Status s = reader_->read(i, frame_); !s.ok())
            return s;
        return decoder_.decode(frame_, pair);
    }
    const camera::StereoCalibration* calibration() const override {
        return reader_->calibration().width > 0 ? &reader_->calibration() : nullptr;
    }

private:
    std::unique_ptr<camera::RecordingReader> reader_;
    camera::FrameDecoder decoder_;
    camera::RawFrame frame_;
};

camera::Status readGrey(const fs::path& path, camera::Image<std::uint8_t>& image) {
    const cv::Mat m = cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
    if (m.empty())
        return {camera::ErrorCode::kInvalidFile, path.string() + ": cannot be read as a picture"};
    image.resize(m.cols, m.rows);
    for (int y = 0; y < m.rows; ++y)
        std::memcpy(image.row(y), m.ptr(y), static_cast<std::size_t>(m.cols));
    return {};
}

class FilePairs : public PicturePairs {
public:
    explicit FilePairs(Pairs pairs) : pairs_(std::move(pairs)) {}
    int count() const override { return static_cast<int>(pairs_.size()); }
    std::string name(int i) const override { return at(i).left.filename().string(); }
    camera::Status read(int i, camera::StereoPair& pair) override {
        if (camera::Status s = readGrey(at(i).left, pair.left); !s.ok())
            return s;
        return readGrey(at(i).right, pair.right);
    }

private:
    const camera::StereoSequence::Pair& at(int i) const {
        return pairs_[static_cast<std::size_t>(i)];
    }
    Pairs pairs_;
};

/// One picture that holds both eyes, the left one left.
class SideBySidePicture : public PicturePairs {
public:
    explicit SideBySidePicture(fs::path path) : path_(std::move(path)) {}
    int count() const override { return 1; }
    std::string name(int /*i*/) const override { return path_.filename().string(); }
    camera::Status read(int /*i*/, camera::StereoPair& pair) override {
        camera::Image<std::uint8_t> both;
        if (camera::Status s = readGrey(path_, both); !s.ok())
            return s;
        const int width = both.width() / 2;
        pair.left.resize(width, both.height());
        pair.right.resize(width, both.height());
        for (int y = 0; y < both.height(); ++y) {
            std::memcpy(pair.left.row(y), both.row(y), static_cast<std::size_t>(width));
            std::memcpy(pair.right.row(y), both.row(y) + width, static_cast<std::size_t>(width));
        }
        return {};
    }

private:
    fs::path path_;
};

constexpr std::pair<const char*, const char*> kFolders[] = {{"left", "right"},
                                                            {"image_l", "image_r"},
                                                            {"image_0", "image_1"},
                                                            {"image_2", "image_3"},
                                                            {"cam0/data", "cam1/data"}};
constexpr std::pair<const char*, const char*> kPrefixes[] = {
    {"left", "right"}, {"im0", "im1"}, {"imL", "imR"}, {"view1", "view5"}};

/// Pairs such as urban1_left, urban1_right.
Pairs pairsBySuffix(const fs::path& folder) {
    const std::string left_end = "_left", right_end = "_right";
    Pairs pairs;
    for (const fs::path& left : camera::picturesIn(folder)) {
        const std::string stem = left.stem().string();
        if (stem.size() <= left_end.size() ||
            stem.compare(stem.size() - left_end.size(), left_end.size(), left_end) != 0)
            continue;
        const fs::path right = left.parent_path() / (stem.substr(0, stem.size() - left_end.size()) +
                                                     right_end + left.extension().string());
        if (fs::exists(right))
            pairs.push_back({left, right, 0});
    }
    return pairs;
}

Pairs pairsOfFolder(const fs::path& folder) {
    int unpaired = 0;
    for (const char* below : {"", "mav0", "training"})
        for (const auto& [left, right] : kFolders) {
            const fs::path base = folder / below;
            if (fs::is_directory(base / left) && fs::is_directory(base / right))
                return camera::pairByName(camera::picturesIn(base / left), "",
                                          camera::picturesIn(base / right), "", unpaired);
        }
    for (const auto& [left, right] : kPrefixes) {
        Pairs pairs = camera::pairByName(camera::picturesIn(folder, left), left,
                                         camera::picturesIn(folder, right), right, unpaired);
        if (!pairs.empty())
            return pairs;
    }
    return pairsBySuffix(folder);
}

}  // namespace

camera::Result<std::unique_ptr<PicturePairs>> PicturePairs::open(const std::string& path,
                                                                 const std::string& right) {
    std::error_code error;
    if (fs::is_regular_file(path, error) && cv::haveImageReader(path)) {
        if (right.empty())
            return std::unique_ptr<PicturePairs>(std::make_unique<SideBySidePicture>(path));
        return std::unique_ptr<PicturePairs>(
            std::make_unique<FilePairs>(Pairs{{fs::path(path), fs::path(right), 0}}));
    }
    if (!fs::is_directory(path, error)) {
        camera::RecordingReaderOptions options;
        options.without_calibration = true;
        auto reader = camera::RecordingReader::open(path, options);
        if (!reader.ok())
            return reader.status();
        return std::unique_ptr<PicturePairs>(
            std::make_unique<RecordedPairs>(std::move(reader.value())));
    }
    int unpaired = 0;
    Pairs pairs = right.empty() ? pairsOfFolder(path)
                                : camera::pairByName(camera::picturesIn(path), "",
                                                     camera::picturesIn(right), "", unpaired);
    if (pairs.empty())
        return camera::Status(camera::ErrorCode::kInvalidFile,
                              path +
                                  ": no pairs of pictures; name them left* and right*, or put "
                                  "them into the folders left and right under equal names, or give "
                                  "the right eye's folder with --right");
    return std::unique_ptr<PicturePairs>(std::make_unique<FilePairs>(std::move(pairs)));
}

}  // namespace kova::tools
