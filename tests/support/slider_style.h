#pragma once

#include <QPainter>
#include <QProxyStyle>
#include <QStyleOptionSlider>

#include <vector>

namespace kova::test {

/// A style whose sliders have a plain geometry, so that tests can name pixels: the groove is the
/// whole widget, the handle is as thick as the widget and handle_length long. Sliders are painted
/// flat (grey groove, green handle, red handle when sunken), and what is painted is recorded.
class SliderStyle : public QProxyStyle {
public:
    SliderStyle() : QProxyStyle(QStringLiteral("Fusion")) {}

    struct Drawn {
        QStyle::SubControls sub_controls;
        QStyle::SubControls active;
        bool sunken;
        int value;
        int position;
    };
    mutable std::vector<Drawn> drawn;
    int handle_length = 10;
    int drag_distance = -1;  ///< PM_MaximumDragDistance

    int pixelMetric(PixelMetric metric, const QStyleOption* option = nullptr,
                    const QWidget* widget = nullptr) const override {
        if (metric == PM_SliderLength)
            return handle_length;
        if (metric == PM_MaximumDragDistance)
            return drag_distance;
        return QProxyStyle::pixelMetric(metric, option, widget);
    }

    QRect subControlRect(ComplexControl control, const QStyleOptionComplex* option,
                         SubControl sub_control, const QWidget* widget) const override {
        const auto* slider = qstyleoption_cast<const QStyleOptionSlider*>(option);
        if (control != CC_Slider || !slider)
            return QProxyStyle::subControlRect(control, option, sub_control, widget);
        if (sub_control == SC_SliderGroove)
            return slider->rect;
        if (sub_control != SC_SliderHandle)
            return QRect();
        const bool horizontal = slider->orientation == Qt::Horizontal;
        const int length = horizontal ? slider->rect.width() : slider->rect.height();
        const int at =
            sliderPositionFromValue(slider->minimum, slider->maximum, slider->sliderPosition,
                                    length - handle_length, slider->upsideDown);
        return horizontal ? QRect(at, 0, handle_length, slider->rect.height())
                          : QRect(0, at, slider->rect.width(), handle_length);
    }

    void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option,
                            QPainter* painter, const QWidget* widget) const override {
        const auto* slider = qstyleoption_cast<const QStyleOptionSlider*>(option);
        if (control != CC_Slider || !slider) {
            QProxyStyle::drawComplexControl(control, option, painter, widget);
            return;
        }
        const bool sunken = slider->state & State_Sunken;
        drawn.push_back({slider->subControls, slider->activeSubControls, sunken,
                         slider->sliderValue, slider->sliderPosition});
        if (slider->subControls & SC_SliderGroove)
            painter->fillRect(slider->rect, QColor(220, 220, 220));
        if (slider->subControls & SC_SliderHandle) {
            painter->fillRect(subControlRect(CC_Slider, slider, SC_SliderHandle, widget),
                              sunken ? QColor(255, 0, 0) : QColor(0, 255, 0));
        }
    }
};

}  // namespace kova::test
