#include "qwidget/indicatorwidget.h"

#include <QLinearGradient>
#include <QPainter>

namespace kova::qwidget {

IndicatorWidget::IndicatorWidget(QWidget* parent) : QWidget(parent) {}

void IndicatorWidget::set_color(bool coloured) {
    coloured_ = coloured;
}

void IndicatorWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient gradient(0, 0, width(), height());
    if (coloured_) {
        gradient.setColorAt(0, start_color_);
        gradient.setColorAt(0.5, middle_color_);
        gradient.setColorAt(1.0, end_color_);
    } else {
        gradient.setColorAt(0, grey_start_color_);
        gradient.setColorAt(1.0, grey_end_color_);
    }
    painter.setBrush(gradient);
    painter.drawRect(0, 0, width() - 1, height() - 1);
}

}  // namespace kova::qwidget

// Kept with the class: the meta-objects of the whole library would pull the OpenGL widgets in.
#include "moc_indicatorwidget.cpp"
