#include "opengl/cameracontrolgl.h"

#include <Eigen/LU>
#include <GL/gl.h>

#include <cmath>

#include "opengl/cameracontrolgl_p.h"

namespace kova {
namespace {

Eigen::Vector3f vectorOf(const Size3_<float>& v) {
    return {v.x, v.y, v.z};
}

// 1 / tan(fov / 2). The tangent is correctly rounded by way of double: tanf may be an ulp off.
float cotangentOfHalf(float fov_degrees) {
    const auto angle = static_cast<float>(static_cast<double>(fov_degrees) * M_PI / 180.0);
    const float half = angle * 0.5f;
    return 1.0f / static_cast<float>(std::tan(static_cast<double>(half)));
}

}  // namespace

void CameraControlGLVars::translate(const Eigen::Vector3f& t) {
    position += t;
}

void CameraControlGLVars::updateVectors() {
    forward = rotation * base_forward;
    up = rotation * base_up;
    right = rotation * Eigen::Vector3f(-base_right);
}

void CameraControlGLVars::setRotationMatrix(const Eigen::Quaternionf& q) {
    rotation = q;
    updateVectors();
}

void CameraControlGLVars::setRotationMatrix(const Eigen::Matrix3f& m) {
    setRotationMatrix(Eigen::Quaternionf(m));
}

void CameraControlGLVars::rotate(const Eigen::Quaternionf& r) {
    rotation = r * rotation;
    updateVectors();
}

void CameraControlGLVars::rotate(const Eigen::Matrix3f& m) {
    rotate(Eigen::Quaternionf(m));
}

void CameraControlGLVars::setDirectionMatrix(const Eigen::Vector3f& direction,
                                             const Eigen::Vector3f& vertical_direction) {
    rotation.setFromTwoVectors(Eigen::Vector3f(0, 0, -1), direction.normalized());
    updateVectors();
    vertical = vertical_direction;
    if (up.dot(vertical) < 0) {
        // A turn by nothing: an upside-down camera is not rolled here, update() flips the vertical.
        Eigen::Quaternionf r;
        r.vec() = 0.0f * base_forward;
        r.w() = 1;
        rotate(r);
    }
}

void CameraControlGLVars::updateView() {
    Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
    pose.topLeftCorner<3, 3>() = rotation.toRotationMatrix();
    pose.topRightCorner<3, 1>() = position + rotation * offset;
    // The general inverse: the rotation is never normalised again, so its transpose would not do.
    view = pose.inverse();
}

void CameraControlGLVars::updateVPMatrix() {
    vp_matrix = projection * view;
}

CameraControlGL::CameraControlGL(Size3_<float> position, Size3_<float> direction)
    : vars_(std::make_unique<CameraControlGLVars>()) {
    vars_->position = vectorOf(position);
    vars_->setDirectionMatrix(vectorOf(direction), {0, 1, 0});
    vars_->view.setIdentity();
    vars_->offset.setZero();
    vars_->updateView();
    setProjection(60, 60, 0.01f, 50000);
    vars_->updateVPMatrix();
}

CameraControlGL::~CameraControlGL() = default;

void CameraControlGL::setPositionMatrix(Size3_<float> position) {
    vars_->position = vectorOf(position);
}

void CameraControlGL::setInitOffsetFromPositionMatrix(Size3_<float> offset) {
    vars_->init_offset = vectorOf(offset);
    vars_->offset = vars_->init_offset;
    vars_->zoom_scale = 1;
}

void CameraControlGL::setProjection(float horizontalFov, float verticalFov, float zNear,
                                    float zFar) {
    vars_->horizontal_fov = horizontalFov;
    vars_->vertical_fov = verticalFov;
    vars_->z_near = zNear;
    vars_->z_far = zFar;
    Eigen::Matrix4f& p = vars_->projection;
    p.setIdentity();
    p(0, 0) = cotangentOfHalf(horizontalFov);
    p(1, 1) = cotangentOfHalf(verticalFov);
    p(2, 2) = -(zNear + zFar) / (zFar - zNear);
    p(3, 2) = -1;
    p(2, 3) = -(zNear * (zFar + zFar)) / (zFar - zNear);
    p(3, 3) = 0;
}

void CameraControlGL::update() {
    if (vars_->up.dot(vars_->vertical) < 0)
        vars_->vertical = -vars_->vertical;
    vars_->updateView();
    vars_->updateVPMatrix();
}

void CameraControlGL::show() {
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glLoadMatrixf(vars_->projection.data());
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glLoadMatrixf(vars_->view.data());
}

float CameraControlGL::getHorizontalFOV() const {
    return vars_->horizontal_fov;
}
float CameraControlGL::getVerticalFOV() const {
    return vars_->vertical_fov;
}
float CameraControlGL::getZNear() const {
    return vars_->z_near;
}
float CameraControlGL::getZFar() const {
    return vars_->z_far;
}

void CameraControlGL::setZoomScale(float scale) {
    vars_->zoom_scale = scale;
    vars_->offset = vars_->init_offset * scale;
}

float CameraControlGL::getZoomScale() const {
    return vars_->zoom_scale;
}

void CameraControlGL::setTranslation(int dx, int dy, float gain) {
    const float s = vars_->zoom_scale;
    for (int i = 0; i < 3; ++i) {
        float& p = vars_->position[i];
        p += s * (static_cast<float>(dx) * vars_->right[i] * gain);
        p += s * (static_cast<float>(dy) * vars_->up[i] * gain);
    }
}

void CameraControlGL::setRotation(int dx, int dy, float gain) {
    Eigen::Quaternionf turn;
    const float yaw = static_cast<float>(dx) * gain * 0.5f;
    turn.vec() = -std::sin(yaw) * vars_->vertical;
    turn.w() = std::cos(yaw);
    vars_->rotate(turn);

    const float pitch = static_cast<float>(dy) * gain * 0.5f;
    turn.vec() = std::sin(pitch) * vars_->right;
    turn.w() = std::cos(pitch);
    vars_->rotate(turn);
}

}  // namespace kova
