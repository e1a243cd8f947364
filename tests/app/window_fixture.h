#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QObject>
#include <QTimer>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/mainwindow.h"
#include "tests/support/sdk_double.h"

/// The tests' view of the window's state.
struct MainWindowAccess {
    static const MainWindow& ofConst(const MainWindow& window) { return window; }
    static std::map<std::string, std::string> members(const MainWindow& window);
    static kova::Size2_<int> pressed(const MainWindow& w) { return w.pressed_point; }
    static kova::Size2_<int> released(const MainWindow& w) { return w.released_point; }
    static kova::Size3_<float> pressedXyz(const MainWindow& w) { return w.pressed_point_xyz; }
    static kova::Size3_<float> releasedXyz(const MainWindow& w) { return w.released_point_xyz; }
    static float ratioX(const MainWindow& w) { return w.display_ratio_x; }
    static float ratioY(const MainWindow& w) { return w.display_ratio_y; }
    static bool running(const MainWindow& w) { return w.running; }
    static bool finished(const MainWindow& w) { return w.finished; }
    static bool playing(const MainWindow& w) { return w.playing; }
    static double calculationTime(const MainWindow& w) { return w.calculation_time; }
    static kova::app::FrameMutex& mutex(MainWindow& w) { return w.mutex; }
    static std::vector<const void*> records(const MainWindow& w);
    /// The worker's update of the replay position, as if one frame had been grabbed.
    static void positionUpdate(MainWindow& w) {
        w.update_from_worker(&MainWindow::show_replay_position);
    }
    static void pausedUpdate(MainWindow& w) {
        w.update_from_worker(&MainWindow::show_replay_paused);
    }
    static void setImageType(MainWindow& w, int type) {
        w.image_view_type = static_cast<kova::bino::OBSTACLE_VIEW_TYPE>(type);
    }
    static void initViews(MainWindow& w) { w.init_openglwidget_resource(); }
    static void uninitViews(MainWindow& w) { w.uninit_openglwidget_resource(); }
    static void updatePoints(MainWindow& w) { w.update_points(); }
    static void setResolutionList(MainWindow& w,
                                  std::vector<kova::bino::RESOLUTION_FPS_MODE> list) {
        w.resolution_list = std::move(list);
    }
};

namespace kova::test {

/// Everything that a window shows and keeps, as text by name: "btnStart.hidden", "running" and so
/// on. Pointers and times are left out.
using State = std::map<std::string, std::string>;

State stateOf(const MainWindow& window);

/// The entries of `after` that are not the same in `before`.
State changes(const State& before, const State& after);

/// What the window logs, as "category: text", while an object of this class lives.
class LogWatch {
public:
    LogWatch();
    ~LogWatch();
    std::vector<std::string> lines() const;
    int count(const std::string& line) const;
    void clear();
};

/// Answers modal boxes, nested ones too: notes what a message box says and presses Ok, after a look
/// of the test's own; hands file dialogs to the test.
class ModalWatch {
public:
    ModalWatch();

    struct Box {
        std::string title;
        std::string text;
        int buttons = 0;
        bool has_parent = false;
        bool operator==(const Box& other) const {
            return title == other.title && text == other.text && buttons == other.buttons &&
                   has_parent == other.has_parent;
        }
    };
    static Box error(const std::string& text) { return {"Error", text, QMessageBox::Ok, false}; }

    std::vector<Box> boxes;
    /// Called once for each message box, before it is closed.
    std::function<void(QMessageBox&)> on_box;
    /// Called once for each file dialog; it must see to its end. Without it dialogs are rejected.
    std::function<void(QFileDialog&)> on_file_dialog;

private:
    void lookLater();
    void look();
    QObject context_;
};

class WindowTest : public testing::Test {
protected:
    WindowTest();
    ~WindowTest() override;

    /// The window with a camera as scripted; not shown.
    MainWindow& makeWindow(const CameraScript& script);
    /// Destroys the window.
    void dropWindow() { window.reset(); }

    template <typename T = QWidget>
    T* child(const char* name) {
        T* widget = window->findChild<T*>(QString::fromLatin1(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }
    std::string text(const char* label);
    bool hidden(const char* name) { return child(name)->isHidden(); }
    bool enabled(const char* name) { return child(name)->isEnabled(); }
    std::vector<std::string> entries(const char* combo_box);

    void click(const char* button);
    /// As the user picks an entry of a list.
    void activate(const char* combo_box, int index);
    /// Picks the file chooser and answers it with a path.
    void chooseFile(const QString& path);
    /// Chooses an existing empty file of that name below the test's folder and starts it.
    void startFile();

    CameraDouble& camera = CameraDouble::instance();
    LogWatch log;
    ModalWatch modal;
    std::unique_ptr<MainWindow> window;
};

/// Lets the event loop run until the condition holds; false after ten seconds.
bool waitFor(const std::function<bool()>& condition);

/// Lets the event loop handle what is pending.
void handleEvents();

/// Lets the event loop run for a while.
void runFor(int milliseconds);

/// A script with cameras of these models.
CameraScript cameras(std::vector<bino::CAMERA_MODEL> models);

}  // namespace kova::test
