#include "qwidget/qxtspanslider.h"

#include <QKeyEvent>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QStyleOptionSlider>
#include <QStylePainter>
#include <QtDebug>

#include <algorithm>

#include "qwidget/qxtspanslider_p.h"

namespace kova::qwidget {

namespace {

QxtSpanSlider::SpanHandle oppositeOf(QxtSpanSlider::SpanHandle handle) {
    return handle == QxtSpanSlider::SpanHandleUpper ? QxtSpanSlider::SpanHandleLower
                                                    : QxtSpanSlider::SpanHandleUpper;
}

}  // namespace

QxtSpanSliderPrivate::QxtSpanSliderPrivate(QxtSpanSlider* slider) : owner(slider) {
    connect(owner, &QSlider::rangeChanged, this, &QxtSpanSliderPrivate::updateRange);
    connect(owner, &QSlider::sliderReleased, this, &QxtSpanSliderPrivate::movePressedHandle);
}

void QxtSpanSliderPrivate::initStyleOption(QStyleOptionSlider* option, SpanHandle handle) const {
    const bool lower = handle == QxtSpanSlider::SpanHandleLower;
    owner->initStyleOption(option);
    option->sliderValue = lower ? lower_value : upper_value;
    option->sliderPosition = lower ? lower_position : upper_position;
}

QRect QxtSpanSliderPrivate::handleRect(SpanHandle handle) const {
    QStyleOptionSlider option;
    initStyleOption(&option, handle);
    return owner->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle,
                                          owner);
}

int QxtSpanSliderPrivate::pick(const QPoint& point) const {
    return owner->orientation() == Qt::Horizontal ? point.x() : point.y();
}

int QxtSpanSliderPrivate::pixelPosToRangeValue(int position) const {
    QStyleOptionSlider option;
    initStyleOption(&option, QxtSpanSlider::SpanHandleUpper);
    const QStyle* const style = owner->style();
    const QRect groove =
        style->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, owner);
    const QRect handle =
        style->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, owner);
    const bool horizontal = owner->orientation() == Qt::Horizontal;
    const int length = horizontal ? handle.width() : handle.height();
    const int first = horizontal ? groove.left() : groove.top();
    const int last = (horizontal ? groove.right() : groove.bottom()) - length + 1;
    return QStyle::sliderValueFromPosition(owner->minimum(), owner->maximum(), position - first,
                                           last - first, option.upsideDown);
}

void QxtSpanSliderPrivate::setPosition(SpanHandle handle, int position) {
    const bool lower = handle == QxtSpanSlider::SpanHandleLower;
    int& current = lower ? lower_position : upper_position;
    if (position == current)
        return;
    current = position;
    if (!owner->hasTracking())
        owner->update();
    if (owner->isSliderDown()) {
        if (lower)
            Q_EMIT owner->lowerPositionChanged(position);
        else
            Q_EMIT owner->upperPositionChanged(position);
    }
    if (owner->hasTracking() && !block_tracking)
        commit();
}

void QxtSpanSliderPrivate::commit() {
    owner->setSpan(lower_position, upper_value);
    owner->setSpan(lower_value, upper_position);
}

void QxtSpanSliderPrivate::swapControls() {
    std::swap(lower_value, upper_value);
    std::swap(lower_pressed, upper_pressed);
    last_pressed = oppositeOf(last_pressed);
    main_control = oppositeOf(main_control);
}

void QxtSpanSliderPrivate::triggerAction(QAbstractSlider::SliderAction action, bool main) {
    block_tracking = true;
    SpanHandle handle = main ? main_control : oppositeOf(main_control);
    const int value = handle == QxtSpanSlider::SpanHandleUpper ? upper_value : lower_value;
    bool moves = true;
    int target = 0;
    switch (action) {
        case QAbstractSlider::SliderSingleStepAdd:
            target = owner->bound(qint64{value} + owner->singleStep());
            break;
        case QAbstractSlider::SliderSingleStepSub:
            target = owner->bound(qint64{value} - owner->singleStep());
            break;
        case QAbstractSlider::SliderToMinimum:
            target = owner->minimum();
            break;
        case QAbstractSlider::SliderToMaximum:
            target = owner->maximum();
            break;
        case QAbstractSlider::SliderMove:
        case QAbstractSlider::SliderNoAction:
            moves = false;
            break;
        default:
            qWarning("QxtSpanSliderPrivate::triggerAction: Unknown action");
            handle = QxtSpanSlider::SpanHandleLower;  // goes to 0
    }
    if (moves) {
        moveHandle(handle, target,
                   handle == QxtSpanSlider::SpanHandleUpper ? lower_value : upper_value);
    }
    block_tracking = false;
    commit();
}

void QxtSpanSliderPrivate::moveHandle(SpanHandle handle, int target, int other) {
    const bool upper = handle == QxtSpanSlider::SpanHandleUpper;
    if (movement == QxtSpanSlider::FreeMovement) {
        if (upper ? target < lower_value : target > upper_value) {
            swapControls();
            handle = oppositeOf(handle);
        }
    } else {
        const int gap = movement == QxtSpanSlider::NoOverlapping ? 1 : 0;
        target = upper ? std::max(target, other + gap) : std::min(target, other - gap);
    }
    setPosition(handle, target);
}

bool QxtSpanSliderPrivate::pressHandle(SpanHandle handle, const QPoint& point) {
    const bool lower = handle == QxtSpanSlider::SpanHandleLower;
    QStyleOptionSlider option;
    initStyleOption(&option, handle);
    QStyle::SubControl& pressed = lower ? lower_pressed : upper_pressed;
    const QStyle::SubControl before = pressed;
    const QRect rect = handleRect(handle);
    pressed = owner->style()->hitTestComplexControl(QStyle::CC_Slider, &option, point, owner);
    const bool hit = pressed == QStyle::SC_SliderHandle;
    const bool changed = pressed != before;
    if (hit) {
        press_value = lower ? lower_value : upper_value;
        press_offset = pick(point - rect.topLeft());
        last_pressed = handle;
        owner->setSliderDown(true);
        Q_EMIT owner->sliderPressed(handle);
    }
    if (changed)
        owner->update(rect);
    return hit;
}

void QxtSpanSliderPrivate::drawSpan(QStylePainter* painter, const QRect& span) const {
    QStyleOptionSlider option;
    owner->initStyleOption(&option);
    QRect groove =
        owner->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, owner);
    const bool horizontal = owner->orientation() == Qt::Horizontal;
    const QPointF centre = groove.center();
    const QPointF start =
        horizontal ? QPointF(centre.x(), groove.top()) : QPointF(groove.left(), centre.y());
    const QPointF stop =
        horizontal ? QPointF(centre.x(), groove.bottom()) : QPointF(groove.right(), centre.y());
    groove.adjust(0, 0, horizontal ? -1 : 0, horizontal ? 0 : -1);

    // Kept although the span's own pen replaces it.
    painter->setPen(QPen(owner->palette().color(QPalette::Dark).lighter(110), 0));
    const QColor highlight = owner->palette().color(QPalette::Highlight);
    QLinearGradient gradient(start, stop);
    gradient.setColorAt(0, highlight.darker(120));
    gradient.setColorAt(1, highlight.lighter(108));
    painter->setBrush(gradient);
    painter->setPen(QPen(highlight.darker(horizontal ? 130 : 150), 0));
    painter->drawRect(span.intersected(groove));
}

void QxtSpanSliderPrivate::drawHandle(QStylePainter* painter, SpanHandle handle) const {
    QStyleOptionSlider option;
    initStyleOption(&option, handle);
    option.subControls = QStyle::SC_SliderHandle;
    const QStyle::SubControl pressed =
        handle == QxtSpanSlider::SpanHandleLower ? lower_pressed : upper_pressed;
    if (pressed == QStyle::SC_SliderHandle) {
        option.activeSubControls = QStyle::SC_SliderHandle;
        option.state |= QStyle::State_Sunken;
    }
    painter->drawComplexControl(QStyle::CC_Slider, option);
}

void QxtSpanSliderPrivate::updateRange(int, int) {
    owner->setSpan(lower_value, upper_value);
}

void QxtSpanSliderPrivate::movePressedHandle() {
    const bool lower_moved =
        last_pressed == QxtSpanSlider::SpanHandleLower && lower_position != lower_value;
    const bool upper_moved =
        last_pressed == QxtSpanSlider::SpanHandleUpper && upper_position != upper_value;
    if (!lower_moved && !upper_moved)
        return;
    block_tracking = false;
    commit();
}

QxtSpanSlider::QxtSpanSlider(QWidget* parent)
    : QSlider(parent), d_(std::make_unique<QxtSpanSliderPrivate>(this)) {}

QxtSpanSlider::QxtSpanSlider(Qt::Orientation orientation, QWidget* parent)
    : QSlider(orientation, parent), d_(std::make_unique<QxtSpanSliderPrivate>(this)) {}

QxtSpanSlider::~QxtSpanSlider() = default;

QxtSpanSlider::HandleMovementMode QxtSpanSlider::handleMovementMode() const {
    return d_->movement;
}

void QxtSpanSlider::setHandleMovementMode(HandleMovementMode mode) {
    d_->movement = mode;
}

// The handles may be the wrong way round until a drag is committed.
int QxtSpanSlider::lowerValue() const {
    return std::min(d_->lower_value, d_->upper_value);
}

int QxtSpanSlider::upperValue() const {
    return std::max(d_->lower_value, d_->upper_value);
}

int QxtSpanSlider::lowerPosition() const {
    return d_->lower_position;
}

int QxtSpanSlider::upperPosition() const {
    return d_->upper_position;
}

void QxtSpanSlider::setLowerValue(int lower) {
    setSpan(lower, d_->upper_value);
}

void QxtSpanSlider::setUpperValue(int upper) {
    setSpan(d_->lower_value, upper);
}

void QxtSpanSlider::setSpan(int lower, int upper) {
    const int low = bound(std::min(lower, upper));
    const int high = bound(std::max(lower, upper));
    bool changed = false;
    if (low != d_->lower_value) {
        d_->lower_value = low;
        d_->lower_position = low;
        changed = true;
        Q_EMIT lowerValueChanged(low);
    }
    if (high != d_->upper_value) {
        d_->upper_value = high;
        d_->upper_position = high;
        changed = true;
        Q_EMIT upperValueChanged(high);
    }
    if (changed) {
        Q_EMIT spanChanged(d_->lower_value, d_->upper_value);
        update();
    }
}

void QxtSpanSlider::setLowerPosition(int lower) {
    d_->setPosition(SpanHandleLower, lower);
}

void QxtSpanSlider::setUpperPosition(int upper) {
    d_->setPosition(SpanHandleUpper, upper);
}

void QxtSpanSlider::keyPressEvent(QKeyEvent* event) {
    QSlider::keyPressEvent(event);
    const bool horizontal = orientation() == Qt::Horizontal;
    const bool lower_is_main = d_->main_control == SpanHandleLower;
    switch (event->key()) {
        case Qt::Key_Home:
            d_->triggerAction(SliderToMinimum, lower_is_main);
            break;
        case Qt::Key_End:
            d_->triggerAction(SliderToMaximum, !lower_is_main);
            break;
        case Qt::Key_Left:
            d_->triggerAction(invertedAppearance() ? SliderSingleStepAdd : SliderSingleStepSub,
                              horizontal);
            break;
        case Qt::Key_Right:
            d_->triggerAction(invertedAppearance() ? SliderSingleStepSub : SliderSingleStepAdd,
                              horizontal);
            break;
        case Qt::Key_Up:
            d_->triggerAction(invertedControls() ? SliderSingleStepSub : SliderSingleStepAdd,
                              !horizontal);
            break;
        case Qt::Key_Down:
            d_->triggerAction(invertedControls() ? SliderSingleStepAdd : SliderSingleStepSub,
                              !horizontal);
            break;
        default:
            event->ignore();
    }
}

void QxtSpanSlider::mousePressEvent(QMouseEvent* event) {
    const bool second_button = event->buttons() != Qt::MouseButtons(event->button());
    if (minimum() == maximum() || second_button) {
        event->ignore();
        return;
    }
    // Where the handles overlap, the upper one is the one to be had.
    if (!d_->pressHandle(SpanHandleUpper, event->pos()))
        d_->pressHandle(SpanHandleLower, event->pos());
    d_->first_movement = true;
    event->accept();
}

void QxtSpanSlider::mouseMoveEvent(QMouseEvent* event) {
    if (d_->lower_pressed != QStyle::SC_SliderHandle &&
        d_->upper_pressed != QStyle::SC_SliderHandle) {
        event->ignore();
        return;
    }
    int position = d_->pixelPosToRangeValue(d_->pick(event->pos()) - d_->press_offset);
    QStyleOptionSlider option;
    initStyleOption(&option);
    const int m = style()->pixelMetric(QStyle::PM_MaximumDragDistance, &option, this);
    if (m >= 0 && !rect().adjusted(-m, -m, m, m).contains(event->pos()))
        position = d_->press_value;

    if (d_->first_movement) {
        // From two handles on top of each other the first real move decides which one it takes.
        const bool stacked = d_->lower_value == d_->upper_value;
        if (stacked && position < d_->lower_value) {
            d_->swapControls();
            d_->first_movement = false;
        } else if (!stacked) {
            d_->first_movement = false;
        }
    }
    if (d_->lower_pressed == QStyle::SC_SliderHandle)
        d_->moveHandle(SpanHandleLower, position, upperValue());
    else
        d_->moveHandle(SpanHandleUpper, position, lowerValue());
    event->accept();
}

void QxtSpanSlider::mouseReleaseEvent(QMouseEvent* event) {
    QSlider::mouseReleaseEvent(event);
    setSliderDown(false);
    d_->lower_pressed = QStyle::SC_None;
    d_->upper_pressed = QStyle::SC_None;
    update();
}

void QxtSpanSlider::paintEvent(QPaintEvent*) {
    QStylePainter painter(this);
    QStyleOptionSlider option;
    initStyleOption(&option);
    option.sliderValue = 0;
    option.sliderPosition = 0;
    option.subControls = QStyle::SC_SliderGroove | QStyle::SC_SliderTickmarks;
    painter.drawComplexControl(QStyle::CC_Slider, option);

    const QPoint lower = d_->handleRect(SpanHandleLower).center();
    const QPoint upper = d_->handleRect(SpanHandleUpper).center();
    const int first = std::min(d_->pick(lower), d_->pick(upper));
    const int last = std::max(d_->pick(lower), d_->pick(upper));
    const QPoint c = QRect(lower, upper).center();
    // Four pixels thick.
    const QRect span = orientation() == Qt::Horizontal
                           ? QRect(QPoint(first, c.y() - 2), QPoint(last, c.y() + 1))
                           : QRect(QPoint(c.x() - 2, first), QPoint(c.x() + 1, last));
    d_->drawSpan(&painter, span);

    // The handle that was pressed last lies on top.
    const bool lower_on_top = d_->last_pressed == SpanHandleLower;
    d_->drawHandle(&painter, lower_on_top ? SpanHandleUpper : SpanHandleLower);
    d_->drawHandle(&painter, lower_on_top ? SpanHandleLower : SpanHandleUpper);
}

int QxtSpanSlider::bound(qint64 value) const {
    return static_cast<int>(std::max<qint64>(minimum(), std::min<qint64>(value, maximum())));
}

}  // namespace kova::qwidget

// Kept with the class: the meta-objects of the whole library would pull the OpenGL widgets in.
#include "moc_qxtspanslider.cpp"
#include "moc_qxtspanslider_p.cpp"
