#include "tools/commands/list_command.h"

#include <cstdio>

#include "camera/pipeline/cameras.h"
#include "sdk/modes.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

class ListCommand : public Command {
public:
    std::string name() const override { return "list"; }
    std::string description() const override { return "List the attached cameras and their modes"; }

    void declare(CLI::App& app) override {
        app.footer(
            "Simulated cameras come from the environment variable KOVA_SIMULATED_CAMERAS, for\n"
            "instance P1 or P1:scene=street:seed=7,R0.");
    }

    int run() override {
        const std::vector<camera::CameraInfo> cameras = camera::listCameras();
        if (cameras.empty())
            std::fprintf(stderr,
                         "kova: no camera is attached; set KOVA_SIMULATED_CAMERAS=P1 for a "
                         "simulated one\n");
        for (std::size_t i = 0; i < cameras.size(); ++i) {
            const auto model = static_cast<bino::CAMERA_MODEL>(cameras[i].model);
            std::printf("%zu  %s, model %s, serial number %u, hardware %s%s\n", i,
                        cameras[i].name.c_str(), bino::camera_model2str(model).c_str(),
                        cameras[i].serial_number, cameras[i].hardware_version.c_str(),
                        cameras[i].has_imu ? ", inertial unit" : "");
            std::printf("   modes:");
            for (const bino::RESOLUTION_FPS_MODE mode : camera::cameraModes(static_cast<int>(i)))
                std::printf(" %s", bino::resolution_fps_mode2str(mode).c_str());
            std::printf("\n");
        }
        return kDone;
    }
};

}  // namespace

std::unique_ptr<Command> makeListCommand() {
    return std::make_unique<ListCommand>();
}

}  // namespace kova::tools
