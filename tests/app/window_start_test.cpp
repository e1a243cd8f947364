#include <QAbstractButton>
#include <QAbstractSlider>
#include <QCloseEvent>
#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QMetaMethod>
#include <QResizeEvent>
#include <QScreen>
#include <QSpinBox>
#include <QThread>

#include <cmath>
#include <stdexcept>
#include <thread>

#include "qwidget/cpumouseqopenglwidget.h"
#include "qwidget/qxtspanslider.h"
#include "tests/app/window_fixture.h"

namespace kova::test {
namespace {

using bino::CAMERA_MODEL;
using testing::ElementsAre;

constexpr auto kR0 = bino::CAMERA_MODEL_QUELVAR_R0;
constexpr auto kR1 = bino::CAMERA_MODEL_QUELVAR_R1;
constexpr auto kT1 = bino::CAMERA_MODEL_QUELVAR_T1;
constexpr auto kP0 = bino::CAMERA_MODEL_QUELVAR_P0;
constexpr auto kP1 = bino::CAMERA_MODEL_QUELVAR_P1;

class WindowStart : public WindowTest {};

TEST_F(WindowStart, MembersHaveTheirStartValues) {
    const State members = MainWindowAccess::members(makeWindow(cameras({kR0})));
    const State expected = {
        {"camera index", "0"},
        {"camera models", "0 "},
        {"resolution list", "3 4 5 6 11 12 13 14 20 21 22 "},
        {"work mode", "0"},
        {"resolution mode", "4"},
        {"grab parameters", "1 0 1 1 0 0 0 0"},
        {"image view type", "1"},
        {"depth view type", "4"},
        {"stereo parameters", "0 0 0 0"},
        {"image size", "0 x 0"},
        {"running", "0"},
        {"finished", "1"},
        {"flip", "0"},
        {"keep ratio", "1"},
        {"distance range", "0 0"},
        {"live camera", "1"},
        {"playing", "0"},
        {"file path", ""},
        {"loop", "0"},
        {"maximum exposure", "1"},
        {"auto exposure", "1"},
        {"use IMU", "0"},
        {"detection flag 2", "0"},
        {"obstacle parameters", "30 40 0.00359999994 0.00139999995 inf 20 50"},
        {"stixels parameters", "10 10 0 0 10"},
        {"pressed point", "-1 -1"},
        {"released point", "-1 -1"},
        {"frame mutex held", "0"},
    };
    EXPECT_EQ(changes(expected, members), State());
    EXPECT_EQ(members.size(), expected.size());
    EXPECT_EQ(MainWindowAccess::ratioX(*window), 1.0f);
    EXPECT_EQ(MainWindowAccess::ratioY(*window), 1.0f);
    EXPECT_EQ(MainWindowAccess::calculationTime(*window), 0.0);
    EXPECT_THAT(MainWindowAccess::records(*window), testing::Each(nullptr));
}

TEST_F(WindowStart, ControlsOfTheIdleWindow) {
    makeWindow(cameras({kR0, kP1}));
    EXPECT_THAT(entries("comboBoxCamera"),
                ElementsAre("Quelvar R0", "Quelvar P1", "select .kova file"));
    EXPECT_EQ(child<QComboBox>("comboBoxCamera")->currentIndex(), 0);
    EXPECT_TRUE(enabled("btnStart"));
    EXPECT_FALSE(hidden("btnStart"));
    EXPECT_TRUE(hidden("btnStop"));
    EXPECT_TRUE(enabled("comboBoxResolution"));
    EXPECT_TRUE(hidden("checkBoxKeepRatio"));
    EXPECT_TRUE(hidden("groupBoxExposure"));
    EXPECT_TRUE(hidden("groupBoxKovaReplay"));
    EXPECT_EQ(text("labelFar"), "Far");
    EXPECT_EQ(text("labelNear"), "Near");
    EXPECT_EQ(text("labelVersion"), "v 1.6.0");
    EXPECT_EQ(text("labelMaxDistance"), "Distance Range");
    EXPECT_EQ(text("labelConfidence"), "Confidence 100%");

    const auto* span = child<qwidget::QxtSpanSlider>("horizontalSliderDistanceRange");
    EXPECT_EQ(span->handleMovementMode(), qwidget::QxtSpanSlider::NoCrossing);
    EXPECT_EQ(span->minimum(), 0);
    EXPECT_EQ(span->maximum(), 0);
    EXPECT_EQ(span->lowerPosition(), 0);
    EXPECT_EQ(span->upperPosition(), 0);
    EXPECT_EQ(span->lowerValue(), 0);
    EXPECT_EQ(span->upperValue(), 0);
    EXPECT_EQ(span->singleStep(), 50);
    EXPECT_FALSE(span->isEnabled());

    EXPECT_TRUE(child<qwidget::CPUMouseQOpenGLWidget>("oglWImage")->getDrawCross());
    EXPECT_TRUE(child<qwidget::CPUMouseQOpenGLWidget>("oglWDepth")->getDrawCross());
    EXPECT_THAT(camera.calls(), ElementsAre("StereoCamera()", "getAvailableCameraNames()"));
}

TEST_F(WindowStart, ViewTypeListsHoldTheSixNamesInTheOrderOfTheirValues) {
    makeWindow(cameras({kR0}));
    for (const char* list : {"comboBoxImageType", "comboBoxDepthType"})
        EXPECT_THAT(entries(list),
                    ElementsAre("Image With Obstacle", "Image With Ground", "Top View",
                                "Ground Map", "Image With Stixels", "Stixels"));
    EXPECT_EQ(child<QComboBox>("comboBoxImageType")->currentIndex(), 1);
    EXPECT_EQ(child<QComboBox>("comboBoxDepthType")->currentIndex(), 4);
}

TEST_F(WindowStart, EveryModelIsListedWithItsResolutions) {
    struct Row {
        int code;
        const char* name;
        std::vector<std::string> modes;
        int current;
    };
    const std::vector<std::string> slow = {
        "HD800_60FPS", "HD800_50FPS", "HD800_30FPS", "HD800_15FPS", "HD720_60FPS", "HD720_50FPS",
        "HD720_30FPS", "HD720_15FPS", "SD400_60FPS", "SD400_30FPS", "SD400_15FPS"};
    const std::vector<std::string> all = {
        "HD800_120FPS", "HD800_100FPS", "HD800_60FPS", "HD800_50FPS", "HD800_30FPS", "HD800_15FPS",
        "HD720_120FPS", "HD720_100FPS", "HD720_60FPS", "HD720_50FPS", "HD720_30FPS", "HD720_15FPS",
        "SD400_120FPS", "SD400_100FPS", "SD400_90FPS", "SD400_60FPS", "SD400_30FPS", "SD400_15FPS"};
    for (const Row& row : {Row{0, "Quelvar R0", slow, 1}, Row{1, "Quelvar R1", all, 3},
                           Row{51, "Quelvar T1", all, 3}, Row{100, "Quelvar P0", slow, 1},
                           Row{101, "Quelvar P1", all, 3}}) {
        SCOPED_TRACE(row.name);
        makeWindow(cameras({static_cast<CAMERA_MODEL>(row.code)}));
        EXPECT_THAT(entries("comboBoxCamera"), ElementsAre(row.name, "select .kova file"));
        EXPECT_EQ(entries("comboBoxResolution"), row.modes);
        EXPECT_EQ(child<QComboBox>("comboBoxResolution")->currentIndex(), row.current);
        EXPECT_EQ(child<QComboBox>("comboBoxResolution")->currentText(), "HD800_50FPS");
        EXPECT_EQ(MainWindowAccess::members(*window).at("resolution mode"), "4");
    }
}

TEST_F(WindowStart, UnknownModelIsListedAsAnEmptyEntry) {
    makeWindow(cameras({kR0, static_cast<CAMERA_MODEL>(2), kT1}));
    EXPECT_THAT(entries("comboBoxCamera"),
                ElementsAre("Quelvar R0", "", "Quelvar T1", "select .kova file"));
}

TEST_F(WindowStart, UnknownFirstModelEndsTheStartWithOutOfRange) {
    camera.reset(cameras({static_cast<CAMERA_MODEL>(2), kR0}));
    EXPECT_THROW(MainWindow(), std::out_of_range);
    EXPECT_EQ(camera.count("~StereoCamera"), 1);
}

TEST_F(WindowStart, WithoutACameraOnlyTheFileChooserIsListed) {
    makeWindow(cameras({}));
    EXPECT_THAT(entries("comboBoxCamera"), ElementsAre("select .kova file"));
    EXPECT_THAT(entries("comboBoxResolution"), ElementsAre());
    EXPECT_FALSE(enabled("btnStart"));
    EXPECT_FALSE(enabled("comboBoxResolution"));
    EXPECT_EQ(MainWindowAccess::members(*window).at("live camera"), "0");
}

TEST_F(WindowStart, ScreenIsLogged) {
    makeWindow(cameras({kR0}));
    const QSize screen = QGuiApplication::primaryScreen()->geometry().size();
    const auto lines = log.lines();
    ASSERT_GE(lines.size(), 1u);
    EXPECT_EQ(lines[0], "default: primary screen: width " + std::to_string(screen.width()) +
                            ", height " + std::to_string(screen.height()));
    const auto size = app::windowSizeForScreen(screen.width(), screen.height());
    EXPECT_EQ(log.count("default: screen resolution is not enough, resize..."), size ? 1 : 0);
    EXPECT_EQ(window->size(), size.value_or(QSize(2500, 1400)).expandedTo(QSize(800, 500)));
}

struct Method {
    int index;
    const char* signature;
};

TEST_F(WindowStart, MethodsAreNumberedInOrder) {
    constexpr Method kMethods[] = {
        {0, "signal_show()"},
        {1, "slot_start()"},
        {2, "slot_stop()"},
        {3, "slot_image_type_changed(int)"},
        {4, "slot_depth_type_changed(int)"},
        {5, "slot_camera_changed(int)"},
        {6, "slot_resolution_changed(int)"},
        {7, "slot_mouse_pressed_image()"},
        {8, "slot_mouse_pressed_depth()"},
        {9, "slot_mouse_released_image()"},
        {10, "slot_mouse_released_depth()"},
        {11, "slot_mouse_moved_image()"},
        {12, "slot_mouse_moved_depth()"},
        {13, "slot_flip_changed(bool)"},
        {14, "slot_keep_ratio_changed(bool)"},
        {15, "slot_max_distance_changed(int)"},
        {16, "slot_min_distance_changed(int)"},
        {17, "slot_depth_mode_selected()"},
        {18, "slot_kova_file_play_pause()"},
        {19, "slot_kova_file_frame_index_changed(int)"},
        {20, "slot_loop_changed(bool)"},
        {21, "slot_work_mode_selected()"},
        {22, "slot_confidence_threshold_changed(int)"},
        {23, "slot_exposure_changed(int)"},
        {24, "slot_auto_exposure_changed(bool)"},
        {25, "slot_show_result()"},
        {26, "slot_obstacle_using_imu_changed(bool)"},
        {27, "slot_show_tutorials()"},
        {28, "slot_obstacle_parameter_changed1(int)"},
        {29, "slot_obstacle_parameter_changed2(int)"},
        {30, "slot_play_one_frame()"},
    };
    const QMetaObject& meta = MainWindow::staticMetaObject;
    EXPECT_STREQ(meta.className(), "MainWindow");
    EXPECT_STREQ(meta.superClass()->className(), "QMainWindow");
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), static_cast<int>(std::size(kMethods)));
    for (const Method& method : kMethods) {
        const QMetaMethod found = meta.method(meta.methodOffset() + method.index);
        EXPECT_EQ(found.methodSignature().toStdString(), method.signature);
        EXPECT_EQ(found.methodType(), method.index == 0 ? QMetaMethod::Signal : QMetaMethod::Slot);
        EXPECT_STREQ(found.typeName(), "void");
    }
}

struct Connection {
    const char* sender;  // "" is the window
    const char* signal;
    const char* slot;
};

constexpr Connection kConnections[] = {
    {"btnStart", SIGNAL(clicked()), SLOT(slot_start())},
    {"btnStop", SIGNAL(clicked()), SLOT(slot_stop())},
    {"comboBoxImageType", SIGNAL(activated(int)), SLOT(slot_image_type_changed(int))},
    {"comboBoxDepthType", SIGNAL(activated(int)), SLOT(slot_depth_type_changed(int))},
    {"comboBoxCamera", SIGNAL(activated(int)), SLOT(slot_camera_changed(int))},
    {"comboBoxResolution", SIGNAL(activated(int)), SLOT(slot_resolution_changed(int))},
    {"oglWImage", SIGNAL(mouse_released()), SLOT(slot_mouse_released_image())},
    {"oglWDepth", SIGNAL(mouse_released()), SLOT(slot_mouse_released_depth())},
    {"oglWImage", SIGNAL(mouse_pressed()), SLOT(slot_mouse_pressed_image())},
    {"oglWDepth", SIGNAL(mouse_pressed()), SLOT(slot_mouse_pressed_depth())},
    {"oglWImage", SIGNAL(mouse_moved()), SLOT(slot_mouse_moved_image())},
    {"oglWDepth", SIGNAL(mouse_moved()), SLOT(slot_mouse_moved_depth())},
    {"checkBoxFlip", SIGNAL(toggled(bool)), SLOT(slot_flip_changed(bool))},
    {"checkBoxKeepRatio", SIGNAL(toggled(bool)), SLOT(slot_keep_ratio_changed(bool))},
    {"horizontalSliderDistanceRange", SIGNAL(upperValueChanged(int)),
     SLOT(slot_max_distance_changed(int))},
    {"horizontalSliderDistanceRange", SIGNAL(lowerValueChanged(int)),
     SLOT(slot_min_distance_changed(int))},
    {"radioButtonStandard", SIGNAL(clicked()), SLOT(slot_depth_mode_selected())},
    {"radioButtonFill", SIGNAL(clicked()), SLOT(slot_depth_mode_selected())},
    {"btnKovaFilePlayPause", SIGNAL(clicked()), SLOT(slot_kova_file_play_pause())},
    {"horizontalSliderKovaFileReplay", SIGNAL(valueChanged(int)),
     SLOT(slot_kova_file_frame_index_changed(int))},
    {"checkBoxLoop", SIGNAL(toggled(bool)), SLOT(slot_loop_changed(bool))},
    {"radioButtonFast", SIGNAL(clicked()), SLOT(slot_work_mode_selected())},
    {"radioButtonMedium", SIGNAL(clicked()), SLOT(slot_work_mode_selected())},
    {"radioButtonSlow", SIGNAL(clicked()), SLOT(slot_work_mode_selected())},
    {"horizontalSliderConfidence", SIGNAL(valueChanged(int)),
     SLOT(slot_confidence_threshold_changed(int))},
    {"horizontalSliderExposure", SIGNAL(valueChanged(int)), SLOT(slot_exposure_changed(int))},
    {"checkBoxAutoExposure", SIGNAL(toggled(bool)), SLOT(slot_auto_exposure_changed(bool))},
    {"checkBoxObstacleDetectionUsingIMU", SIGNAL(toggled(bool)),
     SLOT(slot_obstacle_using_imu_changed(bool))},
    {"btnTutorials", SIGNAL(clicked()), SLOT(slot_show_tutorials())},
    {"spinBoxObsPara1", SIGNAL(valueChanged(int)), SLOT(slot_obstacle_parameter_changed1(int))},
    {"spinBoxObsPara2", SIGNAL(valueChanged(int)), SLOT(slot_obstacle_parameter_changed2(int))},
    {"", SIGNAL(signal_show()), SLOT(slot_show_result())},
    {"btnKovaFilePlayOneFrame", SIGNAL(clicked()), SLOT(slot_play_one_frame())},
};

// receivers() is protected.
struct Receivers : QObject {
    static int of(const QObject* sender, const char* signal) {
        return (sender->*(&Receivers::receivers))(signal);
    }
};

TEST_F(WindowStart, ConnectionsAreTheThirtyThreeOfTheTable) {
    makeWindow(cameras({kR0}));
    EXPECT_EQ(std::size(kConnections), 33u);
    for (const Connection& connection : kConnections) {
        QObject* sender =
            *connection.sender ? child(connection.sender) : static_cast<QObject*>(window.get());
        EXPECT_EQ(Receivers::of(sender, connection.signal), 1)
            << connection.sender << " " << connection.signal;
        EXPECT_TRUE(QObject::disconnect(sender, connection.signal, window.get(), connection.slot))
            << connection.sender << " " << connection.signal;
    }
    // Nothing is left: no other signal of a named widget reaches a slot of the window.
    const QMetaObject& meta = MainWindow::staticMetaObject;
    for (QWidget* sender : window->findChildren<QWidget*>()) {
        if (sender->objectName().isEmpty())
            continue;
        for (int i = meta.methodOffset() + 1; i < meta.methodCount(); ++i) {
            const QByteArray slot = "1" + meta.method(i).methodSignature();
            EXPECT_FALSE(QObject::disconnect(sender, nullptr, window.get(), slot))
                << qPrintable(sender->objectName()) << " " << slot.constData();
        }
    }
}

TEST_F(WindowStart, ShowSignalFromAnotherThreadIsDeliveredQueued) {
    makeWindow(cameras({kR0}));
    std::thread([&] { emit window->signal_show(); }).join();
    EXPECT_EQ(text("labelFps"), "");
    handleEvents();
    EXPECT_EQ(text("labelFps"), "Calculation time: 0.0 ms");
}

TEST_F(WindowStart, InvalidResizeEventLeavesTheDisplayRatios) {
    makeWindow(cameras({kR0}));
    for (const QSize& size : {QSize(-1, -1), QSize(-1, 300), QSize(300, -1)}) {
        QResizeEvent event(size, QSize(100, 100));
        QCoreApplication::sendEvent(window.get(), &event);
        EXPECT_EQ(MainWindowAccess::ratioX(*window), 1.0f);
        EXPECT_EQ(MainWindowAccess::ratioY(*window), 1.0f);
    }
    QResizeEvent event(QSize(300, 200), QSize(100, 100));
    QCoreApplication::sendEvent(window.get(), &event);
    EXPECT_TRUE(std::isinf(MainWindowAccess::ratioX(*window)));
    EXPECT_TRUE(std::isinf(MainWindowAccess::ratioY(*window)));
}

TEST_F(WindowStart, RatiosAreThoseOfTheLowerViewAndTheImages) {
    makeWindow(cameras({kR0}));
    window->show();
    handleEvents();
    click("btnStart");
    const QWidget* view = child("oglWDepth");
    const auto expect_ratios = [&] {
        EXPECT_EQ(MainWindowAccess::ratioX(*window), static_cast<float>(view->width()) / 640.0f);
        EXPECT_EQ(MainWindowAccess::ratioY(*window), static_cast<float>(view->height()) / 400.0f);
    };
    expect_ratios();
    window->resize(1900, 1000);
    handleEvents();
    expect_ratios();
}

TEST_F(WindowStart, ClosingWithoutACaptureReturnsAtOnce) {
    makeWindow(cameras({kR0}));
    window->show();
    camera.forgetCalls();
    ASSERT_TRUE(MainWindowAccess::finished(*window));  // so there is nothing to wait for
    EXPECT_TRUE(window->close());
    EXPECT_THAT(camera.calls(), ElementsAre("close()"));
}

TEST_F(WindowStart, ClosingDuringACaptureWaitsForTheWorkersCycle) {
    makeWindow(cameras({kR0}));
    window->show();
    std::atomic<bool> in_grab{false};
    std::atomic<bool> grab_over{false};
    camera.on_grab = [&] {
        in_grab = true;
        QThread::msleep(150);
        grab_over = !MainWindowAccess::running(*window);
    };
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return in_grab.load(); }));
    camera.forgetCalls();
    EXPECT_TRUE(window->close());
    EXPECT_TRUE(grab_over);
    EXPECT_TRUE(MainWindowAccess::finished(*window));
    EXPECT_FALSE(MainWindowAccess::running(*window));
    EXPECT_THAT(camera.calls(), ElementsAre("close()"));
    EXPECT_THAT(MainWindowAccess::records(*window), testing::Each(nullptr));
    const int grabs = camera.count("grab");
    runFor(20);
    EXPECT_EQ(camera.count("grab"), grabs);
}

TEST_F(WindowStart, EveryCloseRequestIsAccepted) {
    makeWindow(cameras({kR0}));
    QCloseEvent event;
    event.ignore();
    QCoreApplication::sendEvent(window.get(), &event);
    EXPECT_TRUE(event.isAccepted());
}

TEST_F(WindowStart, WindowThatDiesDuringACaptureEndsTheWorkerFirst) {
    makeWindow(cameras({kR0}));
    camera.scriptGrabs({}, RESULT_OK);
    click("btnStart");
    ASSERT_TRUE(waitFor([&] { return camera.framesDelivered() > 2; }));
    dropWindow();
    EXPECT_EQ(camera.count("~StereoCamera"), 1);
    const int grabs = camera.count("grab");
    runFor(20);
    EXPECT_EQ(camera.count("grab"), grabs);
}

}  // namespace
}  // namespace kova::test
