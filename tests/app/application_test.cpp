#include "app/application.h"

#include <gtest/gtest.h>

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QLabel>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

using kova::app::Application;

namespace {

// What main() passes on; every test makes the application object that it needs.
int argument_count = 1;
char program[] = "application_test";
char* arguments[] = {program, nullptr};

class ApplicationTest : public testing::Test {
protected:
    void SetUp() override {
        direct_before = Application::directUpdates();
        queued_before = Application::queuedUpdates();
    }
    int direct() const { return Application::directUpdates() - direct_before; }
    int queued() const { return Application::queuedUpdates() - queued_before; }

    // One update from another thread, which is waited for: were the worker to wait for the GUI
    // thread, this would never return.
    static void updateFromWorker(QObject* context, std::function<void()> update) {
        std::thread([&] { Application::updateWidgets(context, std::move(update)); }).join();
    }

    // Updates from another thread until one was made directly; false after ten seconds.
    bool directComesIn(QObject* context) const {
        const int before = Application::directUpdates();
        for (int i = 0; i < 10000; ++i) {
            Application::updateWidgets(context, [] {});
            if (Application::directUpdates() > before)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    int direct_before = 0;
    int queued_before = 0;
};

TEST_F(ApplicationTest, ChoosesTheDispatcherThatTheEnvironmentAsksFor) {
    Application application(argument_count, arguments);
    const QString name = QAbstractEventDispatcher::instance()->metaObject()->className();
    EXPECT_EQ(name.contains("Glib", Qt::CaseInsensitive), !qEnvironmentVariableIsSet("QT_NO_GLIB"))
        << name.toStdString();
}

TEST_F(ApplicationTest, UpdateRunsAtOnceWhileTheGuiThreadIsBlocked) {
    Application application(argument_count, arguments);
    QLabel label;
    std::thread::id ran_in;
    bool was_direct = false;
    std::thread worker([&] {
        was_direct = directComesIn(&label);
        QMetaObject::invokeMethod(&application, &QApplication::quit, Qt::QueuedConnection);
    });
    QApplication::exec();
    worker.join();
    EXPECT_TRUE(was_direct);
    EXPECT_EQ(direct(), 1);
}

TEST_F(ApplicationTest, DirectUpdateRunsInTheWorkersThread) {
    Application application(argument_count, arguments);
    QLabel label;
    std::atomic<bool> same{false};
    std::thread worker([&] {
        const std::thread::id me = std::this_thread::get_id();
        for (int i = 0; i < 10000 && !same; ++i) {
            Application::updateWidgets(&label, [&same, me] {
                if (std::this_thread::get_id() == me)
                    same = true;
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        QMetaObject::invokeMethod(&application, &QApplication::quit, Qt::QueuedConnection);
    });
    QApplication::exec();
    worker.join();
    EXPECT_TRUE(same);
}

TEST_F(ApplicationTest, UpdateIsQueuedWhileAHandlerRuns) {
    Application application(argument_count, arguments);
    QLabel label;
    std::thread::id ran_in;
    bool ran_before_handler_ended = true;
    // The delay lets the dispatcher block first: the handler then runs between aboutToBlock and
    // awake, with either dispatcher.
    QTimer::singleShot(50, &label, [&] {
        updateFromWorker(&label, [&] {
            ran_in = std::this_thread::get_id();
            QApplication::quit();
        });
        ran_before_handler_ended = ran_in != std::thread::id();
    });
    QApplication::exec();
    EXPECT_FALSE(ran_before_handler_ended);
    EXPECT_EQ(ran_in, std::this_thread::get_id());
    EXPECT_EQ(queued(), 1);
    EXPECT_EQ(direct(), 0);
}

TEST_F(ApplicationTest, HandlerHasTheLockAgainAfterANestedEventLoop) {
    Application application(argument_count, arguments);
    QLabel label;
    int direct_in_loop = 0;
    int direct_after_loop = 0;
    int queued_after_loop = 0;
    QTimer::singleShot(50, &label, [&] {
        QEventLoop loop;
        std::thread worker([&] {
            directComesIn(&label);
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
        loop.exec();
        worker.join();
        direct_in_loop = direct();
        const int queued_in_loop = queued();
        updateFromWorker(&label, [] {});
        direct_after_loop = direct() - direct_in_loop;
        queued_after_loop = queued() - queued_in_loop;
        QApplication::quit();
    });
    QApplication::exec();
    EXPECT_EQ(direct_in_loop, 1);
    EXPECT_EQ(direct_after_loop, 0);
    EXPECT_EQ(queued_after_loop, 1);
}

TEST_F(ApplicationTest, HandlerHasTheLockAgainAfterAModalBox) {
    Application application(argument_count, arguments);
    QLabel label;
    for (int round = 0; round < 5; ++round) {
        const int direct_at_start = direct();
        int direct_after_box = -1;
        QTimer::singleShot(10, &label, [&] {
            QMessageBox box;
            std::thread worker([&] {
                directComesIn(&label);
                QMetaObject::invokeMethod(&box, "accept", Qt::QueuedConnection);
            });
            box.exec();
            worker.join();
            EXPECT_EQ(direct(), direct_at_start + 1);
            updateFromWorker(&label, [] {});
            direct_after_box = direct();
            QApplication::quit();
        });
        QApplication::exec();
        EXPECT_EQ(direct_after_box, direct_at_start + 1);
    }
}

TEST_F(ApplicationTest, TheGuiThreadHasTheLockOutsideTheEventLoop) {
    Application application(argument_count, arguments);
    QLabel label;
    updateFromWorker(&label, [] {});
    EXPECT_EQ(queued(), 1);
    QTimer::singleShot(20, &application, &QApplication::quit);
    QApplication::exec();
    updateFromWorker(&label, [] {});
    EXPECT_EQ(queued(), 2);
    EXPECT_EQ(direct(), 0);
}

TEST_F(ApplicationTest, ReleasedLetsTheWorkerInWithinItsScope) {
    Application application(argument_count, arguments);
    QLabel label;
    bool ran = false;
    {
        const Application::Released released;
        { const Application::Released nested; }
        updateFromWorker(&label, [&] { ran = true; });
        EXPECT_TRUE(ran);
        EXPECT_EQ(direct(), 1);
    }
    updateFromWorker(&label, [] {});
    EXPECT_EQ(direct(), 1);
    EXPECT_EQ(queued(), 1);
}

TEST_F(ApplicationTest, EventDeliveredWithinAReleasedScopeTakesTheLock) {
    Application application(argument_count, arguments);
    QLabel label;
    const Application::Released released;
    QEvent event(QEvent::User);
    QCoreApplication::sendEvent(&label, &event);
    updateFromWorker(&label, [] {});
    EXPECT_EQ(queued(), 1);
}

TEST_F(ApplicationTest, QueuedUpdateIsDroppedWhenItsContextDies) {
    Application application(argument_count, arguments);
    auto label = std::make_unique<QLabel>();
    bool ran = false;
    updateFromWorker(label.get(), [&] { ran = true; });
    EXPECT_EQ(queued(), 1);
    label.reset();
    QTimer::singleShot(20, &application, &QApplication::quit);
    QApplication::exec();
    EXPECT_FALSE(ran);
}

TEST_F(ApplicationTest, UpdateInTheGuiThreadRunsAtOnce) {
    Application application(argument_count, arguments);
    QLabel label;
    bool ran = false;
    Application::updateWidgets(&label, [&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(direct(), 0);
    EXPECT_EQ(queued(), 0);
}

TEST_F(ApplicationTest, UpdateThatLeadsToAnotherOneRunsBothAtOnce) {
    Application application(argument_count, arguments);
    QLabel label;
    int ran = 0;
    const Application::Released released;
    updateFromWorker(&label, [&] {
        Application::updateWidgets(&label, [&] { ++ran; });
        ++ran;
    });
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(direct(), 1);
    EXPECT_EQ(queued(), 0);
}

TEST_F(ApplicationTest, ContextOutsideTheGuiThreadIsAlwaysQueued) {
    Application application(argument_count, arguments);
    QThread thread;
    QObject context;
    context.moveToThread(&thread);
    std::atomic<bool> ran{false};
    {
        const Application::Released released;
        updateFromWorker(&context, [&] { ran = true; });
    }
    EXPECT_FALSE(ran);
    EXPECT_EQ(queued(), 1);
    QMetaObject::invokeMethod(
        &context, [&] { thread.quit(); }, Qt::QueuedConnection);
    thread.start();
    thread.wait();
    EXPECT_TRUE(ran);
}

TEST_F(ApplicationTest, UnderAnotherApplicationObjectEveryUpdateIsQueued) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer cannot see how Qt hands a queued call over";
#endif
    QApplication application(argument_count, arguments);
    QLabel label;
    std::atomic<int> ran{0};
    std::thread worker([&] {
        for (int i = 0; i < 50; ++i) {
            Application::updateWidgets(&label, [&] { ++ran; });
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        QMetaObject::invokeMethod(&application, &QApplication::quit, Qt::QueuedConnection);
    });
    QApplication::exec();
    worker.join();
    const Application::Released released;  // harmless
    EXPECT_EQ(ran, 50);
    EXPECT_EQ(queued(), 50);
    EXPECT_EQ(direct(), 0);
}

// Stands for the widgets: written without any protection by both threads. ThreadSanitizer reports
// it if they are ever in it at the same time; the sum shows a lost update.
struct Unprotected {
    long count = 0;
    void touch() { count = count + 1; }
};

TEST_F(ApplicationTest, WidgetsAreNeverTouchedByTwoThreadsAtATime) {
    Application application(argument_count, arguments);
    QLabel label;
    Unprotected shared;
    long gui_touches = 0;
    std::atomic<bool> finished{false};
    constexpr int kUpdates = 2000;

    std::thread worker([&] {
        for (int i = 0; i < kUpdates; ++i) {
            Application::updateWidgets(&label, [&] { shared.touch(); });
            if (i % 4 == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        finished = true;
    });
    QTimer busy;  // a handler every millisecond, which every 16th time runs a nested event loop
    QObject::connect(&busy, &QTimer::timeout, &label, [&] {
        shared.touch();
        ++gui_touches;
        if (gui_touches % 16 == 0) {
            QEventLoop loop;
            QTimer::singleShot(2, &loop, &QEventLoop::quit);
            loop.exec();
        }
        for (int i = 0; i < 10; ++i) {
            shared.touch();
            ++gui_touches;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        if (finished)
            application.quit();
    });
    busy.start(1);
    QApplication::exec();
    shared.touch();
    ++gui_touches;
    worker.join();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(shared.count, gui_touches + kUpdates);
    EXPECT_EQ(direct() + queued(), kUpdates);
    EXPECT_GT(direct(), 0);
    EXPECT_GT(queued(), 0);
    RecordProperty("direct", direct());
    RecordProperty("queued", queued());
}

}  // namespace
