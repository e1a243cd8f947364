#pragma once

// The state behind CameraControlGL; for its implementation and tests.

#include <Eigen/Core>
#include <Eigen/Geometry>

namespace kova {

struct CameraControlGLVars {
    Eigen::Vector3f base_forward{0, 0, 1};
    Eigen::Vector3f base_up{0, 1, 0};
    Eigen::Vector3f base_right{1, 0, 0};
    Eigen::Vector3f init_offset{0, 0, 0};  ///< eye offset at zoom 1, in the camera's axes
    Eigen::Vector3f offset{0, 0, 0};       ///< init_offset * zoom_scale
    float zoom_scale = 1;
    Eigen::Vector3f position{0, 0, 0};  ///< the pivot
    Eigen::Vector3f forward{0, 0, 0};   ///< rotation applied to base_forward
    Eigen::Vector3f up{0, 0, 0};        ///< rotation applied to base_up
    /// Rotation applied to the negated base_right: the directions of drags depend on that sign.
    Eigen::Vector3f right{0, 0, 0};
    Eigen::Vector3f vertical{0, 1, 0};  ///< axis of yaw; not normalised
    Eigen::Quaternionf rotation = Eigen::Quaternionf::Identity();
    float horizontal_fov = 60;  ///< [degrees]
    float vertical_fov = 60;    ///< [degrees]
    float z_near = 0.01f;
    float z_far = 50000;
    Eigen::Matrix4f projection = Eigen::Matrix4f::Identity();
    Eigen::Matrix4f view = Eigen::Matrix4f::Identity();
    Eigen::Matrix4f vp_matrix = Eigen::Matrix4f::Identity();  ///< projection * view

    /// Moves the pivot by t.
    void translate(const Eigen::Vector3f& t);
    /// forward, up and right from rotation.
    void updateVectors();
    /// Replaces the orientation; a quaternion is taken as it is, without normalising it.
    void setRotationMatrix(const Eigen::Quaternionf& q);
    void setRotationMatrix(const Eigen::Matrix3f& m);
    /// Turns the camera further, in world axes.
    void rotate(const Eigen::Quaternionf& r);
    void rotate(const Eigen::Matrix3f& m);
    /// The shortest turn that makes (0, 0, -1) look along `direction`; sets the vertical.
    void setDirectionMatrix(const Eigen::Vector3f& direction, const Eigen::Vector3f& vertical);
    void updateView();
    void updateVPMatrix();

    EIGEN_MAKE_ALIGNED_OPERATOR_NEW
};

static_assert(alignof(CameraControlGLVars) >= 16);

}  // namespace kova
