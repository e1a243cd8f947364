#include "tools/commands/import_command.h"

#include <cstdio>
#include <filesystem>

#include "camera/datasets/import.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

namespace fs = std::filesystem;

class ImportCommand : public Command {
public:
    std::string name() const override { return "import"; }
    std::string description() const override {
        return "Write a set of stereo pictures as a recording";
    }

    void declare(CLI::App& app) override {
        app.add_option("folder", folder_, "Folder of the pictures")->required();
        app.add_option("-o,--output", output_, "Recording to write (default: FOLDER's name.kova)");
        app.add_option("--layout", layout_, "How the folder is laid out (default: found out)")
            ->check(CLI::IsMember(camera::datasetLayoutNames()));
        app.add_option("--fps", fps_, "Frames per second, where the set has no time stamps")
            ->check(CLI::Range(0.001, 10000.0));
        app.add_option("--calibration", calibration_,
                       "Calibration instead of the set's own: one file, two, or a folder")
            ->expected(1, 2);
        app.add_option("--intrinsics", intrinsics_,
                       "fx,fy,cx,cy in px and the baseline in mm, of rectified pictures without a "
                       "calibration")
            ->delimiter(',')
            ->expected(5);
        app.add_flag("--colour", colour_, "Take the colour pictures where a set has grey ones too");
        app.add_flag("--png", png_, "Store PNG instead of zstd");
        app.add_flag("-f,--force", force_, "Replace an existing recording");
    }

    int run() override {
        camera::SequenceOptions options;
        options.fps = fps_;
        options.colour = colour_;
        options.layout = camera::datasetLayoutFromName(layout_);
        for (const std::string& path : calibration_) options.calibration.emplace_back(path);
        if (intrinsics_.size() == 5)
            options.intrinsics = {intrinsics_[0], intrinsics_[1], intrinsics_[2], intrinsics_[3],
                                  intrinsics_[4]};
        const auto sequence = camera::openSequence(folder_, options);
        if (!sequence.ok())
            return fail(sequence.status());
        const std::string output = output_.empty() ? sequence.value().name + ".kova" : output_;

        camera::RecordingOptions recording;
        recording.overwrite = force_;
        if (png_)
            recording.compression = camera::RecordingCompression::kPng;
        Progress progress("Importing");
        const auto report =
            camera::importSequence(sequence.value(), output, recording, [&](int done, int all) {
                progress.update(done, all);
                return true;
            });
        progress.finish();
        if (!report.ok())
            return fail(report.status());
        const camera::StereoSequence& s = sequence.value();
        std::printf("%s: %d frames, %dx%d px per eye, %s layout, %zu IMU samples, %s\n",
                    output.c_str(), report.value().written, s.width, s.height,
                    camera::nameOf(s.layout), s.imu.size(), sizeText(report.value().bytes).c_str());
        if (s.unpaired > 0)
            std::fprintf(stderr, "kova: warning: %d pictures without a partner were left out\n",
                         s.unpaired);
        return kDone;
    }

private:
    std::string folder_, output_, layout_;
    double fps_ = 0;
    std::vector<std::string> calibration_;
    std::vector<double> intrinsics_;
    bool colour_ = false, png_ = false, force_ = false;
};

}  // namespace

std::unique_ptr<Command> makeImportCommand() {
    return std::make_unique<ImportCommand>();
}

}  // namespace kova::tools
