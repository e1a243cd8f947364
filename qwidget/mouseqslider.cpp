#include "qwidget/mouseqslider.h"

#include <QMouseEvent>
#include <QStyle>
#include <QStyleOptionSlider>

namespace kova::qwidget {

MouseQSlider::MouseQSlider(QWidget* parent) : QSlider(parent) {}

void MouseQSlider::mousePressEvent(QMouseEvent* event) {
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect handle =
        style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    if (event->button() != Qt::LeftButton || handle.contains(event->pos())) {
        QSlider::mousePressEvent(event);
        return;
    }
    const bool horizontal = orientation() == Qt::Horizontal;
    const double half = (horizontal ? handle.width() : handle.height()) * 0.5 + 0.5;
    const int length = horizontal ? width() : height();
    int p = horizontal ? event->pos().x() : length - event->pos().y();
    // The ends are cut to whole pixels, so that the ratio may be a hair below 0 or 1 there.
    if (p < half)
        p = static_cast<int>(half);
    if (p > length - half)
        p = static_cast<int>(length - half);
    const double travel = length - 2 * half;
    // A slider as short as its handle has a single place to click.
    const double ratio = travel != 0 ? (p - half) / travel : 0;
    const double range = static_cast<double>(maximum()) - minimum();
    const int v = static_cast<int>(minimum() + ratio * range);
    setValue(invertedAppearance() ? maximum() - v : v);
    event->accept();
}

}  // namespace kova::qwidget

// Kept with the class: the meta-objects of the whole library would pull the OpenGL widgets in.
#include "moc_mouseqslider.cpp"
