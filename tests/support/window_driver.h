#pragma once

#include <QImage>
#include <QMainWindow>
#include <QString>

#include <functional>

namespace kova::test {

/// Works the real main window as a user would: through its list, the file dialog, its buttons and
/// the mouse. Finds the widgets by their object names. Needs a running QApplication and
/// Qt::AA_DontUseNativeDialogs.
class WindowDriver {
public:
    explicit WindowDriver(QMainWindow& window) : window_(window) {}

    template <typename Widget>
    Widget* find(const char* name) const {
        return window_.findChild<Widget*>(QString::fromLatin1(name));
    }

    /// Picks "select .kova file" in the camera list and the file in the dialog that opens.
    /// @return false when no dialog opened or it did not accept the file
    bool chooseRecording(const QString& path);

    void click(const char* button);
    /// Chooses an entry of a list as a user does, so that activated(int) is emitted.
    void choose(const char* combo_box, int index);
    /// Presses and releases the left mouse button on a widget, in its pixels.
    void clickAt(const char* widget, QPoint position);
    void drag(const char* widget, QPoint from, QPoint to);

    QString text(const char* label) const;

    /// Handles events until the condition holds; false after the time.
    static bool waitFor(const std::function<bool()>& condition, int timeout_ms = 15000);
    /// Lets the event loop run.
    static void pause(int ms);

    /// What an OpenGL view shows.
    QImage view(const char* gl_widget) const;
    /// The whole window, OpenGL views included.
    QImage picture() const;

private:
    QMainWindow& window_;
};

}  // namespace kova::test
