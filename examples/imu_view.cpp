// Shows what a camera's inertial unit recorded: its attitude, and the samples as points in space.
//
//   imu_view RECORDING.kova [--speed FACTOR]

#include <CLI/CLI.hpp>

#include <QApplication>

#include <cstdio>

#include "examples/imu_recording.h"
#include "examples/imu_window.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Shows the inertial samples of a recording: left the attitude of the camera, right the\n"
        "samples as points (acceleration yellow, magnetic field white), raw or corrected."};
    std::string path;
    double speed = 1;
    app.add_option("recording", path, "A recorded .kova file")->required();
    app.add_option("--speed", speed, "Replay speed; 1 is as recorded")
        ->check(CLI::Range(0.01, 100.0))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    kova::examples::ImuRecording recording = kova::examples::readImuRecording(path);
    if (!recording.error.empty()) {
        std::fprintf(stderr, "imu_view: %s\n", recording.error.c_str());
        return 1;
    }
    QApplication application(argc, argv);
    kova::examples::ImuWindow window(std::move(recording.samples), speed);
    window.setWindowTitle(QStringLiteral("Inertial unit"));
    window.show();
    return QApplication::exec();
}
