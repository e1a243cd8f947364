#pragma once

#include <memory>

#include "sdk/size.h"

namespace kova {

struct CameraControlGLVars;

/// The virtual camera of a 3-D view: a pivot, an orientation, an eye offset that the zoom scales,
/// and a perspective projection, kept as matrices of the fixed-function pipeline.
///
/// Lengths are in scene units (mm in this program), angles in degrees where they say so, matrices
/// column-major as glLoadMatrixf takes them. Setters change the parameters only: update() follows
/// each batch of changes and rebuilds the view. GUI thread only; not copied.
class CameraControlGL {
public:
    /// @param position   the pivot
    /// @param direction  where the camera looks; need not be normalised
    CameraControlGL(Size3_<float> position, Size3_<float> direction);
    ~CameraControlGL();
    CameraControlGL(const CameraControlGL&) = delete;
    CameraControlGL& operator=(const CameraControlGL&) = delete;

    /// Moves the pivot.
    void setPositionMatrix(Size3_<float> position);

    /// Sets the eye offset of zoom 1, in the camera's own axes, and the zoom back to 1.
    void setInitOffsetFromPositionMatrix(Size3_<float> offset);

    /// @param horizontalFov, verticalFov  [degrees], independent of each other
    /// @param zNear, zFar                 clipping distances
    void setProjection(float horizontalFov, float verticalFov, float zNear, float zFar);

    /// Turns the vertical to the side where the camera's up is, then rebuilds view and product.
    void update();

    /// Loads projection and view into the current context.
    void show();

    float getHorizontalFOV() const;
    float getVerticalFOV() const;
    float getZNear() const;
    float getZFar() const;

    /// Eye offset = offset of zoom 1, times the scale. Not clamped.
    void setZoomScale(float scale);
    float getZoomScale() const;

    /// Pans the pivot in the image plane by gain * zoom scale units per pixel.
    void setTranslation(int dx, int dy, float gain);

    /// Turns by -dx * gain radians about the vertical, then by dy * gain about the right axis.
    void setRotation(int dx, int dy, float gain);

protected:
    std::unique_ptr<CameraControlGLVars> vars_;
};

}  // namespace kova
