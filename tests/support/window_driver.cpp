#include "tests/support/window_driver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QOpenGLWidget>
#include <QPixmap>
#include <QPushButton>
#include <QTest>
#include <QTimer>

namespace kova::test {

bool WindowDriver::chooseRecording(const QString& path) {
    auto* cameras = find<QComboBox>("comboBoxCamera");
    bool accepted = false;
    QTimer poll;
    int tries = 0;
    // The dialog's own event loop runs inside choose().
    QObject::connect(&poll, &QTimer::timeout, [&] {
        QWidget* modal = QApplication::activeModalWidget();
        if (++tries > 200) {  // what blocks is closed, so that the caller hears of it
            if (auto* blocking = qobject_cast<QDialog*>(modal))
                blocking->reject();
            return;
        }
        auto* dialog = qobject_cast<QFileDialog*>(modal);
        if (!dialog)
            return;
        // As a user who types the path: the list of files may still be filling.
        dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))->setText(path);
        auto* buttons = dialog->findChild<QDialogButtonBox*>();
        QAbstractButton* open = buttons->button(QDialogButtonBox::Open);
        if (!open || !open->isEnabled())
            return;
        accepted = true;
        poll.stop();
        open->click();
    });
    poll.start(50);
    choose("comboBoxCamera", cameras->count() - 1);
    return accepted && cameras->currentText() == QFileInfo(path).fileName();
}

void WindowDriver::click(const char* button) {
    QTest::mouseClick(find<QAbstractButton>(button), Qt::LeftButton);
}

void WindowDriver::choose(const char* combo_box, int index) {
    auto* list = find<QComboBox>(combo_box);
    list->setCurrentIndex(index);
    Q_EMIT list->activated(index);
}

void WindowDriver::clickAt(const char* widget, QPoint position) {
    QTest::mouseClick(find<QWidget>(widget), Qt::LeftButton, Qt::NoModifier, position);
}

void WindowDriver::drag(const char* widget, QPoint from, QPoint to) {
    auto* target = find<QWidget>(widget);
    QWindow* top = window_.windowHandle();
    // Through the window, so that the moves carry the button.
    QTest::mousePress(top, Qt::LeftButton, Qt::NoModifier, target->mapTo(&window_, from));
    QTest::mouseMove(top, target->mapTo(&window_, (from + to) / 2));
    QTest::mouseMove(top, target->mapTo(&window_, to));
    QTest::mouseRelease(top, Qt::LeftButton, Qt::NoModifier, target->mapTo(&window_, to));
}

QString WindowDriver::text(const char* label) const {
    return find<QLabel>(label)->text();
}

bool WindowDriver::waitFor(const std::function<bool()>& condition, int timeout_ms) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeout_ms)
            return false;
        pause(10);
    }
    return true;
}

void WindowDriver::pause(int ms) {
    QTest::qWait(ms);
}

QImage WindowDriver::view(const char* gl_widget) const {
    return find<QOpenGLWidget>(gl_widget)->grabFramebuffer();
}

QImage WindowDriver::picture() const {
    return window_.grab().toImage();
}

}  // namespace kova::test
