#pragma once

#include <QColor>
#include <QWidget>

namespace kova::qwidget {

/// A bar of colours, the legend of a colouring by distance: from white to black, or from red
/// through light green to blue. Used in the GUI thread only.
class IndicatorWidget : public QWidget {
    Q_OBJECT

public:
    explicit IndicatorWidget(QWidget* parent = nullptr);

    /// Chooses the three colours (true) or the grey ramp; the next paint uses it, none is asked
    /// for.
    void set_color(bool coloured);

protected:
    /// Paints the ramp along the diagonal from the top-left to the bottom-right corner.
    void paintEvent(QPaintEvent* event) override;

private:
    bool coloured_ = false;
    QColor start_color_{255, 0, 0};
    QColor end_color_{0, 0, 255};
    QColor middle_color_{127, 255, 127};
    QColor grey_start_color_{255, 255, 255};
    QColor grey_end_color_{0, 0, 0};
};

}  // namespace kova::qwidget
