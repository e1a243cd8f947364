#include "camera/pipeline/cameras.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "camera/base/log.h"
#include "camera/calibration/store.h"
#include "camera/simulation/rig.h"
#include "camera/simulation/scene.h"
#include "camera/simulation/sequence.h"
#include "tests/camera/sources/fake_v4l2.h"
#include "tests/support/test_data.h"

namespace kova::camera {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A device whose frames are always due.
class DeliveringV4l2 : public test::FakeV4l2 {
public:
    int wait(int fd, int timeout_ms, bool& broken) override {
        if (frames.empty() && !picture.empty()) {
            Frame frame;
            frame.bytes = picture;
            frame.sequence = sequence_++;
            frame.t_ns = clock_ns;
            frames.push_back(frame);
        }
        return FakeV4l2::wait(fd, timeout_ms, broken);
    }
    std::vector<std::uint8_t> picture;

private:
    std::uint32_t sequence_ = 0;
};

struct Cameras : testing::Test {
    test::TemporaryFolder folder;
    DeliveringV4l2 system;
    std::vector<std::string> log;

    void SetUp() override {
        ::setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
        ::unsetenv("KOVA_SIMULATED_CAMERAS");
        setLogSink([this](LogLevel level, const std::string&, const std::string& text) {
            if (level >= LogLevel::kWarning)
                log.push_back(text);
        });
        system.texts = {{"serial", "4711"}, {"bcdDevice", "0102"}};
        system.modes = {{V4L2_PIX_FMT_GREY, 1280, 400, {60, 30}}};
    }
    void TearDown() override {
        setLogSink({});
        ::unsetenv("XDG_CONFIG_HOME");
        ::unsetenv("KOVA_SIMULATED_CAMERAS");
    }
    /// A picture of the street and the calibration that goes with it.
    StereoCalibration look() {
        RigOptions rig;
        rig.width = 640;
        rig.height = 400;
        RenderOptions render;
        render.parallel = false;
        SimulatedSequence sequence(
            Renderer(std::move(makeScene("street", 3).value()), makeRig(rig), render), {});
        RawFrame frame;
        EXPECT_TRUE(sequence.next(frame).ok());
        system.picture = frame.data;
        return sequence.calibration();
    }
    ErrorCode opened(bino::RESOLUTION_FPS_MODE mode = bino::RESOLUTION_FPS_MODE_SD400_30FPS) {
        return openCamera(0, mode, system).status().code();
    }
};

TEST_F(Cameras, RealOnesComeBeforeSimulatedOnes) {
    ::setenv("KOVA_SIMULATED_CAMERAS", "P1", 1);
    const auto list = listCameras(system);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "Stereo Camera");
    EXPECT_EQ(list[0].serial_number, 4711u);
    EXPECT_EQ(list[0].hardware_version, "1.02");
    EXPECT_EQ(list[0].model, bino::CAMERA_MODEL_QUELVAR_R0);
    EXPECT_EQ(list[1].model, bino::CAMERA_MODEL_QUELVAR_P1);
}

TEST_F(Cameras, AWebcamIsNotListed) {
    system.modes = {{V4L2_PIX_FMT_YUYV, 640, 480, {30}}};
    EXPECT_TRUE(listCameras(system).empty());
    EXPECT_TRUE(log.empty());
}

TEST_F(Cameras, ModesAreThoseThatTheDeviceDelivers) {
    ::setenv("KOVA_SIMULATED_CAMERAS", "R0", 1);
    EXPECT_THAT(cameraModes(0, system), ElementsAre(bino::RESOLUTION_FPS_MODE_SD400_60FPS,
                                                    bino::RESOLUTION_FPS_MODE_SD400_30FPS));
    EXPECT_EQ(cameraModes(1, system), bino::camera_model_modes(bino::CAMERA_MODEL_QUELVAR_R0));
    EXPECT_TRUE(cameraModes(2, system).empty());
    EXPECT_TRUE(cameraModes(-1, system).empty());
}

TEST_F(Cameras, WithoutPermissionThereIsOneLineThatSaysWhatToDo) {
    system.nodes = {"/dev/video0", "/dev/video1"};
    system.open_error = EACCES;
    EXPECT_TRUE(listCameras(system).empty());
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0], HasSubstr("/dev/video0, /dev/video1"));
    EXPECT_THAT(log[0], HasSubstr("usermod -aG video"));
}

TEST_F(Cameras, ACameraThatIsNotThereSaysHowToLook) {
    const auto source = openCamera(1, bino::RESOLUTION_FPS_MODE_SD400_30FPS, system);
    EXPECT_EQ(source.status().code(), ErrorCode::kInvalidCamera);
    EXPECT_THAT(source.status().message(), HasSubstr("kova list"));
    EXPECT_EQ(openCamera(0, static_cast<bino::RESOLUTION_FPS_MODE>(7), system).status().code(),
              ErrorCode::kInvalidMode);
}

TEST_F(Cameras, WithoutCalibrationItDoesNotOpen) {
    EXPECT_EQ(opened(), ErrorCode::kNotCalibrated);
    EXPECT_EQ(toResultCode(ErrorCode::kNotCalibrated), 21);
    EXPECT_EQ(system.open_files, 0);
}

TEST_F(Cameras, ACalibrationThatFitsOpensAndOneThatDoesNotIsRefused) {
    StereoCalibration calibration = look();
    ASSERT_TRUE(storeCalibration(4711, calibration).ok());
    EXPECT_EQ(opened(), ErrorCode::kOk);
    EXPECT_EQ(opened(bino::RESOLUTION_FPS_MODE_SD400_15FPS), ErrorCode::kInvalidMode);

    calibration.right.cy += 8;  // rows are 8 px apart now
    calibration.rectified = false;
    ASSERT_TRUE(storeCalibration(4711, calibration).ok());
    EXPECT_EQ(opened(), ErrorCode::kCalibrationMisfit);
    EXPECT_EQ(toResultCode(ErrorCode::kCalibrationMisfit), 20);
    EXPECT_EQ(system.open_files, 0);
}

TEST_F(Cameras, ACameraThatIsSilentWhenOpenedIsInvalid) {
    ASSERT_TRUE(storeCalibration(4711, look()).ok());
    system.picture.clear();
    EXPECT_EQ(opened(), ErrorCode::kInvalidCamera);
}

TEST_F(Cameras, ABrokenConfigurationIsSaidAndTheCameraListedWithoutIt) {
    std::filesystem::create_directories(folder / "kova" / "cameras");
    std::ofstream(folder / "kova" / "cameras" / "4711.yaml") << "layout: x\n";
    EXPECT_EQ(listCameras(system).size(), 1u);
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0], HasSubstr("4711.yaml"));
}

}  // namespace
}  // namespace kova::camera
