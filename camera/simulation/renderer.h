#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "camera/base/image.h"
#include "camera/simulation/rig.h"
#include "camera/simulation/scene.h"

namespace kova::camera {

/// Light on the sensors, before exposure: 16-bit, kLightUnit units per grey level of an 8-bit
/// picture at the nominal exposure. Blurred and vignetted, without noise.
struct LightPair {
    Image<std::uint16_t> left;
    Image<std::uint16_t> right;
};
constexpr int kLightUnit = 64;

/// What a pixel of the left eye truly shows; all of shape (height, width).
struct FrameTruth {
    Image<float> depth_mm;       ///< z in the left camera's frame; infinite where there is nothing
    Image<std::uint8_t> label;   ///< a SurfaceLabel
    Image<std::int16_t> object;  ///< index into Scene::objects, -1 for none
    Pose pose;                   ///< of the left camera, at the middle of the exposure
};

struct RenderOptions {
    bool motion_blur = true;
    bool antialiasing = true;  ///< off: one sample per pixel, for quick looks
    bool parallel = true;      ///< off: in the caller's thread alone
};

/// Casts rays through a scene, for both eyes of a rig.
///
/// Every pixel is the mean of 4 to 9 texture samples over its footprint and the exposure; where two
/// surfaces meet, of 6 rays. The pictures depend on scene, rig and time alone, not on the number
/// of threads. One renderer is used by one thread at a time.
class Renderer {
public:
    Renderer(Scene scene, SimulatedRig rig, RenderOptions options = {});
    ~Renderer();
    Renderer(Renderer&&) noexcept;

    const Scene& scene() const;
    const SimulatedRig& rig() const;

    /// @param t_s         start of the exposure
    /// @param exposure_s  for the motion blur
    /// @param stop        once true it returns soon, and what it rendered is worth nothing
    void render(double t_s, double exposure_s, LightPair& out,
                const std::atomic<bool>* stop = nullptr);

    /// Truth of the left picture as the pipeline sees it, one ray per pixel centre.
    void truth(double t_s, double exposure_s, FrameTruth& out);

    /// The same for another view from the left eye's centre, for instance the rectified one.
    /// @param rays          directions of the view's pixels in the view's frame
    /// @param view_from_left  rotation that takes vectors of the left frame to the view's, rows
    void truth(double t_s, double exposure_s, const RayTable& rays,
               const std::array<double, 9>& view_from_left, FrameTruth& out);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kova::camera
