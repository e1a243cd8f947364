#include "opengl/cameracontrolgl.h"

#include <GL/gl.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "opengl/cameracontrolgl_p.h"
#include "tests/support/gl_double.h"

namespace kova {
namespace {

using Eigen::Matrix4f;
using Eigen::Quaternionf;
using Eigen::Vector3f;

class Camera : public CameraControlGL {
public:
    explicit Camera(Size3_<float> position = {0, 0, 0}, Size3_<float> direction = {0, 0, -1})
        : CameraControlGL(position, direction) {}
    CameraControlGLVars& vars() { return *vars_; }
};

std::uint32_t bitsOf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

void expectNear(const Vector3f& a, const Vector3f& b, float tolerance = 1e-6f) {
    EXPECT_LE((a - b).norm(), tolerance) << a.transpose() << " against " << b.transpose();
}

std::vector<float> elements(const Matrix4f& m) {
    return {m.data(), m.data() + 16};
}

TEST(CameraControlGL, NewCameraLooksDownMinusZFromItsPosition) {
    Camera camera({3, -4, 5}, {0, 0, -1});
    const CameraControlGLVars& vars = camera.vars();
    EXPECT_EQ(vars.rotation.coeffs(), Quaternionf::Identity().coeffs());
    EXPECT_EQ(vars.forward, Vector3f(0, 0, 1));
    EXPECT_EQ(vars.up, Vector3f(0, 1, 0));
    EXPECT_EQ(vars.right, Vector3f(-1, 0, 0));
    Matrix4f translation = Matrix4f::Identity();
    translation.topRightCorner<3, 1>() = Vector3f(-3, 4, -5);
    EXPECT_EQ(vars.view, translation);
}

TEST(CameraControlGL, NewCameraHasTheStatedStartValues) {
    Camera camera({3, -4, 5}, {0, 0, -1});
    const CameraControlGLVars& vars = camera.vars();
    EXPECT_EQ(vars.base_forward, Vector3f(0, 0, 1));
    EXPECT_EQ(vars.base_up, Vector3f(0, 1, 0));
    EXPECT_EQ(vars.base_right, Vector3f(1, 0, 0));
    EXPECT_EQ(vars.offset, Vector3f(0, 0, 0));
    EXPECT_EQ(vars.vertical, Vector3f(0, 1, 0));
    EXPECT_EQ(camera.getZoomScale(), 1);
    EXPECT_EQ(camera.getHorizontalFOV(), 60);
    EXPECT_EQ(camera.getVerticalFOV(), 60);
    EXPECT_EQ(camera.getZNear(), 0.01f);
    EXPECT_EQ(camera.getZFar(), 50000);
    EXPECT_EQ(vars.vp_matrix, Matrix4f(vars.projection * vars.view));
    EXPECT_EQ(bitsOf(vars.projection(0, 0)), 0x3FDDB3D8u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&vars) % 16, 0u);
}

TEST(CameraControlGL, ProjectionOf60DegreesHasTheStatedBits) {
    Camera camera;
    camera.setProjection(10, 20, 1, 2);
    camera.setProjection(60, 60, 0.01f, 50000);
    const Matrix4f& p = camera.vars().projection;
    EXPECT_EQ(bitsOf(p(0, 0)), 0x3FDDB3D8u);
    EXPECT_EQ(bitsOf(p(1, 1)), 0x3FDDB3D8u);
    EXPECT_EQ(bitsOf(p(2, 2)), 0xBF800004u);
    EXPECT_EQ(bitsOf(p(2, 3)), 0xBCA3D70Du);
    EXPECT_EQ(p(3, 2), -1);
    EXPECT_EQ(p(3, 3), 0);
    // All the rest is zero; column-major: row 3, column 2 is element 11.
    EXPECT_EQ(elements(p), (std::vector<float>{p(0, 0), 0, 0, 0, 0, p(1, 1), 0, 0, 0, 0, p(2, 2),
                                               -1, 0, 0, p(2, 3), 0}));
}

TEST(CameraControlGL, ProjectionTakesTwoIndependentFieldsOfView) {
    Camera camera;
    const Matrix4f before = camera.vars().vp_matrix;
    camera.setProjection(90, 45, 1, 3);
    const Matrix4f& p = camera.vars().projection;
    EXPECT_FLOAT_EQ(p(0, 0), 1);
    EXPECT_FLOAT_EQ(p(1, 1), 2.4142135f);
    EXPECT_EQ(p(2, 2), -2);
    EXPECT_EQ(p(2, 3), -3);
    EXPECT_EQ(camera.getHorizontalFOV(), 90);
    EXPECT_EQ(camera.getVerticalFOV(), 45);
    EXPECT_EQ(camera.getZNear(), 1);
    EXPECT_EQ(camera.getZFar(), 3);
    EXPECT_EQ(camera.vars().vp_matrix, before) << "the product waits for update()";
}

TEST(CameraControlGL, ZoomScalesTheOffsetAndTheViewFollowsOnUpdateOnly) {
    Camera camera;
    camera.setInitOffsetFromPositionMatrix({0, 0, 3});
    EXPECT_EQ(camera.vars().offset, Vector3f(0, 0, 3));
    const Matrix4f before = camera.vars().view;
    camera.setZoomScale(2);
    EXPECT_EQ(camera.getZoomScale(), 2);
    EXPECT_EQ(camera.vars().offset, Vector3f(0, 0, 6));
    EXPECT_EQ(camera.vars().init_offset, Vector3f(0, 0, 3));
    EXPECT_EQ(camera.vars().view, before);
    camera.update();
    EXPECT_EQ(camera.vars().view(2, 3), -6);
    EXPECT_EQ(camera.vars().vp_matrix, Matrix4f(camera.vars().projection * camera.vars().view));
    camera.setInitOffsetFromPositionMatrix({1, 2, 3});
    EXPECT_EQ(camera.getZoomScale(), 1);
}

TEST(CameraControlGL, HorizontalDragTurnsByMinus01RadAboutY) {
    Camera camera;
    camera.setRotation(10, 0, 0.01f);
    const CameraControlGLVars& vars = camera.vars();
    EXPECT_NEAR(vars.rotation.y(), -std::sin(0.05f), 1e-7);
    EXPECT_NEAR(vars.rotation.w(), std::cos(0.05f), 1e-7);
    EXPECT_EQ(vars.rotation.x(), 0);
    EXPECT_EQ(vars.rotation.z(), 0);
    expectNear(vars.forward, {-std::sin(0.1f), 0, std::cos(0.1f)});
}

TEST(CameraControlGL, VerticalDragTurnsByPlus01RadAboutTheRightAxis) {
    Camera camera;
    camera.setRotation(0, 10, 0.01f);
    // The right axis is (-1, 0, 0), so the turn is by -0.1 about +x.
    EXPECT_NEAR(camera.vars().rotation.x(), -std::sin(0.05f), 1e-7);
    expectNear(camera.vars().forward, {0, std::sin(0.1f), std::cos(0.1f)});
    expectNear(camera.vars().right, {-1, 0, 0});
}

TEST(CameraControlGL, PitchTurnsAboutTheRightAxisAfterTheYaw) {
    Camera camera;
    camera.setRotation(50, 30, 0.01f);
    const Quaternionf yaw(Eigen::AngleAxisf(-0.5f, Vector3f::UnitY()));
    const Vector3f right = yaw * Vector3f(-1, 0, 0);
    const Quaternionf pitch(Eigen::AngleAxisf(0.3f, right));
    EXPECT_LE(((pitch * yaw).coeffs() - camera.vars().rotation.coeffs()).norm(), 1e-6);
}

TEST(CameraControlGL, RotationIsNotNormalised) {
    Camera camera;
    camera.vars().vertical = Vector3f(0, 2, 0);
    camera.setRotation(10, 0, 0.01f);
    const float s = std::sin(0.05f);
    const float c = std::cos(0.05f);
    EXPECT_FLOAT_EQ(camera.vars().rotation.y(), -2 * s);
    EXPECT_FLOAT_EQ(camera.vars().rotation.w(), c);
}

TEST(CameraControlGL, TranslationMovesAgainstXAndGrowsWithTheZoom) {
    Camera camera;
    camera.setTranslation(1, 0, 1.25f);
    EXPECT_EQ(camera.vars().position, Vector3f(-1.25f, 0, 0));
    camera.setPositionMatrix({0, 0, 0});
    camera.setZoomScale(2);
    camera.setTranslation(1, 0, 1.25f);
    EXPECT_EQ(camera.vars().position, Vector3f(-2.5f, 0, 0));
    camera.setTranslation(0, 3, 1.25f);
    EXPECT_EQ(camera.vars().position, Vector3f(-2.5f, 7.5f, 0));
}

TEST(CameraControlGL, SetPositionChangesNothingElse) {
    Camera camera;
    const Matrix4f before = camera.vars().view;
    camera.setPositionMatrix({1, 2, 3});
    EXPECT_EQ(camera.vars().position, Vector3f(1, 2, 3));
    EXPECT_EQ(camera.vars().view, before);
    camera.update();
    EXPECT_EQ(camera.vars().view(0, 3), -1);
}

TEST(CameraControlGL, UpsideDownDirectionDoesNotRollButUpdateNegatesTheVertical) {
    // Looking steeply up and back turns the camera's up below the horizon.
    Camera camera({0, 0, 0}, {0, 1, 0.5f});
    CameraControlGLVars& vars = camera.vars();
    const Vector3f d = Vector3f(0, 1, 0.5f).normalized();
    Quaternionf expected;
    expected.setFromTwoVectors(Vector3f(0, 0, -1), d);
    EXPECT_EQ(vars.rotation.coeffs(), expected.coeffs());
    ASSERT_LT(vars.up.dot(Vector3f(0, 1, 0)), 0);
    EXPECT_EQ(vars.vertical, Vector3f(0, 1, 0));
    camera.update();
    EXPECT_EQ(vars.vertical, Vector3f(0, -1, 0));
    EXPECT_EQ(vars.rotation.coeffs(), expected.coeffs());
    camera.update();
    EXPECT_EQ(vars.vertical, Vector3f(0, -1, 0));
}

TEST(CameraControlGL, DirectionNeedNotBeNormalised) {
    Camera a({0, 0, 0}, {1, 2, -3});
    Camera b({0, 0, 0}, {10, 20, -30});
    expectNear(a.vars().forward, b.vars().forward);
    expectNear(a.vars().forward, -Vector3f(1, 2, -3).normalized());
}

TEST(CameraControlGL, ZeroDirectionDoesNotCrash) {
    Camera camera({0, 0, 0}, {0, 0, 0});
    camera.update();
    EXPECT_EQ(camera.vars().vertical.cwiseAbs(), Vector3f(0, 1, 0));
}

TEST(CameraControlGL, ViewIsTheInverseOfTheEyesPose) {
    Camera camera({1, 2, 3}, {1, 0.5f, -2});
    camera.setInitOffsetFromPositionMatrix({0.5f, -1, 4});
    camera.update();
    const CameraControlGLVars& vars = camera.vars();
    const Vector3f eye = vars.position + vars.rotation * Vector3f(0.5f, -1, 4);
    const Eigen::Vector4f at_eye = vars.view * eye.homogeneous();
    expectNear(at_eye.head<3>(), {0, 0, 0}, 2e-6f);
    const Vector3f ahead = eye - vars.forward * 7;
    expectNear((vars.view * ahead.homogeneous()).head<3>(), {0, 0, -7}, 4e-6f);
}

TEST(CameraControlGLVars, TranslateMovesThePivot) {
    CameraControlGLVars vars;
    vars.position = Vector3f(1, 2, 3);
    vars.translate(Vector3f(10, 20, 30));
    EXPECT_EQ(vars.position, Vector3f(11, 22, 33));
}

TEST(CameraControlGLVars, RotationsAreSetAndAppliedInWorldAxes) {
    CameraControlGLVars vars;
    vars.setRotationMatrix(Quaternionf(0, 0, 2, 0));
    EXPECT_EQ(vars.rotation.y(), 2) << "taken as given, not normalised";

    const Eigen::Matrix3f quarter =
        Eigen::AngleAxisf(float(M_PI) / 2, Vector3f::UnitY()).toRotationMatrix();
    vars.setRotationMatrix(quarter);
    expectNear(vars.forward, {1, 0, 0});
    expectNear(vars.up, {0, 1, 0});
    expectNear(vars.right, {0, 0, 1});

    const Eigen::Matrix3f roll =
        Eigen::AngleAxisf(float(M_PI) / 2, Vector3f::UnitX()).toRotationMatrix();
    vars.rotate(roll);
    expectNear(vars.forward, {1, 0, 0});
    expectNear(vars.up, {0, 0, 1});
    vars.rotate(Quaternionf(roll));
    expectNear(vars.up, {0, -1, 0});
}

TEST(CameraControlGLVars, HalfTurnMatrixTakesTheLargestDiagonal) {
    CameraControlGLVars vars;
    const Vector3f halfTurnAboutY(-1, 1, -1);
    vars.setRotationMatrix(Eigen::Matrix3f(halfTurnAboutY.asDiagonal()));
    EXPECT_EQ(vars.rotation.coeffs(), Eigen::Vector4f(0, 1, 0, 0));
}

TEST(CameraControlGL, ShowLoadsProjectionAndView) {
    test::resetGlDouble();
    Camera camera({1, 2, 3}, {0, 0, -1});
    EXPECT_TRUE(test::CallLog::instance().take().empty());
    camera.show();
    EXPECT_TRUE(
        test::sameCalls(test::CallLog::instance().take(),
                        {test::callText("glMatrixMode", GL_PROJECTION), "glLoadIdentity()",
                         test::callText("glLoadMatrixf", elements(camera.vars().projection)),
                         test::callText("glMatrixMode", GL_MODELVIEW), "glLoadIdentity()",
                         "glLoadMatrixf([1 0 0 0 0 1 0 0 0 0 1 0 -1 -2 -3 1])"}));
}

}  // namespace
}  // namespace kova
