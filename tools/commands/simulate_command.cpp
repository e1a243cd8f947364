#include "tools/commands/simulate_command.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "camera/recording/recording_writer.h"
#include "camera/rectification/rectifier.h"
#include "camera/simulation/sequence.h"
#include "camera/simulation/truth_files.h"
#include "sdk/modes.h"
#include "tools/progress.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

bino::CAMERA_MODEL modelOf(const std::string& name) {
    if (name == "R0")
        return bino::CAMERA_MODEL_QUELVAR_R0;
    if (name == "R1")
        return bino::CAMERA_MODEL_QUELVAR_R1;
    if (name == "P0")
        return bino::CAMERA_MODEL_QUELVAR_P0;
    return bino::CAMERA_MODEL_QUELVAR_P1;
}

class SimulateCommand : public Command {
public:
    std::string name() const override { return "simulate"; }
    std::string description() const override {
        return "Render a drive through a known scene into a recording";
    }

    void declare(CLI::App& app) override {
        app.add_option("-o,--output", output_, "Recording to write (.kova)");
        app.add_option("--scene", scene_, "Scene; see --list-scenes")->capture_default_str();
        app.add_option("--seed", seed_, "Seed of scene, noise and residual calibration error")
            ->capture_default_str();
        auto* frames = app.add_option("--frames", frames_, "Number of frames (default 100)")
                           ->check(CLI::Range(1, 1000000));
        app.add_option("--seconds", seconds_, "Length instead of a number of frames")
            ->check(CLI::Range(0.001, 86400.0))
            ->excludes(frames);
        app.add_option("--mode", mode_, "Size and rate, for instance HD720_30FPS")
            ->capture_default_str();
        app.add_option("--model", model_, "Camera model")
            ->capture_default_str()
            ->check(CLI::IsMember({"R0", "R1", "P0", "P1"}));
        app.add_option("--camera-height", options_.camera_height_mm,
                       "Height of the camera above the ground [mm]")
            ->check(CLI::Range(50.0, 5000.0));
        app.add_option("--tilt", options_.tilt_deg, "Tilt of the camera, down [degrees]")
            ->check(CLI::Range(-45.0, 60.0));
        app.add_option("--roll", options_.roll_deg, "Roll of the camera [degrees]")
            ->check(CLI::Range(-45.0, 45.0));
        app.add_option("--noise-scale", noise_scale_, "Factor on the noise")
            ->capture_default_str()
            ->check(CLI::Range(0.0, 100.0));
        app.add_option("--texture-scale", options_.texture_scale,
                       "Factor on the contrast of all textures")
            ->capture_default_str()
            ->check(CLI::Range(0.0, 10.0));
        app.add_flag("--no-residual", no_residual_,
                     "Render exactly what the calibration says, without residual error");
        app.add_flag("--distorted", distorted_, "Pictures with lens distortion, not rectified");
        CLI::Option* jpeg = app.add_flag("--jpeg", jpeg_, "Frames as JPEG 4:2:2");
        app.add_option("--jpeg-quality", jpeg_quality_, "Quality of the JPEG frames")
            ->needs(jpeg)
            ->capture_default_str()
            ->check(CLI::Range(1, 100));
        app.add_flag("--truth", truth_, "Write the truth into the folder NAME.truth beside it");
        app.add_flag("-f,--force", force_, "Replace an existing recording");
        app.add_flag("--list-scenes", list_, "List the scenes and end");
    }

    int run() override {
        if (list_) {
            for (const camera::SceneDescription& scene : camera::sceneList())
                std::printf("%-18s %s\n", scene.name.c_str(), scene.description.c_str());
            return kDone;
        }
        if (output_.empty())
            return fail({camera::ErrorCode::kInvalidArgument,
                         "no recording named; give one with --output NAME.kova"});
        const camera::Status status = simulate();
        return status.ok() ? kDone : fail(status);
    }

private:
    camera::Result<const bino::ResolutionFpsMode*> findMode() const {
        const auto& offered = bino::camera_model_modes(modelOf(model_));
        std::string known;
        for (const bino::RESOLUTION_FPS_MODE mode : offered) {
            const bino::ResolutionFpsMode* row = bino::find_resolution_fps_mode(mode);
            if (mode_ == row->name)
                return row;
            known += (known.empty() ? "" : ", ") + std::string(row->name);
        }
        return camera::Status(camera::ErrorCode::kInvalidArgument,
                              "model " + model_ + " has no mode '" + mode_ + "'; it has " + known);
    }

    camera::Status simulate();
    camera::Status writeFrames(camera::SimulatedSequence& sequence, camera::RecordingWriter& writer,
                               camera::TruthFolder& truth, int count);

    std::string output_, scene_ = "demo", mode_ = "SD400_30FPS", model_ = "P1";
    std::uint32_t seed_ = 1;
    int frames_ = 0, jpeg_quality_ = 85;
    double seconds_ = 0, noise_scale_ = 1;
    camera::SceneOptions options_;
    bool no_residual_ = false, distorted_ = false, jpeg_ = false, truth_ = false, force_ = false,
         list_ = false;
};

camera::Status SimulateCommand::simulate() {
    const auto mode = findMode();
    if (!mode.ok())
        return mode.status();
    camera::Result<camera::Scene> scene = camera::makeScene(scene_, seed_, options_);
    if (!scene.ok())
        return scene.status();
    camera::RigOptions rig;
    rig.width = mode.value()->width;
    rig.height = mode.value()->height;
    rig.fps = mode.value()->fps;
    rig.seed = seed_;
    rig.residual = !no_residual_;
    rig.lens_distortion = distorted_;
    rig.noise_scale = noise_scale_;
    camera::SimulatedSequenceOptions sequence_options;
    sequence_options.jpeg = jpeg_;
    sequence_options.jpeg_quality = jpeg_quality_;
    sequence_options.model = modelOf(model_);
    camera::SimulatedSequence sequence(
        camera::Renderer(std::move(scene.value()), camera::makeRig(rig)), sequence_options);

    camera::RecordingOptions recording;
    recording.overwrite = force_;
    recording.settings = {{"simulated_scene", scene_},
                          {"simulated_seed", std::to_string(seed_)},
                          {"simulated_residual", no_residual_ ? "no" : "yes"}};
    camera::TruthFolder truth;
    if (truth_) {
        auto made = camera::TruthFolder::create(camera::TruthFolder::nameFor(output_), force_);
        if (!made.ok())
            return made.status();
        truth = std::move(made.value());
    }
    auto writer = camera::RecordingWriter::create(output_, sequence.stream(), sequence.camera(),
                                                  sequence.calibration(), recording);
    if (!writer.ok())
        return writer.status();
    int count = frames_ > 0 ? frames_ : 100;
    if (seconds_ > 0)
        count = std::max(1, static_cast<int>(std::lround(seconds_ * mode.value()->fps)));
    if (camera::Status s = writeFrames(sequence, *writer.value(), truth, count); !s.ok())
        return s;
    if (camera::Status s = writer.value()->finish(); !s.ok())
        return s;
    return truth_ ? truth.finish(sequence.scene(), sequence.renderer().rig()) : camera::Status();
}

camera::Status SimulateCommand::writeFrames(camera::SimulatedSequence& sequence,
                                            camera::RecordingWriter& writer,
                                            camera::TruthFolder& truth, int count) {
    // Truth is that of the rectified left picture, which is what the pipeline works on.
    camera::Status status;
    const auto rectifier = camera::Rectifier::make(sequence.calibration(), status);
    if (!rectifier)
        return status;
    const camera::RectifiedGeometry& geometry = rectifier->geometry();
    const camera::CameraIntrinsics view{geometry.fx, geometry.fy, geometry.cx, geometry.cy, {}, {}};
    const camera::RayTable rectified(view, geometry.width, geometry.height);

    Progress progress("simulating");
    camera::RawFrame frame;
    camera::FrameTruth pixels;
    for (int i = 0; i < count; ++i) {
        progress.update(i, count);
        const bool plain = truth_ && !distorted_;
        if (camera::Status s = sequence.next(frame, plain ? &pixels : nullptr); !s.ok())
            return s;
        if (camera::Status s = writer.write(frame); !s.ok())
            return s;
        if (!truth_)
            continue;
        if (distorted_)
            sequence.renderer().truth(static_cast<double>(frame.t_ns) * 1e-9,
                                      frame.exposure_us * 1e-6, rectified,
                                      rectifier->rectifiedFromLeft(), pixels);
        if (camera::Status s = truth.write(i, frame.t_ns, pixels); !s.ok())
            return s;
    }
    return {};
}

}  // namespace

std::unique_ptr<Command> makeSimulateCommand() {
    return std::make_unique<SimulateCommand>();
}

}  // namespace kova::tools
