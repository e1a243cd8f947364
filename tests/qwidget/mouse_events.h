#pragma once

#include <QApplication>
#include <QMouseEvent>
#include <QWheelEvent>
#include <QWidget>

// Mouse and wheel events for a widget that is not on screen.

namespace kova::test {

inline void sendMouse(QWidget& widget, QEvent::Type type, QPointF position, Qt::MouseButton button,
                      Qt::MouseButtons buttons) {
    QMouseEvent event(type, position, button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
}
inline void press(QWidget& widget, QPointF position, Qt::MouseButton button,
                  Qt::MouseButtons others = Qt::NoButton) {
    sendMouse(widget, QEvent::MouseButtonPress, position, button, others | button);
}
inline void release(QWidget& widget, QPointF position, Qt::MouseButton button,
                    Qt::MouseButtons others = Qt::NoButton) {
    sendMouse(widget, QEvent::MouseButtonRelease, position, button, others);
}
inline void move(QWidget& widget, QPointF position, Qt::MouseButtons buttons) {
    sendMouse(widget, QEvent::MouseMove, position, Qt::NoButton, buttons);
}
inline void wheel(QWidget& widget, QPoint turn) {
    QWheelEvent event(QPointF(1, 1), QPointF(1, 1), QPoint(), turn, Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QApplication::sendEvent(&widget, &event);
}

}  // namespace kova::test
