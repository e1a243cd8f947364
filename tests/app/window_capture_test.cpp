#include <QAbstractSlider>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>

#include <fstream>
#include <stdexcept>

#include "qwidget/qxtspanslider.h"
#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr auto kR0 = bino::CAMERA_MODEL_QUELVAR_R0;
constexpr auto kR1 = bino::CAMERA_MODEL_QUELVAR_R1;
constexpr auto kP0 = bino::CAMERA_MODEL_QUELVAR_P0;

class WindowCapture : public WindowTest {
protected:
    QString file(const char* name) {
        const std::filesystem::path path = folder / name;
        std::ofstream(path) << "recording";
        return QString::fromStdString(path.string());
    }

    // Presses "Open" and says what changed in the window.
    State start() {
        const State before = stateOf(*window);
        click("btnStart");
        return changes(before, stateOf(*window));
    }
    State stop() {
        const State before = stateOf(*window);
        click("btnStop");
        return changes(before, stateOf(*window));
    }

    TemporaryFolder folder;
};

TEST_F(WindowCapture, ChoosingACamera) {
    makeWindow(cameras({kR0, kR1}));
    const State before = stateOf(*window);
    log.clear();
    activate("comboBoxCamera", 1);
    EXPECT_EQ(changes(before, stateOf(*window)),
              (State{{"camera index", "1"},
                     {"comboBoxCamera.current", "1"},
                     {"comboBoxResolution.current", "3"},
                     {"comboBoxResolution.items",
                      "HD800_120FPS|HD800_100FPS|HD800_60FPS|HD800_50FPS|HD800_30FPS|HD800_15FPS|"
                      "HD720_120FPS|HD720_100FPS|HD720_60FPS|HD720_50FPS|HD720_30FPS|HD720_15FPS|"
                      "SD400_120FPS|SD400_100FPS|SD400_90FPS|SD400_60FPS|SD400_30FPS|SD400_15FPS"},
                     {"resolution list", "1 2 3 4 5 6 9 10 11 12 13 14 17 18 19 20 21 22 "}}));
    EXPECT_THAT(log.lines(), ElementsAre("default: set camera index: 1"));
}

TEST_F(WindowCapture, ChoosingAnUnknownModelRaisesOutOfRange) {
    makeWindow(cameras({kR0, static_cast<bino::CAMERA_MODEL>(2)}));
    EXPECT_THROW(window->slot_camera_changed(1), std::out_of_range);
    EXPECT_THAT(entries("comboBoxResolution"), ElementsAre());
}

TEST_F(WindowCapture, ChoosingAResolutionIsForTheNextOpen) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    log.clear();
    activate("comboBoxResolution", 6);
    EXPECT_EQ(MainWindowAccess::members(*window).at("resolution mode"), "13");
    EXPECT_THAT(log.lines(), ElementsAre("default: set resolution: HD720_30FPS"));
    EXPECT_THAT(camera.calls(), ElementsAre());
    click("btnStart");
    EXPECT_EQ(camera.calls().at(0), "open(13, 0, 0, true)");
}

TEST_F(WindowCapture, ResolutionOutsideTheListRaisesOutOfRange) {
    makeWindow(cameras({kR0}));
    EXPECT_THROW(window->slot_resolution_changed(11), std::out_of_range);
    EXPECT_THROW(window->slot_resolution_changed(-1), std::out_of_range);
}

TEST_F(WindowCapture, CancelledDialogLeavesNoFile) {
    makeWindow(cameras({kR0}));
    const State before = stateOf(*window);
    log.clear();
    activate("comboBoxCamera", 1);  // without an answer the dialog is rejected
    EXPECT_EQ(changes(before, stateOf(*window)), (State{{"camera index", "1"},
                                                        {"comboBoxCamera.current", "1"},
                                                        {"comboBoxResolution.current", "-1"},
                                                        {"comboBoxResolution.enabled", "0"},
                                                        {"comboBoxResolution.items", ""},
                                                        {"live camera", "0"}}));
    EXPECT_THAT(log.lines(), ElementsAre("default: cancel select .kova file"));

    camera.forgetCalls();
    EXPECT_EQ(start(), State());
    EXPECT_THAT(modal.boxes, ElementsAre(ModalWatch::error("Select a .kova file first")));
    EXPECT_THAT(camera.calls(), ElementsAre());
}

TEST_F(WindowCapture, FileDialogAsksForRecordings) {
    makeWindow(cameras({}));
    std::string title;
    QStringList filters;
    bool of_the_window = false;
    modal.on_file_dialog = [&](QFileDialog& dialog) {
        title = dialog.windowTitle().toStdString();
        filters = dialog.nameFilters();
        of_the_window = dialog.parentWidget() == window.get();
        dialog.reject();
    };
    activate("comboBoxCamera", 0);
    EXPECT_EQ(title, "Select .kova File");
    EXPECT_EQ(filters, QStringList{"Kova file (*.kova)"});
    EXPECT_TRUE(of_the_window);
}

TEST_F(WindowCapture, ChoosingAFile) {
    makeWindow(cameras({}));
    const State before = stateOf(*window);
    log.clear();
    const QString path = file(
        "Stra\xc3\x9f"
        "e 1.kova");
    chooseFile(path);
    EXPECT_EQ(changes(before, stateOf(*window)), (State{{"file path", path.toStdString()},
                                                        {"btnStart.enabled", "1"},
                                                        {"comboBoxCamera.items",
                                                         "Stra\xc3\x9f"
                                                         "e 1.kova|select .kova file"}}));
    EXPECT_EQ(child<QComboBox>("comboBoxCamera")->currentIndex(), 0);
    EXPECT_THAT(log.lines(), ElementsAre("default: select .kova file: " + path.toStdString()));
}

TEST_F(WindowCapture, SecondFileReplacesTheFirst) {
    makeWindow(cameras({kR0, kP0}));
    chooseFile(file("first.kova"));
    EXPECT_THAT(entries("comboBoxCamera"),
                ElementsAre("Quelvar R0", "Quelvar P0", "first.kova", "select .kova file"));
    EXPECT_EQ(child<QComboBox>("comboBoxCamera")->currentIndex(), 2);
    chooseFile(file("second.kova"));
    EXPECT_THAT(entries("comboBoxCamera"),
                ElementsAre("Quelvar R0", "Quelvar P0", "second.kova", "select .kova file"));
    EXPECT_EQ(child<QComboBox>("comboBoxCamera")->currentIndex(), 2);

    // A cancelled third choice keeps the entry, but not the path.
    activate("comboBoxCamera", 3);
    EXPECT_THAT(entries("comboBoxCamera"),
                ElementsAre("Quelvar R0", "Quelvar P0", "second.kova", "select .kova file"));
    EXPECT_EQ(MainWindowAccess::members(*window).at("file path"), "");
}

TEST_F(WindowCapture, TheFilesEntryKeepsItsPath) {
    makeWindow(cameras({kR0}));
    const QString path = file("a.kova");
    chooseFile(path);
    activate("comboBoxCamera", 0);
    EXPECT_EQ(MainWindowAccess::members(*window).at("live camera"), "1");
    EXPECT_TRUE(enabled("comboBoxResolution"));
    activate("comboBoxCamera", 1);
    EXPECT_EQ(MainWindowAccess::members(*window).at("live camera"), "0");
    EXPECT_FALSE(enabled("comboBoxResolution"));
    EXPECT_EQ(MainWindowAccess::members(*window).at("file path"), path.toStdString());
    EXPECT_THAT(entries("comboBoxResolution"), ElementsAre());
}

// What a start changes in any case, from the idle window on.
State startedState() {
    return {{"running", "1"},
            {"finished", "0"},
            {"image size", "640 x 400"},
            {"stereo parameters", "500.5 501.25 320.125 200.75"},
            {"distance range", "300 8000"},
            {"obstacle parameters", "25 37 0.00359999994 0.00139999995 inf 20 50"},
            {"btnStart.hidden", "1"},
            {"btnStop.hidden", "0"},
            {"comboBoxCamera.enabled", "0"},
            {"labelSN.text", "SN 4711"},
            {"labelHW.text", "HW 2.5"},
            {"labelConfidence.text", "Confidence 100 %"},
            {"labelMaxDistance.text", "Distance Range  (300 8000)"},
            {"horizontalSliderDistanceRange.enabled", "1"},
            {"horizontalSliderDistanceRange.range", "0..8000"},
            {"horizontalSliderDistanceRange.span", "300..8000"},
            {"horizontalSliderDistanceRange.positions", "300..8000"}};
}

State with(State state, const State& more) {
    for (const auto& [name, value] : more) state[name] = value;
    return state;
}

const std::vector<std::string> kDetectionCalls = {
    "setObstacleDetectionParameters({30 40 0.0036 0.0014 inf 20 50})",
    "setObstacleDetectionParameters({25 37 0.0036 0.0014 inf 20 50})",
    "setObstacleDetectionStixelsParameters({10 10 0 0 10})"};

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> lists) {
    std::vector<std::string> all;
    for (const auto& list : lists) all.insert(all.end(), list.begin(), list.end());
    return all;
}

const std::vector<std::string> kStartCalls = {"setFlip(false)",        "getSerialNumber()",
                                              "getHardwareVersion()",  "getDistanceMinValue()",
                                              "getDistanceMaxValue()", "setConfidenceThreshold(0)"};

TEST_F(WindowCapture, StartOfALiveCameraWithoutImu) {
    makeWindow(cameras({kR0}));
    camera.forgetCalls();
    log.clear();
    EXPECT_EQ(start(), with(startedState(), {{"maximum exposure", "20"},
                                             {"comboBoxResolution.enabled", "0"},
                                             {"groupBoxExposure.hidden", "0"},
                                             {"horizontalSliderExposure.hidden", "1"},
                                             {"horizontalSliderExposure.value", "500"},
                                             {"labelExposureMS.hidden", "1"},
                                             {"labelExposureMS.text", "5.00 ms"}}));
    EXPECT_EQ(camera.calls(),
              joined({{"open(4, 0, 0, true)", "getImageSizeFPS()", "isIMUSupported()",
                       "startObstacleDetection(false, false)"},
                      kDetectionCalls,
                      {"getMaxExposureTime()", "getStereoParameters(true)", "getExposureTime()"},
                      kStartCalls}));
    EXPECT_THAT(log.lines(),
                ElementsAre("default: Stereo camera open finished",
                            "default: fx, fy, cx, cy:  500.500000 501.250000 320.125000 "
                            "200.750000"));
    EXPECT_TRUE(modal.boxes.empty());
}

TEST_F(WindowCapture, StartOfALiveCameraWithImu) {
    CameraScript script = cameras({kP0});
    script.imu = true;
    makeWindow(script);
    camera.forgetCalls();
    const State changed = start();
    EXPECT_EQ(changed.at("use IMU"), "1");
    EXPECT_EQ(changed.at("checkBoxObstacleDetectionUsingIMU.checked"), "1");
    EXPECT_EQ(changed.at("checkBoxObstacleDetectionUsingIMU.enabled"), "1");
    EXPECT_EQ(changed.size(), startedState().size() + 7 + 3);
    EXPECT_EQ(camera.calls(),
              joined({{"open(4, 0, 0, true)", "getImageSizeFPS()", "isIMUSupported()",
                       "startRetrieveIMU(3, 3)", "startObstacleDetection(true, false)"},
                      kDetectionCalls,
                      {"getMaxExposureTime()", "getStereoParameters(true)", "getExposureTime()"},
                      kStartCalls}));
}

TEST_F(WindowCapture, StartOfARecording) {
    makeWindow(cameras({}));
    const QString path = file("a.kova");
    chooseFile(path);
    camera.script().frames = 7;
    camera.scriptGrabs({});  // the worker gets no frame
    camera.forgetCalls();
    log.clear();
    EXPECT_EQ(start(), with(startedState(), {{"playing", "1"},
                                             {"comboBoxResolution.items", "SD400_30FPS"},
                                             {"comboBoxResolution.current", "0"},
                                             {"groupBoxKovaReplay.hidden", "0"},
                                             {"horizontalSliderKovaFileReplay.range", "0..6"},
                                             {"labelCurrentFrameIndex.text", "0"},
                                             {"btnKovaFilePlayOneFrame.enabled", "0"}}));
    EXPECT_EQ(camera.calls(),
              joined({{"open(\"" + path.toStdString() + "\", 0)", "getImageSizeFPS()",
                       "isIMUSupported()", "startObstacleDetection(false, false)"},
                      kDetectionCalls,
                      {"getStereoParameters(true)"},
                      kStartCalls}));
    EXPECT_THAT(log.lines(),
                ElementsAre("default: .kova file open finished",
                            "default: fx, fy, cx, cy:  500.500000 501.250000 320.125000 "
                            "200.750000",
                            "default: .kova file total frame number: 7"));
}

TEST_F(WindowCapture, RecordingWithImuDoesNotStartTheImu) {
    CameraScript script = cameras({});
    script.imu = true;
    makeWindow(script);
    chooseFile(file("a.kova"));
    const State changed = start();
    EXPECT_EQ(changed.at("use IMU"), "1");
    EXPECT_EQ(changed.at("checkBoxObstacleDetectionUsingIMU.checked"), "1");
    EXPECT_EQ(changed.at("checkBoxObstacleDetectionUsingIMU.enabled"), "1");
    EXPECT_EQ(camera.count("startRetrieveIMU"), 0);
    EXPECT_THAT(camera.calls(), testing::Contains("startObstacleDetection(true, false)"));
}

TEST_F(WindowCapture, PathReachesTheLibraryInTheLocalEncoding) {
    makeWindow(cameras({}));
    const QString path = file(
        "Gr\xc3\xbc\xc3\x9f"
        "e.kova");
    chooseFile(path);
    camera.forgetCalls();
    click("btnStart");
    EXPECT_EQ(camera.calls().at(0),
              "open(\"" + std::string(path.toLocal8Bit().constData()) + "\", 0)");
}

TEST_F(WindowCapture, LiveCameraThatDoesNotOpen) {
    makeWindow(cameras({kR0}));
    camera.script().open_result = RESULT_INVALID_CAMERA;
    camera.forgetCalls();
    EXPECT_EQ(start(), State());
    EXPECT_THAT(modal.boxes,
                ElementsAre(ModalWatch::error("Open depth camera failed: \r\nInvalid camera")));
    EXPECT_THAT(camera.calls(), ElementsAre("open(4, 0, 0, true)"));
}

TEST_F(WindowCapture, RecordingThatDoesNotOpen) {
    makeWindow(cameras({}));
    chooseFile(file("a.kova"));
    camera.script().open_result = RESULT_INVALID_KOVA_FILE;
    EXPECT_EQ(start(), State());
    EXPECT_THAT(
        modal.boxes,
        ElementsAre(ModalWatch::error(".kova file open failed: \r\n.kova file is invalid")));
}

TEST_F(WindowCapture, EveryResultOfAFailingOpenIsShownWithItsText) {
    for (int code = 1; code <= 24; ++code) {
        makeWindow(cameras({kR0}));
        const auto result = static_cast<RESULT_CODE>(code);
        camera.script().open_result = result;
        modal.boxes.clear();
        EXPECT_EQ(start(), State());
        EXPECT_THAT(modal.boxes, ElementsAre(ModalWatch::error("Open depth camera failed: \r\n" +
                                                               result_code2str(result))))
            << code;
    }
}

TEST_F(WindowCapture, DetectionThatDoesNotStart) {
    CameraScript script = cameras({kP0});
    script.imu = true;
    script.detection_result = RESULT_GPU_MEMORY_NOT_ENOUGH;
    makeWindow(script);
    camera.forgetCalls();
    // Idle, but for the IMU check box and what was read before the failure.
    EXPECT_EQ(start(), (State{{"image size", "640 x 400"},
                              {"use IMU", "1"},
                              {"checkBoxObstacleDetectionUsingIMU.checked", "1"},
                              {"checkBoxObstacleDetectionUsingIMU.enabled", "1"}}));
    EXPECT_THAT(modal.boxes, ElementsAre(ModalWatch::error("Start obstacle detection failed: \r\n"
                                                           "GPU memory is not enough")));
    EXPECT_EQ(camera.count("close"), 0);
    EXPECT_TRUE(camera.isOpen());

    // The camera stays open until the next stop or close; another start opens it anew.
    camera.script().detection_result = RESULT_OK;
    click("btnStart");
    EXPECT_TRUE(MainWindowAccess::running(*window));
    EXPECT_EQ(camera.count("open"), 2);
}

TEST_F(WindowCapture, DetectionOfARecordingThatDoesNotStart) {
    makeWindow(cameras({}));
    chooseFile(file("a.kova"));
    camera.script().detection_result = RESULT_INVALID_GPU;
    EXPECT_EQ(start(), (State{{"image size", "640 x 400"}}));
    EXPECT_THAT(modal.boxes,
                ElementsAre(ModalWatch::error("Start obstacle detection failed: \r\nInvalid GPU")));
    window->close();
    EXPECT_FALSE(camera.isOpen());
}

TEST_F(WindowCapture, ModeOfARecordingIsRecognised) {
    struct Row {
        int width, height;
        float fps;
        const char* name;
    };
    for (const Row& row : {Row{1280, 720, 30, "HD720_30FPS"},
                           {1280, 720, 25, ""},
                           {1280, 720, 30.000002f, ""},
                           {1280, 800, 50, "HD800_50FPS"},
                           {640, 400, 90, "SD400_90FPS"},
                           {640, 480, 30, ""}}) {
        CameraScript script = cameras({});
        script.size = {row.width, row.height, row.fps};
        makeWindow(script);
        camera.scriptGrabs({});
        chooseFile(file("a.kova"));
        click("btnStart");
        EXPECT_THAT(entries("comboBoxResolution"), ElementsAre(row.name))
            << row.width << " x " << row.height << " at " << row.fps;
    }
}

TEST_F(WindowCapture, StopOfALiveCamera) {
    CameraScript script = cameras({kP0});
    script.imu = true;
    makeWindow(script);
    const State idle = stateOf(*window);
    camera.scriptGrabs({}, RESULT_OK);
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 0; }));
    camera.forgetCalls();
    click("btnStop");
    EXPECT_THAT(camera.calls(), ElementsAre("close()"));
    EXPECT_THAT(MainWindowAccess::records(*window), testing::Each(nullptr));
    State left = changes(idle, stateOf(*window));
    left.erase("labelFps.text");
    EXPECT_EQ(left, (State{{"image size", "640 x 400"},
                           {"btnKovaFilePlayOneFrame.enabled", "0"},
                           {"stereo parameters", "500.5 501.25 320.125 200.75"},
                           {"distance range", "300 8000"},
                           {"maximum exposure", "20"},
                           {"obstacle parameters", "25 37 0.00359999994 0.00139999995 inf 20 50"},
                           {"horizontalSliderDistanceRange.enabled", "1"},
                           {"horizontalSliderDistanceRange.range", "0..8000"},
                           {"horizontalSliderDistanceRange.span", "300..8000"},
                           {"horizontalSliderDistanceRange.positions", "300..8000"},
                           {"horizontalSliderExposure.hidden", "1"},
                           {"horizontalSliderExposure.value", "500"},
                           {"labelConfidence.text", "Confidence 100 %"},
                           {"labelExposureMS.hidden", "1"},
                           {"labelExposureMS.text", "5.00 ms"},
                           {"labelMaxDistance.text", "Distance Range  (300 8000)"}}));
}

TEST_F(WindowCapture, StopOfARecording) {
    makeWindow(cameras({}));
    chooseFile(file("a.kova"));
    const State idle = stateOf(*window);
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return !MainWindowAccess::playing(*window); }));
    handleEvents();
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 9);
    const State changed = stop();
    EXPECT_EQ(changed.at("horizontalSliderKovaFileReplay.value"), "0");
    EXPECT_EQ(changed.at("btnKovaFilePlayPause.text"), "Pause");
    EXPECT_EQ(changed.at("btnKovaFilePlayOneFrame.enabled"), "0");
    EXPECT_EQ(changed.at("groupBoxKovaReplay.hidden"), "1");
    EXPECT_EQ(changed.at("comboBoxCamera.enabled"), "1");
    EXPECT_FALSE(MainWindowAccess::playing(*window));
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
}

TEST_F(WindowCapture, ResolutionListIsEmptyAfterAReplayUntilACameraIsChosen) {
    makeWindow(cameras({kR0}));
    chooseFile(file("a.kova"));
    click("btnStart");
    EXPECT_THAT(entries("comboBoxResolution"), ElementsAre("SD400_30FPS"));
    click("btnStop");
    EXPECT_THAT(entries("comboBoxResolution"), ElementsAre());
    EXPECT_FALSE(enabled("comboBoxResolution"));
    activate("comboBoxCamera", 0);
    EXPECT_EQ(entries("comboBoxResolution").size(), 11u);
    EXPECT_TRUE(enabled("comboBoxResolution"));
}

TEST_F(WindowCapture, StartingTwiceKeepsTheUsersMinimumDistance) {
    makeWindow(cameras({kR0}));
    click("btnStart");
    child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange")->setLowerValue(1500);
    child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange")->setUpperValue(6000);
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range  (1500 6000)");
    click("btnStop");
    camera.forgetCalls();
    click("btnStart");
    // The larger minimum survives, the maximum does not; neither is sent to the camera.
    EXPECT_EQ(MainWindowAccess::members(*window).at("distance range"), "1500 8000");
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range  (1500 8000)");
    const auto* span = child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange");
    EXPECT_EQ(span->lowerValue(), 1500);
    EXPECT_EQ(span->lowerPosition(), 1500);
    EXPECT_EQ(span->upperValue(), 8000);
    EXPECT_EQ(span->upperPosition(), 8000);
    EXPECT_EQ(camera.count("setDistanceMinValue"), 0);
    EXPECT_EQ(camera.count("setDistanceMaxValue"), 0);
}

TEST_F(WindowCapture, DistanceSliderFollowsACameraWithASmallerRange) {
    makeWindow(cameras({kR0}));
    click("btnStart");
    click("btnStop");
    camera.script().distance_min = 350;
    camera.script().distance_max = 400.75f;
    click("btnStart");
    const auto* span = child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange");
    EXPECT_EQ(span->maximum(), 400);
    EXPECT_EQ(span->lowerValue(), 350);
    EXPECT_EQ(span->lowerPosition(), 350);
    EXPECT_EQ(span->upperValue(), 400);
    EXPECT_EQ(span->upperPosition(), 400);
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range  (350 400)");
}

TEST_F(WindowCapture, AutomaticExposureIsNotResetAtTheNextStart) {
    makeWindow(cameras({kR0}));
    click("btnStart");
    click("checkBoxAutoExposure");
    click("btnStop");
    camera.forgetCalls();
    click("btnStart");
    EXPECT_EQ(MainWindowAccess::members(*window).at("auto exposure"), "0");
    EXPECT_EQ(camera.count("useAutoExposure"), 0);
    EXPECT_TRUE(hidden("horizontalSliderExposure"));
}

TEST_F(WindowCapture, CameraWithoutExposureControlLeavesTheSliderAtItsStart) {
    CameraScript script = cameras({kR0});
    script.exposure = 0;
    script.max_exposure = 0;
    makeWindow(script);
    click("btnStart");
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderExposure")->value(), 1);
    EXPECT_EQ(text("labelExposureMS"), "0.00 ms");
}

TEST_F(WindowCapture, OpeningAShorterRecordingDoesNotSeek) {
    makeWindow(cameras({}));
    chooseFile(file("a.kova"));
    camera.script().frames = 500;
    camera.scriptGrabs({});
    click("btnStart");
    // As if the capture had been left with the slider far out.
    {
        const QSignalBlocker blocker(child("horizontalSliderKovaFileReplay"));
        child<QAbstractSlider>("horizontalSliderKovaFileReplay")->setValue(400);
    }
    window->close();
    camera.script().frames = 20;
    camera.forgetCalls();
    log.clear();
    window->slot_start();
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->maximum(), 19);
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 0);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
    EXPECT_TRUE(MainWindowAccess::playing(*window));
    for (const std::string& line : log.lines())
        EXPECT_THAT(line, testing::Not(HasSubstr("frame index")));
}

TEST_F(WindowCapture, CloseRequestDuringAnErrorBoxOfTheStart) {
    makeWindow(cameras({kR0}));
    window->show();
    camera.script().detection_result = RESULT_INVALID_GPU;
    modal.on_box = [&](QMessageBox&) { window->close(); };
    click("btnStart");
    EXPECT_EQ(modal.boxes.size(), 1u);
    EXPECT_FALSE(MainWindowAccess::running(*window));
    EXPECT_FALSE(camera.isOpen());
}

}  // namespace
}  // namespace kova::test
