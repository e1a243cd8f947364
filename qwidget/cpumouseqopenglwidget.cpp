#include "qwidget/cpumouseqopenglwidget.h"

#include <GL/gl.h>

#include <cstddef>
#include <cstring>

#include "opengl/opengl_image_interop.h"
#include "opengl/opengl_image_interop_cuda.h"
#include "opengl/openglutils.h"
#include "sdk/cuda_functions.h"
#include "sdk/mat_pointer_vector.h"

namespace kova::qwidget {
namespace {

constexpr Size3_<float> kGridColour{0.2f, 0.8f, 0.0f};
constexpr Size3_<float> kRulerColour{0.2f, 0.2f, 0.8f};
constexpr Size3_<float> kMarkColour{0.8f, 0.2f, 0.0f};

// Where the image lies in the viewport, in normalised device coordinates.
struct ImageFrame {
    float v = 1;  // half height
    float left = -1;
    float right = 1;
    float left_half = -0.5f;  // centres of the two halves of a side-by-side pair
    float right_half = 0.5f;
};

// Heights of grid lines and ticks above and below the middle.
struct Ladder {
    float spacing;
    float offset;
    float count;

    Ladder(int image_height, int lines, float v) {
        const auto height = static_cast<float>(image_height);
        count = static_cast<float>(lines);
        spacing = ((height / (count + 1.0f)) / height) * 2.0f * v;
        offset = lines % 2 == 0 ? spacing / 2.0f : 0.0f;
    }
    bool has(int i) const { return static_cast<float>(i) < count / 2.0f; }
    float at(int i) const { return offset + static_cast<float>(i) * spacing; }
};

// An upright cross; half arms in normalised device coordinates.
void drawCross(float x, float y, float arm_x, float arm_y) {
    OpenGLUtils::drawLine_2d({x - arm_x, y}, {x + arm_x, y}, 3, kMarkColour, kMarkColour);
    OpenGLUtils::drawLine_2d({x, y - arm_y}, {x, y + arm_y}, 3, kMarkColour, kMarkColour);
}

}  // namespace

struct CPUMouseQOpenGLWidgetVars {
    bool resource_ready = false;
    unsigned char* image_host = nullptr;
    MatPointerVector_CPU host_buffers;  ///< owns image_host
    bool source_is_device = false;      ///< of the latest frame
    unsigned char* image_gpu = nullptr;
    MatPointerVector_CUDA gpu_buffers;  ///< owns image_gpu
    int width = 0;                      ///< of the image [px]
    int height = 0;                     ///< of the image [px]
    bool grey = false;
    bool draw_grid = false;
    int grid_count = 7;
    int ruler_count = 0;
    bool draw_center = false;
    bool center_on_both_halves = true;
    bool keep_ratio = true;
    bool draw_vertical_line = false;
    bool draw_cross = false;
    std::unique_ptr<OpenGLImageInteropCUDA> gpu_interop;
    std::unique_ptr<OpenGLImageInterop> host_interop;

    std::size_t frameBytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * (grey ? 1 : 4);
    }

    void freeBuffers() {
        host_buffers.deallocate_all();
        host_buffers.clear_vector();
        gpu_buffers.deallocate_all();
        gpu_buffers.clear_vector();
    }

    void freeInterops() {
        if (host_interop)
            host_interop->uninit();
        host_interop.reset();
        if (gpu_interop)
            gpu_interop->uninit();
        gpu_interop.reset();
    }

    ImageFrame frame(int view_width, int view_height) const;
    void drawGrid(const ImageFrame& frame) const;
    void drawRulers(const ImageFrame& frame, int view_width) const;
    void drawCenters(const ImageFrame& frame, int view_width, int view_height) const;
    void drawMark(Size2_<int> pressed, Size2_<int> released, int view_width, int view_height) const;
};

ImageFrame CPUMouseQOpenGLWidgetVars::frame(int view_width, int view_height) const {
    ImageFrame frame;
    if (!keep_ratio)
        return frame;
    const float a = static_cast<float>(view_width) / static_cast<float>(view_height);
    const float b = static_cast<float>(width) / static_cast<float>(height);
    if (b > a) {
        frame.v = a / b;
    } else if (b < a) {
        frame.right = b / a;
        frame.left = -frame.right;
        frame.left_half = -0.5f * frame.right;
        frame.right_half = 0.5f * frame.right;
    }
    return frame;
}

void CPUMouseQOpenGLWidgetVars::drawGrid(const ImageFrame& frame) const {
    const Ladder ladder(height, grid_count, frame.v);
    for (int i = 0; ladder.has(i); ++i) {
        const float y = ladder.at(i);
        for (const float line : {y, -y})
            OpenGLUtils::drawLine_2d({frame.left, line}, {frame.right, line}, 1, kGridColour,
                                     kGridColour);
    }
}

void CPUMouseQOpenGLWidgetVars::drawRulers(const ImageFrame& frame, int view_width) const {
    const double tick = (20.0 / view_width) * 1.5;
    const Ladder ladder(height, ruler_count, frame.v);
    for (int i = 0; ladder.has(i); ++i) {
        const float y = ladder.at(i);
        for (const float line : {y, -y})
            for (const float x : {frame.left_half, frame.right_half})
                OpenGLUtils::drawLine_2d({static_cast<float>(x - tick), line},
                                         {static_cast<float>(x + tick), line}, 2, kRulerColour,
                                         kRulerColour);
    }
    for (const float x : {frame.left_half, frame.right_half})
        OpenGLUtils::drawLine_2d({x, frame.v}, {x, -frame.v}, 2, kRulerColour, kRulerColour);
}

void CPUMouseQOpenGLWidgetVars::drawCenters(const ImageFrame& frame, int view_width,
                                            int view_height) const {
    const float arm_x = 20.0f / static_cast<float>(view_width);
    const float arm_y = 20.0f / static_cast<float>(view_height);
    if (!center_on_both_halves) {
        drawCross(0, 0, arm_x, arm_y);
        return;
    }
    drawCross(frame.left_half, 0, arm_x, arm_y);
    drawCross(frame.right_half, 0, arm_x, arm_y);
}

// Over the whole viewport, also where the image is letterboxed.
void CPUMouseQOpenGLWidgetVars::drawMark(Size2_<int> pressed, Size2_<int> released, int view_width,
                                         int view_height) const {
    const auto map = [this](Size2_<int> point) {
        return Size2_<float>{
            (static_cast<float>(point.x) / static_cast<float>(width)) * 2.0f - 1.0f,
            (-static_cast<float>(point.y) / static_cast<float>(height)) * 2.0f + 1.0f};
    };
    const auto missing = [](Size2_<int> point) { return point.x == -1 || point.y == -1; };
    const Size2_<float> end = map(released);
    if (pressed == released) {
        if (!missing(released))
            drawCross(end.x, end.y, 20.0f / static_cast<float>(view_width),
                      20.0f / static_cast<float>(view_height));
    } else if (!missing(pressed) && !missing(released)) {
        OpenGLUtils::drawLine_2d(map(pressed), end, 3, kMarkColour, kMarkColour);
    }
}

CPUMouseQOpenGLWidget::CPUMouseQOpenGLWidget(QWidget* parent)
    : MouseQOpenGLWidget(parent), vars_(std::make_unique<CPUMouseQOpenGLWidgetVars>()) {}

CPUMouseQOpenGLWidget::~CPUMouseQOpenGLWidget() {
    makeCurrent();
    vars_->freeInterops();
    vars_->freeBuffers();
    vars_.reset();
    doneCurrent();
}

void CPUMouseQOpenGLWidget::initResource(int width, int height, bool grey) {
    makeCurrent();
    vars_->grey = grey;
    vars_->width = width;
    vars_->height = height;
    vars_->freeBuffers();
    vars_->freeInterops();

    vars_->host_interop = std::make_unique<OpenGLImageInterop>();
    vars_->gpu_interop = std::make_unique<OpenGLImageInteropCUDA>();
    const int channels = grey ? 1 : 4;
    vars_->host_interop->init(width, height, 1, channels);
    vars_->gpu_interop->init(width, height, 1, channels);
    vars_->host_buffers.add_pointer(reinterpret_cast<void**>(&vars_->image_host), width, height,
                                    channels, 1);
    vars_->gpu_buffers.add_pointer(reinterpret_cast<void**>(&vars_->image_gpu), width, height,
                                   channels, 1);
    vars_->host_buffers.allocate_all();
    vars_->gpu_buffers.allocate_all(false);
    vars_->resource_ready = true;
}

void CPUMouseQOpenGLWidget::uninitResource() {
    makeCurrent();
    vars_->resource_ready = false;
    vars_->width = 0;
    vars_->height = 0;
    vars_->freeBuffers();
    vars_->freeInterops();
}

void CPUMouseQOpenGLWidget::setImagePointer(unsigned char* image) {
    if (!image)
        return;
    if (vars_->image_host)
        std::memcpy(vars_->image_host, image, vars_->frameBytes());
    vars_->source_is_device = false;
}

unsigned char* CPUMouseQOpenGLWidget::getImagePointer() {
    return vars_->image_host;
}

void CPUMouseQOpenGLWidget::setImagePointerGPU(unsigned char* image) {
    if (!image)
        return;
    CudaFunctions::copy(image, vars_->image_gpu, vars_->frameBytes());
    vars_->source_is_device = true;
}

unsigned char* CPUMouseQOpenGLWidget::getImagePointerGPU() {
    return vars_->image_gpu;
}

void CPUMouseQOpenGLWidget::setDrawGrid(bool draw, int count) {
    vars_->draw_grid = draw;
    vars_->grid_count = count;
}

void CPUMouseQOpenGLWidget::setDrawVerticalLine(bool draw, int count) {
    vars_->draw_vertical_line = draw;
    vars_->ruler_count = count;
}

void CPUMouseQOpenGLWidget::setKeepRatio(bool keep) {
    vars_->keep_ratio = keep;
}

void CPUMouseQOpenGLWidget::setDrawCenter(bool draw, bool bothHalves) {
    vars_->draw_center = draw;
    vars_->center_on_both_halves = bothHalves;
}

void CPUMouseQOpenGLWidget::setDrawCross(bool draw) {
    vars_->draw_cross = draw;
}

bool CPUMouseQOpenGLWidget::getDrawGrid() {
    return vars_->draw_grid;
}
bool CPUMouseQOpenGLWidget::getDrawCenter() {
    return vars_->draw_center;
}
bool CPUMouseQOpenGLWidget::getDrawCross() {
    return vars_->draw_cross;
}

void CPUMouseQOpenGLWidget::initializeGL() {
    makeCurrent();
    // A new context has no textures: the owner calls initResource() again.
    vars_->resource_ready = false;
}

void CPUMouseQOpenGLWidget::resizeGL(int w, int h) {
    glViewport(0, 0, w, h);
}

void CPUMouseQOpenGLWidget::paintGL() {
    OpenGLUtils::clear(0, 0, 0, 1);
    if (!vars_->resource_ready)
        return;
    const int view_width = vars_->keep_ratio ? width() : -1;
    const int view_height = vars_->keep_ratio ? height() : -1;
    if (vars_->source_is_device)
        vars_->gpu_interop->draw(vars_->image_gpu, view_width, view_height);
    else
        vars_->host_interop->draw(vars_->image_host, view_width, view_height);

    const ImageFrame frame = vars_->frame(width(), height());
    if (vars_->draw_grid)
        vars_->drawGrid(frame);
    if (vars_->draw_vertical_line)
        vars_->drawRulers(frame, width());
    if (vars_->draw_center)
        vars_->drawCenters(frame, width(), height());
    if (vars_->draw_cross)
        vars_->drawMark(getPressed(), getReleased(), width(), height());
}

}  // namespace kova::qwidget
