#pragma once

#include <memory>

#include "qwidget/mouseqopenglwidget.h"

namespace kova::qwidget {

struct CPUMouseQOpenGLWidgetVars;

/// Shows one 8-bit image, grey or RGBA, with overlays: grid, rulers, centre crosses and the mark of
/// a measurement between the recorded points, which the listener keeps in image pixels.
///
/// The frame is copied when it is handed in, so the caller's memory is free at once. No setter
/// repaints. All on the GUI thread, except that setImagePointer() may run on another one: it may
/// then overlap a paint (one torn picture), but never initResource() or uninitResource().
class CPUMouseQOpenGLWidget : public MouseQOpenGLWidget {
    Q_OBJECT

public:
    explicit CPUMouseQOpenGLWidget(QWidget* parent = nullptr);
    ~CPUMouseQOpenGLWidget() override;

    /// (Re)builds buffers and textures for frames of this size; wants the widget to be on screen.
    /// @param grey one channel, else four
    void initResource(int width, int height, bool grey);
    /// Releases them: the widget is black again.
    void uninitResource();

    /// Copies a frame of exactly the declared size; null is ignored.
    void setImagePointer(unsigned char* image);
    unsigned char* getImagePointer();
    /// The same for a frame in device memory.
    void setImagePointerGPU(unsigned char* image);
    unsigned char* getImagePointerGPU();

    /// `count` horizontal lines in equal distances.
    void setDrawGrid(bool draw, int count);
    /// A ruler with `count` ticks through the middle of each half (side-by-side stereo).
    void setDrawVerticalLine(bool draw, int count);
    /// Letterboxes the image instead of stretching it.
    void setKeepRatio(bool keep);
    /// A cross in the middle of each half, or one in the middle of the image.
    void setDrawCenter(bool draw, bool bothHalves);
    /// The mark of the recorded points: a cross where they are equal, else a line.
    void setDrawCross(bool draw);
    bool getDrawGrid();
    bool getDrawCenter();
    bool getDrawCross();

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;

private:
    std::unique_ptr<CPUMouseQOpenGLWidgetVars> vars_;
};

}  // namespace kova::qwidget
