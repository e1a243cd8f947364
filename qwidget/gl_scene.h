#pragma once

namespace kova::qwidget {

/// Depth test, multisampling and the one light of the 3-D views, in the current context.
void initLitScene();

/// Capability that the views have always asked for and GL has always refused: GL_DOUBLE is a type.
/// The call is kept, it leaves one error behind and changes nothing.
void enableRefusedCapability();

/// Replaces the upper left 3x3 of a column-major 4x4 matrix by the rotation of a quaternion.
/// @param q x, y, z, w; not normalised here; null changes nothing
void setRotation(float* matrix, const float* q);

}  // namespace kova::qwidget
