#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QElapsedTimer>
#include <QLabel>
#include <QProcess>
#include <QSignalBlocker>
#include <QSlider>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QWindow>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "app/application.h"
#include "tests/app/window_fixture.h"
#include "tests/support/test_data.h"

// The worker touches widgets while the GUI thread resizes, repaints and runs nested event loops. A
// mistake in how that is made safe corrupts memory, which shows as a crash sooner or later: so this
// runs for a while, once with each of Qt's event dispatchers.

namespace kova::test {
namespace {

using kova::app::Application;

/// Seconds for both dispatchers together; KOVA_STRESS_SECONDS asks for more.
int secondsInAll() {
    const char* wish = std::getenv("KOVA_STRESS_SECONDS");
    return wish ? std::max(2, std::atoi(wish)) : 30;
}

class Stress : public WindowTest {
protected:
    // A recording of eight small frames. In turns of 300 frames a grab takes no longer than
    // it takes to fill the buffers, which keeps the GUI thread painting without a pause, and of
    // 30 frames up to 40 ms, so that the GUI thread is blocked and awake by turns.
    void startLoopedFile() {
        CameraScript script = cameras({});
        script.frames = 8;
        script.size = {256, 200, 30};  // the top view, of 200 x 250 pixels, fits into the buffers
        script.work_mode_result = RESULT_CAN_NOT_OPEN_FILE;
        makeWindow(script);
        camera.on_grab = [this] {
            const int n = ++grabs;
            for (int i = 0; i < kMoreUpdates; ++i) moreUpdates(n * kMoreUpdates + i);
            if (n % 256 == 0)
                camera.forgetCalls();
            if (n % 330 >= 300)
                QThread::msleep(static_cast<unsigned long>(n * 7919 % 41));
        };
        frame_label = child<QLabel>("labelCurrentFrameIndex");
        frame_slider = child<QSlider>("horizontalSliderKovaFileReplay");
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        const std::filesystem::path path = folder / "looped.kova";
        std::ofstream(path) << "recording";
        chooseFile(QString::fromStdString(path.string()));
        click("checkBoxLoop");
        click("btnStart");
    }

    // What the worker does for a frame, more often, since chance alone decides whether a mistake
    // shows: text of another length and another position.
    void moreUpdates(int n) {
        Application::updateWidgets(window.get(), [this, n] {
            frame_label->setText(QString(n % 7 + 1, QLatin1Char('8')));
            const QSignalBlocker blocker(frame_slider);
            frame_slider->setValue(n % 8);
        });
    }

    int random(int count) { return static_cast<int>(generator() % static_cast<unsigned>(count)); }

    // One thing that a user does. Called from a timer, so within nested event loops too.
    void act() {
        ++actions;
        switch (random(depth == 0 ? 14 : 8)) {
            case 0:
            case 1:
                window->resize(800 + random(500), 500 + random(400));
                break;
            case 2:
                window->repaint();
                break;
            case 3:
                for (QWidget* widget : window->findChildren<QWidget*>()) widget->update();
                break;
            case 4:
                activate("comboBoxImageType", random(6));
                break;
            case 5:
                activate("comboBoxDepthType", random(6));
                break;
            case 6:
                drag(child("oglWImage"));
                break;
            case 7:  // not painting, the GUI thread lays out and is blocked often
                window->setUpdatesEnabled(!window->updatesEnabled());
                break;
            case 8:
                nested([this] { click("btnTutorials"); });
                break;
            case 9:  // fails; its box is shown while the frame mutex is held
                nested([this] { click("radioButtonSlow"); });
                break;
            case 10:
            case 11:
                nested([this] { openDialog(20 + random(100)); });
                break;
            case 12:  // leaves the GUI thread idle for a moment
                idle = 5 + random(15);
                break;
            case 13:
                if (random(8) == 0) {
                    click("btnStop");
                    click("btnStart");
                }
                break;
        }
    }

    void nested(const std::function<void()>& modal_call) {
        ++depth;
        ++modal_calls;
        modal_call();
        --depth;
    }

    void openDialog(int milliseconds) {
        QDialog dialog(window.get());
        QTimer::singleShot(milliseconds, &dialog, &QDialog::accept);
        dialog.exec();
    }

    void drag(QWidget* view) {
        QWindow* const target = window->windowHandle();
        const auto somewhere = [&] {
            return view->mapTo(window.get(), QPoint(random(view->width()), random(view->height())));
        };
        QTest::mousePress(target, Qt::LeftButton, {}, somewhere());
        QTest::mouseMove(target, somewhere());
        QTest::mouseRelease(target, Qt::LeftButton, {}, somewhere());
    }

    void run(int seconds) {
        QElapsedTimer clock;
        clock.start();
        QTimer user;
        QEventLoop loop;
        QObject::connect(&user, &QTimer::timeout, [&] {
            if (depth == 0 && clock.elapsed() > 1000 * seconds) {
                loop.quit();
            } else if (idle > 0) {
                --idle;
            } else {
                act();
                log.clear();
                modal.boxes.clear();
            }
        });
        user.start(9);
        loop.exec();
    }

    static constexpr int kMoreUpdates = 5;

    TemporaryFolder folder;
    QLabel* frame_label = nullptr;
    QSlider* frame_slider = nullptr;
    std::mt19937 generator{20260301};
    std::atomic<int> grabs{0};
    int actions = 0;
    int modal_calls = 0;
    int depth = 0;
    int idle = 0;
};

TEST_F(Stress, WorkerAndGuiThreadShareTheWidgetsWithThisDispatcher) {
    const int direct_before = Application::directUpdates();
    const int queued_before = Application::queuedUpdates();
    startLoopedFile();
    run(secondsInAll() / 2);
    click("btnStop");
    const int direct = Application::directUpdates() - direct_before;
    const int queued = Application::queuedUpdates() - queued_before;
    const bool glib = !qEnvironmentVariableIsSet("QT_NO_GLIB");
    std::printf("%s: %d s, %d grabs, %d direct updates, %d queued, %d actions, %d modal\n",
                glib ? "glib" : "no glib", secondsInAll() / 2, grabs.load(), direct, queued,
                actions, modal_calls);
    std::fflush(stdout);
    RecordProperty("direct", direct);
    RecordProperty("queued", queued);
    EXPECT_GT(direct, 0);
    EXPECT_GT(queued, 0);
    EXPECT_GT(modal_calls, 0);
    EXPECT_GT(direct + queued, grabs.load() * (kMoreUpdates + 0.9))
        << "each frame moves the slider";
}

TEST(StressOfTheOtherDispatcher, WorkerAndGuiThreadShareTheWidgets) {
    if (qEnvironmentVariableIsSet("QT_NO_GLIB"))
        GTEST_SKIP() << "runs within the process that has glib's dispatcher";
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_NO_GLIB"), QStringLiteral("1"));
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--gtest_filter=Stress.*")});
    ASSERT_TRUE(child.waitForStarted());
    const bool ended = child.waitForFinished(1000 * (10 * secondsInAll() + 60));
    if (!ended) {
        child.kill();
        child.waitForFinished();
    }
    ASSERT_TRUE(ended) << "it hangs";
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit) << "it crashed";
    EXPECT_EQ(child.exitCode(), 0);
}

}  // namespace
}  // namespace kova::test
