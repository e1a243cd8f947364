#include "tools/commands/list_command.h"

#include <cstdio>

#include "camera/simulation/simulated_cameras.h"
#include "tools/report.h"

namespace kova::tools {

namespace {

class ListCommand : public Command {
public:
    std::string name() const override { return "list"; }
    std::string description() const override {
        return "List the simulated cameras of the environment";
    }

    void declare(CLI::App& app) override {
        app.footer(
            "Simulated cameras come from the environment variable KOVA_SIMULATED_CAMERAS, for\n"
            "instance P1 or P1:scene=street:seed=7,R0.");
    }

    int run() override {
        const std::vector<camera::CameraInfo> cameras = camera::listSimulatedCameras();
        if (cameras.empty())
            std::fprintf(stderr,
                         "kova: no simulated camera; set KOVA_SIMULATED_CAMERAS=P1 for one\n");
        for (std::size_t i = 0; i < cameras.size(); ++i)
            std::printf("%zu  %s, serial number %u, hardware %s%s\n", i, cameras[i].name.c_str(),
                        cameras[i].serial_number, cameras[i].hardware_version.c_str(),
                        cameras[i].has_imu ? ", inertial unit" : "");
        return kDone;
    }
};

}  // namespace

std::unique_ptr<Command> makeListCommand() {
    return std::make_unique<ListCommand>();
}

}  // namespace kova::tools
