#include <QAbstractSlider>
#include <QLabel>
#include <QRadioButton>
#include <QSpinBox>

#include <fstream>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "qwidget/qxtspanslider.h"
#include "tests/app/drawn_lines.h"
#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

namespace kova::test {
namespace {

using testing::ElementsAre;

constexpr auto kR0 = bino::CAMERA_MODEL_QUELVAR_R0;
constexpr auto kP0 = bino::CAMERA_MODEL_QUELVAR_P0;

class WindowControls : public WindowTest {
protected:
    // A capture with one frame, and empty journals.
    void startLive(const CameraScript& script = cameras({kR0})) {
        makeWindow(script);
        camera.scriptGrabs({RESULT_OK});
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
        camera.forgetCalls();
        log.clear();
    }
    void startFile() {
        makeWindow(cameras({}));
        const std::filesystem::path path = folder / "a.kova";
        std::ofstream(path) << "recording";
        chooseFile(QString::fromStdString(path.string()));
        camera.scriptGrabs({RESULT_OK});
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
        camera.forgetCalls();
        log.clear();
    }
    // What happens to the window by `action`.
    template <typename Action>
    State changed(Action action) {
        const State before = stateOf(*window);
        action();
        return changes(before, stateOf(*window));
    }
    qwidget::QxtSpanSlider* span() {
        return child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange");
    }
    qwidget::PointCloudQOpenGLWidget* cloud() {
        return child<qwidget::PointCloudQOpenGLWidget>("oglWPointCloud");
    }
    QAbstractSlider* slider(const char* name) { return child<QAbstractSlider>(name); }
    // Near and far end of the frustum that the point-cloud view draws.
    std::pair<float, float> depthRange() {
        const auto lines = frustumLines(*cloud());
        return {lines.at(0).from.z, lines.at(4).from.z};
    }

    TemporaryFolder folder;
};

TEST_F(WindowControls, ViewTypeWhileIdleIsOnlyRemembered) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    EXPECT_EQ(changed([&] { window->slot_image_type_changed(3); }),
              (State{{"image view type", "3"}}));
    EXPECT_EQ(changed([&] { window->slot_depth_type_changed(2); }),
              (State{{"depth view type", "2"}}));
    EXPECT_THAT(camera.calls(), ElementsAre());
    EXPECT_THAT(camera.frameCalls(), ElementsAre());
    EXPECT_THAT(log.lines(), testing::Not(testing::Contains(testing::HasSubstr("view"))));
}

TEST_F(WindowControls, ViewTypeOfALiveCaptureIsShownAtOnce) {
    startLive();
    child<QLabel>("labelFps")->setText("");
    activate("comboBoxImageType", 3);
    const auto* view = child<qwidget::CPUMouseQOpenGLWidget>("oglWImage");
    EXPECT_EQ(const_cast<qwidget::CPUMouseQOpenGLWidget*>(view)->getImagePointer()[640 * 400 - 1],
              CameraDouble::frameValue(1));
    EXPECT_EQ(camera.count("retrieveObstacleDetectionView"), 3);
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 1);
    handleEvents();
    EXPECT_NE(text("labelFps"), "");
}

TEST_F(WindowControls, ViewTypeOfAPausedFileIsShownAtOnceWithTheOldTime) {
    startFile();
    click("btnKovaFilePlayPause");
    { const std::lock_guard lock(MainWindowAccess::mutex(*window)); }
    camera.forgetCalls();
    const double time = MainWindowAccess::calculationTime(*window);
    activate("comboBoxDepthType", 5);
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 1);
    EXPECT_EQ(MainWindowAccess::calculationTime(*window), time);
}

TEST_F(WindowControls, ViewTypeOfAPlayingFileWaitsForTheNextFrame) {
    startFile();
    activate("comboBoxDepthType", 5);
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 0);
    camera.scriptGrabs({RESULT_OK});
    EXPECT_TRUE(waitFor([&] { return camera.count("retrieveDepthForObstacleDetection") == 1; }));
    EXPECT_THAT(camera.frameCalls(), testing::Contains("retrieveObstacleDetectionView(5)"));
}

TEST_F(WindowControls, ViewTypeBeforeTheFirstFrameShowsNothing) {
    makeWindow(cameras({kR0}));
    click("btnStart");
    activate("comboBoxImageType", 2);
    activate("comboBoxDepthType", 3);
    EXPECT_THAT(MainWindowAccess::records(*window), testing::Each(nullptr));
}

TEST_F(WindowControls, DepthModeIsStoredForTheNextGrab) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    log.clear();
    EXPECT_EQ(changed([&] { click("radioButtonFill"); }),
              (State{{"grab parameters", "1 1 1 1 0 0 0 0"},
                     {"radioButtonFill.checked", "1"},
                     {"radioButtonStandard.checked", "0"}}));
    click("radioButtonStandard");
    EXPECT_EQ(MainWindowAccess::members(*window).at("grab parameters"), "1 0 1 1 0 0 0 0");
    EXPECT_THAT(log.lines(),
                ElementsAre("default: set depth mode: 1", "default: set depth mode: 0"));
    EXPECT_THAT(camera.calls(), ElementsAre());
}

TEST_F(WindowControls, DepthModeOfAnotherSenderStays) {
    makeWindow(cameras({kR0}));
    click("radioButtonFill");
    log.clear();
    window->slot_depth_mode_selected();
    EXPECT_THAT(log.lines(), ElementsAre("default: set depth mode: 1"));
}

TEST_F(WindowControls, WorkModeWhileIdleChangesNoLibraryStateAndShowsNoMessage) {
    makeWindow(cameras({kR0}));
    camera.script().work_mode_result = RESULT_INVALID_GPU;
    camera.forgetCalls();
    EXPECT_EQ(changed([&] { click("radioButtonSlow"); }),
              (State{{"work mode", "2"},
                     {"radioButtonSlow.checked", "1"},
                     {"radioButtonFast.checked", "0"}}));
    EXPECT_EQ(changed([&] { click("radioButtonMedium"); }).at("work mode"), "1");
    EXPECT_THAT(camera.calls(), ElementsAre());
    EXPECT_TRUE(modal.boxes.empty());
    // The next open uses it.
    click("btnStart");
    EXPECT_EQ(camera.calls().at(0), "open(4, 0, 1, true)");
}

TEST_F(WindowControls, WorkModeOfACapture) {
    startLive();
    span()->setLowerValue(5000);
    slider("horizontalSliderConfidence")->setValue(40);
    camera.script().work_mode_distance_min = 450.5f;
    camera.script().work_mode_distance_max = 4000.9f;
    camera.forgetCalls();
    EXPECT_EQ(changed([&] { click("radioButtonMedium"); }),
              (State{{"work mode", "1"},
                     {"radioButtonMedium.checked", "1"},
                     {"radioButtonFast.checked", "0"},
                     {"distance range", "450.5 4000.8999"},
                     {"horizontalSliderConfidence.value", "100"},
                     {"labelConfidence.text", "Confidence 100 %"},
                     {"labelMaxDistance.text", "Distance Range  (450 4000)"},
                     {"horizontalSliderDistanceRange.range", "0..4000"},
                     {"horizontalSliderDistanceRange.span", "450..4000"},
                     {"horizontalSliderDistanceRange.positions", "450..4000"}}));
    EXPECT_THAT(
        camera.calls(),
        ElementsAre("changeWorkMode(1)",
                    "setObstacleDetectionParameters({25 37 0.0036 0.0014 inf 20 50})",
                    "setObstacleDetectionParameters({25 37 0.0036 0.0014 inf 20 50})",
                    "setObstacleDetectionStixelsParameters({10 10 0 0 10})",
                    "getDistanceMaxValue()", "getDistanceMinValue()", "setConfidenceThreshold(0)"));
    EXPECT_EQ(depthRange(), std::pair(450.5f, 4000.9f));
    EXPECT_TRUE(modal.boxes.empty());
}

TEST_F(WindowControls, WorkModeWithALargerRangeRaisesTheSlidersMaximum) {
    startLive();
    camera.script().work_mode_distance_max = 12000;
    click("radioButtonSlow");
    EXPECT_EQ(span()->maximum(), 12000);
    EXPECT_EQ(span()->upperValue(), 12000);
    EXPECT_EQ(span()->upperPosition(), 12000);
    EXPECT_EQ(span()->lowerValue(), 300);
}

TEST_F(WindowControls, WorkModeThatFailsResetsTheControlsAllTheSame) {
    startLive();
    slider("horizontalSliderConfidence")->setValue(40);
    camera.script().work_mode_result = RESULT_GPU_MEMORY_NOT_ENOUGH;
    camera.script().work_mode_distance_max = 6000;
    camera.forgetCalls();
    EXPECT_EQ(changed([&] { click("radioButtonSlow"); }),
              (State{{"work mode", "2"},
                     {"radioButtonSlow.checked", "1"},
                     {"radioButtonFast.checked", "0"},
                     {"distance range", "300 6000"},
                     {"horizontalSliderConfidence.value", "100"},
                     {"labelConfidence.text", "Confidence 100 %"},
                     {"labelMaxDistance.text", "Distance Range  (300 6000)"},
                     {"horizontalSliderDistanceRange.range", "0..6000"},
                     {"horizontalSliderDistanceRange.span", "300..6000"},
                     {"horizontalSliderDistanceRange.positions", "300..6000"}}));
    EXPECT_THAT(modal.boxes, ElementsAre(ModalWatch::error("Change work mode failed: \r\n"
                                                           "GPU memory is not enough")));
    EXPECT_THAT(camera.calls(), ElementsAre("changeWorkMode(2)", "getDistanceMaxValue()",
                                            "getDistanceMinValue()", "setConfidenceThreshold(0)"));
}

TEST_F(WindowControls, SlotsCalledFromABoxDoNotLockTheFrameMutexAgain) {
    startLive();
    camera.script().work_mode_result = RESULT_INVALID_GPU;
    bool held = false;
    modal.on_box = [&](QMessageBox&) {
        if (modal.boxes.size() > 1)
            return;
        held = MainWindowAccess::mutex(*window).heldByGui();
        window->slot_image_type_changed(3);
        window->slot_depth_type_changed(0);
        window->slot_work_mode_selected();
        window->slot_obstacle_using_imu_changed(false);
        held = held && MainWindowAccess::mutex(*window).heldByGui();
    };
    // The work mode slot called in the box opens a box of its own.
    click("radioButtonSlow");
    EXPECT_TRUE(held);
    EXPECT_EQ(modal.boxes.size(), 2u);
    EXPECT_FALSE(MainWindowAccess::mutex(*window).heldByGui());
    EXPECT_EQ(MainWindowAccess::members(*window).at("image view type"), "3");
    EXPECT_EQ(MainWindowAccess::members(*window).at("depth view type"), "0");
    // The worker goes on.
    const int grabs = camera.count("grab");
    EXPECT_TRUE(waitFor([&] { return camera.count("grab") > grabs + 2; }));
}

TEST_F(WindowControls, CloseRequestDuringABoxDoesNotHang) {
    for (const bool by_stop : {false, true}) {
        startLive();
        camera.script().work_mode_result = RESULT_INVALID_GPU;
        modal.on_box = [&](QMessageBox&) {
            if (by_stop)
                window->slot_stop();
            else
                window->close();
        };
        click("radioButtonSlow");
        EXPECT_TRUE(MainWindowAccess::finished(*window));
        EXPECT_FALSE(MainWindowAccess::running(*window));
        EXPECT_FALSE(MainWindowAccess::mutex(*window).heldByGui());
        EXPECT_FALSE(camera.isOpen());
        modal.on_box = nullptr;
    }
}

TEST_F(WindowControls, FramesAreShownWhileABoxIsOpenWithoutTheMutex) {
    startLive();
    int shown = 0;
    modal.on_box = [&](QMessageBox&) {
        camera.scriptGrabs({RESULT_OK, RESULT_OK});
        child<QLabel>("labelFps")->setText("");
        waitFor([&] { return text("labelFps") != ""; });
        shown = camera.framesDelivered();
    };
    click("btnTutorials");
    EXPECT_GE(shown, 2);
}

TEST_F(WindowControls, ConfidenceSliderRunsTheOtherWay) {
    struct Row {
        int value;
        const char* call;
        const char* label;
    };
    startLive();
    for (const Row& row : {Row{1, "setConfidenceThreshold(0.99)", "Confidence 1 %"},
                           {75, "setConfidenceThreshold(0.25)", "Confidence 75 %"},
                           {100, "setConfidenceThreshold(0)", "Confidence 100 %"}}) {
        camera.forgetCalls();
        slider("horizontalSliderConfidence")->setValue(row.value);
        EXPECT_THAT(camera.calls(), ElementsAre(row.call));
        EXPECT_EQ(text("labelConfidence"), row.label);
    }
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(WindowControls, ConfidenceWithoutACaptureIsSentAllTheSame) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    slider("horizontalSliderConfidence")->setValue(50);
    EXPECT_THAT(camera.calls(), ElementsAre("setConfidenceThreshold(0.5)"));
}

TEST_F(WindowControls, DistanceOfTheSliderIsReadBack) {
    startLive();
    EXPECT_EQ(changed([&] { span()->setUpperValue(5000); }),
              (State{{"distance range", "300 5000"},
                     {"labelMaxDistance.text", "Distance Range  (300 5000)"},
                     {"horizontalSliderDistanceRange.span", "300..5000"},
                     {"horizontalSliderDistanceRange.positions", "300..5000"}}));
    EXPECT_EQ(changed([&] { span()->setLowerValue(800); }),
              (State{{"distance range", "800 5000"},
                     {"labelMaxDistance.text", "Distance Range  (800 5000)"},
                     {"horizontalSliderDistanceRange.span", "800..5000"},
                     {"horizontalSliderDistanceRange.positions", "800..5000"}}));
    EXPECT_THAT(camera.calls(), ElementsAre("setDistanceMaxValue(5000)", "getDistanceMaxValue()",
                                            "setDistanceMinValue(800)", "getDistanceMinValue()"));
    EXPECT_EQ(depthRange(), std::pair(800.0f, 5000.0f));
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(WindowControls, ClampedDistanceIsShownWhileTheHandleStaysWhereItWasDragged) {
    startLive();
    camera.script().distance_min = 500;
    camera.script().distance_max = 4500.5f;
    span()->setLowerValue(100);
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range  (500 8000)");
    EXPECT_EQ(span()->lowerValue(), 100);
    EXPECT_EQ(depthRange(), std::pair(500.0f, 8000.0f));
    span()->setUpperValue(7000);
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range  (500 4500)");
    EXPECT_EQ(span()->upperValue(), 7000);
    EXPECT_EQ(depthRange(), std::pair(500.0f, 4500.5f));
}

TEST_F(WindowControls, ExposureSliderAtItsEndAsksForTheLongestExposure) {
    startLive();
    const State change = changed([&] { slider("horizontalSliderExposure")->setValue(2000); });
    EXPECT_EQ(change, (State{{"auto exposure", "0"},
                             {"checkBoxAutoExposure.checked", "0"},
                             {"horizontalSliderExposure.value", "2000"},
                             {"labelExposureMS.hidden", "0"},
                             {"labelExposureMS.text", "20.00 ms"}}));
    EXPECT_EQ(camera.calls().at(0), "useAutoExposure(false)");
    EXPECT_EQ(camera.calls().at(1), "setExposureTime(20)");
    EXPECT_EQ(camera.count("useAutoExposure"), 1);
    EXPECT_EQ(camera.count("setExposureTime"), 1);
}

TEST_F(WindowControls, ExposureIsRoundedByItsSliderAndTruncatedByTheCheckBox) {
    CameraScript script = cameras({kR0});
    script.exposure_step = 0.0156f;  // one and a half steps of the slider
    startLive(script);
    slider("horizontalSliderExposure")->setValue(1001);
    // 642 x 0.0156 = 10.0152 ms stand at 1001.52.
    EXPECT_EQ(text("labelExposureMS"), "10.02 ms");
    EXPECT_EQ(slider("horizontalSliderExposure")->value(), 1002);
    click("checkBoxAutoExposure");
    camera.forgetCalls();
    click("checkBoxAutoExposure");
    EXPECT_EQ(slider("horizontalSliderExposure")->value(), 1001);
    EXPECT_EQ(text("labelExposureMS"), "10.02 ms");
    EXPECT_EQ(camera.count("setExposureTime"), 0);
}

TEST_F(WindowControls, AutomaticExposureHidesTheSlider) {
    startLive();
    click("checkBoxAutoExposure");
    EXPECT_FALSE(hidden("labelExposureMS"));
    EXPECT_FALSE(hidden("horizontalSliderExposure"));
    EXPECT_EQ(text("labelExposureMS"), "5.00 ms");
    EXPECT_EQ(slider("horizontalSliderExposure")->value(), 500);
    EXPECT_EQ(changed([&] { click("checkBoxAutoExposure"); }),
              (State{{"auto exposure", "1"},
                     {"checkBoxAutoExposure.checked", "1"},
                     {"labelExposureMS.hidden", "1"},
                     {"horizontalSliderExposure.hidden", "1"}}));
    EXPECT_THAT(log.lines(), ElementsAre("default: auto exposure: 0", "default: auto exposure: 1"));
    EXPECT_THAT(camera.calls(), ElementsAre("useAutoExposure(false)", "getExposureTime()",
                                            "useAutoExposure(true)"));
}

TEST_F(WindowControls, ExposureWithoutExposureControlIsHarmless) {
    CameraScript script = cameras({kR0});
    script.exposure = 0;
    script.max_exposure = 0;
    startLive(script);
    slider("horizontalSliderExposure")->setValue(1000);
    EXPECT_EQ(slider("horizontalSliderExposure")->value(), 1);
    EXPECT_EQ(text("labelExposureMS"), "0.00 ms");
    EXPECT_THAT(camera.calls(), testing::Contains("setExposureTime(0)"));
    click("checkBoxAutoExposure");
    click("checkBoxAutoExposure");
    EXPECT_EQ(slider("horizontalSliderExposure")->value(), 1);
}

TEST_F(WindowControls, ExposureBeforeAnyCameraWasOpenIsHarmless) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    slider("horizontalSliderExposure")->setValue(1000);
    EXPECT_THAT(camera.calls(), testing::Contains("setExposureTime(0.5)"));
}

TEST_F(WindowControls, FlipIsSentWithAndWithoutACapture) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    log.clear();
    EXPECT_EQ(changed([&] { click("checkBoxFlip"); }),
              (State{{"flip", "1"}, {"checkBoxFlip.checked", "1"}}));
    EXPECT_THAT(camera.calls(), ElementsAre("setFlip(true)"));
    camera.forgetCalls();
    click("btnStart");
    EXPECT_THAT(camera.calls(), testing::Contains("setFlip(true)"));
    camera.forgetCalls();
    click("checkBoxFlip");
    EXPECT_THAT(camera.calls(), ElementsAre("setFlip(false)"));
    EXPECT_EQ(log.count("default: set flip: 1"), 1);
    EXPECT_EQ(log.count("default: set flip: 0"), 1);
}

TEST_F(WindowControls, KeepRatioIsOnlyRemembered) {
    startLive();
    EXPECT_EQ(changed([&] { click("checkBoxKeepRatio"); }),
              (State{{"keep ratio", "0"}, {"checkBoxKeepRatio.checked", "0"}}));
    click("checkBoxKeepRatio");
    EXPECT_THAT(log.lines(),
                ElementsAre("default: set keep ratio: 0", "default: set keep ratio: 1"));
    EXPECT_THAT(camera.calls(), ElementsAre());
}

TEST_F(WindowControls, ObstacleHeightOfTheSpinBoxIsSent) {
    makeWindow(cameras({kR0}));
    for (const auto& [value, call] :
         {std::pair(0, "setObstacleDetectionParameters({30 40 0.002 0.0005 inf 20 50})"),
          std::pair(10, "setObstacleDetectionParameters({30 40 0.01 0.005 inf 20 50})")}) {
        camera.forgetCalls();
        child<QSpinBox>("spinBoxObsPara1")->setValue(value);
        EXPECT_THAT(camera.calls(), ElementsAre(call));
    }
}

TEST_F(WindowControls, GroundAreaOfTheSpinBoxIsSent) {
    makeWindow(cameras({kR0}));
    for (const auto& [value, call] :
         {std::pair(0, "setObstacleDetectionParameters({5 5 0.0036 0.0014 inf 20 50})"),
          std::pair(10, "setObstacleDetectionParameters({55 85 0.0036 0.0014 inf 20 50})")}) {
        camera.forgetCalls();
        child<QSpinBox>("spinBoxObsPara2")->setValue(value);
        EXPECT_THAT(camera.calls(), ElementsAre(call));
    }
}

const std::vector<std::string> kResent = {
    "setObstacleDetectionParameters({25 37 0.0036 0.0014 inf 20 50})",
    "setObstacleDetectionParameters({25 37 0.0036 0.0014 inf 20 50})",
    "setObstacleDetectionStixelsParameters({10 10 0 0 10})"};

std::vector<std::string> followedByResent(std::vector<std::string> calls) {
    calls.insert(calls.end(), kResent.begin(), kResent.end());
    return calls;
}

TEST_F(WindowControls, ImuSwitchOfALiveCamera) {
    CameraScript script = cameras({kP0});
    script.imu = true;
    startLive(script);
    EXPECT_EQ(changed([&] { click("checkBoxObstacleDetectionUsingIMU"); }),
              (State{{"use IMU", "0"}, {"checkBoxObstacleDetectionUsingIMU.checked", "0"}}));
    EXPECT_EQ(camera.calls(), followedByResent({"stopObstacleDetection()", "isIMUSupported()",
                                                "startObstacleDetection(false, false)"}));
    camera.forgetCalls();
    click("checkBoxObstacleDetectionUsingIMU");
    EXPECT_EQ(camera.calls(),
              followedByResent({"stopObstacleDetection()", "isIMUSupported()",
                                "startRetrieveIMU(3, 3)", "startObstacleDetection(true, false)"}));
    EXPECT_THAT(log.lines(), ElementsAre("default: set obstacle using imu: 0",
                                         "default: set obstacle using imu: 1"));
}

TEST_F(WindowControls, ImuSwitchOfARecordingDoesNotStartTheImu) {
    startFile();
    camera.script().imu = true;
    window->slot_obstacle_using_imu_changed(true);
    EXPECT_EQ(camera.calls(), followedByResent({"stopObstacleDetection()", "isIMUSupported()",
                                                "startObstacleDetection(true, false)"}));
}

TEST_F(WindowControls, ImuSwitchWithoutImuLeavesTheFlagFalseAndRestartsDetection) {
    startLive();
    EXPECT_EQ(changed([&] { window->slot_obstacle_using_imu_changed(true); }), State());
    EXPECT_EQ(MainWindowAccess::members(*window).at("use IMU"), "0");
    EXPECT_EQ(camera.calls(), followedByResent({"stopObstacleDetection()", "isIMUSupported()",
                                                "startObstacleDetection(false, false)"}));
    EXPECT_THAT(log.lines(), ElementsAre("default: set obstacle using imu: 1"));
}

TEST_F(WindowControls, ImuSwitchWhoseDetectionDoesNotStart) {
    CameraScript script = cameras({kP0});
    script.imu = true;
    startLive(script);
    camera.script().detection_result = RESULT_INVALID_IMU;
    EXPECT_EQ(changed([&] { click("checkBoxObstacleDetectionUsingIMU"); }),
              (State{{"use IMU", "0"}, {"checkBoxObstacleDetectionUsingIMU.checked", "0"}}));
    EXPECT_THAT(modal.boxes, ElementsAre(ModalWatch::error("Start obstacle detection failed: \r\n"
                                                           "IMU is invalid")));
    EXPECT_THAT(camera.calls(), ElementsAre("stopObstacleDetection()", "isIMUSupported()",
                                            "startObstacleDetection(false, false)"));
    EXPECT_FALSE(camera.detecting());
    EXPECT_THAT(log.lines(), ElementsAre("default: set obstacle using imu: 0"));
}

TEST_F(WindowControls, RadioButtonsOfTheTwoGroupsAreIndependent) {
    makeWindow(cameras({kR0}));
    click("radioButtonFill");
    click("radioButtonSlow");
    EXPECT_TRUE(child<QRadioButton>("radioButtonFill")->isChecked());
    EXPECT_TRUE(child<QRadioButton>("radioButtonSlow")->isChecked());
    EXPECT_FALSE(child<QRadioButton>("radioButtonStandard")->isChecked());
    EXPECT_FALSE(child<QRadioButton>("radioButtonFast")->isChecked());
}

}  // namespace
}  // namespace kova::test
