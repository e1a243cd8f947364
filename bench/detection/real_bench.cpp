#include "bench/detection/real_bench.h"

#include "bench/depth/ground_truth.h"

namespace kova::bench {

namespace {

using camera::Status;
using camera::WorkMode;

/// The calibration of KITTI 2015's pairs.
camera::RectifiedGeometry kittiGeometry(const TruePair& pair) {
    return {pair.left.width(), pair.left.height(), 721.5377, 721.5377, 609.5593,
            172.854,           609.5593,           532.7};
}

Status comparePairs(const std::filesystem::path& data, WorkMode mode, PairAgreement& out) {
    for (int i = 1; i <= 8; ++i) {
        TruePair pair;
        const PairEntry entry{"kitti", "00000" + std::to_string(i), 128};
        if (Status s = readTruePair(data.string(), entry, pair); !s.ok())
            return s;
        const auto one = comparePair(pair, kittiGeometry(pair), mode);
        if (!one.ok())
            return one.status();
        out.add(one.value());
    }
    return {};
}

}  // namespace

Status benchRealDetection(const std::filesystem::path& data, const std::filesystem::path& list,
                          bool align_rows, RealReport& report) {
    const auto in_street = readRealObjects(list, kStreet.name);
    const auto in_room = readRealObjects(list, kRoom.name);
    const auto poses = readPoses(data / kStreet.folder / "poses.txt");
    for (const Status& s : {in_street.status(), in_room.status(), poses.status()})
        if (!s.ok())
            return s;
    for (const WorkMode mode : {WorkMode::kFast, WorkMode::kMedium}) {
        RealRow row;
        row.mode = mode == WorkMode::kFast ? "fast" : "medium";
        const auto street = detectSequence(data, kStreet, mode, align_rows);
        const auto room = detectSequence(data, kRoom, mode, align_rows);
        for (const Status& s : {street.status(), room.status()})
            if (!s.ok())
                return s;
        row.street = scoreRealObjects(street.value(), in_street.value());
        row.room = scoreRealObjects(room.value(), in_room.value());
        row.corridor = scoreCorridor(street.value(), poses.value());
        row.persistence = scorePersistence(street.value(), poses.value());
        if (Status s = comparePairs(data, mode, row.pairs); !s.ok())
            return s;
        report.rows.push_back(std::move(row));
    }
    return {};
}

}  // namespace kova::bench
