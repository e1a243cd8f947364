#include "qwidget/imupositionqopenglwidget.h"

#include <GL/gl.h>

#include <vector>

#include "opengl/openglutils.h"
#include "qwidget/gl_scene.h"
#include "sdk/model_file_stl.h"

namespace kova::qwidget {
namespace {

using Point3 = Size3_<float>;

}  // namespace

struct IMUPositionQOpenGLWidgetVars {
    bool resources_ready = false;
    std::int32_t width = 0;
    std::int32_t height = 0;
    bool show_module = true;
    bool show_grid_plane = true;
    bool show_axes = true;
    Point3 north_axis;  ///< end of the north arrow
    float fx = 0;       ///< [px]
    float fy = 0;       ///< [px]
    float imu_rotation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  ///< column-major
    Point3 imu_translation;
    std::vector<Point3> model_normals;
    std::vector<Point3> model_vertices_1;
    std::vector<Point3> model_vertices_2;
    std::vector<Point3> model_vertices_3;

    /// The floor: lines 400 mm apart in the plane y = 1000 mm, 20 m square.
    void draw_grid_plane() const {
        constexpr Point3 kDark{13.0f / 255, 17.0f / 255, 20.0f / 255};
        constexpr Point3 kLight{213.0f / 255, 207.0f / 255, 200.0f / 255};
        for (int i = -25; i <= 25; ++i) {
            const float x = static_cast<float>(i) * 400;
            OpenGLUtils::drawLine_3d({x, 1000, -10000}, {x, 1000, 10000}, 1, kDark, kLight);
            // By the step, not the place: all these lines are nearly the same grey.
            const auto g = static_cast<float>((i + 2500) / 5000.0);
            OpenGLUtils::drawLine_3d({-10000, 1000, x}, {10000, 1000, x}, 1, {g, g, g}, {g, g, g});
        }
    }
};

IMUPositionQOpenGLWidget::IMUPositionQOpenGLWidget(QWidget* parent)
    : CameraControlQOpenGLWidget(parent), vars_(std::make_unique<IMUPositionQOpenGLWidgetVars>()) {
    setFocusPolicy(Qt::StrongFocus);
}

IMUPositionQOpenGLWidget::~IMUPositionQOpenGLWidget() = default;

void IMUPositionQOpenGLWidget::initResource(int width, int height) {
    vars_->width = width;
    vars_->height = height;
    enableRefusedCapability();
    glEnable(GL_TEXTURE_2D);
    initCameraControl({0, 0, 0}, {0, 0, -1}, {0, 0, 1000});
    vars_->resources_ready = true;
}

void IMUPositionQOpenGLWidget::set_quaternion(float* q) {
    setRotation(vars_->imu_rotation, q);
}

void IMUPositionQOpenGLWidget::set_focal_length(float fx, float fy) {
    vars_->fx = fx;
    vars_->fy = fy;
}

void IMUPositionQOpenGLWidget::set_show_module(bool show) {
    vars_->show_module = show;
}
void IMUPositionQOpenGLWidget::set_show_grid_plane(bool show) {
    vars_->show_grid_plane = show;
}
void IMUPositionQOpenGLWidget::set_show_axes(bool show) {
    vars_->show_axes = show;
}

void IMUPositionQOpenGLWidget::set_north_axis(NorthAxisDirection direction) {
    switch (direction) {
        case NORTH_AXIS_NONE:
            vars_->north_axis = {0, 0, 0};
            break;
        case NORTH_AXIS_X_POSITIVE:
            vars_->north_axis = {50, 0, 0};
            break;
        case NORTH_AXIS_X_NEGATIVE:
            vars_->north_axis = {-50, 0, 0};
            break;
        case NORTH_AXIS_Y_POSITIVE:
            vars_->north_axis = {0, 50, 0};
            break;
        case NORTH_AXIS_Y_NEGATIVE:
            vars_->north_axis = {0, -50, 0};
            break;
        case NORTH_AXIS_Z_POSITIVE:
            vars_->north_axis = {0, 0, 50};
            break;
        case NORTH_AXIS_Z_NEGATIVE:
            vars_->north_axis = {0, 0, -50};
            break;
    }
}

void IMUPositionQOpenGLWidget::set_imu_translation(Size3_<float> t) {
    vars_->imu_translation = t;
}

void IMUPositionQOpenGLWidget::initializeGL() {
    makeCurrent();
    initLitScene();
    data::ModelFile_STL::get_quelvar_model_vector(&vars_->model_normals, &vars_->model_vertices_1,
                                                  &vars_->model_vertices_2,
                                                  &vars_->model_vertices_3);
}

void IMUPositionQOpenGLWidget::resizeGL(int w, int h) {
    CameraControlQOpenGLWidget::resizeGL(w, h);
}

void IMUPositionQOpenGLWidget::paintGL() {
    OpenGLUtils::clear(0, 0, 0, 1);
    CameraControlQOpenGLWidget::paintGL();
    if (!vars_->resources_ready)
        return;
    glDisable(GL_LIGHT0);
    glDisable(GL_LIGHTING);
    if (vars_->show_axes)
        OpenGLUtils::drawAxes_3d(50, 1, {1, 0, 0}, {0, 1, 0}, {0, 0, 1});
    if (vars_->show_grid_plane)
        vars_->draw_grid_plane();
    if (vars_->show_module) {
        glPushMatrix();
        glEnable(GL_CULL_FACE);
        glMultMatrixf(vars_->imu_rotation);
        glTranslatef(vars_->imu_translation.x, vars_->imu_translation.y, vars_->imu_translation.z);
        glEnable(GL_LIGHT0);
        glEnable(GL_LIGHTING);
        OpenGLUtils::drawStlModel(vars_->model_normals, vars_->model_vertices_1,
                                  vars_->model_vertices_2, vars_->model_vertices_3, 1,
                                  {0.8f, 0.8f, 0.8f}, GL_RENDER);
        glPopMatrix();
    }
    OpenGLUtils::drawArrow_3d({0, 0, 0}, vars_->north_axis, 15, 5, {1, 0, 0}, {1, 0, 0});
}

}  // namespace kova::qwidget
