#pragma once

#include <QApplication>

#include <functional>

namespace kova::app {

/// The application object of the viewer: it makes it safe that the worker thread touches widgets.
///
/// Widgets belong to the GUI thread. The worker nevertheless moves the replay slider and sets a few
/// texts itself, and it must never wait for the GUI thread. Both hold with one lock:
///
/// - The GUI thread has the lock from the construction of this object on. It gives the lock up only
///   where it can do nothing with widgets: while its event dispatcher is blocked with no event
///   pending, and within a scope of Released. It takes the lock back at the first sign of life:
///   an event that is delivered, a native event, or the dispatcher's signal that it is awake. It
///   then keeps it until it blocks again, in whatever event loop that may be, so that a handler
///   that goes on after a nested event loop (a modal box) has the lock as well. This order does
///   not depend on which kind of dispatcher Qt uses.
/// - The worker only tries the lock. Free: it makes the calls at once. Taken: the same calls are
///   queued to the GUI thread.
///
/// A nested event loop must be left by something that happens in the GUI thread, as all modal boxes
/// and dialogs are. A loop that another thread ends with QEventLoop::exit() may return before the
/// GUI thread has the lock back.
class Application : public QApplication {
public:
    /// As QApplication. The calling thread becomes the GUI thread and takes the lock.
    Application(int& argc, char** argv);
    ~Application() override;

    /// Runs `update`, which may call widgets: at once when the lock is free, otherwise later in the
    /// GUI thread. Never waits. May be called from any thread.
    ///
    /// Called in the thread of `context`, it runs `update` at once. Under an application object of
    /// another class, and for a `context` that lives outside the GUI thread, it always queues.
    ///
    /// @param context  the object for whose sake the update is made, normally the window; it must
    ///                 be alive during the call. A queued update is dropped when it dies.
    /// @param update   may run at any later time, so it reads what it shows when it runs; it must
    ///                 not wait for anything that the GUI thread may hold.
    static void updateWidgets(QObject* context, std::function<void()> update);

    /// How many updates were run at once in a thread other than the GUI thread; from any thread.
    static int directUpdates();
    /// How many updates were queued to the GUI thread; from any thread.
    static int queuedUpdates();

    /// The GUI thread gives the lock up within the scope of such an object, so that the worker can
    /// finish while the GUI thread polls for its end. Only in the GUI thread, and no widget may be
    /// touched in the scope. Without effect under an application object of another class.
    class Released {
    public:
        Released();
        ~Released();
        Released(const Released&) = delete;
        Released& operator=(const Released&) = delete;

    private:
        bool given_up_ = false;
    };

    /// Makes sure that the GUI thread has the lock, then delivers the event as QApplication does.
    bool notify(QObject* receiver, QEvent* event) override;
};

}  // namespace kova::app
