#include "app/application.h"

#include <QAbstractEventDispatcher>
#include <QAbstractNativeEventFilter>
#include <QThread>

#include <atomic>
#include <mutex>
#include <utility>

namespace kova::app {

namespace {

// None of this is a member: a worker may still try the lock while the application object dies.
std::mutex widget_lock;
std::mutex queueing;                        // held while an update is handed to Qt, see notify()
std::atomic<QThread*> gui_thread{nullptr};  // null while there is no object of this class
std::atomic<int> direct_updates{0};
std::atomic<int> queued_updates{0};

// Used by the GUI thread alone.
bool gui_has_lock = false;

// An update may, through an event that it sends, come to a further one.
thread_local bool in_direct_update = false;

void takeLock() {
    if (gui_has_lock)
        return;
    widget_lock.lock();
    gui_has_lock = true;
}

void giveLockUp() {
    if (!gui_has_lock)
        return;
    gui_has_lock = false;
    widget_lock.unlock();
}

// Events of the window system are prepared before the first of them is delivered.
class NativeEventWatch : public QAbstractNativeEventFilter {
public:
    bool nativeEventFilter(const QByteArray&, void*, long*) override {
        takeLock();
        return false;
    }
};

NativeEventWatch native_event_watch;

// Runs the update if `home` is the GUI thread and the lock is free.
bool tryUpdate(QThread* home, const std::function<void()>& update) {
    const std::unique_lock<std::mutex> lock(widget_lock, std::try_to_lock);
    // The second question is asked under the lock, which a dying application object gives up last.
    if (!lock.owns_lock() || home != gui_thread.load())
        return false;
    in_direct_update = true;
    update();
    in_direct_update = false;
    return true;
}

}  // namespace

Application::Application(int& argc, char** argv) : QApplication(argc, argv) {
    takeLock();
    gui_thread = thread();
    QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
    dispatcher->installNativeEventFilter(&native_event_watch);
    connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, [dispatcher] {
        // With something pending the dispatcher does not really block, and what it handles first
        // may be an event of the window system that none of the signs of life announces.
        if (!dispatcher->hasPendingEvents())
            giveLockUp();
    });
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, takeLock);
}

Application::~Application() {
    takeLock();
    if (QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance()) {
        dispatcher->removeNativeEventFilter(&native_event_watch);
        disconnect(dispatcher, nullptr, this, nullptr);
    }
    gui_thread = nullptr;
    giveLockUp();
}

void Application::updateWidgets(QObject* context, std::function<void()> update) {
    QThread* const home = context->thread();
    if (home == QThread::currentThread() || (in_direct_update && home == gui_thread.load())) {
        update();
        return;
    }
    if (!in_direct_update && tryUpdate(home, update)) {
        ++direct_updates;
        return;
    }
    ++queued_updates;
    const std::lock_guard<std::mutex> lock(queueing);
    QMetaObject::invokeMethod(context, std::move(update), Qt::QueuedConnection);
}

int Application::directUpdates() {
    return direct_updates;
}

int Application::queuedUpdates() {
    return queued_updates;
}

Application::Released::Released() : given_up_(gui_has_lock) {
    giveLockUp();
}

Application::Released::~Released() {
    if (given_up_)
        takeLock();
}

bool Application::notify(QObject* receiver, QEvent* event) {
    if (QThread::currentThread() == gui_thread.load())
        takeLock();
    if (event->type() == QEvent::MetaCall) {
        // Qt hands a queued update over under locks of its own, which ThreadSanitizer cannot see;
        // this one, never held for longer than an insertion, it can.
        const std::lock_guard<std::mutex> lock(queueing);
    }
    return QApplication::notify(receiver, event);
}

}  // namespace kova::app
