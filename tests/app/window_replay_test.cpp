#include <QAbstractButton>
#include <QAbstractSlider>
#include <QLabel>
#include <QTest>

#include <fstream>
#include <mutex>

#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

namespace kova::test {
namespace {

using testing::ElementsAre;

class WindowReplay : public WindowTest {
protected:
    void start(int frames) {
        CameraScript script = cameras({});
        script.frames = frames;
        makeWindow(script);
        const std::filesystem::path path = folder / "a.kova";
        std::ofstream(path) << "recording";
        chooseFile(QString::fromStdString(path.string()));
        click("btnStart");
        ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 0; }));
    }
    void startPaused(int frames) {
        start(frames);
        click("btnKovaFilePlayPause");
        settle();
    }
    // Until the frame that was under way is over and shown.
    void settle() {
        { const std::lock_guard lock(MainWindowAccess::mutex(*window)); }
        handleEvents();
        camera.forgetCalls();
        log.clear();
    }
    QAbstractSlider* slider() { return child<QAbstractSlider>("horizontalSliderKovaFileReplay"); }
    std::string buttonText() {
        return child<QAbstractButton>("btnKovaFilePlayPause")->text().toStdString();
    }
    bool playing() { return MainWindowAccess::playing(*window); }
    // The frame calls but those of the worker's idle rounds, which read nothing while paused.
    int grabs() { return camera.count("grab"); }

    TemporaryFolder folder;
};

TEST_F(WindowReplay, PlayPauseTogglesAndNamesTheNextAction) {
    start(100000);
    EXPECT_TRUE(playing());
    EXPECT_EQ(buttonText(), "Pause");
    EXPECT_FALSE(enabled("btnKovaFilePlayOneFrame"));
    click("btnKovaFilePlayPause");
    EXPECT_FALSE(playing());
    EXPECT_EQ(buttonText(), "Play");
    EXPECT_TRUE(enabled("btnKovaFilePlayOneFrame"));
    click("btnKovaFilePlayPause");
    EXPECT_TRUE(playing());
    EXPECT_EQ(buttonText(), "Pause");
    EXPECT_FALSE(enabled("btnKovaFilePlayOneFrame"));
}

TEST_F(WindowReplay, OneFrameShowsTheNextFrame) {
    startPaused(1000);
    slider()->setValue(20);
    settle();
    click("btnKovaFilePlayOneFrame");
    handleEvents();
    EXPECT_EQ(text("labelCurrentFrameIndex"), "21");
    EXPECT_EQ(slider()->value(), 21);
    EXPECT_EQ(grabs(), 1);
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 1);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
    EXPECT_FALSE(playing());
}

TEST_F(WindowReplay, OneFrameAtTheLastFrameDoesNothingWithOrWithoutLoop) {
    startPaused(30);
    slider()->setValue(29);
    for (const bool loop : {false, true}) {
        child<QAbstractButton>("checkBoxLoop")->setChecked(loop);
        settle();
        const State before = stateOf(*window);
        click("btnKovaFilePlayOneFrame");
        handleEvents();
        EXPECT_EQ(changes(before, stateOf(*window)), State());
        EXPECT_EQ(grabs(), 0);
    }
}

TEST_F(WindowReplay, OneFrameThatIsNotDeliveredKeepsTheOldPosition) {
    startPaused(1000);
    slider()->setValue(20);
    settle();
    camera.scriptGrabs({}, RESULT_NOT_NEW_FRAME);
    const State before = stateOf(*window);
    click("btnKovaFilePlayOneFrame");
    handleEvents();
    EXPECT_EQ(changes(before, stateOf(*window)), State());
    EXPECT_EQ(camera.count("retrieveDepthForObstacleDetection"), 0);
}

TEST_F(WindowReplay, SliderWhilePlayingPausesAndShowsTheChosenFrame) {
    start(100000);
    log.clear();
    slider()->setValue(5000);
    EXPECT_FALSE(playing());
    EXPECT_EQ(buttonText(), "Play");
    EXPECT_TRUE(enabled("btnKovaFilePlayOneFrame"));
    EXPECT_EQ(log.count("default: set .kova file frame index: 5000"), 1);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 1);
    settle();
    // A frame of the worker may have come in between; then the position is the one after it.
    const int position = slider()->value();
    EXPECT_GE(position, 5000);
    EXPECT_LE(position, 5001);
    EXPECT_EQ(text("labelCurrentFrameIndex"), std::to_string(position));
}

TEST_F(WindowReplay, ClickOnTheSliderSeeksOnce) {
    startPaused(101);
    window->show();
    handleEvents();
    log.clear();
    camera.forgetCalls();
    QTest::mouseClick(slider(), Qt::LeftButton, Qt::NoModifier,
                      QPoint(slider()->width() / 2, slider()->height() / 2));
    handleEvents();
    EXPECT_NEAR(slider()->value(), 50, 2);
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 1);
    EXPECT_EQ(grabs(), 1);
    EXPECT_EQ(text("labelCurrentFrameIndex"), std::to_string(slider()->value()));
}

TEST_F(WindowReplay, SeekRetrievesAndShowsTheFrame) {
    startPaused(1000);
    slider()->setValue(77);
    std::vector<std::string> expected = {
        "setTargetKovaPosition(77)",
        "grab({1 0 1 1 0 0 0 0})",
        "retrieveObstacleDetectionView(1)",
        "retrieveObstacleDetectionView(4)",
        "retrieveDepthForObstacleDetection(10)",
        "retrieveObstacleDetectionView(4)",
        "getCurrentKovaPosition()",
        "getCurrentKovaPosition()",
    };
    EXPECT_EQ(camera.frameCalls(), expected);
    EXPECT_EQ(text("labelCurrentFrameIndex"), "77");
    EXPECT_THAT(log.lines(), ElementsAre("default: set .kova file frame index: 77"));
}

TEST_F(WindowReplay, SeekThatFailsKeepsTheOldLabel) {
    startPaused(1000);
    slider()->setValue(77);
    camera.scriptGrabs({}, RESULT_NOT_NEW_FRAME);
    slider()->setValue(200);
    handleEvents();
    EXPECT_EQ(text("labelCurrentFrameIndex"), "77");
    EXPECT_EQ(slider()->value(), 200);  // where the user has put it
    EXPECT_TRUE(modal.boxes.empty());
}

TEST_F(WindowReplay, PositionDisplayDoesNotReEnterTheFrameIndexSlot) {
    start(60);
    ASSERT_TRUE(waitFor([&] { return text("labelCurrentFrameIndex") == "59"; }));
    EXPECT_EQ(slider()->value(), 59);
    for (const std::string& line : log.lines())
        EXPECT_EQ(line.find("frame index"), std::string::npos) << line;
    EXPECT_EQ(camera.count("setTargetKovaPosition"), 0);
}

TEST_F(WindowReplay, LoopPassesFromTheLastFrameToFrameZero) {
    startPaused(5);
    click("checkBoxLoop");
    EXPECT_EQ(log.count("default: set loop: 1"), 1);
    slider()->setValue(4);
    settle();
    camera.scriptGrabs({RESULT_OK}, RESULT_NOT_NEW_FRAME);
    click("btnKovaFilePlayPause");
    EXPECT_TRUE(waitFor([&] { return text("labelCurrentFrameIndex") == "0"; }));
    EXPECT_EQ(slider()->value(), 0);
    EXPECT_TRUE(playing());
    EXPECT_EQ(log.count("default: end of the .kova file, back to start.."), 1);
    click("checkBoxLoop");
    EXPECT_EQ(log.count("default: set loop: 0"), 1);
}

TEST_F(WindowReplay, PlayAtTheLastFrameWithoutLoopPausesAgain) {
    startPaused(5);
    slider()->setValue(4);
    settle();
    click("btnKovaFilePlayPause");
    EXPECT_TRUE(waitFor([&] { return buttonText() == "Play"; }));
    EXPECT_FALSE(playing());
    EXPECT_TRUE(enabled("btnKovaFilePlayOneFrame"));
    EXPECT_EQ(grabs(), 0);
}

}  // namespace
}  // namespace kova::test
