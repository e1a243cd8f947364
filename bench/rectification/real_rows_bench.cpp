#include <algorithm>
#include <cstdio>

#include "bench/grey_picture.h"
#include "bench/rectification/rows_bench.h"
#include "camera/calibration/epipolar.h"
#include "camera/datasets/stereo_sequence.h"
#include "camera/pipeline/pipeline.h"

namespace kova::bench {

using camera::Status;

namespace {

/// Share of the pixels that are measured.
double density(const camera::DisparityMap& map) {
    std::int64_t measured = 0;
    const int width = map.disparity.width(), height = map.disparity.height();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) measured += camera::isDisparity(map.disparity.at(x, y));
    return static_cast<double>(measured) / width / height;
}

}  // namespace

Status benchRealRows(const std::string& folder, camera::WorkMode mode) {
    auto sequence = camera::openSequence(folder, {});
    if (!sequence.ok()) {
        camera::SequenceOptions options;
        options.fps = 10;  // of a set that has no times; means nothing here
        sequence = camera::openSequence(folder, options);
    }
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
    camera::EpipolarCheck before(g.disparityOffset()), after(g.disparityOffset());
    camera::DecodedFrame frame;
    camera::RowOffset::Terms last{};
    double share[2] = {0, 0};
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
        if (i > 0) {
            share[0] += density(plain->disparity()) / static_cast<double>(pairs.size() - 1);
            share[1] += density(aligned->disparity()) / static_cast<double>(pairs.size() - 1);
        }
        if (i == 0 || i % std::max<std::size_t>(pairs.size() / 10, 1) != 0)
            continue;
        before.add(plain->left(), plain->right());
        after.add(aligned->left(), aligned->right());
    }
    const camera::EpipolarCheck* checks[] = {&before, &after};
    for (int i = 0; i < 2; ++i) {
        const camera::EpipolarReport report = checks[i]->report();
        std::printf(
            "%-8s alignment: rows of %d features apart: median %+.3f px, of the size "
            "%.3f px; %.2f %% of the pixels measured\n",
            i == 0 ? "without" : "with", report.matches, report.median_dy_px,
            report.median_abs_dy_px, 100 * share[i]);
    }
    return {};
}

}  // namespace kova::bench
