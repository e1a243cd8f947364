#pragma once

#include <QSlider>

namespace kova::qwidget {

/// A slider whose value jumps to the point that is clicked with the left button, where a QSlider
/// only pages towards it. The handle is dragged as in a QSlider. Used in the GUI thread only.
class MouseQSlider : public QSlider {
    Q_OBJECT

public:
    explicit MouseQSlider(QWidget* parent = nullptr);

protected:
    /// A click beside the handle sets the value and is no press of the slider: sliderPressed() is
    /// not emitted. The ends are half a handle wide; there the value is the end's, or, at the upper
    /// end with a handle of even length, the one next to it.
    void mousePressEvent(QMouseEvent* event) override;
};

}  // namespace kova::qwidget
