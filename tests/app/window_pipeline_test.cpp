#include <QAbstractButton>
#include <QAbstractSlider>
#include <QLabel>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <fstream>
#include <mutex>
#include <thread>

#include "app/application.h"
#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/pointcloudqopenglwidget.h"
#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

namespace kova::test {
namespace {

using testing::ElementsAre;

constexpr auto kR0 = bino::CAMERA_MODEL_QUELVAR_R0;

class WindowPipeline : public WindowTest {
protected:
    void startLive(const CameraScript& script = cameras({kR0})) {
        makeWindow(script);
        click("btnStart");
    }
    void startFile(int frames, bool loop = false) {
        CameraScript script = cameras({});
        script.frames = frames;
        makeWindow(script);
        const std::filesystem::path path = folder / "a.kova";
        std::ofstream(path) << "recording";
        chooseFile(QString::fromStdString(path.string()));
        if (loop)
            click("checkBoxLoop");
        log.clear();
        click("btnStart");
    }
    unsigned char firstByte(const char* name) {
        return *child<qwidget::CPUMouseQOpenGLWidget>(name)->getImagePointer();
    }

    TemporaryFolder folder;
    QTimer sampler;
};

TEST_F(WindowPipeline, LiveFramesReachTheViews) {
    startLive();
    camera.scriptGrabs({RESULT_OK});
    ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
    const unsigned char value = CameraDouble::frameValue(1);
    EXPECT_EQ(firstByte("oglWImage"), value);
    EXPECT_EQ(firstByte("oglWDepth"), value);
    auto* cloud = child<qwidget::PointCloudQOpenGLWidget>("oglWPointCloud");
    EXPECT_EQ(*cloud->getImagePointer(), value);
    // The point of the last pixel.
    const float* last = cloud->getPointCloudPointer() + 3 * (640 * 400 - 1);
    EXPECT_EQ(last[0], 639.0f);
    EXPECT_EQ(last[1], 399.0f);
    EXPECT_EQ(last[2], 1000.0f);
}

TEST_F(WindowPipeline, ResultsAreRetrievedInOrderAndTheCloudIsColouredByTheStixels) {
    makeWindow(cameras({kR0}));
    activate("comboBoxImageType", 0);
    activate("comboBoxDepthType", 3);
    camera.scriptGrabs({RESULT_OK});
    camera.forgetCalls();
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.count("grab") > 3; }));
    window->close();
    std::vector<std::string> expected = {
        "grab({1 0 1 1 0 0 0 0})", "retrieveObstacleDetectionView(0)",
        "retrieveObstacleDetectionView(3)", "retrieveDepthForObstacleDetection(10)",
        "retrieveObstacleDetectionView(4)"};
    auto calls = camera.frameCalls();
    ASSERT_GE(calls.size(), expected.size());
    calls.resize(expected.size());
    EXPECT_EQ(calls, expected);
}

TEST_F(WindowPipeline, GrabsThatDeliverNothingForAWhileShowTheLastFrameAndNoError) {
    startLive();
    camera.scriptGrabs({RESULT_OK, RESULT_NOT_NEW_FRAME, RESULT_INVALID_CAMERA,
                        RESULT_CAMERA_NOT_OPEN, RESULT_NOT_NEW_FRAME, RESULT_OK});
    // A grab after the frame's: its results have been retrieved.
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() >= 1; }));
    const int grabs_at_first = camera.count("grab");
    ASSERT_TRUE(waitFor([&] { return camera.count("grab") > grabs_at_first; }));
    handleEvents();
    const State after_first = stateOf(*window);
    const auto records = MainWindowAccess::records(*window);
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() == 2; }));
    const int grabs = camera.count("grab");
    ASSERT_TRUE(waitFor([&] { return camera.count("grab") > grabs + 5; }));
    State changed = changes(after_first, stateOf(*window));
    changed.erase("labelFps.text");
    EXPECT_EQ(changed, State());
    EXPECT_EQ(MainWindowAccess::records(*window), records);
    EXPECT_EQ(firstByte("oglWImage"), CameraDouble::frameValue(2));
    EXPECT_TRUE(modal.boxes.empty());
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 2);
}

TEST_F(WindowPipeline, CalculationTimeIsShownInMilliseconds) {
    startLive();
    camera.scriptGrabs({RESULT_OK});
    ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
    const double seconds = MainWindowAccess::calculationTime(*window);
    EXPECT_GT(seconds, 0.0);
    EXPECT_EQ(
        text("labelFps"),
        "Calculation time: " + QString::number(seconds * 1000.0, 'f', 1).toStdString() + " ms");
}

TEST_F(WindowPipeline, GrabTakesTheDepthModeOfTheMoment) {
    startLive();
    click("radioButtonFill");
    ASSERT_TRUE(waitFor([&] {
        const auto calls = camera.frameCalls();
        return std::find(calls.begin(), calls.end(), "grab({1 1 1 1 0 0 0 0})") != calls.end();
    }));
}

TEST_F(WindowPipeline, FileWithoutLoopStopsAtTheLastFrame) {
    startFile(4);
    EXPECT_EQ(child<QAbstractButton>("btnKovaFilePlayPause")->text(), "Pause");
    ASSERT_TRUE(waitFor([&] { return enabled("btnKovaFilePlayOneFrame"); }));
    EXPECT_FALSE(MainWindowAccess::playing(*window));
    EXPECT_EQ(child<QAbstractButton>("btnKovaFilePlayPause")->text(), "Play");
    ASSERT_TRUE(waitFor([&] { return text("labelCurrentFrameIndex") == "3"; }));
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 3);
    EXPECT_EQ(firstByte("oglWImage"), CameraDouble::frameValue(4));
    // The worker goes on, but grabs nothing more.
    EXPECT_TRUE(MainWindowAccess::running(*window));
    runFor(20);
    EXPECT_EQ(camera.count("grab"), 4);
    EXPECT_EQ(log.count("default: end of the .kova file, back to start.."), 0);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
}

TEST_F(WindowPipeline, FileWithLoopStartsOverAndSaysSoOncePerWrap) {
    startFile(3, true);
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() >= 8; }));
    click("btnStop");
    const int frames = camera.framesDelivered();
    const int wraps = (frames - 1) / 3;
    EXPECT_GE(wraps, 2);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), wraps);
    EXPECT_EQ(log.count("default: end of the .kova file, back to start.."), wraps);
    for (const std::string& call : camera.frameCalls()) {
        if (call.find("setTarget") == 0) {
            EXPECT_EQ(call, "setTargetKovaPosition(0)");
        }
    }
}

TEST_F(WindowPipeline, ReplaySliderFollowsTheFramesWithoutSeeking) {
    startFile(40);
    std::vector<int> shown;
    QObject::connect(&sampler, &QTimer::timeout, [&] {
        shown.push_back(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value());
    });
    sampler.start(1);
    ASSERT_TRUE(waitFor([&] { return text("labelCurrentFrameIndex") == "39"; }));
    sampler.stop();
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 39);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
    EXPECT_EQ(camera.framesDelivered(), 40);
}

TEST_F(WindowPipeline, PausedFileGrabsNothing) {
    startFile(1000);
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 0; }));
    click("btnKovaFilePlayPause");
    {
        // A frame that was under way is over once the mutex is free.
        const std::lock_guard lock(MainWindowAccess::mutex(*window));
    }
    const int grabs = camera.count("grab");
    runFor(20);
    EXPECT_EQ(camera.count("grab"), grabs);
    EXPECT_TRUE(MainWindowAccess::running(*window));
}

TEST_F(WindowPipeline, WorkerWaitsForTheFrameMutexAndNotForTheGuiThread) {
    startLive();
    camera.scriptGrabs({}, RESULT_OK);
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 0; }));
    {
        const app::FrameMutex::GuiLock lock(MainWindowAccess::mutex(*window));
        const int delivered = camera.framesDelivered();
        QThread::msleep(30);
        EXPECT_EQ(camera.framesDelivered(), delivered);
    }
    // The GUI thread handles no events, the frames come all the same.
    const int before = camera.framesDelivered();
    for (int i = 0; i < 1000 && camera.framesDelivered() < before + 5; ++i) QThread::msleep(5);
    EXPECT_GE(camera.framesDelivered(), before + 5);
}

TEST_F(WindowPipeline, StopEndsTheWorkerOfAPlayingFileWhoseUpdatesWait) {
    startFile(100000);
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 3; }));
    // Updates pile up while no events are handled.
    const int before = camera.framesDelivered();
    while (camera.framesDelivered() < before + 3) QThread::msleep(1);
    click("btnStop");
    EXPECT_TRUE(MainWindowAccess::finished(*window));
    handleEvents();
    // What was queued does not come back over what stop has set.
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 0);
    EXPECT_EQ(child<QAbstractButton>("btnKovaFilePlayPause")->text(), "Pause");
    EXPECT_FALSE(enabled("btnKovaFilePlayOneFrame"));
}

TEST_F(WindowPipeline, QueuedPositionUpdateOfAnEndedCaptureIsDropped) {
    startFile(50);
    camera.scriptGrabs({}, RESULT_NOT_NEW_FRAME);
    std::thread([&] { MainWindowAccess::positionUpdate(*window); }).join();
    click("btnStop");
    const std::string label = text("labelCurrentFrameIndex");
    const State stopped = stateOf(*window);
    handleEvents();
    State changed = changes(stopped, stateOf(*window));
    changed.erase("labelFps.text");  // of a frame that was shown before
    EXPECT_EQ(changed, State());
    EXPECT_EQ(text("labelCurrentFrameIndex"), label);
}

TEST_F(WindowPipeline, QueuedPositionUpdateShowsTheNewestPosition) {
    startFile(50);
    click("btnKovaFilePlayPause");
    { const std::lock_guard lock(MainWindowAccess::mutex(*window)); }
    handleEvents();
    std::thread([&] { MainWindowAccess::positionUpdate(*window); }).join();  // queued: taken here
    child<QAbstractSlider>("horizontalSliderKovaFileReplay")->setValue(30);
    handleEvents();
    EXPECT_EQ(text("labelCurrentFrameIndex"), "30");
    EXPECT_EQ(child<QAbstractSlider>("horizontalSliderKovaFileReplay")->value(), 30);
}

TEST_F(WindowPipeline, QueuedEndOfFileUpdateDoesNotPauseAReplayThatPlaysAgain) {
    startFile(50);
    camera.scriptGrabs({}, RESULT_NOT_NEW_FRAME);
    click("btnKovaFilePlayPause");
    std::thread([&] { MainWindowAccess::pausedUpdate(*window); }).join();
    window->slot_kova_file_play_pause();
    handleEvents();
    EXPECT_TRUE(MainWindowAccess::playing(*window));
    EXPECT_EQ(child<QAbstractButton>("btnKovaFilePlayPause")->text(), "Pause");
    EXPECT_FALSE(enabled("btnKovaFilePlayOneFrame"));
}

TEST_F(WindowPipeline, UpdatesAreMadeDirectlyWhileTheGuiThreadIsIdleAndQueuedOtherwise) {
    const int direct = app::Application::directUpdates();
    const int queued = app::Application::queuedUpdates();
    startFile(5, true);
    ASSERT_TRUE(waitFor([&] { return app::Application::directUpdates() > direct; }));
    const int before = camera.framesDelivered();
    while (camera.framesDelivered() < before + 3) QThread::msleep(1);
    EXPECT_GT(app::Application::queuedUpdates(), queued);
}

TEST_F(WindowPipeline, ViewsAreSizedByTheirTypes) {
    // Image 640 x 400; the top view of the script is 200 x 250.
    struct Row {
        int type;
        std::size_t bytes;
    };
    for (const Row& row : {Row{0, 640 * 400 * 4},
                           {1, 640 * 400 * 4},
                           {2, 200 * 250 * 4},
                           {3, 640 * 400},
                           {4, 640 * 400 * 4},
                           {5, 640 * 400 * 4}}) {
        makeWindow(cameras({kR0}));
        activate("comboBoxImageType", row.type);
        activate("comboBoxDepthType", row.type);
        camera.scriptGrabs({RESULT_OK});
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return text("labelFps") != ""; }));
        for (const char* name : {"oglWImage", "oglWDepth"}) {
            const unsigned char* image =
                child<qwidget::CPUMouseQOpenGLWidget>(name)->getImagePointer();
            ASSERT_NE(image, nullptr);
            // AddressSanitizer watches the end of the buffer.
            EXPECT_EQ(image[row.bytes - 1], CameraDouble::frameValue(1)) << row.type;
        }
    }
}

TEST_F(WindowPipeline, UnknownViewTypeIsLoggedAndLeavesTheView) {
    startLive();
    const auto* before = child<qwidget::CPUMouseQOpenGLWidget>("oglWImage")->getImagePointer();
    MainWindowAccess::setImageType(*window, 6);
    log.clear();
    {
        const app::FrameMutex::GuiLock lock(MainWindowAccess::mutex(*window));
        MainWindowAccess::initViews(*window);
    }
    EXPECT_THAT(log.lines(), ElementsAre("default: no such obstacle view type: 6"));
    EXPECT_EQ(child<qwidget::CPUMouseQOpenGLWidget>("oglWImage")->getImagePointer(), before);
}

}  // namespace
}  // namespace kova::test
