#include "tests/support/simulated_recording.h"

#include <gtest/gtest.h>

#include <cmath>

#include "camera/recording/recording_writer.h"
#include "camera/simulation/film.h"

namespace kova::test {

using namespace camera;

void recordSimulation(const std::string& path, const SimulatedRecordingOptions& options,
                      std::vector<FrameTruth>* truth) {
    Result<Scene> scene = makeScene(options.scene, options.seed);
    ASSERT_TRUE(scene.ok()) << scene.status().message();
    RigOptions rig;
    rig.width = options.width;
    rig.height = options.height;
    rig.fps = options.fps;
    rig.seed = options.seed;
    if (options.exact) {
        rig.residual = rig.optics = false;
        rig.noise_scale = 0;
    }
    Renderer renderer(std::move(scene.value()), makeRig(rig));
    Film film(renderer.rig());

    StreamInfo stream;
    stream.width = 2 * options.width;
    stream.height = options.height;
    stream.nominal_fps = options.fps;
    if (options.stream)
        options.stream(stream);
    CameraInfo camera;
    camera.model = options.imu ? 101 : 1;
    camera.name = "Simulated";
    camera.serial_number = 4711;
    camera.hardware_version = "1.0";
    camera.has_imu = options.imu;
    auto writer = RecordingWriter::create(path, stream, camera, renderer.rig().given);
    ASSERT_TRUE(writer.ok()) << writer.status().message();

    ExposureSetting exposure;
    LightPair light;
    RawFrame frame;
    for (int i = 0; i < options.frames; ++i) {
        const double t = options.start_s + i / options.fps;
        if (i == 0 || !options.still) {
            renderer.render(t, exposure.exposure_us * 1e-6, light);
            if (truth) {
                truth->emplace_back();
                renderer.truth(t, exposure.exposure_us * 1e-6, truth->back());
            }
        }
        film.expose(light, exposure, i, frame.data);
        frame.t_ns = std::llround(t * 1e9);
        frame.sequence = i;
        frame.exposure_us = exposure.exposure_us;
        frame.imu.clear();
        if (options.imu) {
            ImuSample level;
            level.t_ns = frame.t_ns;
            level.accel = {0, -9.81f, 0};
            frame.imu.push_back(level);
        }
        if (options.frame)
            options.frame(i, frame);
        const Status written = writer.value()->write(frame);
        ASSERT_TRUE(written.ok()) << written.message();
    }
    const Status finished = writer.value()->finish();
    ASSERT_TRUE(finished.ok()) << finished.message();
}

}  // namespace kova::test
