#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>

#include "bench/rectification/rows_bench.h"
#include "camera/calibration/epipolar.h"
#include "camera/datasets/stereo_sequence.h"
#include "camera/pipeline/pipeline.h"

namespace kova::bench {

using camera::Status;

namespace {

bool readGrey(const std::filesystem::path& path, camera::Image<std::uint8_t>& image) {
    const cv::Mat picture = cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
    if (picture.empty())
        return false;
    image.resize(picture.cols, picture.rows);
    for (int y = 0; y < picture.rows; ++y)
        std::memcpy(image.row(y), picture.ptr(y), static_cast<std::size_t>(picture.cols));
    return true;
}

double millisecondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
        .count();
}

}  // namespace

Status benchRealRows(const std::string& folder, camera::WorkMode mode) {
    camera::SequenceOptions options;
    options.fps = 10;  // of sets that have no times; means nothing here
    const auto sequence = camera::openSequence(folder, options);
    if (!sequence.ok())
        return sequence.status();
    const auto& pairs = sequence.value().pairs;
    Status status;
    const auto aligned = camera::Pipeline::make(sequence.value().calibration, status);
    const auto plain = camera::Pipeline::make(sequence.value().calibration, status);
    if (!aligned || !plain)
        return status;
    const camera::RectifiedGeometry& g = plain->geometry();
    camera::PipelineSettings settings;
    settings.work_mode = mode;
    settings.distance = camera::DistanceRange(g);
    settings.detect = false;
    camera::RowAligner timed(g);
    camera::EpipolarCheck before(g.disparityOffset()), after(g.disparityOffset());
    camera::DecodedFrame frame;
    camera::RowOffset::Terms last{};
    double least_ms = std::numeric_limits<double>::max();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (!readGrey(pairs[i].left, frame.pair.left) ||
            !readGrey(pairs[i].right, frame.pair.right))
            return {camera::ErrorCode::kInvalidFile, "cannot read " + pairs[i].left.string()};
        settings.align_rows = true;
        if (Status s = aligned->process(frame, settings); !s.ok())
            return s;
        const camera::RowOffset& o = aligned->rowOffset();
        if (o.terms != last)
            std::printf("from frame %zu: %+.3f px, with x %+.3f px, with y %+.3f px at the edge\n",
                        i, o.terms[0], o.terms[1], o.terms[2]);
        last = o.terms;
        settings.align_rows = false;
        if (Status s = plain->process(frame, settings); !s.ok())
            return s;
        timed.reset();
        const auto begin = std::chrono::steady_clock::now();
        timed.update(plain->left(), plain->right(), plain->disparity(), false);
        if (timed.frames() > 0)
            least_ms = std::min(least_ms, millisecondsSince(begin));
        if (i == 0 || i % std::max<std::size_t>(pairs.size() / 10, 1) != 0)
            continue;
        before.add(plain->left(), plain->right());
        after.add(aligned->left(), aligned->right());
    }
    for (const auto& [name, check] : {std::pair("without", &before), std::pair("with", &after)}) {
        const camera::EpipolarReport report = check->report();
        std::printf(
            "%-8s alignment: rows of %d features apart: median %+.3f px, of the size "
            "%.3f px\n",
            name, report.matches, report.median_dy_px, report.median_abs_dy_px);
    }
    std::printf("a frame that is looked at takes %.2f ms at least\n", least_ms);
    return {};
}

}  // namespace kova::bench
