#pragma once

#include <QSlider>

#include <memory>

namespace kova::qwidget {

class QxtSpanSliderPrivate;

/// A slider with two handles that select a span [lower value, upper value] inside its range; the
/// area between the handles is painted as a highlighted bar.
///
/// The values are what is committed; the positions are where the handles are while they are
/// dragged, and equal the values otherwise. With tracking on (the default) the values follow the
/// positions at once, with tracking off when the mouse is released. The single value of QSlider is
/// not used.
///
/// After every committed change the lower value is not above the upper value and both lie in the
/// range. Used in the GUI thread only.
class QxtSpanSlider : public QSlider {
    Q_OBJECT
    Q_PROPERTY(int lowerValue READ lowerValue WRITE setLowerValue)
    Q_PROPERTY(int upperValue READ upperValue WRITE setUpperValue)
    Q_PROPERTY(int lowerPosition READ lowerPosition WRITE setLowerPosition)
    Q_PROPERTY(int upperPosition READ upperPosition WRITE setUpperPosition)
    Q_PROPERTY(
        HandleMovementMode handleMovementMode READ handleMovementMode WRITE setHandleMovementMode)

public:
    /// What happens where a handle meets the other one.
    enum HandleMovementMode {
        FreeMovement = 0,  ///< handles may pass each other; they swap roles when they do
        NoCrossing = 1,    ///< a handle stops at the other's value
        NoOverlapping = 2  ///< a handle stops one unit before the other's value
    };
    Q_ENUM(HandleMovementMode)

    enum SpanHandle { SpanHandleNone = 0, SpanHandleLower = 1, SpanHandleUpper = 2 };
    Q_ENUM(SpanHandle)

    explicit QxtSpanSlider(QWidget* parent = nullptr);
    explicit QxtSpanSlider(Qt::Orientation orientation, QWidget* parent = nullptr);
    ~QxtSpanSlider() override;

    HandleMovementMode handleMovementMode() const;
    /// Stores the mode; the values are left as they are.
    void setHandleMovementMode(HandleMovementMode mode);

    int lowerValue() const;
    int upperValue() const;
    int lowerPosition() const;
    int upperPosition() const;

public Q_SLOTS:
    /// setSpan() with the other value kept. A value beyond the other one is not rejected: the
    /// other one then becomes the opposite end of the span.
    void setLowerValue(int lower);
    void setUpperValue(int upper);
    /// Sorts the two values, clamps them into the range and takes them; emits, in this order,
    /// lowerValueChanged(), upperValueChanged() and spanChanged() for what changed.
    void setSpan(int lower, int upper);
    /// Moves a handle. Emits the position signal when the slider is down; with tracking on, the
    /// value follows.
    void setLowerPosition(int lower);
    void setUpperPosition(int upper);

Q_SIGNALS:
    void spanChanged(int lower, int upper);
    void lowerValueChanged(int lower);
    void upperValueChanged(int upper);
    /// While the slider is down: the position of a handle changed.
    void lowerPositionChanged(int lower);
    void upperPositionChanged(int upper);
    /// A handle was pressed with the mouse. (QSlider's own signal without argument is emitted too.)
    void sliderPressed(SpanHandle handle);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    std::unique_ptr<QxtSpanSliderPrivate> d_;

private:
    /// The nearest value in the range.
    int bound(qint64 value) const;

    friend class QxtSpanSliderPrivate;
};

}  // namespace kova::qwidget
