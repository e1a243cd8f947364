#include "bench/bench_command.h"

#include <cstdio>
#include <cstdlib>

#include "bench/depth/depth_bench.h"
#include "bench/depth/fit_confidence.h"
#include "bench/speed/speed_bench.h"

namespace kova::bench {

namespace {

class BenchCommand : public tools::Command {
public:
    std::string name() const override { return "bench"; }
    std::string description() const override {
        return "Measure depth and speed beside OpenCV's matchers";
    }
    void declare(CLI::App& app) override;
    int run() override;

private:
    int runDepth() const;
    int runConfidence() const;
    int runSpeed() const;
    camera::Status readPairs(const std::string& list, std::vector<TruePair>& pairs) const;

    CLI::App* depth_ = nullptr;
    CLI::App* confidence_ = nullptr;
    std::string data_, pairs_ = KOVA_BENCH_FOLDER "/pairs_reporting.txt";
    bool json_ = false, groups_only_ = false, all_targets_ = false;
    int threads_ = 2, runs_ = 21;
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

int BenchCommand::run() {
    if (depth_->parsed())
        return runDepth();
    return confidence_->parsed() ? runConfidence() : runSpeed();
}

}  // namespace

std::unique_ptr<tools::Command> makeBenchCommand() {
    return std::make_unique<BenchCommand>();
}

}  // namespace kova::bench
