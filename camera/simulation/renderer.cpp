#include "camera/simulation/renderer.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

#include "camera/base/parallel.h"
#include "camera/simulation/random.h"
#include "camera/simulation/shading.h"
#include "camera/simulation/view.h"

namespace kova::camera {

namespace {

Mat3 toMat3(const std::array<double, 9>& a) {
    Mat3 m;
    for (int i = 0; i < 9; ++i) m.m[i] = static_cast<float>(a[i]);
    return m;
}

/// The right eye's pose for a left eye's one.
Pose rightEye(const Pose& left, const StereoCalibration& c) {
    const Mat3 r = toMat3(c.right_from_left);
    const Vec3 t = {static_cast<float>(c.translation_mm[0]),
                    static_cast<float>(c.translation_mm[1]),
                    static_cast<float>(c.translation_mm[2])};
    Mat3 inverse;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) inverse.m[i * 3 + j] = r.m[j * 3 + i];
    return {left.rotation * inverse, left.position - left.rotation * r.transposed(t)};
}

void forEach(bool parallel, int count, const std::function<void(int)>& body) {
    if (parallel) {
        parallelFor(count, body);
        return;
    }
    for (int i = 0; i < count; ++i) body(i);
}

/// A Gaussian that widens towards the corners, cut after three pixels, as weights per pixel.
class LensBlur {
public:
    LensBlur(const EyeOptics& optics, int width, int height) : width_(width), height_(height) {
        active_ = optics.blur_centre_px > 0.05;
        vignette_.resize(width, height);
        for (Image<float>& w : weights_) w.resize(active_ ? width : 1, active_ ? height : 1);
        const double radius2 = 0.25 * (width * width + height * height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double dx = x - 0.5 * width + 0.5, dy = y - 0.5 * height + 0.5;
                const double r2 = (dx * dx + dy * dy) / radius2;
                vignette_.at(x, y) =
                    static_cast<float>((1.0 - optics.vignetting * r2) * kLightUnit);
                if (!active_)
                    continue;
                const double sigma =
                    optics.blur_centre_px + (optics.blur_corner_px - optics.blur_centre_px) * r2;
                double w[4], sum = 0;
                for (int k = 0; k < 4; ++k) {
                    w[k] = std::exp(-0.5 * k * k / (sigma * sigma));
                    sum += k ? 2 * w[k] : w[k];
                }
                for (int k = 0; k < 4; ++k) weights_[k].at(x, y) = static_cast<float>(w[k] / sum);
            }
    }

    /// `in` and `scratch` have a border of 3 px on the left and right, and so many rows above and
    /// below.
    void apply(const Image<float>& in, Image<float>& scratch, Image<std::uint16_t>& out,
               bool parallel) const {
        out.resize(width_, height_);
        forEach(parallel, (height_ + 6 + 15) / 16, [&](int band) {
            for (int y = band * 16; y < std::min(band * 16 + 16, height_ + 6); ++y)
                blurRow(in.row(y) + 3, scratch.row(y) + 3, std::clamp(y - 3, 0, height_ - 1));
        });
        forEach(parallel, (height_ + 15) / 16, [&](int band) {
            for (int y = band * 16; y < std::min(band * 16 + 16, height_); ++y)
                blurColumns(scratch, y, out.row(y));
        });
    }

private:
    void blurRow(const float* in, float* out, int y) const {
        if (!active_) {
            std::copy(in, in + width_, out);
            return;
        }
        const float *w0 = weights_[0].row(y), *w1 = weights_[1].row(y), *w2 = weights_[2].row(y),
                    *w3 = weights_[3].row(y);
        for (int x = 0; x < width_; ++x)
            out[x] = w0[x] * in[x] + w1[x] * (in[x - 1] + in[x + 1]) +
                     w2[x] * (in[x - 2] + in[x + 2]) + w3[x] * (in[x - 3] + in[x + 3]);
    }

    void blurColumns(const Image<float>& in, int y, std::uint16_t* out) const {
        const float* r[7];
        for (int k = 0; k < 7; ++k) r[k] = in.row(y + k) + 3;
        const float* vignette = vignette_.row(y);
        const float *w0 = weights_[0].row(active_ ? y : 0), *w1 = weights_[1].row(active_ ? y : 0),
                    *w2 = weights_[2].row(active_ ? y : 0), *w3 = weights_[3].row(active_ ? y : 0);
        for (int x = 0; x < width_; ++x) {
            float v = r[3][x];
            if (active_)
                v = w0[x] * v + w1[x] * (r[2][x] + r[4][x]) + w2[x] * (r[1][x] + r[5][x]) +
                    w3[x] * (r[0][x] + r[6][x]);
            const float scaled = v * vignette[x] + 0.5f;
            out[x] = static_cast<std::uint16_t>(static_cast<int>(std::min(scaled, 65535.0f)));
        }
    }

    int width_, height_;
    bool active_ = true;
    Image<float> weights_[4];
    Image<float> vignette_;
};

/// Fills the border of a picture with its outermost pixels.
void extendBorder(Image<float>& picture, int width, int height) {
    for (int y = 3; y < height + 3; ++y) {
        float* row = picture.row(y);
        for (int k = 0; k < 3; ++k) {
            row[k] = row[3];
            row[width + 3 + k] = row[width + 2];
        }
    }
    for (int k = 0; k < 3; ++k) {
        std::copy(picture.row(3), picture.row(3) + width + 6, picture.row(k));
        std::copy(picture.row(height + 2), picture.row(height + 2) + width + 6,
                  picture.row(height + 3 + k));
    }
}

constexpr std::uint32_t kNothing = 0xFFFFFFFFu;

}  // namespace

struct Renderer::Impl {
    Scene scene;
    SimulatedRig rig;
    RenderOptions options;
    RayTable rays[2];
    std::vector<LensBlur> blur;

    std::vector<std::uint8_t> leafy;  ///< by primitive: neighbours may be different leaves or tufts

    // Scratch, of one eye's size.
    Image<std::uint32_t> surface;  ///< primitive, face and shadow; kNothing for the sky
    Image<float> depth;
    Image<float> radiance;  ///< with a border of 3 px
    Image<float> scratch;

    struct Exposure {
        const View& view;
        const ShadowMap& shadows;
        const RayTable& rays;
        const std::vector<Primitive>& primitives;
        float light;
    };

    std::array<Pose, kShutterSteps + 1> poses(double t_s, double exposure_s, int eye) const {
        std::array<Pose, kShutterSteps + 1> poses;
        for (int i = 0; i <= kShutterSteps; ++i) {
            const double share = i < kShutterSteps ? (i + 0.5) / kShutterSteps : 0.5;
            const bool still = !options.motion_blur;
            const Pose left = scene.cameraPose(t_s + exposure_s * (still ? 0.5 : share));
            poses[i] = eye == 0 ? left : rightEye(left, rig.rendered);
        }
        return poses;
    }

    bool inShadow(const Exposure& e, const SurfacePoint& point, const Vec3& jitter) const {
        if (scene.shadow <= 0 || dot(point.normal, scene.light) <= 0)
            return false;
        return e.shadows.covered(point.position, point.normal, jitter);
    }

    void castTile(const Exposure& e, int tile);
    void shadeTile(const Exposure& e, int tile);
    bool isEdge(int x, int y) const;
    float shadeInterior(const Exposure& e, int x, int y) const;
    float shadeEdge(const Exposure& e, int tile, int x, int y) const;
    float shadeRay(const Exposure& e, int tile, int step, float rx, float ry, const Vec3& right,
                   const Vec3& down, const Vec3& jitter) const;
    float reflected(const Exposure& e, const SurfacePoint& point, const Vec3& direction, float t,
                    int primitive) const;
    void renderEye(double t_s, double exposure_s, int eye, const std::vector<Primitive>& primitives,
                   const ShadowMap& shadows, Image<std::uint16_t>& out,
                   const std::atomic<bool>* stop);
};

void Renderer::Impl::castTile(const Exposure& e, int tile) {
    const int x0 = tile % e.view.tilesX() * View::kTile, y0 = tile / e.view.tilesX() * View::kTile;
    const Pose& pose = e.view.pose(View::kMiddle);
    for (int y = y0; y < std::min(y0 + View::kTile, rig.height); ++y)
        for (int x = x0; x < std::min(x0 + View::kTile, rig.width); ++x) {
            const RayTable::Ray& r = e.rays.at(x, y);
            const Vec3 direction = pose.rotation * Vec3{r.x, r.y, 1};
            RayHit hit;
            const int found = e.view.cast(tile, View::kMiddle, r, direction, hit);
            if (found < 0) {
                surface.at(x, y) = kNothing;
                continue;
            }
            std::uint32_t key =
                static_cast<std::uint32_t>(found) << 4 | static_cast<std::uint32_t>(hit.face) << 1;
            const Material& m = scene.materials[e.primitives[found].material];
            if (!m.glows && scene.shadow > 0) {
                const SurfacePoint point =
                    surfaceAt(e.primitives[found], pose.position + direction * hit.t, hit.face);
                key |= inShadow(e, point, {}) ? 1u : 0u;
            }
            surface.at(x, y) = key;
            depth.at(x, y) = hit.t;
        }
}

bool Renderer::Impl::isEdge(int x, int y) const {
    const std::uint32_t here = surface.at(x, y);
    const int x0 = std::max(x - 1, 0), x1 = std::min(x + 1, rig.width - 1);
    const int y0 = std::max(y - 1, 0), y1 = std::min(y + 1, rig.height - 1);
    return surface.at(x0, y) != here || surface.at(x1, y) != here || surface.at(x, y0) != here ||
           surface.at(x, y1) != here || (here != kNothing && leafy[here >> 4]);
}

float Renderer::Impl::reflected(const Exposure& e, const SurfacePoint& point, const Vec3& direction,
                                float t, int primitive) const {
    const Vec3 mirrored = direction - point.normal * (2.0f * dot(point.normal, direction));
    RayHit hit;
    const bool sky_only = !scene.materials[e.primitives[primitive].material].mirrors_scene;
    const int found = sky_only ? -1 : e.view.castFree(point.position, mirrored, primitive, hit);
    if (found < 0)
        return surroundingsAt(scene, mirrored);
    const Primitive& p = e.primitives[found];
    const SurfacePoint other = surfaceAt(p, point.position + mirrored * hit.t, hit.face);
    const Material& m = scene.materials[p.material];
    const float width = (t + hit.t) * (e.rays.at(1, 0).x - e.rays.at(0, 0).x);
    const float value = albedoSample(m, other.u, other.v, width);
    return m.glows ? value : value * illumination(scene, other.normal, false);
}

float Renderer::Impl::shadeInterior(const Exposure& e, int x, int y) const {
    const Pose& pose = e.view.pose(View::kMiddle);
    const RayTable::Ray& r = e.rays.at(x, y);
    const Vec3 direction = pose.rotation * Vec3{r.x, r.y, 1};
    const std::uint32_t key = surface.at(x, y);
    if (key == kNothing)
        return skyAt(scene, direction) * e.light;

    const RayTable::Ray &rx = e.rays.at(x + 1, y), &ry = e.rays.at(x, y + 1);
    const Vec3 right = pose.rotation * Vec3{rx.x - r.x, rx.y - r.y, 0};
    const Vec3 down = pose.rotation * Vec3{ry.x - r.x, ry.y - r.y, 0};
    const int found = static_cast<int>(key >> 4);
    const Primitive& p = e.primitives[found];
    const float t = depth.at(x, y);
    const SurfacePoint point =
        surfaceAt(p, pose.position + direction * t, static_cast<int>(key >> 1 & 7));
    const Footprint footprint = footprintAt(point, direction, right, down, t);

    float motion_x = 0, motion_y = 0;
    if (options.motion_blur) {
        const Pose &first = e.view.pose(0), &last = e.view.pose(kShutterSteps - 1);
        const Vec3 a = first.rotation.transposed(point.position - first.position);
        const Vec3 b = last.rotation.transposed(point.position - last.position);
        // The poses span two thirds of the exposure.
        constexpr float kWhole = static_cast<float>(kShutterSteps) / (kShutterSteps - 1);
        motion_x = std::clamp((b.x / b.z - a.x / a.z) / (rx.x - r.x) * kWhole, -20.0f, 20.0f);
        motion_y = std::clamp((b.y / b.z - a.y / a.z) / (ry.y - r.y) * kWhole, -20.0f, 20.0f);
    }
    const Material& m = scene.materials[p.material];
    float value = albedo(m, point.u, point.v, footprint, motion_x, motion_y);
    if (!m.glows)
        value *= illumination(scene, point.normal, key & 1);
    if (m.mirror > 0)
        value = (1 - m.mirror) * value + m.mirror * reflected(e, point, direction, t, found);
    return value * e.light;
}

float Renderer::Impl::shadeRay(const Exposure& e, int tile, int step, float rx, float ry,
                               const Vec3& right, const Vec3& down, const Vec3& jitter) const {
    const Pose& pose = e.view.pose(step);
    const Vec3 direction = pose.rotation * Vec3{rx, ry, 1};
    RayHit hit;
    const int found = e.view.cast(tile, step, {rx, ry}, direction, hit);
    if (found < 0)
        return skyAt(scene, direction);
    const Primitive& p = e.primitives[found];
    const SurfacePoint point = surfaceAt(p, pose.position + direction * hit.t, hit.face);
    const Footprint f = footprintAt(point, direction, right, down, hit.t);
    const Material& m = scene.materials[p.material];
    const float width = 0.4f * std::max(std::sqrt(f.u_x * f.u_x + f.v_x * f.v_x),
                                        std::sqrt(f.u_y * f.u_y + f.v_y * f.v_y));
    float value = albedoSample(m, point.u, point.v, width);
    if (!m.glows)
        value *= illumination(scene, point.normal, inShadow(e, point, jitter));
    if (m.mirror > 0)
        value = (1 - m.mirror) * value + m.mirror * reflected(e, point, direction, hit.t, found);
    return value;
}

float Renderer::Impl::shadeEdge(const Exposure& e, int tile, int x, int y) const {
    const RayTable::Ray &r = e.rays.at(x, y), &rx = e.rays.at(x + 1, y), &ry = e.rays.at(x, y + 1);
    const Mat3& rotation = e.view.pose(View::kMiddle).rotation;
    const Vec3 right = rotation * Vec3{rx.x - r.x, rx.y - r.y, 0};
    const Vec3 down = rotation * Vec3{ry.x - r.x, ry.y - r.y, 0};
    float sum = 0;
    // Six columns and six rows, one ray in each; every step of the shutter has two of them, far
    // apart. Straight edges along rows or columns come out in six steps.
    static constexpr int kRow[6] = {2, 5, 0, 4, 1, 3};
    for (int i = 0; i < 6; ++i) {
        const float ox = static_cast<float>(2 * i - 5) * (1.0f / 12.0f);
        const float oy = static_cast<float>(2 * kRow[i] - 5) * (1.0f / 12.0f);
        const float dx = r.x + ox * (rx.x - r.x) + oy * (ry.x - r.x);
        const float dy = r.y + ox * (rx.y - r.y) + oy * (ry.y - r.y);
        const Vec3 jitter = {0.03f * oy, 0, 0.03f * ox};
        sum += shadeRay(e, tile, i % kShutterSteps, dx, dy, right, down, jitter);
    }
    return sum * (1.0f / 6.0f) * e.light;
}

void Renderer::Impl::shadeTile(const Exposure& e, int tile) {
    const int x0 = tile % e.view.tilesX() * View::kTile, y0 = tile / e.view.tilesX() * View::kTile;
    const bool thin = e.view.thinTile(tile);
    for (int y = y0; y < std::min(y0 + View::kTile, rig.height); ++y)
        for (int x = x0; x < std::min(x0 + View::kTile, rig.width); ++x) {
            const bool edge = options.antialiasing && (thin || isEdge(x, y));
            radiance.at(x + 3, y + 3) = edge ? shadeEdge(e, tile, x, y) : shadeInterior(e, x, y);
        }
}

void Renderer::Impl::renderEye(double t_s, double exposure_s, int eye,
                               const std::vector<Primitive>& primitives, const ShadowMap& shadows,
                               Image<std::uint16_t>& out, const std::atomic<bool>* stop) {
    const View view(primitives, scene.bumps, rays[eye], poses(t_s, exposure_s, eye));
    const Exposure e{view, shadows, rays[eye], primitives, static_cast<float>(scene.lightAt(t_s))};
    const int tiles = view.tilesX() * view.tilesY();
    forEach(options.parallel, tiles, [&](int tile) {
        if (!stop || !*stop)
            castTile(e, tile);
    });
    forEach(options.parallel, tiles, [&](int tile) {
        if (!stop || !*stop)
            shadeTile(e, tile);
    });
    extendBorder(radiance, rig.width, rig.height);
    blur[eye].apply(radiance, scratch, out, options.parallel);
}

Renderer::Renderer(Scene scene, SimulatedRig rig, RenderOptions options) : impl_(new Impl) {
    impl_->scene = std::move(scene);
    impl_->rig = std::move(rig);
    impl_->options = options;
    const int w = impl_->rig.width, h = impl_->rig.height;
    for (const Primitive& p : impl_->scene.primitives)
        impl_->leafy.push_back(p.shape == Shape::kLeaves || p.shape == Shape::kLawn);
    impl_->rays[0] = RayTable(impl_->rig.rendered.left, w, h);
    impl_->rays[1] = RayTable(impl_->rig.rendered.right, w, h);
    for (const EyeOptics& optics : impl_->rig.optics) impl_->blur.emplace_back(optics, w, h);
    impl_->surface.resize(w, h);
    impl_->depth.resize(w, h);
    impl_->radiance.resize(w + 6, h + 6);
    impl_->scratch.resize(w + 6, h + 6);
    NoiseTexture::instance();
}

Renderer::~Renderer() = default;
Renderer::Renderer(Renderer&&) noexcept = default;

const Scene& Renderer::scene() const {
    return impl_->scene;
}
const SimulatedRig& Renderer::rig() const {
    return impl_->rig;
}

void Renderer::render(double t_s, double exposure_s, LightPair& out,
                      const std::atomic<bool>* stop) {
    const std::vector<Primitive> primitives = impl_->scene.primitivesAt(t_s);
    const ShadowMap shadows(primitives, impl_->scene.bumps, impl_->scene.light);
    impl_->renderEye(t_s, exposure_s, 0, primitives, shadows, out.left, stop);
    impl_->renderEye(t_s, exposure_s, 1, primitives, shadows, out.right, stop);
}

void Renderer::truth(double t_s, double exposure_s, FrameTruth& out) {
    truth(t_s, exposure_s, impl_->rays[0], {1, 0, 0, 0, 1, 0, 0, 0, 1}, out);
}

void Renderer::truth(double t_s, double exposure_s, const RayTable& rays,
                     const std::array<double, 9>& view_from_left, FrameTruth& out) {
    const std::vector<Primitive> primitives = impl_->scene.primitivesAt(t_s);
    Pose pose = impl_->scene.cameraPose(t_s + 0.5 * exposure_s);
    out.pose = pose;
    const Mat3 r = toMat3(view_from_left);
    Mat3 left_from_view;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) left_from_view.m[i * 3 + j] = r.m[j * 3 + i];
    pose.rotation = pose.rotation * left_from_view;
    std::array<Pose, kShutterSteps + 1> poses;
    poses.fill(pose);
    const View view(primitives, impl_->scene.bumps, rays, poses);

    const int w = rays.width(), h = rays.height();
    out.depth_mm.resize(w, h);
    out.label.resize(w, h);
    out.object.resize(w, h);
    forEach(impl_->options.parallel, h, [&](int y) {
        for (int x = 0; x < w; ++x) {
            const RayTable::Ray& ray = rays.at(x, y);
            RayHit hit;
            const int tile = y / View::kTile * view.tilesX() + x / View::kTile;
            const int found =
                view.cast(tile, View::kMiddle, ray, pose.rotation * Vec3{ray.x, ray.y, 1}, hit);
            const Primitive* p = found < 0 ? nullptr : &primitives[found];
            out.depth_mm.at(x, y) = p ? hit.t : std::numeric_limits<float>::infinity();
            out.label.at(x, y) =
                static_cast<std::uint8_t>(p ? p->label : SurfaceLabel::kBackground);
            out.object.at(x, y) = static_cast<std::int16_t>(p ? p->object : -1);
        }
    });
}

}  // namespace kova::camera
