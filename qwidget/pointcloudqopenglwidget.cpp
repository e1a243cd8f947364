#include "qwidget/pointcloudqopenglwidget.h"

#include <GL/gl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "opengl/opengl_pointcloud_interop.h"
#include "opengl/openglutils.h"
#include "qwidget/gl_scene.h"
#include "sdk/cuda_functions.h"
#include "sdk/mat_pointer_vector.h"
#include "sdk/model_file_stl.h"

namespace kova::qwidget {
namespace {

using Point3 = Size3_<float>;

constexpr Point3 kOrigin{0, 0, 0};
constexpr Point3 kStartColour{0.8f, 0.2f, 0.0f};
constexpr Point3 kEndColour{0.2f, 0.8f, 0.0f};
constexpr Point3 kFrustumColour{0.88f, 1.0f, 1.0f};
constexpr Point3 kBodyColour{0.8f, 0.8f, 0.8f};

}  // namespace

struct PointCloudQOpenGLWidgetVars {
    MatPointerVector_CPU host_buffers;  ///< owns image_host and cloud_host
    unsigned char* image_host = nullptr;
    float* cloud_host = nullptr;
    bool image_on_gpu = false;          ///< the latest image was given in device memory
    MatPointerVector_CUDA gpu_buffers;  ///< owns image_gpu
    unsigned char* image_gpu = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t channels = 0;
    bool resources_ready = false;
    std::unique_ptr<OpenGLPointCloudInterop> interop;
    float fx = 0;  ///< [px]
    float fy = 0;  ///< [px]
    float depth_max = 0;
    float depth_min = 0;
    Point3 target_point;  ///< (0, 0, 0): none
    Point3 triangle_a;
    Point3 triangle_b;
    bool show_point_cloud = true;
    bool show_camera = true;
    bool show_axes = true;
    bool show_fov = true;
    std::vector<Point3> model_normals;
    std::vector<Point3> model_vertices_1;
    std::vector<Point3> model_vertices_2;
    std::vector<Point3> model_vertices_3;
    float imu_rotation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  ///< column-major
    Point3 imu_translation;

    PointCloudQOpenGLWidgetVars() = default;
    PointCloudQOpenGLWidgetVars(const PointCloudQOpenGLWidgetVars&) = delete;
    PointCloudQOpenGLWidgetVars& operator=(const PointCloudQOpenGLWidgetVars&) = delete;
    ~PointCloudQOpenGLWidgetVars() {
        freeInterop();
        freeBuffers();
    }

    std::size_t pixels() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
    std::size_t imageBytes() const { return pixels() * static_cast<std::size_t>(channels); }
    std::size_t cloudBytes() const { return pixels() * 3 * sizeof(float); }

    void freeInterop() {
        if (interop)
            interop->uninit();
        interop.reset();
    }

    void freeBuffers() {
        host_buffers.deallocate_all();
        host_buffers.clear_vector();
        gpu_buffers.deallocate_all();
        gpu_buffers.clear_vector();
    }

    void draw_target_point() const {
        OpenGLUtils::drawLine_3d(kOrigin, target_point, 5, kStartColour, kEndColour);
    }

    void draw_triangle_point() const {
        OpenGLUtils::drawLine_3d(kOrigin, triangle_a, 5, kStartColour, kStartColour);
        OpenGLUtils::drawLine_3d(triangle_a, triangle_b, 5, kStartColour, kEndColour);
        OpenGLUtils::drawLine_3d(triangle_b, kOrigin, 5, kEndColour, kEndColour);
    }
};

PointCloudQOpenGLWidget::PointCloudQOpenGLWidget(QWidget* parent)
    : CameraControlQOpenGLWidget(parent), vars_(std::make_unique<PointCloudQOpenGLWidgetVars>()) {
    setFocusPolicy(Qt::StrongFocus);
}

PointCloudQOpenGLWidget::~PointCloudQOpenGLWidget() {
    makeCurrent();
    vars_.reset();
    doneCurrent();
}

void PointCloudQOpenGLWidget::initResource(int width, int height, int channels) {
    makeCurrent();
    vars_->width = width;
    vars_->height = height;
    vars_->channels = channels;
    vars_->freeInterop();

    vars_->host_buffers.deallocate_all();
    vars_->host_buffers.clear_vector();
    vars_->host_buffers.add_pointer(reinterpret_cast<void**>(&vars_->image_host), width, height,
                                    channels, 1);
    vars_->host_buffers.add_pointer(reinterpret_cast<void**>(&vars_->cloud_host), width, height, 3,
                                    4);
    vars_->host_buffers.allocate_all();

    vars_->gpu_buffers.deallocate_all();
    vars_->gpu_buffers.clear_vector();
    vars_->gpu_buffers.add_pointer(reinterpret_cast<void**>(&vars_->image_gpu), width, height,
                                   channels, 1);
    vars_->gpu_buffers.allocate_all(false);

    vars_->interop = std::make_unique<OpenGLPointCloudInterop>();
    vars_->interop->init(width, height, 1, 4, channels);

    enableRefusedCapability();
    glEnable(GL_TEXTURE_2D);
    glEnable(GL_CULL_FACE);

    initCameraControl({0, 0, 0}, {0, 0, -1}, {0, 0, 4000});
    vars_->resources_ready = true;
}

void PointCloudQOpenGLWidget::uninitResource() {
    makeCurrent();
    vars_->width = 0;
    vars_->height = 0;
    vars_->channels = 0;
    vars_->resources_ready = false;
    vars_->freeBuffers();
    vars_->freeInterop();
    uninitCameraControl();
}

void PointCloudQOpenGLWidget::setDepthRange(float min, float max) {
    vars_->depth_min = min;
    vars_->depth_max = max;
}

void PointCloudQOpenGLWidget::setFocalLength(float fx, float fy) {
    vars_->fx = fx;
    vars_->fy = fy;
}

void PointCloudQOpenGLWidget::setTargetPoint(Size3_<float> p) {
    vars_->target_point = p;
    vars_->triangle_a = kOrigin;
    vars_->triangle_b = kOrigin;
}

void PointCloudQOpenGLWidget::setTrianglePoint(Size3_<float> a, Size3_<float> b) {
    vars_->triangle_a = a;
    vars_->triangle_b = b;
    vars_->target_point = kOrigin;
}

void PointCloudQOpenGLWidget::clearPoint() {
    vars_->target_point = kOrigin;
    vars_->triangle_a = kOrigin;
    vars_->triangle_b = kOrigin;
}

void PointCloudQOpenGLWidget::setImagePointer(unsigned char* p) {
    if (!p)
        return;
    if (vars_->image_host)
        std::memcpy(vars_->image_host, p, vars_->imageBytes());
    vars_->image_on_gpu = false;
}

void PointCloudQOpenGLWidget::setImagePointerGPU(unsigned char* p) {
    if (!p)
        return;
    CudaFunctions::copy(p, vars_->image_gpu, vars_->imageBytes());
    vars_->image_on_gpu = true;
}

void PointCloudQOpenGLWidget::setPointCloudPointer(float* p) {
    if (!p)
        return;
    if (vars_->cloud_host)
        std::memcpy(vars_->cloud_host, p, vars_->cloudBytes());
}

unsigned char* PointCloudQOpenGLWidget::getImagePointer() {
    return vars_->image_host;
}
unsigned char* PointCloudQOpenGLWidget::getImagePointerGPU() {
    return vars_->image_gpu;
}
float* PointCloudQOpenGLWidget::getPointCloudPointer() {
    return vars_->cloud_host;
}

void PointCloudQOpenGLWidget::setShowPointCloud(bool show) {
    vars_->show_point_cloud = show;
}
void PointCloudQOpenGLWidget::setShowCamera(bool show) {
    vars_->show_camera = show;
}
void PointCloudQOpenGLWidget::setShowAxes(bool show) {
    vars_->show_axes = show;
}
void PointCloudQOpenGLWidget::setShowFov(bool show) {
    vars_->show_fov = show;
}

void PointCloudQOpenGLWidget::set_quaternion(float* q) {
    setRotation(vars_->imu_rotation, q);
}

void PointCloudQOpenGLWidget::set_imu_translation(Size3_<float> t) {
    vars_->imu_translation = t;
}

void PointCloudQOpenGLWidget::initializeGL() {
    makeCurrent();
    initLitScene();
    data::ModelFile_STL::get_quelvar_model_vector(&vars_->model_normals, &vars_->model_vertices_1,
                                                  &vars_->model_vertices_2,
                                                  &vars_->model_vertices_3);
}

void PointCloudQOpenGLWidget::resizeGL(int w, int h) {
    CameraControlQOpenGLWidget::resizeGL(w, h);
}

void PointCloudQOpenGLWidget::paintGL() {
    OpenGLUtils::clear(0, 0, 0, 1);
    CameraControlQOpenGLWidget::paintGL();
    if (!vars_->resources_ready)
        return;
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
    glPushMatrix();
    glEnable(GL_CULL_FACE);
    glMultMatrixf(vars_->imu_rotation);
    glTranslatef(vars_->imu_translation.x, vars_->imu_translation.y, vars_->imu_translation.z);
    if (vars_->show_point_cloud) {
        if (vars_->image_on_gpu)
            CudaFunctions::download(vars_->image_gpu, vars_->image_host, vars_->imageBytes());
        vars_->interop->draw(vars_->image_host, vars_->cloud_host, 1.0f);
        vars_->draw_target_point();
        vars_->draw_triangle_point();
    }
    if (vars_->show_fov)
        OpenGLUtils::drawFOV_3d(vars_->fx, vars_->fy, vars_->depth_min, vars_->depth_max,
                                vars_->width, vars_->height, 1, kFrustumColour, kFrustumColour);
    if (vars_->show_axes)
        OpenGLUtils::drawAxes_3d(50, 1, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    if (vars_->show_camera) {
        glEnable(GL_LIGHT0);
        glEnable(GL_LIGHTING);
        OpenGLUtils::drawStlModel(vars_->model_normals, vars_->model_vertices_1,
                                  vars_->model_vertices_2, vars_->model_vertices_3, 1, kBodyColour,
                                  GL_RENDER);
    }
    glPopMatrix();
}

}  // namespace kova::qwidget
