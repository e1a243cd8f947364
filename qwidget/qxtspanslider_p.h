#pragma once

#include <QObject>
#include <QStyle>

#include "qwidget/qxtspanslider.h"

class QPainter;
class QPoint;
class QRect;
class QStyleOptionSlider;
class QStylePainter;

namespace kova::qwidget {

/// State of a QxtSpanSlider and what its event handlers have in common. Also receives two of the
/// slider's own signals.
class QxtSpanSliderPrivate : public QObject {
    Q_OBJECT

public:
    using SpanHandle = QxtSpanSlider::SpanHandle;

    explicit QxtSpanSliderPrivate(QxtSpanSlider* slider);

    int lower_value = 0;
    int upper_value = 0;
    int lower_position = 0;
    int upper_position = 0;
    int press_offset = 0;  ///< from the handle's top-left corner to the press point, px along axis
    int press_value = 0;   ///< value of the handle when it was pressed
    SpanHandle last_pressed = QxtSpanSlider::SpanHandleNone;
    SpanHandle main_control = QxtSpanSlider::SpanHandleLower;  ///< keyboard steps act on it first
    QStyle::SubControl lower_pressed = QStyle::SC_None;        ///< what of it is under the mouse
    QStyle::SubControl upper_pressed = QStyle::SC_None;
    QxtSpanSlider::HandleMovementMode movement = QxtSpanSlider::FreeMovement;
    bool first_movement = false;  ///< until the first move has decided which handle moves
    bool block_tracking = false;  ///< keeps the setters of the positions from committing
    QxtSpanSlider* owner;

    /// The slider's style option with the value and the position of a handle.
    void initStyleOption(QStyleOptionSlider* option, SpanHandle handle) const;
    QRect handleRect(SpanHandle handle) const;
    /// The coordinate along the slider's axis.
    int pick(const QPoint& point) const;
    /// The value that a handle has whose top or left edge is at `position`, in pixels.
    int pixelPosToRangeValue(int position) const;

    /// The setter of a position.
    void setPosition(SpanHandle handle, int position);
    /// Makes the values what the positions are.
    void commit();
    /// The handles change roles. Their positions stay.
    void swapControls();
    /// A step of the main control or, with `main` false, of the other one.
    void triggerAction(QAbstractSlider::SliderAction action, bool main);
    /// Moves a handle to `target`, or as far as the movement mode lets it: `other` is the value
    /// that it must not pass. In free movement it swaps the controls where it passes the other
    /// handle.
    void moveHandle(SpanHandle handle, int target, int other);
    /// Tells whether the handle was hit, and makes it the pressed one if so.
    bool pressHandle(SpanHandle handle, const QPoint& point);

    void drawSpan(QStylePainter* painter, const QRect& span) const;
    void drawHandle(QStylePainter* painter, SpanHandle handle) const;

private Q_SLOTS:
    void updateRange(int minimum, int maximum);
    void movePressedHandle();
};

}  // namespace kova::qwidget
