#pragma once

#include <mutex>

namespace kova::app {

/// The mutex around the camera and the buffers of the views: the worker holds it for each frame,
/// the GUI thread while it retrieves or rebuilds the views.
///
/// The GUI thread may show a message box while it holds the mutex, and a slot called from that
/// box's event loop may come to it again. GuiLock therefore takes it only in the outermost of
/// nested scopes, and GuiRelease gives it up altogether while the GUI thread waits for the worker's
/// end.
class FrameMutex {
public:
    /// The worker's side (BasicLockable).
    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

    /// Holds the mutex for the GUI thread; without effect in a scope where it is held already.
    class GuiLock {
    public:
        explicit GuiLock(FrameMutex& frame) : frame_(frame), taken_(!frame.held_by_gui_) {
            if (taken_)
                frame_.take();
        }
        ~GuiLock() { unlock(); }
        GuiLock(const GuiLock&) = delete;
        GuiLock& operator=(const GuiLock&) = delete;

        /// Ends the scope early.
        void unlock() {
            if (taken_)
                frame_.give();
            taken_ = false;
        }

    private:
        FrameMutex& frame_;
        bool taken_;
    };

    /// Gives up what the GUI thread holds, if anything, and takes it back at the end of the scope.
    class GuiRelease {
    public:
        explicit GuiRelease(FrameMutex& frame) : frame_(frame), given_(frame.held_by_gui_) {
            if (given_)
                frame_.give();
        }
        ~GuiRelease() {
            if (given_)
                frame_.take();
        }
        GuiRelease(const GuiRelease&) = delete;
        GuiRelease& operator=(const GuiRelease&) = delete;

    private:
        FrameMutex& frame_;
        bool given_;
    };

    /// Whether the GUI thread holds the mutex; for the GUI thread.
    bool heldByGui() const { return held_by_gui_; }

private:
    void take() {
        mutex_.lock();
        held_by_gui_ = true;
    }
    void give() {
        held_by_gui_ = false;
        mutex_.unlock();
    }

    std::mutex mutex_;
    bool held_by_gui_ = false;  // touched by the GUI thread alone
};

}  // namespace kova::app
