#include "bench/bench_command.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "bench/depth/depth_bench.h"
#include "bench/depth/fit_confidence.h"
#include "bench/depth/simulator_bench.h"
#include "bench/detection/detection_bench.h"
#include "bench/detection/real_bench.h"
#include "bench/rectification/rows_bench.h"
#include "bench/speed/pipeline_bench.h"
#include "bench/speed/speed_bench.h"

namespace kova::bench {

namespace {

class BenchCommand : public tools::Command {
public:
    std::string name() const override { return "bench"; }
    std::string description() const override {
        return "Measure depth, speed and detection beside what OpenCV offers";
    }
    void declare(CLI::App& app) override;
    int run() override;

private:
    int runDepth() const;
    int runSimulator() const;
    int runConfidence() const;
    int runSpeed() const;
    void declareDetection(CLI::App& app);
    int runDetection() const;
    int runRealDetection() const;
    int runStixelFit() const;
    void declarePipeline(CLI::App& app);
    int runPipeline() const;
    void declareRows(CLI::App& app);
    int runRows() const;
    camera::WorkMode workMode() const;
    camera::Status readPairs(const std::string& list, std::vector<TruePair>& pairs) const;

    CLI::App* depth_ = nullptr;
    CLI::App* confidence_ = nullptr;
    CLI::App* detection_ = nullptr;
    CLI::App* pipeline_ = nullptr;
    CLI::App* rows_ = nullptr;
    RowsBenchOptions rows_options_;
    std::string sequence_;
    std::string recording_, mode_ = "fast";
    int frames_ = 60;
    std::string data_, pairs_ = KOVA_BENCH_FOLDER "/pairs_reporting.txt";
    bool json_ = false, groups_only_ = false, all_targets_ = false, simulator_ = false;
    int threads_ = 2, runs_ = 21;
    DetectionBenchOptions drives_;
    SimulatorBenchOptions simulated_;
    std::string size_ = "640x400";
    bool quick_ = false, variants_ = false, real_ = false, each_ = false, fit_ = false;
};

void BenchCommand::declare(CLI::App& app) {
    app.require_subcommand(1);
    const char* root = std::getenv("KOVA_TEST_DATA");
    data_ = root ? root : "";
    const auto common = [this](CLI::App* verb) {
        verb->add_option("--data", data_,
                         "Folder of the real pairs (default: the variable KOVA_TEST_DATA)");
        verb->add_flag("--json", json_, "The report for machines");
    };
    depth_ = app.add_subcommand("depth", "Errors on real pairs with known depth");
    common(depth_);
    depth_->add_option("--pairs", pairs_, "List of pairs")->capture_default_str();
    depth_->add_flag("--groups", groups_only_, "Only the means of the groups");
    depth_->add_flag("--simulator", simulator_,
                     "Simulated scenes instead: depth errors at 1 to 6 m, and what is too near");
    depth_->add_option("--seeds", simulated_.seeds, "With --simulator: drives per scene")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    depth_
        ->add_option("--seed-base", simulated_.seed_base,
                     "With --simulator: first seed; those below 1000 are for tuning")
        ->capture_default_str();
    depth_->add_option("--scenes", simulated_.scenes, "With --simulator: only these")
        ->delimiter(',')
        ->check(CLI::IsMember(simulatorBenchScenes()));
    confidence_ =
        app.add_subcommand("confidence", "Fit the tables of confidences on the tuning pairs");
    common(confidence_);
    CLI::App* speed = app.add_subcommand("speed", "Times of all work modes");
    common(speed);
    speed->add_option("--threads", threads_, "Threads of all methods")
        ->capture_default_str()
        ->check(CLI::Range(1, 256));
    speed->add_option("--runs", runs_, "Interleaved runs")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000));
    speed->add_flag("--all-targets", all_targets_, "Every SIMD target of this CPU");
    declareDetection(app);
    declarePipeline(app);
    declareRows(app);
}

void BenchCommand::declareDetection(CLI::App& app) {
    detection_ = app.add_subcommand("detection", "Detection on simulated drives with known truth");
    detection_->add_flag("--json", json_, "The report for machines");
    detection_->add_flag("--real", real_,
                         "Instead on real sequences and pairs, against what stands there");
    detection_->add_flag("--each", each_, "With --real: every miss and every false alarm");
    detection_->add_option("--data", data_,
                           "Folder of the real data (default: the variable KOVA_TEST_DATA)");
    detection_->add_flag("--quick", quick_, "4 drives per group, 6 frames each: a minute or two");
    detection_->add_flag("--fit", fit_,
                         "Instead fit how stixels are judged to the candidates of these drives, "
                         "at 640x400, some also at 1280x720 and with a car's rig, and print the "
                         "table");
    detection_->add_option("--seeds", drives_.seeds, "Drives per group")
        ->capture_default_str()
        ->check(CLI::Range(1, 10000));
    detection_
        ->add_option("--frames", drives_.frames, "Frames per drive; the first two are not judged")
        ->capture_default_str()
        ->check(CLI::Range(3, 10000));
    detection_
        ->add_option("--seed-base", drives_.seed_base,
                     "First seed; those below 1000 are for tuning")
        ->capture_default_str();
    detection_->add_option("--size", size_, "Of one eye's picture")
        ->capture_default_str()
        ->check(CLI::IsMember({"640x400", "1280x720", "1280x800"}));
    detection_->add_flag("--variants", variants_,
                         "Also with 1.5 times the noise and with half the contrast of textures");
    detection_->add_option("--noise", drives_.noise, "Factor on the sensor's noise")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 10.0));
    detection_->add_option("--texture", drives_.texture, "Factor on the contrast of textures")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 10.0));
    detection_->add_option("--baseline", drives_.baseline_mm, "Of the rig [mm]")
        ->capture_default_str()
        ->check(CLI::Range(20.0, 2000.0));
    detection_
        ->add_option("--camera-height", drives_.camera_height_mm,
                     "Over the ground instead of 400, 600 and 1200 in turn [mm]")
        ->check(CLI::Range(100.0, 3000.0));
    detection_->add_option("--tilt", drives_.tilt_deg, "Downwards instead of 8 [degrees]")
        ->check(CLI::Range(-10.0, 45.0));
    detection_->add_option("--groups", drives_.groups, "Only these groups of scenes")
        ->delimiter(',')
        ->check(CLI::IsMember(detectionGroups()));
    detection_->add_flag("!--no-plain", drives_.plain, "Leave the plain detector out");
    detection_->add_flag("!--no-alignment", drives_.align_rows, "Without aligning the rows");
    detection_->add_flag("--explain", drives_.explain,
                         "A line on standard error for every object missed and every false alarm");
    detection_->add_option("--cache", drives_.cache,
                           "Folder that keeps rendered drives for the next run; delete it after "
                           "changes of the simulator");
}

void BenchCommand::declarePipeline(CLI::App& app) {
    pipeline_ = app.add_subcommand("pipeline", "Times of a whole replay, from file to views");
    pipeline_->add_option("file", recording_, "Recording")->required();
    pipeline_->add_option("--mode", mode_, "Work mode")
        ->check(CLI::IsMember({"fast", "medium", "slow"}))
        ->capture_default_str();
    pipeline_->add_option("--threads", threads_, "Threads beside that which decodes")
        ->capture_default_str()
        ->check(CLI::Range(1, 256));
    pipeline_->add_option("--frames", frames_, "At most so many frames")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    pipeline_->add_flag("--json", json_, "The report for machines");
}

void BenchCommand::declareRows(CLI::App& app) {
    rows_ = app.add_subcommand("rows", "How well the rows of the eyes are aligned, simulated");
    rows_->add_option("--sequence", sequence_,
                      "Instead on a real sequence, judged by matched features");
    rows_->add_option("--scenes", rows_options_.scenes, "Scenes")->delimiter(',');
    rows_->add_option("--seeds", rows_options_.seeds, "Drives per scene")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    rows_
        ->add_option("--seed-base", rows_options_.seed_base,
                     "First seed; those below 1000 are for tuning")
        ->capture_default_str();
    rows_->add_option("--frames", rows_options_.frames, "Frames per drive")
        ->capture_default_str()
        ->check(CLI::Range(2, 10000));
    rows_->add_option("--mode", mode_, "Work mode")
        ->check(CLI::IsMember({"fast", "medium", "slow"}))
        ->capture_default_str();
    rows_->add_option("--size", size_, "Of one eye's picture")
        ->capture_default_str()
        ->check(CLI::IsMember({"640x400", "1280x720", "1280x800"}));
}

camera::Status BenchCommand::readPairs(const std::string& list,
                                       std::vector<TruePair>& pairs) const {
    if (data_.empty())
        return {camera::ErrorCode::kInvalidArgument,
                "no folder of real pairs: give --data or set KOVA_TEST_DATA"};
    auto entries = readPairList(list);
    if (!entries.ok())
        return entries.status();
    for (const PairEntry& entry : entries.value()) {
        TruePair pair;
        if (camera::Status status = readTruePair(data_, entry, pair); !status.ok())
            return status;
        pairs.push_back(std::move(pair));
    }
    return {};
}

int BenchCommand::runDepth() const {
    std::vector<TruePair> pairs;
    if (camera::Status status = readPairs(pairs_, pairs); !status.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
        return 1;
    }
    const DepthReport report = benchDepth(pairs);
    std::fputs((json_ ? depthJson(report) : depthTable(report, !groups_only_)).c_str(), stdout);
    return 0;
}

int BenchCommand::runSimulator() const {
    SimulatorReport report;
    if (camera::Status status = benchSimulator(simulated_, report); !status.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
        return 1;
    }
    std::fputs((json_ ? simulatorJson(report) : simulatorTable(report)).c_str(), stdout);
    return 0;
}

int BenchCommand::runConfidence() const {
    std::vector<TruePair> pairs;
    if (camera::Status status = readPairs(KOVA_BENCH_FOLDER "/pairs_tuning.txt", pairs);
        !status.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
        return 1;
    }
    for (const bool half : {false, true}) {
        const camera::ConfidenceTable table = fitConfidence(pairs, half);
        std::printf("const ConfidenceTable %s = {", half ? "kHalfConfidence" : "kFullConfidence");
        for (std::size_t i = 0; i < table.size(); ++i)
            std::printf("%s%d,", i % 16 == 0 ? "\n    " : " ", table[i]);
        std::puts("\n};");
    }
    return 0;
}

int BenchCommand::runSpeed() const {
    TruePair pair;
    if (camera::Status status = readTruePair(data_, {"middv3", "Motorcycle", 80}, pair);
        !status.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
        return 1;
    }
    const SpeedReport report = benchSpeed(pair, threads_, runs_, all_targets_);
    std::fputs((json_ ? speedJson(report) : speedTable(report)).c_str(), stdout);
    return 0;
}

int BenchCommand::runDetection() const {
    DetectionBenchOptions options = drives_;
    std::sscanf(size_.c_str(), "%dx%d", &options.width, &options.height);
    if (quick_) {
        options.seeds = std::min(options.seeds, 4);
        options.frames = std::min(options.frames, 6);
    }
    options.progress = isatty(STDERR_FILENO);
    std::vector<DetectionBenchOptions> runs = {options};
    if (variants_) {
        runs.resize(3, options);
        runs[1].noise *= 1.5;
        runs[2].texture *= 0.5;
    }
    for (const DetectionBenchOptions& run : runs) {
        DetectionReport report;
        if (camera::Status status = benchDetection(run, report); !status.ok()) {
            std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
            return 1;
        }
        // With variants one JSON document after the other.
        std::fputs((json_ ? detectionReportJson(report) : detectionTable(report)).c_str(), stdout);
        std::fflush(stdout);
    }
    return 0;
}

/// Larger pictures, which take four times as long, and a car's rig, wide, high and level, get fewer
/// drives, the car's count twice. Without it what has much disparity would always be near, and low
/// what is far down.
int BenchCommand::runStixelFit() const {
    struct Set {
        int width, height;
        double baseline_mm;
        int part;
        double camera_height_mm, tilt_deg;
        std::vector<std::string> groups;
        double weight;
    };
    constexpr double kAny = std::numeric_limits<double>::quiet_NaN();
    const Set sets[] = {{640, 400, 120, 1, kAny, kAny, {}, 1},
                        {1280, 720, 120, 5, kAny, kAny, {}, 1},
                        {1280, 720, 120, 2, kAny, kAny, {"street"}, 1},
                        {640, 400, 540, 4, 1600, 2, {}, 2},
                        {640, 400, 540, 1, 1600, 2, {"street"}, 2},
                        {1280, 720, 540, 3, 1600, 2, {"street"}, 2},
                        {1280, 720, 540, 6, 1600, 2, {"posts", "objects", "overhang", "kerb"}, 2}};
    std::vector<StixelSample> samples;
    for (const Set& set : sets) {
        DetectionBenchOptions options = drives_;
        options.width = set.width;
        options.height = set.height;
        options.baseline_mm = set.baseline_mm;
        options.camera_height_mm = set.camera_height_mm;
        options.tilt_deg = set.tilt_deg;
        if (options.groups.empty())
            options.groups = set.groups;
        options.seeds = (drives_.seeds + set.part - 1) / set.part;
        options.fit = true;
        options.plain = false;
        options.progress = isatty(STDERR_FILENO);
        DetectionReport report;
        if (camera::Status status = benchDetection(options, report); !status.ok()) {
            std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
            return 1;
        }
        const int frames = samples.empty() ? 0 : samples.back().frame + 1;
        for (StixelSample sample : report.samples) {
            sample.frame += frames;
            sample.weight *= set.weight;
            samples.push_back(sample);
        }
    }
    for (const bool fast : {false, true}) {
        std::vector<StixelSample> some;
        std::copy_if(samples.begin(), samples.end(), std::back_inserter(some),
                     [&](const StixelSample& s) { return s.fast == fast; });
        std::printf("const StixelJudge %s = {\n%s};\n\n%s\n",
                    fast ? "kHalfStixelJudge" : "kFullStixelJudge",
                    stixelJudgeSource(fitStixelJudge(some)).c_str(), stixelFitReport(some).c_str());
        std::fflush(stdout);
    }
    return 0;
}

int BenchCommand::runRealDetection() const {
    RealReport report;
    if (camera::Status s = benchRealDetection(
            data_, KOVA_BENCH_FOLDER "/../tests/data/real_objects.csv", drives_.align_rows, report);
        !s.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", s.message().c_str());
        return 1;
    }
    std::fputs((json_ ? realJson(report, each_) : realTable(report, each_)).c_str(), stdout);
    return 0;
}

camera::WorkMode BenchCommand::workMode() const {
    return mode_ == "fast"     ? camera::WorkMode::kFast
           : mode_ == "medium" ? camera::WorkMode::kMedium
                               : camera::WorkMode::kSlow;
}

int BenchCommand::runRows() const {
    RowsBenchOptions options = rows_options_;
    std::sscanf(size_.c_str(), "%dx%d", &options.width, &options.height);
    options.mode = workMode();
    if (camera::Status status =
            sequence_.empty() ? benchRows(options) : benchRealRows(sequence_, options.mode);
        !status.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", status.message().c_str());
        return 1;
    }
    return 0;
}

int BenchCommand::runPipeline() const {
    const auto report = benchPipeline(recording_, workMode(), threads_, frames_);
    if (!report.ok()) {
        std::fprintf(stderr, "kova bench: %s\n", report.status().message().c_str());
        return 1;
    }
    std::fputs((json_ ? pipelineJson(report.value()) : pipelineTable(report.value())).c_str(),
               stdout);
    return 0;
}

int BenchCommand::run() {
    if (detection_->parsed())
        return real_ ? runRealDetection() : (fit_ ? runStixelFit() : runDetection());
    if (pipeline_->parsed())
        return runPipeline();
    if (rows_->parsed())
        return runRows();
    if (depth_->parsed())
        return simulator_ ? runSimulator() : runDepth();
    return confidence_->parsed() ? runConfidence() : runSpeed();
}

}  // namespace

std::unique_ptr<tools::Command> makeBenchCommand() {
    return std::make_unique<BenchCommand>();
}

}  // namespace kova::bench
